
#include <arpa/inet.h>
#include <sys/socket.h>

#include <numeric>

#include "platform/ipmi.h"
#include "tests/support/linux_test.h"

namespace {

/* An answer of the peer: network function << 2, command, completion code, data. */
struct Answer {
    Bytes bytes;
    uint8_t sequence_error = 0;  // added to the request's sequence number
    uint8_t checksum_error = 0;
};

/* What the peer does in a connection: reads one request, sends the answers; or nothing. */
struct Script {
    std::vector<Answer> answers = {};
    bool reads = true;
    bool then_closes = false;
};

uint8_t sum(const Bytes& bytes) {
    return static_cast<uint8_t>(std::accumulate(bytes.begin(), bytes.end(), 0u));
}

/* A loopback peer that plays one script per connection. */
class Peer {
  public:
    explicit Peer(std::vector<Script> scripts) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        EXPECT_EQ(bind(listener_, reinterpret_cast<sockaddr*>(&address), size), 0);
        EXPECT_EQ(listen(listener_, 4), 0);
        getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
        endpoint = "tcp:127.0.0.1:" + std::to_string(ntohs(address.sin_port));
        thread_ = std::thread{[this, scripts] {
            for (const Script& script : scripts) {
                const int fd = accept(listener_, nullptr, nullptr);
                if (fd >= 0 && script.reads) {
                    play(fd, script);
                }
                close(fd);
            }
        }};
    }
    ~Peer() {
        shutdown(listener_, SHUT_RDWR);
        thread_.join();
        close(listener_);
    }

    std::string endpoint;
    /* The last request as it came over the wire. Valid after the exchange. */
    Bytes request;

  private:
    void play(int fd, const Script& script) {
        uint8_t byte = 0;
        bool escaped = false;
        request.clear();
        while (recv(fd, &byte, 1, 0) == 1 && byte != 0xA0) {
            if (escaped || byte != 0xAA) {
                request.push_back(escaped ? static_cast<uint8_t>(byte & ~0x10) : byte);
            }
            escaped = !escaped && byte == 0xAA;
        }
        for (const Answer& answer : script.answers) {
            send_answer(fd, answer);
        }
        while (!script.then_closes && recv(fd, &byte, 1, 0) == 1) {
        }
    }
    void send_answer(int fd, const Answer& answer) const {
        Bytes message{static_cast<uint8_t>(request.at(0) + answer.sequence_error)};
        message.insert(message.end(), answer.bytes.begin(), answer.bytes.end());
        message.push_back(static_cast<uint8_t>(answer.checksum_error - sum(message)));
        Bytes frame;
        for (const uint8_t b : message) {
            if (b == 0xA0 || b == 0xA1 || b == 0xAA) {
                frame.insert(frame.end(), {0xAA, static_cast<uint8_t>(b | 0x10)});
            } else {
                frame.push_back(b);
            }
        }
        frame.push_back(0xA0);
        send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
    }

    const int listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::thread thread_;
};

class LinuxIpmi : public testing::Test {
  protected:
    void SetUp() override { setenv("VEX_IPMI_TIMEOUT_MS", "2000", 1); }
    void TearDown() override {
        unsetenv("VEX_IPMI");
        unsetenv("VEX_IPMI_TIMEOUT_MS");
    }
    int identify(const std::string& endpoint) {
        setenv("VEX_IPMI", endpoint.c_str(), 1);
        const uint8_t request[] = {0x00, 0x14, 0x0E, 0x00, 0x00, 0x00, 0x0E, 0x00, 2, 5,
                                   8,    0,    0,    0,    0,    0,    0,    0,    0, 0};
        length = room;
        return IPMI_DoIPMICmd(0x30, 0xD5, request, sizeof request, response, &length);
    }

    uint32_t room = 0;
    uint32_t length = 0;
    uint8_t response[16] = {};
};

const Answer kDone = {{0xC4, 0xD5, 0x00}};

