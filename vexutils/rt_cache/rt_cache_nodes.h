// How each kind of thing that the cache owns is freed, with all it owns. Callers hold mutexRtCache.
// Nothing here logs, except rtcache_FreeRMObjects for the records it is given.
#ifndef VEXUTILS_RT_CACHE_RT_CACHE_NODES_H
#define VEXUTILS_RT_CACHE_RT_CACHE_NODES_H

#include "internal/lock_annotations.h"
#include "rt_cache.h"
#include "vexel.h"

namespace vexutils {

// Frees a block and empties the pointer to it.
template <class T>
void release(T*& block) {
    vexel_free(block);
    block = nullptr;
}

// A controller node, and every slot that holds it: one node can be stored under several EIDs.
void free_controller(RtCacheControllerNode* node) VEX_REQUIRES(mutexRtCache);

// What a PCIe SSD's controller node has no use for.
void free_battery_and_driver(RtCacheControllerNode& node);

// A disk, enclosure or virtual disk node; empties its slot.
void free_disk(RtCacheDiskNode*& slot);
void free_virtual_disk(RtCacheVirtualDiskNode*& slot);

// An extender card or NVMe backplane; empties its slot.
void free_extender(ExtenderCardInfo*& slot);
void free_backplane(BpStatusInfo*& slot);

// An event's data with its message id and arguments; null is allowed.
void free_event_data(EventData* data);

// The event data that a list or a disk change row still holds.
void free_held_data(RtCacheEventRow& list);
void free_held_data(RtCacheDiskChangeRow& disks);

}  // namespace vexutils

#endif  // VEXUTILS_RT_CACHE_RT_CACHE_NODES_H
