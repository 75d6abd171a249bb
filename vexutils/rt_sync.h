/*
 * rt_sync.h - state that VEXEL's threads share outside the runtime cache: the global status record, the reset states of
 * the KRON controllers, the re-inventory flag, the job filter; and the starter of detached worker threads.
 *
 * Three pieces of state, three mutexes, never nested; each is usable after its Init function returned 0. The job filter
 * has no mutex: whoever installs and frees it keeps queries away meanwhile.
 */
#ifndef VEXUTILS_RT_SYNC_H
#define VEXUTILS_RT_SYNC_H

#include <assert.h>
#include <platform/sm.h>
#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum {
    RTSYNC_FLAG_LIVE = 0x0020,      /* flags: clear while past events are replayed after a KRON reset */
    RTSYNC_FLAG_BPAPI_HBA = 0x0200, /* flags: BPAPI_HBAFlag, a hot-plug asks for a new HBA inventory */
    RTSYNC_FLAG_KRON = 0x0400,      /* flags: KRONFlag, the same for KRON controllers */
    RTSYNC_FLAG_PCIESSD = 0x0800,   /* flags: PCIeSSDFlag, the same for PCIe SSDs */

    RTSYNC_PHASE_HBA_REINVENTORY = 0x0010, /* phase: an HBA re-inventory runs */
    RTSYNC_PHASE_INVENTORY = 0x0020,       /* phase: inventory runs */
    RTSYNC_PHASE_REINVENTORY = 0x0100,     /* phase: a controller re-inventory is in progress */

    RTSYNC_KRON_ENTRIES = 12,  /* Source: gKRONState is 48 bytes for every client */
    RTSYNC_EID_FREE = 0xFF,    /* endpoint id of an unused entry */
    RTSYNC_EID_UNKNOWN = 0xFF, /* result: no entry holds this EID */

    RTSYNC_JOB_FQDD_CHARACTERS = 64, /* room for an FQDD in the job filter, with its terminator */

    RTSYNC_THREAD_STACK_BYTES = 102400, /* stack of a thread of RTSync_FFThreadStart */
};

/* The global status: five 32-bit words for every client. */
typedef struct RTSyncGlobalStatus {
    uint16_t flags; /* RTSYNC_FLAG_...; the other bits are VEXEL's and are carried through */
    uint16_t rsvd2; /* never written by the library */
    uint32_t phase; /* RTSYNC_PHASE_...; likewise */
    uint32_t poll;      /* VEXEL's, opaque here */
    uint32_t pollTimeA; /* poll time stamp, seconds since the epoch */
    uint32_t pollTimeB; /* likewise */
} RTSyncGlobalStatus;
static_assert(sizeof(RTSyncGlobalStatus) == 20, "record shared with VEXEL");
static_assert(offsetof(RTSyncGlobalStatus, phase) == 4, "record shared with VEXEL");

/* Reset state of one KRON controller; used entries form a prefix of gKRONState. */
typedef struct KronStateEntry {
    uint8_t eid;    /* MCTP endpoint id, or RTSYNC_EID_FREE */
    uint8_t status; /* reset state as VEXEL defines it, opaque here */
    uint8_t rsvd2[2];
} KronStateEntry;
static_assert(sizeof(KronStateEntry) == 4, "layout shared with VEXEL");

/* Storage for VEXEL's own thread bookkeeping; the library does not look into it. */
typedef struct RTThreadInfo {
    uint32_t words[4];
} RTThreadInfo;
static_assert(sizeof(RTThreadInfo) == 16, "record shared with VEXEL");

/* One controller of the job filter. */
typedef struct HybridJobInfo {
    uint32_t ctrId; /* low byte: endpoint id of the controller once known, 0 before */
    wchar_t *FQDD;  /* RTSYNC_JOB_FQDD_CHARACTERS; null if there was no text or no memory */
} HybridJobInfo;

