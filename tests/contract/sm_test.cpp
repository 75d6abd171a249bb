#include "platform/sm.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr int kShortMs = 30;
constexpr int kLongMs = 20'000;  // never waited out, unless a promise is broken

struct Mutex {
    SMMutexHandle handle = SMMutexCreate("contract");
    ~Mutex() { EXPECT_EQ(SMMutexDestroy(handle), 0); }
};

struct Event {
    explicit Event(int manual_reset) : handle{SMEventCreate("contract", manual_reset)} {}
    ~Event() { EXPECT_EQ(SMEventDestroy(handle), 0); }
    SMEventHandle handle;
};

// Result of a call made by another thread.
template <typename Call>
int elsewhere(Call call) {
    int result = -1;
    std::thread{[&] { result = call(); }}.join();
    return result;
}

TEST(SmMutex, KeepsOthersOutUntilItsOwnerReleasesIt) {
    const Mutex mutex;
    ASSERT_EQ(SMMutexLock(mutex.handle, SM_WAIT_FOREVER), 0);
    EXPECT_NE(elsewhere([&] { return SMMutexLock(mutex.handle, 0); }), 0);
    EXPECT_NE(elsewhere([&] { return SMMutexUnLock(mutex.handle); }), 0) << "not the owner";
    EXPECT_NE(elsewhere([&] { return SMMutexLock(mutex.handle, 0); }), 0) << "still held";
    EXPECT_EQ(SMMutexUnLock(mutex.handle), 0);
    EXPECT_EQ(
        elsewhere([&] { return SMMutexLock(mutex.handle, kLongMs) + SMMutexUnLock(mutex.handle); }),
        0);
}

TEST(SmMutex, AnswersMisuseWithAnErrorInsteadOfAHang) {
    const Mutex mutex;
    EXPECT_NE(SMMutexUnLock(mutex.handle), 0) << "not locked";
    ASSERT_EQ(SMMutexLock(mutex.handle, SM_WAIT_FOREVER), 0);
    EXPECT_NE(SMMutexLock(mutex.handle, SM_WAIT_FOREVER), 0) << "held by this thread";
    EXPECT_NE(SMMutexLock(mutex.handle, kLongMs), 0) << "held by this thread";
    EXPECT_NE(SMMutexDestroy(mutex.handle), 0) << "held";
    EXPECT_EQ(SMMutexUnLock(mutex.handle), 0) << "one release ends the one lock";
    EXPECT_NE(SMMutexUnLock(mutex.handle), 0);
}

TEST(SmMutex, ALimitedLockGivesUpAfterItsTime) {
    const Mutex mutex;
    ASSERT_EQ(SMMutexLock(mutex.handle, SM_WAIT_FOREVER), 0);
    const auto start = Clock::now();
    EXPECT_NE(elsewhere([&] { return SMMutexLock(mutex.handle, kShortMs); }), 0);
    EXPECT_GE(Clock::now() - start, milliseconds{kShortMs});
    EXPECT_EQ(SMMutexUnLock(mutex.handle), 0);
}

TEST(SmMutex, ExcludesThreadsFromEachOther) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    const Mutex mutex;
    int counter = 0;  // plain: the lock is all that keeps it whole
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&, limit = thread % 2 == 0 ? SM_WAIT_FOREVER : kLongMs] {
            for (int round = 0; round < kRounds; ++round) {
                ASSERT_EQ(SMMutexLock(mutex.handle, limit), 0);
                ++counter;
                ASSERT_EQ(SMMutexUnLock(mutex.handle), 0);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, kThreads * kRounds);
}

TEST(SmEvent, StaysSetOrResetsItselfAsCreated) {
    const struct {
        const char* what;
        int manual_reset;
        bool set_again;
    } rows[] = {{"manual reset: every wait passes", 1, true},
                {"automatic reset: one wait passes", 0, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const Event event{row.manual_reset};
        EXPECT_NE(SMEventWait(event.handle, 0), 0) << "created unset";
        EXPECT_EQ(SMEventSet(event.handle), 0);
        EXPECT_EQ(SMEventSet(event.handle), 0) << "set twice is set once";
        EXPECT_EQ(SMEventWait(event.handle, SM_WAIT_FOREVER), 0);
        EXPECT_EQ(SMEventWait(event.handle, 0) == 0, row.set_again);
        EXPECT_EQ(SMEventSet(event.handle), 0);
        EXPECT_EQ(SMEventReset(event.handle), 0);
        EXPECT_NE(SMEventWait(event.handle, 0), 0) << "reset";
    }
}

TEST(SmEvent, ALimitedWaitGivesUpAfterItsTime) {
    const Event event{1};
    const auto start = Clock::now();
    EXPECT_NE(SMEventWait(event.handle, kShortMs), 0);
    EXPECT_GE(Clock::now() - start, milliseconds{kShortMs});
}

TEST(SmEvent, WakesAllWaitersOrOneAsCreated) {
    constexpr int kWaiters = 3;
    for (const int manual_reset : {1, 0}) {
        SCOPED_TRACE(manual_reset);
        const Event event{manual_reset};
        std::atomic<int> woken{0};
        std::vector<std::thread> waiters;
        for (int waiter = 0; waiter < kWaiters; ++waiter) {
            waiters.emplace_back([&, limit = waiter % 2 == 0 ? SM_WAIT_FOREVER : kLongMs] {
                EXPECT_EQ(SMEventWait(event.handle, limit), 0);
                ++woken;
            });
        }
        for (int set = 1; set <= (manual_reset != 0 ? 1 : kWaiters); ++set) {
            EXPECT_EQ(SMEventSet(event.handle), 0);
            while (woken < set) {
                std::this_thread::yield();
            }
            std::this_thread::sleep_for(milliseconds{kShortMs});
            EXPECT_EQ(woken, manual_reset != 0 ? kWaiters : set);
        }
        for (std::thread& waiter : waiters) {
            waiter.join();
        }
    }
}

TEST(Sm, RefusesNullHandlesAndTimeoutsThatMeanNothing) {
    EXPECT_NE(SMMutexLock(nullptr, SM_WAIT_FOREVER), 0);
    EXPECT_NE(SMMutexUnLock(nullptr), 0);
    EXPECT_NE(SMMutexDestroy(nullptr), 0);
    EXPECT_NE(SMEventSet(nullptr), 0);
    EXPECT_NE(SMEventReset(nullptr), 0);
    EXPECT_NE(SMEventWait(nullptr, SM_WAIT_FOREVER), 0);
    EXPECT_NE(SMEventDestroy(nullptr), 0);
    const Mutex mutex;
    EXPECT_NE(SMMutexLock(mutex.handle, -2), 0);
    const Event event{1};
    EXPECT_EQ(SMEventSet(event.handle), 0);
    EXPECT_NE(SMEventWait(event.handle, -2), 0);
}

}  // namespace
