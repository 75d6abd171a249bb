#include <cstdlib>

#include "internal/owned.h"
#include "notifQue.h"
#include "rt_evtq.h"
#include "tests/support/platform_test.h"

namespace {

class NotifyQueue : public PlatformTest {};

TEST_F(NotifyQueue, MessagesComeOutInOrder) {
    NotifQueue* queue = nullptr;
    void* message = nullptr;
    int messages[3] = {};
    ASSERT_EQ(InitEvtQ(&queue), 0);
    for (int& each : messages) {
        EXPECT_EQ(AddEvt(queue, &each), 0);
    }
    EXPECT_EQ(queue->tail->prev->prev, queue->head) << "linked both ways";
    for (uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(queue->count, 3 - i);
        EXPECT_EQ(removeMsg(queue, &message), 0);
        EXPECT_EQ(message, &messages[i]);
        EXPECT_EQ(queue->tail == nullptr, i == 2);
    }
    EXPECT_EQ(removeMsg(queue, &message), 0);
    EXPECT_EQ(message, nullptr);

    SMMutexDestroy(queue->mutex);  // queues have no end of their own
    std::free(queue);
}

using vexutils::Owned;

class EventQueue : public PlatformTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(rtraid_EventQueue_Init(), 0);
        ASSERT_EQ(rtraid_EventQueue_SetStatus(RTRAID_EVTQ_READY), 0);
    }
    void TearDown() override { EXPECT_EQ(rtraid_EventQueue_Destroy(), 0); }

    EndpointEvent power_on{RTRAID_CALLBACK_POWERON, 64, {7}};
};

TEST_F(EventQueue, EventsAreTakenOneByOne) {
    rtraid_EventQueue_Put(&power_on);
    rtraid_EventQueue_Put(&power_on);
    EXPECT_EQ(platform.messages(2).size(), 3u) << "two sizes, one head of the queue";
    for (const char* more : {"more", "no more"}) {
        const Owned<EndpointEvent> event{rtraid_EventQueue_Get()};
        EXPECT_EQ(event->bufferSize, 64u);
        EXPECT_TRUE(logged(4, std::string{more} + " events to process"));
    }
}

TEST_F(EventQueue, EveryTypeIsNamedAndATableIsNotCopied) {
    const Lines names = words(
        "? EVENT_POWERON EVENT_POWEROFF EVENT_LPC_RESET ENDPOINT_TABLE ? EVENT_INIT_FAILED ? "
        "EVENT_MCTPD_STOPPED ? ? EVENT_WARMBOOT ?");
    for (uint32_t type = 0; type < names.size(); ++type) {
        const bool table = type == RTRAID_CALLBACK_ENDPOINT_TABLE;
        platform.clear_lines();
        Owned<EndpointEvent> event{static_cast<EndpointEvent*>(vexel_alloc(8))};  // no payload
        EndpointEvent* const given = event.get();
        given->callbackType = type;
        EXPECT_EQ(rtraid_EventQueue_Put(given), 0);
        EXPECT_TRUE(names[type] == "?"
                        ? logged(2, "callbackType:UNKNOWN")
                        : logged(4, "callbackType:MCTP_CLIENT_CALLBACK_TYPE_" + names[type]));
        static_cast<void>(table ? event.release() : nullptr);  // the queue's
        const Owned<EndpointEvent> taken{rtraid_EventQueue_Get()};
        EXPECT_EQ(taken->callbackType, type);
        EXPECT_EQ(taken.get() == given, table);
    }
}

TEST_F(EventQueue, DestroyLeavesWhatIsQueuedAloneAndAllIsRefused) {
    rtraid_EventQueue_Put(&power_on);
    const Owned<EndpointEventNode> node{gpRtraid_EventQueue->head};
    const Owned<EndpointEvent> queued{node->event};
    EXPECT_EQ(rtraid_EventQueue_Destroy(), 0);
    EXPECT_EQ(queued->buffer[0], 7);
    EXPECT_EQ(rtraid_EventQueue_GetStatus(), -1);
    EXPECT_EQ(rtraid_EventQueue_SetStatus(1), -1);
    EXPECT_EQ(rtraid_EventQueue_Put(&power_on), -1);
    EXPECT_EQ(rtraid_EventQueue_Get(), nullptr);
    EXPECT_EQ(rtraid_EventQueue_Init(), 0);
    EXPECT_EQ(rtraid_EventQueue_GetStatus(), RTRAID_EVTQ_NOT_READY);
    EXPECT_EQ(rtraid_EventQueue_Get(), nullptr) << "and does not wait";
    rtraid_EventQueue_SetStatus(RTRAID_EVTQ_READY);
    platform.fail(Place::Lock);
    EXPECT_EQ(rtraid_EventQueue_Put(&power_on), 0) << "dropped, and the worker woken";
    EXPECT_EQ(rtraid_EventQueue_Get(), nullptr);
}

}  // namespace
