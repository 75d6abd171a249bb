#include "rt_sync.h"

#include <pthread.h>

#include <ctime>
#include <future>

#include "tests/support/platform_test.h"

namespace {

class Sync : public PlatformTest {
  protected:
    void TearDown() override {
        EXPECT_EQ(RTSync_Destroy(), 0u);
        RTSync_KronStateDestroy();
        EXPECT_EQ(rtraid_KRONInventoryThreadHandlerMutexDestroy(), 0u);
    }

    void expect_status(const RTSyncGlobalStatus& expected) const {
        EXPECT_EQ(std::memcmp(&grtsync_Status, &expected, sizeof(expected)), 0)
            << testing::PrintToString(grtsync_Status);
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
             {"a second destroy", RTSync_Destroy, kBefore},
             {"init", RTSync_Init, {0, 0x2222, 0, 4, 5, 6}}}) {
        grtsync_Status = kBefore;
        EXPECT_EQ(call(), 0u);
        expect_status(after);
    }
    RTSyncGlobalStatus copy = kGiven;
    EXPECT_EQ(RTSync_GetGlobalStatus(&copy), 0u);
    expect_status(copy);
    EXPECT_EQ(RTSync_GetGlobalStatus(nullptr), 2u);
    EXPECT_EQ(RTSync_LockGlobalStatus(), 0u);
    EXPECT_EQ(platform.locks_held, 1) << "the lock is the caller's";
    EXPECT_EQ(RTSync_UnLockGlobalStatus(), 0u);
    EXPECT_NE(RTSync_UnLockGlobalStatus(), 0u) << "not held: the platform's answer comes through";
    EXPECT_TRUE(platform.lines().empty());
}

TEST_F(Sync, BothPollTimesBecomeNow) {
    ASSERT_EQ(RTSync_Init(), 0u);
    grtsync_Status = kBefore;
    const auto before = static_cast<uint32_t>(std::time(nullptr));
    EXPECT_EQ(RTSync_updateGlobalPoll(kGiven), 0u);
    const auto after = static_cast<uint32_t>(std::time(nullptr));
    const uint32_t now = grtsync_Status.pollTimeA;
    EXPECT_TRUE(now == before || now == after);
    expect_status({0x1111, 0x2222, 3, 4, now, now});
}

TEST_F(Sync, FailedLocksAreLoggedAndChangeNothing) {
    static uint8_t out;
    const std::string text = "<-- err mutex fail";
    const std::string flag_text = "<-- err gKronReinventoryThread_mutex mutex fail ";
    const Rows<std::string, uint32_t (*)(), uint32_t, bool> rows{
        // silent without a mutex?
        {text + "RTSync_LockGlobalStatus", [] { return RTSync_LockGlobalStatus(); }, 3, false},
        {text + "RTSync_SetGlobalPoll", [] { return RTSync_SetGlobalPoll(kGiven); }, 1, false},
        {text + "RTSync_updateGlobalPoll", [] { return RTSync_updateGlobalPoll({}); }, 1, false},
        {text + "RTSync_SetKronStatus", [] { return RTSync_SetKronStatus(1, 2); }, 1, true},
        {text + "RTSync_GetKronStatus", [] { return RTSync_GetKronStatus(1, &out); }, 1, true},
        {flag_text + "rtraid_GetKRONInventoryThreadFlag",
         [] { return rtraid_GetKRONInventoryThreadFlag(&out); }, 1, true},
        {flag_text + "rtraid_SetKRONInventoryThreadFlag",
         [] { return rtraid_SetKRONInventoryThreadFlag(1); }, 1, false}};
    grtsync_Status = kBefore;
    out = 0xEE;
    platform.fail(Place::Lock, 1, true);
    for (const bool created : {false, true}) {
        if (created) {
            EXPECT_EQ(RTSync_Init() + RTSync_KronStateInit(), 0u);
            EXPECT_EQ(rtraid_KRONInventoryThreadHandlerMutexInit(), 0u);
            grtsync_Status = kBefore;
        }
        for (const auto& [line, call, result, silent] : rows) {
            EXPECT_EQ(call(), result);
            EXPECT_EQ(told(1), created || !silent ? line + "\n" : "");
        }
        expect_status(kBefore);
        EXPECT_EQ(out, 0xEE);
        EXPECT_EQ(gKRONReInventoryThreadRunning, 0);
    }
    platform.no_faults();
    EXPECT_EQ(RTSync_GetKronStatus(1, &out), 255u) << "the failed set stored nothing";
}

