#include <platform/ipmi.h>

#include <array>

#include "internal/log.h"
#include "vexel.h"

namespace vexutils {
namespace {

constexpr std::uint8_t kNetFunction = 0x30;
constexpr std::uint8_t kCommand = 0xD5;
constexpr std::uint16_t kBlink = 8;  // in place of a drive status
constexpr int kRequestBytes = 20;
constexpr int kResponseBytes = 10;
constexpr unsigned kCompletionMask = 0xFF;

using Request = std::array<std::uint8_t, kRequestBytes>;

Request request_for(int bay, int slot, std::uint16_t status) {
    // The header of the controller's own command.
    Request request{0x00, 0x14, 0x0E, 0x00, 0x00, 0x00, 0x0E, 0x00};
    request[8] = static_cast<std::uint8_t>(bay);
    request[9] = static_cast<std::uint8_t>(slot);
    request[10] = static_cast<std::uint8_t>(status & 0xFF);
    request[11] = static_cast<std::uint8_t>(status >> 8);
    return request;
}

// Sends a request; the completion code, 0 for success. What is answered is not looked at.
int completion_of(const Request& request) {
    std::array<std::uint8_t, kResponseBytes> response{};
    std::uint32_t response_length = 0;
    const int result = IPMI_DoIPMICmd(kNetFunction, kCommand, request.data(), kRequestBytes,
                                      response.data(), &response_length);
    return static_cast<int>(static_cast<unsigned>(result) & kCompletionMask);
}

}  // namespace
}  // namespace vexutils

using namespace vexutils;

uint32_t BlinkPCIeSSD(int u8bayId, int u8SSDSlotNum) {
    LOG(Level::Trace, "-->Blink u8bayId=%d u8SSDSlotNum=%d", u8bayId, u8SSDSlotNum);
    const Request request = request_for(u8bayId, u8SSDSlotNum, kBlink);
    hexdump(request.data(), kRequestBytes);
    const int completion = completion_of(request);
    LOG(Level::Trace, "IMPMICmd rc=%d LINE=%d", completion, __LINE__);
    if (completion != 0) {
        LOG(Level::Error, "%s u8SSDSlotNum=%d", "Failed While Sending Blink Command", u8SSDSlotNum);
        return 1;
    }
    return 0;
}

uint32_t UnBlinkPCIeSSD(int u8bayId, int u8SSDSlotNum, uint16_t u16DriveStatus) {
    LOG(Level::Trace, "-->UnBlink u8bayId=%d u8SSDSlotNum=%d u16DriveStatus=%d", u8bayId,
        u8SSDSlotNum, u16DriveStatus);
    const Request request = request_for(u8bayId, u8SSDSlotNum, u16DriveStatus);
    hexdump(request.data(), kRequestBytes);
    const int completion = completion_of(request);
    LOG(Level::Trace, "IMPMICmd rc=%d LINE=%d", completion, __LINE__);
    if (completion != 0) {
        LOG(Level::Error, "%s u8SSDSlotNum=%d", "Failed While Sending UnBlink Command",
            u8SSDSlotNum);
        return 1;
    }
    return 0;
}
