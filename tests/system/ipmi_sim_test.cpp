// The identify command against an IPMI simulator that others wrote: what arrives there, byte by
// byte, and what it answers to a command that nobody handles.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "platform/ipmi.h"
#include "tests/system/tool_process.h"
#include "vexel.h"

namespace {

// A port that was free a moment ago.
int free_port() {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size), 0);
    close(listener);
    return ntohs(address.sin_port);
}

class IpmiSimulator : public ToolTest {
  protected:
    void SetUp() override {
        if (*IPMI_SIM == '\0') {
            GTEST_SKIP() << "ipmi_sim and its headers are not installed (packages openipmi, "
                            "libopenipmi-dev, pkg-config)";
        }
    }
    void TearDown() override {
        stop();
        unsetenv("VEX_IPMI");
    }

    // Starts the simulator, with or without the module, and points the platform at it.
    void start(bool with_module) {
        stop();
        const std::string port = std::to_string(free_port());
        std::filesystem::create_directories(folder() + "/state");
        std::string lan =
            "name \"vex\"\nset_working_mc 0x20\n  serial 15 127.0.0.1 " + port + " codec VM\n";
        if (with_module) {
            lan += "loadlib \"" IPMI_SIM_MODULE "\" \"" + folder() + "/requests\"\n";
        }
        std::string words[] = {IPMI_SIM, "-n",
                               "-c",     write_file("lan.conf", lan),
                               "-f",     source_path("tests/system/ipmi_sim.commands"),
                               "-s",     folder() + "/state"};
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        ASSERT_EQ(posix_spawn(&pid_, IPMI_SIM, nullptr, nullptr, arguments.data(), environ), 0);
        setenv("VEX_IPMI", ("tcp:127.0.0.1:" + port).c_str(), 1);
        // It serves when it answers Get Device ID.
        for (int tries = 0; tries < 200 && send(0x06, 0x01) != 0; ++tries) {
            usleep(50'000);
        }
        ASSERT_EQ(send(0x06, 0x01), 0);
    }

    static int send(uint8_t net_function, uint8_t command) {
        uint32_t room = 0;
        return IPMI_DoIPMICmd(net_function, command, nullptr, 0, nullptr, &room) & 0xFF;
    }

    std::string requests() const { return file_content(folder() + "/requests"); }

  private:
    void stop() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        pid_ = -1;
    }

    pid_t pid_ = -1;
};

TEST_F(IpmiSimulator, GetsTheBytesOfEveryIdentify) {
    start(true);
    EXPECT_EQ(BlinkPCIeSSD(2, 5), 0u);
    EXPECT_EQ(UnBlinkPCIeSSD(2, 5, 0x0102), 0u);
    EXPECT_EQ(BlinkPCIeSSD(0xA0, 0xAA), 0u);  // bytes that the serial framing escapes
    EXPECT_EQ(requests(),
              "30 d5: 00 14 0e 00 00 00 0e 00 02 05 08 00 00 00 00 00 00 00 00 00\n"
              "30 d5: 00 14 0e 00 00 00 0e 00 02 05 02 01 00 00 00 00 00 00 00 00\n"
              "30 d5: 00 14 0e 00 00 00 0e 00 a0 aa 08 00 00 00 00 00 00 00 00 00\n");
    EXPECT_EQ(send(0x30, 0xD6), 0xC1);
}

TEST_F(IpmiSimulator, RefusesWithoutAHandler) {
    start(false);
    EXPECT_EQ(send(0x30, 0xD5), 0xC1);
    EXPECT_EQ(BlinkPCIeSSD(2, 5), 1u);
    EXPECT_EQ(UnBlinkPCIeSSD(2, 5, 1), 1u);
}

TEST_F(IpmiSimulator, GetsWhatAScenarioAsksFor) {
    start(true);
    const ToolResult result = vexsim({});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.output.find(": IPMI controller takes bay 2 slot 3"), std::string::npos);
    EXPECT_EQ(requests(),
              "30 d5: 00 14 0e 00 00 00 0e 00 02 03 08 00 00 00 00 00 00 00 00 00\n"
              "30 d5: 00 14 0e 00 00 00 0e 00 02 05 08 00 00 00 00 00 00 00 00 00\n"
              "30 d5: 00 14 0e 00 00 00 0e 00 02 05 01 00 00 00 00 00 00 00 00 00\n");
}

}  // namespace
