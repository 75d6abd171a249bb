// Steps of the timeline about events and alerts: how they arrive, wait and leave.
#ifndef TOOLS_VEXSIM_ALERT_STEPS_H
#define TOOLS_VEXSIM_ALERT_STEPS_H

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "rt_evtq.h"
#include "support/alert_codes.h"

namespace vexsim {

inline constexpr vextools::NamedCode kCallbacks[] = {
    {"poweron", RTRAID_CALLBACK_POWERON},
    {"poweroff", RTRAID_CALLBACK_POWEROFF},
    {"lpc-reset", RTRAID_CALLBACK_LPC_RESET},
    {"endpoint-table", RTRAID_CALLBACK_ENDPOINT_TABLE},
    {"init-failed", RTRAID_CALLBACK_INIT_FAILED},
    {"mctpd-stopped", RTRAID_CALLBACK_MCTPD_STOPPED},
    {"warmboot", RTRAID_CALLBACK_WARMBOOT},
};
inline constexpr int64_t kMaxCallback = 255;  // chosen: room for what the client may come to report

// Event types are the daemon's own, but for the one that is a bit of a disk instead of a record.
inline constexpr uint32_t kChangedEvent = 3;
inline constexpr vextools::NamedCode kEvents[] = {
    {"created", 1}, {"deleted", 2}, {"changed", kChangedEvent}};

// What goes to the system event log, but for the device that it is about.
struct AlertMessage {
    std::string id;
    uint32_t severity = 1;
    std::vector<std::string> arguments;
};

// A device as the cache knows it.
struct CachedDevice {
    std::string fqdd;
    uint8_t eid = 0;
    uint32_t type = 0;  // RT_OBJ_...
    uint32_t key = 0;
};

// The MCTP client calls back.
struct CallbackStep {
    uint32_t type = 0;
    std::vector<uint8_t> payload;
};

// Something happened to a device, and its endpoint reports it.
struct EventStep {
    CachedDevice device;
    uint32_t event = 0;
    bool held = false;  // a command of the controller is not over yet
    std::optional<AlertMessage> alert;
};

// An alert that does not wait in the cache.
struct AlertStep {
    std::string fqdd;
    AlertMessage alert;
};

// The command is over: the events held back join the others.
struct PurgeStep {
    CachedDevice device;
    int32_t command = 0;
};

// The daemon works off what an endpoint, or every one, has reported.
struct DrainStep {
    std::optional<CachedDevice> device;
};

struct PhaseStep {
    vextools::AlertPhase phase{};
};

// A controller was reset: what it reports next are past events, until the phase is live again.
struct ResetStep {
    CachedDevice controller;
};

using AlertAction =
    std::variant<CallbackStep, EventStep, AlertStep, PurgeStep, DrainStep, PhaseStep, ResetStep>;

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_ALERT_STEPS_H
