// One inventory update: 16 controllers, 255 drives.
#include <platform/shm.h>

#include <cstring>
#include <cwchar>
#include <string>

#include "bench/bench_support.h"
#include "rt_cache.h"
#include "rt_shm.h"
#include "rt_sync.h"
#include "vexel.h"

namespace bench {

namespace {

constexpr uint32_t kFirstEid = 120;  // beside the endpoints of the cache cases
constexpr wchar_t kFqdd[] = L"Disk.Direct.12-1:RAID.Slot.3-1";

template <class T>
T* make() {
    return static_cast<T*>(vexel_alloc(sizeof(T)));
}

wchar_t* copy(const wchar_t* text) {
    auto* block = static_cast<wchar_t*>(vexel_alloc((std::wcslen(text) + 1) * sizeof(wchar_t)));
    std::wcscpy(block, text);
    return block;
}

void add_controller(uint32_t eid) {
    rtcache_UpdateCachedObject(RTCACHE_REGISTER, eid, RTCACHE_TYPE_KRON, 0);
    rtcache_SetStorageEIDStatus(eid, 2);
    auto* node = make<RtCacheControllerNode>();
    node->adapter = make<StorageObjectRecord>();
    node->adapter->hdr.FQDD = copy(L"RAID.Slot.3-1");
    node->pciInfo = make<RtCachePciInfo>();
    node->pciInfo->device = 0x10E2;
    rtcache_SetCachedObject(RTCACHE_KEY_CONTROLLER, eid, static_cast<uint16_t>(eid), node);
}

void add_drive(uint32_t eid, uint16_t key) {
    auto* node = make<RtCacheDiskNode>();
    node->objType = RT_OBJ_PHYSICAL_DISK;
    node->enclObj = make<RtCacheEnclosureLink>();
    auto* record = make<StorageObjectRecord>();
    record->objType = RT_OBJ_PHYSICAL_DISK;
    record->hdr.VERSION = 1;
    record->hdr.FQDD = copy(kFqdd);
    record->body.pd.enclosureId = RT_ENCLOSURE_NONE;
    node->enclObj->enclType.physicalDisk.Obj = record;
    rtcache_SetCachedObject(RTCACHE_KEY_DISK, eid, key, node);
}

void build(uint32_t controllers, uint32_t drives) {
    rtcache_Init();  // ends what was there
    RTSync_Init();
    rtcache_GetLock();
    SMMutexUnLock(mutexRtCache);
    for (uint32_t c = 0; c < controllers; ++c) {
        add_controller(kFirstEid + c);
    }
    for (uint32_t d = 0; d < drives; ++d) {
        add_drive(kFirstEid + d % controllers, static_cast<uint16_t>(7 * (d / controllers)));
    }
}

uint32_t built_controllers = 0;

}  // namespace

void have_inventory(uint32_t controllers, uint32_t drives) {
    use_world("inventory " + std::to_string(controllers) + "x" + std::to_string(drives), [=] {
        build(controllers, drives);
        built_controllers = controllers;
    });
    log_file(false);
}

namespace {

// The least: every slot read once, what is there gathered, four sections published.
void gather() {
    static StorageInventoryRegion image;
    std::memset(&image, 0xFF, sizeof(image));
    unsigned n = 0;
    for (uint32_t c = 0; c < built_controllers; ++c) {
        RtCacheDiskNode** row = cache_PDs[GetIndexFromEID(kFirstEid + c)];
        for (unsigned p = 0; p < 2047; ++p) {
            if (row[p] == nullptr || n == SHM_DRIVES) {
                continue;
            }
            const StorageObjectRecord& record = *row[p]->enclObj->enclType.physicalDisk.Obj;
            image.drives.au8Temp[n] = record.body.pd.temperature;
            image.drives.pdShmStatus[n] = static_cast<uint16_t>(record.body.pd.state);
            const wchar_t* fqdd = record.hdr.FQDD;
            for (unsigned i = 0; i + 1 < SHM_FQDD_BYTES && fqdd[i] != L'\0'; ++i) {
                image.drives.Fqdd[n][i] = static_cast<char>(fqdd[i]);
            }
            ++n;
        }
    }
    Zent_shm_memwrite(3, &image.controllers, SHM_CONTROLLER_OFFSET, sizeof(image.controllers));
    Zent_shm_memwrite(3, &image.drives, SHM_DRIVE_OFFSET, sizeof(image.drives));
    Zent_shm_memwrite(3, &image.batteries, SHM_BATTERY_OFFSET, sizeof(image.batteries));
    Zent_shm_memwrite(3, &image.tape, SHM_TAPE_OFFSET, sizeof(image.tape));
}

}  // namespace

void update_inventory() {
    rtcache_GetLock();
    RTSHM_UpdateSharedMem(built_controllers);
    SMMutexUnLock(mutexRtCache);
}

namespace {

void register_size(const std::string& path, uint32_t controllers, uint32_t drives) {
    add(
        path + "/floor", [=] { have_inventory(controllers, drives); }, gather);
    add(
        path + "/lib", [=] { have_inventory(controllers, drives); }, update_inventory);
}

}  // namespace

void register_inventory_cases() {
    register_size("inventory_16x255", 16, 255);
    add_logged(
        "inventory_16x255_logged", [] { have_inventory(16, 255); }, update_inventory);
    for (const uint32_t drives : {0u, 64u, 128u}) {
        register_size("inventory_16x" + std::to_string(drives), 16, drives);
    }
    for (const uint32_t controllers : {1u, 4u}) {
        register_size("inventory_" + std::to_string(controllers) + "x64", controllers, 64);
    }
    at_exit([] {
        RTSync_Destroy();
        rtcache_Destroy();
    });
}

}  // namespace bench
