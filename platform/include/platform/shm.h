/*
 * shm.h - the shared-memory service: numbered regions of fixed size, read and written by byte range.
 *
 * An implementer promises: a write of a range is seen by every reader whole or not at all, and survives the death of the
 * writer at any instruction; ranges outside a region and unknown regions are refused; readers and writers of 32 and 64
 * bits share a region. A region nobody wrote yet reads as zeros. All functions may be called from any thread.
 */
#ifndef PLATFORM_SHM_H
#define PLATFORM_SHM_H

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

/*
 * Copies count bytes from offset of a region to dst, all from one write.
 * Returns: 0 copied; any other value (unknown region, range outside it, null dst, service away): dst unchanged.
 */
int Zent_shm_memread(int region, void *dst, int offset, int count);

/*
 * Copies count bytes from src to offset of a region, as one change.
 * Returns: 0 written; any other value (unknown region, range outside it, null src, service away): region unchanged.
 */
int Zent_shm_memwrite(int region, const void *src, int offset, int count);

/*
 * Gives a readable view of a whole region.
 * Returns: a block of the region's size that stays valid and unchanged until the calling thread asks for the same region
 * again; null if the region is unknown or cannot be read. Owns: the service; never freed by the caller.
 */
void *Zent_shm_get_shm(int region);

/*
 * Reads the 15 byte FRU information record of a card.
 * fruId: id from the FRU table. fruInfo: 15 bytes. tableEntry: the card's 15 byte entry of the table. zero: 0.
 * Returns: 0 read; any other value: fruInfo unchanged.
 */
int Zent_shm_get_fruinfo(uint16_t fruId, void *fruInfo, const void *tableEntry, uint32_t zero);

/* Reads size bytes of a card's FRU data into buffer. Returns: 0 read; any other value: buffer unchanged. */
int Zent_shm_get_frudata(uint16_t fruId, void *buffer, uint32_t size);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* PLATFORM_SHM_H */
