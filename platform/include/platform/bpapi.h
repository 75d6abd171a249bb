/*
 * bpapi.h - the backplane service: sessions, the topology snapshot, drive-state writes.
 *
 * An implementer promises: callbacks run on one thread of the service, never on the caller's, one at a time; a callback
 * may call Read and Write and should call neither Open nor Close, but a Close from a callback must not hang. After Close
 * returned, the session's callback does not run again and is not running (unless Close was called from it): Close waits
 * for a running one, so its caller holds no lock that a callback takes. All functions may be called from any thread and may
 * block for the time of one backplane transaction. Results carry their meaning in the low 8 bits: 0 is success. The
 * arguments file, func and line name the caller for the service's own diagnostics; they may be null or 0. Sessions do not
 * survive a fork: the child opens its own.
 */
#ifndef PLATFORM_BPAPI_H
#define PLATFORM_BPAPI_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum {
    BPAPI_INFO_SIZE = 5362,
    BPAPI_MAX_BAYS = 6,           /* bay records that fit the snapshot */
    BPAPI_MAX_DRIVES = 250,       /* drive records that fit */
    BPAPI_MAX_RISERS = 4,         /* riser records that fit */
    BPAPI_MAX_DOWNSTREAM = 3,     /* downstream bay ids that fit a bay record */
    BPAPI_DRIVE_STRIDE = 18,      /* distance of two drive records */
    BPAPI_TECHNOLOGY_NVME_A = 1,  /* the two technologies of NVMe backplanes and drives */
    BPAPI_TECHNOLOGY_NVME_B = 4,
    BPAPI_WRITE_DRIVE_STATE = 1,  /* write type: the record is a BpDriveStateWrite */
    BPAPI_DRIVE_STATE_IDENTIFY = 8,
};

#pragma pack(push, 1)
/* One bay (backplane) of the snapshot. */
typedef struct BpApiBay {
    uint8_t rsvd0[14];
    uint8_t inventoried; /* not 0: the bay has been inventoried */
    uint8_t rsvd15;
    uint16_t bpId;
    uint8_t downstreamCount;
    uint32_t pcieSlotMap;
    uint32_t nvmeKronSlotMap; /* bit s: drive slot s is cabled to a KRON controller */
    uint8_t rsvd27[4];
    uint8_t downstreamBayIds[BPAPI_MAX_DOWNSTREAM];
    uint8_t bayId;
    uint8_t technology;     /* 1 and 4: NVMe backplane */
    uint8_t raidManagement; /* 1 or 2: the bay is managed by a RAID controller */
    uint8_t carrier;
    uint8_t controllerBay; /* number by which the controller knows the bay */
    uint8_t secondId;
    uint8_t rsvd40[11];
    uint8_t secondary; /* 0: primary bay */
    uint8_t primaryBayId;
    uint8_t physicalSlotCount;
    uint8_t logicalSlotCount;
    uint8_t rsvd55;
    uint8_t physicalDriveCount;
    uint8_t rsvd57[6];
    uint8_t firmwareMajor;
    uint8_t firmwareMinor;
    uint8_t componentId[3]; /* least significant byte first */
    uint8_t rsvd68[6];
    uint8_t driveSlotOffset;
    uint8_t rsvd75[53];
} BpApiBay;
static_assert(sizeof(BpApiBay) == 128, "bay records are 128 bytes apart");
static_assert(offsetof(BpApiBay, bpId) == 16, "snapshot layout");
static_assert(offsetof(BpApiBay, downstreamBayIds) == 31, "snapshot layout");
static_assert(offsetof(BpApiBay, secondary) == 51, "snapshot layout");
static_assert(offsetof(BpApiBay, physicalDriveCount) == 56, "snapshot layout");
static_assert(offsetof(BpApiBay, firmwareMajor) == 63, "snapshot layout");
static_assert(offsetof(BpApiBay, driveSlotOffset) == 74, "snapshot layout");

/* One drive of the snapshot; records are BPAPI_DRIVE_STRIDE apart and 17 bytes of each are defined. */
typedef struct BpApiDrive {
    uint8_t driveId;
    uint8_t sensor;
    uint8_t bayId;
    uint8_t slot;           /* slot number within the bay */
    uint8_t controllerSlot; /* slot number by which the controller knows the drive */
    uint8_t rsvd5;
    uint8_t extenderSlot; /* PCIe slot of the extender card that serves the drive, 0 none */
    uint8_t location;     /* 48 to 51: rear backplane */
    uint8_t rsvd8[2];
    uint8_t technology; /* 1 and 4: NVMe */
    uint16_t state;     /* bit 0: present */
    uint8_t rsvd13[2];
    uint8_t bdfValid; /* not 0: bus holds the PCIe bus number */
    uint8_t bus;
} BpApiDrive;
static_assert(sizeof(BpApiDrive) == 17, "snapshot layout");
static_assert(offsetof(BpApiDrive, technology) == 10, "snapshot layout");
static_assert(offsetof(BpApiDrive, bdfValid) == 15, "snapshot layout");

