#include "rt_lclogwrp.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <optional>
#include <span>
#include <string_view>

#include "rt_lclogwrp/filter.h"
#include "rt_sync.h"

namespace vexutils {
namespace {

using Ids = std::span<const std::string_view>;

constexpr std::string_view kControllerStart[] = {"CTL140", "CTL141", "CTL142", "CTL40", "CTL144"};

// The two pass lists differ on purpose.
constexpr std::string_view kInventoryPass[] = {
    "PDR16",  "PDR113",  "SSD0001", "STOR365", "STOR366", "STOR367", "STOR368", "STOR369", "CTL129",
    "CTL131", "CTL132",  "CTL133",  "CTL134",  "CTL135",  "CTL136",  "CTL139",  "PDR118",  "PDR3",
    "PDR97",  "VQLT067", "CTL148",  "CTL147",  "CTL149",  "ENC46",   "SYS325"};
constexpr std::string_view kPastEventPass[] = {
    "PDR16",  "PDR113", "SSD0001", "CTL40",  "STOR365", "STOR366", "STOR367", "STOR368", "STOR369",
    "CTL129", "CTL131", "CTL132",  "CTL133", "CTL134",  "CTL135",  "CTL136",  "CTL139",  "CTL81",
    "PDR118", "PDR84",  "PDR97",   "PDR3",   "VQLT067", "VQLT096", "VQLT080", "ENC46",   "SYS325"};
constexpr std::string_view kUpdate[] = {"SWU8665", "SWU8666", "SWU8667", "SWU8668",
                                        "SWU8669", "SWU8670", "SWU8671", "SWU8672"};

// Kept: an id covers all that begin with it, "PDR3" also "PDR30".
bool is_listed(std::string_view id, Ids ids) {
    return std::ranges::any_of(ids,
                               [id](std::string_view listed) { return id.starts_with(listed); });
}

bool is_nonraid(const Alert& alert) {
    return std::wcsstr(alert.fqdd, L"NonRAID") != nullptr;
}

bool is_raid(const Alert& alert) {
    return std::wcsstr(alert.fqdd, L"RAID.") != nullptr;
}

RtRule enc28_rule(const Alert& alert) {
    return is_nonraid(alert) ? RT_RULE_ENC28_NONRAID : RT_RULE_ENC28;
}

// "NonRAID" goes first: such an FQDD holds "RAID." as well.
RtRule reinventory_rule(const Alert& alert) {
    if (is_nonraid(alert)) {
        return RT_RULE_NONRAID_DEVICE;
    }
    return is_raid(alert) ? RT_RULE_RAID_DEVICE : RT_RULE_OTHER_DEVICE;
}

RtRule inventory_rule(const Alert& alert, const SystemState& state) {
    const std::string_view id{alert.id};
    if (is_listed(id, kControllerStart)) {
        return RT_RULE_CONTROLLER_START;
    }
    if (id.starts_with("ENC28")) {
        return enc28_rule(alert);
    }
    if (is_listed(id, kInventoryPass)) {
        return RT_RULE_INVENTORY_PASS;
    }
    return state.reinventory ? reinventory_rule(alert) : RT_RULE_INVENTORY;
}

RtRule past_event_rule(const Alert& alert) {
    const std::string_view id{alert.id};
    if (is_listed(id, kControllerStart)) {
        return RT_RULE_CONTROLLER_START;
    }
    if (id.starts_with("CTL97")) {
        return RT_RULE_CTL97;
    }
    if (id.starts_with("ENC28")) {
        return enc28_rule(alert);
    }
    if (is_listed(id, kPastEventPass)) {
        return RT_RULE_PAST_EVENT_PASS;
    }
    return is_listed(id, kUpdate) ? RT_RULE_UPDATE : RT_RULE_PAST_EVENT;
}

RtVerdict verdict_of(RtRule rule) {
    switch (rule) {
        case RT_RULE_INVENTORY:
        case RT_RULE_RAID_DEVICE:
            return RT_VERDICT_SUPPRESSED;
        case RT_RULE_ENC28:
        case RT_RULE_PAST_EVENT:
            return RT_VERDICT_REFUSED;
        default:
            return RT_VERDICT_SUBMITTED;
    }
}

constexpr std::array<const char*, RT_RULE_NO_ARGUMENTS + 1> kRuleTexts{
    "neither inventory nor replay of past events",
    "on the controller start list",
    "on the inventory pass list",
    "on the past-event pass list",
    "on the update list",
    "CTL97 passes in the replay of past events",
    "ENC28 of a NonRAID device",
    "ENC28 of a device that is not NonRAID",
    "inventory, and not on its pass list",
    "re-inventory, but a NonRAID device",
    "re-inventory, and a RAID device",
    "re-inventory, but neither a RAID nor a NonRAID device",
    "replay of past events, and not on its pass list",
    "no arguments, so never refused",
};

}  // namespace

SystemState system_state(std::uint16_t flags, std::uint32_t phase) {
    return {(flags & RTSYNC_FLAG_LIVE) != 0, (phase & RTSYNC_PHASE_INVENTORY) != 0,
            (phase & RTSYNC_PHASE_REINVENTORY) != 0};
}

// The replay rules start afresh: they overrule all that the inventory rules do not suppress.
Decision decide(const Alert& alert, const SystemState& state) {
    Decision decision{RT_VERDICT_SUBMITTED, RT_RULE_NONE, RT_RULE_NONE};
    if (state.inventory) {
        decision.inventory_rule = inventory_rule(alert, state);
        decision.rule = decision.inventory_rule;
        decision.verdict = verdict_of(decision.rule);
    }
    if (!state.live && decision.verdict != RT_VERDICT_SUPPRESSED) {
        decision.rule = past_event_rule(alert);
        decision.verdict = verdict_of(decision.rule);
    }
    // Kept: only the packing of arguments asks whether the alert is to be refused.
    if (decision.verdict == RT_VERDICT_REFUSED && alert.arguments == 0) {
        decision.rule = RT_RULE_NO_ARGUMENTS;
        decision.verdict = RT_VERDICT_SUBMITTED;
    }
    return decision;
}

}  // namespace vexutils

using namespace vexutils;

RtVerdict rt_ExplainSubmission(const char* messageId, const wchar_t* fqdd, uint8_t count,
                               uint16_t flags, uint32_t phase, RtRule* rule) {
    Decision decision{RT_VERDICT_BAD_ARGUMENTS, RT_RULE_NONE, RT_RULE_NONE};
    if (messageId != nullptr && fqdd != nullptr && count <= RT_MESSAGE_ARGUMENTS) {
        decision = decide({messageId, fqdd, count}, system_state(flags, phase));
    }
    if (rule != nullptr) {
        *rule = decision.rule;
    }
    return decision.verdict;
}

const char* rt_RuleText(RtRule rule) {
    const auto index = static_cast<std::size_t>(rule);
    return index < kRuleTexts.size() ? kRuleTexts[index] : "unknown rule";
}
