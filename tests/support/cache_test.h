// Base of the runtime cache's fixtures: a fresh cache with default limits in each test.
#ifndef TESTS_SUPPORT_CACHE_TEST_H
#define TESTS_SUPPORT_CACHE_TEST_H

#include "rt_cache.h"
#include "rt_cache/rt_cache_nodes.h"
#include "tests/support/objects.h"
#include "tests/support/platform_test.h"

// What a drain hands over, with the event data.
struct Drained {
    explicit Drained(uint32_t eid) : result(rtcache_GetCachedEvents(eid, &events, &disks)) {}
    ~Drained() {
        if (result == 0) {
            vexutils::free_held_data(*events);
            vexutils::free_held_data(*disks);
        }
        vexel_free(events);
        vexel_free(disks);
    }
    Drained(const Drained&) = delete;

    // Events as "object type.event type.key ", then changed disks as "+key ".
    std::string text() const {
        std::string all;
        for (uint32_t i = 0; i < events->eventCount; ++i) {
            const RtCacheEvent& event = events->events[i];
            all += std::to_string(event.objType) + "." + std::to_string(event.eventType) + "." +
                   std::to_string(event.objKey) + " ";
        }
        for (size_t key = 0; key < 8 * std::size(disks->bitmap); ++key) {
            const bool set = disks->bitmap[key / 8] >> key % 8 & 1;
            all += set ? "+" + std::to_string(key) + " " : "";
        }
        return all;
    }

    RtCacheEventRow* events = nullptr;
    RtCacheDiskChangeRow* disks = nullptr;
    uint32_t result;
};

class CacheTest : public PlatformTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(rtcache_Init(), 0u);
        platform.clear_lines();
    }

    void TearDown() override {
        max_adapters = 108;
        max_physicaldevices = 2048;
        max_logicaldevices = 254;
        max_pciessd_backplanes = 5;
        platform.no_faults();
        rtcache_Destroy();
    }

    static uint32_t add_endpoint(uint32_t eid, uint32_t type = RTCACHE_TYPE_KRON) {
        return rtcache_UpdateCachedObject(RTCACHE_REGISTER, eid, type, 0);
    }
};

#endif  // TESTS_SUPPORT_CACHE_TEST_H
