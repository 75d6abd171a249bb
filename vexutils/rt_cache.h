/*
 * rt_cache.h - the runtime cache: which endpoints there are, and the objects and events that VEXEL has read from each.
 *
 * Every endpoint has a row: its position in the endpoint table, which indexes all per-endpoint arrays. An EID is never an
 * index into them. One lock, mutexRtCache, guards everything here. Functions named NoLock, the object functions and the
 * recording functions expect the caller to hold it (rtcache_GetLock takes it, SMMutexUnLock(mutexRtCache) gives it back);
 * all others take it themselves and must not be called by its holder.
 *
 * Results, where not said otherwise: 0 done, 1 not found or not registered, 2 bad argument, 3 lock not taken or no memory.
 * Before rtcache_Init and after rtcache_Destroy, functions that take the lock return 3 and the others report "not found".
 *
 * The cache stores references: a node or event-data record handed to it is a vexel_alloc block that it owns from then on.
 */
#ifndef VEXUTILS_RT_CACHE_H
#define VEXUTILS_RT_CACHE_H

#include <assert.h>
#include <platform/sm.h>
#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#include "rt_dup.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum {
    RTCACHE_OK = 0,
    RTCACHE_NOT_FOUND = 1,
    RTCACHE_BAD_ARGUMENT = 2,
    RTCACHE_NO_LOCK = 3, /* or no memory */

    RTCACHE_EID_FREE = 0xFF,   /* a free position of the endpoint table; never matches an endpoint */
    RTCACHE_EID_SLOTS = 255,   /* slots of the arrays indexed by EID value */
    RTCACHE_BACKPLANE_SLOTS = 6,
    RTCACHE_EXTENDER_SLOTS = 17,
    RTCACHE_ID_MAP_SIZE = 16,
    RTCACHE_EVENTCACHE_DEPTH = 384, /* list events that an endpoint keeps between two drains */
    RTCACHE_DISK_BITMAP_BYTES = 2048,
    RTCACHE_DISK_SLOTS = 2048, /* event-data slots per endpoint */
    RTCACHE_DELAYED_BITMAP_BYTES = 512,

    /* Key types of rtcache_SetCachedObject and rtcache_GetCachedObject. */
    RTCACHE_KEY_EID = 1,          /* an EID, object key = its endpoint table position */
    RTCACHE_KEY_CONTROLLER = 2,   /* RtCacheControllerNode, object key = EID */
    RTCACHE_KEY_DISK = 3,         /* RtCacheDiskNode: disks and enclosures share one key space per row */
    RTCACHE_KEY_VIRTUAL_DISK = 4, /* RtCacheVirtualDiskNode */
    RTCACHE_KEY_BACKPLANE = 5,    /* BpStatusInfo, object key = bay id */
    RTCACHE_KEY_EXTENDER = 6,     /* ExtenderCardInfo, object key = PCIe slot */
    RTCACHE_KEY_COMMANDS = 8,     /* one flat block, object key = EID */

    /* Endpoint type codes that the library tests; the set is VEXEL's. */
    RTCACHE_TYPE_KRON = 1,
    RTCACHE_TYPE_NVME = 7,
    RTCACHE_TYPE_HBA = 10,
    RTCACHE_TYPE_PCIESSD = 11,
    RTCACHE_TYPE_CONTROLLER_12 = 12,
    RTCACHE_TYPE_BOOT_CARD = 17,
    RTCACHE_TYPE_KRON_18 = 18,

    RTCACHE_REGISTER = 1, /* action of rtcache_UpdateCachedObject; any other removes */
};

/* ---- Limits ------------------------------------------------------------------------------------------------------ */

/*
 * Sizes of the cache, writable until rtcache_Init, which captures them. Afterwards every bound is the smaller of the
 * value then and the value now; physical disks also at most 2048, adapters at most 255.
 */
extern uint32_t max_adapters;                    /* 108: endpoint table positions, rows of every per-endpoint array */
extern uint32_t max_physicaldevices;             /* 2048: disks and enclosures per endpoint */
extern uint32_t max_logicaldevices;              /* 254: virtual disks per endpoint */
extern uint32_t max_enclosures_attached_to_kron; /* 20: enclosures per KRON controller; VEXEL's alone */
extern uint32_t max_pciessds;                    /* 104: PCIe SSDs; VEXEL's alone */
extern uint32_t max_pciessd_backplanes;          /* 5: greatest backplane key that can be fetched */
extern uint32_t max_pciessd_extndrs;             /* 16: extender cards; logged, the keys are fixed at 0 to 16 */
extern uint32_t backplane_drive_thermalpoll_interval; /* 10: seconds between VEXEL's polls of drives on backplanes */
extern uint32_t insight_drive_thermalpoll_interval;   /* 60: seconds, likewise */