/* The controllers that the running job concerns. */
typedef struct HybridJobData {
    int32_t count;
    HybridJobInfo **hybridJobInfo; /* count entries, any of which may be null */
} HybridJobData;
static_assert(sizeof(void *) != 4 || sizeof(HybridJobData) == 8, "record shared with VEXEL");
static_assert(sizeof(void *) != 4 || sizeof(HybridJobInfo) == 8, "record shared with VEXEL");

extern RTSyncGlobalStatus grtsync_Status;              /* guarded by rtsync_mutex */
extern KronStateEntry gKRONState[RTSYNC_KRON_ENTRIES]; /* guarded by rtraid_kron_state_mutex */
extern uint8_t gKRONReInventoryThreadRunning;          /* 0 or 1; guarded by gKronReinventoryThread_mutex */
extern RTThreadInfo gRTThreadInfo;
extern void *g_hybridJobData;                      /* a HybridJobData; null while jobs are not filtered */
extern SMMutexHandle rtsync_mutex;                 /* null until RTSync_Init */
extern SMMutexHandle rtraid_kron_state_mutex;      /* null until RTSync_KronStateInit */
extern SMMutexHandle gKronReinventoryThread_mutex; /* null until rtraid_KRONInventoryThreadHandlerMutexInit */

/* ---- Global status --------------------------------------------------------------------------------------------- */

/*
 * Creates rtsync_mutex, which must not exist yet, and clears flags and phase; poll and the two times stay.
 * Returns: 0; 1 no mutex, the record unchanged.
 */
uint32_t RTSync_Init(void);

/* Replaces rtsync_mutex by a new one; the record stays. Nobody may hold it. Returns: 0; 1 no mutex. */
uint32_t RTSync_Reset(void);

/* Ends rtsync_mutex, which nobody may hold. Returns: 0, also if there is none; else what SMMutexDestroy returned. */
uint32_t RTSync_Destroy(void);

/* Takes rtsync_mutex, waiting without limit. Returns: 0 held by the caller; 3 not taken. */
uint32_t RTSync_LockGlobalStatus(void);

/* Releases rtsync_mutex, which the caller holds. Returns: what SMMutexUnLock returned, 0 released. */
uint32_t RTSync_UnLockGlobalStatus(void);

/*
 * Copies the global status to out. Returns: 0; 2 out is null, nothing copied.
 * Locks: the caller holds rtsync_mutex (RTSync_LockGlobalStatus); a change is lock, get, set, unlock.
 */
uint32_t RTSync_GetGlobalStatus(RTSyncGlobalStatus *out);

/* Writes flags (16 bits), phase, poll and both times. Returns: 0. Locks: the caller holds rtsync_mutex. */
uint32_t RTSync_SetGlobalStatus(RTSyncGlobalStatus status);

/*
 * Writes poll and both times of status; flags and phase stay.
 * Returns: 0; 1 lock not taken. Locks: takes rtsync_mutex itself, never call it holding that.
 */
uint32_t RTSync_SetGlobalPoll(RTSyncGlobalStatus status);

/* Sets both times to now; the argument is ignored. Returns and Locks: as RTSync_SetGlobalPoll. */
uint32_t RTSync_updateGlobalPoll(RTSyncGlobalStatus status);

/* ---- Worker thread --------------------------------------------------------------------------------------------- */

/*
 * Starts start_routine(arg) on a detached thread of RTSYNC_THREAD_STACK_BYTES of stack; its result is dropped.
 * start_routine: not null. arg: handed over as it is, may be null.
 * Returns: 1 started, 0 not started: the one function of the library with this sense.
 */
uint32_t RTSync_FFThreadStart(void *(*start_routine)(void *), void *arg);

/* ---- Reset states of the KRON controllers ------------------------------------------------------------------------ */

/*
 * Creates rtraid_kron_state_mutex, which must not exist yet, and empties the table. rtcache_Init calls it.
 * Returns: 0; 1 no mutex, the table unchanged.
 */
