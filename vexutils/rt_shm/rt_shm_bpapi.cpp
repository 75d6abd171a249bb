#include "rt_shm.h"

#include <cstring>

#include "internal/log.h"
#include "internal/owned.h"
#include "rt_shm/nvme_table.h"
#include "rt_shm/snapshot.h"
#include "rt_sync.h"

constinit ZentBpApiHandle bpAPIHandler = nullptr;
constinit ZentBpApiHandle bpAPIKronHandler = nullptr;
constinit BpApiInfo* g_bpInfo = nullptr;
constinit NVMeBackplaneTable sNVMeSSDBPInfo{};
constinit NVMeBackplaneTable sNVMeSSDBPVDMInfo{};

namespace vexutils {

constinit DriveStates latest_drive_states{};
constinit DriveStates acted_drive_states{};

namespace {

constexpr std::uint32_t kNoMemory = 5;          // result of rtshm_BpDataUpdate
constexpr std::uint32_t kBoardWithRiser = 215;  // its extender serves three slots of every bay
constexpr unsigned kSlotMapBits = 32;

void publish(ZentBpApiHandle& handle, ZentBpApiHandle session) {
    __atomic_store_n(&handle, session, __ATOMIC_RELEASE);
}

// Takes the handle out, so that nobody starts to use a session that is being closed.
ZentBpApiHandle withdraw(ZentBpApiHandle& handle) {
    return __atomic_exchange_n(&handle, nullptr, __ATOMIC_ACQ_REL);
}

void clear(DriveStates& states) {
    for (std::uint16_t& state : states) {
        store(state, 0);
    }
}

std::uint8_t bus_number(const BpApiDrive& drive) {
    return drive.bdfValid != 0 ? drive.bus : 0;
}

bool is_behind_kron(const BpApiBay& bay, unsigned slot) {
    return slot < kSlotMapBits && ((bay.nvmeKronSlotMap >> slot) & 1) != 0;
}

// The board's snapshot does not name the extender of these slots.
std::uint8_t extender_slot(const BpApiDrive& drive, std::uint32_t system_id) {
    const bool on_riser = system_id == kBoardWithRiser && drive.slot >= 2 && drive.slot <= 4;
    return on_riser ? 1 : drive.extenderSlot;
}

// bay.bayId is below NVME_BAYS.
void record_bay(const BpApiBay& bay) {
    NVMeBayEntry& entry = sNVMeSSDBPInfo.bays[bay.bayId];
    store(entry.bayId, bay.bayId);
    store(entry.physicalSlotCount, bay.physicalSlotCount);
    store(entry.firmwareMajor, bay.firmwareMajor);
    store(entry.firmwareMinor, bay.firmwareMinor);
    store(entry.driveSlotOffset, bay.driveSlotOffset);
    store(entry.nvmeKronSlotMap, bay.nvmeKronSlotMap);
}

void record_drive(const BpApiBay& bay, const BpApiDrive& drive, unsigned index,
                  std::uint32_t system_id) {
    NVMeSlotEntry& entry = sNVMeSSDBPInfo.slots[index];
    store(entry.bayId, drive.bayId);
    store(entry.slot, drive.slot);
    store(entry.driveId, drive.driveId);
    store(entry.driveState, drive.state);
    store(entry.location, drive.location);
    store(entry.bus, bus_number(drive));
    store(entry.extenderSlot, extender_slot(drive, system_id));
    store(entry.bayTechnology, bay.technology);
    store(entry.behindKron, is_behind_kron(bay, drive.slot) ? 1 : 0);
    store(entry.driveTechnology, drive.technology);
    store(acted_drive_states[index], drive.state);
}

void record_riser(const BpApiRiser& riser, unsigned index) {
    NVMeRiserEntry& entry = sNVMeSSDBPInfo.risers[index];
    store(entry.bayId, riser.bayId);
    store(entry.pcieSlot, riser.pcieSlot);
    store(entry.type, NVME_RISER_TYPE_EXTENDER);
    store(entry.number, riser.number);
}

// What a callback tells of a drive; its state is compared once all drives are in.
void record_reported_drive(const BpApiDrive& drive, unsigned index) {
    NVMeSlotEntry& entry = sNVMeSSDBPInfo.slots[index];
    store(entry.bayId, drive.bayId);
    store(entry.driveTechnology, drive.technology);
    store(entry.bus, bus_number(drive));
    store(latest_drive_states[index], drive.state);
}

bool request_inventory() VEX_REQUIRES(rtsync_mutex) {
    RTSyncGlobalStatus status{};
    RTSync_GetGlobalStatus(&status);
    status.flags |= RTSYNC_FLAG_BPAPI_HBA | RTSYNC_FLAG_KRON | RTSYNC_FLAG_PCIESSD;
    return RTSync_SetGlobalStatus(status) == 0;
}

// Kept: releases a lock that was not taken, which is refused. Unchecked for that reason.
void release_untaken_status() VEX_UNCHECKED {
    RTSync_UnLockGlobalStatus();
}

}  // namespace
}  // namespace vexutils

