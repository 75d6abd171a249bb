#include <gtest/gtest.h>

#include <functional>

#include "tests/support/backplane_test.h"

namespace {

class DriveQueries : public BackplaneTest {};

// Every byte of the two entries differs, so that a query of the wrong byte or table shows.
TEST_F(DriveQueries, EachReadsItsOwnByteOfTheTable) {
    sNVMeSSDBPInfo.slots[249] = {4, 49, {}, 2, 3, 5, 6, 1, 8, 9, 10, 48, 12};
    sNVMeSSDBPVDMInfo.slots[249] = {14, 15, {}, 16, 17, 18, 19, 20, 21, 22, 23, 24, 25};
    sNVMeSSDBPInfo.slots[235] = sNVMeSSDBPInfo.slots[249];  // bay 4, slot 35: the last cabled one
    vexutils::acted_drive_states[249] = 0x4321;
    std::uint8_t byte = 0;
    std::uint16_t state = 0;
    EXPECT_EQ(rtshm_getDriveTechFromBpInfo(&byte, 4, 49), 0u);
    EXPECT_EQ(rtshm_getBusNumFromBpInfo(&byte, 4, 49), 0u);
    EXPECT_EQ(rtshm_getNVMeDriveState(&state, 4, 49), 0u);
    EXPECT_EQ(rtshm_SetNVMeDriveState(4, 49, 0xFFFF), 0u);
    EXPECT_EQ(rtshm_getNVMeDriveState(&state, 4, 49), 0u);
    EXPECT_EQ(sNVMeSSDBPInfo.slots[249].driveState, 0xFFFF);
    EXPECT_EQ(rtshm_getI2CNVMeSSDEIDfromSlotAndBayId(4, 49, &byte), 0u);
    EXPECT_EQ(rtshm_GetNVMeSSDvdmEIDfromSlotandBayID(4, 49, &byte), 0u);
    EXPECT_EQ(rtshm_UpdateNVMeSSDSlotToEID(4, 49, 99), 0u);
    EXPECT_EQ(rtshm_UpdateNVMeSSDSlotToVDMEID(4, 49, 98), 0u);
    EXPECT_EQ(rtshm_getI2CNVMeSSDEIDfromSlotAndBayId(4, 49, &byte), 0u);
    EXPECT_EQ(rtshm_GetNVMeSSDvdmEIDfromSlotandBayID(4, 49, &byte), 0u);
    EXPECT_EQ(rtshm_IsDriveBehindKRONfromBPAPI(&byte, 4, 35), 0u);
    EXPECT_EQ(told(4),
              "DriveTech for EID:9 Bay:4 Slot:49, u8DriveTech:6\n"
              "BDFBus for EID:9 Bay:4 Slot:49, u8PCIeBus:12\n"
              "DriveState for Slot:49, u6DriveState:17185\n"
              "DriveState for Slot:49, u6DriveState:65535 CurrentDriveState:17185\n"
              "DriveState for Slot:49, u6DriveState:65535\n"
              "--> u8BayID:4 u8Slot:49, u8I2CEID:9 \nu8BayID:4 u8Slot:49, VDM-EID:23 \n"
              "--> u8BayID:4 u8Slot:49, u8EID:99 \n--> u8BayID:4 u8Slot:49, u8EID:98 \n"
              "--> u8BayID:4 u8Slot:49, u8I2CEID:99 \nu8BayID:4 u8Slot:49, VDM-EID:98 \n"
              "Is drive at Bay 4 Slot 35 connected behind the KRON? 1\n");
}

TEST_F(DriveQueries, TheRearBackplaneIsFourLocations) {
    for (const auto& [location, expected] : {std::pair{47, 0}, {48, 1}, {51, 1}, {52, 0}}) {
        sNVMeSSDBPInfo.slots[35].location = static_cast<std::uint8_t>(location);
        std::uint8_t rear = 0xEE;
        EXPECT_EQ(rtshm_IsDriveConnectedRearBP(&rear, 0, 35), 0u);
        EXPECT_EQ(rear, expected) << location;
    }
    EXPECT_EQ(told(4),
              "Drive is not connected to rear BP, location[47]\n"
              "Drive is not connected to rear BP, location[52]\n");
}

TEST_F(DriveQueries, PositionsOutsideTheTableAndNullOutputsAreRefused) {
    std::uint8_t byte = 0xEE;
    std::uint16_t state = 0xEEEE;
    std::uint8_t* out = nullptr;
    std::uint16_t* out_state = nullptr;
    using Query = std::function<std::uint32_t(std::uint8_t, std::uint8_t)>;
    const struct {
        int slots;
        Query query;
        bool has_output = true;
    } rows[] = {
        {50, [&](auto b, auto s) { return rtshm_getDriveTechFromBpInfo(out, b, s); }},
        {50, [&](auto b, auto s) { return rtshm_getBusNumFromBpInfo(out, b, s); }},
        {50, [&](auto b, auto s) { return rtshm_getNVMeDriveState(out_state, b, s); }},
        {50, [&](auto b, auto s) { return rtshm_getI2CNVMeSSDEIDfromSlotAndBayId(b, s, out); }},
        {50, [&](auto b, auto s) { return rtshm_GetNVMeSSDvdmEIDfromSlotandBayID(b, s, out); }},
        {36, [&](auto b, auto s) { return rtshm_IsDriveBehindKRONfromBPAPI(out, b, s); }},
        {36, [&](auto b, auto s) { return rtshm_IsDriveConnectedRearBP(out, b, s); }},
        {50, [](auto b, auto s) { return rtshm_SetNVMeDriveState(b, s, 1); }, false},
        {50, [](auto b, auto s) { return rtshm_UpdateNVMeSSDSlotToEID(b, s, 1); }, false},
        {50, [](auto b, auto s) { return rtshm_UpdateNVMeSSDSlotToVDMEID(b, s, 1); }, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        const auto slots = static_cast<std::uint8_t>(row.slots);
        out = nullptr;
        out_state = nullptr;
        EXPECT_EQ(row.query(4, 0), row.has_output ? 1u : 0u);
        out = &byte;
        out_state = &state;
        EXPECT_EQ(row.query(4, slots), 1u);
        EXPECT_TRUE(logged(
            2, "ERROR:Drive at Bay 4 Slot " + std::to_string(row.slots) + " has INVALID_SLOT"));
        EXPECT_EQ(row.query(5, 0), 1u);
        EXPECT_EQ(row.query(255, 255), 1u);
    }
    EXPECT_EQ(byte, 0xEE);
    EXPECT_EQ(state, 0xEEEE);
    EXPECT_EQ(platform.count_logged(2, "ERROR:Drive at Bay 5 Slot 0 has INVALID_SLOT"), 10);
}

TEST_F(DriveQueries, ARawReadNeedsASessionAndABuffer) {
    Bytes buffer(5362, 0xEE);
    EXPECT_EQ(ReadNVMeBPInfo(buffer.data()), 1u);
    EXPECT_EQ(rtshm_BpApiInit(), 0u);
    const int reads = platform.calls(fake::Place::BpRead);
    EXPECT_EQ(ReadNVMeBPInfo(nullptr), 1u);
    EXPECT_EQ(platform.calls(fake::Place::BpRead), reads);
    platform.fail(fake::Place::BpRead);
    EXPECT_EQ(ReadNVMeBPInfo(buffer.data()), 1u);
    EXPECT_NE(told(2).find(" u8Ret:7\n"), std::string::npos) << "the low byte of 0x107";
    EXPECT_EQ(buffer, Bytes(5362, 0xEE));
    put(5361, {7});
    EXPECT_EQ(ReadNVMeBPInfo(buffer.data()), 0u);
    EXPECT_EQ(buffer[5361], 7);
}

}  // namespace
