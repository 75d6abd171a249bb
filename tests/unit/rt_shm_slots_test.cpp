#include "tests/support/backplane_test.h"

namespace {

class SlotLookups : public BackplaneTest {
  protected:
    uint8_t bay = 0xEE, slot = 0xEE;
};

TEST_F(SlotLookups, AGlobalSlotIsReadFromItsBytesOfTheRegion) {
    Bytes& region = platform.region(20);
    for (size_t i = 0; i < region.size(); ++i) {
        region[i] = static_cast<uint8_t>(i % 251);
    }
    // slot_in_bay: as the region's bytes at 14 + 4 * slot and behind it
    for (const auto& [what, row_slot, result, row_bay, slot_in_bay] :
         Rows<const char*, int, uint32_t, int, int>{
             {"first", 0, 0, 14, 15},
             {"last", 31, 0, 138, 139},
             {"only 16 bits count", 0x10001, 0, 18, 19},
             {"the last bytes of the region", 77, 0, 322 % 251, 323 % 251},
             {"behind the region", 78, 3, 0xEE, 0xEE},
             {"negative, still in the region", -3, 0, 2, 3},
             {"negative, before the region", 0xFFFC, 3, 0xEE, 0xEE}}) {
        bay = slot = 0xEE;
        EXPECT_EQ(RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum(&bay, row_slot), result);
        EXPECT_EQ(RTSHM_readSSDSlotNumFromGblSlotNum(&slot, row_slot), result);
        EXPECT_EQ(bay, row_bay);
        EXPECT_EQ(slot, slot_in_bay);
    }
    EXPECT_EQ(platform.count_logged(2, "error, SHM Read 6"), 4);
    EXPECT_TRUE(logged(4, " After Read offset = 139  u8SlotNumInBay=139 "));
    const int reads = platform.calls(Place::ShmRead);
    EXPECT_EQ(RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum(nullptr, 0), 0u);
    EXPECT_EQ(RTSHM_readSSDSlotNumFromGblSlotNum(nullptr, 0), 0u);
    EXPECT_EQ(platform.calls(Place::ShmRead), reads);
}

TEST_F(SlotLookups, TheLastNVMeBayThatHasTheSlotIsGiven) {
    EXPECT_EQ(RTSHM_readBayIDInfoFromGblSlotNum(&bay, 49), 3u);
    EXPECT_EQ(RTSHM_readBayIDInfoFromGblSlotNum(&bay, 50), 3u);
    EXPECT_EQ(RTSHM_readBayIDInfoFromGblSlotNum(nullptr, 49), 3u);
    EXPECT_EQ(bay, 0xEE);
    platform.clear_lines();
    for (uint8_t b = 1; b <= 3; ++b) {
        sNVMeSSDBPInfo.slots[50 * b + 49].bayTechnology = b == 3 ? 3 : 4;
        sNVMeSSDBPInfo.slots[50 * b + 49].bayId = b;
    }
    EXPECT_EQ(RTSHM_readBayIDInfoFromGblSlotNum(&bay, 49), 0u);
    EXPECT_EQ(bay, 2);
    EXPECT_EQ(told(2),
              "error!!, Not a NVMe Backplane 0\nerror!!, Not a NVMe Backplane 3\n"
              "error!!, Not a NVMe Backplane 4\n");
}

TEST_F(SlotLookups, AnEndpointIsFoundAtItsLastPosition) {
    for (const unsigned index : {7u, 149u, 203u}) {  // bay 0 slot 7, bay 2 slot 49, bay 4 slot 3
        sNVMeSSDBPInfo.slots[index].i2cEid = index == 203 ? 20 : 22;
        sNVMeSSDBPVDMInfo.slots[index].vdmEid = index == 203 ? 31 : 30;
    }
    sNVMeSSDBPInfo.slots[6].i2cEid = 20;
    sNVMeSSDBPVDMInfo.slots[249].vdmEid = 255;
    const auto by_eid = RTSHM_readBayIDAndSlotNoFromEID;
    const auto by_vdm_eid = RTSHM_readBayIDAndSlotNoFromVDMEID;
    for (const auto& [what, find, eid, result, row_bay, row_slot] :
         Rows<const char*, uint32_t (*)(uint8_t*, uint8_t*, int), int, uint32_t, int, int>{
             {"twice in the table", by_eid, 20, 0, 4, 3},
             {"not of the NVMe type", by_eid, 21, 0, 0xEE, 0xEE},
             {"not registered", by_eid, 22, 1, 0xEE, 0xEE},
             {"no EID", by_eid, 276, 1, 0xEE, 0xEE},
             {"VDM, twice in the table", by_vdm_eid, 30, 0, 2, 49},
             {"VDM, of no type", by_vdm_eid, 31, 0, 4, 3},
             {"VDM, not in the table", by_vdm_eid, 20, 3, 0xEE, 0xEE},
             {"VDM, the free marker", by_vdm_eid, 255, 3, 0xEE, 0xEE},
             {"VDM, no EID", by_vdm_eid, 286, 3, 0xEE, 0xEE}}) {
        bay = slot = 0xEE;
        EXPECT_EQ(find(&bay, &slot, eid), result);
        EXPECT_EQ(find(nullptr, &slot, eid), 3u);
        EXPECT_EQ(find(&bay, nullptr, eid), 3u);
        EXPECT_EQ(bay, row_bay);
        EXPECT_EQ(slot, row_slot);
    }
    EXPECT_EQ(platform.count_logged(2, "Failed while getting Type"), 2);
    EXPECT_TRUE(logged(4, "--> Exits u8BayId:238, u8SSDSlotNo:238"));
    sNVMeSSDBPInfo.slots[6].i2cEid = sNVMeSSDBPInfo.slots[203].i2cEid = 0;
    EXPECT_EQ(RTSHM_readBayIDAndSlotNoFromEID(&bay, &slot, 20), 3u);
    EXPECT_TRUE(logged(2, "error, SHM Write 20"));
    EXPECT_EQ(rtshm_getI2CNVMeSSDEIDfromVDMEID(30), 22);
    EXPECT_EQ(rtshm_getI2CNVMeSSDEIDfromVDMEID(29), 255);
}

}  // namespace