using namespace vexutils;

uint32_t rtshm_BpApiInit(void) {
    LOG(Level::Trace, "--> %s", __func__);
    clear(latest_drive_states);
    clear(acted_drive_states);
    if (session(bpAPIHandler) != nullptr) {
        LOG(Level::Trace, "--> %s BPApi is already Open", __func__);
    } else {
        LOG(Level::Trace, "--> %s Calling BPAPIOpen", __func__);
        publish(bpAPIHandler,
                ZentBpApiOpenExec(NVMeHotPlugCallback, 0, __FILE_NAME__, __func__, __LINE__, 0));
    }
    const ZentBpApiHandle handle = session(bpAPIHandler);
    if (handle == nullptr) {
        LOG(Level::Error, "Failed to get Open bpAPI");
        return 1;
    }

    LOG(Level::Trace, "%s BPHandler => %p", __func__, handle);
    LOG(Level::Trace, " Updating the BPData Line:%d", __LINE__);
    if (rtshm_BpDataUpdate() != 0) {
        LOG(Level::Error, "Error, Failed to get BPData %s", __func__);
    }
    LOG(Level::Trace, "<-- SUCCESS %s", __func__);
    return 0;
}

uint32_t rtshm_BpApiKronInit(void) {
    LOG(Level::Trace, "--> %s", __func__);
    if (session(bpAPIKronHandler) != nullptr) {
        LOG(Level::Trace, "--> %s bpAPIKronHandler is already Open", __func__);
    } else {
        LOG(Level::Trace, "--> %s Calling BPAPIOpen", __func__);
        publish(bpAPIKronHandler,
                ZentBpApiOpenExec(BpApiKronCallback, 0, __FILE_NAME__, __func__, __LINE__, 0));
    }
    const ZentBpApiHandle handle = session(bpAPIKronHandler);
    if (handle == nullptr) {
        LOG(Level::Error, "Failed to get Open bpAPIKronHandler");
        return 1;
    }

    LOG(Level::Trace, "%s bpAPIKronHandler => %p", __func__, handle);
    LOG(Level::Trace, "<-- SUCCESS %s", __func__);
    return 0;
}

uint32_t rtshm_BpApiExit(void) {
    const ZentBpApiHandle handle = withdraw(bpAPIHandler);
    if (handle == nullptr) {
        LOG(Level::Error, "%s BPHandler is NULL", __func__);
        return 0;
    }
    LOG(Level::Trace, "%s BPHandler => %p", __func__, handle);
    if (!bp_succeeded(ZentBpApiCloseExec(handle, __FILE_NAME__, __func__, __LINE__))) {
        LOG(Level::Error, "Failed to Close bpAPI");
    }
    return 0;
}