uint32_t RTSync_KronStateInit(void);

/*
 * Stores the reset state of a controller, taking a free entry for a new one; a thirteenth is dropped in silence.
 * u8EID: endpoint id, 0 to 254; what is stored for 255 is never found.
 * Returns: 0; 1 no table or no lock. Locks: takes rtraid_kron_state_mutex.
 */
uint32_t RTSync_SetKronStatus(uint8_t u8EID, uint8_t u8Status);

/*
 * Reads the reset state of a controller.
 * u8EID: endpoint id, 0 to 254; 255 is never found. pu8Status: the state, or 0 if the EID is unknown.
 * Returns: 0 found; RTSYNC_EID_UNKNOWN; 1 no table or no lock, *pu8Status unchanged; 2 pu8Status is null.
 * Locks: takes rtraid_kron_state_mutex.
 */
uint32_t RTSync_GetKronStatus(uint8_t u8EID, uint8_t *pu8Status);

/* Ends rtraid_kron_state_mutex, if there is one; the table keeps its contents. rtcache_Destroy calls it. */
void RTSync_KronStateDestroy(void);

/* ---- Re-inventory flag ------------------------------------------------------------------------------------------- */

/* Creates gKronReinventoryThread_mutex, which must not exist yet; the flag stays. Returns: 0; 1 no mutex. */
uint32_t rtraid_KRONInventoryThreadHandlerMutexInit(void);

/* Ends gKronReinventoryThread_mutex. Returns: 0, also if there is none; else what SMMutexDestroy returned. */
uint32_t rtraid_KRONInventoryThreadHandlerMutexDestroy(void);

/*
 * Reads whether the KRON re-inventory thread runs: *pu8Flag 0 or 1.
 * Returns: 0; 1 no mutex or no lock, *pu8Flag unchanged; 2 pu8Flag is null. Locks: takes gKronReinventoryThread_mutex.
 */
uint32_t rtraid_GetKRONInventoryThreadFlag(uint8_t *pu8Flag);

/*
 * Stores 0 or 1; a greater value is refused in the log only.
 * Returns: 0, also for a refused value; 1 no lock. Locks: takes gKronReinventoryThread_mutex.
 */
uint32_t rtraid_SetKRONInventoryThreadFlag(uint32_t u32Value);

/* ---- Job filter -------------------------------------------------------------------------------------------------- */

/*
 * Installs the list of controllers that the running job concerns, in place of a list that is installed.
 * count: FQDDs; below 1 nothing is installed and what is installed stays. fqdds: count texts, of which the first 63
 * characters count; a null text makes an entry that only an endpoint id finds. "%%" in a text stands for "%".
 * With fqdds null or without memory for the list nothing changes; without memory for an entry that entry is null.
 */
void updateNotifFQDD(int32_t count, const wchar_t **fqdds);

/*
 * Says whether the running job concerns a device.
 * fqdd: address of the controller or of a device behind it, may be null. eid: endpoint id of the controller.
 * byId: 0 finds the first entry whose FQDD occurs in fqdd and binds eid to it; else finds the first entry bound to eid. An
 * entry that is not bound yet answers to 0.
 * Returns: 1 it does, or jobs are not filtered; 0 it does not.
 */
uint32_t isFQDDEIDPresent(const wchar_t *fqdd, uint8_t eid, uint32_t byId);

/*
 * Unbinds the first boot-storage controller (FQDD that begins with "TAVI" or "ROR") of the list. eid: not used.
 * Returns: 1, always: jobs concern boot-storage controllers whether listed or not.
 */
uint32_t isTAVIFQDDEIDPresent(uint8_t eid);

/* Frees the list at *data and sets *data to null. data: &g_hybridJobData; null, or null at it, is allowed. */
void freeHybridData(void **data);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* VEXUTILS_RT_SYNC_H */
