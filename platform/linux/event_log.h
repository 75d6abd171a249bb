/*
 * event_log.h - the file behind the system event log: JSON lines, numbered and dated, capped by
 * rotation. docs/event-log.md describes the file for its readers.
 */
#ifndef PLATFORM_LINUX_EVENT_LOG_H
#define PLATFORM_LINUX_EVENT_LOG_H

#include <cstdint>
#include <string>

namespace vexplatform {

/* The current file where VEX_EVENT_LOG names no other; its folder is made. */
inline constexpr char kDefaultEventLog[] = "/var/log/vex/events.log";

/* Where the log is and how large it may become; from the environment. */
struct EventLogSettings {
    std::string path;
    uint64_t max_records;  // in one file
    uint64_t max_bytes;    // of one file
    uint64_t files;        // the current one and those rotated away
    bool sync;             // on the medium before a submission is acknowledged
    bool mirror;           // to syslog too
};

EventLogSettings event_log_settings();

/*
 * Appends one record in one write, from any thread of any process.
 * members: the record's own members as the inside of a JSON object, on one line; sequence number
 * and time are put before them.
 * Returns: 0 once the record is on file; else an errno value, and the file is as before (EMSGSIZE:
 * the record is larger than a file may be).
 */
int append_event(const EventLogSettings& settings, const std::string& members);

}  // namespace vexplatform

#endif /* PLATFORM_LINUX_EVENT_LOG_H */
