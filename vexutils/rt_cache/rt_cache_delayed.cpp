#include "rt_cache.h"

#include <algorithm>
#include <span>

#include "internal/log.h"
#include "rt_cache/rt_cache_bitmap.h"
#include "rt_cache/rt_cache_event_list.h"
#include "rt_cache/rt_cache_state.h"

using namespace vexutils;

uint32_t rtcache_SetDelayedCachedEvent(uint32_t eid, uint32_t objType, uint32_t eventType,
                                       uint32_t objKey) {
    LOG(Level::Trace, "--> entry, EID:%d, objType:0x%x, eventType:0x%x, objKey:%d", eid, objType,
        eventType, objKey);
    if (eid > kMaxEid) {
        return RTCACHE_BAD_ARGUMENT;
    }
    const auto row = row_of(eid);
    if (!row) {
        return RTCACHE_NOT_FOUND;
    }

    auto& bitmap = cache_Events_PD_ChObj_delayed[index_of(*row)].bitmap;
    LOG(Level::Error, "[%s] _PD_ChObj Bitmap : 0x%s", "DCache", BitmapText{bitmap}.get());
    if (is_disk_change(objType, eventType)) {
        LOG(Level::Error, "u16Index:[%d], u16Shift:[%d]", objKey / 8, objKey % 8);
        if (objKey < disk_limit()) {
            set_disk_bit(bitmap, objKey);
        } else {
            LOG(Level::Error, "%ss", "Error: objKey is more than MAX_PHYSICALDEVICES");  // Kept
        }
        LOG(Level::Error, "[%s] _PD_ChObj Bitmap : 0x%s", "DCache", BitmapText{bitmap}.get());
    } else {
        // Kept: types of 16 bits, where the list they are purged into has 32.
        RtCacheDelayedRow& list = cache_Events_delayed[index_of(*row)];
        next_record(list, is_full(list)) = {static_cast<std::uint16_t>(objType),
                                            static_cast<std::uint16_t>(eventType), objKey};
    }
    LOG(Level::Trace, "<-- exit");
    return RTCACHE_OK;
}

uint32_t rtcache_PurgeDelayedCachedEvents(uint32_t eid, int32_t dcmdOpcode) {
    LOG(Level::Trace, "--> %s, with EID:%d, dcmdOpcode:%d", "entry", eid, dcmdOpcode);
    if (eid > kMaxEid) {
        LOG(Level::Error, "%s%s", "<-- err1", __func__);
        return RTCACHE_BAD_ARGUMENT;
    }
    const auto row = row_of(eid);
    if (!row) {
        LOG(Level::Error, "<-- err2 %d", eid);
        return RTCACHE_NOT_FOUND;
    }

    auto& bitmap = cache_Events_PD_ChObj[index_of(*row)].bitmap;
    auto& delayed_bitmap = cache_Events_PD_ChObj_delayed[index_of(*row)].bitmap;
    LOG(Level::Error, "[%s] _PD_ChObj Bitmap : 0x%s", "Cache", BitmapText{bitmap}.get());
    LOG(Level::Error, "[%s] _PD_ChObj Bitmap : 0x%s", "DCache", BitmapText{delayed_bitmap}.get());
    for (std::size_t i = 0; i < used_bitmap_bytes(); ++i) {
        if (bitmap[i] != delayed_bitmap[i]) {
            LOG(Level::Trace, "cache BM:0x%x, delayed BM:0x%x", bitmap[i], delayed_bitmap[i]);
            bitmap[i] |= delayed_bitmap[i];
        }
    }
    LOG(Level::Error, "[%s] _PD_ChObj Bitmap : 0x%s", "Cache", BitmapText{bitmap}.get());
    std::ranges::fill(delayed_bitmap, std::uint8_t{0});

    RtCacheDelayedRow& delayed = cache_Events_delayed[index_of(*row)];
    if (delayed.eventCount == 0) {
        LOG(Level::Trace, "<-- No event in queue. count:%d", delayed.eventCount);
        return RTCACHE_OK;
    }
    RtCacheEventRow& list = cache_Events[index_of(*row)];
    const std::size_t held = std::min<std::size_t>(delayed.eventCount, std::size(delayed.events));
    for (const RtCacheDelayedEvent& event : std::span{delayed.events}.first(held)) {
        const bool full = is_full(list);
        if (full) {
            LOG(Level::Trace, "Purging older events. u32Count:%d", list.eventCount + 1);
            forget_event_data(list);
        }
        RtCacheEvent& record = next_record(list, full);
        record.objType = event.objType;
        record.eventType = event.eventType;
        record.objKey = event.objKey;
    }
    LOG(Level::Trace, "Done updating cache for delayed events");
    delayed.eventCount = 0;
    return RTCACHE_OK;
}
