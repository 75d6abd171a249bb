#include "tests/support/platform_test.h"

namespace {

class IpmiIdentify : public PlatformTest {};

TEST_F(IpmiIdentify, SendsTwentyBytes) {
    use_log_file();
    EXPECT_EQ(BlinkPCIeSSD(2, 5), 0u);
    const auto lines = platform.messages(4);
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], "-->Blink u8bayId=2 u8SSDSlotNum=5");
    EXPECT_TRUE(lines[1].starts_with("000000: 00 14 0e 00 00 00 0e 00 02 05 08 00 "));
    EXPECT_TRUE(lines[2].starts_with("000010: 00 00 00 00 "));
    EXPECT_TRUE(lines[3].starts_with("IMPMICmd rc=0 LINE="));

    EXPECT_EQ(UnBlinkPCIeSSD(0x102, 0x1FF, 0x0102), 0u);
    EXPECT_TRUE(logged(4, "-->UnBlink u8bayId=258 u8SSDSlotNum=511 u16DriveStatus=258"));
    EXPECT_EQ(
        platform.ipmi_requests,
        (std::vector<Bytes>{
            {0x30, 0xD5, 0, 0x14, 0x0E, 0, 0, 0, 0x0E, 0, 2, 5, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0},
            {0x30, 0xD5, 0, 0x14, 0x0E, 0, 0, 0, 0x0E, 0, 2, 0xFF, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0}}));
    platform.ipmi_result = 0x2C1;  // the low byte is the completion
    EXPECT_EQ(BlinkPCIeSSD(1, 7), 1u);
    EXPECT_EQ(UnBlinkPCIeSSD(1, 7, 0), 1u);
}

}  // namespace
