/*
 * rt_dup.h - the storage object record and its deep copies.
 *
 * Every storage object is one packed StorageObjectRecord: 512 bytes on the controller (ILP32). On LP64 the fields keep
 * their order and the record grows by its pointers; "512" is always sizeof(StorageObjectRecord). Numbers in the names of
 * reserved fields and of texts without a name of their own (text417) are ILP32 positions in the record. Owned pointers are
 * blocks of vexel_alloc, and may be null in any copy.
 */
#ifndef VEXUTILS_RT_DUP_H
#define VEXUTILS_RT_DUP_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Object type codes: StorageObjectRecord.objType and the first word of cached nodes. Source: shared with VEXEL. */
enum {
    RT_OBJ_ADAPTER = 0, /* RAID controller, HBA, boot-storage card */
    RT_OBJ_BATTERY = 1,
    RT_OBJ_ENCLOSURE = 2, /* external enclosure */
    RT_OBJ_PHYSICAL_DISK = 3,
    RT_OBJ_VIRTUAL_DISK = 4,
    RT_OBJ_DRIVER = 5,
    RT_OBJ_EMM = 6,
    RT_OBJ_FAN = 7,
    RT_OBJ_PSU = 8,
    RT_OBJ_TEMPERATURE_PROBE = 9,
    RT_OBJ_SMART_DATA = 10,
    RT_OBJ_FOREIGN_CONFIG = 11,
    RT_OBJ_BACKPLANE = 240,
    RT_NODE_PCIESSD_ADAPTER = 3, /* first word of a controller node; the adapter record below it carries 0 */
};

enum {
    RT_ADAPTER_ENTRIES = 8,           /* 9 byte entries of an adapter */
    RT_SMART_PAGES = 7,               /* page slots of a SMART record */
    RT_NVME_BLOCK_SIZE = 512,         /* bytes behind SmartDataBody.nvmeBlock */
    RT_SMART_FLAG_NVME = 2,           /* SmartDataBody.flags: an NVMe drive */
    RT_SMART_SELECT_7_PAGES = 32,     /* SmartDataBody.pageSelector */
    RT_SMART_SELECT_5_PAGES = 16,     /* SmartDataBody.pageSelector */
    RT_TEMPERATURE_NONE_U8 = 0xFF,    /* no temperature in a byte */
    RT_ENCLOSURE_NONE = 0xFFFF,       /* PhysicalDiskBody.enclosureId: no enclosure */
    RT_ADAPTER_HAS_BATTERY = 0x10,    /* AdapterBody.capability: a battery is supported */
    RT_MEDIA_TAPE = 2,                /* published media type of a tape drive */
};
#define RT_TEMPERATURE_NONE 0xFFFFFFFFu    /* no temperature in a word */
#define RT_DEVICE_INFO_UNSET 0xFFFFFFFFu   /* PhysicalDiskBody.deviceInfoId */

#pragma pack(push, 1)
/* One capability set of an adapter: limits and policies of one RAID level, logged under these labels. */
typedef struct AdapterCapabilityEntry {
    uint32_t rl; /* RAID level */
    uint32_t mdr, mda, dcp, acp, dss, ass, bm, drq, arlq, dsrl, asrl, ap, ff;
    uint32_t rsvd56;
} AdapterCapabilityEntry;
static_assert(sizeof(AdapterCapabilityEntry) == 60, "layout shared with VEXEL");

/* One of an adapter's eight 9 byte entries. */
typedef struct AdapterTextEntry {
    uint8_t head[4];
    wchar_t *text; /* owned, may be null */
    uint8_t tail;
} AdapterTextEntry;

typedef struct AdapterBody {
    uint32_t temperature;        /* degrees Celsius, RT_TEMPERATURE_NONE none */
    uint32_t batteryTemperature; /* likewise */
    uint8_t ctrlValueA[8];       /* published as they are */
    uint8_t ctrlValueB[8];
    uint32_t capability; /* RT_ADAPTER_HAS_BATTERY */
    uint8_t ctrlAttr;    /* published as it is */
    uint8_t thermalPDPollDisable;
    uint8_t rsvd54[34];
    uint32_t capabilityMask; /* one capability set, times the multiplier, per set bit */
    uint8_t rsvd92[20];
    wchar_t *text112;                     /* owned, may be null */
    AdapterCapabilityEntry *capabilities; /* owned, may be null */
    uint8_t rsvd120[40];
    uint8_t capabilityMultiplier; /* 0 counts as 1 */
    uint8_t rsvd161[18];
    uint8_t spdm;
    uint16_t pldm;
    uint8_t rsvd182[242];
    AdapterTextEntry entries[RT_ADAPTER_ENTRIES];
    uint8_t rsvd496[16];
} AdapterBody;

typedef struct BatteryBody {
    uint8_t state; /* published as it is */
    uint8_t rsvd25[487];
} BatteryBody;

