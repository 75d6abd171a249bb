#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string_view>

#include "internal/log.h"
#include "internal/vexel_state.h"
#include "vexel.h"

const char* pRTLogPath = "/var/log/vexel.log";
const char* pRTBakLogPath = "/var/log/vexel.log.bak";
vexutils::LogMutex logmutex = PTHREAD_MUTEX_INITIALIZER;
const uint32_t MAX_LOG_ENTRY_SIZE = 511;
const char* pMUtexName = "VEXEL";

namespace vexutils {

constinit LogState log_state;

namespace {

constexpr int kMaxFileLines = 1000;  // bounds the file on the controller's small file system
constexpr int kDumpBytesPerLine = 16;
constexpr mode_t kLogFileMode = 0644;

pthread_mutexattr_t log_mutex_attributes;  // of rt_log_init, which runs alone

// A thread cancelled while it holds logmutex would silence the log for good, so it cannot be.
class CancellationOff {
  public:
    CancellationOff() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~CancellationOff() { pthread_setcancelstate(before_, nullptr); }
    CancellationOff(const CancellationOff&) = delete;
    CancellationOff& operator=(const CancellationOff&) = delete;

  private:
    int before_ = 0;
};

class VEX_SCOPED_LOCK LogMutexGuard {
  public:
    LogMutexGuard() VEX_ACQUIRES(logmutex) : locked_(pthread_mutex_lock(&logmutex) == 0) {}
    ~LogMutexGuard() VEX_RELEASES() {
        if (locked_) {
            pthread_mutex_unlock(&logmutex);
        }
    }
    LogMutexGuard(const LogMutexGuard&) = delete;
    LogMutexGuard& operator=(const LogMutexGuard&) = delete;
    explicit operator bool() const { return locked_; }

  private:
    bool locked_;
};

// The log file, open while this lives; no handle outlives a line.
class LogFileHandle {
  public:
    explicit LogFileHandle(bool afresh)
        : descriptor_(open(pRTLogPath,
                           O_WRONLY | O_CREAT | O_CLOEXEC | O_APPEND | (afresh ? O_TRUNC : 0),
                           kLogFileMode)) {}
    ~LogFileHandle() { close(); }
    LogFileHandle(const LogFileHandle&) = delete;
    LogFileHandle& operator=(const LogFileHandle&) = delete;
    explicit operator bool() const { return descriptor_ >= 0; }

    void close() {
        if (descriptor_ >= 0) {
            ::close(descriptor_);
            descriptor_ = -1;
        }
    }

    void write_all(std::string_view text) const VEX_REQUIRES(logmutex) {
        while (!text.empty()) {
            const ssize_t written = write(descriptor_, text.data(), text.size());
            if (written > 0) {
                text.remove_prefix(static_cast<std::size_t>(written));
            } else if (written == 0 || errno != EINTR) {
                return;
            }
        }
    }

  private:
    int descriptor_;
};

// Local time of the last line, broken down once a second.
std::time_t broken_down_second VEX_GUARDED_BY(logmutex) = -1;
std::tm broken_down VEX_GUARDED_BY(logmutex);

const std::tm& local_time_now() VEX_REQUIRES(logmutex) {
    const std::time_t now = std::time(nullptr);
    if (now != broken_down_second) {
        localtime_r(&now, &broken_down);
        broken_down_second = now;
    }
    return broken_down;
}

char* put_two_digits(char* out, int value, char after) {
    out[0] = static_cast<char>('0' + value / 10 % 10);
    out[1] = static_cast<char>('0' + value % 10);
    out[2] = after;
    return out + 3;
}

// One line of the file: "(T:XXXXXXXX) MM-DD hh:mm:ss [function] message\n". The message is
// formatted before the lock is taken, behind room for the prefix, so that the line leaves in one
// write.
class LogLine {
  public:
    LogLine(const char* function, const char* format, va_list arguments)
        : function_(std::string_view{function}.substr(0, kLongestFunction)),
          prefix_length_(kFixedPrefix + function_.size() + kAfterFunction) {
        va_list again;
        va_copy(again, arguments);
        const std::size_t room = sizeof(stack_) - prefix_length_;
        const int written = std::vsnprintf(stack_ + prefix_length_, room, format, arguments);
        if (written >= 0 && static_cast<std::size_t>(written) < room) {
            length_ = prefix_length_ + static_cast<std::size_t>(written);
        } else if (written < 0 ||
                   !format_on_heap(static_cast<std::size_t>(written) + 1, format, again)) {
            end_early(room);
        }
        va_end(again);
    }

