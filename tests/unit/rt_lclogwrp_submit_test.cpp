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
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent(1, "CTL1", L"RAID.1", nullptr, 0), 0);
    ASSERT_EQ(platform.submissions.size(), 2u);
    const fake::Submission& full = platform.submissions[0];
    EXPECT_EQ((std::vector<uint32_t>{full.c4, full.c2, full.severity, full.zero}),
              (std::vector<uint32_t>{4, 2, 3, 0}));
    EXPECT_EQ(full.message_id, "PDR3");
    EXPECT_EQ(full.fqdd, "Disk.?." + std::string(92, 'a')) << "99 characters";
    EXPECT_EQ(full.arguments, (Lines{"Disk 1", "", "", "x", "y"}));
    EXPECT_FALSE(platform.submissions[1].has_list);
}

TEST_F(Submit, BadArgumentsAreNamedInFourLines) {
    const Rows<uint32_t, const char*, const wchar_t*, const char* const*, uint8_t> rows{
        {0, "PDR3", L"", args, 1},     {4, "PDR3", L"", args, 1},    {1, nullptr, L"", args, 1},
        {1, "PDR3", nullptr, args, 1}, {1, "PDR3", L"", nullptr, 1}, {1, "PDR3", L"", args, 6}};
    for (const auto& [severity, id, fqdd, texts, count] : rows) {
        EXPECT_EQ(rt_JWLOGCMNSubmitEvent(severity, id, fqdd, texts, count), 2);
        EXPECT_EQ(platform.messages(2).size(), 4u);
        EXPECT_TRUE(
            logged(2, "Error: Inappropriate severity level received:" + std::to_string(severity)));
        EXPECT_TRUE(logged(2, "Error: Number of strings input count:" + std::to_string(count)));
        platform.clear_lines();
    }
    EXPECT_TRUE(platform.submissions.empty());
}

TEST_F(Submit, TheLogTellsWhichRuleWasApplied) {
    const std::string arguments =
        "4 count received:1|4 length of [0] argument string received:6|"
        "4 count [0], string:'Disk 1'|";
    const std::string inventory = "4 --> entry|4 JW logging request in inventory phase:[PDR8]|";
    const std::string before = inventory + "4 JWL check for non-RAID components BEFORE: 1|";
    const std::string after = "4 JWL check for non-RAID components AFTER: 0|";
    const std::string packed = arguments + "2  Past event mode 0|4 msgArgsBuf:'Disk 1\x1f'|";
    const Rows<const char*, uint16_t, uint32_t, const wchar_t*, std::string> rows{
        {"live", 0x20, 0, L"RAID.1", "4 --> entry|" + packed},
        {"inventory", 0x20, 0x20, L"RAID.1",
         inventory + "4 No logging JW alert in invenotry phase, suppress it|"},
        {"re-inventory, RAID", 0x20, 0x120, L"RAID.1",
         before + "4 No logging JW alert in KronReinventory, suppress it|"},
        {"re-inventory, NonRAID", 0x20, 0x120, L"NonRAID.1",
         before + "4 Non RAID JWL|" + after + packed},
        {"re-inventory, neither, in replay", 0, 0x120, L"AHCI.1",
         before + "4 NON KRON and NON-HBA JWL|" + after +
             "4 We are in past event processing after kron reset:[PDR8]|" + arguments +
             "2  Past event mode 1|2 Error: EVIPCLSubmitEvent() failed with return code:-1|"},
    };
    for (const auto& [what, flags, phase, fqdd, row_lines] : rows) {
        grtsync_Status.flags = flags;
        grtsync_Status.phase = phase;
        rt_JWLOGCMNSubmitEvent(1, "PDR8", fqdd, args, 1);
        EXPECT_EQ(lines_of("rt_JWLOGCMNSubmitEvent"), row_lines);
    }
}

TEST_F(Submit, EveryFailureIsLoggedAndLeavesNothingBehind) {
    grtsync_Status.flags = RTSYNC_FLAG_LIVE;
    const Rows<Place, int, int32_t, const char*> rows{
        {Place::Allocation, 1, -1, "Error: vexel_alloc failed, msgArgsBuf is NULL"},
        {Place::EvBuildArgs, 1, -1, "Error: EVIPCLBuildMsgArgsBuffer failed [-7]"},
        {Place::EvCreateList, 1, -1, "Error: EVJWLWRAPCreateTLVList failed [-7]"},
        {Place::EvAddTlv, 1, -1, "Error: EVIPCLAddTLVToList failed [-7]"},
        {Place::Allocation, 2, 0, "fqdd pointer allocated as NULL."},
        {Place::EvSubmit, 1, -1, "Error: call to EVIPCLSubmitEvent() failed with return code:-7"}};
    for (const auto& [place, nth, result, line] : rows) {
        SCOPED_TRACE(line);
        platform.submissions.clear();
        platform.fail(place, nth);
        const AllocationScope counted;
        EXPECT_EQ(rt_JWLOGCMNSubmitEvent(1, "PDR3", L"Disk.1", args, 1), result);
        EXPECT_TRUE(logged(2, line));
        ASSERT_EQ(platform.submissions.size(), result == 0 ? 1u : 0u);
        EXPECT_TRUE(result != 0 || !platform.submissions[0].has_fqdd);
    }
    const std::string long_text(199, 'x');
    args[0] = long_text.c_str();
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent(1, "PDR3", L"", args, 1), 0) << "200 bytes, packed";
    EXPECT_TRUE(logged(4, "msgArgsBuf:'" + long_text + "\x1f'"));

    grtsync_Status = {0, 0, RTSYNC_PHASE_INVENTORY, 0, 0, 0};
    platform.fail(Place::Lock);
    EXPECT_EQ(rt_JWLOGCMNSubmitEvent(1, "CTL1", L"RAID.1", args, 1), 0) << "no lock, no rules";
    EXPECT_EQ(platform.submissions.size(), 2u);
}

}  // namespace
