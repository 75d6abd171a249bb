#include "rt_evtq.h"
#include "tests/faults/scenario.h"
#include "tests/faults/world.h"
#include "vexel.h"

namespace faults {
namespace {

int64_t put(uint32_t type) {
    auto* event = static_cast<EndpointEvent*>(room(sizeof(EndpointEvent)));
    *event = {type, 1, {7}};
    const int32_t result = rtraid_EventQueue_Put(event);
    if (type != RTRAID_CALLBACK_ENDPOINT_TABLE || result != 0) {
        vexel_free(event);
    }
    return result;
}

}  // namespace

Scenarios queue_scenarios() {
    Scenarios all;
    all.add("queue", {0, {0, -1}}, [] {
        NotifQueue* made = nullptr;
        const int32_t result = InitEvtQ(&made);
        if (made != nullptr) {
            SMMutexDestroy(made->mutex);
        }
        vexel_free(made);
        return result;
    });
    all.add("message", {0, {0, 1, 10, 11}}, [] {
        void* message = nullptr;
        const int32_t added = AddEvt(queue, queue);
        const int32_t removed = removeMsg(queue, &message);
        return added * 10 + removed;
    });
    all.add("nodes", {0, {-1}}, [] {
        const int32_t result = InsertMsgAtQueueTail(queue, queue);
        vexel_free(RemoveMsgFromQueueHead(queue));
        return result;
    });
    all.add("event queue", {0, {-1}}, [] {
        rtraid_EventQueue_Destroy();
        return rtraid_EventQueue_Init();
    });
    all.add("event", {0, {0, -1}}, [] { return put(RTRAID_CALLBACK_POWERON); });
    all.add("table event", {0, {0, -1}}, [] { return put(RTRAID_CALLBACK_ENDPOINT_TABLE); });
    all.add("taken event", {1, {1, 0}}, [] {
        rtraid_EventQueue_SetStatus(RTRAID_EVTQ_READY);
        if (gpRtraid_EventQueue->head == nullptr) {
            put(RTRAID_CALLBACK_POWERON);
        }
        const bool ready =
            gpRtraid_EventQueue->head != nullptr && rtraid_EventQueue_GetStatus() == 1;
        EndpointEvent* event = ready ? rtraid_EventQueue_Get() : nullptr;
        vexel_free(event);
        return event != nullptr;
    });
    return all;
}

}  // namespace faults
