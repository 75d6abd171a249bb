#include "rt_evtq.h"

#include <malloc.h>

#include <chrono>
#include <future>

#include "internal/owned.h"
#include "tests/support/platform_test.h"

namespace {

class EventQueue : public PlatformTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(rtraid_EventQueue_Init(), 0);
        ASSERT_EQ(rtraid_EventQueue_SetStatus(RTRAID_EVTQ_READY), 0);
    }
    void TearDown() override { EXPECT_EQ(rtraid_EventQueue_Destroy(), 0); }

    // What Get gives, as type, size and first payload byte; freed.
    static std::vector<uint32_t> get() {
        const vexutils::Owned<EndpointEvent> event{rtraid_EventQueue_Get()};
        if (event == nullptr) {
            return {};
        }
        return {event->callbackType, event->bufferSize, event->buffer[0]};
    }
};

EndpointEvent event_of(uint32_t type, uint32_t size = 0, uint8_t payload = 0) {
    return {type, size, {payload}};
}

TEST_F(EventQueue, EveryTypeIsNamedAndQueuedInOrder) {
    const Lines names = words(
        "? POWERON POWEROFF LPC_RESET TABLE ? INIT_FAILED ? MCTPD_STOPPED ? ? "
        "WARMBOOT ?");
    for (uint32_t type = 0; type < 13; ++type) {
        SCOPED_TRACE(type);
        const bool table = type == RTRAID_CALLBACK_ENDPOINT_TABLE;
        platform.clear_lines();
        auto event = vexutils::make_owned<EndpointEvent>();
        event->callbackType = type;
        EXPECT_EQ(rtraid_EventQueue_Put(event.get()), 0);
        EXPECT_TRUE(names[type] == "?"
                        ? logged(2, "callbackType:UNKNOWN")
                        : logged(4, std::string{"callbackType:MCTP_CLIENT_CALLBACK_TYPE_"} +
                                        (table ? "ENDPOINT_" : "EVENT_") + names[type]));
        static_cast<void>(table ? event.release() : nullptr);  // the queue's
    }
    for (uint32_t type = 0; type < 13; ++type) {
        EXPECT_EQ(get(), (std::vector<uint32_t>{type, 0, 0}));
    }
}

TEST_F(EventQueue, PutAndGetSpeakOnlyTheseLines) {
    EndpointEvent event = event_of(RTRAID_CALLBACK_POWERON, 1, 7);
    rtraid_EventQueue_Put(&event);
    char head[60];
    snprintf(head, sizeof(head), "Head of the node %p",
             static_cast<void*>(gpRtraid_EventQueue->head));
    EXPECT_EQ(platform.messages(2), (Lines{"pEvent->bufferSize:[1]", head}));
    EXPECT_EQ(platform.messages(4),
              (Lines{"callbackType:MCTP_CLIENT_CALLBACK_TYPE_EVENT_POWERON", "<-- exit"}));
    rtraid_EventQueue_Put(&event);
    EXPECT_EQ(platform.messages(2).size(), 3u) << "only the first node is the head";
    for (const char* more : {"more events to process", "no more events to process"}) {
        platform.clear_lines();
        get();
        EXPECT_EQ(platform.messages(4),
                  (Lines{"check for the status", "got the status", "waitOnEvent", "Lock the queue",
                         "get the entry of the queue", "get the entry next of the queue", more,
                         "<-- exit"}));
    }
}

TEST_F(EventQueue, CopiesHaveOnePayloadByteAndTablesAreNotCopied) {
    // Ends where a payload would start.
    const vexutils::Owned<EndpointEvent> bare{static_cast<EndpointEvent*>(vexel_alloc(8))};
    bare->callbackType = RTRAID_CALLBACK_WARMBOOT;
    EXPECT_EQ(rtraid_EventQueue_Put(bare.get()), 0);
    EndpointEvent event = event_of(RTRAID_CALLBACK_POWEROFF, 64, 0xAB);
    EXPECT_EQ(rtraid_EventQueue_Put(&event), 0);
    event.buffer[0] = 0;
    EXPECT_EQ(get(), (std::vector<uint32_t>{RTRAID_CALLBACK_WARMBOOT, 0, 0}));
    EndpointEvent* copy = rtraid_EventQueue_Get();
    EXPECT_NE(copy, &event);
    EXPECT_EQ(copy->bufferSize, 64u);
    EXPECT_EQ(copy->buffer[0], 0xAB);
#ifdef __SANITIZE_ADDRESS__
    EXPECT_EQ(malloc_usable_size(copy), 9u);
#endif
    vexel_free(copy);

    auto* table = vexutils::make_owned<EndpointEvent>().release();
    table->callbackType = RTRAID_CALLBACK_ENDPOINT_TABLE;
    EXPECT_EQ(rtraid_EventQueue_Put(table), 0);
    EXPECT_EQ(rtraid_EventQueue_Get(), table) << "a table is handed over itself";
    vexel_free(table);
}

