/*
 * ipmi.h - raw IPMI commands to the local management controller. Any thread may call; a call may block for the time-out
 * of one IPMI exchange (seconds).
 */
#ifndef PLATFORM_IPMI_H
#define PLATFORM_IPMI_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/*
 * Sends one request and waits for its response.
 * request: requestLength bytes, may be null if that is 0. response: room for the response bytes behind the completion
 * code. responseLength: in the room (0 counts as 10, which is what the library's buffers hold), out the bytes filled.
 * Returns: the completion code in the low 8 bits, 0 success, 0xC1 no such command. Without hardware or on a transport
 * error a completion code too (0xC3 time-out, 0xFF unspecified), never a crash.
 */
int IPMI_DoIPMICmd(uint8_t netFn, uint8_t cmd, const uint8_t *request, uint32_t requestLength, uint8_t *response,
                   uint32_t *responseLength);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* PLATFORM_IPMI_H */
