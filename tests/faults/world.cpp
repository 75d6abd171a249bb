#include "tests/faults/world.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>

#include "internal/vexel_state.h"
#include "platform/shm.h"
#include "rt_cache/rt_cache_nodes.h"
#include "rt_evtq.h"
#include "rt_shm.h"
#include "rt_shm/nvme_table.h"
#include "rt_sync.h"
#include "tests/support/files.h"
#include "tests/support/objects.h"
#include "vexel.h"

namespace faults {

NotifQueue* queue;

// ---- Start and stop -----------------------------------------------------------------------------

namespace {

constexpr wchar_t kEnclosure[] = L"Enclosure.Internal.0-1:RAID.Slot.1-1";

void store(uint32_t key_type, uint8_t eid, uint16_t key, void* node) {
    EXPECT_EQ(rtcache_SetCachedObject(key_type, eid, key, node), 0u);
}

void add_objects() {
    rtcache_UpdateCachedObject(RTCACHE_REGISTER, kKron, RTCACHE_TYPE_KRON, 1);
    rtcache_UpdateCachedObject(RTCACHE_REGISTER, kHba, RTCACHE_TYPE_HBA, 1);
    rtcache_UpdateCachedObject(RTCACHE_REGISTER, kNvme, RTCACHE_TYPE_NVME, 0);
    rtcache_UpdateCachedObject(RTCACHE_REGISTER, kCard, RTCACHE_TYPE_PCIESSD, 0);
    rtcache_SetStorageEIDStatus(kKron, 2);
    rtcache_SetStorageEIDStatus(kHba, 2);
    EXPECT_EQ(rtcache_GetLock(), 0u);
    store(RTCACHE_KEY_CONTROLLER, kKron, kKron, make_controller());
    store(RTCACHE_KEY_CONTROLLER, kHba, kHba, make_controller());
    store(RTCACHE_KEY_CONTROLLER, kCard, kCard, make_controller(RT_NODE_PCIESSD_ADAPTER));
    store(RTCACHE_KEY_EXTENDER, 0, 16, make(ExtenderCardInfo{make_text(), make_text(), 0}));
    StorageObjectRecord* backplane = make_record(RT_OBJ_BACKPLANE, L"BP", 0);
    store(RTCACHE_KEY_BACKPLANE, 0, 4, make(BpStatusInfo{0, 0, 0, 0, 0, backplane}));
    RtCacheDiskNode* disk = make_disk();
    disk->enclObj->enclType.physicalDisk.Obj->body.pd.enclosureId = kBackplaneKey;
    store(RTCACHE_KEY_DISK, kKron, kDiskKey, disk);
    RtCacheDiskNode* second_path = make_disk();
    second_path->enclObj->enclType.physicalDisk.Obj->body.pd.multipath = 1;
    store(RTCACHE_KEY_DISK, kKron, kDiskKey + 1, second_path);
    RtCacheDiskNode* tape = make_disk(RT_OBJ_PHYSICAL_DISK, L"Tape.1");
    tape->enclObj->enclType.physicalDisk.Obj->body.pd.protocol = 0x100;
    store(RTCACHE_KEY_DISK, kHba, kDiskKey, tape);
    store(RTCACHE_KEY_DISK, kKron, kEnclosureKey, make_disk(RT_OBJ_ENCLOSURE, kEnclosure));
    store(RTCACHE_KEY_DISK, kKron, kBackplaneKey, make_disk(RT_OBJ_BACKPLANE, kEnclosure));
    store(RTCACHE_KEY_VIRTUAL_DISK, kKron, kVirtualDiskKey, make_virtual_disk());
    store(RTCACHE_KEY_COMMANDS, kKron, kKron, vexel_alloc(16));
    SMMutexUnLock(mutexRtCache);
    rtshm_UpdateNVMeSSDSlotToEID(1, 2, kNvme);
    rtshm_UpdateNVMeSSDSlotToVDMEID(1, 2, kVdmEid);
}

void drop_event_queue() {
    while (gpRtraid_EventQueue != nullptr && gpRtraid_EventQueue->head != nullptr) {
        EndpointEventNode* node =
            std::exchange(gpRtraid_EventQueue->head, gpRtraid_EventQueue->head->next);
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
    max_adapters = 6;
    max_physicaldevices = 32;
    max_logicaldevices = 8;
    bool done = RTSync_Init() == 0;
    done &= rtraid_KRONInventoryThreadHandlerMutexInit() == 0;
    done &= rtraid_EventQueue_Init() == 0;
    done &= InitEvtQ(&queue) == 0 && queue->mutex != nullptr;
    done &= rtcache_Init() == 0;
    done &= rtshm_BpApiInit() == 0;
    done &= rtshm_BpApiKronInit() == 0;
    const wchar_t* fqdds[] = {L"RAID.Slot.1-1", L"TAVI.Slot.2"};
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
    static const TempDir folder;
    write_file(folder / name, content);
    return folder / name;
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
    if (!paths.contains(name)) {
        paths[name] = file(name, content);
    }
    return paths[name].c_str();
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
    std::memset(&sNVMeSSDBPInfo, 0, sizeof(sNVMeSSDBPInfo));
    std::memset(&sNVMeSSDBPVDMInfo, 0, sizeof(sNVMeSSDBPVDMInfo));
    std::ranges::fill(g_rtpil_Controller_Status, RtControllerStatus{});
    g_IsTapeDrivePresent = TAPE_ABSENT;  // known: no count of waits goes on from before
    EXPECT_TRUE(start());
    rtraid_SetKRONInventoryThreadFlag(0);
    add_objects();
}

World::~World() {
    fake::platform().no_faults();
    stop();
}

Holdings holdings() {
    const fake::Platform& platform = fake::platform();
    const int descriptor = dup(STDERR_FILENO);  // the lowest that is free
    close(descriptor);
    return {{"blocks", fake::live_blocks()},        {"mutexes", platform.live_mutexes},
            {"events", platform.live_events},       {"lists", platform.live_lists},
            {"sessions", platform.open_sessions()}, {"locks", platform.locks_held},
            {"lowest free descriptor", descriptor}};
}

// ---- Memory that no failure reaches -------------------------------------------------------------

void* room(size_t size) {
    const fake::AllocationPause pause;
    return vexel_alloc(size);
}

EventData* event_data(const char* id) {
    const fake::AllocationPause pause;
    return make_event_data(id);
}

void free_list(RtCacheEventNode* list) {
    while (list != nullptr) {
        vexutils::free_event_data(static_cast<EventData*>(list->eventData));
        vexel_free(std::exchange(list, list->next));
    }
}

}  // namespace faults
