#include "tests/faults/world.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <ostream>

#include "internal/vexel_state.h"
#include "platform/shm.h"
#include "rt_cache/rt_cache_nodes.h"
#include "rt_evtq.h"
#include "rt_shm.h"
#include "rt_shm/nvme_table.h"
#include "rt_sync.h"
#include "vexel.h"

namespace faults {

NotifQueue* queue;

// ---- Objects ------------------------------------------------------------------------------------

namespace {

wchar_t name_text[] = L"A name";
wchar_t fqdd_text[] = L"RAID.Slot.1-1";
wchar_t enclosure_text[] = L"Enclosure.Internal.0-1:RAID.Slot.1-1";
char key_text[256] = "key";
uint32_t words[4] = {1, 2, 3, 4};
uint8_t page[RT_NVME_BLOCK_SIZE] = {1};
AdapterCapabilityEntry capabilities[2];
StorageObjectRecord members[100];

StorageObjectRecord record(uint32_t type, wchar_t* fqdd = fqdd_text) {
    StorageObjectRecord result{};
    result.objType = type;
    result.NAME = name_text;
    result.hdr.VERSION = 1;
    result.hdr.FQDD = fqdd;
    return result;
}

}  // namespace

Sources::Sources()
    : adapter(record(RT_OBJ_ADAPTER)),
      disk(record(RT_OBJ_PHYSICAL_DISK)),
      virtual_disk(record(RT_OBJ_VIRTUAL_DISK)),
      smart_pages(record(RT_OBJ_SMART_DATA)),
      smart_block(record(RT_OBJ_SMART_DATA)),
      foreign(record(RT_OBJ_FOREIGN_CONFIG)),
      battery(record(RT_OBJ_BATTERY)),
      enclosure(record(RT_OBJ_ENCLOSURE, enclosure_text)),
      backplane(record(RT_OBJ_BACKPLANE, enclosure_text)),
      card{name_text, fqdd_text} {
    adapter.body.adapter.text112 = name_text;
    for (AdapterTextEntry& entry : adapter.body.adapter.entries) {
        entry.text = name_text;
    }
    adapter.body.adapter.capabilityMask = 3;
    adapter.body.adapter.capabilities = capabilities;
    PhysicalDiskBody& pd = disk.body.pd;
    pd.keyId = pd.text417 = pd.text426 = pd.text430 = pd.text434 = key_text;
    pd.wordCount = 4;
    pd.words = words;
    pd.enclosureId = kBackplaneKey;
    virtual_disk.body.vd.memberCount = 4;
    virtual_disk.body.vd.targetID = words;
    smart_pages.body.smart.pageSelector = RT_SMART_SELECT_7_PAGES;
    for (SmartPageSlot& slot : smart_pages.body.smart.pages) {
        slot.page = page;
        slot.length = 8;
    }
    smart_block.body.smart.flags = RT_SMART_FLAG_NVME;
    smart_block.body.smart.nvmeBlock = page;
    std::ranges::fill(members, virtual_disk);
    foreign.body.foreign.virtualDiskCount = foreign.body.foreign.physicalDiskCount = 100;
    foreign.body.foreign.virtualDisks = foreign.body.foreign.physicalDisks = members;
}

const Sources sources;

// ---- Start and stop -----------------------------------------------------------------------------

namespace {

template <class T>
T* block() {
    return static_cast<T*>(vexel_alloc(sizeof(T)));
}

// Hands an object to the cache, or frees it.
template <class Node>
bool cached(uint32_t key_type, uint32_t eid, uint16_t key, Node* node, void (*free_node)(Node*&)) {
    if (node == nullptr) {
        return false;
    }
    const bool locked = rtcache_GetLock() == 0;
    const bool stored = locked && rtcache_SetCachedObject(key_type, eid, key, node) == 0;
    if (!stored) {
        free_node(node);
    }
    if (locked) {
        SMMutexUnLock(mutexRtCache);
    }
    return stored;
}

template <class Copy, class Result>
StorageObjectRecord* copy_of(const StorageObjectRecord& source,
                             Result (*copy)(const Copy*, Copy*)) {
    auto* result = block<StorageObjectRecord>();
    if (result != nullptr) {
        copy(&source, result);
    }
    return result;
}

bool add_controller(uint8_t eid, uint8_t type) {
    bool done = rtcache_UpdateCachedObject(RTCACHE_REGISTER, eid, type, 1) == 0;
    done &= rtcache_SetStorageEIDStatus(eid, 2) == 0;
    auto* node = block<RtCacheControllerNode>();
    if (node == nullptr) {
        return false;
    }
    node->adapter = DupAdapter(&sources.adapter);
    node->battery = rtraid_DupBattery(&sources.battery);
    node->driver = rtraid_DupDriver(&sources.battery);
    node->adapterKey = rtraid_DupAdapterKey(&sources.key);
    node->pciInfo = block<RtCachePciInfo>();
    done &= node->adapter != nullptr && node->pciInfo != nullptr && node->battery != nullptr;
    return cached<RtCacheControllerNode>(
               RTCACHE_KEY_CONTROLLER, eid, eid, node,
               [](RtCacheControllerNode*& refused) { vexutils::free_controller(refused); }) &&
           done;
}

bool add_disk(uint8_t eid, uint16_t key, uint32_t type, StorageObjectRecord* made) {
    auto* node = block<RtCacheDiskNode>();
    auto* link = block<RtCacheEnclosureLink>();
    if (node == nullptr || link == nullptr || made == nullptr) {
        vexel_free(node);
        vexel_free(link);
        rtcache_FreeRMObjects(made, 1);
        return false;
    }
    link->enclType.physicalDisk.Obj = made;
    *node = {type, link};
    return cached(RTCACHE_KEY_DISK, eid, key, node, vexutils::free_disk);
}

bool add_objects(uint8_t eid) {
    bool done = add_disk(eid, kDiskKey, RT_OBJ_PHYSICAL_DISK, copy_of(sources.disk, rtraid_dupPD));
    done &= add_disk(eid, kEnclosureKey, RT_OBJ_ENCLOSURE,
                     copy_of(sources.enclosure, rtraid_dupEnclosure));
    done &= add_disk(eid, kBackplaneKey, RT_OBJ_BACKPLANE,
                     copy_of(sources.backplane, rtraid_dupEnclosure));
    auto* node = block<RtCacheVirtualDiskNode>();
    if (node == nullptr) {
        return false;
    }
    *node = {RT_OBJ_VIRTUAL_DISK, copy_of(sources.virtual_disk, rtraid_DupVD)};
    return cached(RTCACHE_KEY_VIRTUAL_DISK, eid, kVirtualDiskKey, node,
                  vexutils::free_virtual_disk) &&
           done;
}

bool start_cache() {
    max_adapters = 6;
    max_physicaldevices = 32;
    max_logicaldevices = 8;
    bool done = rtcache_Init() == 0;
    done &= add_controller(kKron, RTCACHE_TYPE_KRON);
    done &= add_controller(kHba, RTCACHE_TYPE_HBA);
    done &= add_objects(kKron);
    done &= rtcache_UpdateCachedObject(RTCACHE_REGISTER, kNvme, RTCACHE_TYPE_NVME, 0) == 0;
    done &= rtcache_UpdateCachedObject(RTCACHE_REGISTER, kCard, RTCACHE_TYPE_PCIESSD, 0) == 0;
    return cached<void>(RTCACHE_KEY_COMMANDS, kKron, kKron, vexel_alloc(16),
                        [](void*& refused) { vexel_free(refused); }) &&
           done;
}

bool start_backplanes() {
    std::memset(&sNVMeSSDBPInfo, 0, sizeof(sNVMeSSDBPInfo));
    std::memset(&sNVMeSSDBPVDMInfo, 0, sizeof(sNVMeSSDBPVDMInfo));
    bool done = rtshm_BpApiInit() == 0;
    done &= rtshm_BpApiKronInit() == 0;
    rtshm_UpdateNVMeSSDSlotToEID(1, 2, kNvme);
    rtshm_UpdateNVMeSSDSlotToVDMEID(1, 2, kVdmEid);
    return done;
}

void drop_event_queue() {
    if (gpRtraid_EventQueue == nullptr) {
        return;
    }
    while (EndpointEventNode* node = gpRtraid_EventQueue->head) {
        gpRtraid_EventQueue->head = node->next;
        vexel_free(node->event);
        vexel_free(node);
    }
    rtraid_EventQueue_Destroy();
}

void drop_queue() {
    while (NotifNode* node = RemoveMsgFromQueueHead(queue)) {
        vexel_free(node);
    }
    if (queue != nullptr) {
        SMMutexDestroy(queue->mutex);
        vexel_free(queue);
        queue = nullptr;
    }
}

}  // namespace

bool start() {
    bool done = RTSync_Init() == 0;
    done &= rtraid_KRONInventoryThreadHandlerMutexInit() == 0;
    done &= rtraid_EventQueue_Init() == 0;
    done &= InitEvtQ(&queue) == 0 && queue->mutex != nullptr;
    done &= start_cache();
    done &= start_backplanes();
    const wchar_t* fqdds[] = {fqdd_text, L"TAVI.Slot.2"};
    updateNotifFQDD(2, fqdds);
    return done && g_hybridJobData != nullptr;
}

void stop() {
    freeHybridData(&g_hybridJobData);
    rtshm_BpApiExit();
    rtshm_BpApiKronExit();
    rtcache_Destroy();
    drop_queue();
    drop_event_queue();
    rtraid_KRONInventoryThreadHandlerMutexDestroy();
    RTSync_Destroy();
}

// ---- World --------------------------------------------------------------------------------------

std::string file(const std::string& name, const std::string& content) {
    static const std::string folder = [] {
        std::string pattern = testing::TempDir() + "vexfaultsXXXXXX";
        const char* made = mkdtemp(pattern.data());
        return std::string{made != nullptr ? made : "."} + "/";
    }();
    std::ofstream{folder + name, std::ios::binary} << content;
    return folder + name;
}

namespace {

void fill_snapshot(BpApiInfo& info) {
    info.bayCnt = 2;
    info.driveCnt = info.printDriveCnt = 4;
    info.riserCnt = 1;
    for (uint8_t bay = 0; bay < 2; ++bay) {
        info.bays[bay].bayId = bay;
        info.bays[bay].technology = BPAPI_TECHNOLOGY_NVME_A;
        info.bays[bay].raidManagement = 1;
        info.bays[bay].physicalSlotCount = 4;
    }
    for (uint8_t i = 0; i < 4; ++i) {
        BpApiDrive drive{};
        drive.driveId = i;
        drive.bayId = i % 2;
        drive.slot = static_cast<uint8_t>(i / 2 + 1);
        drive.technology = BPAPI_TECHNOLOGY_NVME_A;
        drive.state = 1;
        fake::platform().add_drive(i, drive);
    }
    info.risers[0] = {1, 1, NVME_RISER_TYPE_EXTENDER, 3, 1, 0};
}

void fill_regions(fake::Platform& platform) {
    const std::vector<uint8_t> extenders{0, 0, 1, 0, 4, 3, 0, 0, 200, 0};
    std::ranges::copy(extenders, platform.region(ZENT_SHM_EXTENDER_CARDS).begin());
    platform.region(ZENT_SHM_EXTENDER_CARDS)[200] = 1;
    for (uint8_t slot = 0; slot < 8; ++slot) {
        uint8_t* position = &platform.region(ZENT_SHM_PCIESSD_STATUS)[14 + 4u * slot];
        position[0] = slot / 4;
        position[1] = slot % 4;
    }
    // An HBA of type 9 in slot 3 and a boot-storage card of type 17 in slot 5.
    const std::vector<uint8_t> cards{0, 0, 0, 0, 0, 0, 2, 0, 0, 1, 1, 0, 0, 9, 0,
                                     0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 1, 0, 0, 17};
    std::ranges::copy(cards, platform.region(ZENT_SHM_FRU_TABLE).begin());
    std::vector<uint8_t> fru(60, ' ');
    std::memcpy(&fru[19], "TAVI-A2", 7);
    platform.frus[0x101] = {{1, 0, 0, 3, 3, 5, 0, 60}, fru};
    platform.frus[0x102] = {{1, 0, 0, 3, 5, 5, 0, 60}, fru};
}

const char* path(const char* name, const char* content) {
    static std::map<std::string, std::string> paths;
    std::string& result = paths[name];
    if (result.empty()) {
        result = file(name, content);
    }
    return result.c_str();
}

}  // namespace

World::World() {
    fake::Platform& platform = fake::platform();
    platform.reset();
    platform.treat_lines(fake::Platform::Lines::Dropped);
    pRTLogPath = path("log", "");
    pRTBakLogPath = path("log.bak", "");
    vexutils::log_state.init = vexutils::LogInit::None;
    vexutils::log_state.file = vexutils::LogFile::Disabled;
    vexutils::log_state.depth = 0;
    vexutils::FlagPaths& flags = vexutils::flag_paths;
    flags.log_disabled = flags.hba_disabled = flags.tavi_disabled = path("flag", "");
    flags.disk_thermal_disabled = flags.hba_disabled;
    flags.tavi_poll = path("poll", "1 2");
    flags.cache_dump = path("dump", "");
    flags.ssd_status = path("status", "3 0x11\n4 12\n");
    flags.ssd_fru = path("fru", std::string(3 * SHM_FRU_IMAGE_BYTES, 'f').c_str());
    fill_snapshot(platform.snapshot);
    fill_regions(platform);
    EXPECT_TRUE(start());
}

World::~World() {
    fake::platform().no_faults();
    stop();
}

Holdings holdings() {
    const fake::Platform& platform = fake::platform();
    const int descriptor = dup(STDERR_FILENO);  // the lowest that is free
    close(descriptor);
    return {fake::live_blocks(), platform.live_mutexes,    platform.live_events,
            platform.live_lists, platform.open_sessions(), platform.locks_held,
            descriptor};
}

std::ostream& operator<<(std::ostream& out, const Holdings& held) {
    return out << held.blocks << " blocks, " << held.mutexes << " mutexes, " << held.events
               << " events, " << held.lists << " lists, " << held.sessions << " sessions, "
               << held.locks << " locks, descriptor " << held.lowest_free_descriptor;
}

// ---- Memory that no failure reaches -------------------------------------------------------------

void* room(size_t size) {
    const fake::AllocationPause pause;
    return vexel_alloc(size);
}

StorageObjectRecord* room_for_record() {
    return static_cast<StorageObjectRecord*>(room(sizeof(StorageObjectRecord)));
}

EventData* event_data(const char* id) {
    auto* data = static_cast<EventData*>(room(sizeof(EventData)));
    data->messageId = static_cast<char*>(room(std::strlen(id) + 1));
    std::strcpy(data->messageId, id);
    data->messageArgs = room(8);
    return data;
}

void free_list(RtCacheEventNode* list) {
    while (list != nullptr) {
        RtCacheEventNode* next = list->next;
        vexutils::free_event_data(static_cast<EventData*>(list->eventData));
        vexel_free(list);
        list = next;
    }
}

}  // namespace faults
