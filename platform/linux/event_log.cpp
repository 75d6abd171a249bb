#include "event_log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "os_support.h"
#include "platform/debug_log.h"

namespace vexplatform {
namespace {

constexpr char kDefaultFolder[] = "/var/log/vex";
constexpr std::string_view kSequenceMember = "{\"seq\":";
constexpr size_t kLineHead = 64;  // enough of a line for its sequence number and time
constexpr size_t kBlock = 64 * 1024;
constexpr int64_t kLastMoment = 253402300799;  // the end of the year 9999

/* What is known of the current file. */
struct Tail {
    dev_t device = 0;
    ino_t inode = 0;
    uint64_t size = 0;  // up to the end of the last whole line
    uint64_t records = 0;
    uint64_t last_sequence = 0;
    uint64_t last_line = 0;  // where the last whole line starts
    std::string last_head;   // and how: another file may get the number of one that was removed
};

/* Counts whole lines and finds the highest sequence number, block by block. */
class LineScanner {
  public:
    explicit LineScanner(Tail& tail) : tail_(tail) {}

    void feed(std::string_view block) {
        while (!block.empty()) {
            const size_t end = block.find('\n');
            const std::string_view part = block.substr(0, end);
            head_.append(part.substr(0, kLineHead - std::min(head_.size(), kLineHead)));
            open_bytes_ += part.size();
            if (end == std::string_view::npos) {
                return;
            }
            end_line();
            block.remove_prefix(end + 1);
        }
    }
    /* Bytes behind the last whole line. */
    uint64_t open_bytes() const { return open_bytes_; }

  private:
    void end_line() {
        uint64_t sequence = 0;
        if (head_.starts_with(kSequenceMember)) {
            std::from_chars(head_.data() + kSequenceMember.size(), head_.data() + head_.size(),
                            sequence);
        }
        tail_.last_sequence = std::max(tail_.last_sequence, sequence);
        tail_.last_line = tail_.size;
        tail_.last_head = std::exchange(head_, {});
        tail_.size += std::exchange(open_bytes_, 0) + 1;
        ++tail_.records;
    }

