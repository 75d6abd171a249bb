/*
 * os_support.h - what the services of this platform share: descriptors, settings from the
 * environment, the lock that keeps processes apart, the log line of a service. All functions may be
 * called from any thread; the environment is read at each call, so whoever changes it does so while
 * no other thread is inside a service.
 */
#ifndef PLATFORM_LINUX_OS_SUPPORT_H
#define PLATFORM_LINUX_OS_SUPPORT_H

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace vexplatform {

/* Module number of the platform's own debug log lines; the library's are 15. */
inline constexpr int kLogModule = 1;

/* Levels of the debug log that the services use. */
inline constexpr int kLogFailure = 2;
inline constexpr int kLogWarning = 3;
inline constexpr int kLogRoutine = 4;

/* A file descriptor that closes itself; -1 holds nothing. Closing leaves errno alone. */
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept;
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release();
    void reset();

  private:
    int fd_ = -1;
};

/* The moment at which an operation gives up, on the monotonic clock. */
class Deadline {
  public:
    explicit Deadline(std::chrono::milliseconds span)
        : end_(std::chrono::steady_clock::now() + span) {}
    bool passed() const { return std::chrono::steady_clock::now() >= end_; }
    /* Milliseconds left for poll(), rounded up, 0 once passed. */
    int remaining_ms() const;

  private:
    std::chrono::steady_clock::time_point end_;
};

/* Text of an environment variable. Returns: fallback when it is unset or empty. */
std::string env_text(const char* name, const char* fallback);

/* Is the variable set to 1? */
bool env_flag(const char* name);

/*
 * Decimal number of an environment variable.
 * Returns: fallback when it is unset; the nearer limit, with a warning line, when it lies outside
 * low to high; fallback, with a warning line, when it is no number.
 */
uint64_t env_number(const char* name, uint64_t low, uint64_t high, uint64_t fallback);

/*
 * A decimal number that fills the whole text.
 * Returns: none for an empty text, other characters or more than 64 bits.
 */
std::optional<uint64_t> parse_number(const std::string& text);

/*
 * Opens a regular file for this service alone: never through a link, never inherited by a new
 * program.
 * Returns: the descriptor; none with errno set (EINVAL: not a regular file).
 */
UniqueFd open_regular(const std::string& path, int flags, unsigned mode);

/*
 * Writes all of text in one call.
 * Returns: 0, else an errno value (ENOSPC when only a part was written).
 */
int write_whole(int fd, const std::string& text);

/*
 * The whole content of a regular file, at most limit bytes.
 * Returns: none with errno set (EFBIG: longer).
 */
std::optional<std::string> read_file(const std::string& path, uint64_t limit);

/*
 * Keeps other processes, and other threads of this one, from what a lock file stands for.
 * The lock belongs to the open file, so the kernel drops it with the process. A holder that is
 * stopped does not stop others for ever: taking it fails with ETIMEDOUT after five seconds.
 */
class FileLock {
  public:
    explicit FileLock(const std::string& path);
    /* 0 while the lock is held, else the errno value that tells why not. */
    int error() const { return error_; }

  private:
    UniqueFd fd_;
    int error_ = 0;
};

}  // namespace vexplatform

#endif /* PLATFORM_LINUX_OS_SUPPORT_H */