/* ---- Endpoint table ---------------------------------------------------------------------------------------------- */

/* What VEXEL tells about an endpoint. */
typedef struct StorageEIDAttr {
    uint8_t status[2]; /* set and read together, byte 0 the low byte; not interpreted by the cache */
    uint8_t eidType;   /* RTCACHE_TYPE_..., 0 after removal */
    uint8_t modularId; /* 0 unknown */
} StorageEIDAttr;
static_assert(sizeof(StorageEIDAttr) == 4, "record shared with VEXEL");

typedef struct StorageEIDTable {
    uint32_t eidCount;       /* positions in use, holes included; shrinks only at rtcache_Destroy */
    uint8_t *storageEID;     /* max_adapters EIDs, RTCACHE_EID_FREE where free */
    StorageEIDAttr *eidInfo; /* max_adapters, parallel to storageEID */
} StorageEIDTable;

extern StorageEIDTable cache_StorageEIDInfo;       /* guarded by mutexRtCache */
extern uint8_t sIDToValueMap[RTCACHE_ID_MAP_SIZE]; /* by id; read and written without a lock */
extern SMMutexHandle mutexRtCache;                 /* null outside rtcache_Init .. rtcache_Destroy */

/* ---- Cached nodes: built by whoever stores them, owned by the cache once stored ------------------------------------ */

#pragma pack(push, 1)
/* PCI identity of a controller. */
typedef struct RtCachePciInfo {
    uint8_t locationA; /* published slot: (u8)((locationB << 7) | (locationA >> 1)) */
    uint8_t locationB;
    uint16_t vendor, device, subvendor, subdevice;
} RtCachePciInfo;
#pragma pack(pop)
static_assert(sizeof(RtCachePciInfo) == 10, "record shared with VEXEL");

/* Key type 2. Every pointer is owned by the node and may be null. */
typedef struct RtCacheControllerNode {
    uint32_t objType; /* RT_OBJ_ADAPTER or RT_NODE_PCIESSD_ADAPTER */
    StorageObjectRecord *adapter;
    StorageObjectRecord *battery;
    StorageObjectRecord *driver;
    void *adapterKey; /* flat block */
    StorageObjectRecord *foreignConfig;
    RtCachePciInfo *pciInfo; /* null: carries no PCI information */
    void *extra;             /* flat block */
    uint32_t opaque;
} RtCacheControllerNode;

/* A link's record; the three members are one pointer, named for the kind of the node. */
typedef struct RtCacheEnclosureLink {
    union {
        struct { StorageObjectRecord *Obj; } physicalDisk;
        struct { StorageObjectRecord *Obj; } extEncl;
        struct { StorageObjectRecord *Obj; } backPlane;
    } enclType;
} RtCacheEnclosureLink;

/* Key type 3: RT_OBJ_PHYSICAL_DISK, RT_OBJ_ENCLOSURE or RT_OBJ_BACKPLANE. */
typedef struct RtCacheDiskNode {
    uint32_t objType;
    RtCacheEnclosureLink *enclObj; /* owned, may be null */
} RtCacheDiskNode;

/* Key type 4. */
typedef struct RtCacheVirtualDiskNode {
    uint32_t objType;
    StorageObjectRecord *Obj; /* owned, may be null */
} RtCacheVirtualDiskNode;

/* Key type 5: an NVMe backplane. */
typedef struct BpStatusInfo {
    uint8_t u8BayID;
    uint8_t u8SlotNumInBay; /* first NVMe slot, through which the backplane was found */
    uint8_t u8SlotCount;
    uint8_t u8Byte3; /* byte 3 of the bay entry */
    uint16_t au16DriveStatus;
    StorageObjectRecord *backplane; /* owned */
} BpStatusInfo;

/* Key type 6: a PCIe extender card. */
typedef struct ExtenderCardInfo {
    wchar_t *name; /* owned, may be null */
    wchar_t *FQDD; /* owned, may be null */
    uint8_t u8BayID;
} ExtenderCardInfo;

