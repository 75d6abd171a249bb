#include "rt_cache.h"

#include <atomic>

#include "internal/log.h"
#include "internal/mutex_guard.h"
#include "internal/owned.h"
#include "rt_cache/rt_cache_state.h"
#include "rt_sync.h"

using namespace vexutils;

namespace {

template <class T>
bool allocate(T*& array, std::uint32_t count) {
    array = make_owned<T>(count).release();
    return array != nullptr || count == 0;
}

template <class Node>
bool allocate_table(Node***& table, std::uint32_t rows, std::uint32_t columns) {
    void** made = vexel_alloc_2darray(rows, columns, sizeof(Node*));
    table = reinterpret_cast<Node***>(made);
    return table != nullptr;
}

// Captures the limits and makes the per-endpoint arrays; those that could be made stay, also when
// one could not.
bool allocate_arrays() VEX_REQUIRES(mutexRtCache) {
    const std::uint32_t rows = std::min(max_adapters, kMaxRows);
    cache_sizes = {true, rows, std::min(max_physicaldevices, kMaxDisks), max_logicaldevices, 0};
    bool made = allocate(cache_StorageEIDInfo.storageEID, rows);
    made &= allocate(cache_StorageEIDInfo.eidInfo, rows);
    made &= allocate(cache_Events, rows);
    made &= allocate(cache_Events_PD_ChObj, rows);
    made &= allocate(cache_Events_delayed, rows);
    made &= allocate(cache_Events_PD_ChObj_delayed, rows);
    made &= allocate_table(cache_PDs, rows, cache_sizes.disks);
    made &= allocate_table(cache_VDs, rows, cache_sizes.virtual_disks);
    return made;
}

// Ends what an earlier rtcache_Init left: a cache in use, or arrays without a lock. Unchecked: as
// rtcache_Init.
void release_previous() VEX_UNCHECKED {
    if (cache_exists()) {
        rtcache_Destroy();
    }
    if (cache_sizes.allocated) {
        rtcache_FreeMem();
    }
}

void fill_position(Row row, std::uint32_t eid, std::uint32_t type, std::uint32_t modular_id)
    VEX_REQUIRES(mutexRtCache) {
    cache_StorageEIDInfo.storageEID[index_of(row)] = static_cast<std::uint8_t>(eid);
    cache_StorageEIDInfo.eidInfo[index_of(row)] = {
        {0, 0}, static_cast<std::uint8_t>(type), static_cast<std::uint8_t>(modular_id)};
}

// Frees a position that holds the EID with this type. Returns whether it did.
bool clear_position(Row row, std::uint32_t eid, std::uint32_t type) VEX_REQUIRES(mutexRtCache) {
    std::uint8_t& holder = cache_StorageEIDInfo.storageEID[index_of(row)];
    StorageEIDAttr& attributes = cache_StorageEIDInfo.eidInfo[index_of(row)];
    if (holder != eid || attributes.eidType != type) {
        return false;
    }
    holder = RTCACHE_EID_FREE;
    attributes = {};
    return true;
}

// row_limit() if no position is free.
std::uint32_t first_free_position() VEX_REQUIRES(mutexRtCache) {
    const auto positions = all_positions();
    const auto found = std::ranges::find(positions, std::uint8_t{RTCACHE_EID_FREE});
    return static_cast<std::uint32_t>(found - positions.begin());
}

}  // namespace

// Unchecked: nobody else uses the cache before it exists.
uint32_t rtcache_Init(void) VEX_UNCHECKED {
    LOG(Level::Trace, "--> ");
    release_previous();
    std::ranges::fill(cache_AllEIDs, nullptr);
    const bool made = allocate_arrays();
    LOG(Level::Trace, "--> R2X section ");
    std::ranges::fill(cache_Extndrs, nullptr);
    std::ranges::fill(cache_Bkplanes, nullptr);
    std::ranges::fill(cache_CMDsCount, nullptr);
    std::ranges::fill(sIDToValueMap, std::uint8_t{0});
    if (!made) {
        return RTCACHE_NO_LOCK;
    }

    std::fill_n(cache_StorageEIDInfo.storageEID, cache_sizes.rows, std::uint8_t{RTCACHE_EID_FREE});
    mutexRtCache = SMMutexCreate(nullptr);
    if (mutexRtCache == nullptr) {
        LOG(Level::Fatal, "<-- %s failed to create mutex", __func__);
        return 1;
    }
    cache_sizes.rows_in_use = cache_sizes.rows;
    if (RTSync_KronStateInit() != 0) {
        return 1;
    }
    LOG(Level::Trace, "<-- ");
    return RTCACHE_OK;
}

