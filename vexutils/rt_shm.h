/*
 * rt_shm.h - backplane sessions, the NVMe backplane table and the shared-memory regions.
 *
 * The NVMe tables and drive states have no lock: their fields are read and written one by one, atomically, by VEXEL's
 * threads and by the backplane service's callback thread. Region access goes through the platform's shared-memory service.
 */
#ifndef VEXUTILS_RT_SHM_H
#define VEXUTILS_RT_SHM_H

#include <platform/bpapi.h>
#include <stdint.h>

#include "rt_shm_layout.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* ---- Backplane sessions and callbacks ------------------------------------------------------------------------------ */

extern ZentBpApiHandle bpAPIHandler;          /* main session, null closed */
extern ZentBpApiHandle bpAPIKronHandler;      /* KRON session, null closed */
extern BpApiInfo *g_bpInfo;                   /* set by VEXEL, may be null: NVMeHotPlugCallback copies every snapshot here */
extern NVMeBackplaneTable sNVMeSSDBPInfo;     /* from the snapshots; slot entries carry the I2C endpoint ids */
extern NVMeBackplaneTable sNVMeSSDBPVDMInfo;  /* same layout; slot entries carry the VDM endpoint ids */

/*
 * Opens the main session, with NVMeHotPlugCallback, clears the drive states and fills sNVMeSSDBPInfo; an open session is
 * kept.
 * Returns: 0, also if the snapshot could not be read; 1 no session. Locks: none. Not from a callback.
 */
uint32_t rtshm_BpApiInit(void);

/* Opens the KRON session, with BpApiKronCallback; an open one is kept. Returns: 0; 1 no session. Not from a callback. */
uint32_t rtshm_BpApiKronInit(void);

/*
 * Closes the main session. Returns: 0, also if none is open or the close fails.
 * Locks: none; the caller holds no rtsync_mutex, since a running callback, which takes it, is waited for. Not from a callback.
 */
uint32_t rtshm_BpApiExit(void);

/* Closes the KRON session. Returns: 0, also if none is open or the close fails. Not from a callback. */
uint32_t rtshm_BpApiKronExit(void);

/*
 * Reads a snapshot over the main session and rebuilds sNVMeSSDBPInfo in place; what the snapshot no longer names stays.
 * Returns: 0, also without a session or when the read fails; 5 no memory.
 */
uint32_t rtshm_BpDataUpdate(void);

/* Writes a snapshot to the trace log at level 4; nothing if info is null. Counts are clamped to what fits. Locks: none. */
void ZentBpPrintApiInfo(const BpApiInfo *info);

/*
 * Callback of the main session: records drive-state changes in sNVMeSSDBPInfo and asks for a new inventory through the
 * global status; without rtsync_mutex it only records. Runs on the service's thread. info: may be null, which is only logged.
 * Locks: takes rtsync_mutex.
 */
void NVMeHotPlugCallback(const BpApiInfo *info);

/* Callback of the KRON session, on the service's thread: logs only. info: may be null. */
void BpApiKronCallback(const BpApiInfo *info);

/* ---- Drives by bay and slot ---------------------------------------------------------------------------------------- */

enum { RTSHM_VDM_EID_LIST_BYTES = 720 };

/* Endpoint-id lists of VEXEL, which defines their layout; the library only stores them. */
extern uint8_t g_nvme_vdm_eids[RTSHM_VDM_EID_LIST_BYTES];
extern uint8_t g_nvme_new_vdm_eids[RTSHM_VDM_EID_LIST_BYTES];
extern uint8_t g_nvmecard_vdm_eids[RTSHM_VDM_EID_LIST_BYTES];
extern uint8_t g_nvmecard_new_vdm_eids[RTSHM_VDM_EID_LIST_BYTES];
extern uint8_t g_nvme_vdm_eid_count;
extern uint8_t g_nvmecard_vdm_eid_count;

/*
 * The following read or write what sNVMeSSDBPInfo and its twin hold for a drive position.
 * u8BayID: 0 to 4. u8Slot: 0 to 49, for the two cabling queries 0 to 35. Outputs: not null.
 * Returns: 0; 1 no such position or a null output: nothing is touched. Locks: none.
 */

/* Reads the drive's technology; 1 and 4 are NVMe. */
uint32_t rtshm_getDriveTechFromBpInfo(uint8_t *pu8Tech, uint8_t u8BayID, uint8_t u8Slot);

