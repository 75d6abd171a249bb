#include "vexsim/transcript.h"

#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstring>
#include <stdexcept>

namespace vexsim {

namespace {

constexpr int64_t kMillisecondsPerSecond = 1000;
constexpr size_t kMaxLine = 1000;

[[noreturn]] void fail(const std::string& path) {
    throw std::runtime_error(path + ": " + std::strerror(errno));
}

}  // namespace

Transcript::Transcript(bool quiet, const std::string& path) : quiet_(quiet), path_(path) {
    if (!path_.empty()) {
        file_.reset(std::fopen(path_.c_str(), "we"));
        if (!file_) {
            fail(path_);
        }
    }
}

void Transcript::line(const char* format, ...) {
    char text[kMaxLine];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    const int64_t seconds = now_ / kMillisecondsPerSecond;
    const int64_t milliseconds = now_ % kMillisecondsPerSecond;
    if (!quiet_) {
        std::printf("%6" PRId64 ".%03" PRId64 "  %s\n", seconds, milliseconds, text);
        std::fflush(stdout);
    }
    if (file_) {
        std::fprintf(file_.get(), "%6" PRId64 ".%03" PRId64 "  %s\n", seconds, milliseconds, text);
    }
}

void Transcript::finish() {
    if (file_ && (std::ferror(file_.get()) != 0 || std::fclose(file_.release()) != 0)) {
        fail(path_);
    }
}

}  // namespace vexsim
