#include <array>

#include "rt_cache.h"
#include "rt_cache/rt_cache_nodes.h"
#include "tests/faults/scenario.h"
#include "tests/faults/world.h"
#include "vexel.h"

namespace faults {
namespace {

// Gives an endpoint events, the last with data, and eight changed disks.
void fill(uint8_t eid, uint32_t count) {
    RtCacheEventRow& list = cache_Events[GetIndexFromEID(eid)];
    for (; list.eventCount < count; ++list.eventCount) {
        list.events[list.eventCount] = {RT_OBJ_VIRTUAL_DISK, 1, 2, nullptr};
    }
    if (list.events[count - 1].eventData == nullptr) {
        list.events[count - 1].eventData = event_data("VDR1");
    }
    cache_Events_PD_ChObj[GetIndexFromEID(eid)].bitmap[1] = 0xFF;
}

}  // namespace

Scenarios event_scenarios() {
    Scenarios all;
    all.add("event", {0, {}, true},
            [] { return rtcache_SetCachedEvent(kHba, RT_OBJ_PHYSICAL_DISK, 3, 4); });
    all.add("event with data", {0, {}, true}, [] {
        return rtcache_CopyCachedEvent(kNvme, RT_OBJ_PHYSICAL_DISK, 3, 4, event_data("PDR5"));
    });
    all.add("rolled up event", {0, {}, true}, [] {
        EventData* data = event_data("PDR5");
        return rtcache_SetCachedEvent_roll_up(kKron, RT_OBJ_VIRTUAL_DISK, 1, 2, data);
    });
    all.add("delayed events", {0, {}, true}, [] {
        return rtcache_SetDelayedCachedEvent(kKron, RT_OBJ_VIRTUAL_DISK, 1, 2) +
               rtcache_SetDelayedCachedEvent(kKron, RT_OBJ_PHYSICAL_DISK, 3, 4) +
               rtcache_PurgeDelayedCachedEvents(kKron, 7);
    });
    all.add("drain", {0, {3}}, [] {
        fill(kKron, 3);
        RtCacheEventRow* events = nullptr;
        RtCacheDiskChangeRow* disks = nullptr;
        const uint32_t result = rtcache_GetCachedEvents(kKron, &events, &disks);
        if (result == 0) {
            vexutils::free_held_data(*events);
        }
        vexel_free(events);
        vexel_free(disks);
        return result;
    });
    all.add("list of drained events", {0, {3}}, [] {
        auto* events = static_cast<RtCacheEventRow*>(room(sizeof(RtCacheEventRow)));
        auto* disks = static_cast<RtCacheDiskChangeRow*>(room(sizeof(RtCacheDiskChangeRow)));
        events->eventCount = RTCACHE_EVENTCACHE_DEPTH;
        disks->bitmap[3] = 0xFF;
        RtCacheEventNode* head = nullptr;
        gRTCache_EventCount = 0;
        const uint32_t result = rtcache_ConvertCacheToEvent(events, disks, &head);
        free_list(head);
        vexel_free(events);
        vexel_free(disks);
        return gRTCache_EventCount == (result == 0 ? 392 : 0) ? result : 100;
    });
    all.add("events by object type", {0, {3, 30, 33}}, [] {
        fill(kKron, 300);
        RtCacheEventNode* disks = nullptr;
        RtCacheEventNode* virtual_disks = nullptr;
        const uint32_t first = rtcache_GetEventsByObjType(kKron, RT_OBJ_PHYSICAL_DISK, &disks);
        const uint32_t second =
            rtcache_GetEventsByObjType(kKron, RT_OBJ_VIRTUAL_DISK, &virtual_disks);
        free_list(disks);
        free_list(virtual_disks);
        return 10 * first + second;
    });
    return all;
}

}  // namespace faults
