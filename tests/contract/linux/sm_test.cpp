// Misuse and limited locks: the fake fails the test that does such things.
#include "platform/sm.h"
#include "tests/support/linux_test.h"

namespace {

constexpr int kShortMs = 30;
constexpr int kLongMs = 20'000;  // never waited out, unless a promise is broken

struct Mutex {
    SMMutexHandle handle = SMMutexCreate("contract");
    ~Mutex() { EXPECT_EQ(SMMutexDestroy(handle), 0); }
};

// Result of a call made by another thread.
template <typename Call>
int elsewhere(Call call) {
    int result = -1;
    std::thread{[&] { result = call(); }}.join();
    return result;
}

TEST(LinuxSmMutex, KeepsOthersOutUntilItsOwnerReleasesIt) {
    const Mutex mutex;
    ASSERT_EQ(SMMutexLock(mutex.handle, 0), 0);
    EXPECT_NE(elsewhere([&] { return SMMutexLock(mutex.handle, 0); }), 0);
    EXPECT_NE(elsewhere([&] { return SMMutexUnLock(mutex.handle); }), 0) << "not the owner";
    EXPECT_NE(elsewhere([&] { return SMMutexLock(mutex.handle, 0); }), 0) << "still held";
    EXPECT_EQ(SMMutexUnLock(mutex.handle), 0);
    EXPECT_EQ(
        elsewhere([&] { return SMMutexLock(mutex.handle, kLongMs) + SMMutexUnLock(mutex.handle); }),
        0);
}

TEST(LinuxSmMutex, AnswersMisuseWithAnErrorInsteadOfAHang) {
    const Mutex mutex;
    EXPECT_NE(SMMutexUnLock(mutex.handle), 0) << "not locked";
    EXPECT_NE(SMMutexLock(mutex.handle, -2), 0) << "no such time-out";
    ASSERT_EQ(SMMutexLock(mutex.handle, SM_WAIT_FOREVER), 0);
    EXPECT_NE(SMMutexLock(mutex.handle, SM_WAIT_FOREVER), 0) << "held by this thread";
    EXPECT_NE(SMMutexLock(mutex.handle, kLongMs), 0) << "held by this thread";
    EXPECT_NE(SMMutexDestroy(mutex.handle), 0) << "held";
    EXPECT_EQ(SMMutexUnLock(mutex.handle), 0) << "one release ends the one lock";
    EXPECT_NE(SMMutexUnLock(mutex.handle), 0);
}

TEST(LinuxSmMutex, ALimitedLockGivesUpAfterItsTime) {
    const Mutex mutex;
    ASSERT_EQ(SMMutexLock(mutex.handle, SM_WAIT_FOREVER), 0);
    const auto start = Clock::now();
    EXPECT_NE(elsewhere([&] { return SMMutexLock(mutex.handle, kShortMs); }), 0);
    EXPECT_GE(Clock::now() - start, milliseconds{kShortMs});
    EXPECT_EQ(SMMutexUnLock(mutex.handle), 0);
}

TEST(LinuxSmEvent, RefusesTimeoutsThatMeanNothing) {
    const SMEventHandle event = SMEventCreate(nullptr, 1);
    EXPECT_EQ(SMEventSet(event), 0);
    EXPECT_NE(SMEventWait(event, -2), 0);
    EXPECT_EQ(SMEventDestroy(event), 0);
}

}  // namespace
