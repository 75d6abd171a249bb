// What the sources of the cache share: the sizes that rtcache_Init captured, the bounds that follow
// from them, and the look-ups of the endpoint table. Nothing here locks or logs; callers hold
// mutexRtCache.
#ifndef VEXUTILS_RT_CACHE_RT_CACHE_STATE_H
#define VEXUTILS_RT_CACHE_RT_CACHE_STATE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>

#include "internal/lock_annotations.h"
#include "rt_cache.h"

namespace vexutils {

// Position in the endpoint table; indexes every per-endpoint array.
enum class Row : std::uint32_t {};

constexpr std::size_t index_of(Row row) {
    return static_cast<std::size_t>(row);
}

inline constexpr std::uint32_t kNoRow = 255;    // what GetIndexFromEID gives for "none"
inline constexpr std::uint32_t kMaxRows = 255;  // rows 0 to 254, so that kNoRow stays none
inline constexpr std::uint32_t kMaxDisks = RTCACHE_DISK_SLOTS;
inline constexpr std::uint32_t kMaxEid = 254;

// Shape of the arrays there are. The exported limits can change at any time, the arrays cannot.
struct CacheSizes {
    bool allocated = false;  // rtcache_Init made arrays that nothing has released since
    std::uint32_t rows = 0;
    std::uint32_t disks = 0;
    std::uint32_t virtual_disks = 0;
    std::uint32_t rows_in_use = 0;  // rows while there is a cache, else 0
};
extern constinit CacheSizes cache_sizes VEX_GUARDED_BY(mutexRtCache);

// Between a successful rtcache_Init and rtcache_Destroy.
inline bool cache_exists() {
    return mutexRtCache != nullptr;
}

// Effective bounds: what the limits say now, within the arrays. There are no rows without a cache.
inline std::uint32_t row_limit() VEX_REQUIRES(mutexRtCache) {
    return std::min(max_adapters, cache_sizes.rows_in_use);
}
inline std::uint32_t disk_limit() VEX_REQUIRES(mutexRtCache) {
    return std::min(max_physicaldevices, cache_sizes.disks);
}
inline std::uint32_t virtual_disk_limit() VEX_REQUIRES(mutexRtCache) {
    return std::min(max_logicaldevices, cache_sizes.virtual_disks);
}

// All positions of the endpoint table, and those that the count says are in use.
inline std::span<std::uint8_t> all_positions() VEX_REQUIRES(mutexRtCache) {
    return {cache_StorageEIDInfo.storageEID, row_limit()};
}
inline std::span<std::uint8_t> used_positions() VEX_REQUIRES(mutexRtCache) {
    return all_positions().first(std::min(cache_StorageEIDInfo.eidCount, row_limit()));
}

// First of the positions, from a given one on, that holds the EID. The free marker is no EID.
inline std::optional<Row> find_eid(std::span<const std::uint8_t> positions, std::uint32_t eid,
                                   std::size_t from = 0) {
    if (eid > kMaxEid) {
        return std::nullopt;
    }
    // Same either way: among no bytes none is found.
    if (from >= positions.size()) {
        return std::nullopt;
    }
    const void* found =
        std::memchr(positions.data() + from, static_cast<int>(eid), positions.size() - from);
    if (found == nullptr) {
        return std::nullopt;
    }
    return Row(static_cast<const std::uint8_t*>(found) - positions.data());
}

// An endpoint's row, searched in all positions, whatever the count.
inline std::optional<Row> row_of(std::uint32_t eid) VEX_REQUIRES(mutexRtCache) {
    return find_eid(all_positions(), eid);
}

// An endpoint's row, searched in the used positions.
inline std::optional<Row> used_row_of(std::uint32_t eid) VEX_REQUIRES(mutexRtCache) {
    return find_eid(used_positions(), eid);
}

inline StorageEIDAttr& attributes_at(Row row) VEX_REQUIRES(mutexRtCache) {
    return cache_StorageEIDInfo.eidInfo[index_of(row)];
}

}  // namespace vexutils

#endif  // VEXUTILS_RT_CACHE_RT_CACHE_STATE_H
