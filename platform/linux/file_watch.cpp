#include "file_watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstring>
#include <ctime>

namespace vexplatform {
namespace {

constexpr int kLookAgainMs = 1000;
constexpr int64_t kSettledNs = 100'000'000;  // chosen: several ticks of the coarsest kernel clock

int64_t nanoseconds(const timespec& time) {
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

bool same_file(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           nanoseconds(a.st_mtim) == nanoseconds(b.st_mtim) &&
           nanoseconds(a.st_ctim) == nanoseconds(b.st_ctim);
}

}  // namespace

bool FileStamp::changed(const std::string& path) {
    struct stat now {};
    if (stat(path.c_str(), &now) != 0) {
        now = {};
    }
    if (settled_ && same_file(now, seen_)) {
        return false;
    }
    timespec clock{};
    clock_gettime(CLOCK_REALTIME, &clock);
    const int64_t age = nanoseconds(clock) - nanoseconds(now.st_ctim);
    settled_ = age > kSettledNs || age < -kSettledNs;  // a time far ahead is a clock set back
    seen_ = now;
    return true;
}

FileWatch::FileWatch(const std::string& path)
    : folder_("."), notices_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    const size_t slash = path.rfind('/');
    if (slash != std::string::npos) {
        folder_ = path.substr(0, slash + 1);
    }
    watch_folder();
}

void FileWatch::watch_folder() {
    constexpr uint32_t kEvents = IN_CLOSE_WRITE | IN_MOVED_TO | IN_CREATE | IN_ONLYDIR;
    watched_ = notices_ && inotify_add_watch(notices_.get(), folder_.c_str(), kEvents) >= 0;
}

void FileWatch::drain() {
    alignas(inotify_event) char events[4096];
    ssize_t count = 0;
    while ((count = read(notices_.get(), events, sizeof events)) > 0) {
        for (ssize_t at = 0; at < count;) {
            inotify_event event;
            std::memcpy(&event, events + at, sizeof event);
            watched_ = watched_ && (event.mask & IN_IGNORED) == 0;  // the folder itself is gone
            at += static_cast<ssize_t>(sizeof event + event.len);
        }
    }
}

void FileWatch::wait(int wake) {
    if (!watched_) {
        watch_folder();
    }
    pollfd ready[] = {{wake, POLLIN, 0}, {notices_.get(), POLLIN, 0}};
    poll(ready, 2, kLookAgainMs);
    if ((ready[0].revents & POLLIN) != 0) {
        uint64_t ignored = 0;
        [[maybe_unused]] const ssize_t count = read(wake, &ignored, sizeof ignored);
    }
    if ((ready[1].revents & POLLIN) != 0) {
        drain();
    }
}

}  // namespace vexplatform
