#include <regex>

#include "tests/support/cache_test.h"

namespace {

class CacheTeardown : public CacheTest {};

TEST_F(CacheTeardown, FreesInOrderAndPciessdControllersLast) {
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
    cache_CMDsCount[254] = vexel_alloc(4);
    rtcache_CopyCachedEvent(8, 0, 1, 1, make_event_data("CTL1"));
    rtcache_CopyCachedEvent(8, RT_OBJ_PHYSICAL_DISK, 3, 5, make_event_data("PDR3"));
    gRTCache_EventCount = 7;
    max_adapters = 50;  // the teardown walks what there is
    platform.clear_lines();
    rtcache_FreeMem();
    // Addresses and source lines differ.
    EXPECT_EQ(std::regex_replace(lines_of("rtcache_FreeMem"),
                                 std::regex{":0x\\w+|(FreeingMemory EID=\\d+) \\d+"}, "$1"),
              "5 FreeingMemory EID=8|4 Adapter/battery EID=8|"
              "5 FreeingMemory EID=9|4 It is a PCIeSSD EID, continue|"
              "5 FreeingMemory EID=11|1 <-- error get Storage EID Failrtcache_FreeMem|"
              "4 Adapter/battery EID=11|4 EID=8 physical device=7|4 EID=8 logical device=3|"
              "4 EID=255 physical device=2047|"
              "4 Freeing PCIeSSD extenders|4 Freeing PCIeSSD BPs|"
              "4 Freeing Enclosure FQDD|4 Freeing Enclosure NAME|"
              "4 Freeing cache_CMDsCount at u32Iter:254|");
    EXPECT_EQ(gRTCache_EventCount, 0u);
    EXPECT_EQ(cache_PDs, nullptr);
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

// Thousands of random objects, events and endpoints, ended in whatever state they are in.
TEST_F(CacheTeardown, RandomCachesLeaveNothing) {
    std::mt19937 random{20};
    const auto below = [&](uint32_t bound) { return static_cast<uint32_t>(random() % bound); };
    const auto fill = [](auto*& slot, auto make_object) {
        if (slot == nullptr) {
            slot = make_object();
        }
    };
    platform.record_lines(false);
    for (const auto end : {+[] { rtcache_FreeMem(); }, +[] { rtcache_Destroy(); }, +[] {}}) {
        for (int step = 0; step < 3000; ++step) {
            const uint32_t eid = below(60), key = below(2048), row = below(108);
            if (below(10) == 0) {
                add_endpoint(eid, below(20));
                rtcache_UpdateCachedObject(0, below(120), 0, 0);
            }
            fill(cache_PDs[row][key], [&] { return make_disk(below(2) ? 3 : RT_OBJ_BACKPLANE); });
            fill(cache_VDs[row][key % 254], make_virtual_disk);
            fill(cache_AllEIDs[eid], [&] {  // a third of the nodes under several EIDs
                return below(3) ? make_controller(3 * below(2)) : cache_AllEIDs[below(60)];
            });
            if (const uint32_t at = GetIndexFromEID(eid); at != 255) {
                rtcache_CopyCachedEvent(eid, 0, 1, key, make_event_data("CTL1"));
                fill(cache_Events_PD_ChObj[at].eventData[key],
                     [] { return make_event_data("PDR3"); });
            }
        }
        for (int i = 0; i < 20; ++i) {
            rtcache_FreeObjectLevel(below(60), 2 + below(3));
            const Drained drained{below(60)};
        }
        end();
        ASSERT_EQ(rtcache_Init(), 0u);
    }
}

}  // namespace
