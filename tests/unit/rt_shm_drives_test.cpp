#include "tests/support/backplane_test.h"

namespace {

class TableQueries : public BackplaneTest {
  protected:
    uint8_t bay = 0xEE, slot = 0xEE;
};

// Every byte of the two entries differs, so that a query of the wrong byte or table shows.
TEST_F(TableQueries, EachReadsItsOwnByteAndRefusesPositionsOutsideTheTable) {
    sNVMeSSDBPInfo.slots[249] = {4, 49, {}, 2, 3, 5, 6, 7, 8, 9, 10, 48, 12};
    sNVMeSSDBPVDMInfo.slots[249] = {14, 15, {}, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25};
    sNVMeSSDBPInfo.slots[235] = sNVMeSSDBPInfo.slots[249];  // bay 4, slot 35: the last cabled one
    vexutils::acted_drive_states[249] = 0x4321;
    uint8_t byte = 0, *out = nullptr;
    uint16_t state = 0, *out_state = nullptr;
    using Query = std::function<uint32_t(uint8_t, uint8_t)>;
    for (const auto& [line, has_output, last_slot, query] : Rows<const char*, bool, uint8_t, Query>{
             {"DriveTech for EID:9 Bay:4 Slot:49, u8DriveTech:6", true, 49,
              [&](auto b, auto s) { return rtshm_getDriveTechFromBpInfo(out, b, s); }},
             {"BDFBus for EID:9 Bay:4 Slot:49, u8PCIeBus:12", true, 49,
              [&](auto b, auto s) { return rtshm_getBusNumFromBpInfo(out, b, s); }},
             {"DriveState for Slot:49, u6DriveState:65535 CurrentDriveState:17185", false, 49,
              [](auto b, auto s) { return rtshm_SetNVMeDriveState(b, s, 0xFFFF); }},
             {"DriveState for Slot:49, u6DriveState:65535", true, 49,
              [&](auto b, auto s) { return rtshm_getNVMeDriveState(out_state, b, s); }},
             {"--> u8BayID:4 u8Slot:49, u8EID:99 ", false, 49,
              [](auto b, auto s) { return rtshm_UpdateNVMeSSDSlotToEID(b, s, 99); }},
             {"--> u8BayID:4 u8Slot:49, u8I2CEID:99 ", true, 49,
              [&](auto b, auto s) { return rtshm_getI2CNVMeSSDEIDfromSlotAndBayId(b, s, out); }},
             {"--> u8BayID:4 u8Slot:49, u8EID:98 ", false, 49,
              [](auto b, auto s) { return rtshm_UpdateNVMeSSDSlotToVDMEID(b, s, 98); }},
             {"u8BayID:4 u8Slot:49, VDM-EID:98 ", true, 49,
              [&](auto b, auto s) { return rtshm_GetNVMeSSDvdmEIDfromSlotandBayID(b, s, out); }},
             {"Is drive at Bay 4 Slot 35 connected behind the KRON? 7", true, 35,
              [&](auto b, auto s) { return rtshm_IsDriveBehindKRONfromBPAPI(out, b, s); }}}) {
        EXPECT_TRUE(!has_output || query(4, last_slot) == 1) << "no output";
        out = &byte;
        out_state = &state;
        EXPECT_EQ(query(4, static_cast<uint8_t>(last_slot + 1)) + query(5, 0), 2u);
        platform.clear_lines();
        EXPECT_EQ(query(4, last_slot), 0u);
        EXPECT_EQ(platform.messages(4), Lines{line});
        out = nullptr;
        out_state = nullptr;
    }
    EXPECT_EQ(sNVMeSSDBPInfo.slots[249].driveState, 0xFFFF);
}

TEST_F(TableQueries, TheRearBackplaneIsFourLocations) {
    uint8_t rear = 0xEE;
    for (const auto& [location, expected] : {std::pair{47, 0}, {48, 1}, {51, 1}, {52, 0}}) {
        sNVMeSSDBPInfo.slots[35].location = static_cast<uint8_t>(location);
        EXPECT_EQ(rtshm_IsDriveConnectedRearBP(&rear, 0, 35), 0u);
        EXPECT_EQ(rear, expected) << location;
    }
}

TEST_F(TableQueries, AVersionIsKeptPerBayAndReadAsFourCharacters) {
    uint8_t major = 0, minor = 0;
    uint32_t word = 0;
    EXPECT_EQ(RTSHM_setBpFwVersion(4, 0x11A, 3), 0u);
    EXPECT_EQ(RTSHM_getBpFwVersion(4, &major, &minor), 0u);
    EXPECT_EQ(table_bytes(16 * 4 + 9, 4), (Bytes{0, major, minor, 0}));
    EXPECT_EQ(RTSHM_ReadBpFwVersion(4, &word), 0u);
    EXPECT_EQ(std::memcmp(&word, "1a.0", 4), 0);
    sNVMeSSDBPInfo.slots[0].driveState = 0x0203;
    EXPECT_EQ(RTSHM_ReadBpFwVersion(5, &word), 0u) << "reads on behind the bays";
    EXPECT_EQ(std::memcmp(&word, "3.02", 4), 0);
}

TEST_F(TableQueries, AGlobalSlotIsReadFromItsBytesOfTheRegion) {
    std::iota(platform.region(20).begin(), platform.region(20).end(), uint8_t{0});
    EXPECT_EQ(RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum(&bay, 31), 0u);
    EXPECT_EQ(RTSHM_readSSDSlotNumFromGblSlotNum(&slot, 0x10000 + 31), 0u) << "16 bits count";
    EXPECT_EQ((Bytes{bay, slot}), (Bytes{138, 139}));
    EXPECT_EQ(RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum(&bay, 78), 3u) << "behind the region";
    EXPECT_EQ(RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum(nullptr, 78), 0u) << "nothing is read";
    EXPECT_EQ(RTSHM_readSSDSlotNumFromGblSlotNum(nullptr, 78), 0u);
}

TEST_F(TableQueries, TheLastNVMeBayThatHasTheSlotIsGiven) {
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

TEST_F(TableQueries, AnEndpointIsFoundAtItsLastPosition) {
    sNVMeSSDBPInfo.slots[6].i2cEid = sNVMeSSDBPInfo.slots[203].i2cEid = 20;
    sNVMeSSDBPVDMInfo.slots[7].vdmEid = sNVMeSSDBPVDMInfo.slots[149].vdmEid = 30;
    sNVMeSSDBPVDMInfo.slots[249].vdmEid = 255;
    const auto by_eid = RTSHM_readBayIDAndSlotNoFromEID;
    const auto by_vdm_eid = RTSHM_readBayIDAndSlotNoFromVDMEID;
    for (const auto& [what, find, eid, result, found] :
         Rows<const char*, uint32_t (*)(uint8_t*, uint8_t*, int), int, uint32_t, Bytes>{
             {"twice in the table", by_eid, 20, 0, {4, 3}},
             {"not of the NVMe type", by_eid, 21, 0, {0xEE, 0xEE}},
             {"not registered", by_eid, 22, 1, {0xEE, 0xEE}},
             {"VDM, twice in the table", by_vdm_eid, 30, 0, {2, 49}},
             {"VDM, the free marker", by_vdm_eid, 255, 3, {0xEE, 0xEE}},
             {"VDM, no EID", by_vdm_eid, 286, 3, {0xEE, 0xEE}}}) {
        bay = slot = 0xEE;
        EXPECT_EQ(find(&bay, &slot, eid), result);
        EXPECT_EQ((Bytes{bay, slot}), found);
    }
    sNVMeSSDBPInfo.slots[149].i2cEid = 22;
    EXPECT_EQ(rtshm_getI2CNVMeSSDEIDfromVDMEID(30), 22);
    EXPECT_EQ(rtshm_getI2CNVMeSSDEIDfromVDMEID(29), 255);
}

}  // namespace
