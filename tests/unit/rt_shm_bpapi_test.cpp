#include "tests/support/backplane_test.h"

namespace {

class Backplane : public BackplaneTest {
  protected:
    // A drive of a state other than 0.
    void put_drive(size_t d, uint8_t bay, uint8_t slot, uint8_t technology) {
        put(835 + 18 * d + 2, {bay, slot, 0, 0, 0, 0, 0, 0, technology, 1, 0});
    }
};

TEST_F(Backplane, ASnapshotFillsTheTableByteByByteAndIsPrinted) {
    put(4, {1, 1, 1, 0, 2});
    put(80, {1, 0, 0x34, 0x12, 1, 7, 0, 0, 0, 0x08, 0, 0, 0x80});
    put(100, {1, 4});
    put(119, {12});
    put(129, {0x1A, 0x03});
    put(140, {2});
    put(835, {7, 0x42, 1, 3, 5, 0, 6, 49, 0, 0, 1, 0x34, 0x12, 0, 0, 1, 0x5A});
    put(5334, {1, 1, 9, 3, 2, 0, 0, 1, 9, 4, 3});  // the second is not present, yet recorded
    EXPECT_EQ(rtshm_BpApiInit(), 0u);

    Bytes expected(4148, 0);
    const auto expect = [&](size_t offset, const Bytes& bytes) {
        std::copy(bytes.begin(), bytes.end(), &expected[offset]);
    };
    expect(0, {1});
    expect(20, {1, 0, 12, 0, 0, 0, 0x1A, 3, 2, 0, 0, 0, 8, 0, 0, 0x80});
    expect(slot_at(1, 3), {1, 3, 0, 0, 7, 0, 0x34, 0x12, 4, 1, 1, 6, 0, 0, 49, 0x5A});
    expect(4084, {1, 3, 4, 2, 1, 4, 4, 3});
    EXPECT_EQ(table_bytes(0, 4148), expected);
    EXPECT_EQ(std::ranges::count(lines_of("ZentBpPrintApiInfo"), '|'), 24) << "lines";
}

TEST_F(Backplane, DriveRulesDependOnBoardSlotAndBus) {
    put(4, {1, 0, 1});
    put(89, {1, 0, 0, 0x80});
    put(100, {4, 1});
    for (const auto& [what, board, slot, bus_valid, kron_extender_bus] :
         Rows<const char*, uint32_t, uint8_t, uint8_t, Bytes>{
             {"before the riser of board 215, no bus", 215, 1, 0, {0, 6, 0, 0, 0, 0}},
             {"last slot of its riser", 215, 4, 1, {0, 1, 0, 0, 0, 9}},
             {"behind its riser", 215, 5, 1, {0, 6, 0, 0, 0, 9}},
             {"another board, last bit of the slot map", 214, 31, 1, {1, 6, 0, 0, 0, 9}},
             {"no bit for this slot", 214, 32, 1, {0, 6, 0, 0, 0, 9}}}) {
        platform.system_id = board;
        put(835, {7, 1, 4, slot, 0, 0, 6, 0, 0, 0, 1, 0, 0, 0, 0, bus_valid, 9});
        EXPECT_EQ(rtshm_BpApiInit(), 0u);
        EXPECT_EQ(table_bytes(slot_at(4, slot) + 10, 6), kron_extender_bus);
    }
}

TEST_F(Backplane, CountsAndPositionsBeyondTheLayoutAreCutWithOneLineEach) {
    put(4, {255, 255, 251, 0, 5});
    put(84, {4});      // downstream bays
    put(100, {2, 1});  // a bay, one that is not NVMe, one beyond the table
    put(228, {3, 2});
    put(356, {5, 1});
    put_drive(247, 3, 0, 1);
    put_drive(248, 2, 50, 1);
    put_drive(249, 2, 49, 1);  // the last record: 17 bytes
    put(5334, {1, 5, 0, 7});
    EXPECT_EQ(rtshm_BpApiInit(), 0u);
    EXPECT_EQ(platform.messages(3).size(), 7u);
    EXPECT_EQ(table_bytes(slot_at(2, 49), 2), (Bytes{2, 49}));
    EXPECT_EQ(table_bytes(4084, 4), (Bytes{5, 7, 4, 0})) << "a bay without entry has its riser";
}

TEST_F(Backplane, ACallbackActsOnChangesOnlyAndHandsTheSnapshotOn) {
    const auto copy = std::make_unique<BpApiInfo>();
    g_bpInfo = copy.get();
    grtsync_Status.flags = 0x8001;
    put(6, {2});
    put_drive(0, 4, 49, 4);
    put_drive(1, 4, 48, 2);  // not an NVMe drive
    NVMeHotPlugCallback(&platform.snapshot);
    const char* line = "HotPlug:NVMe DriveStatus bayID:4, slot:49, NewState:0x1, OldState:0x0";
    EXPECT_TRUE(logged(4, line));
    EXPECT_EQ(std::memcmp(copy.get(), &platform.snapshot, 5362), 0);
    EXPECT_EQ(grtsync_Status.flags, 0x8001 | 0x0E00);
    EXPECT_EQ(sNVMeSSDBPInfo.slots[249].driveState, 1);
    NVMeHotPlugCallback(&platform.snapshot);
    EXPECT_EQ(platform.count_logged(4, line), 1);
    put(6, {0});
    NVMeHotPlugCallback(&platform.snapshot);
    EXPECT_EQ(sNVMeSSDBPInfo.slots[249].driveState, 0) << "a drive that is not named is gone";
    NVMeHotPlugCallback(nullptr);
    BpApiKronCallback(nullptr);
    ZentBpPrintApiInfo(nullptr);
    EXPECT_EQ(platform.count_logged(2, "info is NULL"), 2);
    EXPECT_EQ(rtshm_BpDataUpdate(), 0u);
    EXPECT_TRUE(logged(2, "<-- error:bpAPIHandler is NULL!!"));
}

class Identify : public BackplaneTest {
  protected:
    // The records written since the last call.
    Bytes written() {
        Bytes bytes;
        for (const fake::BpWrite& write : platform.bp_writes) {
            const auto* record = reinterpret_cast<const uint8_t*>(&write.record);
            bytes.insert(bytes.end(), record, record + 4);
        }
        platform.bp_writes.clear();
        return bytes;
    }
};

TEST_F(Identify, EachWritesItsRecordAndOnlyAFailedStatusLeavesASession) {
    EXPECT_EQ(rtshm_BpApiInit(), 0u);
    sNVMeSSDBPInfo.slots[107].i2cEid = 20;
    // left: the session that a failed write leaves
    for (const auto& [what, left, call, record] : Rows<const char*, bool, uint32_t (*)(), Bytes>{
             {"blink", false, [] { return BlinkNVMeSSD(2, 7); }, {2, 7, 8, 0}},
             {"unblink", false, [] { return UnBlinkNVMeSSD(2, 7, 300); }, {2, 7, 44, 1}},
             {"all", false, [] { return UnBlinkAllNVMeSSDS(9, 2, 7, 300); }, {2, 7, 44, 1}},
             {"status",
              true,
              [] { return updateNVMeSSDDriveStatusToBP(5, 9, 20); },
              {2, 7, 5, 0}}}) {
        EXPECT_EQ(call(), 0u);
        EXPECT_EQ(written(), record);
        platform.fail(Place::BpWrite);
        EXPECT_EQ(call(), 1u);
        EXPECT_EQ(platform.open_sessions(), left ? 2 : 1);
    }
    EXPECT_EQ(UnBlinkAllNVMeSSDS(9, 2, 7, 0xFFFF), 0u);
    EXPECT_EQ(written(), Bytes{}) << "no state";
    EXPECT_EQ(updateNVMeSSDDriveStatusToBP(6, 9, 21), 0u);
    EXPECT_EQ(written(), (Bytes{255, 255, 6, 0})) << "an add-in card has no position";
    EXPECT_EQ(sNVMeSSDBPInfo.slots[109].driveState, 5) << "a status goes by the caller's slot";
    platform.sessions.erase(std::prev(platform.sessions.end()));  // the one that was left
}

}  // namespace
