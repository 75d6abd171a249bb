// A view that follows the regions.
#ifndef TOOLS_VEXINSPECT_WATCH_H
#define TOOLS_VEXINSPECT_WATCH_H

#include <string>

namespace vexinspect {

struct WatchOptions {
    double interval_seconds = 1;
    int updates = 0;  // end after so many pictures; 0 never
};

// Prints the summary and the map now and after every change, until a signal ends the process.
// state: folder of vexsim's --state, may be empty.
void watch(const WatchOptions& options, const std::string& state);

}  // namespace vexinspect

#endif  // TOOLS_VEXINSPECT_WATCH_H
