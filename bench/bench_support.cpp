#include "bench/bench_support.h"

#include <fcntl.h>
#include <platform/debug_log.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sstream>

#include "internal/vexel_state.h"
#include "vexel.h"

namespace bench {

namespace {

constexpr int kPipeBytes = 1 << 20;

std::vector<Case>& all_cases() {
    static std::vector<Case> all;
    return all;
}

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
    // A pipe keeps all lines, where the log's file starts afresh after 1,000.
    const std::string pipe = log_path() + ".pipe";
    must(mkfifo(pipe.c_str(), 0600) == 0, "mkfifo");
    const int descriptor = open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    must(fcntl(descriptor, F_SETPIPE_SZ, kPipeBytes) >= 0, "a pipe for all lines");
    log_file(true);
    pRTLogPath = pipe.c_str();
    operation();
    log_file(true);
    std::string text(kPipeBytes, '\0');
    const ssize_t got = read(descriptor, text.data(), text.size());
    text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    close(descriptor);
    unlink(pipe.c_str());
    std::vector<std::string> lines;
    std::istringstream stream{text};
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line + '\n');
    }
    must(!lines.empty(), "an operation that logs");
    return lines;
}

void write_raw(const std::vector<std::string>& lines) {
    static thread_local unsigned depth = 0;
    for (const std::string& line : lines) {
        // The file is started afresh as often as the log's.
        const int afresh = ++depth % 1000 == 0 ? O_TRUNC : 0;
        const int descriptor =
            open(log_path().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | afresh, 0644);
        keep(write(descriptor, line.data(), line.size()));
        close(descriptor);
    }
}

void add(const std::string& name, Operation setup, Operation operation, int threads) {
    all_cases().push_back({name, std::move(setup), std::move(operation), threads});
}

const std::vector<Case>& cases() {
    return all_cases();
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

void add_owing_lines(const std::string& path, Operation setup, Operation operation,
                     Operation least_work) {
    const auto lines = std::make_shared<std::size_t>();
    add(
        path + "/floor",
        [=] {
            setup();
            *lines = lines_of(operation).size();
            log_file(false);
        },
        [=] {
            for (std::size_t i = 0; i < *lines; ++i) {
                zentprintf(4, 15, "%s:%s:%u:%s\n", "bench_support.cpp", "floor", 1u, " entry");
            }
            least_work();
        });
    add(
        path + "/lib",
        [=] {
            setup();
            log_file(false);
        },
        operation);
}

void use_world(const std::string& name, const Operation& build) {
    static std::string current;
    if (current != name) {
        log_file(false);
        build();
        current = name;
    }
}

void must(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "vex_bench: failed: %s\n", what);
        std::exit(1);
    }
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