/* Reads the drive's PCIe bus number; 0 not valid. */
uint32_t rtshm_getBusNumFromBpInfo(uint8_t *pu8Bus, uint8_t u8BayID, uint8_t u8Slot);

/* Reads the drive state that the library acted upon last. */
uint32_t rtshm_getNVMeDriveState(uint16_t *pu16State, uint8_t u8BayID, uint8_t u8Slot);

/* Sets the drive state; a later callback that reports another one counts as a change. */
uint32_t rtshm_SetNVMeDriveState(uint8_t u8BayID, uint8_t u8Slot, uint16_t u16State);

/* Sets the I2C endpoint id of the drive. */
uint32_t rtshm_UpdateNVMeSSDSlotToEID(uint8_t u8BayID, uint8_t u8Slot, uint8_t u8EID);

/* Sets the VDM endpoint id of the drive. */
uint32_t rtshm_UpdateNVMeSSDSlotToVDMEID(uint8_t u8BayID, uint8_t u8Slot, uint8_t u8EID);

/* Reads the I2C endpoint id of the drive. */
uint32_t rtshm_getI2CNVMeSSDEIDfromSlotAndBayId(uint8_t u8BayID, uint8_t u8Slot, uint8_t *pu8EID);

/* Reads the VDM endpoint id of the drive. */
uint32_t rtshm_GetNVMeSSDvdmEIDfromSlotandBayID(uint8_t u8BayID, uint8_t u8Slot, uint8_t *pu8EID);

/* Cabling query: *pu8Behind is 1 if the drive is cabled to a KRON controller, else 0. */
uint32_t rtshm_IsDriveBehindKRONfromBPAPI(uint8_t *pu8Behind, uint8_t u8BayID, uint8_t u8Slot);

/* Cabling query: *pu8Rear is 1 if the drive sits on the rear backplane, else 0. */
uint32_t rtshm_IsDriveConnectedRearBP(uint8_t *pu8Rear, uint8_t u8BayID, uint8_t u8Slot);

/*
 * Reads the snapshot over the main session. pu8Buffer: BPAPI_INFO_SIZE bytes.
 * Returns: 0; 1 no session, null buffer or a failed read: the buffer is unchanged.
 */
uint32_t ReadNVMeBPInfo(uint8_t *pu8Buffer);

/* ---- NVMe backplanes and extenders ----------------------------------------------------------------------------------- */

/*
 * Creates the cached extender of every riser in sNVMeSSDBPInfo; those that exist stay as they are.
 * Returns: 0; 3 one could not be created, the risers behind it are not looked at.
 * Locks: takes mutexRtCache for each.
 */
uint32_t rtshm_getNVMeExtcard(void);

/*
 * Creates the cached extender of a PCIe slot (key type RTCACHE_KEY_EXTENDER), with name and FQDD; an existing one stays.
 * bayId: of the riser that revealed it. extenderSlot: 0 to 16, the object key.
 * Returns: 0; 2 no such key; 3 lock not taken or no memory. Locks: takes mutexRtCache. Owns: the cache.
 */
uint32_t processNVMeExtndrcardInfo(uint8_t bayId, uint32_t extenderSlot);

/*
 * Creates the cached backplane of every bay in sNVMeSSDBPInfo that has an NVMe slot, from the first such slot; those that
 * exist stay as they are. Extenders come first (rtshm_getNVMeExtcard), since FQDDs go through them.
 * Returns: 0, also if a backplane could not be created. Locks: takes mutexRtCache for each.
 */
uint32_t rtshm_getNVMeBPs(void);

/*
 * Creates the cached backplane of a bay (key type RTCACHE_KEY_BACKPLANE, object key its bay id); an existing one stays.
 * bay, slot: entries of sNVMeSSDBPInfo, the slot one of the bay; not null.
 * Returns: 0; 2 null entry; 3 lock not taken, no memory or no such key. A backplane whose name or FQDD found no memory is
 * stored without it. Locks: takes mutexRtCache. Owns: the cache.
 */
uint32_t processNVMeBackplaneInfo(const NVMeBayEntry *bay, const NVMeSlotEntry *slot);

/*
 * Reads the PCIe slot of the extender that serves a drive slot. bayId: 0 to 4. driveSlot: 0 to 35.
 * extenderSlot: not null; 0 none. Returns: 0; 2 no such position or a null output, nothing written. Locks: none.
 */
uint32_t rtshm_getExtenderSlotFromDriveSlot(uint8_t bayId, uint8_t driveSlot, uint8_t *extenderSlot);

