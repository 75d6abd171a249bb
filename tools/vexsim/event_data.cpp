#include "vexsim/event_data.h"

#include <cstring>
#include <string_view>

#include "vexel.h"
#include "vexsim/runtime_failure.h"

namespace vexsim {

namespace {

constexpr unsigned kCountShift = 8;  // the opaque word: severity, and from here the arguments
constexpr uintptr_t kSeverityMask = 0xFF;

char* allocate_copy(const std::string& bytes) {
    auto* copy = static_cast<char*>(vexel_alloc(bytes.size() + 1));
    if (copy == nullptr) {
        throw RuntimeFailure("no memory for an event");
    }
    std::memcpy(copy, bytes.data(), bytes.size());
    return copy;
}

bool is_change_of_disk(const EventStep& step) {
    return step.device.type == RT_OBJ_PHYSICAL_DISK && step.event == kChangedEvent;
}

bool is_disk_marked(uint32_t row, uint32_t key) {
    return (cache_Events_PD_ChObj[row].bitmap[key / 8] >> (key % 8) & 1) != 0;
}

// A whole list, which starts again.
Dropped drop_list(const RtCacheEventRow& list) {
    Dropped dropped{.note = ", the list is full, older events are dropped", .alerts = {}};
    for (uint32_t i = 0; i < list.eventCount; ++i) {
        dropped.alerts.emplace_back(list.events[i].eventData);
    }
    return dropped;
}

// Data that a disk has already; the cache frees it on NVMe endpoints, and "PDR3" for "PDR5".
Dropped drop_from_disk(uint32_t row, EventData* data, const std::string& new_id) {
    const std::string_view id = data->messageId;
    Dropped dropped{.note = ", in place of " + std::string(id), .alerts = {}};
    const bool freed = cache_StorageEIDInfo.eidInfo[row].eidType == RTCACHE_TYPE_NVME ||
                       (id == "PDR3" && new_id == "PDR5");
    if (!freed) {
        dropped.alerts.emplace_back(data);
    }
    return dropped;
}

}  // namespace

void FreeEventData::operator()(EventData* data) const {
    vexel_free(data->messageId);
    vexel_free(data->messageArgs);
    vexel_free(data);
}

OwnedEventData make_event_data(const std::string& fqdd, const AlertMessage& alert) {
    OwnedEventData data(static_cast<EventData*>(vexel_alloc(sizeof(EventData))));
    if (data == nullptr) {
        throw RuntimeFailure("no memory for an event");
    }
    std::string texts = fqdd;  // the device may be gone when the event is worked off
    for (const std::string& argument : alert.arguments) {
        texts += '\0' + argument;
    }
    data->messageId = allocate_copy(alert.id);
    data->opaque = alert.severity | alert.arguments.size() << kCountShift;
    data->messageArgs = allocate_copy(texts);
    return data;
}

AlertStep read_event_data(const EventData& data) {
    const char* text = static_cast<const char*>(data.messageArgs);
    const auto severity = static_cast<uint32_t>(data.opaque & kSeverityMask);
    AlertStep step{text, {data.messageId, severity, {}}};
    for (uintptr_t left = data.opaque >> kCountShift; left > 0; --left) {
        text += std::strlen(text) + 1;
        step.alert.arguments.emplace_back(text);
    }
    return step;
}

Dropped dropped_by_event(uint32_t row, const EventStep& step) {
    if (!is_change_of_disk(step)) {
        const RtCacheEventRow& list = cache_Events[row];
        return list.eventCount == RTCACHE_EVENTCACHE_DEPTH ? drop_list(list) : Dropped{};
    }
    EventData* data = cache_Events_PD_ChObj[row].eventData[step.device.key];
    return step.alert && data != nullptr ? drop_from_disk(row, data, step.alert->id) : Dropped{};
}

Dropped dropped_by_purge(uint32_t row) {
    const RtCacheEventRow& list = cache_Events[row];
    const uint32_t count = list.eventCount + cache_Events_delayed[row].eventCount;
    return count > RTCACHE_EVENTCACHE_DEPTH ? drop_list(list) : Dropped{};
}

bool store_event(uint32_t row, const EventStep& step) {
    const CachedDevice& device = step.device;
    const uint32_t count = cache_Events[row].eventCount;
    if (step.alert) {
        OwnedEventData data = make_event_data(device.fqdd, *step.alert);
        expect_zero("rtcache_SetCachedEvent_roll_up",
                    rtcache_SetCachedEvent_roll_up(device.eid, device.type, step.event, device.key,
                                                   data.get()));
        data.release();  // to the cache
    } else {
        expect_zero("rtcache_SetCachedEvent",
                    rtcache_SetCachedEvent(device.eid, device.type, step.event, device.key));
    }
    return is_change_of_disk(step) ? is_disk_marked(row, device.key)
                                   : cache_Events[row].eventCount != count;
}

}  // namespace vexsim
