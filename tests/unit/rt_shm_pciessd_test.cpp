#include "rt_shm.h"
#include "tests/support/platform_test.h"

namespace {

class PcieSsdStatus : public PlatformTest {
  protected:
    Bytes& region = platform.region(20);
};

TEST_F(PcieSsdStatus, StatusIsWrittenBeforeTheChangeCounter) {
    Bytes expected = region;
    EXPECT_EQ(updatePciessdDriveStatusToShm(0x0102, 31), 0u);
    expected[268] = 2;
    expected[269] = 1;
    expected[10] = 1;
    EXPECT_EQ(region, expected);
    platform.clear_writes();
    std::fill_n(expected.begin() + 142, 128, uint8_t{7});
    expected[10] = 2;
    EXPECT_EQ(updatePciessdiBCDDataToShm(Bytes(128, 7).data()), 0u);
    EXPECT_EQ(region, expected);
    EXPECT_EQ(platform.writes().back().offset, 10);
    EXPECT_EQ(updatePciessdDriveStatusToShm(0x0102, 32), 2u);
    EXPECT_EQ(updatePciessdiBCDDataToShm(nullptr), 2u);
}

TEST_F(PcieSsdStatus, AReadTakesAnySlotThatLiesInTheRegion) {
    uint16_t status = 0xEEEE;
    region[144 + 4 * 31] = 2;
    EXPECT_EQ(RTSHM_readPciessdDriveStatusFromShm(&status, -37), 3u) << "before the region";
    EXPECT_EQ(RTSHM_readPciessdDriveStatusFromShm(nullptr, -37), 0u) << "nothing is read";
    EXPECT_EQ(RTSHM_readPciessdDriveStatusFromShm(&status, 0x10000 + 31), 0u) << "16 bits";
    EXPECT_EQ(status, 2);
}

TEST_F(PcieSsdStatus, LowestSlotOfABay) {
    uint8_t base = 0xEE;
    region[14 + 4 * 30] = region[14 + 4 * 31] = 4;
    EXPECT_EQ(RTSHM_GetPCIeSSDGlobalSlotNumberBase(4, &base), 0u);
    EXPECT_EQ(base, 30);
    EXPECT_EQ(RTSHM_GetPCIeSSDGlobalSlotNumberBase(1, &base), 3u);
    EXPECT_EQ(RTSHM_GetPCIeSSDGlobalSlotNumberBase(5, &base), 2u);
    EXPECT_EQ(RTSHM_GetPCIeSSDGlobalSlotNumberBase(1, nullptr), 2u);
}

TEST_F(PcieSsdStatus, PresenceCounterIsComparedWithTheLastOneSeen) {
    uint8_t changed = 0xEE;
    for (const auto& [counter, expected] : {std::pair{200, 1}, {200, 0}, {0, 1}}) {
        region[6] = static_cast<uint8_t>(counter);
        EXPECT_EQ(RTSHM_ReadPCIeSSDPresenceSharedMem(&changed), 0u);
        EXPECT_EQ(changed, expected);
    }
    EXPECT_EQ(RTSHM_ReadPCIeSSDPresenceSharedMem(nullptr), 2u);
}

}  // namespace
