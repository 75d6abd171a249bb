#include "rt_lclogwrp.h"
#include "tests/support/platform_test.h"

namespace {

class MessageStrings : public PlatformTest {};

TEST_F(MessageStrings, ASingleNotificationCarriesItsLengthAndValue) {
    EXPECT_EQ(rt_SubMitSingle(0x0429), 0);
    ASSERT_EQ(platform.singles.size(), 1u);
    const fake::Single& single = platform.singles[0];
    const std::array<uint8_t, 16> request{16, 0, 0, 0, 0x29, 0x04, 2};
    EXPECT_EQ(single.request, request);
    EXPECT_EQ(single.two, 2u);
    EXPECT_EQ(single.zero, 0u);
    EXPECT_EQ(single.value, 0x0429);

    platform.fail(Place::EvSubmitSingle);
    EXPECT_EQ(rt_SubMitSingle(1), platform.event_failure);
    const std::vector<std::string> lines{"EVIPCLSubmitSingle returned = 0",
                                         "EVIPCLSubmitSingle returned = -7"};
    EXPECT_EQ(platform.messages(4), lines);
}

TEST_F(MessageStrings, AFriendlyNameFillsItsBufferOrNothing) {
    platform.friendly_name = [](const std::string& fqdd, std::string& name) {
        name = "Disk 12";
        return fqdd != "Unknown";
    };
    const std::wstring longest(65535, L'x');
    for (const auto& [row_fqdd, size, error] : Rows<const wchar_t*, uint32_t, const char*>{
             {L"Disk.12", 8, nullptr},
             {L"Disk.12", 7, "err4:bufSize is > the friendlyfqdd name len"},
             {L"Disk.12", 0, "err4:bufSize is > the friendlyfqdd name len"},
             {L"Unknown", 10, "err5 failed to get friendlyName"},
             {L"Disk.\u00e4", 10, "err3:failed to convert fqdd to multibytes"},
             {longest.c_str(), 10, "err3:failed to convert fqdd to multibytes"},
             {nullptr, 10, "err1:fqdd or msgstr is NULL"}}) {
        SCOPED_TRACE(error != nullptr ? error : "fits");
        char buffer[] = "##########";
        EXPECT_EQ(rt_Buildmsgstring(0, row_fqdd, buffer, size), error == nullptr ? 0 : -1);
        EXPECT_EQ(std::string(buffer, 10),
                  error == nullptr ? std::string("Disk 12\0##", 10) : "##########");
        EXPECT_TRUE(error == nullptr || logged(2, error));
    }
    EXPECT_TRUE(logged(2, "FQDD string to be passed to ConvertFQDDToFriendlyName() : Disk.12"));
    platform.fail(Place::Allocation);
    const AllocationScope counted;
    char buffer[10];
    EXPECT_EQ(rt_Buildmsgstring(0, L"Disk.12", buffer, 10), -1);
    EXPECT_TRUE(logged(2, "err2:failed to get memory"));
}

TEST_F(MessageStrings, AnAlertWithoutDeviceKnowsNoRules) {
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent_nonRaid(7, 8, 2, "CTL1"), 0);
    ASSERT_EQ(platform.submissions.size(), 1u);
    const fake::Submission& alert = platform.submissions[0];
    EXPECT_EQ((std::vector<uint32_t>{alert.c4, alert.c2, alert.severity, alert.zero}),
              (std::vector<uint32_t>{4, 1, 2, 0}));
    EXPECT_FALSE(alert.has_fqdd || alert.has_list);

    platform.fail(Place::EvSubmit);
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 1, "CTL1"), -1);
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 1, ""), -1);
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 1, nullptr), -1);
    EXPECT_EQ(platform.messages(2),
              (Lines{"Error: call to EVIPCLSubmitEvent() failed with return code:-7",
                     "<-- exit, msgid is not valid", "<-- exit, msgid is not valid"}));
}

}  // namespace
