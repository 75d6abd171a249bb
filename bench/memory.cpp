// Resident memory of the cache, measured in a process of its own (vex_bench --memory).
#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

#include "bench/bench_support.h"
#include "rt_cache.h"
#include "rt_lclogwrp.h"
#include "rt_shm.h"
#include "vexel.h"

namespace bench {

namespace {

constexpr uint32_t kBusyEndpoints = 16;

// Pages of its own. Code that ran for the first time is resident too, but shared and not the
// cache's; the library's size is printed beside.
long resident_kb() {
    std::ifstream status{"/proc/self/status"};
    std::string word;
    long kb = 0;
    while (status >> word && word != "RssAnon:") {
    }
    must(static_cast<bool>(status >> kb), "RssAnon in /proc/self/status");
    return kb;
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

constexpr std::size_t kStackBytes = 256 * 1024;
constexpr unsigned char kPaint = 0xA5;

// Bytes of stack that an operation reaches down to, on a thread whose stack was painted. What the
// thread's own start takes is in the figure.
std::size_t stack_of(Operation operation) {
    auto* stack = static_cast<unsigned char*>(
        mmap(nullptr, kStackBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    must(stack != MAP_FAILED, "mmap");
    std::memset(stack, kPaint, kStackBytes);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstack(&attributes, stack, kStackBytes);
    pthread_t thread{};
    const auto body = [](void* argument) -> void* {
        (*static_cast<Operation*>(argument))();
        return nullptr;
    };
    must(pthread_create(&thread, &attributes, body, &operation) == 0, "pthread_create");
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    const auto untouched = static_cast<std::size_t>(
        std::find_if(stack, stack + kStackBytes, [](unsigned char b) { return b != kPaint; }) -
        stack);
    munmap(stack, kStackBytes);
    return kStackBytes - untouched;
}

// The deepest calls: the one that keeps all section images on its stack, the one that reads them
// back, and those with the longest texts.
std::size_t deepest_stack() {
    have_inventory(16, 255);
    log_file(true);
    const char* arguments[] = {"one", "two"};
    const std::size_t depths[] = {
        stack_of(update_inventory),
        stack_of(RTSHM_DumpSharedMem),
        stack_of([] { rtcache_CopyCachedEvent(120, RT_OBJ_PHYSICAL_DISK, 3, 7, nullptr); }),
        stack_of([&] { rt_JWLOGCMNSubmitEvent(2, "PDR1", L"RAID.Slot.3-1", arguments, 2); }),
    };
    log_file(false);
    return *std::max_element(std::begin(depths), std::end(depths));
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
    std::printf("{\"init_kb\": %ld, \"busy_kb\": %ld, \"drained_kb\": %ld, \"stack_kb\": %.1f}\n",
                after_init - before, busy - before, drained - before,
                static_cast<double>(deepest_stack()) / 1024);
    return 0;
}

}  // namespace bench
