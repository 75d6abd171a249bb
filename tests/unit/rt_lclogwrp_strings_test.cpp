#include "rt_lclogwrp.h"
#include "tests/support/platform_test.h"

namespace {

class MessageStrings : public PlatformTest {};

TEST_F(MessageStrings, ASingleNotificationCarriesItsLengthAndValue) {
    EXPECT_EQ(rt_SubMitSingle(0x0429), 0);
    ASSERT_EQ(platform.singles.size(), 1u);
    const fake::Single& single = platform.singles[0];
    const std::array<std::uint8_t, 16> request{16, 0, 0, 0, 0x29, 0x04, 2};
    EXPECT_EQ(single.request, request);
    EXPECT_EQ(single.two, 2u);
    EXPECT_EQ(single.zero, 0u);
    EXPECT_EQ(single.value, 0x0429);

    platform.fail(fake::Place::EvSubmitSingle);
    EXPECT_EQ(rt_SubMitSingle(1), platform.event_failure);
    const std::vector<std::string> lines{"EVIPCLSubmitSingle returned = 0",
                                         "EVIPCLSubmitSingle returned = -7"};
    EXPECT_EQ(platform.messages(4), lines);
}

}  // namespace
