// Objects as VEXEL makes them for the cache, which then owns them; each block a record or a text of
// its own.
#ifndef TESTS_SUPPORT_OBJECTS_H
#define TESTS_SUPPORT_OBJECTS_H

#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>

#include "rt_cache.h"
#include "vexel.h"

template <class T>
T* make(const T& value) {
    auto* made = static_cast<T*>(vexel_alloc(sizeof(T)));
    std::memcpy(made, &value, sizeof(T));
    return made;
}

inline wchar_t* make_text(const wchar_t* text = L"text") {
    if (text == nullptr) {
        return nullptr;
    }
    return std::wcscpy(
        static_cast<wchar_t*>(vexel_alloc((std::wcslen(text) + 1) * sizeof(wchar_t))), text);
}

inline StorageObjectRecord* make_record(uint32_t type, const wchar_t* fqdd = L"RAID.Slot.1-1",
                                        uint32_t version = 1) {
    StorageObjectRecord record{};
    record.objType = type;
    record.NAME = make_text();
    record.hdr.VERSION = version;
    record.hdr.FQDD = make_text(fqdd);
    return make(record);
}

inline RtCacheControllerNode* make_controller(uint32_t type = RT_OBJ_ADAPTER,
                                              const wchar_t* fqdd = L"RAID.Slot.1-1") {
    return make(RtCacheControllerNode{type, make_record(0, fqdd), make_record(1), make_record(5),
                                      vexel_alloc(292), make_record(11), make(RtCachePciInfo{}),
                                      vexel_alloc(16), 0});
}

// A disk, an enclosure or a backplane.
inline RtCacheDiskNode* make_disk(uint32_t type = RT_OBJ_PHYSICAL_DISK,
                                  const wchar_t* fqdd = L"Disk.Bay.1") {
    return make(RtCacheDiskNode{type, make(RtCacheEnclosureLink{{{make_record(type, fqdd)}}})});
}

inline RtCacheVirtualDiskNode* make_virtual_disk() {
    return make(RtCacheVirtualDiskNode{RT_OBJ_VIRTUAL_DISK, make_record(RT_OBJ_VIRTUAL_DISK)});
}

// Event data.
inline EventData* make_event_data(const char* id) {
    auto* data = make(EventData{});
    data->messageId = std::strcpy(static_cast<char*>(vexel_alloc(std::strlen(id) + 1)), id);
    data->messageArgs = vexel_alloc(8);
    return data;
}

// Holds mutexRtCache.
struct CacheLock {
    CacheLock() { EXPECT_EQ(rtcache_GetLock(), 0u); }
    ~CacheLock() { SMMutexUnLock(mutexRtCache); }
    CacheLock(const CacheLock&) = delete;
};

#endif  // TESTS_SUPPORT_OBJECTS_H
