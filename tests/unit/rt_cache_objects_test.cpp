#include "tests/support/cache_test.h"

namespace {

class CachedObjects : public CacheTest {};

TEST_F(CachedObjects, EveryKeyTypeKeepsToItsBounds) {
    add_endpoint(8);
    add_endpoint(9);
    for (const auto& [key_type, bound] : Rows<uint32_t, unsigned>{
             {2, 255}, {3, 2048}, {4, 254}, {5, 6}, {6, 17}, {8, 255}, {0, 0}, {7, 0}}) {
        const auto beyond = static_cast<uint16_t>(bound);
        const auto last = static_cast<uint16_t>(bound - 1);
        int stored = 0;
        void* object = nullptr;
        const uint32_t result = bound == 0 ? 2 : 0;
        EXPECT_EQ(rtcache_SetCachedObject(key_type, 9, last, &stored), result);
        EXPECT_EQ(rtcache_GetCachedObject(key_type, 9, last, &object), result);
        EXPECT_EQ(object, result == 0 ? &stored : nullptr);
        EXPECT_EQ(rtcache_SetCachedObject(key_type, 9, beyond, &stored), 2u);
        EXPECT_EQ(rtcache_GetCachedObject(key_type, 9, beyond, &object), 2u);
        rtcache_SetCachedObject(key_type, 9, last, nullptr);
    }
    max_pciessd_backplanes = 3;  // narrows what can be fetched, not what can be stored
    void* object = &object;
    EXPECT_EQ(rtcache_SetCachedObject(5, 9, 4, nullptr), 0u);
    EXPECT_EQ(rtcache_GetCachedObject(5, 9, 4, &object), 2u);
    EXPECT_EQ(rtcache_GetCachedObject(5, 9, 3, &object), 0u);
    EXPECT_EQ(object, nullptr) << "an empty slot is a success";
    EXPECT_EQ(rtcache_GetCachedObject(3, 10, 0, &object), 1u) << "not registered";
    EXPECT_EQ(rtcache_GetCachedObject(2, 255, 0, &object), 2u) << "the free marker";
    EXPECT_EQ(rtcache_GetCachedObject(2, 9, 0, nullptr), 2u);
}

}  // namespace
