/*
 * shm.h - the shared-memory service: numbered regions of fixed size, read and written by byte range.
 *
 * An implementer promises: a write of a range is seen by every reader whole or not at all, and survives the death of the
 * writer at any instruction; ranges outside a region and unknown regions are refused; readers and writers of 32 and 64
 * bits share a region. A region nobody wrote yet reads as zeros. All functions may be called from any thread, and in a
 * forked child. A read waits for nobody; a write may wait for other writers of its region and, for some milliseconds,
 * for readers that are too slow for the writers' pace.
 *
 * Linux: a region is a POSIX shared-memory object named after VEX_SHM_NAMESPACE (default "vex"; at most 64 letters,
 * digits, "_" and "-", else the service is away), "vex.3" for region 3. Everybody may read it, its maker alone may write.
 */
#ifndef PLATFORM_SHM_H
#define PLATFORM_SHM_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Regions that the library uses, with the bytes of each that a platform must provide at least. */
enum {
    ZENT_SHM_STORAGE_INVENTORY = 3,    /* written by the library */
    ZENT_SHM_EXTENDER_CARDS = 15,      /* written by another daemon; records lie behind the 132 byte table */
    ZENT_SHM_PCIESSD_STATUS = 20,      /* written by the library and by other daemons */
    ZENT_SHM_PCIESSD_FRU = 26,         /* written by the library */
    ZENT_SHM_FRU_TABLE = 49,           /* written by another daemon */
    ZENT_SHM_THERMAL_SETTINGS = 55,    /* written by another daemon */

    ZENT_SHM_STORAGE_INVENTORY_SIZE = 23706,
    ZENT_SHM_EXTENDER_CARDS_SIZE = 65668, /* 132 bytes of table and what its 16-bit offsets can reach */
    ZENT_SHM_PCIESSD_STATUS_SIZE = 325,
    ZENT_SHM_PCIESSD_FRU_SIZE = 34132,
    ZENT_SHM_FRU_TABLE_SIZE = 65668,
    ZENT_SHM_THERMAL_SETTINGS_SIZE = 526,
};

/* The FRU table, little-endian and unaligned. */
enum {
    ZENT_SHM_FRU_COUNT = 6,   /* offset of the number of entries, u16 */
    ZENT_SHM_FRU_ENTRIES = 9, /* offset of the first ZentFruTableEntry; they lie without gaps */
};

#pragma pack(push, 1)
/* One card of the FRU table. */
typedef struct ZentFruTableEntry {
    uint16_t fruId;
    uint8_t rsvd2[2];
    uint8_t cardType;
    uint32_t infoOffset; /* where in the region the card's ZentFruInfo lies; 0: it has none. For the service alone */
    uint8_t rsvd9[6];
} ZentFruTableEntry;
static_assert(sizeof(ZentFruTableEntry) == 15, "table entries are 15 bytes apart");
static_assert(offsetof(ZentFruTableEntry, cardType) == 4, "FRU table layout");

/* FRU information of a card. */
typedef struct ZentFruInfo {
    uint8_t device_presence;
    uint16_t device_id;
    uint8_t fru_rev;
    uint8_t slotNumber;
    uint8_t device_type;
    uint8_t rsvd6;
    uint16_t size;   /* bytes of FRU data */
    uint32_t offset; /* where in the region they lie. For the service alone */
    uint16_t embeddedDevice;
} ZentFruInfo;
static_assert(sizeof(ZentFruInfo) == 15, "FRU information layout");
static_assert(offsetof(ZentFruInfo, size) == 7, "FRU information layout");
static_assert(offsetof(ZentFruInfo, embeddedDevice) == 13, "FRU information layout");
#pragma pack(pop)

/*
 * Copies count bytes from offset of a region to dst, as they were at one moment between writes.
 * region: ZENT_SHM_... offset, count: bytes, not negative, together within the region. dst: not null.
 * Returns: 0 copied; any other value (unknown region, range outside it, null dst, service away): dst unchanged.
 */
int Zent_shm_memread(int region, void *dst, int offset, int count);

/*
 * Copies count bytes from src to offset of a region, as one change. Arguments as for Zent_shm_memread.
 * Returns: 0 written; any other value (unknown region, range outside it, null src, service away): region unchanged.
 */
int Zent_shm_memwrite(int region, const void *src, int offset, int count);

/*
 * Gives a readable view of a whole region.
 * Returns: a block of the region's size that stays valid and unchanged until the calling thread asks for the same region
 * again or ends; null if the region is unknown or cannot be read. Owns: the service; never freed by the caller.
 */
void *Zent_shm_get_shm(int region);

/*
 * Reads the FRU information of a card.
 * fruId: id from the FRU table; of several cards with one id the first counts. fruInfo: a ZentFruInfo, not null.
 * tableEntry: the card's ZentFruTableEntry, not null. zero: 0.
 * Returns: 0 read; any other value (no such card, the entry is of another card, offsets that lead into the table or out
 * of the region): fruInfo unchanged.
 */
int Zent_shm_get_fruinfo(uint16_t fruId, void *fruInfo, const void *tableEntry, uint32_t zero);

/*
 * Reads the first size bytes of a card's FRU data into buffer, not null.
 * Returns: 0 read; any other value (no such card, less data than size, offsets as above): buffer unchanged.
 */
int Zent_shm_get_frudata(uint16_t fruId, void *buffer, uint32_t size);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* PLATFORM_SHM_H */