    // Completes the prefix.
    std::string_view finish() VEX_REQUIRES(logmutex) {
        const auto thread = static_cast<unsigned>(pthread_self());
        char* out = line_ + std::snprintf(line_, kFixedPrefix, "(T:%08X) ", thread);
        const std::tm& now = local_time_now();
        out = put_two_digits(out, now.tm_mon + 1, '-');
        out = put_two_digits(out, now.tm_mday, ' ');
        out = put_two_digits(out, now.tm_hour, ':');
        out = put_two_digits(out, now.tm_min, ':');
        out = put_two_digits(out, now.tm_sec, ' ');
        *out++ = '[';
        std::memcpy(out, function_.data(), function_.size());
        std::memcpy(out + function_.size(), "] ", kAfterFunction);
        return {line_, length_};
    }

  private:
    static constexpr std::size_t kStackBytes = 1024;  // most lines; longer ones go to the heap
    static constexpr std::size_t kFixedPrefix = 13 + 15 + 1;  // thread, time, "["
    static constexpr std::size_t kLongestFunction = 256;
    static constexpr std::size_t kAfterFunction = 2;  // "] "

    bool format_on_heap(std::size_t room, const char* format, va_list arguments) {
        heap_ = make_owned<char>(prefix_length_ + room);
        if (heap_ == nullptr) {
            return false;
        }
        line_ = heap_.get();
        static_cast<void>(std::vsnprintf(line_ + prefix_length_, room, format, arguments));
        length_ = prefix_length_ + std::strlen(line_ + prefix_length_);
        return true;
    }

    // Without memory, or at text that cannot be converted: keeps what there is, and the line's end.
    void end_early(std::size_t room) {
        char* message = stack_ + prefix_length_;
        const std::size_t kept = strnlen(message, room - 2);
        message[kept] = '\n';
        length_ = prefix_length_ + kept + 1;
    }

    std::string_view function_;
    std::size_t prefix_length_;
    std::size_t length_ = 0;
    Owned<char> heap_;
    char stack_[kStackBytes];
    char* line_ = stack_;
};

// Sends a report of rt_log_init or rt_log_Exit to the debug log only.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
template <class T>
int report(const char* function, unsigned line, const char* format, T value) {
    return zentprintf(static_cast<int>(Level::Fatal), kLogModule, format, __FILE_NAME__, function,
                      line, value);
}
#pragma GCC diagnostic pop

// "000010: 41 42 ...   AB\n" for up to 16 bytes; room: 255 characters.
std::string_view dump_line(std::span<char, 255> room, std::span<const unsigned char> bytes,
                           unsigned offset) {
    char* out = room.data() + std::snprintf(room.data(), room.size(), "%06x: ", offset);
    for (std::size_t i = 0; i < kDumpBytesPerLine; ++i) {
        out += i < bytes.size() ? std::snprintf(out, 4, "%02x ", bytes[i])
                                : std::snprintf(out, 4, "   ");
    }
    *out++ = ' ';
    for (const unsigned char byte : bytes) {
        *out++ = byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : '.';
    }
    *out++ = '\n';
    *out = '\0';
    return {room.data(), out};
}

}  // namespace

void write_log_line(const char* function, const char* format, ...) {
    if (IsvexelLogDisabled() != static_cast<unsigned>(LogFile::Enabled)) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    LogLine line{function, format, arguments};
    va_end(arguments);
    const CancellationOff no_cancellation;
    const LogMutexGuard lock;
    if (!lock) {
        return;
    }
    const LogFileHandle file{hasLogDepthExceeded(kMaxFileLines) == 1};
    if (file) {
        file.write_all(line.finish());
    }
}

}  // namespace vexutils

