#include "vexinspect/explain.h"

#include <cstdio>
#include <stdexcept>

#include "support/alert_codes.h"
#include "support/json_reader.h"

namespace vexinspect {

namespace {

constexpr int64_t kMaxFlags = 0xFFFF;
constexpr int64_t kMaxPhase = 0xFFFFFFFF;

int64_t read_number(const char* option, const std::string& text, int64_t high,
                    const std::string& names) {
    const auto number = vextools::parse_integer(text);
    if (!number || *number < 0 || *number > high) {
        throw std::invalid_argument(std::string(option) + ": expected " + names +
                                    "a number such as 0x20, found \"" + text + "\"");
    }
    return *number;
}

// The global status that the options describe.
vextools::AlertPhase read_status(const ExplainOptions& options) {
    vextools::AlertPhase status = vextools::kAlertPhases[0];
    std::string names;
    bool named = false;
    for (const vextools::AlertPhase& phase : vextools::kAlertPhases) {
        names += std::string(phase.name) + ", ";
        if (options.phase == phase.name) {
            status = phase;
            named = true;
        }
    }
    if (!named) {
        status.phase = static_cast<uint32_t>(
            read_number("--phase", options.phase, kMaxPhase, names + "or "));
    }
    if (!options.flags.empty()) {
        status.flags =
            static_cast<uint16_t>(read_number("--flags", options.flags, kMaxFlags, ""));
    }
    return status;
}

const char* consequence(RtVerdict verdict) {
    switch (verdict) {
        case RT_VERDICT_SUPPRESSED:
            return "suppressed (not in the log; the daemon is told that it is done)";
        case RT_VERDICT_REFUSED:
            return "refused (not in the log; the daemon is told that it failed)";
        default:
            return "logged";
    }
}

}  // namespace

std::string explain(const ExplainOptions& options) {
    const vextools::AlertPhase status = read_status(options);
    const std::wstring fqdd(options.fqdd.begin(), options.fqdd.end());
    RtRule rule = RT_RULE_NONE;
    const RtVerdict verdict =
        rt_ExplainSubmission(options.message_id.c_str(), fqdd.c_str(),
                             static_cast<uint8_t>(options.arguments), status.flags, status.phase,
                             &rule);
    char words[60];
    std::snprintf(words, sizeof(words), "%u, flags 0x%04x, phase 0x%04x", options.arguments,
                  unsigned{status.flags}, unsigned{status.phase});
    return "alert      " + options.message_id + " of " + options.fqdd + "\narguments  " + words +
           "\nverdict    " + consequence(verdict) + "\nrule       " + rt_RuleText(rule) + "\n";
}

}  // namespace vexinspect
