/*
 * rt_shm_layout.h - layouts of the shared-memory regions and of the NVMe backplane table.
 *
 * These bytes are an interchange format: packed, little-endian, free of pointers, the same on every machine model. 0xFF
 * stands for an absent value.
 */
#ifndef VEXUTILS_RT_SHM_LAYOUT_H
#define VEXUTILS_RT_SHM_LAYOUT_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

enum {
    SHM_CONTROLLERS = 16,
    SHM_DRIVES = 255,
    SHM_BATTERIES = 8,
    SHM_FQDD_BYTES = 70,

    SHM_CONTROLLER_OFFSET = 0, /* sections of region 3 */
    SHM_DRIVE_OFFSET = 724,
    SHM_BATTERY_OFFSET = 23678,
    SHM_TAPE_OFFSET = 23702,

    CEM_KRON_DRIVE_POLLING_OFFSET = 522, /* flags word of region 55 */
    SHM_POLLING_FLAGS_BYTES = 4,
    SHM_POLLING_DISABLE_HBA = 1,         /* bit 0: DisableHBADrivePolling */
    SHM_POLLING_DISABLE_KRON = 2,        /* bit 1: DisableKRONDrivePolling */

    SHM_SPLIT_MODE_OFFSET = 285, /* region 20: backplane split mode */
    SHM_SPLIT_MODE_BYTES = 40,

    SHM_PCIESSD_SLOTS = 32, /* region 20: global PCIe SSD slots */

    SHM_FRU_DRIVES = 36,           /* region 26: PCIe SSD drives */
    SHM_FRU_CARDS = 16,            /* SSD cards of a kind other than SHM_FRU_KIND_2 */
    SHM_FRU_CARD_FQDDS = 36,       /* and the texts of their slots */
    SHM_FRU_KIND_2_CARDS = 4,
    SHM_FRU_KIND_2 = 2,            /* card kind with records and texts of its own */
    SHM_FRU_IMAGE_BYTES = 512,
    SHM_FRU_SMALL_IMAGE_BYTES = 256, /* the FRU size that sizeCode 0 stands for */
    SHM_FRU_DRIVE_FQDD_BYTES = 60,
    SHM_FRU_CARD_FQDD_BYTES = 30,
    SHM_FRU_PRESENT = 1,           /* PCIeSSDFruRecord.presence; 0xFF cleared */
    SHM_FRU_UPDATED = 1,           /* PCIeSSDFruRegion.update */

    SHM_EXTENDER_ENTRIES = 16,     /* region 15: entries that fit the table */
    SHM_EXTENDER_TYPE_PCIESSD = 3, /* ExtenderCardEntry.type: an extender card of PCIe SSDs */

    NVME_BAYS = 5,   /* bay ids 0 to 4 */
    NVME_SLOTS = 50, /* slots 0 to 49 of a bay; table index 50 * bay + slot */
    NVME_CABLED_SLOTS = 36, /* slots 0 to 35 can be cabled to an extender, a KRON controller or the rear backplane */
    NVME_RISERS = 16,
    NVME_RISER_TYPE_EXTENDER = 4,

    CTRL_KIND_KRON = 0, /* au8CtrlKind */
    CTRL_KIND_HBA = 1,
    CTRL_KIND_CONTROLLER_12 = 2,
    CTRL_KIND_TAVI = 3,
    CTRL_KIND_ROR = 4,

    TAPE_PRESENT = 1, /* IsTapeDrivePresent; 0 while the answer is pending */
    TAPE_ABSENT = 2,
    TAPE_UNKNOWN = 255, /* g_IsTapeDrivePresent only */
};

#pragma pack(push, 1)
/* Region 3, first section; entry i of every array describes the same controller. */
typedef struct sCEMKronInventory {
    int32_t count; /* -1: not inventoried yet */
    uint8_t au8PCISlot[SHM_CONTROLLERS];       /* 0xFF of other kinds than CTRL_KIND_KRON; likewise both 8-byte values */
    uint32_t au32Temp[SHM_CONTROLLERS];        /* degrees Celsius, 0xFFFFFFFF none */
    uint32_t au32BatteryTemp[SHM_CONTROLLERS]; /* likewise */
    uint32_t au32PCIIDs[4][SHM_CONTROLLERS];   /* vendor, device, subvendor, subdevice */
    uint8_t au8CardLocation[SHM_CONTROLLERS];  /* modular id */
    uint32_t au64CtrlValueA[SHM_CONTROLLERS][2]; /* as in AdapterBody; likewise au8CtrlAttr and au64CtrlValueB */
    uint8_t au8CtrlKind[SHM_CONTROLLERS]; /* CTRL_KIND_... */
    uint8_t au8CtrlAttr[SHM_CONTROLLERS];
    uint8_t thermalPDPollDisable[SHM_CONTROLLERS]; /* 0 polled, 1 disabled, 0xFE not an integrated controller */
    uint32_t au64CtrlValueB[SHM_CONTROLLERS][2];
} sCEMKronInventory;

