#include "rt_lclogwrp.h"
#include "tests/support/platform_test.h"

namespace {

class MessageStrings : public PlatformTest {};

TEST_F(MessageStrings, ASingleNotificationCarriesItsLengthAndValue) {
    EXPECT_EQ(rt_SubMitSingle(0x0429), 0);
    ASSERT_EQ(platform.singles.size(), 1u);
    EXPECT_EQ(platform.singles[0], (Bytes{16, 0, 0, 0, 0x29, 4, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(MessageStrings, AFriendlyNameFillsItsBufferOrNothing) {
    char buffer[] = "##################";
    EXPECT_EQ(rt_Buildmsgstring(0, nullptr, buffer, 18), -1);
    EXPECT_EQ(rt_Buildmsgstring(0, L"Unknown", buffer, 18), -1);
    EXPECT_EQ(rt_Buildmsgstring(0, L"Disk.\u00e4", buffer, 18), -1);
    EXPECT_EQ(rt_Buildmsgstring(0, L"Disk.12", buffer, 16), -1);
    EXPECT_EQ(buffer[0], '#');
    EXPECT_EQ(rt_Buildmsgstring(0, L"Disk.12", buffer, 17), 0);
    EXPECT_EQ(std::string(buffer, 18), std::string("Friendly Disk.12\0#", 18));
}

TEST_F(MessageStrings, AnAlertWithoutDeviceKnowsNoRules) {
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent_nonRaid(7, 8, 2, "CTL1"), 0);
    const auto& alert = platform.submissions.at(0);
    EXPECT_EQ(alert.numbers, "4 1 2 0 ");
    EXPECT_EQ(alert.fqdd + alert.arguments, "--");
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 1, ""), -1);
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 1, nullptr), -1);
}

}  // namespace