uint32_t rtcache_GetLock(void) {
    if (SMMutexLock(mutexRtCache, SM_WAIT_FOREVER) != 0) {  // null is refused
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return RTCACHE_NO_LOCK;
    }
    return RTCACHE_OK;
}

uint32_t rtcache_SetID(uint32_t id, uint32_t value) {
    if (id >= RTCACHE_ID_MAP_SIZE) {
        return 1;
    }
    std::atomic_ref{sIDToValueMap[id]}.store(static_cast<std::uint8_t>(value),
                                             std::memory_order_relaxed);
    return RTCACHE_OK;
}

uint32_t rtcache_GetID(uint32_t id, uint8_t* value) {
    if (value == nullptr || id >= RTCACHE_ID_MAP_SIZE) {
        return 1;
    }
    *value = std::atomic_ref{sIDToValueMap[id]}.load(std::memory_order_relaxed);
    return RTCACHE_OK;
}

uint32_t rtcache_GetStorageEIDCount(void) {
    const MutexGuard lock{mutexRtCache};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return RTCACHE_NO_LOCK;  // Kept: reads as a count of 3.
    }

    return static_cast<std::uint8_t>(cache_StorageEIDInfo.eidCount);
}

uint32_t rtcache_GetStorageEIDs(StorageEIDTable* table) {
    if (table == nullptr) {
        LOG(Level::Error, "%s%s", "<-- err null inputs", __func__);
        return RTCACHE_BAD_ARGUMENT;
    }
    const MutexGuard lock{mutexRtCache};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return RTCACHE_NO_LOCK;
    }

    *table = cache_StorageEIDInfo;
    return RTCACHE_OK;
}

uint32_t rtcache_GetStorageEIDStatus(uint32_t eid, StorageEIDAttr* attributes) {
    if (attributes == nullptr) {
        LOG(Level::Error, "%s%s", "<-- err null inputs", __func__);
        return RTCACHE_BAD_ARGUMENT;
    }
    const MutexGuard lock{mutexRtCache};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return RTCACHE_NO_LOCK;
    }

    // Kept: the last position wins here, the first one everywhere else.
    auto row = find_eid(used_positions(), eid);
    while (row) {
        *attributes = cache_StorageEIDInfo.eidInfo[index_of(*row)];
        row = find_eid(used_positions(), eid, index_of(*row) + 1);
    }
    return RTCACHE_OK;
}

uint32_t rtcache_GetStorageEIDStatusNoLock(uint32_t eid, StorageEIDAttr* attributes) {
    if (attributes == nullptr) {
        LOG(Level::Error, "%s%s", "<-- err null inputs", __func__);
        return RTCACHE_BAD_ARGUMENT;
    }

    const auto row = used_row_of(eid);
    if (!row) {
        return RTCACHE_NOT_FOUND;
    }
    *attributes = attributes_at(*row);
    return RTCACHE_OK;
}

uint32_t rtcache_SetStorageEIDStatus(uint32_t eid, uint32_t status16) {
    const MutexGuard lock{mutexRtCache};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return RTCACHE_NO_LOCK;
    }

    return rtcache_SetStorageEIDStatusNoLock(eid, status16);
}

uint32_t rtcache_SetStorageEIDStatusNoLock(uint32_t eid, uint32_t status16) {
    auto row = used_row_of(eid);
    while (row) {
        StorageEIDAttr& attributes = attributes_at(*row);
        attributes.status[0] = static_cast<std::uint8_t>(status16);
        attributes.status[1] = static_cast<std::uint8_t>(status16 >> 8);
        row = find_eid(used_positions(), eid, index_of(*row) + 1);
    }
    return RTCACHE_OK;
}

uint32_t rtcache_GetStorageEIDType(uint32_t eid, uint8_t* type) {
    if (type == nullptr) {
        LOG(Level::Error, "%s%s", "<-- err null inputs", __func__);
        return RTCACHE_BAD_ARGUMENT;
    }
    const MutexGuard lock{mutexRtCache};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return RTCACHE_NO_LOCK;
    }

    if (const auto row = used_row_of(eid)) {
        *type = attributes_at(*row).eidType;
    }
    return RTCACHE_OK;
}