typedef struct PhysicalDiskBody {
    uint32_t id;
    uint16_t protocol;
    uint16_t nominalRPM;
    uint64_t size; /* bytes; read by value only */
    uint64_t state; /* the low 16 bits are published */
    uint8_t slot;
    uint8_t hotSpare;
    uint8_t media; /* bit 1 is the published media type */
    uint8_t formFactor;
    uint8_t temperature; /* degrees Celsius, RT_TEMPERATURE_NONE_U8 none; likewise refTemp, critTemp */
    uint8_t refTemp;
    uint8_t critTemp;
    uint8_t enclosureType;
    uint8_t impedance;
    uint8_t multipath;     /* 1: the drive is reached on several paths */
    uint16_t primaryId;    /* of a drive in multipath: the disk number of its primary path */
    uint16_t enclosureId;  /* object key of the enclosure node in the same row, or RT_ENCLOSURE_NONE */
    uint8_t rsvd62[2];
    uint32_t deviceInfoId; /* RT_DEVICE_INFO_UNSET for a disk outside the controller's own enclosures */
    uint8_t rsvd68[316];
    char *keyId; /* owned, 256 bytes */
    uint8_t rsvd388[29];
    char *text417; /* owned, 256 bytes */
    uint8_t rsvd421[5];
    char *text426; /* owned, 128 bytes */
    char *text430; /* owned, 128 bytes */
    char *text434; /* owned, 256 bytes */
    uint8_t rsvd438[65];
    uint8_t wordCount; /* entries behind words */
    uint32_t *words;   /* owned, may be null */
    uint8_t rsvd508[4];
} PhysicalDiskBody;

typedef struct VirtualDiskBody {
    uint8_t rsvd24[52];
    uint64_t size; /* blocks; read by value only */
    uint8_t rsvd84[416];
    uint32_t memberCount; /* entries behind targetID */
    uint32_t *targetID;   /* owned, may be null: ids of the member disks */
    uint8_t rsvd508[4];
} VirtualDiskBody;

/* External enclosures and backplanes. */
typedef struct EnclosureBody {
    uint8_t rsvd24[46];
    uint8_t position;
    uint8_t bayId;
    uint8_t chassisSlot;
    uint8_t secondId;
    uint8_t enclosureType;
    uint8_t externalFlag; /* 1: bay and chassis slot of an external enclosure are published */
    uint8_t driveCount;
    uint8_t slotCount;
    uint8_t rsvd78[434];
} EnclosureBody;

typedef struct SmartPageSlot {
    void *page; /* owned, length bytes, may be null */
    uint8_t tag;
    uint16_t length;
    uint8_t spare;
} SmartPageSlot;

typedef struct SmartDataBody {
    uint8_t rsvd24[44];
    uint32_t pageSelector; /* RT_SMART_SELECT_... */
    uint8_t rsvd72[8];
    uint32_t flags; /* RT_SMART_FLAG_NVME */
    SmartPageSlot pages[RT_SMART_PAGES];
    uint8_t rsvd140[86];
    uint8_t *nvmeBlock; /* owned, RT_NVME_BLOCK_SIZE bytes, may be null */
    uint8_t rsvd230[282];
} SmartDataBody;

typedef struct ForeignConfigBody {
    uint8_t rsvd24[40];
    uint32_t virtualDiskCount;
    struct StorageObjectRecord *virtualDisks; /* owned, virtualDiskCount records, may be null */
    uint8_t rsvd72[4];
    uint32_t physicalDiskCount;
    struct StorageObjectRecord *physicalDisks; /* owned, physicalDiskCount records, may be null */
    uint8_t rsvd84[428];
} ForeignConfigBody;

typedef struct StorageObjectHeader {
    uint32_t rsvd12;
    uint32_t VERSION; /* 0: for some kinds the FQDD below is not owned */
    wchar_t *FQDD;    /* may be null */
} StorageObjectHeader;

typedef struct StorageObjectRecord {
    uint32_t objType; /* RT_OBJ_... */
    uint32_t rsvd4;
    wchar_t *NAME; /* owned, may be null */
    StorageObjectHeader hdr;
    union {
        AdapterBody adapter;
        BatteryBody battery;
        PhysicalDiskBody pd;
        VirtualDiskBody vd;
        EnclosureBody enclosure;
        SmartDataBody smart;
        ForeignConfigBody foreign;
        uint8_t raw[488]; /* ILP32: all other bytes of a kind without named fields */
    } body;
} StorageObjectRecord;

/* Key of an adapter: flat, no owned pointers. */
typedef struct AdapterKeyRecord {
    uint8_t key[256];
    uint8_t rsvd256[33];
    uint16_t value289;
    uint8_t rsvd291;
} AdapterKeyRecord;
static_assert(sizeof(AdapterKeyRecord) == 292, "layout shared with VEXEL");
static_assert(offsetof(AdapterKeyRecord, value289) == 289, "layout shared with VEXEL");

/* What DupPCIeSSDAdapter makes the record of a PCIe SSD "adapter" from. */
typedef struct PCIeSSDAdapterNames {
    wchar_t *name; /* may be null */
    wchar_t *FQDD; /* may be null */
} PCIeSSDAdapterNames;
#pragma pack(pop)

