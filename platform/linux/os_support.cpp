#include "os_support.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <thread>
#include <utility>

#include "platform/debug_log.h"

namespace vexplatform {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLockPatience{5000};  // chosen: far beyond any write, short for a caller
constexpr milliseconds kLockPause{1};        // chosen: a holder writes in microseconds

}  // namespace

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
        reset();
        fd_ = other.release();
    }
    return *this;
}

int UniqueFd::release() {
    return std::exchange(fd_, -1);
}

void UniqueFd::reset() {
    if (fd_ >= 0) {
        const int saved = errno;
        close(release());
        errno = saved;
    }
}

int Deadline::remaining_ms() const {
    const auto left = std::chrono::ceil<milliseconds>(end_ - std::chrono::steady_clock::now());
    return static_cast<int>(std::max<milliseconds::rep>(left.count(), 0));
}

std::string env_text(const char* name, const char* fallback) {
    const char* text = std::getenv(name);
    return text == nullptr || *text == '\0' ? fallback : text;
}

bool env_flag(const char* name) {
    return env_text(name, "0") == "1";
}

std::optional<uint64_t> parse_number(const std::string& text) {
    uint64_t value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end) {
        return std::nullopt;
    }
    return value;
}

uint64_t env_number(const char* name, uint64_t low, uint64_t high, uint64_t fallback) {
    const std::string text = env_text(name, "");
    if (text.empty()) {
        return fallback;
    }
    const auto value = parse_number(text);
    if (!value) {
        zentprintf(kLogWarning, kLogModule, "%s=%s is no number, %llu is used\n", name,
                   text.c_str(), static_cast<unsigned long long>(fallback));
        return fallback;
    }
    const uint64_t used = std::clamp(*value, low, high);
    if (used != *value) {
        zentprintf(kLogWarning, kLogModule, "%s=%s is out of range, %llu is used\n", name,
                   text.c_str(), static_cast<unsigned long long>(used));
    }
    return used;
}

UniqueFd open_regular(const std::string& path, int flags, unsigned mode) {
    // Non-blocking, so that a pipe in the file's place is refused below instead of waited for.
    UniqueFd fd{open(path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, mode)};
    struct stat status {};
    if (!fd || fstat(fd.get(), &status) != 0) {
        return UniqueFd{};
    }
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return UniqueFd{};
    }
    return fd;
}

int write_whole(int fd, const std::string& text) {
    ssize_t written = 0;
    do {
        written = write(fd, text.data(), text.size());
    } while (written < 0 && errno == EINTR);
    if (written < 0) {
        return errno;
    }
    return static_cast<size_t>(written) == text.size() ? 0 : ENOSPC;
}

std::optional<std::string> read_file(const std::string& path, uint64_t limit) {
    const UniqueFd fd{open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)};
    struct stat status {};
    if (!fd || fstat(fd.get(), &status) != 0) {
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return std::nullopt;
    }
    std::string content;
    char block[4096];
    for (;;) {
        const ssize_t count = read(fd.get(), block, sizeof block);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return std::nullopt;
        }
        if (count == 0) {
            return content;
        }
        content.append(block, static_cast<size_t>(count));
        if (content.size() > limit) {
            errno = EFBIG;
            return std::nullopt;
        }
    }
}

FileLock::FileLock(const std::string& path) : fd_(open_regular(path, O_RDWR | O_CREAT, 0600)) {
    if (!fd_) {
        error_ = errno;
        return;
    }
    const Deadline deadline{kLockPatience};
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    while (fcntl(fd_.get(), F_OFD_SETLK, &lock) != 0) {
        if (errno != EAGAIN && errno != EACCES && errno != EINTR) {
            error_ = errno;
            return;
        }
        if (deadline.passed()) {
            error_ = ETIMEDOUT;
            return;
        }
        std::this_thread::sleep_for(kLockPause);
    }
}

}  // namespace vexplatform
