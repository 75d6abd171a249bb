#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <numeric>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "ipmi_link.h"

namespace vexplatform {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kEndOfMessage = 0xA0;
constexpr uint8_t kEndOfControl = 0xA1;
constexpr uint8_t kEscape = 0xAA;
constexpr uint8_t kEscapeBit = 0x10;

constexpr size_t kHeader = 3;            // sequence number, network function, command
constexpr size_t kShortestAnswer = 5;    // header, completion code, checksum
constexpr size_t kLongestAnswer = 1024;  // chosen: longer ones are garbage
constexpr auto kRetryPause = std::chrono::milliseconds{10};

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

/*
 * Splits "HOST:PORT" at the last colon and takes IPv6 brackets off.
 * Returns: null if that gives no numeric address.
 */
AddressList resolve(const std::string& endpoint) {
    const size_t colon = endpoint.rfind(':');
    if (colon == std::string::npos) {
        return {nullptr, freeaddrinfo};
    }
    std::string host = endpoint.substr(0, colon);
    if (host == "localhost") {
        host = "127.0.0.1";
    } else if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        host = host.substr(1, host.size() - 2);
    }
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), endpoint.c_str() + colon + 1, &hints, &found) != 0) {
        found = nullptr;
    }
    return {found, freeaddrinfo};
}

/* Waits for a socket. Returns: false once the deadline passed. */
bool wait_for(int fd, short events, const Deadline& deadline) {
    while (!deadline.passed()) {
        pollfd ready{fd, events, 0};
        if (poll(&ready, 1, deadline.remaining_ms()) > 0) {
            return true;
        }
    }
    return false;
}

/*
 * Connects without blocking beyond the deadline.
 * Returns: none with errno set (ETIMEDOUT at the deadline).
 */
UniqueFd connect_to(const addrinfo& address, const Deadline& deadline) {
    UniqueFd fd{socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    if (!fd) {
        return fd;
    }
    if (connect(fd.get(), address.ai_addr, address.ai_addrlen) == 0) {
        return fd;
    }
    if (errno != EINPROGRESS && errno != EINTR) {
        return UniqueFd{};
    }
    int error = ETIMEDOUT;
    if (wait_for(fd.get(), POLLOUT, deadline)) {
        socklen_t size = sizeof error;
        getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &error, &size);
    }
    if (error != 0) {
        fd.reset();
        errno = error;
    }
    return fd;
}

void append_escaped(Bytes& frame, uint8_t byte) {
    if (byte == kEndOfMessage || byte == kEndOfControl || byte == kEscape) {
        frame.push_back(kEscape);
        byte |= kEscapeBit;
    }
    frame.push_back(byte);
}

Bytes encode(uint8_t sequence, const IpmiRequest& request) {
    Bytes message{sequence, static_cast<uint8_t>(request.net_fn << 2), request.cmd};
    message.insert(message.end(), request.data.begin(), request.data.end());
    const auto sum = std::accumulate(message.begin(), message.end(), 0u);
    message.push_back(static_cast<uint8_t>(0u - sum));
    Bytes frame;
    for (const uint8_t byte : message) {
        append_escaped(frame, byte);
    }
    frame.push_back(kEndOfMessage);
    return frame;
}

/* Collects received bytes into messages. */
class Decoder {
  public:
    /* Returns: a whole message with a good checksum, when this byte ends one. */
    std::optional<Bytes> take(uint8_t byte) {
        if (byte == kEndOfMessage || byte == kEndOfControl) {
            Bytes message = std::exchange(message_, {});
            const bool good = byte == kEndOfMessage && !too_long_ && checksum_fits(message);
            escaped_ = too_long_ = false;
            return good ? std::optional{std::move(message)} : std::nullopt;
        }
        if (byte == kEscape) {
            escaped_ = true;
        } else if (message_.size() == kLongestAnswer) {
            too_long_ = true;
        } else {
            message_.push_back(escaped_ ? byte & static_cast<uint8_t>(~kEscapeBit) : byte);
            escaped_ = false;
        }
        return std::nullopt;
    }

  private:
    static bool checksum_fits(const Bytes& message) {
        return message.size() >= kShortestAnswer &&
               (std::accumulate(message.begin(), message.end(), 0u) & 0xFF) == 0;
    }

    Bytes message_;
    bool escaped_ = false;
    bool too_long_ = false;
};

bool answers(const Bytes& message, uint8_t sequence, const IpmiRequest& request) {
    return message[0] == sequence && message[1] >> 2 == (request.net_fn | 1) &&
           message[2] == request.cmd;
}

IpmiResponse to_response(const Bytes& message) {
    return {message[kHeader], std::string(message.begin() + kHeader + 1, message.end() - 1), {}};
}

/* Sends the frame. Returns: 0 or an errno value. */
int send_frame(int fd, const Bytes& frame, const Deadline& deadline) {
    for (size_t sent = 0; sent < frame.size();) {
        const ssize_t count = send(fd, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL);
        if (count >= 0) {
            sent += static_cast<size_t>(count);
        } else if (errno != EAGAIN && errno != EINTR) {
            return errno;
        } else if (!wait_for(fd, POLLOUT, deadline)) {
            return ETIMEDOUT;
        }
    }
    return 0;
}

/*
 * One attempt.
 * Returns: none if the peer closed without a word: it serves somebody else and took nothing.
 */
std::optional<IpmiResponse> attempt(const addrinfo& address, uint8_t sequence,
                                    const IpmiRequest& request, const Deadline& deadline) {
    const UniqueFd fd = connect_to(address, deadline);
    int error = fd ? send_frame(fd.get(), encode(sequence, request), deadline) : errno;
    Decoder decoder;
    bool heard = false;
    while (error == 0) {
        if (!wait_for(fd.get(), POLLIN, deadline)) {
            error = ETIMEDOUT;
            break;
        }
        uint8_t block[256];
        const ssize_t count = recv(fd.get(), block, sizeof block, 0);
        if (count <= 0) {
            error = count == 0 ? ECONNRESET : errno == EAGAIN || errno == EINTR ? 0 : errno;
        }
        heard = heard || count > 0;
        for (ssize_t i = 0; i < count; ++i) {
            const auto message = decoder.take(block[i]);
            if (message && answers(*message, sequence, request)) {
                return to_response(*message);
            }
        }
    }
    if (!heard && (error == ECONNRESET || error == EPIPE)) {
        return std::nullopt;
    }
    return ipmi_failure(error == ETIMEDOUT ? kIpmiTimeout : kIpmiUnspecified, std::strerror(error));
}

}  // namespace

IpmiResponse ipmi_exchange_over_tcp(const std::string& endpoint, const IpmiRequest& request,
                                    const Deadline& deadline) {
    static std::atomic<uint8_t> next_sequence{0};
    const AddressList addresses = resolve(endpoint);
    if (addresses == nullptr) {
        return ipmi_failure(kIpmiUnspecified, endpoint + ": no numeric address and port");
    }
    const uint8_t sequence = next_sequence.fetch_add(1, std::memory_order_relaxed);
    while (!deadline.passed()) {
        if (auto response = attempt(*addresses, sequence, request, deadline)) {
            if (!response->failure.empty()) {
                response->failure = endpoint + ": " + response->failure;
            }
            return *response;
        }
        std::this_thread::sleep_for(kRetryPause);
    }
    return ipmi_failure(kIpmiTimeout, endpoint + ": busy with another connection");
}

}  // namespace vexplatform
