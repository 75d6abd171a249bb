#include <semaphore.h>

#include "rt_sync.h"
#include "tests/faults/scenario.h"
#include "tests/faults/world.h"

namespace faults {
namespace {

sem_t thread_ran;

}  // namespace

Scenarios sync_scenarios() {
    Scenarios all;
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
        return either(RTSync_SetGlobalPoll(grtsync_Status), RTSync_updateGlobalPoll({}));
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
        return either(RTSync_GetKronStatus(9, &status), RTSync_SetKronStatus(7, 3));
    });
    all.add("re-inventory mutex", {0, {1}}, [] {
        rtraid_KRONInventoryThreadHandlerMutexDestroy();
        return rtraid_KRONInventoryThreadHandlerMutexInit();
    });
    all.add("re-inventory flag", {0, {1}}, [] {
        return either(read(rtraid_GetKRONInventoryThreadFlag),
                      rtraid_SetKRONInventoryThreadFlag(1));
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
    return all;
}

}  // namespace faults