/* Slots; exported for readers that hold the lock. Null outside rtcache_Init .. rtcache_Destroy, the fixed ones cleared. */
extern RtCacheControllerNode *cache_AllEIDs[RTCACHE_EID_SLOTS]; /* by EID value */
extern RtCacheDiskNode ***cache_PDs;                            /* [row][disk number] */
extern RtCacheVirtualDiskNode ***cache_VDs;                     /* [row][virtual disk number] */
extern BpStatusInfo *cache_Bkplanes[RTCACHE_BACKPLANE_SLOTS];   /* by bay id */
extern ExtenderCardInfo *cache_Extndrs[RTCACHE_EXTENDER_SLOTS]; /* by PCIe slot */
extern void *cache_CMDsCount[RTCACHE_EID_SLOTS];                /* by EID value */

/* ---- Event areas, one row per endpoint ----------------------------------------------------------------------------- */

/* What is to go to the system event log for an event; built by VEXEL, belongs to exactly one event. */
typedef struct EventData {
    char *messageId; /* owned: "PDR3", "CTL48", ... */
    uintptr_t opaque;
    void *messageArgs; /* owned block, may be null */
} EventData;

typedef struct RtCacheEvent {
    uint32_t objType;
    uint32_t eventType;
    uint32_t objKey;
    EventData *eventData; /* owned, may be null */
} RtCacheEvent;

typedef struct RtCacheEventRow {
    uint32_t eventCount; /* valid records */
    RtCacheEvent events[RTCACHE_EVENTCACHE_DEPTH];
} RtCacheEventRow;

/* Changed disks: disk k is bit (k mod 8) of byte (k div 8). */
typedef struct RtCacheDiskChangeRow {
    uint8_t bitmap[RTCACHE_DISK_BITMAP_BYTES];
    EventData *eventData[RTCACHE_DISK_SLOTS]; /* owned, may be null */
} RtCacheDiskChangeRow;

/* An event of a list that VEXEL works through. */
typedef struct RtCacheEventNode {
    uint32_t objType;
    uint32_t eventType;
    uint32_t objKey;
    void *eventData; /* an EventData, owned by the node; may be null */
    struct RtCacheEventNode *next;
} RtCacheEventNode;

typedef struct RtCacheDelayedEvent {
    uint16_t objType;
    uint16_t eventType;
    uint32_t objKey;
} RtCacheDelayedEvent;

typedef struct RtCacheDelayedRow {
    uint32_t eventCount; /* valid records */
    RtCacheDelayedEvent events[RTCACHE_EVENTCACHE_DEPTH];
} RtCacheDelayedRow;

typedef struct RtCacheDelayedBitmap {
    uint8_t bitmap[RTCACHE_DELAYED_BITMAP_BYTES];
} RtCacheDelayedBitmap;

#if UINTPTR_MAX == UINT32_MAX
static_assert(sizeof(RtCacheControllerNode) == 36, "node shared with VEXEL");
static_assert(sizeof(BpStatusInfo) == 12, "record shared with VEXEL");
static_assert(sizeof(ExtenderCardInfo) == 12, "record shared with VEXEL");
static_assert(sizeof(RtCacheEventRow) == 6148, "row shared with VEXEL");
static_assert(sizeof(RtCacheDiskChangeRow) == 10240, "row shared with VEXEL");
static_assert(sizeof(RtCacheEventNode) == 20, "node shared with VEXEL");
#endif
static_assert(sizeof(RtCacheDelayedRow) == 3076, "row shared with VEXEL");
static_assert(sizeof(RtCacheDelayedBitmap) == 512, "row shared with VEXEL");

extern RtCacheEventRow *cache_Events;                       /* max_adapters rows */
extern RtCacheDiskChangeRow *cache_Events_PD_ChObj;         /* max_adapters rows */
extern RtCacheDelayedRow *cache_Events_delayed;             /* max_adapters rows */
extern RtCacheDelayedBitmap *cache_Events_PD_ChObj_delayed; /* max_adapters rows */

/* Nodes put into event lists so far; the teardown clears it. Raised atomically, VEXEL may set it. */
extern uint32_t gRTCache_EventCount;

/* ---- Life, lock, id map -------------------------------------------------------------------------------------------- */

/*
 * Allocates the cache, captures the limits, creates mutexRtCache and the KRON state table. On a cache that is in use it
 * first runs the teardown.
 * Returns: 0; 1 a lock could not be created; 3 no memory (what was allocated is released by the next call).
 */