/*
 * Takes bay and slot out of an FQDD such as "Disk.Bay.7:Enclosure.Internal.0-2:PCIeExtender.Slot.3" (slot 7, bay 2).
 * fqdd: text; length: 0 for a terminated text, else bytes of a text in 16-bit characters, of which 99 are looked at.
 * bayId, slot: not null; the low 8 bits of the numbers; unchanged where the text ends before them.
 * Returns: 0; 5 null argument. Locks: none.
 */
uint32_t getBayIDandSlotFromFqdd(const char *fqdd, uint8_t length, uint8_t *bayId, uint8_t *slot);

/* ---- Bay and slot of a drive ---------------------------------------------------------------------------------------- */

/*
 * Look-ups by global slot number or endpoint id. Outputs: one byte each, unchanged without a result.
 * Returns, where not said otherwise: 0 found; 3 not found or a null output. Locks: none.
 */

/*
 * Reads the slot in its bay of a global PCIe SSD slot from region 20. slot: 0 to 31; its low 16 bits count, signed, and
 * numbers that name no slot read other bytes of the region. u8SlotNumInBay: may be null, which reads nothing.
 * Returns: 0, also for a null output; 3 not readable or behind the region's ends.
 */
uint32_t RTSHM_readSSDSlotNumFromGblSlotNum(uint8_t *u8SlotNumInBay, int slot);

/* Reads the bay id of a global PCIe SSD slot, as RTSHM_readSSDSlotNumFromGblSlotNum. */
uint32_t RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum(uint8_t *u8BayId, int slot);

/* Reads the id of the last NVMe bay that has this slot from sNVMeSSDBPInfo. slot: 0 to 49. */
uint32_t RTSHM_readBayIDInfoFromGblSlotNum(uint8_t *u8BayId, unsigned slot);

/*
 * Finds the last position of an NVMe drive with this I2C endpoint id. eid: 0 to 254.
 * Returns: 0 also for an endpoint of another type, which has no position: outputs unchanged; 1 endpoint not registered; 3.
 * Locks: the caller holds mutexRtCache.
 */
uint32_t RTSHM_readBayIDAndSlotNoFromEID(uint8_t *bay, uint8_t *slot, int eid);

/* Finds the last position of a drive with this VDM endpoint id, whatever the endpoint's type. eid: 0 to 254. */
uint32_t RTSHM_readBayIDAndSlotNoFromVDMEID(uint8_t *bay, uint8_t *slot, int eid);

/* Returns: the I2C endpoint id of the drive with this VDM endpoint id, 0 to 254; 255 there is none. */
uint8_t rtshm_getI2CNVMeSSDEIDfromVDMEID(int eid);

/* ---- Backplane firmware --------------------------------------------------------------------------------------------- */

/* Sets a bay's firmware version. bay: 0 to 4. major, minor: their low 8 bits. Returns: 0; 2 no such bay. */
uint32_t RTSHM_setBpFwVersion(unsigned bay, unsigned major, unsigned minor);

/* Reads a bay's firmware version. bay: 0 to 4. Returns: 0; 2 no such bay or a null output, nothing written. */
uint32_t RTSHM_getBpFwVersion(unsigned bay, uint8_t *major, uint8_t *minor);

/*
 * Reads a bay's firmware version as text in hexadecimal: the first four characters of "major.minor" with two digits of
 * minor, "1.05", without a terminator; of "1a.03" the last one is cut.
 * bay: 0 to 4; greater numbers are not refused as such, they read on behind the bay entries.
 * Returns: 0; 2 output null or bay beyond the table.
 */
uint32_t RTSHM_ReadBpFwVersion(unsigned bay, uint32_t *output);

/* ---- Identify and drive status to the backplane ---------------------------------------------------------------------- */

enum { RTSHM_NO_DRIVE_STATE = 0xFFFF };

/*
 * Each of the following blocks for its transactions with the backplane service. u8bayId, u8Slot: as the backplane numbers
 * them; it refuses what it does not have. Locks, where not said otherwise: none.
 */

/* Starts to blink a drive, over a session of its own. Returns: 0; 1 no session or write refused. */
uint32_t BlinkNVMeSSD(uint8_t u8bayId, uint8_t u8Slot);

/* Stops to blink a drive by writing its state, over a session of its own. Returns: as BlinkNVMeSSD. */
uint32_t UnBlinkNVMeSSD(uint8_t u8bayId, uint8_t u8Slot, uint16_t u6NVMeDriveState);

