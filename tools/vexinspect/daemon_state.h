// What vexsim tells beside the regions, in the folder of its --state: the endpoints, and the drive
// states that were written to the backplane.
#ifndef TOOLS_VEXINSPECT_DAEMON_STATE_H
#define TOOLS_VEXINSPECT_DAEMON_STATE_H

#include <map>
#include <string>

#include "support/backplane_state.h"

namespace vexinspect {

struct DaemonState {
    std::map<vextools::DrivePlace, int64_t> eids;     // of NVMe drives
    std::map<vextools::DrivePlace, int64_t> written;  // drive states at the backplane

    bool blinks(const vextools::DrivePlace& place) const;
};

// folder: empty, or without the files, gives an empty state. Throws vextools::InputError.
DaemonState read_daemon_state(const std::string& folder);

}  // namespace vexinspect

#endif  // TOOLS_VEXINSPECT_DAEMON_STATE_H
