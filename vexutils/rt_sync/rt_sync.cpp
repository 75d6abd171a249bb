#include "rt_sync.h"

#include <pthread.h>

#include <algorithm>
#include <ctime>
#include <iterator>

#include "internal/log.h"
#include "internal/mutex_guard.h"

RTSyncGlobalStatus grtsync_Status;
KronStateEntry gKRONState[RTSYNC_KRON_ENTRIES];
uint8_t gKRONReInventoryThreadRunning;
RTThreadInfo gRTThreadInfo;
SMMutexHandle rtsync_mutex;
SMMutexHandle rtraid_kron_state_mutex;
SMMutexHandle gKronReinventoryThread_mutex;

namespace vexutils {
namespace {

// Ends a mutex, if there is one, and forgets it.
uint32_t destroy(SMMutexHandle& mutex) {
    if (mutex == nullptr) {
        return 0;
    }
    const auto result = static_cast<uint32_t>(SMMutexDestroy(mutex));
    mutex = nullptr;
    return result;
}

int start_detached(void* (*start_routine)(void*), void* arg) {
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error != 0) {
        return error;
    }
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    error = pthread_attr_setstacksize(&attributes, RTSYNC_THREAD_STACK_BYTES);
    if (error == 0) {
        pthread_t thread;
        error = pthread_create(&thread, &attributes, start_routine, arg);
    }
    pthread_attr_destroy(&attributes);
    return error;
}

}  // namespace
}  // namespace vexutils

using namespace vexutils;

// Unchecked: nobody else uses the record before this has returned.
uint32_t RTSync_Init(void) VEX_UNCHECKED {
    rtsync_mutex = SMMutexCreate(nullptr);
    if (rtsync_mutex == nullptr) {
        LOG(Level::Fatal, "<-- %s failed to create mutex", __func__);
        return 1;
    }
    grtsync_Status.flags = 0;
    grtsync_Status.phase = 0;
    return 0;
}

uint32_t RTSync_Reset(void) {
    static_cast<void>(destroy(rtsync_mutex));
    rtsync_mutex = SMMutexCreate(nullptr);
    if (rtsync_mutex == nullptr) {
        LOG(Level::Fatal, "<-- %s failed to create mutex", __func__);
        return 1;
    }
    return 0;
}

uint32_t RTSync_Destroy(void) {
    return destroy(rtsync_mutex);
}

uint32_t RTSync_LockGlobalStatus(void) {
    if (SMMutexLock(rtsync_mutex, SM_WAIT_FOREVER) != 0) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return 3;
    }
    return 0;
}

uint32_t RTSync_UnLockGlobalStatus(void) {
    return static_cast<uint32_t>(SMMutexUnLock(rtsync_mutex));
}

uint32_t RTSync_GetGlobalStatus(RTSyncGlobalStatus* out) {
    if (out == nullptr) {
        return 2;
    }
    *out = grtsync_Status;
    return 0;
}

uint32_t RTSync_SetGlobalStatus(RTSyncGlobalStatus status) {
    status.rsvd2 = grtsync_Status.rsvd2;
    grtsync_Status = status;
    return 0;
}

uint32_t RTSync_SetGlobalPoll(RTSyncGlobalStatus status) {
    const MutexGuard lock{rtsync_mutex};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return 1;
    }

    grtsync_Status.poll = status.poll;
    grtsync_Status.pollTimeA = status.pollTimeA;
    grtsync_Status.pollTimeB = status.pollTimeB;
    return 0;
}

uint32_t RTSync_updateGlobalPoll(RTSyncGlobalStatus) {
    const auto now = static_cast<uint32_t>(std::time(nullptr));
    const MutexGuard lock{rtsync_mutex};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return 1;
    }

    grtsync_Status.pollTimeA = now;
    grtsync_Status.pollTimeB = now;
    return 0;
}

uint32_t RTSync_FFThreadStart(void* (*start_routine)(void*), void* arg) {
    const int error = start_detached(start_routine, arg);
    if (error != 0) {
        LOG(Level::Fatal, "%s%s %d", "<-- err pthread", __func__, error);
        return 0;
    }
    return 1;
}

