#include "rt_shm.h"
#include "tests/support/platform_test.h"

namespace {

class PcieSsdStatus : public PlatformTest {
  protected:
    Bytes& region = platform.region(20);

    void put_position(int slot, uint8_t bay, uint8_t slot_in_bay) {
        region[14 + 4 * static_cast<size_t>(slot)] = bay;
        region[15 + 4 * static_cast<size_t>(slot)] = slot_in_bay;
    }
};

TEST_F(PcieSsdStatus, StatusOfASlotAndChangeCounter) {
    for (const auto& [row_slot, result, offset] :
         Rows<uint8_t, uint32_t, size_t>{{0, 0, 144}, {31, 0, 268}, {32, 2, 0}, {255, 2, 0}}) {
        std::ranges::fill(region, 0xFF);
        Bytes expected = region;
        uint16_t status = 0xEEEE;
        EXPECT_EQ(updatePciessdDriveStatusToShm(0x0102, row_slot), result);
        if (result == 0) {
            expected[offset] = 2;
            expected[offset + 1] = 1;
            expected[10] = 0;  // wraps
            EXPECT_EQ(RTSHM_readPciessdDriveStatusFromShm(&status, row_slot), 0u);
            EXPECT_EQ(status, 0x0102);
        }
        EXPECT_EQ(region, expected);
    }
    uint16_t status = 0xEEEE;
    EXPECT_EQ(RTSHM_readPciessdDriveStatusFromShm(&status, -37), 3u) << "before the region";
    EXPECT_EQ(status, 0xEEEE);
    EXPECT_EQ(RTSHM_readPciessdDriveStatusFromShm(&status, 0x10000 + 31), 0u) << "16 bits";
    EXPECT_TRUE(logged(4, " Entry u8Slot:31 "));
    const int reads = platform.calls(Place::ShmRead);
    EXPECT_EQ(RTSHM_readPciessdDriveStatusFromShm(nullptr, 0), 0u);
    EXPECT_EQ(platform.calls(Place::ShmRead), reads) << "no output, nothing read";
}

TEST_F(PcieSsdStatus, StatusBlockIsOneWrite) {
    Bytes block(128);
    std::iota(block.begin(), block.end(), uint8_t{1});
    std::ranges::fill(region, 0x10);
    Bytes expected = region;
    std::ranges::copy(block, expected.begin() + 142);
    expected[10] = 0x11;
    EXPECT_EQ(updatePciessdiBCDDataToShm(block.data()), 0u);
    EXPECT_EQ(region, expected);
    ASSERT_EQ(platform.writes().size(), 2u);
    EXPECT_EQ(platform.writes()[1].offset, 10) << "the counter tells of what is there already";
    EXPECT_EQ(updatePciessdiBCDDataToShm(nullptr), 2u);
}

TEST_F(PcieSsdStatus, LowestSlotOfABay) {
    std::ranges::fill(region, 0xFF);
    put_position(31, 4, 0);
    put_position(8, 1, 3);
    put_position(9, 1, 0);
    for (const auto& [row_bay, result, row_base] : Rows<uint8_t, uint32_t, uint8_t>{
             {1, 0, 8}, {4, 0, 31}, {0, 3, 0xEE}, {5, 2, 0xEE}, {0xFF, 2, 0xEE}}) {
        uint8_t base = 0xEE;
        EXPECT_EQ(RTSHM_GetPCIeSSDGlobalSlotNumberBase(row_bay, &base), result);
        EXPECT_EQ(base, row_base);
    }
    EXPECT_EQ(RTSHM_GetPCIeSSDGlobalSlotNumberBase(1, nullptr), 2u);
}

TEST_F(PcieSsdStatus, PresenceCounterIsComparedWithTheLastOneSeen) {
    uint8_t changed = 0xEE;
    region[6] = 200;
    EXPECT_EQ(RTSHM_ReadPCIeSSDPresenceSharedMem(&changed), 0u);  // whatever was before
    EXPECT_EQ(RTSHM_ReadPCIeSSDPresenceSharedMem(&changed), 0u);
    EXPECT_EQ(changed, 0);
    region[6] = 201;
    platform.fail(Place::ShmRead);
    EXPECT_EQ(RTSHM_ReadPCIeSSDPresenceSharedMem(&changed), 3u);
    EXPECT_EQ(changed, 0);
    EXPECT_EQ(RTSHM_ReadPCIeSSDPresenceSharedMem(&changed), 0u);
    EXPECT_EQ(changed, 1) << "a failed read has seen nothing";
    EXPECT_EQ(RTSHM_ReadPCIeSSDPresenceSharedMem(nullptr), 2u);
}

}  // namespace