TEST_F(EventQueue, GetWaitsForAPutWhenReadyOnly) {
    EndpointEvent event = event_of(RTRAID_CALLBACK_POWERON);
    rtraid_EventQueue_Put(&event);
    for (const uint32_t status : {0u, 2u, 0xFFFFFFFFu}) {
        EXPECT_EQ(rtraid_EventQueue_SetStatus(status), 0);
        EXPECT_EQ(rtraid_EventQueue_GetStatus(), static_cast<int32_t>(status));
        EXPECT_EQ(rtraid_EventQueue_Get(), nullptr);
    }
    EXPECT_EQ(platform.count_logged(4, "<-- exit, EVTQ is not READY"), 3);
    rtraid_EventQueue_SetStatus(RTRAID_EVTQ_READY);
    EXPECT_EQ(get()[0], 1u) << "it waited in the queue";

    SMEventSet(gpRtraid_EventQueue->event);
    EXPECT_EQ(rtraid_EventQueue_Get(), nullptr) << "a wake-up without an event";
    EXPECT_EQ(platform.messages(4).back(), "<-- exit, no entry");

    auto waiting = std::async(std::launch::async, [] { return get(); });
    EXPECT_EQ(waiting.wait_for(std::chrono::milliseconds{50}), std::future_status::timeout);
    event.callbackType = RTRAID_CALLBACK_POWEROFF;
    rtraid_EventQueue_Put(&event);
    EXPECT_EQ(waiting.get()[0], 2u);
}

TEST_F(EventQueue, AFailedLockDropsThePutAndWakesTheWorker) {
    EndpointEvent event = event_of(RTRAID_CALLBACK_POWERON);
    auto* table = vexutils::make_owned<EndpointEvent>().release();
    table->callbackType = RTRAID_CALLBACK_ENDPOINT_TABLE;
    for (EndpointEvent* put : {&event, table}) {
        platform.fail(Place::Lock);
        EXPECT_EQ(rtraid_EventQueue_Put(put), 0);
        EXPECT_EQ(platform.messages(4).back(), "<-- exit");
        EXPECT_TRUE(get().empty());
    }
    rtraid_EventQueue_Put(&event);
    platform.fail(Place::Lock);
    EXPECT_EQ(rtraid_EventQueue_Get(), nullptr);
    EXPECT_TRUE(logged(1, "<-- err mutex failrtraid_EventQueue_Get"));
    platform.fail(Place::Lock);
    EXPECT_EQ(rtraid_EventQueue_SetStatus(0), -1);
    EXPECT_EQ(get()[0], 1u) << "still queued, still ready";
}

TEST_F(EventQueue, DestroyLeavesWhatIsQueuedAlone) {
    EndpointEvent event = event_of(RTRAID_CALLBACK_POWERON, 1, 9);
    rtraid_EventQueue_Put(&event);
    const vexutils::Owned<EndpointEventNode> node{gpRtraid_EventQueue->head};
    const vexutils::Owned<EndpointEvent> queued{node->event};
    EXPECT_EQ(rtraid_EventQueue_Destroy(), 0);
    EXPECT_EQ(queued->buffer[0], 9);
    EXPECT_EQ(gpRtraid_EventQueue, nullptr);
    EXPECT_EQ(rtraid_EventQueue_Init(), 0);
    EXPECT_EQ(gpRtraid_EventQueue->head, nullptr);
    EXPECT_EQ(rtraid_EventQueue_GetStatus(), RTRAID_EVTQ_NOT_READY);
}

TEST_F(EventQueue, WithoutAQueueEverythingIsRefused) {
    EXPECT_EQ(rtraid_EventQueue_Put(nullptr), -1);
    EXPECT_TRUE(logged(2, "<-- exit, the incoming event is NULL"));
    EXPECT_EQ(rtraid_EventQueue_Destroy(), 0);
    EndpointEvent event = event_of(RTRAID_CALLBACK_POWERON);
    platform.clear_lines();
    EXPECT_EQ(rtraid_EventQueue_Destroy(), 0);
    EXPECT_EQ(rtraid_EventQueue_GetStatus(), -1);
    EXPECT_EQ(rtraid_EventQueue_SetStatus(1), -1);
    EXPECT_TRUE(platform.lines().empty());
    EXPECT_EQ(rtraid_EventQueue_Put(&event), -1);
    EXPECT_EQ(platform.messages(2).back(), "<-- exit, EVTQ not initialized yet");
    EXPECT_EQ(rtraid_EventQueue_Get(), nullptr);
    EXPECT_EQ(platform.messages(4).back(), "<-- exit, gpRtraid_EventQueue is NULL");
}

}  // namespace
