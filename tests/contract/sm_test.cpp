#include "platform/sm.h"
#include "tests/support/linux_test.h"

namespace {

constexpr int kShortMs = 30;
constexpr int kLongMs = 20'000;  // never waited out, unless a promise is broken

struct Event {
    explicit Event(int manual_reset) : handle{SMEventCreate("contract", manual_reset)} {}
    ~Event() { EXPECT_EQ(SMEventDestroy(handle), 0); }
    SMEventHandle handle;
};

TEST(SmMutex, ExcludesThreadsFromEachOther) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    const SMMutexHandle mutex = SMMutexCreate("contract");
    int counter = 0;  // plain: the lock is all that keeps it whole
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                ASSERT_EQ(SMMutexLock(mutex, SM_WAIT_FOREVER), 0);
                ++counter;
                ASSERT_EQ(SMMutexUnLock(mutex), 0);
            }
        });
    }
    threads.clear();
    EXPECT_EQ(counter, kThreads * kRounds);
    EXPECT_EQ(SMMutexDestroy(mutex), 0);
}

TEST(SmEvent, StaysSetOrResetsItselfAsCreated) {
    for (const auto& [what, manual_reset, set_again] :
         Rows<const char*, int, bool>{{"manual reset: every wait passes", 1, true},
                                      {"automatic reset: one wait passes", 0, false}}) {
        const Event event{manual_reset};
        EXPECT_NE(SMEventWait(event.handle, 0), 0) << "created unset";
        EXPECT_EQ(SMEventSet(event.handle), 0);
        EXPECT_EQ(SMEventSet(event.handle), 0) << "set twice is set once";
        EXPECT_EQ(SMEventWait(event.handle, SM_WAIT_FOREVER), 0);
        EXPECT_EQ(SMEventWait(event.handle, 0) == 0, set_again);
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
        std::vector<std::jthread> waiters;
        for (int waiter = 0; waiter < kWaiters; ++waiter) {
            waiters.emplace_back([&, limit = waiter == 0 ? SM_WAIT_FOREVER : kLongMs] {
                EXPECT_EQ(SMEventWait(event.handle, limit), 0);
                ++woken;
            });
        }
        const int sets = manual_reset != 0 ? 1 : kWaiters;
        for (int set = 1; set <= sets; ++set) {
            EXPECT_EQ(SMEventSet(event.handle), 0);
            const int expected = manual_reset != 0 ? kWaiters : set;
            while (woken < expected) {
                std::this_thread::yield();
            }
            std::this_thread::sleep_for(milliseconds{kShortMs});
            EXPECT_EQ(woken, expected);
        }
    }
}

TEST(Sm, RefusesNullHandles) {
    EXPECT_NE(SMMutexLock(nullptr, SM_WAIT_FOREVER), 0);
    EXPECT_NE(SMMutexUnLock(nullptr), 0);
    EXPECT_NE(SMMutexDestroy(nullptr), 0);
    EXPECT_NE(SMEventSet(nullptr), 0);
    EXPECT_NE(SMEventReset(nullptr), 0);
    EXPECT_NE(SMEventWait(nullptr, SM_WAIT_FOREVER), 0);
    EXPECT_NE(SMEventDestroy(nullptr), 0);
}

}  // namespace
