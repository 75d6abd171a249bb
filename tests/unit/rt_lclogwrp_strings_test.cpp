#include "rt_lclogwrp.h"
#include "tests/support/platform_test.h"

namespace {

class MessageStrings : public PlatformTest {};

TEST_F(MessageStrings, ASingleNotificationCarriesItsLengthAndValue) {
    EXPECT_EQ(rt_SubMitSingle(0x0429), 0);
    const fake::Single& single = platform.singles.at(0);
    EXPECT_EQ(single.request, (std::array<uint8_t, 16>{16, 0, 0, 0, 0x29, 0x04, 2}));
    EXPECT_EQ(single.two, 2u);
    EXPECT_EQ(single.zero, 0u);
    EXPECT_EQ(single.value, 0x0429);
    EXPECT_EQ(platform.messages(4), Lines{"EVIPCLSubmitSingle returned = 0"});
}

TEST_F(MessageStrings, AFriendlyNameFillsItsBufferOrNothing) {
    platform.friendly_name = [](const std::string& fqdd, std::string& name) {
        name = "Disk 12";
        return fqdd != "Unknown";
    };
    char buffer[] = "##########";
    EXPECT_EQ(rt_Buildmsgstring(0, nullptr, buffer, 10), -1);
    EXPECT_EQ(rt_Buildmsgstring(0, L"Unknown", buffer, 10), -1);
    EXPECT_EQ(rt_Buildmsgstring(0, L"Disk.\u00e4", buffer, 10), -1);
    EXPECT_EQ(rt_Buildmsgstring(0, L"Disk.12", buffer, 7), -1);
    EXPECT_TRUE(logged(2, "err4:bufSize is > the friendlyfqdd name len"));
    EXPECT_EQ(buffer[0], '#');
    platform.clear_lines();
    EXPECT_EQ(rt_Buildmsgstring(0, L"Disk.12", buffer, 8), 0);
    EXPECT_EQ(std::string(buffer, 10), std::string("Disk 12\0##", 10));
    EXPECT_EQ(told(2), "FQDD string to be passed to ConvertFQDDToFriendlyName() : Disk.12\n");
}

TEST_F(MessageStrings, AnAlertWithoutDeviceKnowsNoRules) {
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent_nonRaid(7, 8, 2, "CTL1"), 0);
    EXPECT_EQ(platform.messages(4), (Lines{"--> entry", "<-- exit"}));
    const fake::Submission& alert = platform.submissions.at(0);
    EXPECT_EQ((std::vector<uint32_t>{alert.c4, alert.c2, alert.severity, alert.zero}),
              (std::vector<uint32_t>{4, 1, 2, 0}));
    EXPECT_FALSE(alert.has_fqdd || alert.has_list);
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 1, ""), -1);
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 1, nullptr), -1);
}

}  // namespace
