#include "rt_cache.h"

#include "internal/log.h"
#include "internal/mutex_guard.h"
#include "rt_cache/rt_cache_state.h"
#include "rt_sync.h"
#include "vexel.h"

using namespace vexutils;

namespace {

template <class T>
void release(T*& array) {
    vexel_free(array);
    array = nullptr;
}

template <class Node>
void release_table(Node***& table) {
    vexel_free_2darray(reinterpret_cast<void**>(table), cache_sizes.rows);
    table = nullptr;
}

void release_arrays() {
    release_table(cache_PDs);
    release_table(cache_VDs);
    release(cache_Events);
    release(cache_Events_PD_ChObj);
    release(cache_Events_delayed);
    release(cache_Events_PD_ChObj_delayed);
    release(cache_StorageEIDInfo.storageEID);
    release(cache_StorageEIDInfo.eidInfo);
    cache_StorageEIDInfo.eidCount = 0;
    cache_sizes = {};
}

}  // namespace

void rtcache_FreeMem(void) {
    // Arrays without a lock, left by a failed start or a refused end, are in nobody's use.
    const bool abandoned = !cache_exists() && cache_sizes.allocated;
    const MutexGuard lock{mutexRtCache};
    if (!lock && !abandoned) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return;
    }

    release_arrays();
}

uint32_t rtcache_Destroy(void) {
    LOG(Level::Trace, "--> ");
    rtcache_FreeMem();
    cache_StorageEIDInfo.eidCount = 0;
    if (mutexRtCache != nullptr) {
        SMMutexDestroy(mutexRtCache);
        mutexRtCache = nullptr;
    }
    RTSync_KronStateDestroy();
    LOG(Level::Trace, "<-- ");
    return RTCACHE_OK;
}
