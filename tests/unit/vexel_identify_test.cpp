#include "tests/support/platform_test.h"

namespace {

class IpmiIdentify : public PlatformTest {};

TEST_F(IpmiIdentify, SendsTwentyBytes) {
    EXPECT_EQ(BlinkPCIeSSD(2, 5), 0u);
    EXPECT_EQ(UnBlinkPCIeSSD(0x102, 0x1FF, 0x0102), 0u);
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