    Tail& tail_;
    std::string head_;
    uint64_t open_bytes_ = 0;
};

/* Is this still the file that tail was read from, apart from lines added since? */
bool is_known(int fd, const struct stat& status, const Tail& tail) {
    if (tail.records == 0 || status.st_dev != tail.device || status.st_ino != tail.inode ||
        static_cast<uint64_t>(status.st_size) < tail.size) {
        return false;
    }
    char head[kLineHead];
    const ssize_t count =
        pread(fd, head, tail.last_head.size(), static_cast<off_t>(tail.last_line));
    return count >= 0 && tail.last_head == std::string_view{head, static_cast<size_t>(count)};
}

/*
 * Reads on from the end of what tail knows.
 * Returns: the bytes behind the last whole line; none with errno set.
 */
std::optional<uint64_t> scan(int fd, Tail& tail) {
    LineScanner scanner{tail};
    std::vector<char> block(kBlock);
    for (auto offset = static_cast<off_t>(tail.size);;) {
        const ssize_t count = pread(fd, block.data(), block.size(), offset);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            return std::nullopt;
        }
        if (count == 0) {
            return scanner.open_bytes();
        }
        scanner.feed({block.data(), static_cast<size_t>(count)});
        offset += count;
    }
}

std::string numbered(const std::string& path, uint64_t number) {
    return path + '.' + std::to_string(number);
}

/* The sequence number that ended the newest of the files rotated away, 0 if there is none. */
uint64_t sequence_of_older(const EventLogSettings& settings) {
    for (uint64_t number = 1; number < settings.files; ++number) {
        const UniqueFd fd = open_regular(numbered(settings.path, number), O_RDONLY, 0);
        Tail tail;
        if (fd && scan(fd.get(), tail) && tail.last_sequence > 0) {
            return tail.last_sequence;
        }
    }
    return 0;
}

/* Moves every file one number up and drops the oldest. Returns: 0 or an errno value. */
int rotate(const EventLogSettings& settings) {
    for (uint64_t number = settings.files - 1; number > 0; --number) {
        const std::string from = number == 1 ? settings.path : numbered(settings.path, number - 1);
        if (rename(from.c_str(), numbered(settings.path, number).c_str()) != 0 && errno != ENOENT) {
            return errno;
        }
    }
    return 0;
}

/* Makes the names in the file's folder durable. Returns: 0 or an errno value. */
int sync_folder(const std::string& path) {
    const size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const UniqueFd fd{open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    return fd && fsync(fd.get()) == 0 ? 0 : errno;
}

timespec real_time() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

/*
 * The time that VEX_CLOCK sets, "SECONDS" or "SECONDS.mmm" since 1970.
 * Returns: none if it is not such a text.
 */
std::optional<timespec> parse_clock(const std::string& text) {
    const size_t dot = text.find('.');
    const auto seconds = parse_number(text.substr(0, dot));
    const std::string fraction = dot == std::string::npos ? "000" : text.substr(dot + 1);
    const auto millis = parse_number(fraction);
    if (!seconds || *seconds > kLastMoment || !millis || fraction.size() != 3) {
        return std::nullopt;
    }
    timespec moment{};
    moment.tv_sec = static_cast<time_t>(*seconds);
    moment.tv_nsec = static_cast<long>(*millis * 1000000);
    return moment;
}

timespec current_time() {
    const std::string text = env_text("VEX_CLOCK", "");
    if (text.empty()) {
        return real_time();
    }
    const auto moment = parse_clock(text);
    if (!moment) {
        zentprintf(kLogWarning, kLogModule, "VEX_CLOCK=%s is no time, the real one is used\n",
                   text.c_str());
    }
    return moment.value_or(real_time());
}

std::string time_stamp() {
    const timespec now = current_time();
    tm parts{};
    gmtime_r(&now.tv_sec, &parts);
    char text[64];
    const size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    snprintf(text + length, sizeof text - length, ".%03ldZ", now.tv_nsec / 1000000);
    return text;
}

/* One submission's work on the files; the caller holds the lock of the log. */
class Appender {
  public:
    Appender(const EventLogSettings& settings, Tail& known) : settings_(settings), tail_(known) {}

    int append(const std::string& members) {
        int error = open_current();
        if (error != 0) {
            return error;
        }
        const std::string line = std::string{kSequenceMember} +
                                 std::to_string(tail_.last_sequence + 1) + ",\"time\":\"" +
                                 time_stamp() + "\"," + members + "}\n";
        if (line.size() > settings_.max_bytes) {
            return EMSGSIZE;
        }
        error = make_room(line.size());
        return error != 0 ? error : put(line);
    }

  private:
    /* Opens the file, brings tail_ up to date and cuts off what a killed writer left unfinished. */
    int open_current() {
        file_ = open_regular(settings_.path, O_RDWR | O_APPEND | O_CREAT, 0640);
        struct stat status {};
        if (!file_ || fstat(file_.get(), &status) != 0) {
            return errno;
        }
        if (!is_known(file_.get(), status, tail_)) {
            tail_ = Tail{};
            tail_.device = status.st_dev;
            tail_.inode = status.st_ino;
        }
        const auto torn = scan(file_.get(), tail_);
        if (!torn) {
            return errno;
        }
        if (*torn > 0) {
            zentprintf(kLogWarning, kLogModule, "%s: an unfinished record was cut off\n",
                       settings_.path.c_str());
            if (ftruncate(file_.get(), static_cast<off_t>(tail_.size)) != 0) {
                return errno;
            }
        }
        if (tail_.last_sequence == 0) {
            tail_.last_sequence = sequence_of_older(settings_);
        }
        return 0;
    }

    int make_room(size_t bytes) {
        const bool full =
            tail_.records >= settings_.max_records || tail_.size + bytes > settings_.max_bytes;
        if (tail_.size == 0 || !full) {
            return 0;
        }
        if (const int error = rotate(settings_); error != 0) {
            return error;
        }
        const uint64_t sequence = tail_.last_sequence;
        const int error = open_current();
        tail_.last_sequence = std::max(tail_.last_sequence, sequence);
        return error;
    }

    int put(const std::string& line) {
        int error = write_whole(file_.get(), line);
        if (error == 0 && settings_.sync) {
            error = fsync(file_.get()) == 0 ? 0 : errno;
            if (error == 0 && tail_.size == 0) {
                error = sync_folder(settings_.path);
            }
        }
        if (error != 0) {
            // Should this fail too, the next submission cuts the rest off or counts a whole line.
            [[maybe_unused]] const int ignored =
                ftruncate(file_.get(), static_cast<off_t>(tail_.size));
            return error;
        }
        tail_.last_line = tail_.size;
        tail_.last_head = line.substr(0, kLineHead);
        tail_.size += line.size();
        ++tail_.records;
        ++tail_.last_sequence;
        return 0;
    }

    const EventLogSettings& settings_;
    Tail& tail_;
    UniqueFd file_;
};

}  // namespace

EventLogSettings event_log_settings() {
    constexpr uint64_t kMillion = 1000000;
    EventLogSettings settings{};
    settings.path = env_text("VEX_EVENT_LOG", kDefaultEventLog);
    settings.max_records = env_number("VEX_EVENT_LOG_MAX_RECORDS", 1, kMillion, 10000);
    settings.max_bytes = env_number("VEX_EVENT_LOG_MAX_BYTES", 4096, 1024 * kMillion, kMillion);
    settings.files = env_number("VEX_EVENT_LOG_FILES", 2, 100, 4);
    settings.sync = env_flag("VEX_EVENT_LOG_FSYNC");
    settings.mirror = env_flag("VEX_EVENT_LOG_SYSLOG");
    if (settings.path == kDefaultEventLog) {
        mkdir(kDefaultFolder, 0750);  // when that fails, opening the file does too and says why
    }
    return settings;
}

int append_event(const EventLogSettings& settings, const std::string& members) {
    static std::mutex mutex;
    static Tail tail;  // saves reading the file again; any other writer's lines are read on top
    const std::lock_guard guard{mutex};
    const FileLock lock{settings.path + ".lock"};
    if (lock.error() != 0) {
        return lock.error();
    }
    return Appender{settings, tail}.append(members);
}

}  // namespace vexplatform
