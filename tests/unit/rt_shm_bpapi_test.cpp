#include "tests/support/backplane_test.h"

namespace {

class Backplane : public BackplaneTest {
  protected:
    void put_drive(size_t d, const Bytes& bay_and_slot, uint8_t technology, int state) {
        put(835 + 18 * d, {9, 0x42});
        put(835 + 18 * d + 2, bay_and_slot);
        put(835 + 18 * d + 10, {technology, static_cast<uint8_t>(state), 0});
    }
};

TEST_F(Backplane, ASnapshotFillsTheTableByteByByte) {
    put(4, {2, 0, 2, 0, 2});  // two bays, two drives, two risers
    put(100, {0, 3});         // not NVMe
    put(128 + 89, {0x08, 0, 0, 0x80});
    put(128 + 100, {1, 4});
    put(128 + 119, {12});
    put(128 + 129, {0x1A, 0x03});
    put(128 + 140, {2});
    put(835, {7, 1, 1, 3, 5, 0, 6, 49, 0, 0, 1, 0x34, 0x12, 0, 0, 1, 0x5A});
    put(835 + 18, {8, 1, 0, 3, 5, 0, 6, 49, 0, 0, 1, 0x34, 0x12, 0, 0, 1, 0x5A});
    put(5334, {1, 0, 9, 3, 2, 0, 0, 1, 9, 4, 3});
    EXPECT_EQ(rtshm_BpApiInit(), 0u);

    Bytes expected(4148, 0);
    const auto expect = [&](size_t offset, const Bytes& bytes) {
        std::copy(bytes.begin(), bytes.end(), &expected[offset]);
    };
    expect(0, {2});
    expect(4 + 16, {1, 0, 12, 0, 0, 0, 0x1A, 3, 2, 0, 0, 0, 8, 0, 0, 0x80});
    expect(slot_at(1, 3), {1, 3, 0, 0, 7, 0, 0x34, 0x12, 4, 1, 1, 6, 0, 0, 49, 0x5A});
    expect(4084, {0, 3, 4, 2, 1, 4, 4, 3});  // a riser counts whether present or not
    EXPECT_EQ(table_bytes(0, 4148), expected);
    EXPECT_EQ(vexutils::acted_drive_states[53], 0x1234);
    EXPECT_TRUE(logged(4, " Not a NVMe BP, Hence skipping bpType=3 u8BayNo=0 "));
    EXPECT_TRUE(logged(4, " drive->driveId:7 drive->state:4660 baySlot:53 "));
    EXPECT_TRUE(logged(4, "Extern Found, @PCIe Slot =4, Type:9"));
    EXPECT_TRUE(logged(5, " NVMeDriveBehindKron=1"));

    platform.snapshot = {};
    EXPECT_EQ(rtshm_BpDataUpdate(), 0u);
    expect(0, {0});
    EXPECT_EQ(table_bytes(0, 4148), expected) << "what a snapshot no longer names stays";
}

TEST_F(Backplane, DriveRulesDependOnBoardSlotAndBus) {
    const Rows<const char*, uint32_t, uint8_t, uint8_t, Bytes, Bytes> rows{
        {"before the riser of board 215", 215, 1, 1, {0, 6}, {9}},
        {"first slot of its riser", 215, 2, 1, {0, 1}, {9}},
        {"last slot of its riser", 215, 4, 1, {0, 1}, {9}},
        {"behind its riser, no bus", 215, 5, 0, {0, 6}, {0}},
        {"another board, last bit of the slot map", 214, 31, 1, {1, 6}, {9}},
        {"no bit for this slot", 0, 32, 1, {0, 6}, {9}}};
    put(4, {1, 0, 1});
    put(89, {1, 0, 0, 0x80});
    put(100, {4, 1});
    for (const auto& [what, board, slot, bus_valid, kron_and_extender, bus] : rows) {
        platform.system_id = board;
        put(835, {7, 1, 4, slot, 0, 0, 6, 0, 0, 0, 1, 0, 0, 0, 0, bus_valid, 9});
        EXPECT_EQ(rtshm_BpApiInit(), 0u);
        EXPECT_EQ(table_bytes(slot_at(4, slot) + 10, 2), kron_and_extender);
        EXPECT_EQ(table_bytes(slot_at(4, slot) + 15, 1), bus);
    }
}

TEST_F(Backplane, CountsAndPositionsBeyondTheLayoutAreCutWithOneLineEach) {
    put(4, {255, 255, 251, 0, 5});
    for (size_t d = 0; d < 248; ++d) {
        put_drive(d, {9, 9}, 4, 1);
    }
    put_drive(248, {2, 50}, 1, 1);
    put_drive(249, {2, 49}, 1, 1);  // the last record: 17 bytes
    put(84, {4});                   // downstream bays
    put(100, {2, 1});
    put(128 + 100, {5, 1});
    put(5 * 128 + 100, {200, 1});
    put(5334, {1, 5, 0, 7});
    EXPECT_EQ(rtshm_BpApiInit(), 0u);
    EXPECT_EQ(told(3),
              "bayCnt:255 limited to 6\nprintDriveCnt:255 limited to 250\n"
              "riserCnt:5 limited to 4\ndownstreamCount:4 limited to 3\n"
              "driveCnt:251 limited to 250\nbayId:2 slot:50 beyond the table, skipped\n"
              "bayId:5 beyond the table, skipped\nbayId:200 beyond the table, skipped\n");
    EXPECT_EQ(table_bytes(0, 1), Bytes{255});
    EXPECT_EQ(table_bytes(slot_at(2, 49), 2), (Bytes{2, 49}));
    EXPECT_EQ(table_bytes(slot_at(3, 0), 16), Bytes(16, 0));
    EXPECT_EQ(table_bytes(4084, 4), (Bytes{5, 7, 4, 0})) << "a bay without entry has its riser";
    NVMeHotPlugCallback(&platform.snapshot);
    EXPECT_EQ(platform.messages(3).size(), 250u) << "the count, 248 of bay 9, one of slot 50";
}

TEST_F(Backplane, OnlyAChangeOfStateIsActedUpon) {
    // reports: state of the drive in each callback; -1: not in the snapshot
    // changes: new and old state of each
    for (const auto& [what, row_technology, reports, row_changes] :
         Rows<const char*, uint8_t, std::vector<int>, std::string>{
             {"reported twice", 1, {1, 1}, "10"},
             {"gone after two reports", 4, {1, 1, -1}, "1001"},
             {"gone, and back", 4, {5, -1, -1, 7}, "500570"},
             {"not an NVMe drive", 2, {1}, ""}}) {
        std::memset(vexutils::acted_drive_states, 0, sizeof(vexutils::acted_drive_states));
        std::string changes;
        for (const int state : reports) {
            put(6, {static_cast<uint8_t>(state < 0 ? 0 : 1)});
            put_drive(0, {4, 49}, row_technology, state);
            platform.clear_lines();
            NVMeHotPlugCallback(&platform.snapshot);
            char now = 0, before = 0;
            for (const std::string& line : platform.messages(4)) {
                if (std::sscanf(line.c_str(),
                                "HotPlug:NVMe DriveStatus bayID:4, slot:49, "
                                "NewState:0x%c, OldState:0x%c",
                                &now, &before) == 2) {
                    changes += {now, before};
                    EXPECT_EQ(sNVMeSSDBPInfo.slots[249].driveState, now - '0');
                    EXPECT_TRUE(logged(4, "baySlot:249, au16DriveStatus:0")) << "as reset";
                }
            }
        }
        EXPECT_EQ(changes, row_changes);
    }
}

TEST_F(Backplane, ACallbackAsksForInventoryAndHandsTheSnapshotOn) {
    const auto copy = std::make_unique<BpApiInfo>();
    g_bpInfo = copy.get();
    grtsync_Status.flags = 0x8001;
    put(5361, {0xBB});
    EXPECT_EQ(rtshm_BpApiInit(), 0u);
    EXPECT_EQ(rtshm_BpApiKronInit(), 0u);
    platform.backplane_changed(&platform.snapshot);
    EXPECT_EQ(std::memcmp(copy.get(), &platform.snapshot, 5362), 0);
    EXPECT_EQ(grtsync_Status.flags, 0x8001 | 0x0E00);
    EXPECT_TRUE(logged(4, "Successfully Flags are set BPAPI_HBAFlag, KRONFlag, PCIeSSDFlag"));
    EXPECT_TRUE(logged(4, "BP API opened successfully"));
    platform.clear_lines();
    platform.backplane_changed(nullptr);
    EXPECT_EQ(told(2), "info is NULL\ninfo is NULL\n");

    grtsync_Status.flags = 0;
    platform.fail(Place::Lock);
    put(6, {1});
    put_drive(0, {0, 0}, 1, 1);
    NVMeHotPlugCallback(&platform.snapshot);
    EXPECT_EQ(told(2), " GlobalStatus failed!!\n");
    EXPECT_EQ(grtsync_Status.flags, 0);
    EXPECT_EQ(sNVMeSSDBPInfo.slots[0].driveState, 1) << "states are recorded all the same";
}

TEST_F(Backplane, SessionsOpenOnceAndCloseWhateverTheServiceSays) {
    using Call = uint32_t (*)();
    for (const auto& [again, init, exit, handle, failures] :
         Rows<const char*, Call, Call, ZentBpApiHandle*, const char*>{
             {"--> rtshm_BpApiInit BPApi is already Open", rtshm_BpApiInit, rtshm_BpApiExit,
              &bpAPIHandler,
              "rtshm_BpApiExit BPHandler is NULL\nFailed to get Open bpAPI\n"
              "Failed to Close bpAPI\n"},
             {"--> rtshm_BpApiKronInit bpAPIKronHandler is already Open", rtshm_BpApiKronInit,
              rtshm_BpApiKronExit, &bpAPIKronHandler,
              "rtshm_BpApiKronExit bpAPIKronHandler is NULL\n"
              "Failed to get Open bpAPIKronHandler\nFailed to Close bpAPI\n"}}) {
        EXPECT_EQ(exit(), 0u);
        platform.fail(Place::BpOpen);
        EXPECT_EQ(init(), 1u);
        EXPECT_EQ(init(), 0u);
        const ZentBpApiHandle first = *handle;
        EXPECT_EQ(init(), 0u);
        EXPECT_TRUE(logged(4, again));
        EXPECT_EQ(*handle, first);
        platform.fail(Place::BpClose);
        EXPECT_EQ(exit(), 0u);
        EXPECT_EQ(*handle, nullptr);
        EXPECT_EQ(told(2), failures);
    }
}

TEST_F(Backplane, AnUpdateWithoutSnapshotChangesNothing) {
    put(4, {1});
    vexutils::acted_drive_states[249] = 1;
    EXPECT_EQ(rtshm_BpDataUpdate(), 0u);
    platform.fail(Place::BpRead);
    EXPECT_EQ(rtshm_BpApiInit(), 0u);
    EXPECT_EQ(told(2), "<-- error:bpAPIHandler is NULL!!\n<-- error:BPRead Failed!!\n");
    EXPECT_EQ(vexutils::acted_drive_states[249], 0) << "start-up forgets the drive states";
    const AllocationScope scope;
    platform.fail(Place::Allocation);
    EXPECT_EQ(rtshm_BpApiInit(), 0u);
    EXPECT_TRUE(logged(2, "Error, Failed to get BPData rtshm_BpApiInit"));
    platform.fail(Place::Allocation);
    EXPECT_EQ(rtshm_BpDataUpdate(), 5u);
    EXPECT_EQ(platform.count_logged(2, "<-- error:malloc to BP_Info is Failed!!"), 2);
    EXPECT_EQ(table_bytes(0, 4148), Bytes(4148, 0));
}

TEST_F(Backplane, ThePrintedSnapshotKeepsItsWording) {
    put(4, {1, 2, 0, 0, 2});  // the print goes by byte 5
    put(80, {1, 0, 0x34, 0x12, 1, 7, 0, 0, 0});
    put(97, {6, 0, 0, 2, 4, 0, 3});
    put(117, {0, 5, 12, 11, 0, 10});
    put(129, {0x1A, 0x0B, 0x33, 0x22, 0x01});
    put(140, {8});
    put_drive(0, {3, 1}, 4, 1);
    put_drive(1, {2, 4}, 4, 1);
    put(5334, {0, 2, 1, 1, 1, 0, 1, 2, 0x0C, 3, 9});
    ZentBpPrintApiInfo(nullptr);
    ZentBpPrintApiInfo(&platform.snapshot);
    EXPECT_EQ(told(4),
              "=========================ZentBpPrintApiInfo\nAPI Info bayCnt:1 bays\n"
              "Bay Id: 2 Inventory\nComp Id:      0x012233\nFw Version:   1a.b\n"
              "Technology:   4\nbpId:   4660 size:3\npcieSlotMap:   7\nCarrier   \t\t :3\n"
              "Pri/Sec          :0\nPhysical Slot Cnt:12\nLogical Slot Cnt :11\n"
              "Physical Drve Cnt:10\nDownstream Cnt   :1\nDriveSlotOffset  :8\n"
              "Primary Bay Id:5\nDownstream Slot Cnt:  5\nDownstream Drive Cnt: 5\n"
              "Downstream Bay Ids :6 \nDrive Info, 10 drives:\n"
              "NVMe SSD Slot:4 with an extenderSlot 0:\nDrive  9, Sensor 0x42, Bay 2, State:1\n"
              "Riser Info, 2 risers:\nNumber: 9, Type: 0x0c, Slot 3\n");
}

}  // namespace
