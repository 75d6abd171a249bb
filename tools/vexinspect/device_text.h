// How devices read in tables and pictures.
#ifndef TOOLS_VEXINSPECT_DEVICE_TEXT_H
#define TOOLS_VEXINSPECT_DEVICE_TEXT_H

#include <span>
#include <string>

#include "support/codes.h"
#include "vexinspect/region_view.h"

namespace vexinspect {

// The name of a code, else its number.
std::string code_text(std::span<const vextools::NamedCode> names, std::optional<int64_t> code);

// "SAS HDD" and the like, of an entry of the drive list.
std::string drive_kind(const Record& drive);

// "1.8 TiB" or "447 GiB", empty for none.
std::string size_text(std::optional<int64_t> gibibytes);

}  // namespace vexinspect

#endif  // TOOLS_VEXINSPECT_DEVICE_TEXT_H