/*
 * Stops to blink a drive by writing its state, over the main session. u8EID: for the log.
 * u6NVMeDriveState: RTSHM_NO_DRIVE_STATE writes nothing. Returns: 0; 1 main session closed or write refused.
 */
uint32_t UnBlinkAllNVMeSSDS(uint8_t u8EID, uint8_t u8bayId, uint8_t u8Slot, uint16_t u6NVMeDriveState);

/*
 * Records a drive's state in sNVMeSSDBPInfo and writes it to the backplane, over a session of its own.
 * u8SSDSlotNum: slot under which the table records it; the backplane is told the slot found by u8EID, an I2C endpoint id.
 * Returns: 0, also without a session or when the drive is not found; 1 write refused, the session stays open.
 * Locks: the caller holds mutexRtCache.
 */
uint32_t updateNVMeSSDDriveStatusToBP(uint16_t u16DriveStatus, uint8_t u8SSDSlotNum, uint8_t u8EID);

/* ---- Regions --------------------------------------------------------------------------------------------------------- */

extern uint8_t g_IsTapeDrivePresent; /* TAPE_...; TAPE_UNKNOWN until the first answer */

/*
 * Marks the storage inventory region as not yet inventoried: counts -1, values 0xFF, the tape section 0; the tape presence
 * becomes unknown. Write failures are ignored.
 */
void RTSHM_InitSharedMem(void);

/* Writes the tape section alone. present: TAPE_... Returns: the service's result, 0 written. */
int RTSHM_InitTBUSharedMem(uint8_t present);

/* Marks controllers and drives as not yet inventoried; batteries and tape stay. Write failures are ignored. */
void RTSHM_InitPartialSharedMem(void);

/*
 * Fills the PCIe SSD FRU region with 0xFF and submits the single message RT_SINGLE_PCIESSD_FRU_RESET, 1065. Failures of both
 * are ignored; without memory neither is done.
 */
void RTSHM_InitPCIeSSDSharedMem(void);

/*
 * Reads the drive-polling flags. flags: 4 bytes, SHM_POLLING_... in the first; bit 0 is also set if the file
 * "/flash/data0/oem_ps/pdthermaldisabled" exists.
 * Returns: 0; 2 flags null; 3 not readable, flags unchanged.
 */
uint32_t RTSHM_ReadSharedThermalPolling(uint8_t *flags);

/* Reads the backplane split mode. buffer: SHM_SPLIT_MODE_BYTES bytes. Returns: 0; 2 buffer null; 3 not readable, buffer zero. */
uint32_t RTSHM_readBackplaneSharedMem(uint8_t *buffer);

/*
 * Writes the storage inventory region and the polling flags to the debug log, at level 6; the batteries at level 4 and to
 * the log file too. Counts are clamped to the arrays; what cannot be read shows as zeros. Without memory nothing is written.
 */
void RTSHM_DumpSharedMem(void);

/*
 * Rebuilds the storage inventory region from the runtime cache and dumps it; opens the KRON session if it is closed. At most
 * 16 controllers, 255 drives and 8 batteries are entered.
 * kronTotalCount: KRON controllers that the caller expects; the inventory is complete when that many were found.
 * Returns: 0; every look-up failure skips one controller or drive, and write failures are ignored.
 * Locks: the caller holds mutexRtCache; takes rtsync_mutex. One thread at a time.
 */
uint32_t RTSHM_UpdateSharedMem(uint32_t kronTotalCount);

/* ---- PCIe SSDs: FRU, presence and status regions --------------------------------------------------------------------- */

/*
 * The FRU region has three groups, chosen by the endpoint's type and, for cards, the card's kind:
 *   eidType RTCACHE_TYPE_NVME (cardKind ignored): 36 drives, records and FQDDs of indexes 0 to 35;
 *   RTCACHE_TYPE_PCIESSD with a cardKind other than 2: cards, records of 0 to 15 and FQDDs of 0 to 35;
 *   RTCACHE_TYPE_PCIESSD with cardKind 2: cards, records and FQDDs of 0 to 3.
 * Functions below refuse any other type or index with 2. Results: 0 done; 2 bad argument, nothing written; 3 the region was
 * not readable or not writable, what was written before stays. No locks; one thread at a time writes a device's record.
 * Source: the layouts are shared with other daemons; what the functions write, and in which order, is chosen here.
 */

