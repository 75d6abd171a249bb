#include "rt_cache.h"

#include <span>

#include "internal/log.h"
#include "internal/mutex_guard.h"
#include "rt_cache/rt_cache_nodes.h"
#include "rt_cache/rt_cache_state.h"
#include "rt_sync.h"
#include "vexel.h"

using namespace vexutils;

namespace {

// A row's slots, as many as there are; none in a table that could not be allocated.
template <class Node>
std::span<Node*> slots_of(Node*** table, Row row, std::uint32_t columns) {
    return table != nullptr ? std::span{table[index_of(row)], columns} : std::span<Node*>{};
}

std::span<RtCacheDiskNode*> disks_of(Row row) VEX_REQUIRES(mutexRtCache) {
    return slots_of(cache_PDs, row, cache_sizes.disks);
}
std::span<RtCacheVirtualDiskNode*> virtual_disks_of(Row row) VEX_REQUIRES(mutexRtCache) {
    return slots_of(cache_VDs, row, cache_sizes.virtual_disks);
}

// The EID at a position, also one beyond today's limits.
unsigned eid_at(Row row) VEX_REQUIRES(mutexRtCache) {
    const std::uint8_t* positions = cache_StorageEIDInfo.storageEID;
    return positions != nullptr ? positions[index_of(row)] : unsigned{RTCACHE_EID_FREE};
}

bool is_pciessd(std::uint8_t type) {
    return type == RTCACHE_TYPE_NVME || type == RTCACHE_TYPE_PCIESSD;
}

// The event data of all endpoints that were never drained.
void free_all_event_data() VEX_REQUIRES(mutexRtCache) {
    for (std::uint32_t row = 0; row < cache_sizes.rows; ++row) {
        if (cache_Events != nullptr) {
            free_held_data(cache_Events[row]);
        }
        if (cache_Events_PD_ChObj != nullptr) {
            free_held_data(cache_Events_PD_ChObj[row]);
        }
    }
}

// What the slots hold.
template <class Slots>
void free_nodes(Slots slots, void (*free_node)(typename Slots::reference)) {
    for (auto& slot : slots) {
        if (slot != nullptr) {
            free_node(slot);
        }
    }
}

void free_remaining_controllers() VEX_REQUIRES(mutexRtCache) {
    for (RtCacheControllerNode* node : cache_AllEIDs) {
        if (node != nullptr) {
            free_controller(node);
        }
    }
}

template <class Node>
void release_table(Node***& table) VEX_REQUIRES(mutexRtCache) {
    vexel_free_2darray(reinterpret_cast<void**>(table), cache_sizes.rows);
    table = nullptr;
}

void release_arrays() VEX_REQUIRES(mutexRtCache) {
    release_table(cache_PDs);
    release_table(cache_VDs);
    release(cache_Events);
    release(cache_Events_PD_ChObj);
    release(cache_Events_delayed);
    release(cache_Events_PD_ChObj_delayed);
    release(cache_StorageEIDInfo.storageEID);
    release(cache_StorageEIDInfo.eidInfo);
    cache_StorageEIDInfo.eidCount = 0;
    gRTCache_EventCount = 0;
    cache_sizes = {};
}

// Whether there are arrays without a lock, left by a failed start or a refused end. Unchecked: they
// are in nobody's use.
bool arrays_are_abandoned() VEX_UNCHECKED {
    return !cache_exists() && cache_sizes.allocated;
}

}  // namespace