uint32_t rtcache_Init(void);

/*
 * Ends the cache: frees all it owns, the lock and the KRON state table. What a lock that is not taken keeps it from
 * freeing, the next rtcache_Init frees. Returns: 0. Locks: takes mutexRtCache.
 */
uint32_t rtcache_Destroy(void);

/*
 * Takes mutexRtCache, waiting without limit, and keeps it; SMMutexUnLock(mutexRtCache) gives it back.
 * Returns: 0 the caller holds it; 3 it does not.
 */
uint32_t rtcache_GetLock(void);

/* Stores a value, its low 8 bits, under an id of 0 to 15. Returns: 0; 1 id above 15. Locks: none. */
uint32_t rtcache_SetID(uint32_t id, uint32_t value);

/* Reads the value of an id, 0 if never set. Returns: 0; 1 value null or id above 15, nothing written. Locks: none. */
uint32_t rtcache_GetID(uint32_t id, uint8_t *value);

/* ---- Endpoints ----------------------------------------------------------------------------------------------------- */

/* Counts the positions in use. Returns: the low 8 bits of eidCount; 3 also without the lock: the two look the same. */
uint32_t rtcache_GetStorageEIDCount(void);

/*
 * Copies the table's header: the count and the two array pointers, not the arrays, which the caller then reads without
 * the lock. Returns: 0; 2 table null; 3.
 */
uint32_t rtcache_GetStorageEIDs(StorageEIDTable *table);

/*
 * Copies the attributes of the last position that holds the EID.
 * Returns: 0, also if there is none (attributes unchanged); 2 attributes null; 3.
 */
uint32_t rtcache_GetStorageEIDStatus(uint32_t eid, StorageEIDAttr *attributes);

/* Copies the attributes of the first position that holds the EID. Returns: 0; 1 none; 2 attributes null. */
uint32_t rtcache_GetStorageEIDStatusNoLock(uint32_t eid, StorageEIDAttr *attributes);

/* Writes both status bytes, the low one to byte 0, at every position that holds the EID. Returns: 0, also if none; 3. */
uint32_t rtcache_SetStorageEIDStatus(uint32_t eid, uint32_t status16);

/* As rtcache_SetStorageEIDStatus, for a holder of the lock. Returns: 0, also if none or without a cache. */
uint32_t rtcache_SetStorageEIDStatusNoLock(uint32_t eid, uint32_t status16);

/*
 * Reads the type of the first position that holds the EID.
 * Returns: 0, also if there is none (type unchanged); 2 type null; 3.
 */
uint32_t rtcache_GetStorageEIDType(uint32_t eid, uint8_t *type);

/* As rtcache_GetStorageEIDType, for a holder of the lock. Returns: 0; 1 no such EID; 2 type null. */
uint32_t rtcache_GetStorageEIDTypeNoLock(uint32_t eid, uint8_t *type);

/* Writes the type, its low 8 bits, at the first position that holds the EID. Returns: 0, also if none; 3. */
uint32_t rtcache_SetStorageEIDType(uint32_t eid, uint32_t type);

/* Reads the modular id of the first position that holds the EID; 0 if there is none. Returns: 0; 1 none; 2 output null. */
uint32_t rtcache_GetModularIdNoLock(uint32_t eid, uint8_t *modularId);

/* Writes the modular id, its low 8 bits, at the first position that holds the EID. Returns: 0, also if none; 3. */
uint32_t rtcache_SetModularId(uint32_t eid, uint32_t modularId);

/*
 * Finds an endpoint's row. Unlike the look-ups above it searches all positions, whatever the count.
 * Returns: the row; 255 if no position holds the EID (255 itself included). Locks: the caller holds mutexRtCache.
 */
uint32_t GetIndexFromEID(uint32_t eid);

/*
 * Registers or removes an endpoint.
 * action: RTCACHE_REGISTER takes the first free position (an EID registered twice has two); any other value frees every
 * position that holds this EID with this type. eid: 0 to 254. type: RTCACHE_TYPE_... or another 8-bit code. modularId: its
 * low 8 bits, 0 unknown. A reused row inherits what its predecessor left: drain and free an endpoint's objects before
 * removing it.
 * Returns: 0; 2 table full or EID above 254; 3.
 */
uint32_t rtcache_UpdateCachedObject(uint32_t action, uint32_t eid, uint32_t type, uint32_t modularId);

