/*
 * evipc.h - the event IPC library: submissions to the system event log.
 *
 * An implementer promises: a submission that returned 0 is on record, whatever happens to either process afterwards; any
 * thread may call. Results are 0 for success and negative otherwise (the Linux platform: an errno value, negated). A
 * call may block while another process writes, for seconds at most.
 */
#ifndef PLATFORM_EVIPC_H
#define PLATFORM_EVIPC_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum {
    EVIPC_TLV_MESSAGE_ARGUMENTS = 6, /* TLV type of packed message arguments */
    EVIPC_SINGLE_REQUEST_SIZE = 16,  /* bytes of the request of EVIPCLSubmitSingle */
};

/*
 * Packs message arguments into one buffer.
 * strings: count texts, none null. buffer: *size bytes. size: in the room, out the bytes used; not null.
 * Returns: 0 packed; negative if they do not fit or an argument is null: *size unchanged, the buffer's content undefined.
 * How they are packed is the implementer's own; it fits a TLV of type EVIPC_TLV_MESSAGE_ARGUMENTS.
 */
int32_t EVIPCLBuildMsgArgsBuffer(const char *const *strings, uint8_t count, char *buffer, uint32_t *size);

/* Makes an empty TLV list in *list. Returns: 0; negative without memory: *list null. Owns: the caller, EVIPCLFreeTLVList. */
int32_t EVIPCLCreateTLVList(void **list);

/*
 * Appends a copy of size bytes at value, which may be null if that is 0. list: not null.
 * Returns: 0; negative without memory, for a null argument or a full list (at least 16 fit): list unchanged.
 */
int32_t EVIPCLAddTLVToList(uint32_t type, uint16_t size, const void *value, void *list);

/* Frees a list; null is allowed. Returns: 0. */
int32_t EVIPCLFreeTLVList(void *list);

/*
 * Submits one alert.
 * c4, c2: fixed codes of the sender. severity: 1 to 3. messageId: registry id such as "CTL140", at most 63 characters, not
 * null or empty. zero: 0. fqdd: device, at most 255 characters, may be null. list: TLVs, may be null; stays the caller's.
 * Returns: 0 on record; any other value not recorded.
 */
int32_t EVIPCLSubmitEvent(uint32_t c4, uint32_t c2, uint32_t severity, const char *messageId, uint32_t zero,
                          const char *fqdd, void *list);

/*
 * Submits a notification that is a single value.
 * request: EVIPC_SINGLE_REQUEST_SIZE bytes: u32 own length, u16 value, u8 2, nine zero bytes. value: the value again.
 * Returns: 0 on record; any other value not recorded.
 */
int32_t EVIPCLSubmitSingle(const void *request, uint32_t two, uint32_t zero, uint16_t value);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* PLATFORM_EVIPC_H */