uint32_t rtshm_BpApiKronExit(void) {
    const ZentBpApiHandle handle = withdraw(bpAPIKronHandler);
    if (handle == nullptr) {
        LOG(Level::Error, "%s bpAPIKronHandler is NULL", __func__);
        return 0;
    }
    LOG(Level::Trace, "%s bpAPIKronHandler => %p", __func__, handle);
    if (!bp_succeeded(ZentBpApiCloseExec(handle, __FILE_NAME__, __func__, __LINE__))) {
        LOG(Level::Error, "Failed to Close bpAPI");
    }
    return 0;
}

uint32_t rtshm_BpDataUpdate(void) {
    const Owned<BpApiInfo> info = make_owned<BpApiInfo>();
    if (!info) {
        LOG(Level::Error, "<-- error:malloc to BP_Info is Failed!!");
        return kNoMemory;
    }
    const ZentBpApiHandle handle = session(bpAPIHandler);
    if (handle == nullptr) {
        LOG(Level::Error, "<-- error:bpAPIHandler is NULL!!");
        return 0;
    }
    if (!bp_succeeded(ZentBpApiReadExec(handle, info.get(), __FILE_NAME__, __func__, __LINE__))) {
        LOG(Level::Error, "<-- error:BPRead Failed!!");
        return 0;
    }

    ZentBpPrintApiInfo(info.get());
    const RecordCount drives = drive_count(*info);
    if (drives.is_cut()) {  // the print has told of the other counts
        LOG(Level::Warning, "%s:%u limited to %u", drives.name, drives.given, drives.room);
    }
    const uint32_t system_id = Zent_get_system_id();
    store(sNVMeSSDBPInfo.bayCount, info->bayCnt);
    for (unsigned i = 0; i < bay_count(*info).kept(); ++i) {
        const BpApiBay bay = info->bays[i];
        LOG(Level::Trace, " Bay Id: %d u8BayNo: %d bay->tech:%d u8BayCount:%d", bay.bayId, i,
            bay.technology, info->bayCnt);
        unsigned bay_drives = 0;  // drive records to look through
        if (!is_nvme(bay.technology)) {
            LOG(Level::Trace, " Not a NVMe BP, Hence skipping bpType=%d u8BayNo=%d ",
                bay.technology, i);
        } else if (bay.bayId >= NVME_BAYS) {
            LOG(Level::Warning, "bayId:%d beyond the table, skipped", bay.bayId);
        } else {
            record_bay(bay);
            bay_drives = drives.kept();
            LOG(Level::Trace, "Fw Version:   %x.%x", bay.firmwareMajor, bay.firmwareMinor);
            LOG(Level::Trace, "u8BayNo:%d bayId=%d: slotCnt=%d slotCnt:%d, SlotOffset:%d", i,
                bay.bayId, bay.physicalSlotCount, bay.physicalSlotCount, bay.driveSlotOffset);
            LOG(Level::Trace, "nvmeKronSlotMap:%d", bay.nvmeKronSlotMap);
        }

        for (unsigned d = 0; d < bay_drives; ++d) {
            const BpApiDrive drive = drive_record(*info, d);
            if (drive.bayId != bay.bayId) {
                continue;
            }
            const auto index = position_index(drive.bayId, drive.slot);
            if (!index) {
                LOG(Level::Warning, "bayId:%d slot:%d beyond the table, skipped", drive.bayId,
                    drive.slot);
                continue;
            }
            record_drive(bay, drive, *index, system_id);
            LOG(Level::Trace, "BDF valid=%d,BusNum=%d", drive.bdfValid, bus_number(drive));
            LOG(Level::Trace, " drive->driveId:%d drive->state:%d baySlot:%d ", drive.driveId,
                drive.state, *index);
            LOG(Level::Detail, " drive->extenderSlot:%d drive->tech:%d ", drive.extenderSlot,
                drive.technology);
            LOG(Level::Detail, " NVMeDriveBehindKron=%d", is_behind_kron(bay, drive.slot) ? 1 : 0);
        }

        for (unsigned r = 0; r < riser_count(*info).kept(); ++r) {
            const BpApiRiser riser = info->risers[r];
            LOG(Level::Trace, "Riser details :riser->Slot=%d, riser->bayId:%d riser->num:%d",
                riser.pcieSlot, riser.bayId, riser.number);
            if (riser.bayId == bay.bayId) {
                record_riser(riser, r);
                LOG(Level::Trace, "Extern Found, @PCIe Slot =%d, Type:%d", riser.pcieSlot,
                    riser.type);
            }
        }
    }
    return 0;
}

