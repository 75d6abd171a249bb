// The rules that keep alerts out of the system event log, as one pure piece: no state, no logging.
#ifndef VEXUTILS_RT_LCLOGWRP_FILTER_H
#define VEXUTILS_RT_LCLOGWRP_FILTER_H

#include <cstdint>

#include "rt_lclogwrp.h"

namespace vexutils {

struct Alert {
    const char* id;
    const wchar_t* fqdd;
    unsigned arguments;
};

// Global status that the rules look at.
struct SystemState {
    bool live = true;  // else past events are replayed after a controller reset
    bool inventory = false;
    bool reinventory = false;
};

SystemState system_state(std::uint16_t flags, std::uint32_t phase);

struct Decision {
    RtVerdict verdict;
    RtRule rule;            // the one that decides
    RtRule inventory_rule;  // what the inventory rules came to, RT_RULE_NONE if they were not asked
};

// alert: id and FQDD are not null.
Decision decide(const Alert& alert, const SystemState& state);

}  // namespace vexutils

#endif  // VEXUTILS_RT_LCLOGWRP_FILTER_H
