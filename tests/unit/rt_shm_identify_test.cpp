#include "tests/support/backplane_test.h"

namespace {

class Identify : public BackplaneTest {
  protected:
    // The records written since the last call.
    Bytes written() {
        Bytes bytes;
        for (const fake::BpWrite& write : platform.bp_writes) {
            EXPECT_EQ(write.type, 1u);
            const auto* record = reinterpret_cast<const uint8_t*>(&write.record);
            bytes.insert(bytes.end(), record, record + 4);
        }
        platform.bp_writes.clear();
        return bytes;
    }
};

TEST_F(Identify, EachWritesItsRecordAndOnlyAFailedStatusLeavesASession) {
    const std::string no_session = "Error:bpAPIHandler is NULL u8bayId:2 Slot:7";
    const std::string write = "<-- unable to write backplaneApi. u8Ret:7,NVMeSSD";
    const std::string updated = "<--NVMeSSDDriveStatus update Done!! u16DriveStatus:4660";
    const Bytes blinks{2, 7, 8, 0}, state{2, 7, 0x34, 0x12};
    sNVMeSSDBPInfo.slots[107].i2cEid = 20;
    platform.bp_error_text = nullptr;
    // Lines without a session, after a failed write and at the end; result without a session.
    for (const auto& [what, call, record, unopened, unwritten, done, result] :
         Rows<std::string, uint32_t (*)(), Bytes, std::string, std::string, std::string, uint32_t>{
             {"blink", [] { return BlinkNVMeSSD(2, 7); }, blinks,
              "<-- unable to Open backplaneApi. u8SSDSlotNum:7,BPAPIOpen: Error:(null)",
              write + "Blink: Error:(null)", "<-- Exit BlinkNVMeSSD", 1},
             {"unblink", [] { return UnBlinkNVMeSSD(2, 7, 0x1234); }, state, no_session,
              write + "UnBlink: Error:(null)", "<-- Exit UnBlinkNVMeSSD", 1},
             {"all", [] { return UnBlinkAllNVMeSSDS(9, 2, 7, 0x1234); }, state, no_session,
              write + "UnBlink: Error:(null)", "<-- Unblink Sucess for EID:9", 1},
             {"status", [] { return updateNVMeSSDDriveStatusToBP(0x1234, 7, 20); }, state, updated,
              "<-- unable to write backplane api info. u8Ret:7, Error:(null)", updated, 0}}) {
        const bool own_session = what != "all";
        platform.fail(Place::BpOpen);
        EXPECT_EQ(call(), result);
        EXPECT_TRUE(logged(4, unopened));
        EXPECT_EQ(written(), Bytes{});

        platform.no_faults();
        EXPECT_EQ(own_session ? 0 : rtshm_BpApiInit(), 0u);
        const int others = platform.open_sessions();
        EXPECT_EQ(call(), 0u);
        EXPECT_EQ(written(), record);
        EXPECT_TRUE(logged(4, done));
        EXPECT_EQ(platform.open_sessions(), others);

        platform.fail(Place::BpClose);
        EXPECT_EQ(call(), 0u);
        EXPECT_EQ(told(4).find("--> Failed to Close to BPAPI @ ") != std::string::npos,
                  own_session);

        platform.fail(Place::BpWrite);
        EXPECT_EQ(call(), 1u);
        EXPECT_TRUE(logged(4, unwritten));
        EXPECT_EQ(platform.open_sessions(), others + (what == "status"));
        rtshm_BpApiExit();
        platform.sessions.clear();
        written();
    }
}

TEST_F(Identify, TheNoStateMarkerIsNotWrittenByUnblinkAll) {
    EXPECT_EQ(UnBlinkAllNVMeSSDS(9, 2, 7, 0xFFFF), 1u) << "the session is asked for first";
    EXPECT_EQ(rtshm_BpApiInit(), 0u);
    EXPECT_EQ(UnBlinkAllNVMeSSDS(9, 2, 7, 0xFFFF), 0u);
    EXPECT_EQ(written(), Bytes{});
    EXPECT_EQ(UnBlinkNVMeSSD(2, 7, 0xFFFF), 0u);
    EXPECT_EQ(written(), (Bytes{2, 7, 0xFF, 0xFF}));
}

TEST_F(Identify, AStatusGoesByTheCallersSlotInTheTableAndTheFoundOneOnTheBackplane) {
    sNVMeSSDBPInfo.slots[107].i2cEid = 20;
    EXPECT_EQ(updateNVMeSSDDriveStatusToBP(5, 9, 20), 0u);
    EXPECT_EQ(updateNVMeSSDDriveStatusToBP(6, 9, 21), 0u);
    EXPECT_EQ(updateNVMeSSDDriveStatusToBP(7, 9, 22), 0u);
    EXPECT_EQ(written(), (Bytes{2, 7, 5, 0, 255, 255, 6, 0})) << "an add-in card has no position";
    EXPECT_EQ(sNVMeSSDBPInfo.slots[109].driveState, 5);
    EXPECT_EQ(sNVMeSSDBPInfo.slots[107].driveState, 0);
    EXPECT_TRUE(logged(4, "Failed to Get the BayID for the slot: Slot:9 u8Ret:1"));
}

}  // namespace
