#include "rt_shm.h"
#include "tests/support/cache_test.h"

namespace {

constexpr int kEid = 9;    // its recovery byte is that of entry 9 ...
constexpr int kEntry = 2;  // ... though it is found here

class CommandStatus : public CacheTest {
  protected:
    RtControllerStatus& entry = g_rtpil_Controller_Status[kEntry];
    uint8_t& recovery = g_rtpil_Controller_Status[kEid].recoveryStatus;

    void SetUp() override {
        CacheTest::SetUp();
        std::ranges::fill(g_rtpil_Controller_Status, RtControllerStatus{});
        entry.eid = kEid;
        entry.status = 0xFA;
    }

    static unsigned communication(int32_t eid) {
        uint8_t status = 0xEE;
        EXPECT_EQ(rtpil_GetControllerCommunicationStatus(eid, &status), 0);
        return status;
    }
};

TEST_F(CommandStatus, OnlyTheEleventhFailureInARowMarksTheController) {
    for (int i = 1; i <= 10; ++i) {
        EXPECT_EQ(rtmpi2_UpdateControllerCommandStatus(kEid, 1, 0x55), 0);
        EXPECT_EQ(entry.failCount, i);
    }
    EXPECT_EQ(communication(kEid), 2u);
    EXPECT_EQ(rtmpi2_UpdateControllerCommandStatus(kEid, 1, 0x155), 0);
    EXPECT_EQ(entry.status, 0xF9) << "the daemon's bits stay";
    EXPECT_EQ(entry.failCount, 10);
    EXPECT_EQ(recovery, 0x55);
}

TEST_F(CommandStatus, OtherCommandsEndTheRun) {
    for (const auto& [command, status, left, count] : Rows<uint32_t, uint8_t, uint8_t, uint16_t>{
             {0, 0xFB, 0, 0}, {2, 0xFA, 0, 0}, {4, 0x80, 0, 0}, {5, 0xFF, 0, 0}, {7, 0xFF, 9, 4}}) {
        entry.status = 0xFF;
        entry.failCount = 4;
        recovery = 9;
        EXPECT_EQ(rtmpi2_UpdateControllerCommandStatus(kEid, command, 0x77), 0);
        EXPECT_EQ(entry.status, status);
        EXPECT_EQ(entry.failCount, count);
        EXPECT_EQ(recovery, left);
    }
}

TEST_F(CommandStatus, UnknownAndLargeEidsTouchNoOtherEntry) {
    g_rtpil_Controller_Status[115].eid = kEid;
    EXPECT_EQ(rtpil_SetctrlEnableLoggingStatus(kEid, 3), 0u);
    EXPECT_EQ(g_rtpil_Controller_Status[115].enableLogging, 3) << "every match is set";
    EXPECT_EQ(g_rtpil_Controller_Status[0].enableLogging, 0) << "and nothing else";
    EXPECT_EQ(rtpil_GetctrlEnableLoggingStatus(kEid), 3);
    EXPECT_EQ(rtmpi2_UpdateControllerCommandStatus(kEid + 256, 0, 0), -1);
    EXPECT_EQ(communication(kEid + 256), 3u);
    entry.eid = 200;  // has no recovery byte
    entry.failCount = 10;
    EXPECT_EQ(rtmpi2_UpdateControllerCommandStatus(200, 1, 0x55), 0);
}

TEST_F(CommandStatus, AFailureOfAPulledDriveDoesNotCount) {
    NVMeSlotEntry& slot = sNVMeSSDBPInfo.slots[50 * 1 + 4];
    add_endpoint(kEid);
    for (const auto& [what, type, slot_eid, state, absent] :
         Rows<const char*, uint8_t, uint8_t, uint16_t, unsigned>{
             {"pulled", RTCACHE_TYPE_NVME, kEid, 0xFFFE, 1},
             {"present", RTCACHE_TYPE_NVME, kEid, 1, 0},
             {"no slot", RTCACHE_TYPE_NVME, kEid + 1, 0, 0},
             {"a controller", RTCACHE_TYPE_KRON, kEid, 0, 0}}) {
        rtcache_SetStorageEIDType(kEid, type);
        slot.i2cEid = slot_eid;
        rtshm_SetNVMeDriveState(1, 4, state);
        entry.failCount = 0;
        EXPECT_EQ(rtmpi2_UpdateControllerCommandStatus(kEid, 1, 0), 0);
        EXPECT_EQ(entry.failCount, 1 - absent);
    }
    sNVMeSSDBPInfo = {};
}

}  // namespace
