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
        EXPECT_EQ(communication(kEid), 2u);
        EXPECT_EQ(recovery, 0);
    }
    platform.clear_lines();
    EXPECT_EQ(rtmpi2_UpdateControllerCommandStatus(kEid, 1, 0x155), 0);
    EXPECT_EQ(entry.status, 0xF9) << "the daemon's bits stay";
    EXPECT_EQ(entry.failCount, 10);
    EXPECT_EQ(recovery, 0x55);
    EXPECT_EQ(entry.recoveryStatus, 0);
    EXPECT_TRUE(logged(4, "ctrl:9 command fail count:10"));
    EXPECT_TRUE(logged(4, "ctrl:9 recovery cmd status used ctrId:85"));
}

TEST_F(CommandStatus, OtherCommandsEndTheRun) {
    const Rows<uint32_t, uint8_t, uint8_t, uint16_t> rows{
        {0, 0xFB, 0, 0}, {2, 0xFA, 0, 0}, {3, 0xFB, 0, 0},   {4, 0x80, 0, 0},
        {5, 0xFF, 0, 0}, {6, 0xFE, 0, 0}, {7, 0xFF, 0x55, 4}};
    for (const auto& [command, row_status, row_recovery, count] : rows) {
        entry.status = 0xFF;
        entry.failCount = 4;
        recovery = 0x55;
        EXPECT_EQ(rtmpi2_UpdateControllerCommandStatus(kEid, command, 0x77), 0);
        EXPECT_EQ(entry.status, row_status);
        EXPECT_EQ(entry.failCount, count);
        EXPECT_EQ(recovery, row_recovery);
    }
    EXPECT_TRUE(logged(2, "Unknown status for ctrl:9"));
    EXPECT_TRUE(logged(4, "Resetting controller command status and counter for EID=9"));
    EXPECT_TRUE(logged(4, " Cleanup the controller command failed counter for EID=9"));
}

TEST_F(CommandStatus, UnknownAndLargeEidsTouchNoOtherEntry) {
    EXPECT_EQ(rtmpi2_UpdateControllerCommandStatus(77, 0, 0), -1);
    EXPECT_EQ(rtmpi2_UpdateControllerCommandStatus(kEid + 256, 0, 0), -1);
    EXPECT_EQ(communication(77), 3u);
    EXPECT_TRUE(logged(2, "Unable to get Controller Comm status for ctrl:77"));
    EXPECT_EQ(rtpil_GetControllerCommunicationStatus(kEid, nullptr), -1);
    entry.eid = 200;
    entry.failCount = 10;
    EXPECT_EQ(rtmpi2_UpdateControllerCommandStatus(200, 1, 0x55), 0);
    EXPECT_EQ(communication(200), 1u);
    EXPECT_TRUE(logged(4, "ctrl:200 recovery cmd status used ctrId:0"));
}

TEST_F(CommandStatus, AFailureOfAPulledDriveDoesNotCount) {
    NVMeSlotEntry& slot = sNVMeSSDBPInfo.slots[50 * 1 + 4];
    const Rows<const char*, uint8_t, uint8_t, uint16_t, unsigned> rows{
        {"pulled", RTCACHE_TYPE_NVME, kEid, 0xFFFE, 1},
        {"present", RTCACHE_TYPE_NVME, kEid, 1, 0},
        {"no slot", RTCACHE_TYPE_NVME, kEid + 1, 0, 0},
        {"a controller", RTCACHE_TYPE_KRON, kEid, 0, 0}};
    EXPECT_EQ(rtpil_IfNVMeSSD_isNotPresent(kEid), 0u) << "not registered";
    add_endpoint(kEid);
    for (const auto& [what, type, slot_eid, state, absent] : rows) {
        rtcache_SetStorageEIDType(kEid, type);
        slot.i2cEid = slot_eid;
        rtshm_SetNVMeDriveState(1, 4, state);
        entry.failCount = 0;
        EXPECT_EQ(rtpil_IfNVMeSSD_isNotPresent(kEid), absent);
        EXPECT_EQ(rtmpi2_UpdateControllerCommandStatus(kEid, 1, 0), 0);
        EXPECT_EQ(entry.failCount, 1 - absent);
    }
    EXPECT_TRUE(logged(4, "Drive EID:9, has been removed, do not update status"));
    rtshm_SetNVMeDriveState(1, 4, 0);
    sNVMeSSDBPInfo = {};
}

TEST_F(CommandStatus, TheLoggingSwitchIsSetOnEveryMatch) {
    g_rtpil_Controller_Status[115].eid = kEid;
    EXPECT_EQ(rtpil_SetctrlEnableLoggingStatus(kEid, 3), 0u);
    EXPECT_EQ(g_rtpil_Controller_Status[115].enableLogging, 3);
    entry.enableLogging = 1;
    platform.clear_lines();
    EXPECT_EQ(rtpil_GetctrlEnableLoggingStatus(kEid), 1);
    EXPECT_EQ(logged_lines(),
              (Lines{"4 -->  rtpil_GetctrlEnableLoggingStatus", "4 ctrlid:9 with Enablelogging:1",
                     "4 <--  rtpil_GetctrlEnableLoggingStatus"}));
    EXPECT_EQ(rtpil_GetctrlEnableLoggingStatus(77), 0);
    EXPECT_EQ(rtpil_SetctrlEnableLoggingStatus(77, 1), 0u);
    EXPECT_EQ(platform.count_logged(2, "EnableLogging is not found for ctrlId:77"), 2);
}

}  // namespace
