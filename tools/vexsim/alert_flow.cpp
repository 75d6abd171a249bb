#include "vexsim/alert_flow.h"

#include <algorithm>
#include <bit>
#include <cinttypes>
#include <utility>

#include "vexel.h"
#include "vexsim/block.h"
#include "vexsim/cache_lock.h"
#include "vexsim/event_data.h"
#include "vexsim/global_status.h"

namespace vexsim {

namespace {

constexpr uint32_t kEndpointWork = kMaxCallback + 1;  // an endpoint, the payload, has work
constexpr uint8_t kNoEndpoint = 0xFF;
constexpr uint8_t kKronResetting = 1;  // reset states are the daemon's own
constexpr uint8_t kKronReady = 0;

std::string name_or_number(std::span<const vextools::NamedCode> names, uint32_t code) {
    const char* name = vextools::name_of(names, code);
    return name != nullptr ? name : "type " + std::to_string(code);
}

// What an endpoint table lists; without payload, nothing.
std::set<uint8_t> listed_endpoints(const EndpointEvent& table) {
    return {table.buffer, table.buffer + table.bufferSize};
}

std::set<uint8_t> registered_endpoints() {
    const CacheLock lock;
    const StorageEIDTable& table = cache_StorageEIDInfo;
    std::set<uint8_t> eids(table.storageEID, table.storageEID + table.eidCount);
    eids.erase(RTCACHE_EID_FREE);
    return eids;
}

// The endpoints of the first set that are not in the second, for people.
std::string difference_text(const std::set<uint8_t>& all, const std::set<uint8_t>& without) {
    std::string text;
    for (const uint8_t eid : all) {
        if (!without.contains(eid)) {
            text += " " + std::to_string(eid);
        }
    }
    return text.empty() ? " none" : text;
}

const char* callback_answer(uint32_t type) {
    switch (type) {
        case RTRAID_CALLBACK_POWERON:
        case RTRAID_CALLBACK_WARMBOOT:
            return "an inventory begins";
        case RTRAID_CALLBACK_POWEROFF:
            return "the host is off";
        case RTRAID_CALLBACK_LPC_RESET:
            return "the host resets";
        case RTRAID_CALLBACK_INIT_FAILED:
        case RTRAID_CALLBACK_MCTPD_STOPPED:
            return "no endpoint can be reached";
        default:
            return "not known, ignored";
    }
}

RTSyncGlobalStatus set_phase(const vextools::AlertPhase& phase) {
    constexpr uint32_t kAllPhases = RTSYNC_PHASE_INVENTORY | RTSYNC_PHASE_REINVENTORY;
    return change_global_status([&](RTSyncGlobalStatus& s) {
        s.flags = static_cast<uint16_t>((s.flags & ~RTSYNC_FLAG_LIVE) | phase.flags);
        s.phase = (s.phase & ~kAllPhases) | phase.phase;
    });
}

// The events in the order in which they were recorded; the list that is made of them starts with
// the last one.
std::vector<Block<RtCacheEventNode>> take_events(uint8_t eid) {
    RtCacheEventRow* events = nullptr;
    RtCacheDiskChangeRow* disks = nullptr;
    expect_zero("rtcache_GetCachedEvents", rtcache_GetCachedEvents(eid, &events, &disks));
    const Block<RtCacheEventRow> list(events);
    const Block<RtCacheDiskChangeRow> changes(disks);
    RtCacheEventNode* head = nullptr;
    expect_zero("rtcache_ConvertCacheToEvent", rtcache_ConvertCacheToEvent(events, disks, &head));
    std::vector<Block<RtCacheEventNode>> nodes;
    for (; head != nullptr; head = nodes.back()->next) {
        nodes.emplace_back(head);
    }
    std::ranges::reverse(nodes);
    return nodes;
}

}  // namespace

AlertFlow::AlertFlow(Transcript& transcript)
    : transcript_(transcript), threads_([this](const EndpointEvent& event) { take(event); }) {}

void AlertFlow::play(const AlertAction& action) {
    std::visit([this](const auto& step) { act(step); }, action);
}

void AlertFlow::act(const CallbackStep& step) {
    threads_.deliver(step.type, step.payload);
}

void AlertFlow::act(const EventStep& step) {
    hand_over(step.device.eid, [&](uint8_t) { record(step); });
}

void AlertFlow::act(const AlertStep& step) {
    hand_over(kNoEndpoint, [&](uint8_t) { submit(step); });
}

void AlertFlow::act(const PurgeStep& step) {
    hand_over(step.device.eid, [&](uint8_t eid) { purge(eid, step.command); });
}

void AlertFlow::act(const DrainStep& step) {
    const std::set<uint8_t> eids =
        step.device ? std::set<uint8_t>{step.device->eid} : registered_endpoints();
    for (const uint8_t eid : eids) {
        hand_over(eid, [&](uint8_t told) { drain(told); });
    }
}

void AlertFlow::act(const PhaseStep& step) {
    if ((step.phase.flags & RTSYNC_FLAG_LIVE) != 0) {
        for (const uint8_t eid : resetting_) {
            expect_zero("RTSync_SetKronStatus", RTSync_SetKronStatus(eid, kKronReady));
        }
        resetting_.clear();
    }
    const RTSyncGlobalStatus status = set_phase(step.phase);
    transcript_.line("phase %s: flags 0x%04x phase 0x%04" PRIx32, step.phase.name,
                     unsigned{status.flags}, status.phase);
}

void AlertFlow::act(const ResetStep& step) {
    expect_zero("RTSync_SetKronStatus", RTSync_SetKronStatus(step.controller.eid, kKronResetting));
    resetting_.insert(step.controller.eid);
    change_global_status([](RTSyncGlobalStatus& s) {
        s.flags = static_cast<uint16_t>(s.flags & ~RTSYNC_FLAG_LIVE);
    });
    transcript_.line("reset of %s: past events follow", step.controller.fqdd.c_str());
}

void AlertFlow::settle(uint8_t eid) {
    hand_over(eid, [&](uint8_t told) {
        purge(told, 0);
        drain(told);
    });
}

void AlertFlow::report_total() {
    if (std::ranges::any_of(totals_, [](unsigned total) { return total > 0; })) {
        transcript_.line("alerts: %u logged, %u suppressed, %u refused",
                         totals_[RT_VERDICT_SUBMITTED], totals_[RT_VERDICT_SUPPRESSED],
                         totals_[RT_VERDICT_REFUSED]);
    }
}

// An event has one byte of payload: it names the endpoint, where the worker finds the work.
void AlertFlow::hand_over(uint8_t eid, std::function<void(uint8_t)> work) {
    work_ = std::move(work);
    threads_.deliver(kEndpointWork, {&eid, 1});
}

void AlertFlow::take(const EndpointEvent& event) {
    if (event.callbackType == kEndpointWork) {
        work_(event.buffer[0]);
    } else if (event.callbackType == RTRAID_CALLBACK_ENDPOINT_TABLE) {
        compare_endpoints(event);
    } else {
        answer(event);
    }
}

void AlertFlow::answer(const EndpointEvent& event) {
    const uint32_t type = event.callbackType;
    if (type == RTRAID_CALLBACK_POWERON || type == RTRAID_CALLBACK_WARMBOOT) {
        set_phase(vextools::kAlertPhases[1]);
    }
    std::string payload;
    if (event.bufferSize > 0) {
        payload = " (byte " + std::to_string(event.buffer[0]) + ", first of " +
                  std::to_string(event.bufferSize) + ")";
    }
    transcript_.line("callback %s%s: %s", name_or_number(kCallbacks, type).c_str(), payload.c_str(),
                     callback_answer(type));
}

void AlertFlow::compare_endpoints(const EndpointEvent& event) {
    const std::set<uint8_t> listed = listed_endpoints(event);
    const std::set<uint8_t> registered = registered_endpoints();
    transcript_.line("callback endpoint-table: %zu endpoints, new:%s, gone:%s", listed.size(),
                     difference_text(listed, registered).c_str(),
                     difference_text(registered, listed).c_str());
}

void AlertFlow::record(const EventStep& step) {
    const CachedDevice& device = step.device;
    const std::string what = name_or_number(kEvents, step.event) + " " + device.fqdd;
    const CacheLock lock;
    const uint32_t row = GetIndexFromEID(device.eid);
    if (row == RTCACHE_EID_FREE) {
        transcript_.line("event: %s, lost: endpoint %u is not registered", what.c_str(),
                         unsigned{device.eid});
        return;
    }
    if (step.held) {
        expect_zero("rtcache_SetDelayedCachedEvent",
                    rtcache_SetDelayedCachedEvent(device.eid, device.type, step.event, device.key));
        if (step.alert) {
            aside_[{device.eid, device.type, step.event, device.key}].push_back(
                {device.fqdd, *step.alert});
        }
        transcript_.line("event: %s, held back", what.c_str());
        return;
    }
    const Dropped dropped = dropped_by_event(row, step);
    const bool kept = store_event(row, step);
    transcript_.line("event: %s, %s%s%s", what.c_str(), kept ? "recorded" : "not kept",
                     step.alert ? (" with " + step.alert->id).c_str() : "", dropped.note.c_str());
}

void AlertFlow::purge(uint8_t eid, int32_t command) {
    const CacheLock lock;
    const uint32_t row = GetIndexFromEID(eid);
    if (row == RTCACHE_EID_FREE) {
        transcript_.line("purge: endpoint %u is not registered", unsigned{eid});
        return;
    }
    const uint32_t events = cache_Events_delayed[row].eventCount;
    int disks = 0;
    for (const uint8_t byte : cache_Events_PD_ChObj_delayed[row].bitmap) {
        disks += std::popcount(byte);
    }
    const Dropped dropped = dropped_by_purge(row);
    expect_zero("rtcache_PurgeDelayedCachedEvents", rtcache_PurgeDelayedCachedEvents(eid, command));
    if (events != 0 || disks != 0) {
        transcript_.line("purge: endpoint %u, %" PRIu32 " events and %d disks%s", unsigned{eid},
                         events, disks, dropped.note.c_str());
    }
}

void AlertFlow::drain(uint8_t eid) {
    if (!registered_endpoints().contains(eid)) {
        transcript_.line("drain: endpoint %u is not registered", unsigned{eid});
        return;
    }
    const std::vector<Block<RtCacheEventNode>> events = take_events(eid);
    if (!events.empty()) {
        transcript_.line("drain: endpoint %u, %zu events", unsigned{eid}, events.size());
    }
    for (const auto& event : events) {
        work_off(eid, *event);
    }
}

// The events of one disk that changed are one; what each of them had to tell is told.
void AlertFlow::work_off(uint8_t eid, const RtCacheEventNode& event) {
    const OwnedEventData data(static_cast<EventData*>(event.eventData));
    std::vector<AlertStep> alerts =
        std::exchange(aside_[{eid, event.objType, event.eventType, event.objKey}], {});
    if (data != nullptr) {
        alerts.push_back(read_event_data(*data));
    }
    for (const AlertStep& alert : alerts) {
        submit(alert);
    }
    if (alerts.empty()) {
        transcript_.line("no alert: %s object type %" PRIu32 " key %" PRIu32,
                         name_or_number(kEvents, event.eventType).c_str(), event.objType,
                         event.objKey);
    }
}

// What the library does must be what its rules say: that is what vexinspect explains.
void AlertFlow::submit(const AlertStep& step) {
    const AlertMessage& alert = step.alert;
    const RTSyncGlobalStatus status = change_global_status([](const RTSyncGlobalStatus&) {});
    const std::wstring fqdd(step.fqdd.begin(), step.fqdd.end());
    const auto count = static_cast<uint8_t>(alert.arguments.size());
    std::vector<const char*> arguments;
    for (const std::string& argument : alert.arguments) {
        arguments.push_back(argument.c_str());
    }
    RtRule rule = RT_RULE_NONE;
    const RtVerdict verdict = rt_ExplainSubmission(alert.id.c_str(), fqdd.c_str(), count,
                                                   status.flags, status.phase, &rule);
    const int32_t result = rt_JWLOGCMNSubmitEvent(alert.severity, alert.id.c_str(), fqdd.c_str(),
                                                  arguments.data(), count);
    expect_zero("rt_JWLOGCMNSubmitEvent", verdict == RT_VERDICT_REFUSED ? result + 1 : result);
    ++totals_.at(verdict);
    transcript_.line("alert %s of %s: %s, %s (arguments %u, flags 0x%04x, phase 0x%04" PRIx32 ")",
                     alert.id.c_str(), step.fqdd.c_str(),
                     vextools::name_of(vextools::kVerdicts, verdict), rt_RuleText(rule),
                     unsigned{count}, unsigned{status.flags}, status.phase);
}

}  // namespace vexsim