/* Region 3, second section; entry i of every array describes the same drive. */
typedef struct sCEMSASSATAInventory {
    int32_t count; /* -1: not inventoried yet */
    uint8_t au8DriveBayID[SHM_DRIVES];
    uint8_t au8DriveOccupiedSlot[SHM_DRIVES];
    uint8_t au8DriveProtocolType[SHM_DRIVES];
    uint8_t au8DriveMediaType[SHM_DRIVES]; /* 0 or 1 of a disk, 2 of a tape drive */
    uint8_t au8DriveFormFactor[SHM_DRIVES];
    uint8_t au8Temp[SHM_DRIVES]; /* degrees Celsius, 0xFF unknown */
    uint32_t au32NominalRPM[SHM_DRIVES];  /* revolutions per minute */
    uint8_t au8DriveReserved[SHM_DRIVES]; /* stays 0xFF */
    uint16_t pdShmStatus[SHM_DRIVES];     /* low 16 bits of PhysicalDiskBody.state; bit 0 always set behind an HBA */
    uint16_t au16DriveCapacity[SHM_DRIVES]; /* GiB */
    uint8_t au8DriveImpendance[SHM_DRIVES];
    uint8_t au8ChassisSlot[SHM_DRIVES];
    uint8_t au8EnclosureTyoe[SHM_DRIVES];
    uint8_t refTemp[SHM_DRIVES];           /* degrees Celsius */
    uint8_t critTemp[SHM_DRIVES];          /* degrees Celsius */
    char Fqdd[SHM_DRIVES][SHM_FQDD_BYTES]; /* terminated, zero-filled */
} sCEMSASSATAInventory;

/* Region 3, third section. */
typedef struct sCEMKRONBatteryInventory {
    int32_t count;                    /* -1: not inventoried yet */
    uint8_t au8Slot[SHM_BATTERIES];   /* PCI slot of the controller that owns the battery */
    uint8_t au8State[SHM_BATTERIES];  /* BatteryBody.state */
    uint8_t vexel_inventory[4]; /* first byte 1: all KRON controllers inventoried; 0xFF not yet. The rest 0 once published */
} sCEMKRONBatteryInventory;

/* Region 3, fourth section. */
typedef struct sCEMTapeInventory {
    uint8_t IsTapeDrivePresent; /* TAPE_... */
    uint8_t rsvd1[3];
} sCEMTapeInventory;

/* Region 3 as a whole. */
typedef struct StorageInventoryRegion {
    sCEMKronInventory controllers;
    sCEMSASSATAInventory drives;
    sCEMKRONBatteryInventory batteries;
    sCEMTapeInventory tape;
} StorageInventoryRegion;
#pragma pack(pop)
static_assert(sizeof(sCEMKronInventory) == 724, "region 3");
static_assert(offsetof(sCEMKronInventory, au32Temp) == 20, "region 3");
static_assert(offsetof(sCEMKronInventory, au32BatteryTemp) == 84, "region 3");
static_assert(offsetof(sCEMKronInventory, au32PCIIDs) == 148, "region 3");
static_assert(offsetof(sCEMKronInventory, au8CardLocation) == 404, "region 3");
static_assert(offsetof(sCEMKronInventory, au64CtrlValueA) == 420, "region 3");
static_assert(offsetof(sCEMKronInventory, au8CtrlKind) == 548, "region 3");
static_assert(offsetof(sCEMKronInventory, thermalPDPollDisable) == 580, "region 3");
static_assert(offsetof(sCEMKronInventory, au64CtrlValueB) == 596, "region 3");
static_assert(sizeof(sCEMSASSATAInventory) == 22954, "region 3");
static_assert(offsetof(sCEMSASSATAInventory, au8Temp) == 1279, "region 3");
static_assert(offsetof(sCEMSASSATAInventory, au32NominalRPM) == 1534, "region 3");
static_assert(offsetof(sCEMSASSATAInventory, au8DriveReserved) == 2554, "region 3");
static_assert(offsetof(sCEMSASSATAInventory, pdShmStatus) == 2809, "region 3");
static_assert(offsetof(sCEMSASSATAInventory, au16DriveCapacity) == 3319, "region 3");
static_assert(offsetof(sCEMSASSATAInventory, au8DriveImpendance) == 3829, "region 3");
static_assert(offsetof(sCEMSASSATAInventory, critTemp) == 4849, "region 3");
static_assert(offsetof(sCEMSASSATAInventory, Fqdd) == 5104, "region 3");
static_assert(sizeof(sCEMKRONBatteryInventory) == 24, "region 3");
static_assert(offsetof(sCEMKRONBatteryInventory, vexel_inventory) == 20, "region 3");
static_assert(sizeof(sCEMTapeInventory) == 4, "region 3");
static_assert(offsetof(StorageInventoryRegion, drives) == SHM_DRIVE_OFFSET, "region 3");
static_assert(offsetof(StorageInventoryRegion, batteries) == SHM_BATTERY_OFFSET, "region 3");
static_assert(offsetof(StorageInventoryRegion, tape) == SHM_TAPE_OFFSET, "region 3");
static_assert(sizeof(StorageInventoryRegion) == 23706, "region 3");

