// The files of the Linux platform's system event log, read while others write them.
#ifndef TOOLS_VEXINSPECT_EVENT_FILE_H
#define TOOLS_VEXINSPECT_EVENT_FILE_H

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/os_support.h"

namespace vexinspect {

// The current file: VEX_EVENT_LOG, or where the platform writes it.
std::string event_log_path();

// A line of a log, with the place where it stands.
struct EventLine {
    std::string text;
    std::string place;  // FILE:LINE
};

// Reads from the oldest file to the current one, and goes on with what is appended, also where the
// log is rotated meanwhile. A line without its end is no record: its writer is at it, or was killed
// and the next one cuts it off.
class EventReader {
  public:
    // path: of the current file.
    explicit EventReader(std::string path) : path_(std::move(path)) {}

    // The records since the last call; none while there is no log.
    // Throws std::system_error if there is one that cannot be read.
    std::vector<EventLine> read();

  private:
    struct Found {
        std::string name;
        struct stat status;
    };
    std::optional<Found> next_file() const;
    void open(const Found& next);
    void read_lines(std::vector<EventLine>& lines);

    std::string path_;
    vexplatform::UniqueFd file_;
    std::string name_;     // under which it was opened
    uint64_t offset_ = 0;  // end of the last whole line
    unsigned lines_ = 0;   // up to there
};

}  // namespace vexinspect

#endif  // TOOLS_VEXINSPECT_EVENT_FILE_H
