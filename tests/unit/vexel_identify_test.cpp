#include "tests/support/platform_test.h"

namespace {

class IpmiIdentify : public PlatformTest {};

TEST_F(IpmiIdentify, SendsTwentyBytes) {
    use_log_file();
    EXPECT_EQ(BlinkPCIeSSD(2, 5), 0u);
    EXPECT_EQ(UnBlinkPCIeSSD(0x102, 0x1FF, 0x0102), 0u);
    const std::vector<uint8_t> expected[] = {
        {0, 0x14, 0x0E, 0, 0, 0, 0x0E, 0, 2, 5, 8, 0, 0, 0, 0, 0, 0, 0, 0, 0},
        {0, 0x14, 0x0E, 0, 0, 0, 0x0E, 0, 2, 0xFF, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0}};
    ASSERT_EQ(platform.ipmi_requests.size(), 2u);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(platform.ipmi_requests[i].net_fn, 0x30);
        EXPECT_EQ(platform.ipmi_requests[i].cmd, 0xD5);
        EXPECT_EQ(platform.ipmi_requests[i].bytes, expected[i]);
    }
    const auto lines = platform.messages(4);
    ASSERT_EQ(lines.size(), 8u) << "entry, two lines of the dump, completion; twice";
    EXPECT_EQ(lines[0], "-->Blink u8bayId=2 u8SSDSlotNum=5");
    EXPECT_EQ(lines[1].rfind("000000: 00 14 0e 00 00 00 0e 00 02 05 08 00 ", 0), 0u);
    EXPECT_EQ(lines[3].rfind("IMPMICmd rc=0 LINE=", 0), 0u);
    EXPECT_EQ(lines[4], "-->UnBlink u8bayId=258 u8SSDSlotNum=511 u16DriveStatus=258");
}

TEST_F(IpmiIdentify, TheLowByteOfTheCompletionDecides) {
    for (const auto& [result, expected, completion] :
         Rows<int, uint32_t, const char*>{{0x100, 0, "0"}, {0xC1, 1, "193"}, {-1, 1, "255"}}) {
        platform.clear_lines();
        platform.ipmi_result = result;
        EXPECT_EQ(BlinkPCIeSSD(1, 7), expected);
        EXPECT_EQ(UnBlinkPCIeSSD(1, 7, 0), expected);
        EXPECT_EQ(platform.messages(4)[1].rfind(std::string{"IMPMICmd rc="} + completion, 0), 0u);
        std::vector<std::string> failures;
        if (expected != 0) {
            failures = {"Failed While Sending Blink Command u8SSDSlotNum=7",
                        "Failed While Sending UnBlink Command u8SSDSlotNum=7"};
        }
        EXPECT_EQ(platform.messages(2), failures);
    }
}

}  // namespace
