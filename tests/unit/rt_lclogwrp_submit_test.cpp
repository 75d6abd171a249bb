#include "rt_lclogwrp.h"
#include "rt_sync.h"
#include "tests/support/platform_test.h"

namespace {

class Submit : public PlatformTest {
  protected:
    void SetUp() override { ASSERT_EQ(RTSync_Init(), 0u); }
    void TearDown() override { RTSync_Destroy(); }

    const char* args[6] = {"Disk 1", nullptr, "", "x", "y", "z"};
};

TEST_F(Submit, AnAlertCarriesItsArgumentsAndItsDevice) {
    grtsync_Status.flags = RTSYNC_FLAG_LIVE;
    const std::wstring fqdd = L"Disk.\u4e2d." + std::wstring(100, L'a');
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent(3, "PDR3", fqdd.c_str(), args, 5), 0);
    const auto& alert = platform.submissions.at(0);
    EXPECT_EQ(alert.numbers, "4 2 3 0 ");
    EXPECT_EQ(alert.message_id, "PDR3");
    EXPECT_EQ(alert.fqdd, "Disk.?." + std::string(92, 'a')) << "99 characters";
    EXPECT_EQ(alert.arguments, "Disk 1;;;x;y;");

    EXPECT_EQ(rt_JWLOGCMNSubmitEvent(0, "PDR3", L"", args, 1), 2);
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent(4, "PDR3", L"", args, 1), 2);
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent(1, nullptr, L"", args, 1), 2);
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent(1, "PDR3", nullptr, args, 1), 2);
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent(1, "PDR3", L"", nullptr, 1), 2);
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent(1, "PDR3", L"", args, 6), 2);
}

TEST_F(Submit, TheLogTellsWhichRuleWasApplied) {
    const std::string arguments =
        "4 count received:1|4 length of [0] argument string received:6|"
        "4 count [0], string:'Disk 1'|2  Past event mode ";
    const Rows<const char*, uint16_t, uint32_t, const wchar_t*, std::string> rows{
        {"live", 0x20, 0, L"RAID.1", "4 --> entry|" + arguments + "0|4 msgArgsBuf:'Disk 1;'|"},
        {"re-inventory, NonRAID, in replay", 0, 0x120, L"NonRAID.1",
         "4 --> entry|4 JW logging request in inventory phase:[PDR8]|"
         "4 JWL check for non-RAID components BEFORE: 1|"
         "4 Non RAID JWL|4 JWL check for non-RAID components AFTER: 0|"
         "4 We are in past event processing after kron reset:[PDR8]|" +
             arguments + "1|2 Error: EVIPCLSubmitEvent() failed with return code:-1|"},
    };
    for (const auto& [what, flags, phase, fqdd, row_lines] : rows) {
        grtsync_Status.flags = flags;
        grtsync_Status.phase = phase;
        rt_JWLOGCMNSubmitEvent(1, "PDR8", fqdd, args, 1);
        EXPECT_EQ(lines_of("rt_JWLOGCMNSubmitEvent"), row_lines);
    }
}

}  // namespace
