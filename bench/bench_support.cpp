#include "bench/bench_support.h"

#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <memory>

#include "internal/vexel_state.h"
#include "vexel.h"

namespace bench {

namespace {

std::vector<Operation>& exits() {
    static std::vector<Operation> operations;
    return operations;
}

}  // namespace

const std::string& log_path() {
    static const std::string path = [] {
        std::string pattern = "/tmp/vexbenchXXXXXX";
        const int descriptor = mkstemp(pattern.data());
        close(descriptor);
        return pattern;
    }();
    return path;
}

void log_file(bool on) {
    pRTLogPath = log_path().c_str();
    vexutils::log_state.file = on ? vexutils::LogFile::Enabled : vexutils::LogFile::Disabled;
}

std::vector<std::string> lines_of(const Operation& operation) {
    log_file(true);
    std::ofstream{log_path(), std::ios::trunc}.flush();
    vexutils::log_state.depth = 0;
    operation();
    std::vector<std::string> lines;
    std::ifstream file{log_path()};
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line + '\n');
    }
    return lines;
}

void write_raw(const std::vector<std::string>& lines) {
    static thread_local unsigned depth = 0;
    for (const std::string& line : lines) {
        // The file is started afresh as often as the log's.
        const int afresh = ++depth % 1000 == 0 ? O_TRUNC : 0;
        const int descriptor =
            open(log_path().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | afresh, 0644);
        benchmark::DoNotOptimize(write(descriptor, line.data(), line.size()));
        close(descriptor);
    }
}

void add(const std::string& name, Operation setup, Operation operation, int threads) {
    auto* registered =
        benchmark::RegisterBenchmark(name.c_str(), [setup, operation](benchmark::State& state) {
            if (state.thread_index() == 0) {
                setup();
            }
            for (auto step : state) {
                benchmark::DoNotOptimize(step);
                operation();
            }
        });
    if (threads > 1) {
        registered->Threads(threads)->UseRealTime();
    }
}

void add_logged(const std::string& path, Operation setup, Operation operation, int threads) {
    const auto lines = std::make_shared<std::vector<std::string>>();
    add(
        path + "/floor",
        [=] {
            setup();
            *lines = lines_of(operation);
        },
        [=] { write_raw(*lines); }, threads);
    add(
        path + "/lib",
        [=] {
            setup();
            log_file(true);
        },
        operation, threads);
}

void at_exit(Operation operation) {
    exits().push_back(std::move(operation));
}

void run_exits() {
    for (const Operation& operation : exits()) {
        operation();
    }
}

}  // namespace bench
