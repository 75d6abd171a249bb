#include <ctime>

#include "rt_sync.h"
#include "tests/support/platform_test.h"

namespace {

class Sync : public PlatformTest {
  protected:
    void TearDown() override {
        EXPECT_EQ(RTSync_Destroy(), 0u);
        RTSync_KronStateDestroy();
        EXPECT_EQ(rtraid_KRONInventoryThreadHandlerMutexDestroy(), 0u);
    }

    static bool status_is(const RTSyncGlobalStatus& expected) {
        return std::memcmp(&grtsync_Status, &expected, sizeof(expected)) == 0;
    }
};

constexpr RTSyncGlobalStatus kBefore{0x1111, 0x2222, 3, 4, 5, 6};
constexpr RTSyncGlobalStatus kGiven{0xAAAA, 0xBBBB, 13, 14, 15, 16};

TEST_F(Sync, EachFunctionWritesItsOwnFieldsOfTheStatus) {
    ASSERT_EQ(RTSync_Init(), 0u);
    for (const auto& [what, call, after] : Rows<const char*, uint32_t (*)(), RTSyncGlobalStatus>{
             {"set",
              [] { return RTSync_SetGlobalStatus(kGiven); },
              {0xAAAA, 0x2222, 13, 14, 15, 16}},
             {"poll", [] { return RTSync_SetGlobalPoll(kGiven); }, {0x1111, 0x2222, 3, 14, 15, 16}},
             {"reset", RTSync_Reset, kBefore},
             {"destroy", RTSync_Destroy, kBefore},
             {"init", RTSync_Init, {0, 0x2222, 0, 4, 5, 6}}}) {
        grtsync_Status = kBefore;
        EXPECT_EQ(call(), 0u);
        EXPECT_TRUE(status_is(after));
    }
    const auto now = static_cast<uint32_t>(std::time(nullptr));
    EXPECT_EQ(RTSync_updateGlobalPoll(kGiven), 0u);
    EXPECT_LE(grtsync_Status.pollTimeA - now, 1u);
    EXPECT_EQ(grtsync_Status.pollTimeB + 0u, grtsync_Status.pollTimeA);
    RTSyncGlobalStatus copy = kGiven;
    EXPECT_EQ(RTSync_GetGlobalStatus(&copy), 0u);
    EXPECT_TRUE(status_is(copy));
}

TEST_F(Sync, KeepsOneEntryPerControllerAndDropsTheThirteenth) {
    ASSERT_EQ(RTSync_KronStateInit(), 0u);
    EXPECT_EQ(RTSync_SetKronStatus(RTSYNC_EID_FREE, 0x33), 0u);
    uint8_t status = 0xEE;
    EXPECT_EQ(RTSync_GetKronStatus(RTSYNC_EID_FREE, &status), RTSYNC_EID_UNKNOWN);
    for (uint8_t eid = 1; eid <= RTSYNC_KRON_ENTRIES + 1; ++eid) {
        EXPECT_EQ(RTSync_SetKronStatus(eid, 0x10), 0u);
    }
    EXPECT_EQ(RTSync_SetKronStatus(2, 0x22), 0u);
    for (const auto& [what, eid, result, row_status] :
         Rows<const char*, uint8_t, uint32_t, uint8_t>{
             {"a second report replaces the first", 2, 0, 0x22},
             {"last entry", 12, 0, 0x10},
             {"table full, dropped in silence", 13, RTSYNC_EID_UNKNOWN, 0}}) {
        EXPECT_EQ(RTSync_GetKronStatus(eid, &status), result);
        EXPECT_EQ(status, row_status);
    }
}

TEST_F(Sync, TheReinventoryFlagIsZeroOrOne) {
    ASSERT_EQ(rtraid_KRONInventoryThreadHandlerMutexInit(), 0u);
    uint8_t flag = 0xEE;
    EXPECT_EQ(rtraid_SetKRONInventoryThreadFlag(1), 0u);
    EXPECT_EQ(rtraid_SetKRONInventoryThreadFlag(2), 0u);
    EXPECT_EQ(rtraid_GetKRONInventoryThreadFlag(&flag), 0u);
    EXPECT_EQ(flag, 1);
}

class JobFilter : public PlatformTest {
  protected:
    void TearDown() override { freeHybridData(&g_hybridJobData); }

    static void install(std::vector<const wchar_t*> fqdds) {
        updateNotifFQDD(static_cast<int32_t>(fqdds.size()), fqdds.data());
    }
    static const HybridJobInfo* entry(int index) {
        return static_cast<HybridJobData*>(g_hybridJobData)->hybridJobInfo[index];
    }
};

TEST_F(JobFilter, AListIsInstalledAndFreed) {
    install({L"a%%b%%%"});  // as a format, with no argument to convert
    EXPECT_EQ(isFQDDEIDPresent(L"a%b%%", 9, 0), 1u);
    freeHybridData(&g_hybridJobData);
    updateNotifFQDD(0, nullptr);
    updateNotifFQDD(1, nullptr);
    EXPECT_EQ(isFQDDEIDPresent(nullptr, 9, 0), 1u) << "without a list everything passes";
    EXPECT_EQ(isTAVIFQDDEIDPresent(9), 1u);
}

TEST_F(JobFilter, FindsAControllerByAddressAndFromThenOnByEndpoint) {
    install({L"", L"RAID.Slot.3-1", L"RAID.Slot.3"});  // an empty text matches nothing
    const wchar_t* disk = L"Disk.Bay.0:Enclosure.Internal.0-1:RAID.Slot.3-1";
    for (const auto& [what, fqdd, by_id, expected] :
         Rows<const char*, const wchar_t*, uint32_t, uint32_t>{{"not bound yet", disk, 1, 0},
                                                               {"behind it", disk, 0, 1},
                                                               {"its endpoint", nullptr, 1, 1},
                                                               {"part of one", L"RAID.Slot", 0, 0},
                                                               {"no address", nullptr, 0, 0}}) {
        EXPECT_EQ(isFQDDEIDPresent(fqdd, 9, by_id), expected);
    }
    EXPECT_EQ(entry(2)->ctrId, 0u) << "the first match ends the walk";
}

TEST_F(JobFilter, BootStoragePassesAlwaysAndTheFirstListedIsUnbound) {
    install({L"RAID.ROR", L"ROR.Slot.2", L"TAVI.Slot.3"});
    EXPECT_EQ(isFQDDEIDPresent(L"ROR.Slot.2", 2, 0), 1u);
    EXPECT_EQ(isFQDDEIDPresent(L"TAVI.Slot.3", 3, 0), 1u);
    EXPECT_EQ(isTAVIFQDDEIDPresent(7), 1u);
    EXPECT_EQ(entry(1)->ctrId, 0u);
    EXPECT_EQ(entry(2)->ctrId, 3u);
}

}  // namespace
