#include <semaphore.h>

#include "rt_sync.h"
#include "tests/faults/scenario.h"
#include "tests/faults/world.h"

namespace faults {
namespace {

sem_t thread_ran;

}  // namespace

Scenarios sync_scenarios() {
    return {
        {"status mutex", {0, {1}}, [] { return (RTSync_Destroy(), RTSync_Init()); }},
        {"new status mutex", {0, {1}}, [] { return RTSync_Reset(); }},
        {"status",
         {0, {3}},
         [] {
             RTSyncGlobalStatus status;
             if (const uint32_t error = RTSync_LockGlobalStatus(); error != 0) {
                 return error;
             }
             RTSync_GetGlobalStatus(&status);
             RTSync_SetGlobalStatus(status);
             return RTSync_UnLockGlobalStatus();
         }},
        {"poll times", {0, {1}}, [] { return RTSync_SetGlobalPoll(grtsync_Status); }},
        {"poll time now", {0, {1}}, [] { return RTSync_updateGlobalPoll({}); }},
        {"thread",
         {1, {0}},
         [] {
             sem_init(&thread_ran, 0, 0);
             const auto body = [](void*) -> void* { return (sem_post(&thread_ran), nullptr); };
             const uint32_t started = RTSync_FFThreadStart(body, &gRTThreadInfo);
             while (started == 1 && sem_wait(&thread_ran) != 0) {
             }
             return started;
         }},
        {"reset states",
         {0, {1}},
         [] { return (RTSync_KronStateDestroy(), RTSync_KronStateInit()); }},
        {"set reset state", {0, {1}}, [] { return RTSync_SetKronStatus(7, 3); }},
        {"reset state",
         {0, {1}},
         [] {
             uint8_t status;
             gKRONState[0] = {9, 4, {}};
             return RTSync_GetKronStatus(9, &status);
         }},
        {"re-inventory mutex",
         {0, {1}},
         [] {
             rtraid_KRONInventoryThreadHandlerMutexDestroy();
             return rtraid_KRONInventoryThreadHandlerMutexInit();
         }},
        {"re-inventory flag", {0, {1}}, [] { return read(rtraid_GetKRONInventoryThreadFlag); }},
        {"set re-inventory flag", {0, {1}}, [] { return rtraid_SetKRONInventoryThreadFlag(1); }},
        {"long job filter",
         {2, {2, 0, 1}},
         [] {
             static std::vector<const wchar_t*> fqdds(200, L"RAID.Slot.3-%%1");
             const void* before = g_hybridJobData;
             updateNotifFQDD(static_cast<int32_t>(fqdds.size()), fqdds.data());
             const bool replaced = g_hybridJobData != before;
             return isFQDDEIDPresent(L"RAID.Slot.3-%1", 4, 0) == 1 ? 2 : replaced;
         }},
        {"job filter",
         {1},
         [] {
             isFQDDEIDPresent(L"RAID.Slot.9", 4, 1);
             const uint32_t result = isTAVIFQDDEIDPresent(4);
             freeHybridData(&g_hybridJobData);
             return result;
         }},
    };
}

}  // namespace faults
