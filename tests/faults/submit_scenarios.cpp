#include "rt_lclogwrp.h"
#include "tests/faults/scenario.h"

namespace faults {

Scenarios submit_scenarios() {
    Scenarios all;
    all.add("alert", {0, {0, -1}}, [] {
        const char* const arguments[] = {"a", nullptr, "c"};
        return rt_JWLOGCMNSubmitEvent(1, "CTL140", L"RAID.Slot.1-1", arguments, 3);
    });
    all.add("alert without device", {0, {-1}},
            [] { return rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 1, "CTL140"); });
    all.add("single", {0, {-7}}, [] { return rt_SubMitSingle(5); });
    all.add("message text", {0, {-1}}, [] {
        char text[40] = "before";
        const int32_t result = rt_Buildmsgstring(0, L"RAID.Slot.1-1", text, sizeof(text));
        return (text[0] == 'F') == (result == 0) ? result : 100;
    });
    all.add("explanation", {0}, [] {
        RtRule rule;
        const RtVerdict verdict = rt_ExplainSubmission("PDR3", L"RAID.Slot.1-1", 0, 0, 0, &rule);
        return verdict + (rt_RuleText(rule) == nullptr);
    });
    return all;
}

}  // namespace faults
