// A program of calls on the cache: endpoints, objects, events, look-ups, command states. The
// endpoint table and the numbers of events are compared with a model after every step.
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "fuzz/fuzz.h"
#include "internal/vexel_state.h"
#include "rt_cache.h"
#include "rt_cache/rt_cache_nodes.h"
#include "rt_shm.h"
#include "tests/support/files.h"
#include "tests/support/objects.h"
#include "vexel.h"

namespace {

using fuzz::Input;
using fuzz::tell;

constexpr uint32_t kFree = 255;

// The endpoint table as its rules say, written the slow way.
struct Model {
    struct Row {
        uint32_t eid = kFree, type = 0, events = 0;
    };
    std::vector<Row> rows{max_adapters};
    uint32_t used = 0;  // positions up to the highest that was ever in use

    uint32_t row(uint32_t eid) const {
        const auto found = std::ranges::find(rows, eid, &Row::eid);
        return found == rows.end() || eid >= kFree ? 255
                                                   : static_cast<uint32_t>(found - rows.begin());
    }
    void use(uint32_t position) { used = std::max(used, position + 1); }
    bool add(uint32_t eid, uint32_t type) {
        const auto free = std::ranges::find(rows, kFree, &Row::eid);
        if (free == rows.end() || eid >= kFree) {
            return false;
        }
        free->eid = eid;
        free->type = type;
        use(static_cast<uint32_t>(free - rows.begin()));
        return true;
    }
    void remove(uint32_t eid, uint32_t type) {
        for (Row& row : rows) {
            if (row.eid == eid && row.type == type) {
                row.eid = kFree;
                row.type = 0;
            }
        }
    }
    void count_event(uint32_t row) {
        uint32_t& events = rows[row].events;
        events = events == RTCACHE_EVENTCACHE_DEPTH ? 1 : events + 1;
    }
};

// One of few, or a number that is none, of which the low 8 bits may be one of the few.
uint32_t draw_eid(Input& input) {
    const uint32_t choice = input.below(16);
    const uint32_t few = choice % 4;
    return choice < 13 ? few : choice == 13 ? few + 0x100 : input.number();
}

// One call, of an endpoint that is known more often than not.
struct Step {
    Input& input;
    Model& model;
    const uint32_t eid = draw_eid(input);
    const uint16_t key =
        static_cast<uint16_t>(input.below(8) == 0 ? input.number() : input.below(4));
    const uint32_t type = 1 + input.below(4);
    const uint32_t row = model.row(eid);
    const uint32_t known = row == 255 ? 1 : 0;
    uint8_t byte = 0xEE;  // what calls fill that fill one