uint32_t RTSync_KronStateInit(void) {
    rtraid_kron_state_mutex = SMMutexCreate(nullptr);
    if (rtraid_kron_state_mutex == nullptr) {
        LOG(Level::Fatal, "<-- %s failed to create mutex", __func__);
        return 1;
    }
    for (KronStateEntry& entry : gKRONState) {
        entry.eid = RTSYNC_EID_FREE;
        entry.status = 0;
    }
    return 0;
}

uint32_t RTSync_SetKronStatus(uint8_t u8EID, uint8_t u8Status) {
    if (rtraid_kron_state_mutex == nullptr) {
        return 1;
    }
    const MutexGuard lock{rtraid_kron_state_mutex};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return 1;
    }

    auto* entry = std::ranges::find_if(gKRONState, [u8EID](const KronStateEntry& candidate) {
        return candidate.eid == RTSYNC_EID_FREE || candidate.eid == u8EID;
    });
    if (entry != std::end(gKRONState)) {
        entry->eid = u8EID;
        entry->status = u8Status;
    }
    return 0;  // Kept: one controller too many is dropped in silence.
}

uint32_t RTSync_GetKronStatus(uint8_t u8EID, uint8_t* pu8Status) {
    if (rtraid_kron_state_mutex == nullptr) {
        return 1;
    }
    if (pu8Status == nullptr) {
        return 2;
    }
    const MutexGuard lock{rtraid_kron_state_mutex};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return 1;
    }

    *pu8Status = 0;  // Kept: an unknown controller reads as state 0.
    const auto* entry = std::ranges::find(gKRONState, u8EID, &KronStateEntry::eid);
    if (u8EID == RTSYNC_EID_FREE || entry == std::end(gKRONState)) {
        return RTSYNC_EID_UNKNOWN;
    }
    *pu8Status = entry->status;
    return 0;
}

void RTSync_KronStateDestroy(void) {
    static_cast<void>(destroy(rtraid_kron_state_mutex));
}

uint32_t rtraid_KRONInventoryThreadHandlerMutexInit(void) {
    gKronReinventoryThread_mutex = SMMutexCreate(nullptr);
    if (gKronReinventoryThread_mutex == nullptr) {
        LOG(Level::Fatal, "<-- %s failed to create KRON Reinventory Thread mutex", __func__);
        return 1;
    }
    return 0;
}

uint32_t rtraid_KRONInventoryThreadHandlerMutexDestroy(void) {
    return destroy(gKronReinventoryThread_mutex);
}

uint32_t rtraid_GetKRONInventoryThreadFlag(uint8_t* pu8Flag) {
    if (gKronReinventoryThread_mutex == nullptr) {
        return 1;
    }
    if (pu8Flag == nullptr) {
        return 2;
    }
    const MutexGuard lock{gKronReinventoryThread_mutex};
    if (!lock) {
        LOG(Level::Fatal, "%s %s", "<-- err gKronReinventoryThread_mutex mutex fail", __func__);
        return 1;
    }

    *pu8Flag = gKRONReInventoryThreadRunning;
    LOG(Level::Fatal, "Flag read %d %s", gKRONReInventoryThreadRunning, __func__);
    return 0;
}

uint32_t rtraid_SetKRONInventoryThreadFlag(uint32_t u32Value) {
    const MutexGuard lock{gKronReinventoryThread_mutex};
    if (!lock) {
        LOG(Level::Fatal, "%s %s", "<-- err gKronReinventoryThread_mutex mutex fail", __func__);
        return 1;
    }

    LOG(Level::Fatal, "Setting flag %d %s", static_cast<int>(u32Value), __func__);
    if (u32Value > 1) {
        LOG(Level::Fatal, "%s%s", "<-- Trying to set invalid value..BUG", __func__);
        return 0;  // Kept: the refusal is told in the log only.
    }
    gKRONReInventoryThreadRunning = static_cast<uint8_t>(u32Value);
    return 0;
}
