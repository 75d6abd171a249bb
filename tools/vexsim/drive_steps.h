// Steps about drives and controllers that do more than come and go.
#ifndef TOOLS_VEXSIM_DRIVE_STEPS_H
#define TOOLS_VEXSIM_DRIVE_STEPS_H

#include <cstdint>
#include <string>
#include <vector>

namespace vexsim {

// A controller is gone for good, with everything behind it.
struct DropStep {
    std::string fqdd;
};

// The locator light of an NVMe drive is switched.
struct IdentifyStep {
    std::string fqdd;
    bool blink = false;
};

// A command that was sent to a controller or NVMe drive has ended.
struct CommandStep {
    std::string fqdd;
    uint32_t result = 0;  // RTPIL_COMMAND_...
    uint8_t recovery = 0;
};

// A job begins that concerns some controllers only; none: it has ended.
struct JobStep {
    std::vector<std::string> controllers;
};

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_DRIVE_STEPS_H
