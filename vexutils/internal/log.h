// The log statement of the library: LOG(level, format, arguments...).
//
// Expanded in the exported function, whose name, file and line the lines carry. The arguments are
// evaluated once and go to two sinks: zentprintf always, the log file unless it is switched off.
// errno is as before afterwards.
#ifndef VEXUTILS_INTERNAL_LOG_H
#define VEXUTILS_INTERNAL_LOG_H

#include <platform/debug_log.h>

#include <atomic>
#include <cerrno>

#include "internal/vexel_state.h"
#include "internal/wide_text.h"

namespace vexutils {

enum class Level : int { Fatal = 1, Error = 2, Warning = 3, Trace = 4, Detail = 5, Verbose = 6 };

inline constexpr int kLogModule = 15;  // the library's number in the platform's debug log

class ErrnoKeeper {
  public:
    ErrnoKeeper() = default;
    ~ErrnoKeeper() { errno = saved_; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

  private:
    int saved_ = errno;
};

// Appends one line to the log file. format ends with the line's newline; texts are neither null nor
// unconvertible.
[[gnu::cold, gnu::noinline]] void write_log_line(const char* function, const char* format, ...)
    __attribute__((format(printf, 2, 3))) VEX_TAKES(logmutex);

// What a log argument is passed as: null texts as "(null)", wide texts with "?" for what no sink
// could convert.
template <class T>
T printable(T value) {
    return value;
}
inline const char* printable(const char* text) {
    return text != nullptr ? text : "(null)";
}
inline const char* printable(char* text) {
    return printable(static_cast<const char*>(text));
}
inline PrintableWide printable(const wchar_t* text) {
    return PrintableWide{text};
}
inline PrintableWide printable(wchar_t* text) {
    return PrintableWide{text};
}

template <class T>
T vararg(T value) {
    return value;
}
inline const wchar_t* vararg(const PrintableWide& text) {
    return text.get();
}

// Length of the "%s:%s:%u:" that starts every format of log_line and that the log file does not
// get.
inline constexpr int kPlacePrefixLength = 9;

// Whether the file gets no lines. Tested before write_log_line is called: most lines of most
// controllers go to the debug log alone.
inline bool log_file_is_off() {
    return log_state.file.load(std::memory_order_relaxed) == LogFile::Disabled;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
template <class... Args>
inline void send_to_sinks(Level level, int module, const char* format, const char* file,
                          const char* function, unsigned line, const Args&... args)
    VEX_TAKES(logmutex) {
    if (log_file_is_off()) {
        zentprintf(static_cast<int>(level), module, format, file, function, line, vararg(args)...);
        return;
    }
    zentprintf(static_cast<int>(level), module, format, file, function, line, vararg(args)...);
    write_log_line(function, format + kPlacePrefixLength, vararg(args)...);
}

// One function for each row of argument types, so that a statement costs the library little more
// than a call. Its arguments stand as zentprintf's do: with the file off it is a jump there.
template <class... Args>
[[gnu::noinline]] void log_line(Level level, int module, const char* format, const char* file,
                                const char* function, unsigned line, Args... args)
    VEX_TAKES(logmutex) {
    send_to_sinks(level, module, format, file, function, line, printable(args)...);
}
#pragma GCC diagnostic pop

}  // namespace vexutils

#define LOG(level, format, ...) LOG_AS(__func__, level, format __VA_OPT__(, ) __VA_ARGS__)

// As LOG, for the steps of an exported function that is too long for one body: their lines carry
// its name, by which readers of the log know it. The unreachable call lets the compiler check the
// arguments against the format; log_line is a template and cannot.
#define LOG_AS(function, level, format, ...)                                                \
    do {                                                                                    \
        if (false) {                                                                        \
            static_cast<void>(zentprintf(0, 0, format __VA_OPT__(, ) __VA_ARGS__));         \
        }                                                                                   \
        const ::vexutils::ErrnoKeeper errno_keeper;                                         \
        ::vexutils::log_line(level, ::vexutils::kLogModule, "%s:%s:%u:" format "\n",        \
                             __FILE_NAME__, function, __LINE__ __VA_OPT__(, ) __VA_ARGS__); \
    } while (false)

#endif  // VEXUTILS_INTERNAL_LOG_H
