// Runs the cases where Google Benchmark is not to be had: user time, as an emulator's wall clock
// says little. Cases of several threads are left out.
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "bench/bench_support.h"

namespace bench {

namespace {

constexpr double kStretchSeconds = 0.02;

struct Options {
    int repetitions = 5;
    std::string out;
    std::string filter;
};

bool parse(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const std::size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        const std::string value = equals != std::string::npos ? argument.substr(equals + 1) : "";
        if (name == "--repetitions" && std::atoi(value.c_str()) > 0) {
            options.repetitions = std::atoi(value.c_str());
        } else if (name == "--out") {
            options.out = value;
        } else if (name == "--filter") {
            options.filter = value;
        } else {
            std::fprintf(stderr, "vex_bench: unknown argument '%s'\n", argv[i]);
            return false;
        }
    }
    return true;
}

double processor_seconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double seconds_of(const Case& one, unsigned long count) {
    const double start = processor_seconds();
    for (unsigned long i = 0; i < count; ++i) {
        one.operation();
    }
    return processor_seconds() - start;
}

// Nanoseconds of one operation, over a stretch long enough for the clock.
double measure(const Case& one) {
    one.setup();
    unsigned long count = 1;
    double seconds = seconds_of(one, count);
    while (seconds < kStretchSeconds) {
        const double wanted = 1.4 * kStretchSeconds / std::max(seconds, kStretchSeconds / 100);
        count =
            std::max(count + 1, static_cast<unsigned long>(static_cast<double>(count) * wanted));
        seconds = seconds_of(one, count);
    }
    return seconds * 1e9 / static_cast<double>(count);
}

}  // namespace

int run_cases(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) {
        return 2;
    }
    std::vector<const Case*> chosen;
    for (const Case& one : cases()) {
        if (one.threads == 1 && one.name.find(options.filter) != std::string::npos) {
            chosen.push_back(&one);
        }
    }
    std::vector<std::vector<double>> times(chosen.size());
    for (int round = 0; round < options.repetitions; ++round) {
        for (std::size_t i = 0; i < chosen.size(); ++i) {
            times[i].push_back(measure(*chosen[i]));
        }
    }
    std::ofstream out{options.out.empty() ? "/dev/stdout" : options.out};
    out << "{\"benchmarks\": [";
    for (std::size_t i = 0; i < chosen.size(); ++i) {
        std::sort(times[i].begin(), times[i].end());
        out << (i != 0 ? ",\n" : "\n") << "{\"run_name\": \"" << chosen[i]->name
            << "\", \"aggregate_name\": \"median\", \"real_time\": "
            << times[i][times[i].size() / 2] << "}";
    }
    out << "\n]}\n";
    return out.flush() ? 0 : 1;
}

}  // namespace bench
