// The system event log for people and for programs.
#ifndef TOOLS_VEXINSPECT_LOG_H
#define TOOLS_VEXINSPECT_LOG_H

#include <cstdint>
#include <string>

namespace vexinspect {

// Of the JSON form; changes when a reader of the version before would misread something.
inline constexpr int kLogJsonVersion = 1;

struct LogOptions {
    std::string file;  // empty: where the platform writes it
    bool json = false;
    bool follow = false;
    double interval_seconds = 0.2;  // between looks while following
    uint64_t records = 0;           // following: end after so many; 0 never
};

// Prints the log, and what is added to it if it is followed. Throws std::runtime_error if it cannot
// be read, with file and line where it is no log.
void print_log(const LogOptions& options);

}  // namespace vexinspect

#endif  // TOOLS_VEXINSPECT_LOG_H