uint32_t rtcache_GetStorageEIDTypeNoLock(uint32_t eid, uint8_t* type) {
    if (type == nullptr) {
        LOG(Level::Error, "%s%s", "<-- err null inputs", __func__);
        return RTCACHE_BAD_ARGUMENT;
    }

    const auto row = used_row_of(eid);
    if (!row) {
        return RTCACHE_NOT_FOUND;
    }
    *type = attributes_at(*row).eidType;
    return RTCACHE_OK;
}

uint32_t rtcache_SetStorageEIDType(uint32_t eid, uint32_t type) {
    const MutexGuard lock{mutexRtCache};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return RTCACHE_NO_LOCK;
    }

    if (const auto row = used_row_of(eid)) {
        attributes_at(*row).eidType = static_cast<std::uint8_t>(type);
    }
    return RTCACHE_OK;
}

uint32_t rtcache_GetModularIdNoLock(uint32_t eid, uint8_t* modularId) {
    if (modularId == nullptr) {
        LOG(Level::Error, "%s%s", "<-- err null inputs", __func__);
        return RTCACHE_BAD_ARGUMENT;
    }

    *modularId = 0;
    const auto row = used_row_of(eid);
    if (!row) {
        return RTCACHE_NOT_FOUND;
    }
    *modularId = attributes_at(*row).modularId;
    return RTCACHE_OK;
}

uint32_t rtcache_SetModularId(uint32_t eid, uint32_t modularId) {
    const MutexGuard lock{mutexRtCache};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return RTCACHE_NO_LOCK;
    }

    if (const auto row = used_row_of(eid)) {
        attributes_at(*row).modularId = static_cast<std::uint8_t>(modularId);
    }
    return RTCACHE_OK;
}

uint32_t GetIndexFromEID(uint32_t eid) {
    const auto row = row_of(eid);
    return row ? static_cast<std::uint32_t>(*row) : kNoRow;
}

uint32_t rtcache_UpdateCachedObject(uint32_t action, uint32_t eid, uint32_t type,
                                    uint32_t modularId) {
    LOG(Level::Detail, "--> enter with EID:%d", eid);
    if (eid > kMaxEid) {
        LOG(Level::Trace, "<-- exit with %d", int{RTCACHE_BAD_ARGUMENT});
        return RTCACHE_BAD_ARGUMENT;
    }
    const MutexGuard lock{mutexRtCache};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return RTCACHE_NO_LOCK;
    }

    if (action != RTCACHE_REGISTER) {
        for (std::uint32_t i = 0; i < row_limit(); ++i) {
            if (clear_position(Row{i}, eid, type)) {
                LOG(Level::Fatal, "Marking cache_StorageEIDInfo.storageEID[%d] = %d as INVALID", i,
                    eid);
            }
        }
        LOG(Level::Trace, "<-- exit with %d", int{RTCACHE_OK});
        return RTCACHE_OK;
    }

    uint32_t result = RTCACHE_OK;
    std::uint32_t& count = cache_StorageEIDInfo.eidCount;
    const std::uint32_t free = first_free_position();
    if (free < row_limit()) {
        LOG(Level::Trace, "Found index. Assign cache_StorageEIDInfo.storageEID[%d] = %d ", free,
            eid);
    }
    if (free < count && free < row_limit()) {
        // The table is exported: somebody may have written it since the search.
        if (cache_StorageEIDInfo.storageEID[free] == RTCACHE_EID_FREE) {
            LOG(Level::Trace, "Updated cache_StorageEIDInfo.storageEID[%d] = %d ", free, eid);
            fill_position(Row{free}, eid, type, modularId);
        } else {
            LOG(Level::Fatal, "DEFECT. Needs debugging. VEXEL can misbehave. Wrong index %d", free);
        }
    } else if (count < row_limit()) {
        // Kept: also when no position is free, since the count may lag behind the table.
        fill_position(Row{count}, eid, type, modularId);
        LOG(Level::Trace, "New index. Assign cache_StorageEIDInfo.storageEID[%d] = %d ", count,
            eid);
        ++count;
    } else {
        result = RTCACHE_BAD_ARGUMENT;
    }
    LOG(Level::Trace, "<-- exit with %d", result);
    return result;
}
