#include "rt_lclogwrp.h"
#include "rt_sync.h"
#include "tests/support/platform_test.h"

namespace {

class Submit : public PlatformTest {
  protected:
    void SetUp() override { ASSERT_EQ(RTSync_Init(), 0u); }
    void TearDown() override { RTSync_Destroy(); }

    const char* args[5] = {"Disk 1", nullptr, "", "x", "y"};
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
}

constexpr uint16_t kReplay = 0, kLive = 0x20;
constexpr uint32_t kNoPhase = 0, kInventory = 0x20, kReinventory = 0x120;
constexpr auto kRaid = L"RAID.Integrated.1-1", kNonRaid = L"NonRAID.Integrated.1-1",
               kOther = L"Enclosure.Internal.0-1";

const std::string kBoth =
    "PDR16 PDR113 SSD0001 STOR365 STOR366 STOR367 STOR368 STOR369 CTL129 CTL131 CTL132 CTL133 "
    "CTL134 CTL135 CTL136 CTL139 PDR118 PDR3 PDR97 VQLT067 ENC46 SYS325 PDR30 ";
const std::string kInventoryOnly = "CTL148 CTL147 CTL149";
const std::string kReplayOnly = "CTL81 PDR84 VQLT096 VQLT080";
const std::string kUnlisted = " CTL1 PDR8 SWU8673 ENC2 CTL14 pdr3";

class Filter : public PlatformTest {};

TEST_F(Filter, EveryListedIdIsDecidedByItsRule) {
    for (const auto& [ids, flags, phase, fqdd, verdict, row_rule] :
         Rows<std::string, uint16_t, uint32_t, const wchar_t*, RtVerdict, RtRule>{
             {"CTL140 CTL141 CTL142 CTL40 CTL144", kReplay, kInventory, kRaid, RT_VERDICT_SUBMITTED,
              RT_RULE_CONTROLLER_START},
             {kBoth + kInventoryOnly, kLive, kInventory, kRaid, RT_VERDICT_SUBMITTED,
              RT_RULE_INVENTORY_PASS},
             {kBoth + kReplayOnly, kReplay, kNoPhase, kRaid, RT_VERDICT_SUBMITTED,
              RT_RULE_PAST_EVENT_PASS},
             {"SWU8665 SWU8666 SWU8667 SWU8668 SWU8669 SWU8670 SWU8671 SWU8672", kReplay, kNoPhase,
              kRaid, RT_VERDICT_SUBMITTED, RT_RULE_UPDATE},
             {kReplayOnly + " CTL97 SWU8665" + kUnlisted, kReplay, kInventory, kNonRaid,
              RT_VERDICT_SUPPRESSED, RT_RULE_INVENTORY},
             {kInventoryOnly, kReplay, kInventory, kOther, RT_VERDICT_REFUSED, RT_RULE_PAST_EVENT},
             {kUnlisted, kReplay, kNoPhase, kRaid, RT_VERDICT_REFUSED, RT_RULE_PAST_EVENT},
             {kUnlisted, kLive, kReinventory, kRaid, RT_VERDICT_SUPPRESSED, RT_RULE_RAID_DEVICE},
             {kUnlisted, kLive, kReinventory, kNonRaid, RT_VERDICT_SUBMITTED,
              RT_RULE_NONRAID_DEVICE},
             {kUnlisted, kLive, kReinventory, kOther, RT_VERDICT_SUBMITTED, RT_RULE_OTHER_DEVICE},
             {kUnlisted, kLive, 0x100, kRaid, RT_VERDICT_SUBMITTED, RT_RULE_NONE},
             {"CTL97", kReplay, kNoPhase, kRaid, RT_VERDICT_SUBMITTED, RT_RULE_CTL97},
             {"ENC28", kReplay, kInventory, kNonRaid, RT_VERDICT_SUBMITTED, RT_RULE_ENC28_NONRAID},
             {"ENC28", kLive, kInventory, kOther, RT_VERDICT_REFUSED, RT_RULE_ENC28},
             {"ENC28", kReplay, kNoPhase, kOther, RT_VERDICT_REFUSED, RT_RULE_ENC28}}) {
        for (const std::string& id : words(ids)) {
            RtRule rule = RT_RULE_NONE;
            EXPECT_EQ(rt_ExplainSubmission(id.c_str(), fqdd, 1, flags, phase, &rule), verdict);
            EXPECT_STREQ(rt_RuleText(rule), rt_RuleText(row_rule)) << id;
        }
    }
    RtRule rule = RT_RULE_NONE;
    EXPECT_EQ(rt_ExplainSubmission("CTL1", kRaid, 0, 0, 0, &rule), RT_VERDICT_SUBMITTED);
    EXPECT_EQ(rule, RT_RULE_NO_ARGUMENTS);
    EXPECT_EQ(rt_ExplainSubmission(nullptr, kRaid, 0, 0, 0, nullptr), RT_VERDICT_BAD_ARGUMENTS);
    EXPECT_EQ(rt_ExplainSubmission("PDR3", nullptr, 0, 0, 0, nullptr), RT_VERDICT_BAD_ARGUMENTS);
    EXPECT_EQ(rt_ExplainSubmission("PDR3", kRaid, 6, 0, 0, nullptr), RT_VERDICT_BAD_ARGUMENTS);
}

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
}

}  // namespace