/* ---- Regions 15, 20 and 26 ------------------------------------------------------------------------------------------- */

#pragma pack(push, 1)
/* One card of region 15. */
typedef struct ExtenderCardEntry {
    uint8_t pcieSlot;
    uint8_t type; /* SHM_EXTENDER_TYPE_PCIESSD */
    uint8_t rsvd2[2];
    uint16_t recordOffset; /* of the card's ExtenderCardRecord in the region */
    uint8_t rsvd6[2];
} ExtenderCardEntry;

/* Table at the start of region 15; the records lie behind it. */
typedef struct ExtenderCardTable {
    uint8_t rsvd0[2];
    uint16_t count; /* may claim more than the table holds */
    ExtenderCardEntry entries[SHM_EXTENDER_ENTRIES];
} ExtenderCardTable;

typedef struct ExtenderCardRecord {
    uint8_t bayId; /* from the card's FRU */
    uint8_t rsvd1[3];
} ExtenderCardRecord;

/* Where a global PCIe SSD slot is; 0xFF in both without a drive slot. */
typedef struct PCIeSSDPosition {
    uint8_t u8BayId;
    uint8_t u8SlotNumInBay;
    uint8_t rsvd2[2];
} PCIeSSDPosition;

typedef struct PCIeSSDStatusEntry {
    uint8_t rsvd0[2];
    uint16_t u16DriveStatus; /* the values are the backplane's */
} PCIeSSDStatusEntry;

/* Region 20. */
typedef struct PCIeSSDStatusRegion {
    uint8_t rsvd0[6];
    uint8_t presenceCounter; /* raised by the publisher with each change of presence */
    uint8_t rsvd7[3];
    uint8_t statusChangeCounter; /* raised by this library with each written status, wraps */
    uint8_t rsvd11[3];
    PCIeSSDPosition positions[SHM_PCIESSD_SLOTS];
    PCIeSSDStatusEntry status[SHM_PCIESSD_SLOTS];
    uint8_t rsvd270[15];
    uint8_t splitMode[SHM_SPLIT_MODE_BYTES];
} PCIeSSDStatusRegion;

typedef struct PCIeSSDFruRecord {
    uint8_t temperature; /* degrees Celsius, 0xFF unknown */
    uint8_t bayIdOrKind; /* of a drive the bay, of a card its kind */
    uint8_t slotOrIndex; /* of a drive the slot in its bay, of a card its index */
    uint8_t presence;    /* SHM_FRU_PRESENT; 0xFF cleared */
    uint8_t rsvd4[2];
    uint8_t sizeCode; /* cards: 0 for an image of 256 bytes, else 1 */
    uint8_t rsvd7;
    uint8_t image[SHM_FRU_IMAGE_BYTES]; /* zero behind the FRU's end */
} PCIeSSDFruRecord;

