// The runtime cache: recording and draining events, finding an endpoint.
#include <cstdlib>
#include <cstring>
#include <unordered_map>

#include "bench/bench_support.h"
#include "rt_cache.h"
#include "rt_cache/rt_cache_bitmap.h"
#include "vexel.h"

namespace bench {

namespace {

constexpr uint8_t kEndpoints = 100;

void start_cache() {
    use_world("endpoints", [] {
        must(rtcache_Init() == 0, "rtcache_Init");
        for (uint32_t eid = 1; eid <= kEndpoints; ++eid) {
            rtcache_UpdateCachedObject(RTCACHE_REGISTER, eid, RTCACHE_TYPE_KRON, 0);
        }
        must(GetIndexFromEID(kEndpoints) == kEndpoints - 1, "endpoints registered");
    });
}

// A row as a busy endpoint leaves it: scattered disks (sparse) or most of them (dense).
void fill_bitmap(bool dense) {
    start_cache();
    uint8_t* bitmap = cache_Events_PD_ChObj[0].bitmap;
    std::memset(bitmap, dense ? 0xA5 : 0, RTCACHE_DISK_BITMAP_BYTES);
    for (unsigned k = 0; !dense && k < 256; k += 50) {
        bitmap[k] = 1;
    }
}

void record() {
    must(rtcache_CopyCachedEvent(1, RT_OBJ_VIRTUAL_DISK, 1, 7, nullptr) == 0, "record");
}

void drain() {
    RtCacheEventRow* events = nullptr;
    RtCacheDiskChangeRow* disks = nullptr;
    must(rtcache_GetCachedEvents(1, &events, &disks) == 0, "drain");
    vexel_free(events);
    vexel_free(disks);
}

void drain_floor() {
    static RtCacheEventRow events;
    static RtCacheDiskChangeRow disks;
    void* first = std::malloc(sizeof(events));
    void* second = std::malloc(sizeof(disks));
    std::memcpy(first, &events, sizeof(events));
    std::memset(&events, 0, sizeof(events));
    std::memcpy(second, &disks, sizeof(disks));
    std::memset(&disks, 0, sizeof(disks));
    keep(first);
    keep(second);
    barrier();
    std::free(first);
    std::free(second);
}

uint8_t row_of_eid[256];
std::unordered_map<unsigned, unsigned> row_map;

void register_lookup(const char* what, uint32_t eid) {
    const std::string path = std::string{"endpoint_lookup_"} + what;
    add(
        path + "/floor", [] {},
        [eid] {
            uint32_t id = eid;
            keep(id);
            keep(row_of_eid[id]);
        });
    add(path + "/lib", start_cache, [eid] {
        uint32_t id = eid;
        keep(id);
        keep(GetIndexFromEID(id));
    });
    add(
        path + "/peer_unordered_map",
        [] {
            for (unsigned eid_key = 1; eid_key <= kEndpoints; ++eid_key) {
                row_map[eid_key] = eid_key - 1;
            }
        },
        [eid] {
            uint32_t id = eid;
            keep(id);
            keep(row_map.find(id)->second);
        });
}

}  // namespace

void register_cache_cases() {
    add_logged("record_list_event", start_cache, record);
    for (const bool dense : {false, true}) {
        const std::string path = dense ? "bitmap_text_dense" : "bitmap_text_sparse";
        add(
            path + "/floor", [] {},
            [] {
                static char source[768], target[769];
                keep(source);
                std::memcpy(target, source, sizeof(source));
                keep(target);
                barrier();
            });
        add(
            path + "/lib", [dense] { fill_bitmap(dense); },
            [] {
                const vexutils::BitmapText text{cache_Events_PD_ChObj[0].bitmap};
                keep(text.get());
                barrier();
            });
    }
    add_owing_lines("drain_endpoint", start_cache, drain, drain_floor);
    register_lookup("first", 1);
    register_lookup("middle", kEndpoints / 2);
    register_lookup("last", kEndpoints);
}

}  // namespace bench
