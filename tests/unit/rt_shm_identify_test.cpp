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
    const struct {
        const char* what;
        std::function<uint32_t()> run;
        Bytes record;
        bool own_session;
        const char *open_failed, *write_failed, *done;
        uint32_t result_without_session = 1;
        int left_open = 0;
    } rows[] = {{"blink",
                 [] { return BlinkNVMeSSD(2, 7); },
                 {2, 7, 8, 0},
                 true,
                 "<-- unable to Open backplaneApi. u8SSDSlotNum:7,BPAPIOpen: Error:(null)",
                 "<-- unable to write backplaneApi. u8Ret:7,NVMeSSDBlink: Error:(null)",
                 "<-- Exit BlinkNVMeSSD"},
                {"unblink",
                 [] { return UnBlinkNVMeSSD(2, 7, 0x1234); },
                 {2, 7, 0x34, 0x12},
                 true,
                 "Error:bpAPIHandler is NULL u8bayId:2 Slot:7",
                 "<-- unable to write backplaneApi. u8Ret:7,NVMeSSDUnBlink: Error:(null)",
                 "<-- Exit UnBlinkNVMeSSD"},
                {"unblink all",
                 [] { return UnBlinkAllNVMeSSDS(9, 2, 7, 0x1234); },
                 {2, 7, 0x34, 0x12},
                 false,
                 "Error:bpAPIHandler is NULL u8bayId:2 Slot:7",
                 "<-- unable to write backplaneApi. u8Ret:7,NVMeSSDUnBlink: Error:(null)",
                 "<-- Unblink Sucess for EID:9"},
                {"status",
                 [] { return updateNVMeSSDDriveStatusToBP(0x1234, 7, 20); },
                 {2, 7, 0x34, 0x12},
                 true,
                 "<--NVMeSSDDriveStatus update Done!! u16DriveStatus:4660",
                 "<-- unable to write backplane api info. u8Ret:7, Error:(null)",
                 "<--NVMeSSDDriveStatus update Done!! u16DriveStatus:4660",
                 0,
                 1}};
    sNVMeSSDBPInfo.slots[107].i2cEid = 20;
    platform.bp_error_text = nullptr;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        platform.fail(Place::BpOpen);
        EXPECT_EQ(row.run(), row.result_without_session);
        EXPECT_TRUE(logged(4, row.open_failed));
        EXPECT_EQ(written(), Bytes{});

        platform.no_faults();
        if (!row.own_session) {
            EXPECT_EQ(rtshm_BpApiInit(), 0u);
        }
        const int others = platform.open_sessions();
        EXPECT_EQ(row.run(), 0u);
        EXPECT_EQ(written(), row.record);
        EXPECT_TRUE(logged(4, row.done));
        EXPECT_EQ(platform.open_sessions(), others);

        platform.fail(Place::BpClose);
        EXPECT_EQ(row.run(), 0u);
        EXPECT_EQ(told(4).find("--> Failed to Close to BPAPI @ ") != std::string::npos,
                  row.own_session);

        platform.fail(Place::BpWrite);
        EXPECT_EQ(row.run(), 1u);
        EXPECT_TRUE(logged(4, row.write_failed));
        EXPECT_EQ(platform.open_sessions(), others + row.left_open);
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
