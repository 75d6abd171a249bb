// Base of the runtime cache's fixtures: a fresh cache with default limits in each test.
#ifndef TESTS_SUPPORT_CACHE_TEST_H
#define TESTS_SUPPORT_CACHE_TEST_H

#include <string>
#include <vector>

#include "rt_cache.h"
#include "tests/support/platform_test.h"

// Holds mutexRtCache.
class CacheLock {
  public:
    CacheLock() { EXPECT_EQ(rtcache_GetLock(), 0u); }
    ~CacheLock() { SMMutexUnLock(mutexRtCache); }
    CacheLock(const CacheLock&) = delete;
    CacheLock& operator=(const CacheLock&) = delete;
};

class CacheTest : public PlatformTest {
  protected:
    using Lines = std::vector<std::string>;

    void SetUp() override {
        ASSERT_EQ(rtcache_Init(), 0u);
        platform.clear_lines();
    }

    void TearDown() override {
        max_adapters = 108;
        max_physicaldevices = 2048;
        max_logicaldevices = 254;
        max_pciessd_backplanes = 5;
        max_pciessd_extndrs = 16;
        platform.no_faults();
        rtcache_Destroy();
    }

    static uint32_t add_endpoint(uint32_t eid, uint32_t type = RTCACHE_TYPE_KRON) {
        return rtcache_UpdateCachedObject(RTCACHE_REGISTER, eid, type, 0);
    }

    // What the cache logged since the last call, each line as "level message".
    Lines logged_lines() {
        Lines result;
        for (const fake::LogLine& line : platform.lines()) {
            if (line.text.starts_with("rt_cache")) {
                result.push_back(std::to_string(line.level) + " " + line.message);
            }
        }
        platform.clear_lines();
        return result;
    }
};

#endif  // TESTS_SUPPORT_CACHE_TEST_H
