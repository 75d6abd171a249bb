// vexsim - plays the storage monitoring daemon over the library.
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "platform/linux/shm_admin.h"
#include "support/input_error.h"
#include "vexel.h"
#include "vexsim/options.h"
#include "vexsim/player.h"
#include "vexsim/runtime_failure.h"
#include "vexsim/scenario_parser.h"
#include "vexsim/transcript.h"

namespace {

constexpr int kFailed = 1;
constexpr int kBadInput = 2;
constexpr int kStopped = 130;

// A folder of this run alone, removed with it.
class RunFolder {
  public:
    RunFolder() {
        std::string pattern = std::filesystem::temp_directory_path() / "vexsim.XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            throw vexsim::RuntimeFailure(pattern + ": cannot be made");
        }
        path_ = pattern;
    }
    ~RunFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    RunFolder(const RunFolder&) = delete;
    RunFolder& operator=(const RunFolder&) = delete;

    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

int remove_regions() {
    const int error = vexplatform_shm_remove_all();
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "the regions cannot be removed");
    }
    return 0;
}

// What the library and the platform write beside the regions goes where it belongs to this run.
void divert_logs(const vexsim::Options& options, const RunFolder& folder, std::string& trace,
                 std::string& backup) {
    trace = options.trace.empty() ? folder.path() + "/vexel.log" : options.trace;
    backup = trace + ".bak";
    pRTLogPath = trace.c_str();
    pRTBakLogPath = backup.c_str();
    setenv("VEX_DEBUG_LOG", "none", 0);
    setenv("VEX_EVENT_LOG", (folder.path() + "/events.log").c_str(), 0);
}

// What vexinspect, of this run or started by its --after-poll, is told beside the regions.
std::string state_folder(const vexsim::Options& options, const RunFolder& folder) {
    if (options.state.empty()) {
        setenv("VEXSIM_STATE", folder.path().c_str(), 1);
        setenv("VEX_BACKPLANE_STATE", (folder.path() + "/backplane.json").c_str(), 0);
        return folder.path();
    }
    std::filesystem::create_directories(options.state);
    std::filesystem::remove(options.state + "/backplane.json");  // of a run before
    setenv("VEXSIM_STATE", options.state.c_str(), 1);
    setenv("VEX_BACKPLANE_STATE", (options.state + "/backplane.json").c_str(), 1);
    return options.state;
}

int play(const vexsim::Options& options, const vexsim::Scenario& scenario) {
    static std::string trace;  // the library reads the paths as long as the process lives
    static std::string backup;
    const RunFolder folder;
    divert_logs(options, folder, trace, backup);
    vexsim::PlayOptions how = options.play;
    how.seed = options.seed.value_or(scenario.seed);
    how.folder = folder.path();
    how.state = state_folder(options, folder);
    vexsim::Transcript transcript(options.quiet, options.transcript);
    vexsim::stop_on_signals();
    bool finished = false;
    try {
        finished = vexsim::Player(scenario, how, transcript).play();
    } catch (...) {
        if (!options.keep) {
            vexplatform_shm_remove_all();
        }
        throw;
    }
    if (!options.keep) {
        remove_regions();
    }
    transcript.finish();
    return finished ? 0 : kStopped;
}

int run(const vexsim::Options& options) {
    if (options.cleanup) {
        return remove_regions();
    }
    const std::string file =
        options.scenario.empty() ? vexsim::default_scenario() : options.scenario;
    const vexsim::Scenario scenario = vexsim::load_scenario(file);
    if (options.check) {
        std::printf("%s: %zu controllers, %zu NVMe drives, %zu steps\n", scenario.name.c_str(),
                    scenario.controllers.size(), scenario.nvme.size(), scenario.steps.size());
        return 0;
    }
    return play(options, scenario);
}

}  // namespace

int main(int argc, char** argv) {
    int exit_status = 0;
    try {
        const auto options = vexsim::parse_options(argc, argv, exit_status);
        return options ? run(*options) : exit_status;
    } catch (const vextools::InputError& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return kBadInput;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vexsim: %s\n", error.what());
        return kFailed;
    }
}
