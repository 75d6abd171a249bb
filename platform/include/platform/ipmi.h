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
 * netFn: 0 to 63, even for a request. request: requestLength bytes (at most 255), may be null if that is 0. response: room
 * for the response bytes behind the completion code, may be null (they are dropped). responseLength: in the room (0 counts
 * as 10, which is what the library's buffers hold), out the bytes filled, 0 on failure; a longer response is cut. May be
 * null (the response is dropped).
 * Returns: the completion code in the low 8 bits, 0 success, 0xC1 no such command; the other bits are 0. Without hardware
 * or on a transport error a completion code too, never a crash: 0xC3 no response within the time-out, 0xC7 request too
 * long, 0xCC argument out of range or null, 0xFF no device or any other failure.
 */
int IPMI_DoIPMICmd(uint8_t netFn, uint8_t cmd, const uint8_t *request, uint32_t requestLength, uint8_t *response,
                   uint32_t *responseLength);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* PLATFORM_IPMI_H */
