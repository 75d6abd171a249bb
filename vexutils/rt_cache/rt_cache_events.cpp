#include "rt_cache.h"

#include <array>
#include <cstring>
#include <span>
#include <string_view>

#include "internal/log.h"
#include "internal/mutex_guard.h"
#include "internal/owned.h"
#include "internal/wide_text.h"
#include "rt_cache/rt_cache_bitmap.h"
#include "rt_cache/rt_cache_event_list.h"
#include "rt_cache/rt_cache_nodes.h"
#include "rt_cache/rt_cache_state.h"

using namespace vexutils;

uint32_t gRTCache_EventCount;

namespace {

constexpr std::size_t kFqddBytes = 256;  // chosen: the longest FQDD takes a third of it

// Fetches a disk's node; a key that no slot can have is looked up nowhere and has none.
std::uint32_t fetch_disk(std::uint32_t eid, std::uint32_t key, void** node)
    VEX_REQUIRES(mutexRtCache) {
    if (key > UINT16_MAX) {
        return RTCACHE_OK;
    }
    return rtcache_GetCachedObject(RTCACHE_KEY_DISK, eid, static_cast<std::uint16_t>(key), node);
}

// The record of a cached disk; null for other nodes and for a disk without one.
const StorageObjectRecord* disk_record(const void* node) {
    const auto* disk = static_cast<const RtCacheDiskNode*>(node);
    if (disk == nullptr || disk->objType != RT_OBJ_PHYSICAL_DISK || disk->enclObj == nullptr) {
        return nullptr;
    }
    return disk->enclObj->enclType.physicalDisk.Obj;
}

// Whether a disk behind an HBA sits in an external enclosure, which somebody else watches.
bool is_external(const StorageObjectRecord& disk, const char* fqdd) {
    return disk.body.pd.deviceInfoId == RT_DEVICE_INFO_UNSET &&
           std::strstr(fqdd, "Enclosure.External") != nullptr;
}

bool has_id(const EventData& data, std::string_view id) {
    return data.messageId != nullptr && data.messageId == id;
}

// Whether a disk's data is to be freed when new data replaces it. Data that is let go of instead
// may be known to VEXEL.
bool replaced_data_is_freed(std::uint32_t endpoint_type, const EventData& held,
                            const EventData& given) {
    return endpoint_type == RTCACHE_TYPE_NVME || (has_id(held, "PDR3") && has_id(given, "PDR5"));
}

template <class T>
Owned<T> copy_row(const T& row) {
    Owned<T> copy = make_owned<T>();
    if (copy != nullptr) {
        std::memcpy(copy.get(), &row, sizeof(row));
    }
    return copy;
}

}  // namespace

uint32_t rtcache_SetCachedEvent(uint32_t eid, uint32_t objType, uint32_t eventType,
                                uint32_t objKey) {
    LOG(Level::Detail, "--> entry, EID:%d, objType:0x%x, eventType:0x%x, objKey:%d", eid, objType,
        eventType, objKey);
    if (eid > kMaxEid) {
        LOG(Level::Error, "%s%s", "<-- err1", __func__);
        return RTCACHE_BAD_ARGUMENT;
    }
    uint8_t type = 0;
    if (rtcache_GetStorageEIDTypeNoLock(eid, &type) != RTCACHE_OK) {
        LOG(Level::Error, "ENDPOINT failed to get, EID lookup error");
    }

    if (type == RTCACHE_TYPE_HBA && objType == RT_OBJ_PHYSICAL_DISK) {
        LOG(Level::Error, "HBA EID and it is a Physical disk");
        void* node = nullptr;
        const uint32_t fetched = fetch_disk(eid, objKey, &node);
        if (fetched != RTCACHE_OK) {
            LOG(Level::Error, "%s%s", "<-- err2", __func__);
            return fetched;
        }
        if (const StorageObjectRecord* disk = disk_record(node); disk != nullptr) {
            std::array<char, kFqddBytes> fqdd;
            narrow(fqdd, disk->hdr.FQDD);
            LOG(Level::Trace, " converted to string : %s", fqdd.data());
            if (is_external(*disk, fqdd.data())) {
                LOG(Level::Error, "HBA EID and it is a external Physical disk");
                return RTCACHE_OK;
            }
        }
    }

    const uint32_t result = rtcache_CopyCachedEvent(eid, objType, eventType, objKey, nullptr);
    if (result != RTCACHE_OK) {
        LOG(Level::Error, "%s%s", "<-- err3", __func__);
    }
    return result;
}

uint32_t rtcache_SetCachedEvent_roll_up(uint32_t eid, uint32_t objType, uint32_t eventType,
                                        uint32_t objKey, EventData* eventData) {
    LOG(Level::Trace, "event_data roll_up %s", eventData != nullptr ? "not NULL" : "NULL");
    return rtcache_CopyCachedEvent(eid, objType, eventType, objKey, eventData);
}

