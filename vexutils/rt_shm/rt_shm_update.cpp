#include "rt_shm.h"

#include <platform/shm.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <cwchar>
#include <optional>
#include <string_view>

#include "internal/log.h"
#include "internal/owned.h"
#include "rt_cache.h"
#include "rt_dup.h"
#include "rt_shm/nvme_table.h"
#include "rt_shm/rt_shm_update.h"
#include "rt_shm/snapshot.h"
#include "rt_sync.h"

namespace vexutils {
namespace {

constexpr std::uint8_t kAbsent = 0xFF;

// Inventory states of an endpoint, its status byte 0, as VEXEL sets them.
constexpr std::uint8_t kInventoryDone = 2;
constexpr std::uint8_t kInventoryPartial = 3;

constexpr std::uint8_t kNotIntegrated = 0xFE;  // published instead of the polling flag
constexpr std::uint8_t kInventoryComplete = 1;

// Runs with drives but without a tape drive until "no tape drive" is the answer: a tape drive may
// come up long after the disks.
constexpr std::uint16_t kTapeWaitRuns = 121;
constinit std::uint16_t tape_wait_count VEX_GUARDED_BY(mutexRtCache) = 0;

// PCI device ids of controllers of the first KRON type that have no battery. Sorted.
constexpr std::array<std::uint16_t, 17> kNoBattery{0x1F3C, 0x1F3D, 0x1F44, 0x1F45, 0x1F46, 0x1F4B,
                                                   0x1F4C, 0x1F4E, 0x1F50, 0x1F51, 0x1F52, 0x1F53,
                                                   0x2172, 0x2173, 0x2174, 0x2177, 0x2199};
static_assert(std::ranges::is_sorted(kNoBattery));

// PCI device ids of controllers that are not integrated: their drives are not published. Sorted.
constexpr std::array<std::uint16_t, 8> kExternal{0x1F2D, 0x1F41, 0x1F46, 0x1FC9,
                                                 0x1FE2, 0x200D, 0x213A, 0x2212};
static_assert(std::ranges::is_sorted(kExternal));

constexpr std::uint16_t kAlwaysPolledHba = 0x1FD3;  // PCI device id

std::optional<RTSyncGlobalStatus> global_status() {
    if (RTSync_LockGlobalStatus() != 0) {
        return std::nullopt;
    }
    RTSyncGlobalStatus status{};
    RTSync_GetGlobalStatus(&status);
    RTSync_UnLockGlobalStatus();
    return status;
}

bool hba_reinventory_runs(const RTSyncGlobalStatus& status) {
    return (status.phase & RTSYNC_PHASE_HBA_REINVENTORY) != 0;
}

bool begins_with(const wchar_t* text, std::wstring_view start) {
    return text != nullptr && std::wcsncmp(text, start.data(), start.size()) == 0;
}

// ---- What the run starts from ----

void read_polling_flags(UpdateRun& run) {
    std::uint8_t flags[SHM_POLLING_FLAGS_BYTES] = {};
    if (RTSHM_ReadSharedThermalPolling(flags) != 0) {
        LOG_AS(kUpdate, Level::Error, "Unable to read Thermal flag from  Shared memeory");
        return;
    }
    run.hba_polling_disabled = (flags[0] & SHM_POLLING_DISABLE_HBA) != 0;
    run.kron_polling_disabled = (flags[0] & SHM_POLLING_DISABLE_KRON) != 0;
    LOG_AS(kUpdate, Level::Error, "DisableHBADrivePolling:%d DisableKRONDrivePolling%d ",
           run.hba_polling_disabled, run.kron_polling_disabled);
}

void prepare_images(StorageInventoryRegion& image) {
    std::memset(&image.controllers, kAbsent, sizeof(image.controllers));
    std::memset(&image.drives, kAbsent, sizeof(image.drives));
    std::memset(image.drives.Fqdd[0], 0, SHM_FQDD_BYTES);
    std::memset(image.batteries.au8Slot, kAbsent, sizeof(image.batteries.au8Slot));
    std::memset(image.batteries.au8State, kAbsent, sizeof(image.batteries.au8State));
    image.batteries.vexel_inventory[0] = kAbsent;
    image.controllers.count = 0;
    image.drives.count = 0;
}

// The snapshot of the backplanes; null if there is none.
Owned<BpApiInfo> read_backplanes() {
    rtshm_BpApiKronInit();
    const ZentBpApiHandle handle = session(bpAPIKronHandler);
    if (handle == nullptr) {
        LOG_AS(kUpdate, Level::Error, "<-- error:bpAPIKronHandler is NULL!!");
        return nullptr;
    }
    LOG_AS(kUpdate, Level::Trace, "--> Reading BPAPI to Update SharedMem  %s", kUpdate);
    auto info = make_owned<BpApiInfo>();
    if (info == nullptr) {
        LOG_AS(kUpdate, Level::Error, "<-- error:malloc to BP_Info is Failed!!");
        return nullptr;
    }
    const std::uint32_t result =
        ZentBpApiReadExec(handle, info.get(), __FILE_NAME__, kUpdate, __LINE__);
    LOG_AS(kUpdate, Level::Trace, " Read Status %d BP_API_Read %s ", result & 0xFF,
           bp_succeeded(result) ? "Success" : "Failure");
    if (!bp_succeeded(result)) {
        return nullptr;
    }

    for (const RecordCount& count : {bay_count(*info), drive_count(*info)}) {
        if (count.is_cut()) {
            LOG_AS(kUpdate, Level::Warning, "%s:%u limited to %u", count.name, count.given,
                   count.room);
        }
    }
    return info;
}

// ---- Controllers ----

bool is_published_type(std::uint8_t type) {
    return type == RTCACHE_TYPE_KRON || type == RTCACHE_TYPE_HBA ||
           type == RTCACHE_TYPE_CONTROLLER_12 || type == RTCACHE_TYPE_BOOT_CARD ||
           type == RTCACHE_TYPE_KRON_18;
}

// Whether a KRON controller's inventory is far enough to be published.
bool is_kron_inventoried(std::uint8_t eid, std::uint8_t type, std::uint8_t state) {
    if (state == kInventoryDone) {
        return true;
    }
    if (type == RTCACHE_TYPE_KRON_18 && state == kInventoryPartial) {
        LOG_AS(kUpdate, Level::Trace, "Ignoring the partial inventory case for KRON ctrlId:[%d]",
               eid);
        return true;
    }
    LOG_AS(kUpdate, Level::Trace, "KRON re-inventory is in progress for KRON ctrlId:[%d]", eid);
    return false;
}

// A status that cannot be read keeps no HBA out.
bool is_hba_inventoried(UpdateRun& run, std::uint8_t eid) {
    const auto status = global_status();
    if (!status) {
        LOG_AS(kUpdate, Level::Error, " GlobalStatus failed!!");
        return true;
    }
    run.hba_reinventory = hba_reinventory_runs(*status);
    if (run.hba_reinventory) {
        LOG_AS(kUpdate, Level::Trace,
               "HBA re-inventory is in progress for at least one HBA. SKiP HBA id %d", eid);
    }
    return !run.hba_reinventory;
}

// The controller behind an endpoint id, if it is to be published.
std::optional<UpdateController> find_controller(UpdateRun& run, std::uint8_t eid)
    VEX_REQUIRES(mutexRtCache) {
    StorageEIDAttr attributes{};
    if (rtcache_GetStorageEIDStatusNoLock(eid, &attributes) != 0) {
        return std::nullopt;
    }
    const std::uint8_t type = attributes.eidType;
    LOG_AS(kUpdate, Level::Trace, "%s ctrlId=%d u8Type=%d bInventoryFailed=%d ", "UpdateSHM:", eid,
           type, attributes.status[0]);
    if (!is_published_type(type)) {
        LOG_AS(kUpdate, Level::Trace, "Not KRON or HBA or TAVI, ignoring");
        return std::nullopt;
    }
    UpdateController controller{eid, type, nullptr, {}};
    if ((controller.is_kron() && !is_kron_inventoried(eid, type, attributes.status[0])) ||
        (controller.is_hba() && !is_hba_inventoried(run, eid))) {
        return std::nullopt;
    }

    void* object = nullptr;
    rtcache_GetCachedObject(RTCACHE_KEY_CONTROLLER, eid, eid, &object);
    controller.node = static_cast<const RtCacheControllerNode*>(object);
    if (controller.node == nullptr || controller.node->adapter == nullptr) {
        return std::nullopt;
    }
    if (controller.node->pciInfo == nullptr) {
        LOG_AS(kUpdate, Level::Error, " contiue2");
        return std::nullopt;
    }
    controller.pci = *controller.node->pciInfo;
    return controller;
}

std::uint32_t kron_battery_temperature(const UpdateController& controller, int n) {
    const AdapterBody& adapter = controller.node->adapter->body.adapter;
    if (controller.type == RTCACHE_TYPE_KRON) {
        return std::ranges::binary_search(kNoBattery, controller.pci.device)
                   ? RT_TEMPERATURE_NONE
                   : adapter.batteryTemperature;
    }
    if ((adapter.capability & RT_ADAPTER_HAS_BATTERY) == 0) {
        LOG_AS(kUpdate, Level::Trace, "Battery Unsupported for index %d", n);
        return RT_TEMPERATURE_NONE;
    }
    return adapter.batteryTemperature;
}

void describe_kron(UpdateRun& run, const UpdateController& controller, int n) {
    sCEMKronInventory& section = run.image.controllers;
    const AdapterBody& adapter = controller.node->adapter->body.adapter;
    ++run.kron_count;
    LOG_AS(kUpdate, Level::Trace, "Endpoint detected with u8Type=%d lclKronCount=%d",
           controller.type, run.kron_count);
    section.au8PCISlot[n] = static_cast<std::uint8_t>((controller.pci.locationB << 7) |
                                                      (controller.pci.locationA >> 1));
    section.au8CtrlKind[n] = CTRL_KIND_KRON;
    if (!run.kron_polling_disabled) {
        section.au32Temp[n] = adapter.temperature;
        section.au32BatteryTemp[n] = kron_battery_temperature(controller, n);
    }
    std::memcpy(section.au64CtrlValueA[n], adapter.ctrlValueA, sizeof(adapter.ctrlValueA));
    std::memcpy(section.au64CtrlValueB[n], adapter.ctrlValueB, sizeof(adapter.ctrlValueB));
    section.thermalPDPollDisable[n] = adapter.thermalPDPollDisable;
}

void describe_boot_card(UpdateRun& run, const UpdateController& controller, int n) {
    sCEMKronInventory& section = run.image.controllers;
    const StorageObjectRecord& adapter = *controller.node->adapter;
    section.au8CtrlKind[n] = CTRL_KIND_ROR;
    if (begins_with(adapter.hdr.FQDD, L"TAVI")) {
        section.au8CtrlKind[n] = CTRL_KIND_TAVI;
    } else if (!begins_with(adapter.hdr.FQDD, L"ROR")) {
        LOG_AS(kUpdate, Level::Error, "FQDD is not either TAVI or ROR");
    }
    section.au32Temp[n] = adapter.body.adapter.temperature;
    LOG_AS(kUpdate, Level::Trace, "TAVI-B1 Temperature = %d",
           std::uint32_t{adapter.body.adapter.temperature});
    section.thermalPDPollDisable[n] = drive_polling_disabled(run, controller) ? 1 : 0;
}

void describe_hba(UpdateRun& run, const UpdateController& controller, int n) {
    sCEMKronInventory& section = run.image.controllers;
    section.au8CtrlKind[n] = CTRL_KIND_HBA;
    section.au32Temp[n] = controller.node->adapter->body.adapter.temperature;
    const bool disabled = drive_polling_disabled(run, controller);
    if (disabled) {
        LOG_AS(kUpdate, Level::Trace,
               "HBA ControllerStruct.thermalPDPollDisable[%d] is disabled for controller:%d", n,
               controller.eid);
    }
    section.thermalPDPollDisable[n] = disabled ? 1 : 0;
}

// Fills entry n of the controller section; temperatures that nobody sets stay absent.
void describe_controller(UpdateRun& run, const UpdateController& controller, int n)
    VEX_REQUIRES(mutexRtCache) {
    sCEMKronInventory& section = run.image.controllers;
    if (controller.is_kron()) {
        describe_kron(run, controller, n);
    } else if (controller.is_hba()) {
        describe_hba(run, controller, n);
    } else if (controller.type == RTCACHE_TYPE_BOOT_CARD) {
        describe_boot_card(run, controller, n);
    } else {
        section.au8CtrlKind[n] = CTRL_KIND_CONTROLLER_12;
        section.thermalPDPollDisable[n] = drive_polling_disabled(run, controller) ? 1 : 0;
    }

    section.au32PCIIDs[0][n] = controller.pci.vendor;
    section.au32PCIIDs[1][n] = controller.pci.device;
    section.au32PCIIDs[2][n] = controller.pci.subvendor;
    section.au32PCIIDs[3][n] = controller.pci.subdevice;
    section.au8CtrlAttr[n] = controller.node->adapter->body.adapter.ctrlAttr;
    std::uint8_t modular_id = 0;
    rtcache_GetModularIdNoLock(controller.eid, &modular_id);
    section.au8CardLocation[n] = modular_id;
}

// n: the controller's entry, which gives the PCI slot.
void enter_battery(StorageInventoryRegion& image, const UpdateController& controller, int n) {
    sCEMKRONBatteryInventory& section = image.batteries;
    const int entry = section.count;
    if (!controller.is_kron() || controller.node->battery == nullptr || entry >= SHM_BATTERIES) {
        return;
    }
    if (image.controllers.au8CardLocation[n] != 0) {
        LOG_AS(kUpdate, Level::Trace, "IS A MODULAR CONTROLLER");
        return;
    }
    section.au8Slot[entry] = image.controllers.au8PCISlot[n];
    section.au8State[entry] = controller.node->battery->body.battery.state;
    section.count = entry + 1;
}

void enter_controller(UpdateRun& run, const UpdateController& controller)
    VEX_REQUIRES(mutexRtCache) {
    const int n = run.image.controllers.count;
    describe_controller(run, controller, n);
    run.image.controllers.count = n + 1;
    if (std::ranges::binary_search(kExternal, controller.pci.device)) {
        LOG_AS(kUpdate, Level::Trace, "NOT AN INTEGRATED CONTROLLER");
        run.image.controllers.thermalPDPollDisable[n] = kNotIntegrated;
        return;
    }
    enter_battery(run.image, controller, n);
    enter_drives(run, controller);
}

// ---- Conclusions ----

void conclude_inventory(UpdateRun& run, std::uint32_t kron_total) {
    std::uint8_t& complete = run.image.batteries.vexel_inventory[0];
    LOG_AS(kUpdate, Level::Trace,
           "Before lclKronCnt[%d] kronTotalCnt[%d] vexel_inventory[%d] lclHBAInvFlag[%d]",
           run.kron_count, kron_total, complete, run.hba_reinventory);
    if (run.kron_count == kron_total && !run.hba_reinventory) {
        complete = kInventoryComplete;
    }
    LOG_AS(kUpdate, Level::Trace,
           "After : lclKronCount %d kronTotalCount %d vexel_inventory %d lclHBAInvFlag %d",
           run.kron_count, kron_total, complete, run.hba_reinventory);
}

// Without an answer the tape section is published as 0 and the last answer stays.
void conclude_tape(UpdateRun& run) VEX_REQUIRES(mutexRtCache) {
    if (run.image.drives.count == 0) {
        return;
    }
    const auto status = global_status();
    if (!status) {
        LOG_AS(kUpdate, Level::Error, " GlobalStatus failed!!");
        return;
    }
    if (hba_reinventory_runs(*status)) {
        return;
    }
    if (run.tape == TAPE_ABSENT && tape_wait_count < kTapeWaitRuns &&
        g_IsTapeDrivePresent == TAPE_UNKNOWN) {
        ++tape_wait_count;
        LOG_AS(kUpdate, Level::Trace, "--> Tape drive wait count 120:%d", tape_wait_count);
        return;
    }
    tape_wait_count = 0;
    g_IsTapeDrivePresent = run.tape;
    run.image.tape.IsTapeDrivePresent = run.tape;
    LOG_AS(kUpdate, Level::Trace, "--> Setting tape drive presense:%d wait count 120:%d", run.tape,
           tape_wait_count);
}

void write_images(const StorageInventoryRegion& image) {
    constexpr int kRegion = ZENT_SHM_STORAGE_INVENTORY;
    Zent_shm_memwrite(kRegion, &image.controllers, SHM_CONTROLLER_OFFSET,
                      sizeof(image.controllers));
    Zent_shm_memwrite(kRegion, &image.drives, SHM_DRIVE_OFFSET, sizeof(image.drives));
    Zent_shm_memwrite(kRegion, &image.batteries, SHM_BATTERY_OFFSET, sizeof(image.batteries));
    LOG_AS(kUpdate, Level::Trace, "--> Writing to tape drive section %d",
           image.tape.IsTapeDrivePresent);
    Zent_shm_memwrite(kRegion, &image.tape, SHM_TAPE_OFFSET, sizeof(image.tape));
}

// Builds the images and writes them. They are in this frame, since a run must end by writing even
// without memory: the one large frame of the library, gone before the dump needs stack of its own.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wframe-larger-than="
[[gnu::noinline]] void publish_inventory(std::uint32_t kron_total) VEX_REQUIRES(mutexRtCache) {
    UpdateRun run{};
    run.tape = TAPE_ABSENT;
    read_polling_flags(run);
    prepare_images(run.image);
    const auto backplanes = read_backplanes();
    run.backplanes = backplanes.get();
    for (unsigned eid = 0; eid < RTCACHE_EID_SLOTS && run.image.controllers.count < SHM_CONTROLLERS;
         ++eid) {
        if (const auto controller = find_controller(run, static_cast<std::uint8_t>(eid))) {
            enter_controller(run, *controller);
        }
    }
    conclude_inventory(run, kron_total);
    conclude_tape(run);
    write_images(run.image);
}
#pragma GCC diagnostic pop

}  // namespace

bool drive_polling_disabled(const UpdateRun& run, const UpdateController& controller) {
    return controller.is_hba()
               ? run.hba_polling_disabled && controller.pci.device != kAlwaysPolledHba
               : run.kron_polling_disabled;
}

}  // namespace vexutils

using namespace vexutils;

uint32_t RTSHM_UpdateSharedMem(uint32_t kronTotalCount) {
    LOG(Level::Trace, "ControllerStruct %d PDStruct %d BatteryStruct %d",
        static_cast<int>(sizeof(sCEMKronInventory)), static_cast<int>(sizeof(sCEMSASSATAInventory)),
        static_cast<int>(sizeof(sCEMKRONBatteryInventory)));
    LOG(Level::Trace, "kronTotalCount = %d", kronTotalCount);
    publish_inventory(kronTotalCount);
    RTSHM_DumpSharedMem();
    return 0;
}
