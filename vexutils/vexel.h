/*
 * vexel.h - diagnostics and small helpers that the library and the monitoring daemon share: the trace log, zero-filled
 * memory, bounded copies, text fields, flag files, the identify light of PCIe SSDs.
 *
 * Every function is reentrant and may be called from any thread; rt_log_init and rt_log_Exit frame the process's life.
 * Blocks come zeroed from vexel_alloc and go back through vexel_free: the C library's, so free() takes them too.
 */
#ifndef VEXUTILS_VEXEL_H
#define VEXUTILS_VEXEL_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* ---- Trace log ------------------------------------------------------------------------------------------------- */

/*
 * Path of the log file, "/var/log/vexel.log". Read at every write: a client may point it elsewhere at any time, at text
 * that stays valid. The file is opened, written and closed for each line, and started afresh every 1000 lines.
 */
extern const char *pRTLogPath;

/* Path that rt_log_init moves the previous run's log to, "/var/log/vexel.log.bak". */
extern const char *pRTBakLogPath;

/* Serialises the writes to the log file. Usable from load time on; innermost of all locks, under which nothing logs. */
extern pthread_mutex_t logmutex;

/* Largest length of one log entry that clients are to produce, 511 characters. The library does not consult it. */
extern const uint32_t MAX_LOG_ENTRY_SIZE;

/* Name of the component, "VEXEL", for clients that want a mutex name. */
extern const char *pMUtexName;

/*
 * Moves the previous log to the backup path, creates an empty log and prepares logmutex. Called once, at start, while no
 * other thread logs.
 * Returns: 0 when every step succeeded; after a failure, which zentprintf has got at level 1, what that call returned.
 */
int rt_log_init(void);

/* Gives up what rt_log_init prepared, while no other thread logs. Lines logged later are still written. */
void rt_log_Exit(void);

/*
 * Counts one line and says whether the file is to be started afresh.
 * limit: lines that a file may hold.
 * Returns: 1 start afresh, this line counts as the first; 0 append. Locks: the caller holds logmutex.
 */
unsigned hasLogDepthExceeded(int limit);

/*
 * Says whether the flag file "/flash/data0/oem_ps/vexel_log_disabled" switches the log file off. The answer of the first
 * call holds for the life of the process.
 * Returns: 1 no lines are written to the file; 2 lines are written.
 */
unsigned IsvexelLogDisabled(void);

/*
 * Logs a wide text under a tag, as "[tag] text" at level 4; nothing if either is null, before rt_log_init, or if that could
 * not create the file. unused: accepted and ignored. Locks: takes logmutex.
 */
void vexel_wlog(uint32_t unused, const char *tag, const wchar_t *text);

/*
 * Logs bytes as lines of 16 in hexadecimal and as characters, to both sinks; to neither when the log file is switched
 * off. bytes: length bytes; null logs nothing. length: 0 or less logs nothing.
 * Returns: 0. Locks: takes logmutex.
 */
int hexdump(const void *bytes, int length);

/* ---- Memory ---------------------------------------------------------------------------------------------------- */

/* Allocates size zeroed bytes. Returns: the block; null without memory. Owns: the caller, vexel_free. */
void *vexel_alloc(size_t size);

/* Frees a block of vexel_alloc; null is allowed. */
void vexel_free(void *block);

/*
 * Allocates a zeroed two-dimensional array: a table of row pointers and one block that the rows share.
 * rows, columns: shape; elementSize: bytes of one element. With 0 rows the table has one readable null entry.
 * Returns: the row table, null if either allocation fails or the sizes overflow. Owns: the caller, vexel_free_2darray.
 */
void **vexel_alloc_2darray(size_t rows, size_t columns, size_t elementSize);

/* Frees an array of vexel_alloc_2darray; null is allowed. rows is not used. */
void vexel_free_2darray(void **table, size_t rows);

/* ---- Text ------------------------------------------------------------------------------------------------------ */

/*
 * Copies at most count wide characters and terminates. destination: room for count + 1 characters, all written when
 * count is not 0 (padded with zeros, and a terminator at index count); only the first when it is 0.
 * Returns: destination; null if either pointer is null, nothing written.
 */
wchar_t *wcsncpy_safe(wchar_t *destination, const wchar_t *source, size_t count);

/*
 * Copies count bytes if they fit destinationSize bytes and neither pointer is null; otherwise copies nothing. The two
 * areas must not overlap.
 * Returns: 0 in both cases.
 */
int memcpy_safe(void *destination, size_t destinationSize, const void *source, size_t count);

/*
 * Trims white space at both ends of a text field, in place, and fills the rest with zeros. Of a field of white space only
 * the first byte becomes 0; what is only zeros behind white space moves to the start, and the rest stays.
 * buffer: length bytes, need not be terminated; null, a length of 0 or missing memory changes nothing.
 */
void StripLeadingTrailingSpace(char *buffer, size_t length);

/*
 * Writes a 23-character part and serial identifier in its readable form, AA-BBBBBB-CCCCC-DDD-EEEE-FFF.
 * source: 24 bytes, read to the end whatever they hold. destination: room for 30 bytes; the 28 characters and what the
 * 24th byte is, a terminator as a rule, are written.
 * Returns: 0; all bits set if either pointer is null, nothing written.
 */
uint32_t ConvertPPIDtoHRIFormat(const char *source, char *destination);

/*
 * Asks the platform for the friendly name of an FQDD. Returns: the name; null for a null FQDD, no memory, or an FQDD
 * without a friendly name. Owns: the caller, vexel_free.
 */
char *getFriendlyFQDDName(const wchar_t *fqdd);

/* ---- Waiting --------------------------------------------------------------------------------------------------- */

/*
 * Sleeps seconds, repeats times; after each, calls callback (may be null) and stops early when it returns 0.
 * A signal does not shorten the sleep.
 */
void vexel_sleep(unsigned seconds, unsigned repeats, int (*callback)(void));

/* ---- Flag files ------------------------------------------------------------------------------------------------ */

/* Tests "/flash/data0/oem_ps/vexel_sashba_disabled". Returns: 0 the file exists, 1 it does not. */
unsigned IsvexelHBAInventoryDisabled(void);

/* Tests "/flash/data0/oem_ps/vexel_tavi_disabled". Returns: 0 the file exists, 1 it does not. */
unsigned IsvexelTAVIInventoryDisabled(void);

/*
 * Reads two decimal numbers from "/flash/data0/oem_ps/vexel_tavi_poll"; 0 and 3 if it holds fewer. Outputs: not null.
 * Returns: 1 the file exists, outputs filled; 0 it does not, outputs unchanged.
 */
unsigned IsstressTAVIPollEnabled(int *first, int *second);

/* Consumes the one-shot request "/tmp/rtdump". Returns: 1 the file existed and was removed by this call; else 0. */
unsigned IsDumpEnabled(void);

/* ---- Identify light of PCIe SSDs ------------------------------------------------------------------------------- */

/*
 * Makes a drive's locator light blink, by one IPMI command; blocks for as long as that takes.
 * u8bayId, u8SSDSlotNum: bay and slot in the bay, 8 bits of each. Returns: 0; 1 the command failed.
 */
uint32_t BlinkPCIeSSD(int u8bayId, int u8SSDSlotNum);

/* Ends the blinking and hands over the status that the light is to show. Arguments and Returns: as BlinkPCIeSSD. */
uint32_t UnBlinkPCIeSSD(int u8bayId, int u8SSDSlotNum, uint16_t u16DriveStatus);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* VEXUTILS_VEXEL_H */