/* ---- Deep copies --------------------------------------------------------------------------------------------------- */

/*
 * All of them: src is only read and may be freed afterwards, except for what is said to be shared. dst is one record that
 * the caller supplies; whatever it pointed to is overwritten, not freed; it must not be src. An owned field whose copy
 * cannot be allocated is null in the copy and the result is still success. The caller owns the copy and what it points to,
 * each block to be freed with vexel_free, and tests every owned pointer for null. Locks: none; any thread may call.
 */

/*
 * Copies an adapter with its name, FQDD, third text, the texts of its eight entries and the capability array.
 * src: capabilities holds one entry per bit of capabilityMask, times capabilityMultiplier where that is not 0.
 * Returns: the copy; null if src is null or without memory for the record.
 */
StorageObjectRecord *DupAdapter(const StorageObjectRecord *src);

/*
 * Fills in an adapter record for a PCIe SSD: the name and the FQDD, where given, and "Not Applicable" as the third text.
 * dst: the caller's, otherwise left as it is.
 * Returns: 0; -1 if either pointer is null.
 */
int32_t DupPCIeSSDAdapter(const PCIeSSDAdapterNames *src, StorageObjectRecord *dst);

/*
 * Copies an enclosure or a backplane with its name and FQDD; with VERSION 0 the FQDD stays shared with src.
 * Returns: 0; -1 if either pointer is null, dst unchanged.
 */
int32_t rtraid_dupEnclosure(const StorageObjectRecord *src, StorageObjectRecord *dst);

/* As rtraid_dupEnclosure, for an enclosure management module. */
int32_t rtraid_dupEMM(const StorageObjectRecord *src, StorageObjectRecord *dst);

/* As rtraid_dupEnclosure, for a fan. */
int32_t rtraid_dupFAN(const StorageObjectRecord *src, StorageObjectRecord *dst);

/* As rtraid_dupEnclosure, for a power supply. */
int32_t rtraid_dupPSU(const StorageObjectRecord *src, StorageObjectRecord *dst);

/* As rtraid_dupEnclosure, for a temperature probe. */
int32_t rtraid_dupTEMPPROBE(const StorageObjectRecord *src, StorageObjectRecord *dst);

/*
 * Copies a physical disk with its name, FQDD, five texts and word array. Shared with src: the FQDD with VERSION 0, the
 * array with wordCount 0.
 * src: keyId and text417 are read for 256 bytes whatever the length of the text. Their copies are blocks of 257 bytes,
 * with a zero one past the text's end. The others are cut at 127 (text426, text430) and 255 characters (text434).
 * Returns: 0; all bits set if either pointer is null, dst unchanged.
 */
uint32_t rtraid_dupPD(const StorageObjectRecord *src, StorageObjectRecord *dst);

/*
 * Copies the SMART data of a disk with its name and FQDD and, by the flags and the page selector, the NVMe block
 * (RT_SMART_FLAG_NVME) or the first seven or five pages; what else it points to stays shared with src.
 * dst: with neither the flag nor a known selector only the name and the FQDD are written, so that the caller must have
 * zeroed the record.
 * Returns: 0; -1 if either pointer is null, dst unchanged.
 */
int32_t rtraid_dupSmartPD(const StorageObjectRecord *src, StorageObjectRecord *dst);

/*
 * Copies a SMART record with its name and FQDD only; nvmeBlock and the pages stay shared with src. Such a copy must not
 * be freed as a SMART record that owns them.
 * Returns: 0; -1 if either pointer is null, dst unchanged.
 */
int32_t rtraid_dupNVMeSmartData(const StorageObjectRecord *src, StorageObjectRecord *dst);

/* Copies an adapter key. Returns: the copy; null if src is null or without memory. */
AdapterKeyRecord *rtraid_DupAdapterKey(const AdapterKeyRecord *src);

/* Copies a battery with its name and FQDD. Returns: the copy; null if src is null or without memory for the record. */
StorageObjectRecord *rtraid_DupBattery(const StorageObjectRecord *src);

/* Copies a driver with its name and FQDD. Returns: the copy; null if src is null or without memory for the record. */
StorageObjectRecord *rtraid_DupDriver(const StorageObjectRecord *src);

/*
 * Copies a virtual disk with its name, FQDD and member ids; with memberCount 0 the copy's array is null.
 * Returns: 0; -1 if either pointer is null, dst unchanged.
 */
int32_t rtraid_DupVD(const StorageObjectRecord *src, StorageObjectRecord *dst);

/*
 * Copies a foreign configuration with its name, FQDD and both arrays of members, of each member the name, of a virtual
 * disk also the member ids. Everything else of a member stays shared with src, its FQDD too: src must outlive its use. An
 * array whose count is 0 stays shared. A virtual disk whose ids cannot be copied gets memberCount 0.
 * Returns: the copy; null if src is null, if it has neither virtual nor physical disks, or without memory for the record.
 */
StorageObjectRecord *DupForeign_Config(const StorageObjectRecord *src);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* VEXUTILS_RT_DUP_H */
