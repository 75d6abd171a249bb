#include "rt_lclogwrp.h"
#include "rt_sync.h"
#include "tests/support/platform_test.h"

namespace {

constexpr uint16_t kReplay = 0, kLive = 0x20;
constexpr uint32_t kNoPhase = 0, kInventory = 0x20, kReinventory = 0x120;
constexpr auto kRaid = L"RAID.Integrated.1-1", kNonRaid = L"NonRAID.Integrated.1-1",
               kOther = L"Enclosure.Internal.0-1";

const std::string kStart = "CTL140 CTL141 CTL142 CTL40 CTL144";
const std::string kBoth =
    "PDR16 PDR113 SSD0001 STOR365 STOR366 STOR367 STOR368 STOR369 CTL129 CTL131 CTL132 CTL133 "
    "CTL134 CTL135 CTL136 CTL139 PDR118 PDR3 PDR97 VQLT067 ENC46 SYS325";
const std::string kInventoryOnly = "CTL148 CTL147 CTL149";
const std::string kReplayOnly = "CTL81 PDR84 VQLT096 VQLT080";
const std::string kUpdate = "SWU8665 SWU8666 SWU8667 SWU8668 SWU8669 SWU8670 SWU8671 SWU8672";
const std::string kUnlisted = "CTL1 PDR8 SWU8673 ENC2 CTL14 pdr3";

class Filter : public PlatformTest {
    void SetUp() override { ASSERT_EQ(RTSync_Init(), 0u); }
    void TearDown() override { RTSync_Destroy(); }
};

TEST_F(Filter, EveryListedIdIsDecidedByItsRule) {
    for (const auto& [what, ids, flags, phase, fqdd, count, verdict, row_rule] :
         Rows<const char*, std::string, uint16_t, uint32_t, const wchar_t*, uint8_t, RtVerdict,
              RtRule>{
             {"start, inventory", kStart, kLive, kInventory, kRaid, 1, RT_VERDICT_SUBMITTED,
              RT_RULE_CONTROLLER_START},
             {"start, replay", kStart, kReplay, kInventory, kRaid, 1, RT_VERDICT_SUBMITTED,
              RT_RULE_CONTROLLER_START},
             {"inventory list", kBoth + " PDR30 " + kInventoryOnly, kLive, kInventory, kRaid, 1,
              RT_VERDICT_SUBMITTED, RT_RULE_INVENTORY_PASS},
             {"replay list", kBoth + " PDR30 " + kReplayOnly, kReplay, kNoPhase, kRaid, 1,
              RT_VERDICT_SUBMITTED, RT_RULE_PAST_EVENT_PASS},
             {"update list, replay", kUpdate, kReplay, kNoPhase, kRaid, 1, RT_VERDICT_SUBMITTED,
              RT_RULE_UPDATE},
             {"not on the inventory list", kReplayOnly + " CTL97 " + kUpdate + " " + kUnlisted,
              kLive, kInventory, kNonRaid, 0, RT_VERDICT_SUPPRESSED, RT_RULE_INVENTORY},
             {"suppressed before the replay", kReplayOnly + " CTL97", kReplay, kInventory, kOther,
              1, RT_VERDICT_SUPPRESSED, RT_RULE_INVENTORY},
             {"not on the replay list", kInventoryOnly + " " + kUnlisted, kReplay, kNoPhase,
              kNonRaid, 1, RT_VERDICT_REFUSED, RT_RULE_PAST_EVENT},
             {"the replay overrules", kInventoryOnly, kReplay, kInventory, kOther, 1,
              RT_VERDICT_REFUSED, RT_RULE_PAST_EVENT},
             {"no arguments", kInventoryOnly + " ENC28 " + kUnlisted, kReplay, kNoPhase, kRaid, 0,
              RT_VERDICT_SUBMITTED, RT_RULE_NO_ARGUMENTS},
             {"re-inventory, RAID", kUnlisted, kLive, kReinventory, kRaid, 1, RT_VERDICT_SUPPRESSED,
              RT_RULE_RAID_DEVICE},
             {"re-inventory, NonRAID", kUnlisted, kLive, kReinventory, kNonRaid, 1,
              RT_VERDICT_SUBMITTED, RT_RULE_NONRAID_DEVICE},
             {"re-inventory, neither", kUnlisted, kLive, kReinventory, kOther, 1,
              RT_VERDICT_SUBMITTED, RT_RULE_OTHER_DEVICE},
             {"re-inventory alone", kUnlisted, kLive, 0x100, kRaid, 1, RT_VERDICT_SUBMITTED,
              RT_RULE_NONE},
             {"CTL97", "CTL97 CTL970", kReplay, kNoPhase, kRaid, 1, RT_VERDICT_SUBMITTED,
              RT_RULE_CTL97},
             {"ENC28, NonRAID", "ENC28", kReplay, kInventory, kNonRaid, 1, RT_VERDICT_SUBMITTED,
              RT_RULE_ENC28_NONRAID},
             {"ENC28, inventory", "ENC28 ENC281", kLive, kInventory, kOther, 1, RT_VERDICT_REFUSED,
              RT_RULE_ENC28},
             {"ENC28, replay", "ENC28", kReplay, kNoPhase, kOther, 1, RT_VERDICT_REFUSED,
              RT_RULE_ENC28},
             {"ENC28, live", "ENC28", kLive, kNoPhase, kOther, 1, RT_VERDICT_SUBMITTED,
              RT_RULE_NONE}}) {
        for (const std::string& id : words(ids)) {
            SCOPED_TRACE(what + (" " + id));
            RtRule rule = RT_RULE_NONE;
            EXPECT_EQ(rt_ExplainSubmission(id.c_str(), fqdd, count, flags, phase, &rule), verdict);
            EXPECT_STREQ(rt_RuleText(rule), rt_RuleText(row_rule));
        }
    }
    EXPECT_EQ(rt_ExplainSubmission(nullptr, kRaid, 0, 0, 0, nullptr), RT_VERDICT_BAD_ARGUMENTS);
    EXPECT_EQ(rt_ExplainSubmission("PDR3", nullptr, 0, 0, 0, nullptr), RT_VERDICT_BAD_ARGUMENTS);
    EXPECT_EQ(rt_ExplainSubmission("PDR3", kRaid, 6, 0, 0, nullptr), RT_VERDICT_BAD_ARGUMENTS);
    EXPECT_TRUE(platform.lines().empty());
}

TEST_F(Filter, TheSubmissionDoesWhatTheExplanationSays) {
    const char* const args[] = {"one"};
    platform.record_lines(false);
    int seen[3] = {};
    const std::string all = kStart + " " + kBoth + " " + kInventoryOnly + " " + kReplayOnly + " " +
                            kUpdate + " " + kUnlisted + " CTL97 ENC28";
    for (const std::string& id : words(all)) {
        for (unsigned bits = 0; bits < 8 * 3 * 2; ++bits) {
            const auto flags = static_cast<uint16_t>((bits & 1) != 0 ? 0xFFFF : 0xFFDF);
            const uint32_t phase = (bits & 2 ? 0x20u : 0u) | (bits & 4 ? 0x100u : 0u) | 0x11u;
            const auto count = static_cast<uint8_t>((bits >> 3) & 1);
            const wchar_t* fqdd = (const wchar_t*[]){kRaid, kNonRaid, kOther}[bits >> 4];
            SCOPED_TRACE(id + " " + std::to_string(bits));
            grtsync_Status.flags = flags;
            grtsync_Status.phase = phase;
            const RtVerdict verdict =
                rt_ExplainSubmission(id.c_str(), fqdd, count, flags, phase, nullptr);
            platform.submissions.clear();
            const int32_t result = rt_JWLOGCMNSubmitEvent(1, id.c_str(), fqdd, args, count);
            ASSERT_EQ(result, verdict == RT_VERDICT_REFUSED ? -1 : 0);
            ASSERT_EQ(platform.submissions.size(), verdict == RT_VERDICT_SUBMITTED ? 1u : 0u);
            ++seen[verdict];
        }
    }
    EXPECT_GT(std::min({seen[0], seen[1], seen[2]}), 50) << "every verdict is exercised";
}

}  // namespace
