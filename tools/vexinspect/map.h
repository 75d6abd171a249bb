// The bays and their slots as a picture in text.
#ifndef TOOLS_VEXINSPECT_MAP_H
#define TOOLS_VEXINSPECT_MAP_H

#include <string>

namespace vexinspect {

// Throws std::runtime_error if a region cannot be read.
std::string draw_map();

}  // namespace vexinspect

#endif  // TOOLS_VEXINSPECT_MAP_H