void rtcache_FreeMem(void) {
    const bool abandoned = arrays_are_abandoned();
    const MutexGuard lock{mutexRtCache};
    if (!lock && !abandoned) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return;
    }

    for (std::uint32_t eid = 0; eid < RTCACHE_EID_SLOTS; ++eid) {
        RtCacheControllerNode* node = cache_AllEIDs[eid];
        if (node == nullptr) {
            continue;
        }
        LOG(Level::Detail, "%s EID=%d %d", "FreeingMemory", eid, __LINE__);
        if (node->objType == RT_NODE_PCIESSD_ADAPTER) {
            free_battery_and_driver(*node);
        }
        std::uint8_t type = 0;
        if (rtcache_GetStorageEIDTypeNoLock(eid, &type) != RTCACHE_OK) {
            LOG(Level::Fatal, "%s%s", "<-- error get Storage EID Fail", __func__);
        }
        if (is_pciessd(type)) {
            LOG(Level::Trace, "It is a PCIeSSD EID, continue");
            continue;
        }
        LOG(Level::Trace, "Adapter/battery EID=%d", eid);
        free_controller(node);
    }

    for (std::uint32_t row = 0; row < cache_sizes.rows; ++row) {
        const auto disks = disks_of(Row{row});
        for (std::size_t i = 0; i < disks.size(); ++i) {
            if (disks[i] != nullptr) {
                LOG(Level::Trace, "EID=%d physical device=%zu", eid_at(Row{row}), i);
                free_disk(disks[i]);
            }
        }
        const auto virtual_disks = virtual_disks_of(Row{row});
        for (std::size_t i = 0; i < virtual_disks.size(); ++i) {
            if (virtual_disks[i] != nullptr) {
                LOG(Level::Trace, "EID=%d logical device=%zu", eid_at(Row{row}), i);
                free_virtual_disk(virtual_disks[i]);
            }
        }
    }

    LOG(Level::Trace, "Freeing PCIeSSD extenders");
    free_nodes(std::span{cache_Extndrs}, free_extender);
    LOG(Level::Trace, "Freeing PCIeSSD BPs");
    for (BpStatusInfo*& backplane : cache_Bkplanes) {
        if (backplane != nullptr) {
            LOG(Level::Trace, "Freeing Enclosure FQDD");
            LOG(Level::Trace, "Freeing Enclosure NAME");
            free_backplane(backplane);
        }
    }

    for (std::uint32_t i = 0; i < RTCACHE_EID_SLOTS; ++i) {
        if (cache_CMDsCount[i] != nullptr) {
            LOG(Level::Trace, "Freeing cache_CMDsCount:%p at u32Iter:%d", cache_CMDsCount[i], i);
            release(cache_CMDsCount[i]);
        }
    }
    free_all_event_data();
    free_remaining_controllers();
    release_arrays();
}

uint32_t rtcache_FreeObjectLevel(uint32_t eid, uint32_t level) {
    LOG(Level::Trace, "--> enter with EID:%d, level:%d", eid, level);
    if (eid > kMaxEid || level == RTCACHE_EID_FREE) {
        LOG(Level::Error, "%s%s", "<-- err null inputs", __func__);
        return RTCACHE_BAD_ARGUMENT;
    }
    if (level < RTCACHE_KEY_CONTROLLER || level > RTCACHE_KEY_VIRTUAL_DISK) {
        LOG(Level::Error, "%s%s %d", "<-- err wrong keytype", __func__, level);
        return RTCACHE_BAD_ARGUMENT;
    }
    const MutexGuard lock{mutexRtCache};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return RTCACHE_NO_LOCK;
    }

    if (level == RTCACHE_KEY_CONTROLLER) {
        if (cache_AllEIDs[eid] != nullptr) {
            free_controller(cache_AllEIDs[eid]);
        }
        LOG(Level::Trace, "<-- exit");
        return RTCACHE_OK;
    }
    const auto row = row_of(eid);
    if (!row) {
        LOG(Level::Detail, "<-- %s error s32Temp %d", __func__, kNoRow);
        return RTCACHE_NOT_FOUND;
    }
    if (level == RTCACHE_KEY_DISK) {
        free_nodes(disks_of(*row), free_disk);
    } else {
        free_nodes(virtual_disks_of(*row), free_virtual_disk);
    }
    LOG(Level::Trace, "<-- exit");
    return RTCACHE_OK;
}

// Unchecked: the last one to use the cache.
uint32_t rtcache_Destroy(void) VEX_UNCHECKED {
    LOG(Level::Trace, "--> ");
    rtcache_FreeMem();
    cache_StorageEIDInfo.eidCount = 0;
    SMMutexDestroy(mutexRtCache);  // which refuses null
    mutexRtCache = nullptr;
    cache_sizes.rows_in_use = 0;  // also when the arrays could not be released
    RTSync_KronStateDestroy();
    LOG(Level::Trace, "<-- ");
    return RTCACHE_OK;
}