/* ---- Objects ------------------------------------------------------------------------------------------------------- */

/*
 * Stores an object in its slot; the cache owns it from then on. What the slot held is not freed: the caller frees it first.
 * keyType: RTCACHE_KEY_...; for RTCACHE_KEY_EID the object's first byte is an EID that is written at position objKey.
 * eid: 0 to 254, whatever the key type. objKey: as RTCACHE_KEY_... says; a disk number below max_physicaldevices, a virtual
 * disk's below max_logicaldevices. object: may be null (empties the slot) except for RTCACHE_KEY_EID.
 * Returns: 0; 1 EID not registered (key types 3 and 4); 2 bad argument or key beyond its slots.
 * Locks: the caller holds mutexRtCache.
 */
uint32_t rtcache_SetCachedObject(uint32_t keyType, uint32_t eid, uint16_t objKey, void *object);

/*
 * Fetches what a slot holds, which may be null; valid while the lock is held. For RTCACHE_KEY_EID, *object is the address of
 * the position. keyType, eid: as above. object: not null.
 * Returns: 0; 1 EID not registered (key types 3 and 4); 2 bad argument or key beyond its slots: *object unchanged.
 * Locks: the caller holds mutexRtCache.
 */
uint32_t rtcache_GetCachedObject(uint32_t keyType, uint32_t eid, uint16_t objKey, void **object);

/* ---- Events -------------------------------------------------------------------------------------------------------- */

/*
 * Records an event without event data. Events of disks in external enclosures behind an HBA are dropped.
 * eid: 0 to 254. objType: RT_OBJ_...; with eventType 3 (the object changed), a disk is noted as one bit instead of in the
 * list. objKey: the object's key.
 * Returns: 0 recorded or dropped; 1 EID not registered; 2 EID above 254, or a key behind an HBA that can be no disk's.
 * Locks: the caller holds mutexRtCache.
 */
uint32_t rtcache_SetCachedEvent(uint32_t eid, uint32_t objType, uint32_t eventType, uint32_t objKey);

/*
 * Records an event with its event data, of any disk. Arguments and Returns: as rtcache_CopyCachedEvent.
 * Locks: the caller holds mutexRtCache.
 */
uint32_t rtcache_SetCachedEvent_roll_up(uint32_t eid, uint32_t objType, uint32_t eventType, uint32_t objKey,
                                        EventData *eventData);

/*
 * Records an event. The 385th of a list since the last drain starts it again and drops the others; of a disk number
 * without a slot nothing is noted.
 * eid, objType, eventType, objKey: as rtcache_SetCachedEvent, whose filter is not applied.
 * eventData: may be null. It belongs to this event alone, and to the cache once the result is 0, until a drain hands it
 * back. A disk holds one: on NVMe endpoints new data replaces and frees it, on others only "PDR5" frees "PDR3", and what
 * is replaced otherwise, or dropped with its list, is let go of unfreed. Data for a disk number without a slot is freed.
 * Returns: 0; 1 EID not registered, the data stays the caller's.
 * Locks: the caller holds mutexRtCache.
 */
uint32_t rtcache_CopyCachedEvent(uint32_t eid, uint32_t objType, uint32_t eventType, uint32_t objKey, EventData *eventData);

/*
 * Drains an endpoint: hands over all its events and leaves it without any.
 * events, disks: not null; one row each.
 * Returns: 0; 1 EID not registered; 2 null output; 3 lock not taken or no memory. A failure drains nothing; without memory
 * for disks, *events is null.
 * Locks: takes mutexRtCache.
 * Owns: the caller both rows and every event data in them, vexel_free (of event data: id, arguments, then itself).
 */
uint32_t rtcache_GetCachedEvents(uint32_t eid, RtCacheEventRow **events, RtCacheDiskChangeRow **disks);

/*
 * Turns what a drain handed over into a list: the records in order, then the changed disks by number (as type 3, event 3),
 * each pushed in front of what *head points to, so that the last comes first. gRTCache_EventCount grows by the nodes.
 * eventList, pdArea: the drained rows, not null; unchanged, they stay the caller's. *head: null or a list.
 * Returns: 0; 2 null argument; 3 no memory, *head unchanged.
 * Owns: the caller each node, and its event data, which belongs to the node from now on, vexel_free.
 * Locks: none; the rows are the caller's own.
 * Source: what the list holds, and in which order, is chosen here.
 */
