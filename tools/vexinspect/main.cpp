// vexinspect - shows what other processes publish in shared memory.
#include <stdlib.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "support/input_error.h"
#include "vexinspect/fru.h"
#include "vexinspect/json_report.h"
#include "vexinspect/map.h"
#include "vexinspect/show.h"
#include "vexinspect/watch.h"

namespace {

constexpr int kFailed = 1;
constexpr int kWrongUsage = 2;

void print(const std::string& text) {
    std::fputs(text.c_str(), stdout);
}

struct Options {
    std::string name_space;
    std::string state;
    bool json = false;
    std::vector<std::string> topics;
    vexinspect::WatchOptions watch;
};

void show(const Options& options) {
    if (options.json) {
        print(vexinspect::regions_json());
        return;
    }
    const auto topics = options.topics.empty() ? vexinspect::show_topics() : options.topics;
    for (const std::string& topic : topics) {
        print(vexinspect::show(topic));
    }
}

void describe(CLI::App& app, Options& options) {
    app.footer(
        "\nexit status: 0 shown (also what nobody has inventoried yet), 1 the shared memory "
        "cannot\n"
        "             be read, 2 wrong usage");
    app.add_option("--namespace", options.name_space,
                   "namespace of the regions (default: VEX_SHM_NAMESPACE, or \"vex\")");
    app.add_option("--state", options.state,
                   "folder of vexsim's --state, for endpoint ids and blinking drives")
        ->envname("VEXSIM_STATE");
    app.add_flag("--json", options.json, "all regions as JSON, with a format version");
    app.require_subcommand(0, 1);
    app.add_subcommand("list", "the regions and who writes them");
    CLI::App* show_command = app.add_subcommand("show", "tables of what the regions hold");
    show_command->add_option("TOPIC", options.topics, "what to show (default: everything)")
        ->check(CLI::IsMember(vexinspect::show_topics()));
    app.add_subcommand("map", "bays and slots as a picture; a star marks a drive that blinks");
    app.add_subcommand("fru", "field-replaceable units: controller cards and PCIe SSDs");
    app.add_subcommand("layout", "the layout of every region, byte by byte, as JSON");
    CLI::App* watch_command = app.add_subcommand("watch", "map and summary, after every change");
    watch_command->add_option("--interval", options.watch.interval_seconds, "seconds between looks")
        ->check(CLI::Range(0.01, 3600.0));
    watch_command->add_option("--updates", options.watch.updates, "end after so many pictures")
        ->check(CLI::NonNegativeNumber);
}

void run(const CLI::App& app, const Options& options) {
    if (app.got_subcommand("list")) {
        print(vexinspect::list_regions());
    } else if (app.got_subcommand("map")) {
        print(vexinspect::draw_map(vexinspect::read_daemon_state(options.state)));
    } else if (app.got_subcommand("fru")) {
        print(vexinspect::show_frus());
    } else if (app.got_subcommand("layout")) {
        print(vexinspect::layout_json());
    } else if (app.got_subcommand("watch")) {
        vexinspect::watch(options.watch, options.state);
    } else {
        show(options);
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app{"vexinspect - shows the storage inventory that is published in shared memory",
                 "vexinspect"};
    try {
        describe(app, options);
        app.parse(argc, argv);
        setenv("VEX_DEBUG_LOG", "none", 0);
        if (!options.name_space.empty()) {
            setenv("VEX_SHM_NAMESPACE", options.name_space.c_str(), 1);
        }
        run(app, options);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kWrongUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vexinspect: %s\n", error.what());
        return kFailed;
    }
    return std::fflush(stdout) == 0 ? 0 : kFailed;
}