using namespace vexutils;

unsigned hasLogDepthExceeded(int limit) {
    const std::uint32_t lines = log_state.depth + 1;
    if (static_cast<std::int64_t>(lines) <= limit) {
        log_state.depth = lines;
        return 0;
    }
    log_state.depth = 1;
    return 1;
}

unsigned IsvexelLogDisabled(void) {
    LogFile file = log_state.file.load(std::memory_order_relaxed);
    if (file == LogFile::NotChecked) {
        file = file_exists(flag_paths.log_disabled) ? LogFile::Disabled : LogFile::Enabled;
        log_state.file.store(file, std::memory_order_relaxed);
    }
    return static_cast<unsigned>(file);
}

int rt_log_init(void) {
    static_cast<void>(std::rename(pRTLogPath, pRTBakLogPath));
    if (!LogFileHandle{true}) {
        log_state.init.store(LogInit::NoFile);
        return report(__func__, __LINE__, "%s:%s:%u:Failed to create log file %s\n", pRTLogPath);
    }

    int result = 0;
    if (const int error = pthread_mutexattr_init(&log_mutex_attributes); error != 0) {
        result =
            report(__func__, __LINE__, "%s:%s:%u:pthread_mutexattr_init failed with %d\n", error);
    } else if (const int mutex_error = pthread_mutex_init(&logmutex, &log_mutex_attributes);
               mutex_error != 0) {
        result = report(__func__, __LINE__, "%s:%s:%u:pthread_mutex_init  failed with %d\n",
                        mutex_error);
    }
    log_state.init.store(LogInit::Done);
    return result;
}

void rt_log_Exit(void) {
    // Kept: two thresholds although only the states 0, 1 and 4 exist.
    const auto state = static_cast<unsigned>(log_state.init.load());
    if (state > 2) {
        if (const int error = pthread_mutexattr_destroy(&log_mutex_attributes); error != 0) {
            report(__func__, __LINE__, "%s:%s:%u:pthread_mutexattr_destroy failed with %d\n",
                   error);
        }
    }
    if (state > 3) {
        if (const int error = pthread_mutex_destroy(&logmutex); error != 0) {
            report(__func__, __LINE__, "%s:%s:%u:pthread_mutex_destroy  failed with %d\n", error);
            return;
        }
        // Late lines, and a later rt_log_init, find a mutex again.
        constexpr pthread_mutex_t kFresh = PTHREAD_MUTEX_INITIALIZER;
        logmutex = kFresh;
    }
}

void vexel_wlog(uint32_t, const char* tag, const wchar_t* text) {
    if (tag == nullptr || text == nullptr || log_state.init.load() != LogInit::Done) {
        return;
    }
    LOG(Level::Trace, "[%s] %S", tag, text);
}

int hexdump(const void* bytes, int length) {
    if (bytes == nullptr || IsvexelLogDisabled() != static_cast<unsigned>(LogFile::Enabled)) {
        return 0;
    }
    const ErrnoKeeper keeper;
    const CancellationOff no_cancellation;
    LogFileHandle file{false};
    const LogMutexGuard lock;
    if (!lock) {
        return 0;
    }

    const auto* data = static_cast<const unsigned char*>(bytes);
    for (int offset = 0; offset < length; offset += std::min(kDumpBytesPerLine, length - offset)) {
        const auto count = static_cast<std::size_t>(std::min(kDumpBytesPerLine, length - offset));
        char room[255];
        const std::string_view line =
            dump_line(room, {data + offset, count}, static_cast<unsigned>(offset));
        if (file) {
            file.write_all(line);
        }
        zentprintf(static_cast<int>(Level::Trace), kLogModule, "%s", room);
    }
    file.close();  // under the lock, like every write
    return 0;
}