TEST_F(LinuxIpmi, SendsTheRequestAndTakesTheMatchingAnswer) {
    const Answer special = {{0xC4, 0xD5, 0x00, 0xA0, 0xA1, 0xAA}};
    Answer longer = kDone;
    longer.bytes.insert(longer.bytes.end(), 20, 0x01);
    const Rows<const char*, std::vector<Answer>, uint32_t, int, Bytes> rows{
        {"success", {kDone}, 0, 0, {}},
        {"no such command", {{{0xC4, 0xD5, 0xC1}}}, 0, 0xC1, {}},
        {"escaped bytes", {special}, 0, 0, {0xA0, 0xA1, 0xAA}},
        {"room 0 counts as 10", {longer}, 0, 0, Bytes(10, 1)},
        {"more than the room", {longer}, 3, 0, Bytes(3, 1)},
        {"an answer to another command first", {{{0xC4, 0xD4, 0xC0}}, kDone}, 0, 0, {}},
        {"an answer to another request first", {{{0xC4, 0xD5, 0xC0}, 1}, kDone}, 0, 0, {}},
        {"an answer of another function first", {{{0xC0, 0xD5, 0xC0}}, kDone}, 0, 0, {}},
        {"a damaged answer first", {{{0xC4, 0xD5, 0xC1}, 0, 1}, kDone}, 0, 0, {}},
        {"a short answer first", {{{0xC4, 0xD5}}, kDone}, 0, 0, {}}};
    const Bytes wire = {0xC0, 0xD5, 0x00, 0x14, 0x0E, 0x00, 0x00, 0x00, 0x0E, 0x00, 2,
                        5,    8,    0,    0,    0,    0,    0,    0,    0,    0,    0};
    for (const auto& [what, row_answers, row_room, completion, data] : rows) {
        Peer peer{{Script{row_answers}}};
        room = row_room;
        EXPECT_EQ(identify(peer.endpoint), completion);
        EXPECT_EQ(Bytes(response, response + length), data);
        EXPECT_EQ(sum(peer.request), 0);
        EXPECT_EQ(Bytes(peer.request.begin() + 1, peer.request.end() - 1), wire);
    }
}

TEST_F(LinuxIpmi, TriesAgainWhileThePeerServesAnother) {
    Peer peer{{Script{{}, false}, Script{{}, false}, Script{{kDone}}}};
    EXPECT_EQ(identify(peer.endpoint), 0);
}

TEST_F(LinuxIpmi, EndsEveryFailureWithACompletionCodeInTime) {
    setenv("VEX_IPMI_TIMEOUT_MS", "200", 1);
    const Answer endless = {Bytes(5000, 0x55)};
    Peer silent{{Script{}}};
    Peer stranger{{Script{{{{0xC4, 0xD5, 0x00}, 1}}}}};
    Peer babble{{Script{{endless, endless}}}};
    Peer quitter{{Script{{{{0xC4}}}, true, true}}};
    for (const auto& [what, target, completion] : Rows<const char*, std::string, int>{
             {"switched off", "none", 0xFF},
             {"no such mode", "serial:1", 0xFF},
             {"a name that would have to be looked up", "tcp:bmc.example:623", 0xFF},
             {"no port", "tcp:127.0.0.1", 0xFF},
             {"no such device", "device:/nonexistent/ipmi0", 0xFF},
             {"a device that speaks no IPMI", "device:/dev/null", 0xFF},
             {"nobody listens", "tcp:127.0.0.1:1", 0xFF},
             {"silence", silent.endpoint, 0xC3},
             {"only answers to others", stranger.endpoint, 0xC3},
             {"babble without end", babble.endpoint, 0xC3},
             {"closed in the middle", quitter.endpoint, 0xFF}}) {
        const auto start = Clock::now();
        EXPECT_EQ(identify(target), completion);
        EXPECT_EQ(length, 0u);
        EXPECT_LT(Clock::now() - start, seconds{2});
    }
}

TEST_F(LinuxIpmi, RefusesBadArgumentsBeforeAnyExchange) {
    setenv("VEX_IPMI", "none", 1);
    const uint8_t data[256] = {};
    length = 10;
    EXPECT_EQ(IPMI_DoIPMICmd(0x30, 0xD5, data, 256, response, &length), 0xC7);
    EXPECT_EQ(IPMI_DoIPMICmd(0x30, 0xD5, nullptr, 1, response, &length), 0xCC);
    EXPECT_EQ(IPMI_DoIPMICmd(0x40, 0xD5, data, 1, response, &length), 0xCC);
    EXPECT_EQ(IPMI_DoIPMICmd(0x30, 0xD5, nullptr, 0, nullptr, nullptr), 0xFF);
}

}  // namespace
