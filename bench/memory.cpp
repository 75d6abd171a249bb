// Resident memory of the cache, measured in a process of its own (vex_bench --memory).
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "bench/bench_support.h"
#include "rt_cache.h"
#include "vexel.h"

namespace bench {

namespace {

constexpr uint32_t kBusyEndpoints = 16;

long resident_kb() {
    long pages = 0, resident = 0;
    std::ifstream{"/proc/self/statm"} >> pages >> resident;
    return resident * sysconf(_SC_PAGESIZE) / 1024;
}

void make_busy(uint32_t eid) {
    rtcache_UpdateCachedObject(RTCACHE_REGISTER, eid, RTCACHE_TYPE_KRON, 0);
    rtcache_GetLock();
    for (uint32_t key = 0; key < 2 * RTCACHE_EVENTCACHE_DEPTH; ++key) {
        rtcache_CopyCachedEvent(eid, RT_OBJ_VIRTUAL_DISK, 1, key, nullptr);
        rtcache_CopyCachedEvent(eid, RT_OBJ_PHYSICAL_DISK, 3, key, nullptr);
    }
    SMMutexUnLock(mutexRtCache);
}

}  // namespace

int print_memory() {
    log_file(false);
    free(malloc(1 << 16));  // the allocator's own start is not the cache's
    const long before = resident_kb();
    rtcache_Init();
    const long after_init = resident_kb();
    for (uint32_t eid = 1; eid <= kBusyEndpoints; ++eid) {
        make_busy(eid);
    }
    const long busy = resident_kb();
    for (uint32_t eid = 1; eid <= kBusyEndpoints; ++eid) {
        RtCacheEventRow* events = nullptr;
        RtCacheDiskChangeRow* disks = nullptr;
        rtcache_GetCachedEvents(eid, &events, &disks);
        vexel_free(events);
        vexel_free(disks);
    }
    const long drained = resident_kb();
    rtcache_Destroy();
    std::printf("{\"init_kb\": %ld, \"busy_kb\": %ld, \"drained_kb\": %ld}\n", after_init - before,
                busy - before, drained - before);
    return 0;
}

}  // namespace bench
