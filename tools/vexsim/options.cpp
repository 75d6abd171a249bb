#include "vexsim/options.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>

#include "support/input_error.h"

namespace vexsim {

namespace {

constexpr int kWrongUsage = 2;
constexpr const char* kScenarioFolder = "share/vexutils/scenarios";
constexpr const char* kDefaultName = "default.json";

constexpr const char* kFooter = R"(
Regions go to the namespace VEX_SHM_NAMESPACE (default "vex"), where vexinspect
reads them. They are removed at the end unless --keep is given.

exit status: 0 played to the end, 1 something failed, 2 bad scenario or usage,
             130 stopped by a signal)";

void describe(CLI::App& app, Options& options) {
    app.footer(kFooter);
    app.add_option("SCENARIO", options.scenario, "scenario file (default: the shipped server)");
    app.add_option("--speed", options.play.speed,
                   "virtual seconds in a real one; 0 as fast as possible (default)")
        ->check(CLI::NonNegativeNumber);
    app.add_option("--seed", options.seed, "seed of the sensors (default: the scenario's)");
    app.add_flag("--keep", options.keep, "leave the regions behind");
    app.add_option("--hold", options.play.hold_seconds,
                   "real seconds to wait between the last step and the shutdown")
        ->check(CLI::Range(0, 1'000'000));
    app.add_option("--after-poll", options.play.after_poll,
                   "shell command to run after each poll, with VEXSIM_POLL and VEXSIM_SECONDS");
    app.add_option("--transcript", options.transcript, "file that gets what happened");
    app.add_option("--trace", options.trace, "trace log of the library (default: none is kept)");
    app.add_option("--state", options.state,
                   "folder that gets the endpoint ids and the drive states written to the\n"
                   "backplane, for vexinspect (default: none is kept)");
    app.add_flag("--quiet,-q", options.quiet, "print nothing but failures");
    app.add_flag("--check", options.check, "read the scenario, play nothing");
    app.add_flag("--cleanup", options.cleanup, "remove the regions of the namespace and end");
}

}  // namespace

std::optional<Options> parse_options(int argc, char** argv, int& exit_status) {
    Options options;
    CLI::App app{"vexsim - plays the storage monitoring daemon of a server described in a file",
                 "vexsim"};
    describe(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        exit_status = app.exit(error) == 0 ? 0 : kWrongUsage;
        return std::nullopt;
    }
    return options;
}

std::string default_scenario() {
    namespace fs = std::filesystem;
    const char* folder = std::getenv("VEX_SCENARIO_DIR");
    if (folder != nullptr && *folder != '\0') {
        return (fs::path(folder) / kDefaultName).string();
    }
    // The build tree is laid out like an installation: bin beside share.
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe", error);
    const fs::path path = program.parent_path().parent_path() / kScenarioFolder / kDefaultName;
    if (error || !fs::exists(path, error)) {
        throw vextools::InputError(path.string(),
                                   "the shipped scenario is not there; name one, or its folder in "
                                   "VEX_SCENARIO_DIR");
    }
    return path.string();
}

}  // namespace vexsim
