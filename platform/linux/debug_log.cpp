#include "platform/debug_log.h"

#include <syslog.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

enum class Sink { None, Syslog, Stderr };

constexpr int kDefaultLevel = 2;
constexpr int kHighestLevel = 6;
constexpr size_t kMessageSize = 2048;  // Chosen: callers may have 100 KB of stack in all.

// Sink and level in one word, so that threads that read the environment at the same time store the
// same value twice.
constexpr int kUnread = -1;
constinit std::atomic<int> configuration{kUnread};

Sink configured_sink() {
    const char* text = getenv("VEX_DEBUG_LOG");
    const std::string_view name = text != nullptr ? text : "";
    if (name == "stderr") {
        return Sink::Stderr;
    }
    return name == "none" ? Sink::None : Sink::Syslog;
}

int configured_level() {
    const char* text = getenv("VEX_DEBUG_LEVEL");
    if (text == nullptr) {
        return kDefaultLevel;
    }
    const char* end = text + strlen(text);
    int level = 0;
    const auto [stop, error] = std::from_chars(text, end, level);
    if (error != std::errc{} || stop != end || level < 0) {
        return kDefaultLevel;
    }
    return level > kHighestLevel ? kHighestLevel : level;
}

// Highest level that passes to the sink; the sink "none" lets nothing pass.
std::pair<Sink, int> read_configuration() {
    int packed = configuration.load(std::memory_order_relaxed);
    if (packed == kUnread) {
        const Sink sink = configured_sink();
        packed = static_cast<int>(sink) << 8 | (sink == Sink::None ? 0 : configured_level());
        configuration.store(packed, std::memory_order_relaxed);
    }
    return {static_cast<Sink>(packed >> 8), packed & 0xFF};
}

int syslog_priority(int level) {
    constexpr std::array priorities{LOG_ERR,  LOG_ERR,   LOG_WARNING, LOG_NOTICE,
                                    LOG_INFO, LOG_DEBUG, LOG_DEBUG};
    return LOG_DAEMON | priorities.at(static_cast<size_t>(level));
}

// Ends a message that was cut or could not be converted to its end, with the newline that its
// format carries.
size_t end_early(std::array<char, kMessageSize>& message, bool unconvertible, bool newline) {
    const std::string_view tail = unconvertible ? "?\n" : "\n";
    const size_t kept = strnlen(message.data(), message.size() - 1 - tail.size());
    const size_t added = newline ? tail.size() : tail.size() - 1;
    memcpy(&message[kept], tail.data(), added);
    message[kept + added] = '\0';
    return kept + added;
}

__attribute__((format(printf, 2, 0))) size_t format_message(std::array<char, kMessageSize>& message,
                                                            const char* format, va_list arguments) {
    message.fill('\0');  // A failed conversion leaves what came before it, not always terminated.
    const int length = vsnprintf(message.data(), message.size(), format, arguments);
    if (length >= 0 && static_cast<size_t>(length) < message.size()) {
        return static_cast<size_t>(length);
    }
    return end_early(message, length < 0, std::string_view{format}.ends_with('\n'));
}

// One write for a whole message, so that lines of several threads do not mix; the rest of a partial
// write follows.
void write_stderr(const char* text, size_t length) {
    while (length > 0) {
        const ssize_t written = write(STDERR_FILENO, text, length);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;
        }
        text += written;
        length -= static_cast<size_t>(written);
    }
}

}  // namespace

int zentprintf(int level, int /*module*/, const char* format, ...) {
    const auto [sink, highest] = read_configuration();
    if (level > highest || format == nullptr) {
        return 0;
    }

    std::array<char, kMessageSize> message;
    va_list arguments;
    va_start(arguments, format);
    const size_t length = format_message(message, format, arguments);
    va_end(arguments);

    if (sink == Sink::Stderr) {
        write_stderr(message.data(), length);
    } else {
        syslog(syslog_priority(level < 0 ? 0 : level), "%s", message.data());
    }
    return 0;
}
