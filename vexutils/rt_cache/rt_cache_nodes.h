// How each kind of thing that the cache owns is freed. Callers hold mutexRtCache.
#ifndef VEXUTILS_RT_CACHE_RT_CACHE_NODES_H
#define VEXUTILS_RT_CACHE_RT_CACHE_NODES_H

#include "rt_cache.h"

namespace vexutils {

// An event's data with its message id and arguments; null is allowed.
void free_event_data(EventData* data);

}  // namespace vexutils

#endif  // VEXUTILS_RT_CACHE_RT_CACHE_NODES_H
