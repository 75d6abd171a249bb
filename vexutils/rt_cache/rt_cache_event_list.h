// The list of an endpoint's events, as recording and purging fill it. Callers hold mutexRtCache.
#ifndef VEXUTILS_RT_CACHE_RT_CACHE_EVENT_LIST_H
#define VEXUTILS_RT_CACHE_RT_CACHE_EVENT_LIST_H

#include <cstdint>

#include "rt_cache.h"

namespace vexutils {

enum class EventType : std::uint32_t { ChangeObject = 3 };  // VEXEL's code; the others stay its own

// A disk that only says it changed: one bit, and no place in the list.
inline bool is_disk_change(std::uint32_t object_type, std::uint32_t event_type) {
    return object_type == RT_OBJ_PHYSICAL_DISK &&
           event_type == static_cast<std::uint32_t>(EventType::ChangeObject);
}

// Whether the next event starts the list again.
template <class List>
bool is_full(const List& list) {
    return list.eventCount >= RTCACHE_EVENTCACHE_DEPTH;
}

// The record after the last one; record 0 of a list that is full, which drops the others.
template <class List>
auto& next_record(List& list, bool full) {
    list.eventCount = full ? 1 : list.eventCount + 1;
    return list.events[list.eventCount - 1];
}

// Lets go of the data of all records, before a full list starts again: a purge writes no data, so
// what stood there would pass for the new event's.
inline void forget_event_data(RtCacheEventRow& list) {
    for (RtCacheEvent& event : list.events) {
        event.eventData = nullptr;
    }
}

}  // namespace vexutils

#endif  // VEXUTILS_RT_CACHE_RT_CACHE_EVENT_LIST_H
