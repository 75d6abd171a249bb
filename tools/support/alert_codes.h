// Names of what the event log and its rules deal in, for scenario files, options and tables alike.
#ifndef TOOLS_SUPPORT_ALERT_CODES_H
#define TOOLS_SUPPORT_ALERT_CODES_H

#include "rt_lclogwrp.h"
#include "rt_sync.h"
#include "support/codes.h"

namespace vextools {

inline constexpr NamedCode kSeverities[] = {{"info", 1}, {"warning", 2}, {"critical", 3}};

inline constexpr NamedCode kVerdicts[] = {{"logged", RT_VERDICT_SUBMITTED},
                                          {"suppressed", RT_VERDICT_SUPPRESSED},
                                          {"refused", RT_VERDICT_REFUSED}};

// What the daemon is doing, as the rules see it in the global status.
struct AlertPhase {
    const char* name;
    uint16_t flags;
    uint32_t phase;
};

inline constexpr AlertPhase kAlertPhases[] = {
    {"live", RTSYNC_FLAG_LIVE, 0},
    {"inventory", RTSYNC_FLAG_LIVE, RTSYNC_PHASE_INVENTORY},
    {"reinventory", RTSYNC_FLAG_LIVE, RTSYNC_PHASE_INVENTORY | RTSYNC_PHASE_REINVENTORY},
    {"past-events", 0, 0},
};

}  // namespace vextools

#endif  // TOOLS_SUPPORT_ALERT_CODES_H
