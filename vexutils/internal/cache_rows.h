// A row of the runtime cache as a whole, for those who walk all of it: the fetch by key would look
// the endpoint up for each of two thousand slots.
#ifndef VEXUTILS_INTERNAL_CACHE_ROWS_H
#define VEXUTILS_INTERNAL_CACHE_ROWS_H

#include <cstdint>
#include <span>

#include "internal/lock_annotations.h"
#include "rt_cache.h"

namespace vexutils {

// Disk and enclosure slots of an endpoint, by object key; empty if it is not registered. Valid
// while the caller holds mutexRtCache.
std::span<RtCacheDiskNode* const> disk_slots(std::uint32_t eid) VEX_REQUIRES(mutexRtCache);

}  // namespace vexutils

#endif  // VEXUTILS_INTERNAL_CACHE_ROWS_H
