#include <algorithm>

#include "internal/log.h"
#include "internal/mutex_guard.h"
#include "internal/owned.h"
#include "rt_cache.h"
#include "rt_cache/rt_cache_event_list.h"
#include "rt_cache/rt_cache_state.h"

using namespace vexutils;

namespace {

constexpr auto kChangeObject = static_cast<std::uint32_t>(EventType::ChangeObject);

// Nodes pushed in front of a list; gone again unless commit() publishes them.
class PushedNodes {
  public:
    explicit PushedNodes(RtCacheEventNode** list) : list_(list), first_(*list) {}
    ~PushedNodes() {
        while (first_ != *list_) {
            const Owned<RtCacheEventNode> node{first_};
            first_ = node->next;
        }
    }
    PushedNodes(const PushedNodes&) = delete;
    PushedNodes& operator=(const PushedNodes&) = delete;

    // False without memory for the node.
    bool push(std::uint32_t object_type, std::uint32_t event_type, std::uint32_t key, void* data) {
        RtCacheEventNode* node = make_owned<RtCacheEventNode>().release();  // to the list
        if (node == nullptr) {
            return false;
        }
        *node = {object_type, event_type, key, data, first_};
        first_ = node;
        ++count_;
        return true;
    }

    // The list is VEXEL's from here on, with the event data. Its threads convert without a lock.
    void commit() {
        *list_ = first_;
        __atomic_fetch_add(&gRTCache_EventCount, count_, __ATOMIC_RELAXED);
    }

  private:
    RtCacheEventNode** list_;
    RtCacheEventNode* first_;
    std::uint32_t count_ = 0;
};

bool is_changed(const RtCacheDiskChangeRow& disks, std::uint32_t disk) {
    return (disks.bitmap[disk / 8] >> disk % 8 & 1) != 0;
}

// The records of a list. Its count is exported, so that it may say more than there are.
template <class List>
auto recorded(List& list) {
    return std::span{list.events}.first(
        std::min<std::size_t>(list.eventCount, std::size(list.events)));
}

template <class Wanted>
bool push_records(PushedNodes& nodes, const RtCacheEventRow& list, Wanted wanted) {
    for (const RtCacheEvent& event : recorded(list)) {
        if (wanted(event) &&
            !nodes.push(event.objType, event.eventType, event.objKey, event.eventData)) {
            return false;
        }
    }
    return true;
}

bool push_disks(PushedNodes& nodes, const RtCacheDiskChangeRow& disks) {
    for (std::uint32_t disk = 0; disk < kMaxDisks; ++disk) {
        if (is_changed(disks, disk) &&
            !nodes.push(RT_OBJ_PHYSICAL_DISK, kChangeObject, disk, disks.eventData[disk])) {
            return false;
        }
    }
    return true;
}

template <class Wanted>
void remove_records(RtCacheEventRow& list, Wanted wanted) {
    const auto records = recorded(list);
    const auto end = std::remove_if(records.begin(), records.end(), wanted);
    list.eventCount = static_cast<std::uint32_t>(end - records.begin());
    std::fill(end, records.end(), RtCacheEvent{});
}

void remove_disks(RtCacheDiskChangeRow& disks) {
    for (std::uint32_t disk = 0; disk < kMaxDisks; ++disk) {
        if (is_changed(disks, disk)) {
            disks.eventData[disk] = nullptr;
        }
    }
    std::ranges::fill(disks.bitmap, std::uint8_t{0});
}

}  // namespace

uint32_t rtcache_ConvertCacheToEvent(const void* eventList, const void* pdArea,
                                     RtCacheEventNode** head) {
    LOG(Level::Detail, "--> %s", __func__);
    if (eventList == nullptr || pdArea == nullptr || head == nullptr) {
        LOG(Level::Error, "<-- err null inputs");
        return RTCACHE_BAD_ARGUMENT;
    }

    PushedNodes nodes{head};
    const auto all = [](const RtCacheEvent&) { return true; };
    if (!push_records(nodes, *static_cast<const RtCacheEventRow*>(eventList), all) ||
        !push_disks(nodes, *static_cast<const RtCacheDiskChangeRow*>(pdArea))) {
        LOG(Level::Error, "<-- err vexel_alloc failed");
        return RTCACHE_NO_LOCK;
    }
    nodes.commit();
    LOG(Level::Detail, "<-- %s", __func__);
    return RTCACHE_OK;
}

uint32_t rtcache_GetEventsByObjType(uint32_t eid, uint32_t objType, RtCacheEventNode** head) {
    LOG(Level::Detail, "--> %s, EID[%d] objType:0x%x", __func__, eid, objType);
    if (head == nullptr) {
        LOG(Level::Error, "<-- err null inputs");
        return RTCACHE_BAD_ARGUMENT;
    }
    const MutexGuard lock{mutexRtCache};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return RTCACHE_NO_LOCK;
    }
    const auto row = row_of(eid);
    if (!row) {
        LOG(Level::Error, "<-- err2 %d", eid);
        return RTCACHE_NOT_FOUND;
    }

    RtCacheEventRow& list = cache_Events[index_of(*row)];
    RtCacheDiskChangeRow& disks = cache_Events_PD_ChObj[index_of(*row)];
    const bool with_disks = objType == RT_OBJ_PHYSICAL_DISK;
    const auto wanted = [objType](const RtCacheEvent& event) { return event.objType == objType; };
    PushedNodes nodes{head};
    if (!push_records(nodes, list, wanted) || (with_disks && !push_disks(nodes, disks))) {
        LOG(Level::Error, "<-- err vexel_alloc failed");
        return RTCACHE_NO_LOCK;
    }
    remove_records(list, wanted);
    if (with_disks) {
        remove_disks(disks);
    }
    nodes.commit();
    LOG(Level::Detail, "<-- %s", __func__);
    return RTCACHE_OK;
}
