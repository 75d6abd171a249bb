// Which lock guards what the public headers declare, for clang's check (lock_annotations.h). Clang
// reads this before every source of the library, so that none can miss it; no source includes it.
//
// Not guarded on purpose, and so not listed: the lock handles and gpRtraid_EventQueue, which change
// only while one thread runs; the limits of the cache, each a word that the daemon may set; the
// NVMe tables and session handles (rt_shm/nvme_table.h), sIDToValueMap, gRTCache_EventCount and the
// status of the event queue, which are read and written atomically.
#ifndef VEXUTILS_INTERNAL_LOCK_CONTRACT_H
#define VEXUTILS_INTERNAL_LOCK_CONTRACT_H

#include "internal/lock_annotations.h"
#include "internal/vexel_state.h"
#include "notifQue.h"
#include "rt_cache.h"
#include "rt_evtq.h"
#include "rt_shm.h"
#include "rt_sync.h"
#include "vexel.h"

extern "C" {

// ---- Locks, and the order in which they are taken ----
struct VEX_LOCK SMMutexObject;
int SMMutexLock(SMMutexHandle mutex, int timeoutMs) VEX_ACQUIRES_IF(0, mutex);
int SMMutexUnLock(SMMutexHandle mutex) VEX_RELEASES(mutex);
extern SMMutexHandle rtsync_mutex VEX_OUTSIDE(logmutex);
extern SMMutexHandle rtraid_kron_state_mutex VEX_OUTSIDE(logmutex);
extern SMMutexHandle gKronReinventoryThread_mutex VEX_OUTSIDE(logmutex);
extern SMMutexHandle mutexRtCache VEX_OUTSIDE(rtsync_mutex, rtraid_kron_state_mutex,
                                              gKronReinventoryThread_mutex);

// ---- logmutex ----
decltype(hasLogDepthExceeded) hasLogDepthExceeded VEX_REQUIRES(logmutex);
decltype(hexdump) hexdump VEX_TAKES(logmutex);
decltype(vexel_wlog) vexel_wlog VEX_TAKES(logmutex);

// ---- rtsync_mutex and the locks of the KRON state ----
extern decltype(grtsync_Status) grtsync_Status VEX_GUARDED_BY(rtsync_mutex);
extern decltype(gKRONState) gKRONState VEX_GUARDED_BY(rtraid_kron_state_mutex);
extern decltype(gKRONReInventoryThreadRunning) gKRONReInventoryThreadRunning
    VEX_GUARDED_BY(gKronReinventoryThread_mutex);

decltype(RTSync_LockGlobalStatus) RTSync_LockGlobalStatus VEX_ACQUIRES_IF(0, rtsync_mutex);
decltype(RTSync_UnLockGlobalStatus) RTSync_UnLockGlobalStatus VEX_RELEASES(rtsync_mutex);
decltype(RTSync_GetGlobalStatus) RTSync_GetGlobalStatus VEX_REQUIRES(rtsync_mutex);
decltype(RTSync_SetGlobalStatus) RTSync_SetGlobalStatus VEX_REQUIRES(rtsync_mutex);
decltype(RTSync_SetGlobalPoll) RTSync_SetGlobalPoll VEX_TAKES(rtsync_mutex);
decltype(RTSync_updateGlobalPoll) RTSync_updateGlobalPoll VEX_TAKES(rtsync_mutex);
decltype(RTSync_SetKronStatus) RTSync_SetKronStatus VEX_TAKES(rtraid_kron_state_mutex);
decltype(RTSync_GetKronStatus) RTSync_GetKronStatus VEX_TAKES(rtraid_kron_state_mutex);
decltype(rtraid_GetKRONInventoryThreadFlag) rtraid_GetKRONInventoryThreadFlag
    VEX_TAKES(gKronReinventoryThread_mutex);
decltype(rtraid_SetKRONInventoryThreadFlag) rtraid_SetKRONInventoryThreadFlag
    VEX_TAKES(gKronReinventoryThread_mutex);

// ---- Queues: each has its mutex, which guards the list in it ----
int32_t InsertMsgAtQueueTail(NotifQueue* pQueue, void* pMsg) VEX_REQUIRES(pQueue->mutex);
NotifNode* RemoveMsgFromQueueHead(NotifQueue* pQueue) VEX_REQUIRES(pQueue->mutex);

// ---- mutexRtCache ----
extern decltype(cache_StorageEIDInfo) cache_StorageEIDInfo VEX_GUARDED_BY(mutexRtCache);
extern decltype(cache_AllEIDs) cache_AllEIDs VEX_GUARDED_BY(mutexRtCache);
extern decltype(cache_PDs) cache_PDs VEX_GUARDED_BY(mutexRtCache);
extern decltype(cache_VDs) cache_VDs VEX_GUARDED_BY(mutexRtCache);
extern decltype(cache_Bkplanes) cache_Bkplanes VEX_GUARDED_BY(mutexRtCache);
extern decltype(cache_Extndrs) cache_Extndrs VEX_GUARDED_BY(mutexRtCache);
extern decltype(cache_CMDsCount) cache_CMDsCount VEX_GUARDED_BY(mutexRtCache);
extern decltype(cache_Events) cache_Events VEX_GUARDED_BY(mutexRtCache);
extern decltype(cache_Events_PD_ChObj) cache_Events_PD_ChObj VEX_GUARDED_BY(mutexRtCache);
extern decltype(cache_Events_delayed) cache_Events_delayed VEX_GUARDED_BY(mutexRtCache);
extern decltype(cache_Events_PD_ChObj_delayed) cache_Events_PD_ChObj_delayed
    VEX_GUARDED_BY(mutexRtCache);

decltype(rtcache_GetLock) rtcache_GetLock VEX_ACQUIRES_IF(0, mutexRtCache);

decltype(rtcache_GetStorageEIDStatusNoLock) rtcache_GetStorageEIDStatusNoLock
    VEX_REQUIRES(mutexRtCache);
decltype(rtcache_SetStorageEIDStatusNoLock) rtcache_SetStorageEIDStatusNoLock
    VEX_REQUIRES(mutexRtCache);
decltype(rtcache_GetStorageEIDTypeNoLock) rtcache_GetStorageEIDTypeNoLock
    VEX_REQUIRES(mutexRtCache);
decltype(rtcache_GetModularIdNoLock) rtcache_GetModularIdNoLock VEX_REQUIRES(mutexRtCache);
decltype(GetIndexFromEID) GetIndexFromEID VEX_REQUIRES(mutexRtCache);
decltype(rtcache_SetCachedObject) rtcache_SetCachedObject VEX_REQUIRES(mutexRtCache);
decltype(rtcache_GetCachedObject) rtcache_GetCachedObject VEX_REQUIRES(mutexRtCache);
decltype(rtcache_SetCachedEvent) rtcache_SetCachedEvent VEX_REQUIRES(mutexRtCache);
decltype(rtcache_SetCachedEvent_roll_up) rtcache_SetCachedEvent_roll_up VEX_REQUIRES(mutexRtCache);
decltype(rtcache_CopyCachedEvent) rtcache_CopyCachedEvent VEX_REQUIRES(mutexRtCache);
decltype(rtcache_SetDelayedCachedEvent) rtcache_SetDelayedCachedEvent VEX_REQUIRES(mutexRtCache);
decltype(rtcache_PurgeDelayedCachedEvents) rtcache_PurgeDelayedCachedEvents
    VEX_REQUIRES(mutexRtCache);
decltype(rtcache_GetAdapterFQDD) rtcache_GetAdapterFQDD VEX_REQUIRES(mutexRtCache);
decltype(rtcache_GetBatteryFQDD) rtcache_GetBatteryFQDD VEX_REQUIRES(mutexRtCache);
decltype(rtcache_GetEnclosureFQDD) rtcache_GetEnclosureFQDD VEX_REQUIRES(mutexRtCache);
decltype(rtcache_PrintCache) rtcache_PrintCache VEX_REQUIRES(mutexRtCache);
decltype(rtmpi2_UpdateControllerCommandStatus) rtmpi2_UpdateControllerCommandStatus
    VEX_REQUIRES(mutexRtCache);
decltype(rtpil_IfNVMeSSD_isNotPresent) rtpil_IfNVMeSSD_isNotPresent VEX_REQUIRES(mutexRtCache);
decltype(RTSHM_readBayIDAndSlotNoFromEID) RTSHM_readBayIDAndSlotNoFromEID
    VEX_REQUIRES(mutexRtCache);
decltype(updateNVMeSSDDriveStatusToBP) updateNVMeSSDDriveStatusToBP VEX_REQUIRES(mutexRtCache);
decltype(RTSHM_UpdateSharedMem) RTSHM_UpdateSharedMem VEX_REQUIRES(mutexRtCache);
decltype(rtshm_IsDriveBehindKRONfromBPAPIByEID) rtshm_IsDriveBehindKRONfromBPAPIByEID
    VEX_REQUIRES(mutexRtCache);

decltype(rtcache_Destroy) rtcache_Destroy VEX_TAKES(mutexRtCache);
decltype(rtcache_FreeMem) rtcache_FreeMem VEX_TAKES(mutexRtCache);
decltype(rtcache_FreeObjectLevel) rtcache_FreeObjectLevel VEX_TAKES(mutexRtCache);
decltype(rtcache_GetStorageEIDCount) rtcache_GetStorageEIDCount VEX_TAKES(mutexRtCache);
decltype(rtcache_GetStorageEIDs) rtcache_GetStorageEIDs VEX_TAKES(mutexRtCache);
decltype(rtcache_GetStorageEIDStatus) rtcache_GetStorageEIDStatus VEX_TAKES(mutexRtCache);
decltype(rtcache_SetStorageEIDStatus) rtcache_SetStorageEIDStatus VEX_TAKES(mutexRtCache);
decltype(rtcache_GetStorageEIDType) rtcache_GetStorageEIDType VEX_TAKES(mutexRtCache);
decltype(rtcache_SetStorageEIDType) rtcache_SetStorageEIDType VEX_TAKES(mutexRtCache);
decltype(rtcache_SetModularId) rtcache_SetModularId VEX_TAKES(mutexRtCache);
decltype(rtcache_UpdateCachedObject) rtcache_UpdateCachedObject VEX_TAKES(mutexRtCache);
decltype(rtcache_GetCachedEvents) rtcache_GetCachedEvents VEX_TAKES(mutexRtCache);
decltype(rtcache_GetEventsByObjType) rtcache_GetEventsByObjType VEX_TAKES(mutexRtCache);
decltype(rtshm_getNVMeExtcard) rtshm_getNVMeExtcard VEX_TAKES(mutexRtCache);
decltype(processNVMeExtndrcardInfo) processNVMeExtndrcardInfo VEX_TAKES(mutexRtCache);
decltype(rtshm_getNVMeBPs) rtshm_getNVMeBPs VEX_TAKES(mutexRtCache);
decltype(processNVMeBackplaneInfo) processNVMeBackplaneInfo VEX_TAKES(mutexRtCache);
decltype(rtshm_getPCIessdExtcard) rtshm_getPCIessdExtcard VEX_TAKES(mutexRtCache);
decltype(processPciessdExtndrcardInfo) processPciessdExtndrcardInfo VEX_TAKES(mutexRtCache);
decltype(rtshm_getPCIessdBp) rtshm_getPCIessdBp VEX_TAKES(mutexRtCache);
decltype(processPciessdBackplaneInfo) processPciessdBackplaneInfo VEX_TAKES(mutexRtCache);

}  // extern "C"

#endif  // VEXUTILS_INTERNAL_LOCK_CONTRACT_H