TEST_F(Sync, WithoutAMutexInitSaysSoAndLeavesTheStateAlone) {
    grtsync_Status = kBefore;
    gKRONState[0] = {9, 8, {}};
    for (const auto& [line, call] : Rows<const char*, uint32_t (*)()>{
             {"<-- RTSync_Init failed to create mutex", RTSync_Init},
             {"<-- RTSync_Reset failed to create mutex", RTSync_Reset},
             {"<-- RTSync_KronStateInit failed to create mutex", RTSync_KronStateInit},
             {"<-- rtraid_KRONInventoryThreadHandlerMutexInit failed to create KRON Reinventory "
              "Thread mutex",
              rtraid_KRONInventoryThreadHandlerMutexInit}}) {
        platform.fail(Place::MutexCreate);
        EXPECT_EQ(call(), 1u);
        EXPECT_TRUE(logged(1, line));
        expect_status(kBefore);
        EXPECT_EQ(gKRONState[0].eid, 9);
    }
}

TEST_F(Sync, KeepsOneEntryPerControllerAndDropsTheThirteenth) {
    ASSERT_EQ(RTSync_KronStateInit(), 0u);
    for (uint8_t eid = 1; eid <= RTSYNC_KRON_ENTRIES + 1; ++eid) {
        EXPECT_EQ(RTSync_SetKronStatus(eid, 0x10), 0u);
    }
    EXPECT_EQ(RTSync_SetKronStatus(2, 0x22), 0u);
    for (const auto& [what, row_eid, result, row_status] :
         Rows<const char*, uint8_t, uint32_t, uint8_t>{
             {"first entry", 1, 0, 0x10},
             {"a second report replaces the first", 2, 0, 0x22},
             {"last entry", 12, 0, 0x10},
             {"table full, dropped in silence", 13, RTSYNC_EID_UNKNOWN, 0}}) {
        uint8_t status = 0xEE;
        EXPECT_EQ(RTSync_GetKronStatus(row_eid, &status), result);
        EXPECT_EQ(status, row_status);
    }
    EXPECT_EQ(RTSync_GetKronStatus(1, nullptr), 2u);
    EXPECT_TRUE(platform.lines().empty());

    RTSync_KronStateDestroy();
    EXPECT_EQ(gKRONState[1].status, 0x22) << "the table outlives its mutex";
    ASSERT_EQ(RTSync_KronStateInit(), 0u);
    EXPECT_EQ(gKRONState[1].eid, 0xFF);
    EXPECT_EQ(gKRONState[1].status, 0);
}

TEST_F(Sync, TheFreeMarkerIsNoController) {
    ASSERT_EQ(RTSync_KronStateInit(), 0u);
    EXPECT_EQ(RTSync_SetKronStatus(0xFF, 0x33), 0u);
    uint8_t status = 0xEE;
    EXPECT_EQ(RTSync_GetKronStatus(0xFF, &status), 255u);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(RTSync_SetKronStatus(4, 0x44), 0u);
    EXPECT_EQ(gKRONState[0].eid, 4) << "its entry stayed free";
}

TEST_F(Sync, TheReinventoryFlagIsZeroOrOne) {
    ASSERT_EQ(rtraid_KRONInventoryThreadHandlerMutexInit(), 0u);
    for (const auto& [value, after] : {std::pair{1u, 1u}, {2u, 1u}, {0x100u, 1u}, {0u, 0u}}) {
        SCOPED_TRACE(value);
        platform.clear_lines();
        EXPECT_EQ(rtraid_SetKRONInventoryThreadFlag(value), 0u);
        uint8_t flag = 0xEE;
        EXPECT_EQ(rtraid_GetKRONInventoryThreadFlag(&flag), 0u);
        EXPECT_EQ(flag, after);
        std::vector<std::string> lines{
            "Setting flag " + std::to_string(value) + " rtraid_SetKRONInventoryThreadFlag",
            "Flag read " + std::to_string(after) + " rtraid_GetKRONInventoryThreadFlag"};
        if (value > 1) {
            lines.insert(lines.begin() + 1,
                         "<-- Trying to set invalid value..BUGrtraid_SetKRONInventoryThreadFlag");
        }
        EXPECT_EQ(platform.messages(1), lines);
    }
    EXPECT_EQ(rtraid_GetKRONInventoryThreadFlag(nullptr), 2u);
}

std::promise<std::tuple<void*, int, size_t>> seen;

void* look_around(void* argument) {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    int state = 0;
    size_t stack = 0;
    pthread_attr_getdetachstate(&attributes, &state);
    pthread_attr_getstacksize(&attributes, &stack);
    pthread_attr_destroy(&attributes);
    seen.set_value({argument, state, stack});
    return nullptr;
}

TEST_F(Sync, WorkersRunDetachedOnASmallStack) {
    int given = 0;
    EXPECT_EQ(RTSync_FFThreadStart(look_around, &given), 1u);
    const auto [argument, state, stack] = seen.get_future().get();
    EXPECT_EQ(argument, &given);
    EXPECT_EQ(state, PTHREAD_CREATE_DETACHED);
    EXPECT_GE(stack, 102400u);
    EXPECT_LT(stack, 2 * 102400u) << "not the default of megabytes";
}

}  // namespace