/* Region 26; all 0xFF before the first record. */
typedef struct PCIeSSDFruRegion {
    uint8_t update; /* SHM_FRU_UPDATED after each stored or cleared record */
    uint8_t rsvd1[3];
    PCIeSSDFruRecord drives[SHM_FRU_DRIVES];
    PCIeSSDFruRecord cards[SHM_FRU_CARDS];
    char driveFqdds[SHM_FRU_DRIVES][SHM_FRU_DRIVE_FQDD_BYTES]; /* terminated */
    char cardFqdds[SHM_FRU_CARD_FQDDS][SHM_FRU_CARD_FQDD_BYTES];
    uint8_t rsvd30284[1648];
    PCIeSSDFruRecord kind2Cards[SHM_FRU_KIND_2_CARDS];
    char kind2Fqdds[SHM_FRU_KIND_2_CARDS][SHM_FRU_CARD_FQDD_BYTES];
} PCIeSSDFruRegion;
#pragma pack(pop)
static_assert(sizeof(ExtenderCardTable) == 132, "region 15");
static_assert(offsetof(ExtenderCardEntry, recordOffset) == 4, "region 15");
static_assert(sizeof(PCIeSSDStatusRegion) == 325, "region 20");
static_assert(offsetof(PCIeSSDStatusRegion, presenceCounter) == 6, "region 20");
static_assert(offsetof(PCIeSSDStatusRegion, statusChangeCounter) == 10, "region 20");
static_assert(offsetof(PCIeSSDStatusRegion, positions) == 14, "region 20");
static_assert(offsetof(PCIeSSDStatusRegion, status) == 142, "region 20");
static_assert(offsetof(PCIeSSDStatusEntry, u16DriveStatus) == 2, "region 20");
static_assert(offsetof(PCIeSSDStatusRegion, splitMode) == SHM_SPLIT_MODE_OFFSET, "region 20");
static_assert(sizeof(PCIeSSDFruRecord) == 520, "region 26");
static_assert(offsetof(PCIeSSDFruRecord, sizeCode) == 6, "region 26");
static_assert(offsetof(PCIeSSDFruRegion, drives) == 4, "region 26");
static_assert(offsetof(PCIeSSDFruRegion, cards) == 18724, "region 26");
static_assert(offsetof(PCIeSSDFruRegion, driveFqdds) == 27044, "region 26");
static_assert(offsetof(PCIeSSDFruRegion, cardFqdds) == 29204, "region 26");
static_assert(offsetof(PCIeSSDFruRegion, kind2Cards) == 31932, "region 26");
static_assert(offsetof(PCIeSSDFruRegion, kind2Fqdds) == 34012, "region 26");
static_assert(sizeof(PCIeSSDFruRegion) == 34132, "region 26");

/* ---- NVMe backplane table: aligned by nature, so that its fields can be read without a lock -------------------------- */

typedef struct NVMeBayEntry {
    uint8_t bayId;
    uint8_t rsvd1;
    uint8_t physicalSlotCount;
    uint8_t rsvd3; /* written by nobody, 0 */
    uint8_t rsvd4[2];
    uint8_t firmwareMajor;
    uint8_t firmwareMinor;
    uint8_t driveSlotOffset;
    uint8_t rsvd9[3];
    uint32_t nvmeKronSlotMap; /* bit s: slot s is cabled to a KRON controller */
} NVMeBayEntry;

typedef struct NVMeSlotEntry {
    uint8_t bayId;
    uint8_t slot;
    uint8_t rsvd2[2];
    uint16_t driveId;
    uint16_t driveState; /* bit 0: present */
    uint8_t bayTechnology;
    uint8_t driveTechnology;
    uint8_t behindKron; /* 0 or 1 */
    uint8_t extenderSlot;
    uint8_t i2cEid; /* endpoint id of the drive */
    uint8_t vdmEid; /* used in sNVMeSSDBPVDMInfo */
    uint8_t location;
    uint8_t bus; /* PCIe bus number, 0 not valid */
} NVMeSlotEntry;

typedef struct NVMeRiserEntry {
    uint8_t bayId;
    uint8_t pcieSlot;
    uint8_t type; /* NVME_RISER_TYPE_EXTENDER, or 0 for an unused entry */
    uint8_t number;
} NVMeRiserEntry;

typedef struct NVMeBackplaneTable {
    uint8_t bayCount; /* as the snapshot gave it, not clamped */
    uint8_t rsvd1[3];
    NVMeBayEntry bays[NVME_BAYS];
    NVMeSlotEntry slots[NVME_BAYS * NVME_SLOTS];
    NVMeRiserEntry risers[NVME_RISERS];
} NVMeBackplaneTable;
static_assert(sizeof(NVMeBackplaneTable) == 4148, "table shared with VEXEL");
static_assert(offsetof(NVMeBackplaneTable, bays) == 4, "table shared with VEXEL");
static_assert(offsetof(NVMeBackplaneTable, slots) == 84, "table shared with VEXEL");
static_assert(offsetof(NVMeBackplaneTable, risers) == 4084, "table shared with VEXEL");
static_assert(sizeof(NVMeBayEntry) == 16 && offsetof(NVMeBayEntry, firmwareMajor) == 6, "table shared with VEXEL");
static_assert(offsetof(NVMeBayEntry, nvmeKronSlotMap) == 12, "table shared with VEXEL");
static_assert(sizeof(NVMeSlotEntry) == 16 && offsetof(NVMeSlotEntry, driveState) == 6, "table shared with VEXEL");
static_assert(offsetof(NVMeSlotEntry, i2cEid) == 12 && offsetof(NVMeSlotEntry, bus) == 15, "table shared with VEXEL");

#endif /* VEXUTILS_RT_SHM_LAYOUT_H */
