/*
 * ipmi_link.h - an IPMI exchange apart from the way it travels, and the way over TCP.
 *
 * The TCP endpoint speaks the framing that IPMI simulators offer to virtual machines:
 *   message: sequence number, network function << 2, command, data..., checksum; then the byte 0xA0
 *   answer:  the same with network function | 1, and the completion code as the first byte of data
 *   control: any other notice of the peer, ended by 0xA1; ignored here
 * The checksum makes the sum of all bytes of the message 0 modulo 256. The bytes 0xA0, 0xA1 and
 * 0xAA are sent inside a message as 0xAA and the byte with bit 4 set.
 */
#ifndef PLATFORM_LINUX_IPMI_LINK_H
#define PLATFORM_LINUX_IPMI_LINK_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "os_support.h"

namespace vexplatform {

/* Completion codes of this side; their values are IPMI's. */
inline constexpr uint8_t kIpmiTimeout = 0xC3;
inline constexpr uint8_t kIpmiBadLength = 0xC7;
inline constexpr uint8_t kIpmiBadField = 0xCC;
inline constexpr uint8_t kIpmiUnspecified = 0xFF;

inline constexpr size_t kIpmiMaxData =
    255;  // chosen: what every transport here carries in one message

struct IpmiRequest {
    uint8_t net_fn;
    uint8_t cmd;
    std::string data;
};

struct IpmiResponse {
    uint8_t completion;
    std::string data;     // behind the completion code
    std::string failure;  // why there was no answer, empty if there was one
};

/* A response made on this side. */
IpmiResponse ipmi_failure(uint8_t completion, std::string why);

/*
 * One exchange over a connection of its own.
 * endpoint: "ADDRESS:PORT", a numeric address, "[ADDRESS]:PORT" for IPv6, or "localhost:PORT":
 * nothing is looked up, so that no name server can hold up the caller.
 */
IpmiResponse ipmi_exchange_over_tcp(const std::string& endpoint, const IpmiRequest& request,
                                    const Deadline& deadline);

}  // namespace vexplatform

#endif /* PLATFORM_LINUX_IPMI_LINK_H */
