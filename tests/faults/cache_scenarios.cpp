// Endpoints, objects, events, look-ups.
#include <array>

#include "rt_cache/rt_cache_nodes.h"
#include "tests/faults/scenario.h"

namespace faults {
namespace {

int64_t read(uint32_t (*get)(uint32_t, uint8_t*), uint32_t eid) {
    uint8_t byte = 0;
    return get(eid, &byte);
}

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

void cache_scenarios(Scenarios& all) {
    all.add("start and stop", {0, {0, 1}}, [] {
        stop();
        return start() ? 0 : 1;
    });
    all.add("cache", {0, {0, 1, 3}}, [] { return rtcache_Init(); });
    all.add("end of the cache", {0}, [] { return rtcache_Destroy(); });
    all.add("freed memory", {0, {0, 1, 3}}, [] {
        rtcache_FreeMem();
        rtcache_Destroy();
        return rtcache_Init();
    });
    all.add("lock", {0, {3}}, [] {
        const uint32_t result = rtcache_GetLock();
        if (result == 0) {
            SMMutexUnLock(mutexRtCache);
        }
        return result;
    });
    all.add("ids", {0}, [] { return rtcache_SetID(3, 5) + read(rtcache_GetID, 3u); });
    all.add("endpoint count", {4, {3}}, [] { return rtcache_GetStorageEIDCount(); });
    all.add("endpoints", {0, {3}}, [] {
        StorageEIDAttr attributes;
        StorageEIDTable table;
        return either(
            {rtcache_GetStorageEIDs(&table), rtcache_GetStorageEIDStatus(kHba, &attributes),
             rtcache_SetStorageEIDStatus(kHba, 3), read(rtcache_GetStorageEIDType, kHba),
             rtcache_SetStorageEIDType(kHba, RTCACHE_TYPE_HBA), rtcache_SetModularId(kHba, 2),
             rtcache_FreeObjectLevel(kKron, RTCACHE_KEY_DISK)});
    });
    all.add("attributes", {0, {}, true}, [] {
        StorageEIDAttr attributes;
        return rtcache_GetStorageEIDStatusNoLock(kHba, &attributes) +
               rtcache_SetStorageEIDStatusNoLock(kHba, 4) +
               read(rtcache_GetStorageEIDTypeNoLock, kHba) +
               read(rtcache_GetModularIdNoLock, kHba) + GetIndexFromEID(kKron);
    });
    all.add("registration", {0, {3, 30, 33}}, [] {
        const uint32_t added =
            rtcache_UpdateCachedObject(RTCACHE_REGISTER, 30, RTCACHE_TYPE_KRON, 0);
        const uint32_t removed = rtcache_UpdateCachedObject(0, 30, RTCACHE_TYPE_KRON, 0);
        return added * 10 + removed;
    });
    all.add("object", {0, {}, true}, [] {
        void* object = nullptr;
        const uint32_t found = rtcache_GetCachedObject(RTCACHE_KEY_DISK, kKron, kDiskKey, &object);
        return found + rtcache_SetCachedObject(RTCACHE_KEY_DISK, kKron, kDiskKey, object);
    });
    all.add("freed records", {0}, [] {
        return (rtcache_FreeRMObjects(
                    static_cast<StorageObjectRecord*>(room(sizeof(StorageObjectRecord))), 1),
                0);
    });
    all.add("names", {7, {6}, true}, [] {
        wchar_t *enclosure = nullptr, *backplane = nullptr;
        rtcache_GetEnclosureFQDD(kKron, kEnclosureKey, &enclosure);
        rtcache_GetEnclosureFQDD(kKron, kBackplaneKey, &backplane);
        const bool copied = enclosure != nullptr && backplane != nullptr;
        vexel_free(enclosure);
        vexel_free(backplane);
        return copied + 2 * (rtcache_GetAdapterFQDD(kKron) != nullptr) +
               4 * (rtcache_GetBatteryFQDD(kKron) != nullptr);
    });
    all.add("no names", {111}, [] {
        wchar_t *unknown = nullptr, *disk = nullptr;
        return digits({rtcache_GetAdapterFQDD(99) == rtcache_GetBatteryFQDD(kNvme),
                       rtcache_GetEnclosureFQDD(kKron, 99, &unknown) +
                           rtcache_GetEnclosureFQDD(kKron, kDiskKey, &disk) + (unknown == disk)});
    });
    all.add("name of an SSD", {1, {0}}, [] {
        char* fqdd = vexel_GetPCIeSSDFQDD(2);
        vexel_free(fqdd);
        return fqdd != nullptr;
    });
    all.add("printed cache", {0, {-1}, true}, [] { return rtcache_PrintCache(); });
    all.add("command status", {0, {}, true}, [] {
        g_rtpil_Controller_Status[0].eid = kNvme;
        uint8_t status;
        return rtmpi2_UpdateControllerCommandStatus(kNvme, RTPIL_COMMAND_FAILED, 1) +
               rtpil_GetControllerCommunicationStatus(kNvme, &status) +
               int64_t{rtpil_SetctrlEnableLoggingStatus(kNvme, 0)} +
               rtpil_GetctrlEnableLoggingStatus(kNvme) + rtpil_IfNVMeSSD_isNotPresent(kNvme);
    });

    all.add("event", {0, {}, true},
            [] { return rtcache_SetCachedEvent(kHba, RT_OBJ_PHYSICAL_DISK, 3, 4); });
    all.add("event with data", {0, {}, true}, [] {
        return rtcache_CopyCachedEvent(kNvme, RT_OBJ_PHYSICAL_DISK, 3, 4, event_data("PDR5")) +
               rtcache_CopyCachedEvent(kNvme, RT_OBJ_PHYSICAL_DISK, 3, 4, nullptr);
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
        fill(kKron, 299);
        RtCacheEventNode* disks = nullptr;
        RtCacheEventNode* virtual_disks = nullptr;
        const uint32_t first = rtcache_GetEventsByObjType(kKron, RT_OBJ_PHYSICAL_DISK, &disks);
        const uint32_t second =
            rtcache_GetEventsByObjType(kKron, RT_OBJ_VIRTUAL_DISK, &virtual_disks);
        free_list(disks);
        free_list(virtual_disks);
        return 10 * first + second;
    });
    all.add("refusals of the cache", {1112222222222222222}, [] {
        uint8_t byte;
        RtCacheEventRow* events = nullptr;
        return digits({rtcache_SetID(16, 1), rtcache_GetID(15, nullptr),
                       rtcache_GetStorageEIDs(nullptr), rtcache_GetStorageEIDStatus(kHba, nullptr),
                       rtcache_GetStorageEIDStatusNoLock(kHba, nullptr),
                       rtcache_GetStorageEIDType(kHba, nullptr),
                       rtcache_GetStorageEIDTypeNoLock(kHba, nullptr),
                       rtcache_GetModularIdNoLock(kHba, nullptr),
                       rtcache_SetCachedObject(0, kHba, 1, &byte),
                       rtcache_SetCachedObject(RTCACHE_KEY_EID, kHba, 1, nullptr),
                       rtcache_SetCachedObject(7, kHba, 1, &byte),
                       rtcache_GetCachedObject(RTCACHE_KEY_DISK, kHba, 1, nullptr),
                       rtcache_GetCachedEvents(kHba, nullptr, nullptr),
                       rtcache_GetCachedEvents(kHba, &events, nullptr),
                       rtcache_ConvertCacheToEvent(nullptr, &byte, nullptr),
                       rtcache_GetEventsByObjType(kHba, RT_OBJ_FAN, nullptr),
                       rtcache_FreeObjectLevel(kHba, RTCACHE_KEY_EID),
                       rtcache_FreeObjectLevel(kHba, RTCACHE_KEY_BACKPLANE)});
    });
    all.add("refusals of events", {11111222}, [] {
        const auto all_of = [](uint32_t eid) {
            return std::array{rtcache_SetCachedEvent(eid, 0, 1, 1),
                              rtcache_CopyCachedEvent(eid, 0, 1, 1, nullptr),
                              rtcache_SetDelayedCachedEvent(eid, 0, 1, 1),
                              rtcache_PurgeDelayedCachedEvents(eid, 0)};
        };
        const auto unknown = all_of(99), free = all_of(RTCACHE_EID_FREE);
        return digits({unknown[0], unknown[1], unknown[2], unknown[3], free[0], free[2], free[3]});
    });
    all.add("refusals of the command status", {1999900}, [] {
        uint8_t status;
        return digits({rtpil_GetControllerCommunicationStatus(kNvme, nullptr),
                       rtpil_GetControllerCommunicationStatus(99, &status) - 1,
                       rtmpi2_UpdateControllerCommandStatus(99, RTPIL_COMMAND_FAILED, 1),
                       rtmpi2_UpdateControllerCommandStatus(-1, RTPIL_COMMAND_FAILED, 1),
                       int64_t{rtpil_SetctrlEnableLoggingStatus(99, 1)},
                       int64_t{rtpil_GetctrlEnableLoggingStatus(99)}});
    });
}

}  // namespace faults