/*
 * Stores a device's FRU: the image, then where the device is, its presence last, and marks the region as updated.
 * bayId, slot: of a drive, stored as they are; a card's record carries cardKind and index instead. fru: fruSize bytes, 1 to
 * 512; the image is filled up with zeros. The temperature stays, and of a drive the size code.
 * Returns: 0; 2 also if fru is null or its size out of range; 3.
 */
uint32_t RTSHM_StoreFRU(uint8_t eidType, uint8_t cardKind, uint8_t index, uint8_t bayId, uint8_t slot, const uint8_t *fru,
                        uint32_t fruSize);

/* Writes a device's temperature, degrees Celsius, 0xFF unknown; not an update of the region. Returns: 0; 2; 3. */
uint32_t RTSHM_StoreFRUTemp(uint8_t eidType, uint8_t cardKind, uint8_t index, uint8_t temperature);

/* Fills a device's record with 0xFF and marks the region as updated. Returns: 0; 2; 3. */
uint32_t RTSHM_ClearFRU(uint8_t eidType, uint8_t cardKind, uint8_t index);

/* Fills a device's FQDD with 0xFF. Returns: 0; 2; 3. */
uint32_t RTSHM_ClearFqdd(uint8_t eidType, uint8_t cardKind, uint8_t index);

/* Writes a drive's FQDD, at most 59 characters of it. index: 0 to 35. Returns: 0; 2, also if fqdd is null; 3. */
uint32_t RTSHM_Add_NVMeSSD_FQDD_toSHM(uint8_t index, const char *fqdd);

/*
 * Finds the lowest global slot of a bay. bayId: 0 to 4.
 * Returns: 0; 2 base null or bay out of range; 3 not readable or the bay has no slot, *base unchanged.
 */
uint32_t RTSHM_GetPCIeSSDGlobalSlotNumberBase(uint8_t bayId, uint8_t *base);

/*
 * Says whether the presence counter moved since the last successful call; before the first it counts as 0.
 * changed: 0 or 1. Returns: 0; 2 changed null; 3 not readable, *changed and what was seen unchanged.
 */
uint32_t RTSHM_ReadPCIeSSDPresenceSharedMem(uint8_t *changed);

/*
 * Reads the drive status of a global slot. slot: 0 to 31; its low 16 bits count, signed, and numbers that name no slot read
 * other bytes of the region. u16DriveStatus: may be null, which reads nothing.
 * Returns: 0, also for a null output; 3 not readable or behind the region's ends, output unchanged.
 */
uint32_t RTSHM_readPciessdDriveStatusFromShm(uint16_t *u16DriveStatus, int slot);

/*
 * Writes the drive status of a global slot, then raises the status-change counter by one; 255 becomes 0.
 * u16DriveStatus: as the backplane defines it. u8SSDSlotNum: 0 to 31.
 * Returns: 0; 2 slot out of range; 3 (the status may be written without the counter).
 */
uint32_t updatePciessdDriveStatusToShm(uint16_t u16DriveStatus, uint8_t u8SSDSlotNum);

/*
 * Writes the status block of all global slots at once, then raises the status-change counter, as above.
 * statusBlock128: 32 PCIeSSDStatusEntry, 128 bytes. Returns: 0; 2 null; 3 (as above).
 */
uint32_t updatePciessdiBCDDataToShm(const void *statusBlock128);

/*
 * Takes over simulated drives, for machines without them. "/tmp/ssdstatus.txt", of which 4096 bytes are read: lines of
 * a global slot (decimal) and its status (hexadecimal); slots that are not named keep theirs; lines of another form are
 * skipped and counted in the log, what lies beyond those bytes as one more. "/tmp/ssdfru.bin": up to 36 images of 512 bytes,
 * the FRUs of drives 0, 1, ... at the bay and slot of the global slot of the same number (0xFF from 32 on). Links are not
 * followed; a file that is not there changes nothing.
 * Returns: 0; 3 as soon as the regions cannot be read or written.
 */
uint32_t RTSHM_SimulatePCIeSSD(void);

/* ---- FRUs of controller cards ---------------------------------------------------------------------------------------- */

/*
 * Reads the FRU data of a host bus adapter: of the first card of the type whose slot is this one, in the order of the
 * platform's FRU table.
 * data, size: the data and its bytes; null and 0 on failure.
 * Returns: 0; 2 the data was not readable; 3 no such card, no table, no memory or a null output.
 * Owns: *data belongs to the caller, vexel_free.
 */
