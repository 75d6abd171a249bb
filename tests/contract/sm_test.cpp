#include "platform/sm.h"
#include "tests/support/linux_test.h"

namespace {

constexpr int kShortMs = 30;
constexpr int kLongMs = 20'000;  // never waited out, unless a promise is broken

TEST(SmMutex, KeepsOthersOutUntilItsOwnerReleasesIt) {
    const SMMutexHandle mutex = SMMutexCreate("contract");
    ASSERT_EQ(SMMutexLock(mutex, SM_WAIT_FOREVER), 0);
    std::atomic<bool> released{false};
    std::thread other{[&] {
        EXPECT_EQ(SMMutexLock(mutex, SM_WAIT_FOREVER), 0);
        EXPECT_TRUE(released);
        EXPECT_EQ(SMMutexUnLock(mutex), 0);
    }};
    std::this_thread::sleep_for(milliseconds{kShortMs});
    released = true;
    EXPECT_EQ(SMMutexUnLock(mutex), 0);
    other.join();
    EXPECT_EQ(SMMutexDestroy(mutex), 0);
}

TEST(SmEvent, StaysSetOrResetsItselfAsCreated) {
    for (const auto& [what, manual_reset, set_again] :
         Rows<const char*, int, bool>{{"manual reset: every wait passes", 1, true},
                                      {"automatic reset: one wait passes", 0, false}}) {
        const SMEventHandle event = SMEventCreate("contract", manual_reset);
        const auto start = Clock::now();
        EXPECT_NE(SMEventWait(event, kShortMs), 0) << "created unset";
        EXPECT_GE(Clock::now() - start, milliseconds{kShortMs});
        EXPECT_EQ(SMEventSet(event), 0);
        EXPECT_EQ(SMEventWait(event, SM_WAIT_FOREVER), 0);
        EXPECT_EQ(SMEventWait(event, 0) == 0, set_again);
        EXPECT_EQ(SMEventSet(event), 0);
        EXPECT_EQ(SMEventReset(event), 0);
        EXPECT_NE(SMEventWait(event, 0), 0) << "reset";
        std::jthread setter{[&] { EXPECT_EQ(SMEventSet(event), 0); }};
        EXPECT_EQ(SMEventWait(event, kLongMs), 0) << "woken";
        setter.join();
        EXPECT_EQ(SMEventDestroy(event), 0);
    }
}

TEST(Sm, RefusesNullHandles) {
    EXPECT_NE(SMMutexLock(nullptr, SM_WAIT_FOREVER), 0);
    EXPECT_NE(SMMutexUnLock(nullptr), 0);
    EXPECT_NE(SMEventSet(nullptr), 0);
    EXPECT_NE(SMEventWait(nullptr, SM_WAIT_FOREVER), 0);
}

}  // namespace
