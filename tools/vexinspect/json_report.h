// The regions as JSON. docs/vexinspect.md describes the format; its version changes when a reader of
// the version before would misread something.
#ifndef TOOLS_VEXINSPECT_JSON_REPORT_H
#define TOOLS_VEXINSPECT_JSON_REPORT_H

#include <string>

namespace vexinspect {

inline constexpr int kJsonVersion = 1;

// All regions. Throws std::runtime_error if one cannot be read.
std::string regions_json();

// The layout table itself.
std::string layout_json();

}  // namespace vexinspect

#endif  // TOOLS_VEXINSPECT_JSON_REPORT_H