void ZentBpPrintApiInfo(const BpApiInfo* info) {
    if (info == nullptr) {
        return;
    }

    const RecordCount bays = bay_count(*info);
    const RecordCount drives = printed_drive_count(*info);
    const RecordCount risers = riser_count(*info);
    LOG(Level::Trace, "=========================%s", __func__);
    LOG(Level::Trace, "API Info bayCnt:%d bays", info->bayCnt);
    for (const RecordCount& count : {bays, drives, risers}) {
        if (count.is_cut()) {
            LOG(Level::Warning, "%s:%u limited to %u", count.name, count.given, count.room);
        }
    }
    for (unsigned i = 0; i < bays.kept(); ++i) {
        const BpApiBay bay = info->bays[i];
        LOG(Level::Trace, "Bay Id: %d %s", bay.bayId,
            bay.inventoried != 0 ? "Inventory" : "No Inventory");
        LOG(Level::Trace, "Comp Id:      0x%02x%02x%02x", bay.componentId[2], bay.componentId[1],
            bay.componentId[0]);
        LOG(Level::Trace, "Fw Version:   %x.%x", bay.firmwareMajor, bay.firmwareMinor);
        LOG(Level::Trace, "Technology:   %d", bay.technology);
        LOG(Level::Trace, "bpId:   %d size:%d", bay.bpId, bay.carrier);
        LOG(Level::Trace, "pcieSlotMap:   %d", bay.pcieSlotMap);
        LOG(Level::Trace, "Carrier   \t\t :%d", bay.carrier);
        LOG(Level::Trace, "Pri/Sec          :%d", bay.secondary);
        LOG(Level::Trace, "Physical Slot Cnt:%d", bay.physicalSlotCount);
        LOG(Level::Trace, "Logical Slot Cnt :%d", bay.logicalSlotCount);
        LOG(Level::Trace, "Physical Drve Cnt:%d", bay.physicalDriveCount);
        LOG(Level::Trace, "Downstream Cnt   :%d", bay.downstreamCount);
        LOG(Level::Trace, "DriveSlotOffset  :%d", bay.driveSlotOffset);
        if (bay.secondary == 0) {
            LOG(Level::Trace, "Primary Bay Id:%d", bay.primaryBayId);
        }

        const RecordCount downstream = downstream_count(bay);
        if (downstream.is_cut()) {
            LOG(Level::Warning, "%s:%u limited to %u", downstream.name, downstream.given,
                downstream.room);
        }
        if (downstream.given != 0) {
            // Kept: both counts show the primary bay id.
            LOG(Level::Trace, "Downstream Slot Cnt:  %d", bay.primaryBayId);
            LOG(Level::Trace, "Downstream Drive Cnt: %d", bay.primaryBayId);
        }
        for (unsigned k = 0; k < downstream.kept(); ++k) {
            LOG(Level::Trace, "Downstream Bay Ids :%d ", bay.downstreamBayIds[k]);
        }

        LOG(Level::Trace, "Drive Info, %d drives:", bay.physicalDriveCount);
        for (unsigned d = 0; d < drives.kept(); ++d) {
            const BpApiDrive drive = drive_record(*info, d);
            if (drive.bayId == bay.bayId) {
                LOG(Level::Trace, "NVMe SSD Slot:%d with an extenderSlot %d:", drive.slot,
                    drive.extenderSlot);
                LOG(Level::Trace, "Drive %2d, Sensor 0x%02x, Bay %d, State:%d", drive.driveId,
                    drive.sensor, drive.bayId, drive.state);
            }
        }

        LOG(Level::Trace, "Riser Info, %d risers:", info->riserCnt);
        for (unsigned r = 0; r < risers.kept(); ++r) {
            const BpApiRiser riser = info->risers[r];
            if (riser.present != 0 && riser.bayId == bay.bayId) {
                LOG(Level::Trace, "Number: %d, Type: 0x%02x, Slot %d", riser.number, riser.type,
                    riser.pcieSlot);
            }
        }
    }
}

