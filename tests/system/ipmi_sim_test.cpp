// The identify command against an IPMI simulator that others wrote: what arrives there, byte by
// byte, and what it answers to a command that nobody handles.
#include "platform/ipmi.h"
#include "tests/support/linux_test.h"
#include "vexel.h"

namespace {

class IpmiSimulator : public testing::Test {
  protected:
    void TearDown() override {
        if (simulator_ > 0) {
            kill(simulator_, SIGKILL);
            waitpid(simulator_, nullptr, 0);
        }
    }

    // Starts the simulator with the module and points the platform at it.
    void start() {
        const std::string port =
            std::to_string(20'000 + getpid() % 10'000);  // hardly used by others
        write_file(dir / "lan.conf", "name \"vex\"\nset_working_mc 0x20\n  serial 15 127.0.0.1 " +
                                         port + " codec VM\nloadlib \"" IPMI_SIM_MODULE "\" \"" +
                                         dir / "requests" + "\"\n");
        simulator_ = in_child([&] {
            execl(IPMI_SIM, IPMI_SIM, "-n", "-c", (dir / "lan.conf").c_str(), "-f",
                  VEX_SOURCE "/tools/ipmi_sim/ipmi_sim.commands", "-s", (dir / ".").c_str(),
                  nullptr);
            return false;
        });
        environment.set("VEX_IPMI", "tcp:127.0.0.1:" + port);
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

    TempDir dir;
    Environment environment;

  private:
    pid_t simulator_ = 0;
};

TEST_F(IpmiSimulator, GetsTheBytesOfEveryIdentify) {
    start();
    EXPECT_EQ(BlinkPCIeSSD(2, 5), 0u);
    EXPECT_EQ(UnBlinkPCIeSSD(2, 5, 0x0102), 0u);
    EXPECT_EQ(BlinkPCIeSSD(0xA0, 0xAA), 0u);  // bytes that the serial framing escapes
    EXPECT_EQ(file_content(dir / "requests"),
              "30 d5: 00 14 0e 00 00 00 0e 00 02 05 08 00 00 00 00 00 00 00 00 00\n"
              "30 d5: 00 14 0e 00 00 00 0e 00 02 05 02 01 00 00 00 00 00 00 00 00\n"
              "30 d5: 00 14 0e 00 00 00 0e 00 a0 aa 08 00 00 00 00 00 00 00 00 00\n");
    EXPECT_EQ(send(0x30, 0xD6), 0xC1) << "a command that nobody handles";
}

}  // namespace
