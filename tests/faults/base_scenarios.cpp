// The trace log, memory, text, flags, global states, job filter, queues.
#include <semaphore.h>

#include <cstring>

#include "internal/vexel_state.h"
#include "tests/faults/scenario.h"

namespace faults {
namespace {

using vexutils::log_state;
using vexutils::LogFile;
using vexutils::LogInit;

void use_log_file() {
    log_state.file = LogFile::Enabled;
    log_state.init = LogInit::Done;
}

template <class T>
int64_t freed(T* block, void (*free_block)(void*) = vexel_free) {
    const bool made = block != nullptr;
    free_block(block);
    return made;
}

sem_t thread_ran;

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

void base_scenarios(Scenarios& all) {
    all.add("blink", {0, {1}}, [] { return BlinkPCIeSSD(1, 2); });
    all.add("stop to blink", {0, {1}}, [] { return UnBlinkPCIeSSD(1, 2, 3); });
    all.add("identifier", {0}, [] {
        char text[30];
        return ConvertPPIDtoHRIFormat("CN0123456789012345678A00", text);
    });
    all.add("HBA flag", {0, {1}}, [] { return IsvexelHBAInventoryDisabled(); });
    all.add("TAVI flag", {0, {1}}, [] { return IsvexelTAVIInventoryDisabled(); });
    all.add("log flag", {1, {2}}, [] {
        log_state.file = LogFile::NotChecked;
        return IsvexelLogDisabled();
    });
    all.add("stress polling", {1, {0}}, [] {
        int first, second;
        return IsstressTAVIPollEnabled(&first, &second);
    });
    all.add("dump request", {1, {0}}, [] {
        static std::string request;
        vexutils::flag_paths.dump_request = (request = file("rtdump", "")).c_str();
        return IsDumpEnabled();
    });
    all.add("trimmed text", {2, {0}}, [] {
        char text[] = "  ab ";
        StripLeadingTrailingSpace(text, 5);
        return 2 * (text[0] == 'a');
    });
    all.add("friendly name", {1, {0}}, [] { return freed(getFriendlyFQDDName(L"RAID.Slot.1-1")); });
    all.add("log depth", {0}, [] { return hasLogDepthExceeded(1000); });
    all.add("dumped bytes", {0}, [] {
        use_log_file();
        return hexdump("0123456789abcdef0123", 20);
    });
    all.add("start and end of the log", {0}, [] {
        use_log_file();
        const int result = rt_log_init();
        rt_log_Exit();
        return result;
    });
    all.add("lines of both lengths", {0}, [] {
        static const std::wstring text(2000, L'w');
        use_log_file();
        vexel_wlog(0, "short", L"text");
        vexel_wlog(0, "long", text.c_str());
        return pthread_mutex_trylock(&logmutex) + pthread_mutex_unlock(&logmutex);
    });
    all.add("block", {1, {0}}, [] { return freed(vexel_alloc(10)); });
    all.add("array", {1, {0}}, [] {
        void** table = vexel_alloc_2darray(3, 4, 5);
        vexel_free_2darray(table, 3);
        return table != nullptr;
    });
    all.add("bounded copies", {0}, [] {
        wchar_t wide[4];
        char narrow[4];
        wcsncpy_safe(wide, L"abcdef", 3);
        return memcpy_safe(narrow, 4, "abc", 4);
    });
    all.add("sleep", {0}, [] { return (vexel_sleep(0, 1, nullptr), 0); });

    all.add("status mutex", {0, {1}}, [] { return (RTSync_Destroy(), RTSync_Init()); });
    all.add("new status mutex", {0, {1}}, [] { return RTSync_Reset(); });
    all.add("status", {0, {3}}, [] {
        RTSyncGlobalStatus status;
        if (const uint32_t error = RTSync_LockGlobalStatus(); error != 0) {
            return error;
        }
        RTSync_GetGlobalStatus(&status);
        RTSync_SetGlobalStatus(status);
        return RTSync_UnLockGlobalStatus();
    });
    all.add("poll times", {0, {1}}, [] {
        return either({RTSync_SetGlobalPoll(grtsync_Status), RTSync_updateGlobalPoll({})});
    });
    all.add("thread", {1, {0}}, [] {
        sem_init(&thread_ran, 0, 0);
        const auto body = [](void*) -> void* { return (sem_post(&thread_ran), nullptr); };
        const uint32_t started = RTSync_FFThreadStart(body, &gRTThreadInfo);
        while (started == 1 && sem_wait(&thread_ran) != 0) {
        }
        return started;
    });
    all.add("reset states", {0, {1}},
            [] { return (RTSync_KronStateDestroy(), RTSync_KronStateInit()); });
    all.add("reset state", {0, {1}}, [] {
        uint8_t status;
        gKRONState[0] = {9, 4, {}};
        return either({RTSync_GetKronStatus(9, &status), RTSync_SetKronStatus(7, 3)});
    });
    all.add("re-inventory mutex", {0, {1}}, [] {
        rtraid_KRONInventoryThreadHandlerMutexDestroy();
        return rtraid_KRONInventoryThreadHandlerMutexInit();
    });
    all.add("re-inventory flag", {0, {1}}, [] {
        return either(
            {read(rtraid_GetKRONInventoryThreadFlag), rtraid_SetKRONInventoryThreadFlag(1)});
    });
    all.add("long job filter", {2, {2, 0, 1}}, [] {
        static std::vector<const wchar_t*> fqdds(200, L"RAID.Slot.3-%%1");
        const void* before = g_hybridJobData;
        updateNotifFQDD(static_cast<int32_t>(fqdds.size()), fqdds.data());
        const bool replaced = g_hybridJobData != before;
        return isFQDDEIDPresent(L"RAID.Slot.3-%1", 4, 0) == 1 ? 2 : replaced;
    });
    all.add("job filter", {1}, [] {
        isFQDDEIDPresent(L"RAID.Slot.9", 4, 1);
        const uint32_t result = isTAVIFQDDEIDPresent(4);
        freeHybridData(&g_hybridJobData);
        return result;
    });

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
    all.add("refusals of the states", {1222555}, [] {
        char text[30];
        return digits({RTSync_GetGlobalStatus(nullptr), RTSync_GetKronStatus(1, nullptr),
                       rtraid_GetKRONInventoryThreadFlag(nullptr),
                       ConvertPPIDtoHRIFormat(nullptr, text), ConvertPPIDtoHRIFormat(text, nullptr),
                       int64_t{5} + (getFriendlyFQDDName(nullptr) != nullptr)});
    });
    all.add("refusals of the queues", {19199999}, [] {
        void* message;
        return digits({InitEvtQ(nullptr), AddEvt(nullptr, &message), removeMsg(nullptr, &message),
                       removeMsg(queue, nullptr), InsertMsgAtQueueTail(nullptr, &message),
                       rtraid_EventQueue_Put(nullptr),
                       -(RemoveMsgFromQueueHead(nullptr) == nullptr)});
    });
}

}  // namespace faults