uint32_t rtcache_ConvertCacheToEvent(const void *eventList, const void *pdArea, RtCacheEventNode **head);

/*
 * Takes the events of one object type out of an endpoint's, as a list made as rtcache_ConvertCacheToEvent makes it; with
 * type 3 the changed disks too. The others stay, in order. eid: 0 to 254. objType: RT_OBJ_... *head: null or a list.
 * Returns: 0, also if there are none; 1 EID not registered; 2 head null; 3 lock not taken or no memory: nothing is taken.
 * Owns: the caller, as above. Locks: takes mutexRtCache. Source: as above.
 */
uint32_t rtcache_GetEventsByObjType(uint32_t eid, uint32_t objType, RtCacheEventNode **head);

/*
 * Holds an event back, without event data, until the endpoint's command is over. The 385th of a list since the last
 * purge starts it again.
 * eid, objType, eventType, objKey: as rtcache_CopyCachedEvent; the types keep their low 16 bits.
 * Returns: 0; 1 EID not registered; 2 EID above 254.
 * Locks: the caller holds mutexRtCache.
 */
uint32_t rtcache_SetDelayedCachedEvent(uint32_t eid, uint32_t objType, uint32_t eventType, uint32_t objKey);

/*
 * Moves an endpoint's held back events to its ordinary ones, in order; a full list starts again, as when recording.
 * dcmdOpcode: the command that ended, for the log.
 * Returns: 0; 1 EID not registered; 2 EID above 254.
 * Locks: the caller holds mutexRtCache.
 */
uint32_t rtcache_PurgeDelayedCachedEvents(uint32_t eid, int32_t dcmdOpcode);

/* ---- Teardown ------------------------------------------------------------------------------------------------------ */

/*
 * Frees records with what each owns, which is what the copy of its kind (rt_dup.h) allocates: by objType, and never what
 * such a copy shares with its source. An owned pointer that is null, all bits set, or that less one, in 32 bits or in a
 * pointer's, is empty.
 * objects: count consecutive records in one vexel_alloc block, freed too; null is allowed. Locks: none; the caller sees to
 * it that nobody else uses them.
 */
void rtcache_FreeRMObjects(StorageObjectRecord *objects, uint32_t count);

/*
 * Frees one level of an endpoint's objects and empties their slots.
 * eid: 0 to 254. level: RTCACHE_KEY_CONTROLLER (which frees the node under every EID that has it), RTCACHE_KEY_DISK or
 * RTCACHE_KEY_VIRTUAL_DISK.
 * Returns: 0, also if there were none; 1 EID not registered (disks and virtual disks); 2 bad argument; 3.
 * Locks: takes mutexRtCache.
 */
uint32_t rtcache_FreeObjectLevel(uint32_t eid, uint32_t level);

/*
 * Frees all cached objects, events and arrays; only rtcache_Destroy, which calls it, may follow. Without the lock it frees
 * nothing, unless the arrays are what a failed rtcache_Init or a refused rtcache_Destroy left, which have no lock.
 * Locks: takes mutexRtCache.
 */
void rtcache_FreeMem(void);

/* ---- Look-ups by FQDD ----------------------------------------------------------------------------------------------- */

/*
 * Reads the FQDD of a controller or PCIe SSD adapter. eid: 0 to 254.
 * Returns: text of the cache, valid while the lock is held; null if there is none. Locks: the caller holds mutexRtCache.
 */
const wchar_t *rtcache_GetAdapterFQDD(uint32_t eid);

/* Reads the FQDD of a controller's battery. eid, Returns, Locks: as rtcache_GetAdapterFQDD. */
const wchar_t *rtcache_GetBatteryFQDD(uint32_t eid);

/*
 * Copies the FQDD of an enclosure or backplane. eid: 0 to 254. enclId: its object key. out: receives the copy, null if there
 * is no such enclosure, no FQDD or no memory.
 * Returns: the enclosure's position; 0 also if there is no such enclosure or out is null. Locks: the caller holds mutexRtCache.
 * Owns: *out belongs to the caller, vexel_free.
 */
uint8_t rtcache_GetEnclosureFQDD(uint32_t eid, uint32_t enclId, wchar_t **out);

/*
 * Builds the FQDD of a PCIe SSD from the shared-memory tables; a drive without an extender card names PCIe slot 255.
 * globalSlot: 0 to 31; others have no position.
 * Returns: a text of at most 59 characters; null if its bay or slot is unknown, a region is not readable or there is no
 * memory. Owns: the caller, vexel_free. Locks: none.
 */
