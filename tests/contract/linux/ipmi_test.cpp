
#include <arpa/inet.h>
#include <sys/socket.h>

#include <numeric>

#include "platform/ipmi.h"
#include "tests/support/linux_test.h"

namespace {

/*
 * An answer of the peer: what to add to the request's sequence number, network function << 2,
 * command, completion code, data.
 */
using Answer = Bytes;

uint8_t sum(const Bytes& bytes) {
    return static_cast<uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0u));
}

/* A loopback peer that is busy at first, then reads one request and sends its answers. */
class Peer {
  public:
    explicit Peer(std::vector<Answer> answers) : answers_(std::move(answers)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(listen(listener_, 4), 0);
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
        endpoint = "tcp:127.0.0.1:" + std::to_string(ntohs(address.sin_port));
        thread_ = std::thread{[this] { serve(); }};
    }
    ~Peer() {
        thread_.join();
        close(listener_);
    }

    std::string endpoint;
    /* The last request, without escapes. Valid after the exchange. */
    Bytes request;

  private:
    void serve() {
        close(accept(listener_, nullptr, nullptr));
        const int fd = accept(listener_, nullptr, nullptr);
        uint8_t byte = 0;
        uint8_t escape = 0;
        while (recv(fd, &byte, 1, 0) == 1 && byte != 0xA0) {
            if (byte != 0xAA) {
                request.push_back(byte & static_cast<uint8_t>(~escape));
            }
            escape = byte == 0xAA ? 0x10 : 0;
        }
        for (Answer message : answers_) {
            message.at(0) = static_cast<uint8_t>(message.at(0) + request.at(0));
            message.push_back(static_cast<uint8_t>(-sum(message)));
            for (uint8_t b : message) {
                if (b == 0xA0 || b == 0xAA) {
                    send(fd, "\xAA", 1, MSG_NOSIGNAL);
                    b |= 0x10;
                }
                send(fd, &b, 1, MSG_NOSIGNAL);
            }
            send(fd, "\xA0", 1, MSG_NOSIGNAL);
        }
        while (recv(fd, &byte, 1, 0) == 1) {
        }
        close(fd);
    }

    const int listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const std::vector<Answer> answers_;
    std::thread thread_;
};

class LinuxIpmi : public testing::Test {
  protected:
    int identify(const std::string& endpoint, const char* timeout = "2000") {
        environment.set("VEX_IPMI", endpoint);
        environment.set("VEX_IPMI_TIMEOUT_MS", timeout);
        const uint8_t request[] = {0x00, 0x14, 2, 5, 0xA0, 0xAA, 8};
        return IPMI_DoIPMICmd(0x30, 0xD5, request, sizeof request, response, &length);
    }

    Environment environment;
    uint32_t length = 0;
    uint8_t response[16] = {};
};

TEST_F(LinuxIpmi, SendsTheRequestAndTakesTheMatchingAnswer) {
    const Answer other_command = {0, 0xC4, 0xD4, 0xC0};
    const Answer other_request = {1, 0xC4, 0xD5, 0xC0};
    const Answer done = {0, 0xC4, 0xD5, 0xC1, 0xA0, 0xAA, 0, 0, 0, 0, 0, 0, 0, 1, 2};
    for (const auto& [what, room, data] : Rows<const char*, uint32_t, Bytes>{
             {"room 0 counts as 10", 0, {0xA0, 0xAA, 0, 0, 0, 0, 0, 0, 0, 1}},
             {"cut to the room", 2, {0xA0, 0xAA}}}) {
        Peer peer{{other_command, other_request, done}};
        length = room;
        EXPECT_EQ(identify(peer.endpoint), 0xC1);
        EXPECT_EQ(Bytes(response, response + length), data);
        EXPECT_EQ(sum(peer.request), 0);
        EXPECT_EQ(Bytes(peer.request.begin() + 1, peer.request.end() - 1),
                  (Bytes{0xC0, 0xD5, 0, 0x14, 2, 5, 0xA0, 0xAA, 8}));
    }
}

TEST_F(LinuxIpmi, EndsEveryFailureWithACompletionCodeInTime) {
    Peer silent{{}};
    for (const auto& [what, target, completion] :
         Rows<const char*, std::string, int>{{"switched off", "none", 0xFF},
                                             {"no such device", "device:/nonexistent/ipmi0", 0xFF},
                                             {"nobody listens", "tcp:127.0.0.1:1", 0xFF},
                                             {"silence", silent.endpoint, 0xC3}}) {
        const auto start = Clock::now();
        EXPECT_EQ(identify(target, "200"), completion);
        EXPECT_EQ(length, 0u);
        EXPECT_LT(Clock::now() - start, seconds{2});
    }
}

TEST_F(LinuxIpmi, RefusesBadArgumentsBeforeAnyExchange) {
    const uint8_t data[256] = {};
    EXPECT_EQ(IPMI_DoIPMICmd(0x30, 0xD5, data, 256, response, &length), 0xC7);
    EXPECT_EQ(IPMI_DoIPMICmd(0x40, 0xD5, data, 1, response, &length), 0xCC);
}

}  // namespace
