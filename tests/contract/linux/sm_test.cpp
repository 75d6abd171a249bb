// Misuse and limited locks: the fake fails the test that does such things.
#include "platform/sm.h"
#include "tests/support/linux_test.h"

#include <future>

namespace {

// Result of a call made by another thread.
template <typename Call>
int elsewhere(Call call) {
    return std::async(std::launch::async, call).get();
}

TEST(LinuxSm, AnswersMisuseWithAnErrorInsteadOfAHang) {
    const SMMutexHandle mutex = SMMutexCreate("contract");
    EXPECT_NE(SMMutexUnLock(mutex), 0) << "not locked";
    EXPECT_NE(SMMutexLock(mutex, -2), 0) << "no such time-out";
    ASSERT_EQ(SMMutexLock(mutex, SM_WAIT_FOREVER), 0);
    EXPECT_NE(SMMutexLock(mutex, SM_WAIT_FOREVER), 0) << "held by this thread";
    EXPECT_NE(SMMutexDestroy(mutex), 0) << "held";
    EXPECT_NE(elsewhere([&] { return SMMutexLock(mutex, 0); }), 0);
    EXPECT_NE(elsewhere([&] { return SMMutexUnLock(mutex); }), 0) << "not the owner";
    const auto start = Clock::now();
    EXPECT_NE(elsewhere([&] { return SMMutexLock(mutex, 30); }), 0);
    EXPECT_GE(Clock::now() - start, milliseconds{30});
    EXPECT_EQ(SMMutexUnLock(mutex), 0);
    EXPECT_EQ(elsewhere([&] { return SMMutexLock(mutex, 20'000) + SMMutexUnLock(mutex); }), 0);
    EXPECT_EQ(SMMutexDestroy(mutex), 0);
}

}  // namespace
