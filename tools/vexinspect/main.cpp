// vexinspect - shows what other processes publish in shared memory and log.
#include <stdlib.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "support/input_error.h"
#include "vexinspect/explain.h"
#include "vexinspect/fru.h"
#include "vexinspect/json_report.h"
#include "vexinspect/log.h"
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
    vexinspect::LogOptions log;
    vexinspect::ExplainOptions explain;
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

void describe_log(CLI::App& command, vexinspect::LogOptions& options) {
    command.add_option("--file", options.file,
                       "current file of the log (default: VEX_EVENT_LOG, or the platform's)");
    command.add_flag("--json", options.json,
                     "as JSON, with a format version; followed, one record a line");
    command.add_flag("--follow,-f", options.follow, "go on with what is added");
    command.add_option("--records", options.records, "following: end after so many records");
    command.add_option("--interval", options.interval_seconds, "following: seconds between looks")
        ->check(CLI::Range(0.01, 3600.0));
}

void describe_explain(CLI::App& command, vexinspect::ExplainOptions& options) {
    constexpr unsigned kMaxArguments = 5;
    command.add_option("MESSAGE-ID", options.message_id, "registry id, such as CTL140")->required();
    command.add_option("--fqdd", options.fqdd, "the device that the alert is about")->required();
    command.add_option("--phase", options.phase,
                       "live (default), inventory, reinventory, past-events, or the phase word of\n"
                       "the global status, such as 0x120");
    command.add_option("--flags", options.flags,
                       "flags word of the global status, such as 0x20 (default: the phase's)");
    command.add_option("--args", options.arguments, "how many message arguments it has")
        ->check(CLI::Range(0u, kMaxArguments));
}

void describe(CLI::App& app, Options& options) {
    app.footer(
        "\nexit status: 0 shown (also what nobody has inventoried yet), 1 the shared memory or "
        "the\n"
        "             event log cannot be read, 2 wrong usage");
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
    describe_log(*app.add_subcommand("log", "the system event log"), options.log);
    describe_explain(*app.add_subcommand("explain", "whether an alert would be logged, and why"),
                     options.explain);
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
    } else if (app.got_subcommand("log")) {
        vexinspect::print_log(options.log);
    } else if (app.got_subcommand("explain")) {
        print(vexinspect::explain(options.explain));
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
    CLI::App app{"vexinspect - shows the published storage inventory and the system event log",
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
    } catch (const std::invalid_argument& error) {
        std::fprintf(stderr, "vexinspect: %s\n", error.what());
        return kWrongUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vexinspect: %s\n", error.what());
        return kFailed;
    }
    return std::fflush(stdout) == 0 ? 0 : kFailed;
}
