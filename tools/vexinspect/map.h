// The bays and their slots as a picture in text.
#ifndef TOOLS_VEXINSPECT_MAP_H
#define TOOLS_VEXINSPECT_MAP_H

#include <string>

#include "vexinspect/daemon_state.h"

namespace vexinspect {

// Throws std::runtime_error if a region cannot be read.
std::string draw_map(const DaemonState& state);

}  // namespace vexinspect

#endif  // TOOLS_VEXINSPECT_MAP_H