uint32_t get_HBA_FRU_Info(uint8_t **data, uint32_t *size, uint8_t cardType, uint8_t slot);

/* As get_HBA_FRU_Info, for KRON and TAVI cards; the slot counts for cardType 4 only, of others the first card is taken. */
uint32_t get_KRON_TAVI_FRU_Info(uint8_t **data, uint32_t *size, uint8_t cardType, uint8_t slot);

/* Returns: 0 the boot-storage card is a TAVI-A2; 1 it is another, there is none, or its data was not readable. */
uint32_t is_TAVI_A2_Present(void);

/* Tells the model by a card's FRU data: size bytes, may be null. Returns: 1 TAVI-A1; 2 TAVI-A2; 0 another or no data. */
uint32_t get_TAVI_Revison(const uint8_t *data, uint32_t size);

/*
 * Reads slot and model of a TAVI card. tableEntry: its ZentFruTableEntry (platform/shm.h). revision: as get_TAVI_Revison.
 * Returns: 0; 2 the FRU data was not readable; 3 no FRU information, no memory or a null argument: outputs unchanged.
 */
uint32_t update_TAVI_FRU_Info(const void *tableEntry, uint8_t *slotNumber, uint8_t *revision);

/*
 * Takes a PCIe SSD's FQDD apart: "PCIeSSD.Slot.3-1" is slot 3, index 1 (low 8 bits of both, 0 if missing).
 * fqdd: narrow and terminated if length is 0, else length bytes of 16-bit characters, of which 59 count. slotType: 4
 * "Integrated", 8 "Slot", 1 other names that begin with "SL"; otherwise unchanged.
 * Returns: 0; 1 not the FQDD of a PCIe SSD, outputs unchanged; 5 null argument.
 */
uint32_t getSlotandSlotIndexfromFQDD(const void *fqdd, uint32_t length, uint8_t *slot, uint8_t *slotIndex,
                                     uint32_t *slotType);

/* ---- PCIe SSDs: cabling, extenders and backplanes ---------------------------------------------------------------------- */

/*
 * Source of this section: chosen; extenders and backplanes are those that the NVMe functions above build.
 */

/*
 * Says whether the drive of an endpoint is cabled to a KRON controller. behind: 0 or 1. eid: 0 to 254.
 * Returns: 0; 1 the endpoint is not registered, the drive has no cabled position (add-in cards have none) or behind is null;
 * 3 no drive has this endpoint id. Only with 0 is *behind written. Locks: the caller holds mutexRtCache.
 */
uint32_t rtshm_IsDriveBehindKRONfromBPAPIByEID(uint8_t *behind, uint8_t eid);

/*
 * Creates the cached extender of every extender card of PCIe SSDs (SHM_EXTENDER_TYPE_PCIESSD) in region 15, at most 16;
 * those that exist stay.
 * Returns: 0; 3 the region is not readable or an extender could not be created, the cards behind it are not looked at.
 * Locks: takes mutexRtCache for each.
 */
uint32_t rtshm_getPCIessdExtcard(void);

/*
 * Creates the cached extender of a PCIe slot, as processNVMeExtndrcardInfo does. bayId: 0 to 4.
 * Returns: 0; 2 bay out of range or no such key; 3. Locks: takes mutexRtCache. Owns: the cache.
 */
uint32_t processPciessdExtndrcardInfo(uint8_t bayId, uint32_t extenderSlot);

/*
 * Creates the cached backplane of every bay in the slot map of region 20, from its first global slot; those that exist
 * stay. Slots at no possible position are skipped with a warning and not counted; a slot map of zeros has no slots.
 * Returns: 0; 3 the region is not readable or a backplane could not be created, the others are.
 * Locks: takes mutexRtCache for each.
 */
uint32_t rtshm_getPCIessdBp(void);

/*
 * Creates the cached backplane of a bay, as processNVMeBackplaneInfo does. bayId: 0 to 4. slotInBay: 0 to 49, a slot of it.
 * driveStatus: of that slot. slotCount: slots of the bay, both counts of its record.
 * Returns: 0; 2 no such position; 3. Locks: takes mutexRtCache. Owns: the cache.
 */
uint32_t processPciessdBackplaneInfo(uint8_t bayId, uint8_t slotInBay, uint16_t driveStatus, uint8_t slotCount);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* VEXUTILS_RT_SHM_H */
