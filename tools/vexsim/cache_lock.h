// The cache lock, held while this lives.
#ifndef TOOLS_VEXSIM_CACHE_LOCK_H
#define TOOLS_VEXSIM_CACHE_LOCK_H

#include "rt_cache.h"
#include "vexsim/runtime_failure.h"

namespace vexsim {

class CacheLock {
  public:
    CacheLock() { expect_zero("rtcache_GetLock", rtcache_GetLock()); }
    ~CacheLock() { SMMutexUnLock(mutexRtCache); }
    CacheLock(const CacheLock&) = delete;
    CacheLock& operator=(const CacheLock&) = delete;
};

// Stores an object, which the cache owns from then on. The caller holds the lock.
inline void store_object(uint32_t key_type, uint8_t eid, uint16_t key, void* object) {
    expect_zero("rtcache_SetCachedObject", rtcache_SetCachedObject(key_type, eid, key, object));
}

// The object in a slot, may be null. The caller holds the lock.
template <typename Node>
Node* cached(uint32_t key_type, uint8_t eid, uint16_t key) {
    void* object = nullptr;
    expect_zero("rtcache_GetCachedObject", rtcache_GetCachedObject(key_type, eid, key, &object));
    return static_cast<Node*>(object);
}

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_CACHE_LOCK_H
