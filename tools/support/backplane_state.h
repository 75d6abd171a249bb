// The drive states that were written to the backplane, from the file in which its service keeps
// them (docs/backplane.md).
#ifndef TOOLS_SUPPORT_BACKPLANE_STATE_H
#define TOOLS_SUPPORT_BACKPLANE_STATE_H

#include <compare>
#include <cstdint>
#include <map>
#include <string>

namespace vextools {

struct DrivePlace {
    int64_t bay;
    int64_t slot;
    auto operator<=>(const DrivePlace&) const = default;
};

// The last state written for each place; none without the file. Throws InputError.
std::map<DrivePlace, int64_t> read_drive_states(const std::string& path);

}  // namespace vextools

#endif  // TOOLS_SUPPORT_BACKPLANE_STATE_H
