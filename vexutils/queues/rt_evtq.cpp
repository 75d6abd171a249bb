#include "rt_evtq.h"

#include <atomic>
#include <iterator>

#include "internal/log.h"
#include "internal/mutex_guard.h"
#include "internal/owned.h"

EndpointEventQueue* gpRtraid_EventQueue;

namespace vexutils {
namespace {

constexpr std::size_t kCopyBytes = offsetof(EndpointEvent, buffer) + 1;

// The status is a plain word for the daemon, and read without the mutex here.
std::atomic_ref<int32_t> status_of(EndpointEventQueue& queue) {
    return std::atomic_ref<int32_t>{queue.status};
}

// The line that names a callback type; null for one that has no name.
const char* callback_line(uint32_t type) {
    static constexpr const char* kLines[] = {
        nullptr,
        "callbackType:MCTP_CLIENT_CALLBACK_TYPE_EVENT_POWERON",
        "callbackType:MCTP_CLIENT_CALLBACK_TYPE_EVENT_POWEROFF",
        "callbackType:MCTP_CLIENT_CALLBACK_TYPE_EVENT_LPC_RESET",
        "callbackType:MCTP_CLIENT_CALLBACK_TYPE_ENDPOINT_TABLE",
        nullptr,
        "callbackType:MCTP_CLIENT_CALLBACK_TYPE_EVENT_INIT_FAILED",
        nullptr,
        "callbackType:MCTP_CLIENT_CALLBACK_TYPE_EVENT_MCTPD_STOPPED",
        nullptr,
        nullptr,
        "callbackType:MCTP_CLIENT_CALLBACK_TYPE_EVENT_WARMBOOT",
    };
    return type < std::size(kLines) ? kLines[type] : nullptr;
}

// The 9 bytes that a copy has; the payload's first byte is read only if there is one.
Owned<EndpointEvent> copy_of(const EndpointEvent& event) {
    Owned<EndpointEvent> copy{static_cast<EndpointEvent*>(vexel_alloc(kCopyBytes))};
    if (copy != nullptr) {
        copy->callbackType = event.callbackType;
        copy->bufferSize = event.bufferSize;
        copy->buffer[0] = event.bufferSize != 0 ? event.buffer[0] : 0;
    }
    return copy;
}

EndpointEventNode*& head_of(EndpointEventQueue& queue) VEX_REQUIRES(queue.mutex) {
    return queue.head;
}

// The pointer that a new last node is linked to.
EndpointEventNode** end_of(EndpointEventQueue& queue) VEX_REQUIRES(queue.mutex) {
    EndpointEventNode** end = &head_of(queue);
    while (*end != nullptr) {
        end = &(*end)->next;
    }
    return end;
}

}  // namespace
}  // namespace vexutils

using namespace vexutils;

int32_t rtraid_EventQueue_Init(void) {
    gpRtraid_EventQueue = make_owned<EndpointEventQueue>().release();  // ended by Destroy
    if (gpRtraid_EventQueue == nullptr) {
        return -1;
    }
    EndpointEventQueue& queue = *gpRtraid_EventQueue;
    status_of(queue).store(RTRAID_EVTQ_BUILDING, std::memory_order_relaxed);
    queue.mutex = SMMutexCreate(nullptr);
    queue.event = queue.mutex != nullptr ? SMEventCreate(nullptr, 1) : nullptr;
    if (queue.event == nullptr) {
        static_cast<void>(rtraid_EventQueue_Destroy());
        return -1;
    }
    status_of(queue).store(RTRAID_EVTQ_NOT_READY, std::memory_order_relaxed);
    return 0;
}

int32_t rtraid_EventQueue_Destroy(void) {
    if (gpRtraid_EventQueue == nullptr) {
        return 0;
    }
    EndpointEventQueue& queue = *gpRtraid_EventQueue;
    status_of(queue).store(RTRAID_EVTQ_NOT_READY, std::memory_order_relaxed);
    if (queue.mutex != nullptr) {
        SMMutexDestroy(queue.mutex);
    }
    if (queue.event != nullptr) {
        SMEventDestroy(queue.event);
    }
    vexel_free(gpRtraid_EventQueue);  // Kept: what is still queued is not freed.
    gpRtraid_EventQueue = nullptr;
    return 0;
}