char *vexel_GetPCIeSSDFQDD(uint32_t globalSlot);

/*
 * Writes the FQDDs of all cached objects to "/tmp/vexel_cache.log", if that file exists (a link to one does not count).
 * Returns: the result of close; -1 if there is no such file. Locks: the caller holds mutexRtCache.
 */
int rtcache_PrintCache(void);

/* ---- Command status of controllers and drives ----------------------------------------------------------------------- */

enum {
    RTPIL_CONTROLLERS = 116, /* entries of g_rtpil_Controller_Status */
    RTPIL_MCTP_COMMAND_STATUS_BYTES = 1275,
    RTPIL_HBA_COMMUNICATION_STATUS_BYTES = 26,

    RTPIL_COMMUNICATION_FAILED = 1, /* bits 0 to 2 of status: more than 10 commands in a row failed */
    RTPIL_COMMUNICATION_GOOD = 3,   /* also reported of an unknown EID */

    RTPIL_COMMAND_SUCCESS = 0, /* rtmpi2_UpdateControllerCommandStatus: communication is good */
    RTPIL_COMMAND_FAILED = 1,
    RTPIL_COMMAND_RESET = 4,       /* clears count and bits 0 to 6 of status */
    RTPIL_COMMAND_CLEAR_COUNT = 5, /* clears the count alone */
    RTPIL_COMMAND_LAST = 6,        /* 2, 3 and 6 are communication states, stored as they are */
};

/* One controller or drive. VEXEL fills in the EIDs. */
typedef struct RtControllerStatus {
    uint8_t eid;
    uint8_t status;         /* bits 0 to 2: RTPIL_COMMUNICATION_..., 2 or 6; the others are VEXEL's */
    uint16_t failCount;     /* commands that failed in a row, at most 10 */
    uint8_t enableLogging;  /* switch of VEXEL */
    uint8_t recoveryStatus; /* of the controller whose EID is this entry's index */
} RtControllerStatus;
static_assert(sizeof(RtControllerStatus) == 6, "record shared with VEXEL");

/*
 * Without a lock of their own: VEXEL serialises the changes of an entry. The last two are VEXEL's, the library only provides
 * them. The functions below search entries from index 0; eid: 0 to 255, as VEXEL filled them in.
 */
extern RtControllerStatus g_rtpil_Controller_Status[RTPIL_CONTROLLERS];
extern uint8_t g_rtpil_MCTPCommandStatus[RTPIL_MCTP_COMMAND_STATUS_BYTES];
extern uint8_t g_rtpil_HBA_Communication_Status[RTPIL_HBA_COMMUNICATION_STATUS_BYTES];

/*
 * Reads the communication state of a controller, bits 0 to 2 of status.
 * Returns: 0, also if the EID is unknown (RTPIL_COMMUNICATION_GOOD); -1 status is null.
 */
int32_t rtpil_GetControllerCommunicationStatus(int32_t eid, uint8_t *status);

/*
 * Counts the outcome of a command. Ten failures in a row are only counted, the eleventh marks the controller as failed.
 * A failure of an NVMe drive that is not present changes nothing.
 * eid: 0 to 115; the recovery byte of a greater one is dropped. command: RTPIL_COMMAND_... or a communication state.
 * recovery: low 8 bits, kept with a failure that marks; every other command but a failure clears what was kept.
 * Returns: 0, also for an unknown command; -1 the EID is not in the table.
 * Locks: the caller holds mutexRtCache, by which the endpoint's type is looked up.
 */
int32_t rtmpi2_UpdateControllerCommandStatus(int32_t eid, uint32_t command, uint32_t recovery);

/* Returns: 1 the EID is an NVMe drive whose slot is empty; 0 otherwise. Locks: the caller holds mutexRtCache. */
uint32_t rtpil_IfNVMeSSD_isNotPresent(int32_t eid);

/* Returns: the logging switch of the first entry with this EID; 0 if there is none. */
uint8_t rtpil_GetctrlEnableLoggingStatus(int32_t eid);

/* Sets the logging switch of every entry with this EID. Returns: 0. */
uint32_t rtpil_SetctrlEnableLoggingStatus(int32_t eid, uint8_t value);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* VEXUTILS_RT_CACHE_H */
