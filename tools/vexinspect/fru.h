// The field-replaceable units of controllers and PCIe SSDs.
#ifndef TOOLS_VEXINSPECT_FRU_H
#define TOOLS_VEXINSPECT_FRU_H

#include <string>

namespace vexinspect {

// Each throws std::runtime_error if a region cannot be read.
std::string show_frus();

// Those of PCIe SSDs alone.
std::string show_ssd_frus();

}  // namespace vexinspect

#endif  // TOOLS_VEXINSPECT_FRU_H
