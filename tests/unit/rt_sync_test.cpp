#include "rt_sync.h"

#include <ctime>

#include "tests/support/platform_test.h"

namespace {

class Sync : public PlatformTest {
  protected:
    void TearDown() override {
        EXPECT_EQ(RTSync_Destroy(), 0u);
        RTSync_KronStateDestroy();
        EXPECT_EQ(rtraid_KRONInventoryThreadHandlerMutexDestroy(), 0u);
    }

    static bool status_is(const RTSyncGlobalStatus& expected) {
        return std::memcmp(&grtsync_Status, &expected, sizeof(expected)) == 0;
    }
};

constexpr RTSyncGlobalStatus kBefore{0x1111, 0x2222, 3, 4, 5, 6};
constexpr RTSyncGlobalStatus kGiven{0xAAAA, 0xBBBB, 13, 14, 15, 16};

TEST_F(Sync, EachFunctionWritesItsOwnFieldsOfTheStatus) {
    ASSERT_EQ(RTSync_Init(), 0u);
    for (const auto& [what, call, after] : Rows<const char*, uint32_t (*)(), RTSyncGlobalStatus>{
             {"set",
              [] { return RTSync_SetGlobalStatus(kGiven); },
              {0xAAAA, 0x2222, 13, 14, 15, 16}},
             {"poll", [] { return RTSync_SetGlobalPoll(kGiven); }, {0x1111, 0x2222, 3, 14, 15, 16}},
             {"reset", RTSync_Reset, kBefore},
             {"destroy", RTSync_Destroy, kBefore},
             {"init", RTSync_Init, {0, 0x2222, 0, 4, 5, 6}}}) {
        grtsync_Status = kBefore;
        EXPECT_EQ(call(), 0u);
        EXPECT_TRUE(status_is(after));
    }
    const auto now = static_cast<uint32_t>(std::time(nullptr));
    EXPECT_EQ(RTSync_updateGlobalPoll(kGiven), 0u);
    EXPECT_LE(grtsync_Status.pollTimeA - now, 1u);
    EXPECT_EQ(grtsync_Status.pollTimeB + 0u, grtsync_Status.pollTimeA);
    RTSyncGlobalStatus copy = kGiven;
    EXPECT_EQ(RTSync_GetGlobalStatus(&copy), 0u);
    EXPECT_TRUE(status_is(copy));
    EXPECT_EQ(RTSync_GetGlobalStatus(nullptr), 2u);
}

TEST_F(Sync, KeepsOneEntryPerControllerAndDropsTheThirteenth) {
    ASSERT_EQ(RTSync_KronStateInit(), 0u);
    EXPECT_EQ(RTSync_SetKronStatus(RTSYNC_EID_FREE, 0x33), 0u);
    uint8_t status = 0xEE;
    EXPECT_EQ(RTSync_GetKronStatus(RTSYNC_EID_FREE, &status), RTSYNC_EID_UNKNOWN);
    for (uint8_t eid = 1; eid <= RTSYNC_KRON_ENTRIES + 1; ++eid) {
        EXPECT_EQ(RTSync_SetKronStatus(eid, 0x10), 0u);
    }
    EXPECT_EQ(RTSync_SetKronStatus(2, 0x22), 0u);
    for (const auto& [what, eid, result, row_status] :
         Rows<const char*, uint8_t, uint32_t, uint8_t>{
             {"a second report replaces the first", 2, 0, 0x22},
             {"last entry", 12, 0, 0x10},
             {"table full, dropped in silence", 13, RTSYNC_EID_UNKNOWN, 0}}) {
        EXPECT_EQ(RTSync_GetKronStatus(eid, &status), result);
        EXPECT_EQ(status, row_status);
    }
    EXPECT_EQ(RTSync_GetKronStatus(1, nullptr), 2u);
}

TEST_F(Sync, TheReinventoryFlagIsZeroOrOne) {
    ASSERT_EQ(rtraid_KRONInventoryThreadHandlerMutexInit(), 0u);
    uint8_t flag = 0xEE;
    EXPECT_EQ(rtraid_SetKRONInventoryThreadFlag(1), 0u);
    EXPECT_EQ(rtraid_SetKRONInventoryThreadFlag(2), 0u);
    EXPECT_EQ(rtraid_GetKRONInventoryThreadFlag(&flag), 0u);
    EXPECT_EQ(flag, 1);
    EXPECT_EQ(rtraid_GetKRONInventoryThreadFlag(nullptr), 2u);
}

}  // namespace
