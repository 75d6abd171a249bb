#include "rt_cache.h"

#include "internal/cache_rows.h"
#include "internal/log.h"
#include "rt_cache/rt_cache_state.h"

using namespace vexutils;

namespace {

// Writes the object's first byte as the EID of a position, which then counts as used.
void store_position(std::uint32_t position, const void* object) VEX_REQUIRES(mutexRtCache) {
    cache_StorageEIDInfo.storageEID[position] = *static_cast<const std::uint8_t*>(object);
    cache_StorageEIDInfo.eidCount = std::max(cache_StorageEIDInfo.eidCount, position + 1);
}

// Stores an object in a slot below the bound. Returns the operation's result.
template <class Node>
std::uint32_t store(Node** slots, std::uint32_t bound, std::uint32_t key, void* object) {
    if (key >= bound) {
        return RTCACHE_BAD_ARGUMENT;
    }
    slots[key] = static_cast<Node*>(object);
    return RTCACHE_OK;
}

// Fetches what a slot below the bound holds. Returns the operation's result.
template <class Node>
std::uint32_t fetch(Node* const* slots, std::uint32_t bound, std::uint32_t key, void** object) {
    if (key >= bound) {
        return RTCACHE_BAD_ARGUMENT;
    }
    *object = slots[key];
    return RTCACHE_OK;
}

bool has_rows(std::uint32_t key_type) {
    return key_type == RTCACHE_KEY_DISK || key_type == RTCACHE_KEY_VIRTUAL_DISK;
}

// Bound of the backplanes that can be fetched: up to the limit itself, since bay ids start at 0.
std::uint32_t backplane_bound() {
    return std::min<std::uint32_t>(max_pciessd_backplanes, RTCACHE_BACKPLANE_SLOTS - 1) + 1;
}

}  // namespace

namespace vexutils {

std::span<RtCacheDiskNode* const> disk_slots(std::uint32_t eid) {
    const std::optional<Row> row = row_of(eid);
    if (!row) {
        return {};
    }
    return {cache_PDs[index_of(*row)], disk_limit()};
}

}  // namespace vexutils

uint32_t rtcache_SetCachedObject(uint32_t keyType, uint32_t eid, uint16_t objKey, void* object) {
    LOG(Level::Detail, "--> enter with EID:%d, u16ObjKey:%d, pObjectToBeCached:%p", eid, objKey,
        object);
    if (keyType == 0 || eid > kMaxEid) {
        LOG(Level::Error, "%s%s", "<-- err null inputs", __func__);
        return RTCACHE_BAD_ARGUMENT;
    }
    if (keyType == RTCACHE_KEY_EID && object == nullptr) {
        LOG(Level::Error, "%s%s", "<-- err null pObjectToBeCached", __func__);
        return RTCACHE_BAD_ARGUMENT;
    }
    const std::optional<Row> row = has_rows(keyType) ? row_of(eid) : Row{0};
    if (!row || !cache_exists()) {
        LOG(Level::Detail, "<-- %s error s32Temp %d", __func__, kNoRow);
        return RTCACHE_NOT_FOUND;
    }

    switch (keyType) {
        case RTCACHE_KEY_EID:
            if (objKey >= row_limit()) {
                return RTCACHE_BAD_ARGUMENT;
            }
            store_position(objKey, object);
            return RTCACHE_OK;
        case RTCACHE_KEY_CONTROLLER:
            return store(cache_AllEIDs, RTCACHE_EID_SLOTS, objKey, object);
        case RTCACHE_KEY_DISK:
            LOG(Level::Detail, "--> max_physicaldevices:%d", max_physicaldevices);
            return store(cache_PDs[index_of(*row)], disk_limit(), objKey, object);
        case RTCACHE_KEY_VIRTUAL_DISK:
            return store(cache_VDs[index_of(*row)], virtual_disk_limit(), objKey, object);
        case RTCACHE_KEY_BACKPLANE:
            LOG(Level::Trace, "%s max_pciessd_backplanes=%d u16ObjKey=%d %d", "PCIeSSD Cache",
                max_pciessd_backplanes, objKey, __LINE__);
            return store(cache_Bkplanes, RTCACHE_BACKPLANE_SLOTS, objKey, object);
        case RTCACHE_KEY_EXTENDER:
            // Kept: the words name the backplanes, the value is that of the extenders.
            LOG(Level::Trace, "%s max_pciessd_backplanes=%d u16ObjKey=%d %d", "PCIeSSD Cache",
                max_pciessd_extndrs, objKey, __LINE__);
            return store(cache_Extndrs, RTCACHE_EXTENDER_SLOTS, objKey, object);
        case RTCACHE_KEY_COMMANDS:
            LOG(Level::Detail, "%s u16ObjKey=%d %d", "PCIeSSD Cache", objKey, __LINE__);
            return store(cache_CMDsCount, RTCACHE_EID_SLOTS, objKey, object);
        default:
            LOG(Level::Error, "%s%s %d", "<-- err wrong keytype", __func__, keyType);
            return RTCACHE_BAD_ARGUMENT;
    }
}

// Silent on success for most key types: one inventory update fetches tens of thousands of slots.
uint32_t rtcache_GetCachedObject(uint32_t keyType, uint32_t eid, uint16_t objKey, void** object) {
    if (object == nullptr || keyType == 0 || eid > kMaxEid) {
        LOG(Level::Error, "%s%s", "<-- err null inputs", __func__);
        return RTCACHE_BAD_ARGUMENT;
    }
    const std::optional<Row> row = has_rows(keyType) ? row_of(eid) : Row{0};
    if (!row || !cache_exists()) {
        LOG(Level::Detail, "<-- %s error s32Temp %d", __func__, kNoRow);
        return RTCACHE_NOT_FOUND;
    }

    switch (keyType) {
        case RTCACHE_KEY_EID:
            if (objKey >= row_limit()) {
                return RTCACHE_BAD_ARGUMENT;
            }
            *object = &cache_StorageEIDInfo.storageEID[objKey];
            return RTCACHE_OK;
        case RTCACHE_KEY_CONTROLLER:
            return fetch(cache_AllEIDs, RTCACHE_EID_SLOTS, objKey, object);
        case RTCACHE_KEY_DISK:
            return fetch(cache_PDs[index_of(*row)], disk_limit(), objKey, object);
        case RTCACHE_KEY_VIRTUAL_DISK:
            return fetch(cache_VDs[index_of(*row)], virtual_disk_limit(), objKey, object);
        case RTCACHE_KEY_BACKPLANE:
            LOG(Level::Trace, "%s max_pciessd_backplanes=%d u16ObjKey=%d %d", "PCIeSSD Cache",
                max_pciessd_backplanes, objKey, __LINE__);
            return fetch(cache_Bkplanes, backplane_bound(), objKey, object);
        case RTCACHE_KEY_EXTENDER:
            LOG(Level::Trace, "%s max_pciessd_extndrs=%d u16ObjKey=%d %d", "PCIeSSD Cache",
                max_pciessd_extndrs, objKey, __LINE__);
            return fetch(cache_Extndrs, RTCACHE_EXTENDER_SLOTS, objKey, object);
        case RTCACHE_KEY_COMMANDS:
            return fetch(cache_CMDsCount, RTCACHE_EID_SLOTS, objKey, object);
        default:
            LOG(Level::Error, "%s%s %d", "<-- err wrong keytype", __func__, keyType);
            return RTCACHE_BAD_ARGUMENT;
    }
}
