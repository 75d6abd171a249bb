// Many producers and one consumer: nothing lost, nothing doubled, order kept per producer.
#include "internal/owned.h"
#include "notifQue.h"
#include "rt_evtq.h"
#include "tests/threads/quiet_log.h"

namespace {

constexpr unsigned kProducers = 4;
const unsigned kEach = kEvents / kProducers;
constexpr int kMostUnderWay = 64;  // producers wait, or the walk along the queue sets the pace

class Queues : public QuietLog {
  protected:
    // put: an event of a producer, with a number; one of producer kProducers is the last of all.
    // take: waits for the next event.
    static void run(const std::function<void(unsigned, unsigned)>& put,
                    const std::function<std::pair<unsigned, unsigned>()>& take) {
        std::atomic<int> under_way{0};  // relaxed: it must not order what the queue should
        std::jthread producers{[&] {
            std::vector<std::jthread> threads;
            for (unsigned producer = 0; producer < kProducers; ++producer) {
                threads.emplace_back([&, producer] {
                    for (unsigned number = 0; number < kEach; ++number) {
                        while (under_way.load(std::memory_order_relaxed) >= kMostUnderWay) {
                            std::this_thread::yield();
                        }
                        under_way.fetch_add(1, std::memory_order_relaxed);
                        put(producer, number);
                    }
                });
            }
            threads.clear();
            put(kProducers, 0);
        }};
        std::array<unsigned, kProducers + 1> next{};
        for (auto [producer, number] = take(); producer < kProducers;
             std::tie(producer, number) = take()) {
            EXPECT_EQ(number, next[producer]++) << "of producer " << producer;
            under_way.fetch_sub(1, std::memory_order_relaxed);
        }
        EXPECT_EQ(next, (std::array<unsigned, kProducers + 1>{kEach, kEach, kEach, kEach, 0}));
        std::printf("figures: R5 operations=%u\n", 2 * kProducers * kEach);
    }
};

TEST_F(Queues, EndpointEventsReachTheWorkerOnceAndInOrder) {
    ASSERT_EQ(rtraid_EventQueue_Init(), 0);
    ASSERT_EQ(rtraid_EventQueue_SetStatus(RTRAID_EVTQ_READY), 0);
    // The number travels as the payload's size, which is at least 1, and the producer as the
    // payload; every 16th event is handed over instead of copied.
    const auto put = [](unsigned producer, unsigned number) {
        auto event = vexutils::make_owned<EndpointEvent>();
        *event = {RTRAID_CALLBACK_POWERON, number + 1, {static_cast<uint8_t>(producer)}};
        if (number % 16 != 0) {
            EXPECT_EQ(rtraid_EventQueue_Put(event.get()), 0);
            return;
        }
        event->callbackType = RTRAID_CALLBACK_ENDPOINT_TABLE;
        EXPECT_EQ(rtraid_EventQueue_Put(event.release()), 0);
    };
    run(put, [] {
        vexutils::Owned<EndpointEvent> event;
        while (event == nullptr) {  // also woken for an event that an earlier call took
            event.reset(rtraid_EventQueue_Get());
        }
        return std::pair<unsigned, unsigned>{event->buffer[0], event->bufferSize - 1};
    });
    EXPECT_EQ(gpRtraid_EventQueue->head, nullptr);
    EXPECT_EQ(rtraid_EventQueue_Destroy(), 0);
}

// A worker that waits has its event soon, and one that is told to end has ended soon.
TEST_F(Queues, WaitingWorkersAreWoken) {
    ASSERT_EQ(rtraid_EventQueue_Init(), 0);
    ASSERT_EQ(rtraid_EventQueue_SetStatus(RTRAID_EVTQ_READY), 0);
    EndpointEvent event{RTRAID_CALLBACK_POWERON, 1, {}};
    std::array<Clock::duration, 21> delays;
    for (Clock::duration& delay : delays) {
        Clock::time_point taken;
        std::jthread worker{[&taken] {
            const vexutils::Owned<EndpointEvent> got{rtraid_EventQueue_Get()};
            taken = Clock::now();
            EXPECT_NE(got, nullptr);
        }};
        std::this_thread::sleep_for(milliseconds{5});  // by now it waits
        const Clock::time_point put = Clock::now();
        EXPECT_EQ(rtraid_EventQueue_Put(&event), 0);
        worker.join();
        delay = taken - put;
    }
    std::jthread worker{[] {
        while (rtraid_EventQueue_GetStatus() == RTRAID_EVTQ_READY) {
            vexel_free(rtraid_EventQueue_Get());
        }
    }};
    std::this_thread::sleep_for(milliseconds{5});
    const Clock::time_point began = Clock::now();
    EXPECT_EQ(rtraid_EventQueue_SetStatus(RTRAID_EVTQ_NOT_READY), 0);
    EXPECT_EQ(rtraid_EventQueue_Put(&event), 0);
    worker.join();
    rtraid_EventQueue_SetStatus(RTRAID_EVTQ_READY);
    if (gpRtraid_EventQueue->head != nullptr) {  // it did not wait yet
        vexel_free(rtraid_EventQueue_Get());
    }
    EXPECT_EQ(rtraid_EventQueue_Destroy(), 0);
    const auto ended = std::chrono::duration<double, std::milli>{Clock::now() - began}.count();
    std::ranges::sort(delays);  // one may meet a busy machine
    const auto woken = std::chrono::duration<double, std::milli>{delays[delays.size() / 2]}.count();
    EXPECT_LE(woken, 100);
    EXPECT_LE(ended, 1000);
    std::printf("figures: R16 woken_ms=%.2f ended_ms=%.2f\n", woken, ended);
}

TEST_F(Queues, NotificationsReachThePollerOnceAndInOrder) {
    NotifQueue* queue = nullptr;
    ASSERT_EQ(InitEvtQ(&queue), 0);
    std::vector<unsigned> numbers(kProducers * kEach + 1);  // a message is a number's address
    const auto put = [&numbers, queue](unsigned producer, unsigned number) {
        unsigned* message = &numbers[producer * kEach + number];
        *message = number;
        EXPECT_EQ(AddEvt(queue, message), 0);
    };
    run(put, [&numbers, queue] {
        void* message = nullptr;
        while (removeMsg(queue, &message) == 0 && message == nullptr) {
            std::this_thread::yield();
        }
        const auto* number = static_cast<unsigned*>(message);
        return std::pair{static_cast<unsigned>(number - numbers.data()) / kEach, *number};
    });
    EXPECT_EQ(queue->count, 0u);
    SMMutexDestroy(queue->mutex);
    std::free(queue);
}

}  // namespace