uint32_t rtcache_CopyCachedEvent(uint32_t eid, uint32_t objType, uint32_t eventType,
                                 uint32_t objKey, EventData* eventData) {
    const auto row = row_of(eid);
    if (!row) {
        LOG(Level::Error, "%s%s", "<-- err2", __func__);
        return RTCACHE_NOT_FOUND;
    }

    RtCacheDiskChangeRow& disks = cache_Events_PD_ChObj[index_of(*row)];
    LOG(Level::Error, "[%s] _PD_ChObj Bitmap : 0x%s", "Cache", BitmapText{disks.bitmap}.get());
    if (!is_disk_change(objType, eventType)) {
        RtCacheEventRow& list = cache_Events[index_of(*row)];
        const bool full = is_full(list);
        if (full) {
            LOG(Level::Error, "exceeded the RTCACHE_EVENTCACHE_DEPTH");
            forget_event_data(list);
        }
        next_record(list, full) = {objType, eventType, objKey, eventData};
        LOG(Level::Trace, "event_data_npd %s", eventData != nullptr ? "not null" : "null");
        return RTCACHE_OK;
    }

    LOG(Level::Trace, "Event is for PHYSICALDISK and RAID_MGMT_EVENT_CHANGE_OBJECT");
    uint8_t type = 0;
    if (rtcache_GetStorageEIDTypeNoLock(eid, &type) != RTCACHE_OK) {
        LOG(Level::Fatal, "%s%s", "<-- error get Storage EID Fail", __func__);
    }
    LOG(Level::Trace, "%s EID=%d u8Type=%d", "-->CopyCacheEvent:", eid, type);
    LOG(Level::Trace, "u16Index:[%d], u16Shift:[%d]", objKey / 8, objKey % 8);
    if (objKey >= disk_limit()) {
        // Kept: the stray "s". There is no slot for the data, which is the cache's by now.
        LOG(Level::Error, "%ss", "Error: objKey is more than MAX_PHYSICALDEVICES");
        if (eventData == nullptr) {
            LOG(Level::Trace, "event_data_pd null");
        }
        free_event_data(eventData);
        return RTCACHE_OK;
    }

    set_disk_bit(disks.bitmap, objKey);
    EventData*& held = disks.eventData[objKey];
    if (eventData == nullptr) {
        LOG(Level::Trace, "event_data_pd null");
        if (held != nullptr) {
            LOG(Level::Trace, "even_data NULL overwrite check passed");
        }
        return RTCACHE_OK;
    }
    if (held != nullptr && held != eventData) {
        LOG(Level::Trace, "%s",
            type == RTCACHE_TYPE_NVME ? "event_data exsts already. This should not happen. "
                                        "overwrite with new event"
                                      : "event_data this should not happen unless PDR5 after PDR3 "
                                        "OR CTL48 for first drive which overwrites PDR4");
        if (replaced_data_is_freed(type, *held, *eventData)) {
            LOG(Level::Trace, "event_data_free->messageId:%s", held->messageId);
            free_event_data(held);
        }
    }
    LOG(Level::Trace, "event_data_pd not null , objKey=%d", objKey);
    held = eventData;
    return RTCACHE_OK;
}

uint32_t rtcache_GetCachedEvents(uint32_t eid, RtCacheEventRow** events,
                                 RtCacheDiskChangeRow** disks) {
    LOG(Level::Detail, "--> %s, EID[%d]", "entry", eid);
    if (events == nullptr || disks == nullptr) {
        LOG(Level::Error, "%s%s", "<-- err1", __func__);
        return RTCACHE_BAD_ARGUMENT;
    }
    MutexGuard lock{mutexRtCache};
    if (!lock) {
        LOG(Level::Error, "%s%s", "<-- err3", __func__);
        return RTCACHE_NO_LOCK;
    }
    const auto row = row_of(eid);
    if (!row) {
        LOG(Level::Error, "<-- err2 %d", eid);
        return RTCACHE_NOT_FOUND;
    }

    RtCacheEventRow& list = cache_Events[index_of(*row)];
    RtCacheDiskChangeRow& changes = cache_Events_PD_ChObj[index_of(*row)];
    Owned<RtCacheEventRow> list_copy = copy_row(list);
    if (list_copy == nullptr) {
        LOG(Level::Error, "%s%s", "<-- err4", __func__);
        return RTCACHE_NO_LOCK;
    }
    Owned<RtCacheDiskChangeRow> changes_copy = copy_row(changes);
    if (changes_copy == nullptr) {
        *events = nullptr;
        LOG(Level::Error, "%s%s", "<-- err5", __func__);
        return RTCACHE_NO_LOCK;
    }
    std::memset(&list, 0, sizeof(list));
    std::memset(&changes, 0, sizeof(changes));
    lock.unlock();

    *events = list_copy.release();  // to the caller, with all the event data
    *disks = changes_copy.release();
    LOG(Level::Detail, "<-- %s", "exit");
    return RTCACHE_OK;
}
