#include "vexsim/event_threads.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "rt_sync.h"
#include "vexel.h"
#include "vexsim/block.h"
#include "vexsim/runtime_failure.h"

namespace vexsim {

namespace {

constexpr uint32_t kLastEvent = 0xFFFFFFFF;  // chosen: no callback type of the client

Block<EndpointEvent> make_event(uint32_t type, std::span<const uint8_t> payload) {
    const size_t size = sizeof(EndpointEvent) + payload.size();
    Block<EndpointEvent> event(static_cast<EndpointEvent*>(vexel_alloc(size)));
    if (event == nullptr) {
        throw RuntimeFailure("no memory for an endpoint event");
    }
    event->callbackType = type;
    event->bufferSize = static_cast<uint32_t>(payload.size());
    if (!payload.empty()) {
        std::memcpy(event->buffer, payload.data(), payload.size());
    }
    return event;
}

}  // namespace

void EventThreads::start() {
    expect_zero("rtraid_EventQueue_Init", rtraid_EventQueue_Init());
    has_queue_ = true;
    expect_zero("rtraid_EventQueue_SetStatus", rtraid_EventQueue_SetStatus(RTRAID_EVTQ_READY));
    if (RTSync_FFThreadStart(&EventThreads::work, this) != 1) {
        throw RuntimeFailure("RTSync_FFThreadStart started nothing");
    }
    has_worker_ = true;
    client_ = std::thread(&EventThreads::call_back, this);
}

// A worker that waits is not woken by the end of the queue: it gets a last event.
void EventThreads::stop() {
    if (client_.joinable()) {
        reported_ = nullptr;
        called_.release();
        client_.join();
    }
    if (has_worker_ && rtraid_EventQueue_Put(make_event(kLastEvent, {}).get()) == 0) {
        handled_.acquire();
    }
    has_worker_ = false;
    if (has_queue_) {
        rtraid_EventQueue_SetStatus(RTRAID_EVTQ_NOT_READY);
        rtraid_EventQueue_Destroy();
    }
    has_queue_ = false;
}

void EventThreads::deliver(uint32_t type, std::span<const uint8_t> payload) {
    Block<EndpointEvent> event = make_event(type, payload);
    reported_ = event.get();
    called_.release();
    put_.acquire();
    expect_zero("rtraid_EventQueue_Put", put_result_);
    if (type == RTRAID_CALLBACK_ENDPOINT_TABLE) {
        event.release();  // to the queue
    }
    handled_.acquire();
    if (failure_) {
        std::rethrow_exception(std::exchange(failure_, nullptr));
    }
}

// The client's thread.
void EventThreads::call_back() {
    for (called_.acquire(); reported_ != nullptr; called_.acquire()) {
        put_result_ = rtraid_EventQueue_Put(reported_);
        put_.release();
    }
}

// The worker's thread.
void* EventThreads::work(void* self) {
    auto& threads = *static_cast<EventThreads*>(self);
    for (bool more = true; more;) {
        const Block<EndpointEvent> event(rtraid_EventQueue_Get());
        if (event != nullptr) {
            more = threads.handle(*event);
        }
    }
    // Last, since nothing of this object may be used any more.
    threads.handled_.release();
    return nullptr;
}

bool EventThreads::handle(const EndpointEvent& event) {
    if (event.callbackType == kLastEvent) {
        return false;
    }
    try {
        handler_(event);
    } catch (...) {
        failure_ = std::current_exception();
    }
    handled_.release();
    return true;
}

}  // namespace vexsim
