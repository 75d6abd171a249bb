// Event data as this daemon builds it, and the care for what the cache lets go of. Callers of the
// functions that read the cache hold its lock.
#ifndef TOOLS_VEXSIM_EVENT_DATA_H
#define TOOLS_VEXSIM_EVENT_DATA_H

#include <memory>
#include <string>
#include <vector>

#include "rt_cache.h"
#include "vexsim/alert_steps.h"

namespace vexsim {

struct FreeEventData {
    void operator()(EventData* data) const;
};
using OwnedEventData = std::unique_ptr<EventData, FreeEventData>;

// Throws RuntimeFailure without memory.
OwnedEventData make_event_data(const std::string& fqdd, const AlertMessage& alert);

// The alert in a device's event data.
AlertStep read_event_data(const EventData& data);

// What an event replaces or pushes out.
struct Dropped {
    std::string note;                    // for people, begins with a comma; empty: nothing
    std::vector<OwnedEventData> alerts;  // what the cache lets go of without freeing it
};

// Of the event that the endpoint in this row reports next.
Dropped dropped_by_event(uint32_t row, const EventStep& step);

// Of the events that the endpoint in this row holds back, once they join the others.
Dropped dropped_by_purge(uint32_t row);

// Records an event of the endpoint in this row. Returns: false if the cache does not keep such
// events. Throws RuntimeFailure.
bool store_event(uint32_t row, const EventStep& step);

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_EVENT_DATA_H
