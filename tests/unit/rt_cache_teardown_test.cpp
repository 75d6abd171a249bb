#include "tests/support/cache_test.h"

namespace {

class CacheTeardown : public CacheTest {};

TEST_F(CacheTeardown, FreesEveryNodeOnce) {
    add_endpoint(8, RTCACHE_TYPE_KRON);
    add_endpoint(9, RTCACHE_TYPE_NVME);
    cache_AllEIDs[8] = make_controller();
    cache_AllEIDs[9] = make_controller(RT_NODE_PCIESSD_ADAPTER);
    cache_AllEIDs[11] = cache_AllEIDs[12] = make_controller();  // one node under two EIDs
    cache_PDs[0][7] = make_disk();
    cache_PDs[107][2047] = make_disk(RT_OBJ_ENCLOSURE);
    cache_VDs[0][3] = make_virtual_disk();
    cache_Extndrs[16] = make(ExtenderCardInfo{make_text(), make_text(), 0});
    // Its FQDD is its own, though it has no version.
    cache_Bkplanes[5] = make(BpStatusInfo{0, 0, 0, 0, 0, make_record(RT_OBJ_BACKPLANE, L"BP", 0)});
    cache_Bkplanes[4] = make(BpStatusInfo{});
    cache_CMDsCount[254] = vexel_alloc(4);
    rtcache_CopyCachedEvent(8, 0, 1, 1, make_event_data("CTL1"));
    rtcache_CopyCachedEvent(8, RT_OBJ_PHYSICAL_DISK, 3, 5, make_event_data("PDR3"));
    gRTCache_EventCount = 7;
    max_adapters = 50;  // the teardown walks what there is
    rtcache_FreeMem();
    EXPECT_EQ(gRTCache_EventCount, 0u);
    EXPECT_EQ(cache_PDs, nullptr);
}

TEST_F(CacheTeardown, WhatAFailedStartLeftIsFreed) {
    for (int n = 1; n <= 10; ++n) {
        platform.fail(Place::Allocation, n);
        const AllocationScope scope;
        EXPECT_EQ(rtcache_Init(), 3u);
        if (cache_PDs != nullptr) {
            cache_PDs[0][3] = make_disk();
        }
        if (cache_VDs != nullptr) {
            cache_VDs[0][3] = make_virtual_disk();
        }
        rtcache_FreeMem();
        EXPECT_EQ(cache_PDs, nullptr);
    }
}

TEST_F(CacheTeardown, ALevelOfAnEndpointIsFreedAlone) {
    for (const uint32_t eid : {8u, 9u}) {
        add_endpoint(eid);
        cache_AllEIDs[eid] = make_controller();
        cache_PDs[eid - 8][4] = make_disk();
        cache_VDs[eid - 8][4] = make_virtual_disk();
    }
    for (const auto& [level, eid, result] : Rows<uint32_t, uint32_t, uint32_t>{
             {3, 8, 0}, {4, 8, 0}, {2, 8, 0}, {3, 40, 1}, {2, 255, 2}, {1, 9, 2}, {5, 9, 2}}) {
        EXPECT_EQ(rtcache_FreeObjectLevel(eid, level), result);
    }
    EXPECT_FALSE(cache_AllEIDs[8] || cache_PDs[0][4] || cache_VDs[0][4]);
    EXPECT_TRUE(cache_AllEIDs[9] && cache_PDs[1][4] && cache_VDs[1][4]);
}

}  // namespace
