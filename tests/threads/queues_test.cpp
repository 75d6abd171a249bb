// Many producers and one consumer: nothing lost, nothing doubled, order kept per producer.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <thread>
#include <vector>

#include "internal/owned.h"
#include "notifQue.h"
#include "rt_evtq.h"
#include "tests/threads/quiet_log.h"

namespace {

constexpr unsigned kProducers = 4;
constexpr unsigned kEvents = VEX_THREAD_TEST_EVENTS;
constexpr unsigned kEach = kEvents / kProducers;
constexpr int kMostUnderWay = 64;  // producers wait, or the walk along the queue sets the pace

// Keeps producers from running ahead. Relaxed: it must not order what the queue should.
class Throttle {
  public:
    void enter() {
        while (under_way_.load(std::memory_order_relaxed) >= kMostUnderWay) {
            std::this_thread::yield();
        }
        under_way_.fetch_add(1, std::memory_order_relaxed);
    }
    void leave() { under_way_.fetch_sub(1, std::memory_order_relaxed); }

  private:
    std::atomic<int> under_way_{0};
};

// What the consumer has seen: each producer's numbers from 0 on, without a gap.
class Order {
  public:
    void take(unsigned producer, unsigned number) {
        ++taken_;
        if (producer >= kProducers || number != next_[producer]) {
            ++wrong_;
            return;
        }
        ++next_[producer];
    }
    void expect_complete() const {
        EXPECT_EQ(wrong_, 0u);
        EXPECT_EQ(taken_, kProducers * kEach);
        std::printf("figures: R5 operations=%u\n", 2 * taken_);
    }

  private:
    std::array<unsigned, kProducers> next_{};
    unsigned taken_ = 0;
    unsigned wrong_ = 0;
};

// Runs the producers and, when all are done, the end.
template <class Produce, class End>
std::jthread start_producers(Throttle& throttle, Produce produce, End end) {
    return std::jthread{[&throttle, produce, end] {
        std::vector<std::jthread> threads;
        for (unsigned producer = 0; producer < kProducers; ++producer) {
            threads.emplace_back([&throttle, producer, produce] {
                for (unsigned number = 0; number < kEach; ++number) {
                    throttle.enter();
                    produce(producer, number);
                }
            });
        }
        threads.clear();
        end();
    }};
}

class Queues : public QuietLog {};

// The number travels as the payload's size, which is at least 1, and the producer as the payload;
// every 16th event is handed over instead of copied.
void put_event(unsigned producer, unsigned number) {
    const EndpointEvent event{
        RTRAID_CALLBACK_POWERON, number + 1, {static_cast<uint8_t>(producer)}};
    if (number % 16 != 0) {
        EndpointEvent lent = event;
        EXPECT_EQ(rtraid_EventQueue_Put(&lent), 0);
        lent = {};  // the queue has its copy
        return;
    }
    auto* table = vexutils::make_owned<EndpointEvent>().release();
    *table = event;
    table->callbackType = RTRAID_CALLBACK_ENDPOINT_TABLE;
    EXPECT_EQ(rtraid_EventQueue_Put(table), 0);
}

TEST_F(Queues, EndpointEventsReachTheWorkerOnceAndInOrder) {
    ASSERT_EQ(rtraid_EventQueue_Init(), 0);
    ASSERT_EQ(rtraid_EventQueue_SetStatus(RTRAID_EVTQ_READY), 0);
    Throttle throttle;
    std::jthread producers = start_producers(throttle, put_event, [] {
        EndpointEvent end{RTRAID_CALLBACK_MCTPD_STOPPED, 0, {0}};
        rtraid_EventQueue_Put(&end);
    });
    Order order;
    for (bool more = true; more;) {
        const vexutils::Owned<EndpointEvent> event{rtraid_EventQueue_Get()};
        if (event == nullptr) {
            continue;  // woken for an event that an earlier call took
        }
        more = event->callbackType != RTRAID_CALLBACK_MCTPD_STOPPED;
        if (more) {
            order.take(event->buffer[0], event->bufferSize - 1);
            throttle.leave();
        }
    }
    producers.join();
    order.expect_complete();
    EXPECT_EQ(gpRtraid_EventQueue->head, nullptr);
    EXPECT_EQ(rtraid_EventQueue_Destroy(), 0);
}

TEST_F(Queues, NotificationsReachThePollerOnceAndInOrder) {
    NotifQueue* queue = nullptr;
    ASSERT_EQ(InitEvtQ(&queue), 0);
    static unsigned numbers[kProducers * kEach];  // a message is a number's address
    static unsigned end;
    Throttle throttle;
    std::jthread producers = start_producers(
        throttle,
        [queue](unsigned producer, unsigned number) {
            unsigned* message = &numbers[producer * kEach + number];
            *message = number;
            EXPECT_EQ(AddEvt(queue, message), 0);
        },
        [queue] { AddEvt(queue, &end); });
    Order order;
    for (void* message = nullptr; message != &end;) {
        EXPECT_EQ(removeMsg(queue, &message), 0);
        if (message == nullptr) {
            std::this_thread::yield();
        } else if (message != &end) {
            const auto* number = static_cast<unsigned*>(message);
            order.take(static_cast<unsigned>(number - numbers) / kEach, *number);
            throttle.leave();
        }
    }
    producers.join();
    order.expect_complete();
    EXPECT_EQ(queue->count, 0u);
    SMMutexDestroy(queue->mutex);
    std::free(queue);
}

}  // namespace
