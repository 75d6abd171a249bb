// Base of the fixtures around the NVMe tables: empty tables, no session, a snapshot to fill by byte
// position; a cache with an NVMe drive (EID 20) and an add-in card (EID 21) as endpoints.
#ifndef TESTS_SUPPORT_BACKPLANE_TEST_H
#define TESTS_SUPPORT_BACKPLANE_TEST_H

#include "rt_cache.h"
#include "rt_shm.h"
#include "rt_shm/nvme_table.h"
#include "rt_sync.h"
#include "tests/support/platform_test.h"

class BackplaneTest : public PlatformTest {
  protected:
    void SetUp() override {
        EXPECT_EQ(RTSync_Init(), 0u);
        clear_tables();
        EXPECT_EQ(rtcache_Init(), 0u);
        EXPECT_EQ(rtcache_UpdateCachedObject(RTCACHE_REGISTER, 20, RTCACHE_TYPE_NVME, 0), 0u);
        EXPECT_EQ(rtcache_UpdateCachedObject(RTCACHE_REGISTER, 21, RTCACHE_TYPE_PCIESSD, 0), 0u);
        platform.clear_lines();
    }
    void TearDown() override {
        rtshm_BpApiExit();
        rtshm_BpApiKronExit();
        RTSync_Destroy();
        rtcache_Destroy();
        g_bpInfo = nullptr;
        clear_tables();
    }
    static void clear_tables() {
        std::memset(&sNVMeSSDBPInfo, 0, sizeof(sNVMeSSDBPInfo));
        std::memset(&sNVMeSSDBPVDMInfo, 0, sizeof(sNVMeSSDBPVDMInfo));
        std::memset(vexutils::latest_drive_states, 0, sizeof(vexutils::latest_drive_states));
        std::memset(vexutils::acted_drive_states, 0, sizeof(vexutils::acted_drive_states));
    }

    void put(size_t offset, const Bytes& bytes) {
        std::memcpy(reinterpret_cast<char*>(&platform.snapshot) + offset, bytes.data(),
                    bytes.size());
    }
    static Bytes table_bytes(size_t offset, size_t count) {
        const auto* table = reinterpret_cast<const uint8_t*>(&sNVMeSSDBPInfo);
        return {table + offset, table + offset + count};
    }
    static size_t slot_at(unsigned bay, unsigned slot) { return 84 + 16 * (50 * bay + slot); }
};

#endif  // TESTS_SUPPORT_BACKPLANE_TEST_H
