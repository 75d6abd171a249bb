#include "tests/support/backplane_test.h"

namespace {

class SlotLookups : public BackplaneTest {
  protected:
    uint8_t bay = 0xEE, slot = 0xEE;
};

TEST_F(SlotLookups, AGlobalSlotIsReadFromItsBytesOfTheRegion) {
    std::iota(platform.region(20).begin(), platform.region(20).end(), uint8_t{0});
    EXPECT_EQ(RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum(&bay, 31), 0u);
    EXPECT_EQ(RTSHM_readSSDSlotNumFromGblSlotNum(&slot, 0x10000 + 31), 0u) << "16 bits count";
    EXPECT_EQ(bay, 14 + 4 * 31);
    EXPECT_EQ(slot, 15 + 4 * 31);
    EXPECT_EQ(RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum(&bay, 78), 3u) << "behind the region";
    EXPECT_EQ(RTSHM_readSSDSlotNumFromGblSlotNum(&slot, 78), 3u);
    EXPECT_EQ(RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum(nullptr, 78), 0u) << "nothing is read";
    EXPECT_EQ(RTSHM_readSSDSlotNumFromGblSlotNum(nullptr, 78), 0u);
}

TEST_F(SlotLookups, TheLastNVMeBayThatHasTheSlotIsGiven) {
    EXPECT_EQ(RTSHM_readBayIDInfoFromGblSlotNum(&bay, 49), 3u);
    for (uint8_t b = 1; b <= 3; ++b) {
        sNVMeSSDBPInfo.slots[50 * b + 49].bayTechnology = b == 3 ? 3 : 4;
        sNVMeSSDBPInfo.slots[50 * b + 49].bayId = b;
    }
    EXPECT_EQ(RTSHM_readBayIDInfoFromGblSlotNum(&bay, 49), 0u);
    EXPECT_EQ(bay, 2);
    EXPECT_EQ(RTSHM_readBayIDInfoFromGblSlotNum(&bay, 50), 3u);
    EXPECT_EQ(RTSHM_readBayIDInfoFromGblSlotNum(nullptr, 49), 3u);
}

TEST_F(SlotLookups, AnEndpointIsFoundAtItsLastPosition) {
    sNVMeSSDBPInfo.slots[6].i2cEid = sNVMeSSDBPInfo.slots[203].i2cEid = 20;
    sNVMeSSDBPVDMInfo.slots[7].vdmEid = sNVMeSSDBPVDMInfo.slots[149].vdmEid = 30;
    sNVMeSSDBPVDMInfo.slots[249].vdmEid = 255;
    const auto by_eid = RTSHM_readBayIDAndSlotNoFromEID;
    const auto by_vdm_eid = RTSHM_readBayIDAndSlotNoFromVDMEID;
    for (const auto& [what, find, eid, result, row_bay, row_slot] :
         Rows<const char*, uint32_t (*)(uint8_t*, uint8_t*, int), int, uint32_t, int, int>{
             {"twice in the table", by_eid, 20, 0, 4, 3},
             {"not of the NVMe type", by_eid, 21, 0, 0xEE, 0xEE},
             {"not registered", by_eid, 22, 1, 0xEE, 0xEE},
             {"VDM, twice in the table", by_vdm_eid, 30, 0, 2, 49},
             {"VDM, the free marker", by_vdm_eid, 255, 3, 0xEE, 0xEE},
             {"VDM, no EID", by_vdm_eid, 286, 3, 0xEE, 0xEE}}) {
        bay = slot = 0xEE;
        EXPECT_EQ(find(&bay, &slot, eid), result);
        EXPECT_EQ(find(nullptr, &slot, eid) + find(&bay, nullptr, eid), 6u);
        EXPECT_EQ(bay, row_bay);
        EXPECT_EQ(slot, row_slot);
    }
    sNVMeSSDBPInfo.slots[149].i2cEid = 22;
    EXPECT_EQ(rtshm_getI2CNVMeSSDEIDfromVDMEID(30), 22);
    EXPECT_EQ(rtshm_getI2CNVMeSSDEIDfromVDMEID(29), 255);
}

}  // namespace
