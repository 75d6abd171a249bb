#include "platform/ipmi.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>

#include <linux/ipmi.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <exception>
#include <string>

#include "ipmi_link.h"
#include "os_support.h"
#include "platform/debug_log.h"

using namespace vexplatform;

namespace {

constexpr uint32_t kDefaultResponseRoom = 10;  // what a response length of 0 stands for
constexpr uint64_t kDefaultTimeoutMs =
    5000;  // chosen: the kernel's driver itself gives up after about as long
constexpr uint64_t kLongestTimeoutMs = 60000;
constexpr uint8_t kNetFnEnd = 0x40;  // network functions have 6 bits

constexpr char kDefaultDevice[] = "/dev/ipmi0";
constexpr std::string_view kDevicePrefix = "device:";
constexpr std::string_view kTcpPrefix = "tcp:";

/* Sends the request to the controller of this machine. Returns: 0 or an errno value. */
int send_to_device(int fd, const IpmiRequest& request, long id) {
    ipmi_system_interface_addr address{};
    address.addr_type = IPMI_SYSTEM_INTERFACE_ADDR_TYPE;
    address.channel = IPMI_BMC_CHANNEL;
    std::string data = request.data;  // the driver's interface wants it writable
    ipmi_req message{};
    message.addr = reinterpret_cast<unsigned char*>(&address);
    message.addr_len = sizeof address;
    message.msgid = id;
    message.msg.netfn = request.net_fn;
    message.msg.cmd = request.cmd;
    message.msg.data = reinterpret_cast<unsigned char*>(data.data());
    message.msg.data_len = static_cast<unsigned short>(data.size());
    return ioctl(fd, IPMICTL_SEND_COMMAND, &message) == 0 ? 0 : errno;
}

/*
 * Takes one message from the driver.
 * Returns: its bytes if it answers the request of this id, none otherwise.
 */
std::optional<IpmiResponse> receive_from_device(int fd, long id) {
    unsigned char data[IPMI_MAX_MSG_LENGTH] = {};
    ipmi_addr address{};
    ipmi_recv message{};
    message.addr = reinterpret_cast<unsigned char*>(&address);
    message.addr_len = sizeof address;
    message.msg.data = data;
    message.msg.data_len = sizeof data;
    const bool cut = ioctl(fd, IPMICTL_RECEIVE_MSG_TRUNC, &message) != 0;
    if ((cut && errno != EMSGSIZE) || message.recv_type != IPMI_RESPONSE_RECV_TYPE ||
        message.msgid != id || message.msg.data_len == 0) {
        return std::nullopt;
    }
    const size_t length = std::min<size_t>(message.msg.data_len, sizeof data);
    return IpmiResponse{data[0], std::string(data + 1, data + length), {}};
}

/* One exchange with a device node of the kernel's driver. */
IpmiResponse exchange_with_device(const std::string& path, const IpmiRequest& request,
                                  const Deadline& deadline) {
    static std::atomic<long> next_id{1};
    const UniqueFd fd{open(path.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK)};
    if (!fd) {
        return ipmi_failure(kIpmiUnspecified, path + ": " + std::strerror(errno));
    }
    const long id = next_id.fetch_add(1, std::memory_order_relaxed);
    if (const int error = send_to_device(fd.get(), request, id); error != 0) {
        return ipmi_failure(kIpmiUnspecified, path + ": not sent: " + std::strerror(error));
    }
    while (!deadline.passed()) {
        pollfd ready{fd.get(), POLLIN, 0};
        if (poll(&ready, 1, deadline.remaining_ms()) <= 0) {
            continue;
        }
        if (const auto response = receive_from_device(fd.get(), id)) {
            return *response;
        }
        if ((ready.revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
            return ipmi_failure(kIpmiUnspecified, path + ": the device went away");
        }
    }
    return ipmi_failure(kIpmiTimeout, path + ": no response in time");
}

/* One exchange with whatever VEX_IPMI names. */
IpmiResponse exchange(const IpmiRequest& request) {
    const std::string target = env_text("VEX_IPMI", "");
    const Deadline deadline{std::chrono::milliseconds{
        env_number("VEX_IPMI_TIMEOUT_MS", 1, kLongestTimeoutMs, kDefaultTimeoutMs)}};
    if (target.empty()) {
        return exchange_with_device(kDefaultDevice, request, deadline);
    }
    if (target == "none") {
        return ipmi_failure(kIpmiUnspecified, "switched off by VEX_IPMI=none");
    }
    if (target.starts_with(kDevicePrefix)) {
        return exchange_with_device(target.substr(kDevicePrefix.size()), request, deadline);
    }
    if (target.starts_with(kTcpPrefix)) {
        return ipmi_exchange_over_tcp(target.substr(kTcpPrefix.size()), request, deadline);
    }
    return ipmi_failure(kIpmiUnspecified,
                        "VEX_IPMI=" + target + ": expected tcp:ADDRESS:PORT, device:PATH or none");
}

}  // namespace

IpmiResponse vexplatform::ipmi_failure(uint8_t completion, std::string why) {
    return IpmiResponse{completion, {}, std::move(why)};
}

int IPMI_DoIPMICmd(uint8_t netFn, uint8_t cmd, const uint8_t* request, uint32_t requestLength,
                   uint8_t* response, uint32_t* responseLength) {
    uint32_t room = 0;
    if (response != nullptr && responseLength != nullptr) {
        room = *responseLength == 0 ? kDefaultResponseRoom : *responseLength;
    }
    if (responseLength != nullptr) {
        *responseLength = 0;
    }
    if (requestLength > kIpmiMaxData) {
        return kIpmiBadLength;
    }
    if (netFn >= kNetFnEnd || (request == nullptr && requestLength != 0)) {
        return kIpmiBadField;
    }

    try {
        const IpmiRequest message{netFn, cmd, std::string(request, request + requestLength)};
        const IpmiResponse answer = exchange(message);
        if (!answer.failure.empty()) {
            zentprintf(kLogFailure, kLogModule, "IPMI %02x %02x: %s\n", netFn, cmd,
                       answer.failure.c_str());
        }
        const size_t count = std::min<size_t>(room, answer.data.size());
        if (count > 0) {
            std::memcpy(response, answer.data.data(), count);
            *responseLength = static_cast<uint32_t>(count);
        }
        return answer.completion;
    } catch (const std::exception& error) {
        zentprintf(kLogFailure, kLogModule, "IPMI %02x %02x: %s\n", netFn, cmd, error.what());
        return kIpmiUnspecified;
    }
}