    // Where a call is to write, one time in four nowhere.
    template <class T>
    T* room(T& output) {
        return input.below(4) == 0 ? nullptr : &output;
    }
};

// ---- Endpoints ----------------------------------------------------------------------------------

void register_endpoint(Step& step) {
    static constexpr uint8_t kTypes[] = {RTCACHE_TYPE_KRON, RTCACHE_TYPE_NVME, RTCACHE_TYPE_HBA,
                                         RTCACHE_TYPE_PCIESSD};
    const uint32_t type = kTypes[step.type % 4];
    const uint32_t result = rtcache_UpdateCachedObject(RTCACHE_REGISTER, step.eid, type, step.key);
    EXPECT_EQ(result == 0, step.model.add(step.eid, type));
    tell("register", result);
}

void remove_endpoint(Step& step) {
    const uint32_t type = step.known == 0 ? step.model.rows[step.row].type : step.type;
    tell("remove", rtcache_UpdateCachedObject(2, step.eid, type, 0));
    step.model.remove(step.eid, type);
}

void read_attributes(Step& step) {
    StorageEIDAttr attributes{};
    StorageEIDTable table{};
    tell("status", rtcache_GetStorageEIDStatus(step.eid, step.room(attributes)));
    tell("type", rtcache_GetStorageEIDType(step.eid, step.room(step.byte)));
    tell("table", rtcache_GetStorageEIDs(step.room(table)));
    tell("id", rtcache_GetID(step.key, step.room(step.byte)));
    tell("count", table.eidCount);
    tell("attributes", &attributes, sizeof(attributes));
    tell("byte", step.byte);
    const CacheLock lock;
    tell("status", rtcache_GetStorageEIDStatusNoLock(step.eid, step.room(attributes)));
    tell("type", rtcache_GetStorageEIDTypeNoLock(step.eid, step.room(step.byte)));
    tell("modular id", rtcache_GetModularIdNoLock(step.eid, step.room(step.byte)));
    tell("attributes", &attributes, sizeof(attributes));
    tell("byte", step.byte);
}

void write_attributes(Step& step) {
    tell("set status", rtcache_SetStorageEIDStatus(step.eid, step.key));
    tell("set modular id", rtcache_SetModularId(step.eid, step.key));
    tell("set id", rtcache_SetID(step.key, step.eid));
    const CacheLock lock;
    tell("set status", rtcache_SetStorageEIDStatusNoLock(step.eid, step.key + 0x100u));
}

// Ends as it began: the model has the types.
void change_type(Step& step) {
    tell("set type", rtcache_SetStorageEIDType(step.eid, step.key));
    tell("type", rtcache_GetStorageEIDType(step.eid, &step.byte));
    tell("byte", step.byte);
    if (step.known == 0) {
        rtcache_SetStorageEIDType(step.eid, step.model.rows[step.row].type);
    }
}

// ---- Events -------------------------------------------------------------------------------------

void tell_data(const EventData* data) {
    if (data != nullptr) {
        tell("message", data->messageId, data->messageId != nullptr ? strlen(data->messageId) : 0);
    }
}

void tell_drained(const RtCacheEventRow& list, const RtCacheDiskChangeRow& disks) {
    for (uint32_t i = 0; i < list.eventCount; ++i) {
        tell("event", &list.events[i], offsetof(RtCacheEvent, eventData));
        tell_data(list.events[i].eventData);
    }
    tell("disks", disks.bitmap, sizeof(disks.bitmap));
    std::ranges::for_each(disks.eventData, tell_data);
}

void drain(Step& step) {
    RtCacheEventRow* list = nullptr;
    RtCacheDiskChangeRow* disks = nullptr;
    EXPECT_EQ(rtcache_GetCachedEvents(step.eid, &list, &disks), step.known);
    if (step.known == 0) {
        EXPECT_EQ(list->eventCount, std::exchange(step.model.rows[step.row].events, 0u));
        if (fuzz::listens()) {
            tell_drained(*list, *disks);
        }
        vexutils::free_held_data(*list);
        vexutils::free_held_data(*disks);
    }
    vexel_free(list);
    vexel_free(disks);
}

// What new data of a disk makes the cache let go of, rather than free.
EventData* let_go(const Step& step, const EventData* data) {
    if (step.known != 0 || data == nullptr || step.key >= max_physicaldevices) {
        return nullptr;
    }
    const auto is = [](const EventData* given, const char* id) {
        return given->messageId != nullptr && strcmp(given->messageId, id) == 0;
    };
    EventData* held = cache_Events_PD_ChObj[step.row].eventData[step.key];
    const bool freed = held == nullptr || step.model.rows[step.row].type == RTCACHE_TYPE_NVME ||
                       (is(data, "PDR5") && is(held, "PDR3"));
    return freed ? nullptr : held;
}

// Half of the time none, now and then without an id.
EventData* draw_data(Input& input) {
    static constexpr const char* kIds[] = {"PDR3", "PDR5", "VDR1", "PDR3"};
    const uint32_t choice = input.below(8);
    if (choice >= std::size(kIds)) {
        return nullptr;
    }
    EventData* data = make_event_data(kIds[choice]);
    if (choice == std::size(kIds) - 1) {
        vexel_free(data->messageId);
        data->messageId = nullptr;
    }
    return data;
}

// Now and then as many as overflow the list.
void add_events(Step& step) {
    const uint32_t event_type = 2 + step.input.below(2);
    const bool is_disk = step.type == RT_OBJ_PHYSICAL_DISK && event_type == 3;
    int count = step.input.below(64) == 63 ? RTCACHE_EVENTCACHE_DEPTH + 2 : 1;
    const bool is_full =
        step.known == 0 && step.model.rows[step.row].events == RTCACHE_EVENTCACHE_DEPTH;
    if (count > 1 || is_full) {
        drain(step);  // lest the list's data is let go of
    }
    const auto add =
        step.input.below(2) != 0 ? rtcache_SetCachedEvent_roll_up : rtcache_CopyCachedEvent;
    const CacheLock lock;
    EventData* data = count == 1 ? draw_data(step.input) : nullptr;
    EventData* dropped = is_disk ? let_go(step, data) : nullptr;
    for (; count > 0; --count) {
        EXPECT_EQ(add(step.eid, step.type, event_type, step.key, data), step.known);
        if (step.known == 0 && !is_disk) {
            step.model.count_event(step.row);
        }
    }
    vexutils::free_event_data(step.known != 0 ? data : dropped);
}

// Of an HBA's disks some are dropped, so that the count is the library's own.
void filter_event(Step& step) {
    drain(step);
    const CacheLock lock;
    const uint32_t event_type = 2 + step.input.below(2);
    tell("set event", rtcache_SetCachedEvent(step.eid, step.type, event_type, step.key));
    if (step.known == 0) {
        step.model.rows[step.row].events = cache_Events[step.row].eventCount;
    }
}

void delay_events(Step& step) {
    drain(step);
    const CacheLock lock;
    for (uint32_t count = step.input.below(64) == 63 ? 400 : step.input.below(3); count > 0;
         --count) {
        tell("delay", rtcache_SetDelayedCachedEvent(step.eid, step.type, 1 + count % 3, step.key));
    }
    if (step.input.below(2) != 0) {
        tell("purge", rtcache_PurgeDelayedCachedEvents(step.eid, 7));
    }
    if (step.known == 0) {
        step.model.rows[step.row].events = cache_Events[step.row].eventCount;
        tell("delayed", cache_Events_delayed[step.row].eventCount);
    }
}

void tell_list(RtCacheEventNode* list) {
    while (list != nullptr) {
        tell("node", list, offsetof(RtCacheEventNode, eventData));
        auto* data = static_cast<EventData*>(list->eventData);
        tell_data(data);
        vexutils::free_event_data(data);
        vexel_free(std::exchange(list, list->next));
    }
}

void take_events(Step& step) {
    RtCacheEventNode* list = nullptr;
    tell("take", rtcache_GetEventsByObjType(step.eid, step.type, step.room(list)));
    tell_list(list);
    if (step.known == 0) {
        step.model.rows[step.row].events = cache_Events[step.row].eventCount;
    }
}

void convert_events(Step& step) {
    RtCacheEventRow* list = nullptr;
    RtCacheDiskChangeRow* disks = nullptr;
    RtCacheEventNode* head = nullptr;
    const bool drains = step.input.below(4) != 0;
    const uint32_t result =
        rtcache_GetCachedEvents(step.eid, drains ? &list : nullptr, drains ? &disks : nullptr);
    tell("drain", result);
    if (list != nullptr) {
        step.model.rows[step.row].events = 0;
    }
    const auto given = [&](const void* row) { return step.input.below(4) == 0 ? nullptr : row; };
    const void *some_list = given(list), *some_disks = given(disks);
    const uint32_t converted = rtcache_ConvertCacheToEvent(some_list, some_disks, step.room(head));
    tell("convert", converted);
    if (converted != 0 && list != nullptr) {
        vexutils::free_held_data(*list);
        vexutils::free_held_data(*disks);
    }
    tell_list(head);
    tell("nodes", gRTCache_EventCount);
    vexel_free(list);
    vexel_free(disks);
}

// ---- Objects ------------------------------------------------------------------------------------

StorageObjectRecord* draw_record(Input& input, uint32_t type) {
    StorageObjectRecord* record = make_record(type, input.wide_text().c_str());
    return record;
}

// Without a version, its name belongs to another.
StorageObjectRecord* draw_disk(Input& input, uint32_t type) {
    static wchar_t others[] = L"Disk.Bay.7";
    StorageObjectRecord* record = draw_record(input, type);
    if (input.below(4) == 0) {
        vexel_free(record->hdr.FQDD);
        record->hdr.FQDD = others;
        record->hdr.VERSION = 0;
    }
    if (input.below(4) == 0) {
        vexel_free(record->hdr.VERSION != 0 ? record->hdr.FQDD : nullptr);
        record->hdr.FQDD = make_text(L"Disk.Bay.1:Enclosure.External.0-1:RAID.Slot.3-1");
        record->hdr.VERSION = 1;
    }
    if (type == RT_OBJ_PHYSICAL_DISK) {
        record->body.pd.deviceInfoId = input.below(2) == 0 ? RT_DEVICE_INFO_UNSET : 0;
        record->body.pd.protocol = input.below(2) == 0 ? 0x100 : 4;
        record->body.pd.multipath = static_cast<uint8_t>(input.below(2));
        record->body.pd.enclosureId = static_cast<uint16_t>(input.below(12));
    }
    return record;
}

// An object for a slot, and what frees it where it cannot be stored.
void* draw_object(Input& input, uint32_t key_type) {
    static constexpr uint32_t kDiskTypes[] = {RT_OBJ_PHYSICAL_DISK, RT_OBJ_ENCLOSURE,
                                              RT_OBJ_BACKPLANE};
    switch (input.below(8) == 0 ? 0 : key_type) {
        case RTCACHE_KEY_CONTROLLER: {
            auto* node = make(RtCacheControllerNode{});
            node->objType = input.below(2) != 0 ? RT_OBJ_ADAPTER : RT_NODE_PCIESSD_ADAPTER;
            node->adapter = input.below(4) != 0 ? draw_record(input, RT_OBJ_ADAPTER) : nullptr;
            node->battery = input.below(4) != 0 ? draw_record(input, RT_OBJ_BATTERY) : nullptr;
            return node;
        }
        case RTCACHE_KEY_DISK: {
            auto* node = make(RtCacheDiskNode{kDiskTypes[input.below(3)], nullptr});
            if (input.below(4) != 0) {
                node->enclObj = make(RtCacheEnclosureLink{});
                node->enclObj->enclType.physicalDisk.Obj =
                    input.below(4) != 0 ? draw_disk(input, node->objType) : nullptr;
            }
            return node;
        }
        case RTCACHE_KEY_VIRTUAL_DISK:
            return make_virtual_disk();
        case RTCACHE_KEY_BACKPLANE:
            return make(BpStatusInfo{0, 0, 0, 0, 0, draw_record(input, RT_OBJ_BACKPLANE)});
        case RTCACHE_KEY_EXTENDER:
            return make(ExtenderCardInfo{make_text(), make_text(), 0});
        case RTCACHE_KEY_COMMANDS:
            return vexel_alloc(16);
        default:
            return nullptr;
    }
}

void free_object(uint32_t key_type, void* object) {
    auto* disk = static_cast<RtCacheDiskNode*>(object);
    auto* virtual_disk = static_cast<RtCacheVirtualDiskNode*>(object);
    auto* extender = static_cast<ExtenderCardInfo*>(object);
    auto* backplane = static_cast<BpStatusInfo*>(object);
    switch (object == nullptr ? 0 : key_type) {
        case RTCACHE_KEY_CONTROLLER:
            return vexutils::free_controller(static_cast<RtCacheControllerNode*>(object));
        case RTCACHE_KEY_DISK:
            return vexutils::free_disk(disk);
        case RTCACHE_KEY_VIRTUAL_DISK:
            return vexutils::free_virtual_disk(virtual_disk);
        case RTCACHE_KEY_BACKPLANE:
            return vexutils::free_backplane(backplane);
        case RTCACHE_KEY_EXTENDER:
            return vexutils::free_extender(extender);
        default:
            return vexel_free(object);
    }
}

void store_position(Step& step) {
    auto eid = static_cast<uint8_t>(step.input.below(16));
    const uint32_t result =
        rtcache_SetCachedObject(RTCACHE_KEY_EID, step.eid, step.key, step.room(eid));
    tell("store position", result);
    if (result == 0) {
        step.model.rows[step.key].eid = eid;
        step.model.use(step.key);
    }
}

// Stores an object in an empty slot.
void store_object(Step& step) {
    const uint32_t key_type = step.input.below(10);
    const CacheLock lock;
    if (key_type == RTCACHE_KEY_EID) {
        return store_position(step);
    }
    void* held = nullptr;
    tell("get", rtcache_GetCachedObject(key_type, step.eid, step.key, step.room(held)));
    const uint32_t found = rtcache_GetCachedObject(key_type, step.eid, step.key, &held);
    tell("held", held != nullptr ? 1 : 0);
    // More backplanes can be stored than fetched.
    if (held == nullptr && (found == 0 || key_type != RTCACHE_KEY_BACKPLANE)) {
        void* object = draw_object(step.input, key_type);
        const uint32_t result = rtcache_SetCachedObject(key_type, step.eid, step.key, object);
        tell("store", result);
        if (result != 0) {
            free_object(key_type, object);
        }
    }
}

void free_level(Step& step) {
    const uint32_t level = step.input.below(7);
    tell("free level", rtcache_FreeObjectLevel(step.eid, level == 6 ? kFree : level));
}

// Of all kinds, with owned pointers that were never set, as VEXEL marks them.
void free_records(Step& step) {
    static constexpr uintptr_t kEmpty[] = {0, 0xFFFFFFFF, 0xFFFFFFFE, UINTPTR_MAX, UINTPTR_MAX - 1};
    static uint32_t others[1];
    const uint32_t count = step.input.below(3);
    auto* records = static_cast<StorageObjectRecord*>(vexel_alloc(3 * sizeof(StorageObjectRecord)));
    for (uint32_t i = 0; i < count; ++i) {
        records[i].objType = step.input.below(40);
        records[i].hdr.VERSION = step.input.below(2);
        records[i].NAME = reinterpret_cast<wchar_t*>(kEmpty[step.input.below(5)]);
        records[i].hdr.FQDD = reinterpret_cast<wchar_t*>(kEmpty[step.input.below(5)]);
        if (records[i].objType == RT_OBJ_PHYSICAL_DISK) {
            records[i].body.pd.words = others;  // as they are where there is no count of them
        }
    }
    rtcache_FreeRMObjects(nullptr, count);
    rtcache_FreeRMObjects(records, count);
}

void look_up(Step& step) {
    const CacheLock lock;
    wchar_t* enclosure = nullptr;
    const auto tell_text = [](const wchar_t* text) {
        tell("text", text, text != nullptr ? wcslen(text) * sizeof(wchar_t) : 0);
    };
    tell_text(rtcache_GetAdapterFQDD(step.eid));
    tell_text(rtcache_GetBatteryFQDD(step.eid));
    tell("position", rtcache_GetEnclosureFQDD(step.eid, step.key, step.room(enclosure)));
    tell_text(enclosure);
    vexel_free(enclosure);
    if (fuzz::listens()) {
        static const TempDir folder;
        static const std::string dump = folder / "dump";
        write_file(dump, "");
        vexutils::flag_paths.cache_dump = dump.c_str();
        tell("print", static_cast<uint64_t>(rtcache_PrintCache()));
        const std::string content = file_content(dump);
        tell("dump", content.data(), content.size());
    }
}

// ---- Command states -----------------------------------------------------------------------------

void count_command(Step& step) {
    const auto eid = static_cast<int32_t>(step.eid);
    if (step.input.below(4) == 0) {
        rtshm_UpdateNVMeSSDSlotToEID(1, static_cast<uint8_t>(step.input.below(3)),
                                     static_cast<uint8_t>(step.eid));
        rtshm_SetNVMeDriveState(1, 1, static_cast<uint16_t>(step.input.below(2)));
    }
    const CacheLock lock;
    g_rtpil_Controller_Status[step.key % RTPIL_CONTROLLERS].eid = static_cast<uint8_t>(step.eid);
    const uint32_t command = step.input.below(8);
    for (uint32_t times = 1 + step.input.below(12); times > 0; --times) {
        tell("command",
             static_cast<uint64_t>(rtmpi2_UpdateControllerCommandStatus(eid, command, step.key)));
    }
    tell("state",
         static_cast<uint64_t>(rtpil_GetControllerCommunicationStatus(eid, step.room(step.byte))));
    tell("byte", step.byte);
    tell("absent", rtpil_IfNVMeSSD_isNotPresent(eid));
    tell("set logging",
         rtpil_SetctrlEnableLoggingStatus(eid ^ static_cast<int32_t>(step.input.below(2)), 1));
    tell("logging", rtpil_GetctrlEnableLoggingStatus(eid));
    tell("states", g_rtpil_Controller_Status, sizeof(g_rtpil_Controller_Status));
    tell("not its own", g_rtpil_MCTPCommandStatus, sizeof(g_rtpil_MCTPCommandStatus));
    tell("not its own", g_rtpil_HBA_Communication_Status, sizeof(g_rtpil_HBA_Communication_Status));
}

constexpr void (*kSteps[])(Step&) = {
    register_endpoint, remove_endpoint, read_attributes, write_attributes,
    change_type,       drain,           add_events,      add_events,
    filter_event,      delay_events,    take_events,     convert_events,
    store_object,      store_object,    free_level,      free_records,
    look_up,           count_command,
};

void run(Input& input) {
    max_adapters = input.below(8) == 7 ? 0 : 3;
    max_physicaldevices = input.below(8) == 7 ? 0 : 8u << input.below(5);
    max_logicaldevices = 16 * input.below(2);
    max_pciessd_backplanes = input.below(2) == 0 ? 5 : input.number();
    std::ranges::fill(g_rtpil_Controller_Status, RtControllerStatus{});
    EXPECT_EQ(rtcache_Init(), 0u);
    Model model;
    for (int steps = 0; steps < 300 && input.left() != 0; ++steps) {
        Step step{input, model};
        kSteps[input.below(std::size(kSteps))](step);
        EXPECT_EQ(rtcache_GetStorageEIDCount(), model.used);
        const CacheLock lock;
        EXPECT_EQ(GetIndexFromEID(step.eid), model.row(step.eid));
    }
    rtcache_Destroy();
}
const fuzz::Target target{"cache", run};

}  // namespace