/* One riser of the snapshot. */
typedef struct BpApiRiser {
    uint8_t present; /* not 0: the record is valid */
    uint8_t bayId;
    uint8_t type;
    uint8_t pcieSlot;
    uint8_t number;
    uint8_t rsvd5;
} BpApiRiser;
static_assert(sizeof(BpApiRiser) == 6, "snapshot layout");

/*
 * The topology snapshot, little-endian and unaligned. Drive record d is the 17 bytes at drives[BPAPI_DRIVE_STRIDE * d];
 * it is copied out, since the last record has no room for a full stride.
 */
typedef struct BpApiInfo {
    uint8_t rsvd0[4];
    uint8_t bayCnt;
    uint8_t printDriveCnt; /* number of drive records that the printed form shows */
    uint8_t driveCnt;      /* number of valid drive records for everybody else */
    uint8_t rsvd7;
    uint8_t riserCnt;
    uint8_t rsvd9[57];
    BpApiBay bays[BPAPI_MAX_BAYS];
    uint8_t rsvd834;
    uint8_t drives[4499];
    BpApiRiser risers[BPAPI_MAX_RISERS];
    uint8_t rsvd5358[4];
} BpApiInfo;
static_assert(sizeof(BpApiInfo) == BPAPI_INFO_SIZE, "snapshot layout");
static_assert(offsetof(BpApiInfo, bays) == 66, "snapshot layout");
static_assert(offsetof(BpApiInfo, drives) == 835, "snapshot layout");
static_assert(offsetof(BpApiInfo, risers) == 5334, "snapshot layout");
static_assert(18 * (BPAPI_MAX_DRIVES - 1) + 17 == 4499, "the last drive record ends where the risers begin");

/* Record of a drive-state write. */
typedef struct BpDriveStateWrite {
    uint8_t bayId;
    uint8_t slot;
    uint16_t driveState; /* BPAPI_DRIVE_STATE_IDENTIFY blinks the drive; other values are the drive's state */
} BpDriveStateWrite;
static_assert(sizeof(BpDriveStateWrite) == 4, "record shared with the backplane service");
#pragma pack(pop)

typedef struct ZentBpApiObject *ZentBpApiHandle;

/*
 * Called with the new snapshot whenever it changed after the session was opened, not for the snapshot found at the
 * opening. Changes that follow each other quickly may come as one call. info: valid during the call only; may be null on
 * an error.
 */
typedef void (*ZentBpApiCallback)(const BpApiInfo *info);

/*
 * Opens a session. callback: may be null (a session for reads and writes only). zero, zero2: 0.
 * Returns: the session, null if the service is away or out of memory. Owns: the caller, ZentBpApiCloseExec.
 */
ZentBpApiHandle ZentBpApiOpenExec(ZentBpApiCallback callback, uint32_t zero, const char *file, const char *func,
                                  uint32_t line, uint32_t zero2);

/*
 * Fills buffer5362 with the current snapshot, which may be newer than the one of the last callback.
 * buffer5362: BPAPI_INFO_SIZE bytes, need not be aligned.
 * Returns: low byte 0 filled; else buffer unchanged (no open session, null buffer, no answer of the backplane).
 */
uint32_t ZentBpApiReadExec(ZentBpApiHandle handle, void *buffer5362, const char *file, const char *func, uint32_t line);

/*
 * Writes a record. It drives the lights of a slot and does not change the snapshot.
 * writeType: BPAPI_WRITE_DRIVE_STATE. record: a BpDriveStateWrite, need not be aligned.
 * Returns: low byte 0 accepted; else nothing changed (no open session, unknown type, null record, unknown bay or slot, the
 * state could not be kept).
 */
uint32_t ZentBpApiWriteExec(ZentBpApiHandle handle, uint32_t writeType, const void *record, const char *file,
                            const char *func, uint32_t line);

/* Closes a session. Returns: low byte 0 closed; else the handle is no open session (or not any more). */
uint32_t ZentBpApiCloseExec(ZentBpApiHandle handle, const char *file, const char *func, uint32_t line);

/* Text of a result code, from its low 8 bits. Returns: static text, may be null for a code without one. */
const char *ZentBpApiError(uint32_t code);

/* Identifier of the system board, 0 if unknown; 215 has its extender in slot 1 for drive slots 2 to 4. */
uint32_t Zent_get_system_id(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* PLATFORM_BPAPI_H */
