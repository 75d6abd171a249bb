// FRUs as the devices of a scenario carry them.
#ifndef TOOLS_VEXSIM_FRU_IMAGE_H
#define TOOLS_VEXSIM_FRU_IMAGE_H

#include <cstdint>
#include <string>
#include <vector>

namespace vexsim {

// A FRU with a board area, in which the maker's three letters put the name, cut to 63 characters,
// at byte 19.
std::vector<uint8_t> fru_image(const std::string& name);

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_FRU_IMAGE_H
