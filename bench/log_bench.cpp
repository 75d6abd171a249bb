// The trace log: one line with the file on, from one and from two threads, and with the file off.
#include <platform/debug_log.h>

#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>

#include "bench/bench_support.h"
#include "internal/log.h"

#ifdef VEX_PEER_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace bench {

namespace {

// The library's own statement, as every exported function has two of.
void two_lines() {
    LOG(vexutils::Level::Trace, "%s", " entry");
    LOG(vexutils::Level::Trace, "%s", " exit");
}

// The same lines by the C library's streams, as one would write it first.
void two_lines_stdio() {
    static std::mutex mutex;
    for (const char* message : {" entry", " exit"}) {
        const std::lock_guard lock{mutex};
        const std::time_t now = std::time(nullptr);
        std::tm broken{};
        localtime_r(&now, &broken);
        std::FILE* file = std::fopen(log_path().c_str(), "a+");
        std::fprintf(file, "(T:%08X) %02d-%02d %02d:%02d:%02d [%s] ", 0u, broken.tm_mon + 1,
                     broken.tm_mday, broken.tm_hour, broken.tm_min, broken.tm_sec, "memcpy_safe");
        std::fprintf(file, "%s", message);
        std::fprintf(file, "\n");
        std::fclose(file);
    }
}

#ifdef VEX_PEER_SPDLOG
void register_spdlog() {
    auto to_file = spdlog::basic_logger_mt("file", log_path() + ".spdlog", true);
    to_file->flush_on(spdlog::level::info);
    add(
        "trace_line/peer_spdlog", [] {},
        [to_file] {
            to_file->info("{}", " entry");
            to_file->info("{}", " exit");
        });
    auto off = spdlog::basic_logger_mt("off", log_path() + ".spdlog");
    off->set_level(spdlog::level::err);
    add(
        "trace_line_off/peer_spdlog", [] {},
        [off] {
            off->info("{}", " entry");
            off->info("{}", " exit");
        });
    at_exit([] { std::remove((log_path() + ".spdlog").c_str()); });
}
#endif

}  // namespace

void register_log_cases() {
    add_logged(
        "trace_line", [] {}, two_lines);
    add(
        "trace_line/naive_stdio", [] {}, two_lines_stdio);
    add_logged(
        "trace_line_2_threads", [] {}, two_lines, 2);
    add(
        "trace_line_2_threads/naive_stdio", [] {}, two_lines_stdio, 2);
    // A line's cost does not depend on what the file holds already.
    for (const int lines : {0, 500, 998}) {
        add(
            "trace_file_" + std::to_string(lines) + "/lib", [] { log_file(true); },
            [lines] {
                vexutils::log_state.depth = static_cast<uint32_t>(lines);
                LOG(vexutils::Level::Trace, "%s", " entry");
            });
    }
    add(
        "trace_line_off/floor", [] {},
        [] {
            for (int i = 0; i < 2; ++i) {
                zentprintf(4, 15, "%s:%s:%u:%s\n", "log_bench.cpp", "two_lines", 1u, " entry");
            }
        });
    add(
        "trace_line_off/lib", [] { log_file(false); }, two_lines);
#ifdef VEX_PEER_SPDLOG
    register_spdlog();
#endif
}

}  // namespace bench
