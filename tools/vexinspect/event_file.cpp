#include "vexinspect/event_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <system_error>

#include "platform/linux/event_log.h"

namespace vexinspect {

namespace {

constexpr unsigned kMaxFiles = 100;  // of a log, as the platform keeps them
constexpr size_t kBlock = 64 * 1024;

// The log's files: 0 the current one, 1 the one before it, and so on.
std::string file_name(const std::string& path, unsigned number) {
    return number == 0 ? path : path + "." + std::to_string(number);
}

bool is_same_file(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

[[noreturn]] void fail(const std::string& name) {
    throw std::system_error(errno, std::generic_category(), name);
}

}  // namespace

std::string event_log_path() {
    return vexplatform::env_text("VEX_EVENT_LOG", vexplatform::kDefaultEventLog);
}

std::vector<EventLine> EventReader::read() {
    std::vector<EventLine> lines;
    for (;;) {
        // First, since nothing is appended to a file that has been rotated away.
        const std::optional<Found> next = next_file();
        if (file_) {
            read_lines(lines);
        }
        if (!next) {
            return lines;
        }
        open(*next);
    }
}

// The file to go on with: at first the oldest, then the one after the file that is open. One that
// is no longer among the log's files is followed by the current one. A rotation moves files to
// higher numbers, the oldest first, so that a search upwards misses none.
std::optional<EventReader::Found> EventReader::next_file() const {
    struct stat mine {};
    if (file_ && fstat(file_.get(), &mine) != 0) {
        fail(name_);
    }
    std::optional<Found> current, newer;
    for (unsigned number = 0; number < kMaxFiles; ++number) {
        Found found{file_name(path_, number), {}};
        if (stat(found.name.c_str(), &found.status) != 0) {
            continue;  // a gap, while the files are moved
        }
        if (file_ && is_same_file(mine, found.status)) {
            return newer;
        }
        newer = found;
        if (number == 0) {
            current = found;
        }
    }
    return file_ ? current : newer;
}

// Goes over to a file, unless a rotation has given its name to another: then it is to be looked for
// again.
void EventReader::open(const Found& next) {
    vexplatform::UniqueFd file = vexplatform::open_regular(next.name, O_RDONLY, 0);
    if (!file && errno == ENOENT) {
        return;
    }
    struct stat opened {};
    if (!file || fstat(file.get(), &opened) != 0) {
        fail(next.name);
    }
    if (!is_same_file(next.status, opened)) {
        return;
    }
    file_ = std::move(file);
    name_ = next.name;
    offset_ = 0;
    lines_ = 0;
}

void EventReader::read_lines(std::vector<EventLine>& lines) {
    std::string text;
    std::vector<char> block(kBlock);
    for (auto at = static_cast<off_t>(offset_);;) {
        const ssize_t count = pread(file_.get(), block.data(), block.size(), at);
        if (count < 0) {
            fail(name_);
        }
        if (count == 0) {
            break;
        }
        text.append(block.data(), static_cast<size_t>(count));
        at += count;
    }
    size_t begin = 0;
    for (size_t end = text.find('\n'); end != std::string::npos; end = text.find('\n', begin)) {
        lines.push_back({text.substr(begin, end - begin), name_ + ":" + std::to_string(++lines_)});
        begin = end + 1;
    }
    offset_ += begin;
}

}  // namespace vexinspect