void NVMeHotPlugCallback(const BpApiInfo* info) {
    LOG(Level::Trace, "--> Entry");
    if (info == nullptr) {
        LOG(Level::Error, "info is NULL");
        return;
    }

    if (BpApiInfo* copy = __atomic_load_n(&g_bpInfo, __ATOMIC_ACQUIRE); copy != nullptr) {
        std::memcpy(copy, info, sizeof(*copy));
    }
    if (RTSync_LockGlobalStatus() != 0) {
        release_untaken_status();
        LOG(Level::Error, " GlobalStatus failed!!");
    } else {
        if (request_inventory()) {  // GCOVR_EXCL_BR_LINE: no build of today fails to set it
            LOG(Level::Trace, "Successfully Flags are set BPAPI_HBAFlag, KRONFlag, PCIeSSDFlag");
        } else {
            // GCOVR_EXCL_START
            LOG(Level::Error, "Unable to set BPAPI_HBAFlag, KRONFlag, PCIeSSDFlag");
            // GCOVR_EXCL_STOP
        }
        RTSync_UnLockGlobalStatus();
    }

    // A drive that the snapshot no longer names is absent, whatever the last one said of it.
    clear(latest_drive_states);
    const RecordCount drives = drive_count(*info);
    if (drives.is_cut()) {
        LOG(Level::Warning, "%s:%u limited to %u", drives.name, drives.given, drives.room);
    }
    for (unsigned d = 0; d < drives.kept(); ++d) {
        const BpApiDrive drive = drive_record(*info, d);
        LOG(Level::Trace, "BDF valid=%d,BusNum=%d", drive.bdfValid, bus_number(drive));
        if (!is_nvme(drive.technology)) {
            continue;
        }
        if (const auto index = position_index(drive.bayId, drive.slot)) {
            record_reported_drive(drive, *index);
        } else {
            LOG(Level::Warning, "bayId:%d slot:%d beyond the table, skipped", drive.bayId,
                drive.slot);
        }
    }

    for (unsigned index = 0; index < kDrivePositions; ++index) {
        const uint16_t state = load(latest_drive_states[index]);
        const uint16_t old_state = load(acted_drive_states[index]);
        if (state == old_state) {
            continue;
        }
        LOG(Level::Trace, "%s bayID:%d, slot:%d, NewState:0x%x, OldState:0x%x",
            "HotPlug:NVMe DriveStatus", index / NVME_SLOTS, index % NVME_SLOTS, state, old_state);
        store(acted_drive_states[index], state);
        store(sNVMeSSDBPInfo.slots[index].driveState, state);
        store(latest_drive_states[index], 0);
        // Kept: shows what the latest state is by now, which is 0; the line above has the new one.
        LOG(Level::Trace, "baySlot:%d, au16DriveStatus:%d", index,
            load(latest_drive_states[index]));
    }
    LOG(Level::Trace, "<-- Exit");
}

void BpApiKronCallback(const BpApiInfo* info) {
    LOG(Level::Trace, "--> Entry");
    if (info != nullptr) {
        LOG(Level::Trace, "BP API opened successfully");
    } else {
        LOG(Level::Error, "info is NULL");
    }
    LOG(Level::Trace, "<-- Exit");
}