// Unchecked: gives the mutex back also when it was not taken.
int32_t rtraid_EventQueue_Put(EndpointEvent* pEvent) VEX_UNCHECKED {
    if (gpRtraid_EventQueue == nullptr) {
        LOG(Level::Error, "%s", "<-- exit, EVTQ not initialized yet");
        return -1;
    }
    if (pEvent == nullptr) {
        LOG(Level::Error, "%s", "<-- exit, the incoming event is NULL");
        return -1;
    }
    if (pEvent->bufferSize != 0 && pEvent->buffer[0] != 0) {
        LOG(Level::Error, "pEvent->bufferSize:[%u]", pEvent->bufferSize);
    }
    const char* line = callback_line(pEvent->callbackType);
    if (line != nullptr) {
        LOG(Level::Trace, "%s", line);
    } else {
        LOG(Level::Error, "%s", "callbackType:UNKNOWN");
    }

    Owned<EndpointEventNode> node = make_owned<EndpointEventNode>();
    if (node == nullptr) {
        return -1;
    }
    Owned<EndpointEvent> event{pEvent->callbackType == RTRAID_CALLBACK_ENDPOINT_TABLE
                                   ? pEvent
                                   : copy_of(*pEvent).release()};
    if (event == nullptr) {
        return -1;
    }
    EndpointEventQueue& queue = *gpRtraid_EventQueue;
    const bool locked = SMMutexLock(queue.mutex, SM_WAIT_FOREVER) == 0;
    if (locked) {
        EndpointEventNode** end = end_of(queue);
        if (end == &head_of(queue)) {
            LOG(Level::Error, "Head of the node %p", static_cast<void*>(node.get()));
        }
        node->event = event.release();
        *end = node.release();  // both the queue's, until Get
    }
    // Kept: also after a failed lock, which is not reported; the event is dropped then.
    SMEventSet(queue.event);
    SMMutexUnLock(queue.mutex);
    LOG(Level::Trace, "%s", "<-- exit");
    return 0;
}

EndpointEvent* rtraid_EventQueue_Get(void) {
    if (gpRtraid_EventQueue == nullptr) {
        LOG(Level::Trace, "%s", "<-- exit, gpRtraid_EventQueue is NULL");
        return nullptr;
    }
    LOG(Level::Trace, "%s", "check for the status");
    EndpointEventQueue& queue = *gpRtraid_EventQueue;
    const int32_t status = status_of(queue).load(std::memory_order_relaxed);
    LOG(Level::Trace, "%s", "got the status");
    if (status != RTRAID_EVTQ_READY) {
        LOG(Level::Trace, "%s", "<-- exit, EVTQ is not READY");
        return nullptr;
    }
    LOG(Level::Trace, "%s", "waitOnEvent");
    SMEventWait(queue.event, SM_WAIT_FOREVER);
    LOG(Level::Trace, "%s", "Lock the queue");
    MutexGuard lock{queue.mutex};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return nullptr;
    }

    LOG(Level::Trace, "%s", "get the entry of the queue");
    const Owned<EndpointEventNode> node{head_of(queue)};
    if (node == nullptr) {
        SMEventReset(queue.event);
        lock.unlock();
        LOG(Level::Trace, "%s", "<-- exit, no entry");
        return nullptr;
    }
    LOG(Level::Trace, "%s", "get the entry next of the queue");
    head_of(queue) = node->next;
    if (head_of(queue) == nullptr) {
        LOG(Level::Trace, "%s", "no more events to process");
        SMEventReset(queue.event);
    } else {
        LOG(Level::Trace, "%s", "more events to process");
        SMEventSet(queue.event);
    }
    lock.unlock();
    LOG(Level::Trace, "%s", "<-- exit");
    return node->event;
}

int32_t rtraid_EventQueue_GetStatus(void) {
    if (gpRtraid_EventQueue == nullptr) {
        return -1;
    }
    return status_of(*gpRtraid_EventQueue).load(std::memory_order_relaxed);
}

int32_t rtraid_EventQueue_SetStatus(uint32_t u32Status) {
    if (gpRtraid_EventQueue == nullptr) {
        return -1;
    }
    EndpointEventQueue& queue = *gpRtraid_EventQueue;
    const MutexGuard lock{queue.mutex};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return -1;
    }

    status_of(queue).store(static_cast<int32_t>(u32Status), std::memory_order_relaxed);
    return 0;
}
