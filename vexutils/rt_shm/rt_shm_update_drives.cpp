#include "rt_shm/rt_shm_update.h"

#include <cstring>
#include <cwchar>
#include <optional>
#include <span>

#include "internal/cache_rows.h"
#include "internal/log.h"
#include "internal/wide_text.h"
#include "rt_dup.h"
#include "rt_shm/snapshot.h"

namespace vexutils {
namespace {

constexpr std::uint16_t kProtocolNotPublished = 0x100;  // behind KRON controllers and boot cards
constexpr std::uint16_t kStatusReady = 1;               // what an HBA does not report of its drives
constexpr unsigned kSizeWordBits = 30;                  // bytes to GiB

using DiskSlots = std::span<RtCacheDiskNode* const>;

// A drive's entry in the making.
struct DriveEntry {
    std::uint8_t bay;
    std::uint8_t slot;
    std::uint8_t protocol;
    std::uint8_t media;
    std::uint8_t form_factor;
    std::uint8_t temperature;
    std::uint8_t reference_temperature;
    std::uint8_t critical_temperature;
    std::uint8_t enclosure_type;
    std::uint8_t impedance;
    std::uint8_t chassis_slot;
    std::uint16_t capacity;
    std::uint16_t status;
    std::uint32_t rpm;
    char fqdd[SHM_FQDD_BYTES];
};

bool contains(const wchar_t* text, const wchar_t* part) {
    return text != nullptr && std::wcsstr(text, part) != nullptr;
}

// The record of a disk; null if the node is something else or has lost it.
const StorageObjectRecord* disk_record(const RtCacheDiskNode& node) {
    if (node.objType != RT_OBJ_PHYSICAL_DISK) {
        LOG_AS(kUpdate, Level::Trace, " Not of type PHYSICALDISK, so continue");
        return nullptr;
    }
    if (node.enclObj == nullptr) {
        LOG_AS(kUpdate, Level::Error, " pPDCache->enclObj is NULL, so continue");
        return nullptr;
    }
    if (node.enclObj->enclType.physicalDisk.Obj == nullptr) {
        LOG_AS(kUpdate, Level::Error,
               " pPDCache->enclObj->enclType.physicalDisk.Obj is NULL, so continue");
    }
    return node.enclObj->enclType.physicalDisk.Obj;
}

bool is_published(const UpdateController& controller, const PhysicalDiskBody& disk, unsigned id) {
    if (disk.multipath == 1 && disk.primaryId != id) {
        LOG_AS(kUpdate, Level::Trace, " drive:0x%x is in multipath but not primary", id);
        return false;
    }
    const bool filtered = controller.is_kron() || controller.type == RTCACHE_TYPE_BOOT_CARD;
    return !filtered || disk.protocol != kProtocolNotPublished;
}

// n: the entry that the drive gets if it is accepted.
DriveEntry describe_drive(const UpdateRun& run, const UpdateController& controller,
                          const PhysicalDiskBody& disk, int n) {
    DriveEntry entry{};
    entry.slot = disk.slot;
    entry.protocol = static_cast<std::uint8_t>(disk.protocol);
    entry.media = (disk.media >> 1) & 1;
    entry.form_factor = disk.formFactor;
    entry.rpm = disk.nominalRPM;
    entry.temperature = disk.temperature;
    if (drive_polling_disabled(run, controller)) {
        entry.temperature = RT_TEMPERATURE_NONE_U8;
    }
    entry.reference_temperature = disk.refTemp;
    entry.critical_temperature = disk.critTemp;
    entry.enclosure_type = disk.enclosureType;
    entry.impedance = disk.impedance;
    entry.capacity = static_cast<std::uint16_t>(disk.size >> kSizeWordBits);
    entry.status = static_cast<std::uint16_t>(disk.state);
    if (controller.is_hba()) {
        entry.status |= kStatusReady;
    }
    LOG_AS(kUpdate, Level::Trace, "shm:Updating temperature[%d]: %d", n, entry.temperature);
    LOG_AS(kUpdate, Level::Trace, "pdShmStatus %x Slot %d", entry.status, entry.slot);
    LOG_AS(kUpdate, Level::Trace, "Drive Capacity : %d & Impedance : %d", entry.capacity,
           entry.impedance);
    return entry;
}

// ---- Placement ----

const RtCacheDiskNode* enclosure_node(DiskSlots slots, std::uint16_t key) {
    const RtCacheDiskNode* node = key < slots.size() ? slots[key] : nullptr;
    const bool whole = node != nullptr && node->objType != RT_OBJ_PHYSICAL_DISK &&
                       node->enclObj != nullptr && node->enclObj->enclType.extEncl.Obj != nullptr;
    return whole ? node : nullptr;
}

bool is_raid_managed(const BpApiBay& bay) {
    return bay.raidManagement == 1 || bay.raidManagement == 2;
}

// Whether a bay of the snapshot is the backplane that a controller describes.
bool is_same_backplane(const BpApiBay& bay, const EnclosureBody& backplane) {
    if (bay.secondary != 0) {
        return bay.controllerBay == backplane.bayId;
    }
    LOG_AS(kUpdate, Level::Trace, "Primary BP BpAPI_Bay:%d bay->isPrimary:%d dsBayCnt:%d",
           bay.bayId, bay.secondary, bay.downstreamCount);
    return bay.bayId == backplane.bayId && bay.secondId == backplane.secondId;
}

// Slot of the drive that the controller knows under a slot number of its own.
std::optional<std::uint8_t> slot_in_bay(const BpApiInfo& info, std::uint8_t bay,
                                        std::uint8_t controller_slot) {
    for (unsigned d = 0; d < drive_count(info).kept(); ++d) {
        const BpApiDrive drive = drive_record(info, d);
        if (drive.bayId == bay && drive.controllerSlot == controller_slot) {
            return drive.slot;
        }
    }
    return std::nullopt;
}

// Replaces the controller's slot number by the backplane's, where the snapshot has the drive.
void find_backplane_slot(const BpApiInfo& info, const EnclosureBody& backplane, DriveEntry& entry) {
    for (unsigned i = 0; i < bay_count(info).kept(); ++i) {
        const BpApiBay& bay = info.bays[i];
        if (!is_raid_managed(bay)) {
            continue;
        }
        LOG_AS(kUpdate, Level::Trace, " Bay Id: %d u8BayNo: %d bay->raidMgmt:%d u8BayCount:%d",
               bay.bayId, i, bay.raidManagement, info.bayCnt);
        if (!is_same_backplane(bay, backplane)) {
            continue;
        }
        if (const auto slot = slot_in_bay(info, bay.bayId, entry.slot)) {
            LOG_AS(kUpdate, Level::Trace, "BpAPI_Bay:%d Kron_Bay:%d Bp_slot:%d Kron_Slot:%d",
                   bay.bayId, backplane.bayId, *slot, entry.slot);
            entry.slot = *slot;
            return;
        }
    }
}

void place_in_enclosure(const UpdateRun& run, const UpdateController& controller,
                        const RtCacheDiskNode& node, DriveEntry& entry) {
    const EnclosureBody& enclosure = node.enclObj->enclType.extEncl.Obj->body.enclosure;
    if (controller.is_kron() && node.objType == RT_OBJ_BACKPLANE) {
        LOG_AS(kUpdate, Level::Trace, "enclosure is internal BACKPLANE");
        entry.bay = enclosure.bayId;
        entry.chassis_slot = enclosure.bayId;
        entry.enclosure_type = enclosure.enclosureType;
        if (run.backplanes != nullptr) {
            find_backplane_slot(*run.backplanes, enclosure, entry);
        }
        return;
    }
    LOG_AS(kUpdate, Level::Trace, "enclosure is not of type BACKPLANE");
    if (enclosure.externalFlag == 1) {
        entry.bay = enclosure.bayId;
        entry.chassis_slot = enclosure.chassisSlot;
    }
}

void mark_tape(UpdateRun& run, DriveEntry& entry) {
    entry.media = RT_MEDIA_TAPE;
    run.tape = TAPE_PRESENT;
}

// Gives a drive without an enclosure its place. Returns: whether it is published.
bool place_alone(UpdateRun& run, const wchar_t* fqdd, DriveEntry& entry) {
    if (contains(fqdd, L"Tape")) {
        mark_tape(run, entry);
        return true;
    }
    LOG_AS(kUpdate, Level::Trace, "u16EnclDeviceID is not proper");
    if (contains(fqdd, L"Direct")) {
        return true;
    }
    LOG_AS(kUpdate, Level::Trace, "Disk attached to an enclosure, so continue");
    return false;
}

// ---- One drive ----

void commit(sCEMSASSATAInventory& section, int n, const DriveEntry& entry) {
    section.au8DriveBayID[n] = entry.bay;
    section.au8DriveOccupiedSlot[n] = entry.slot;
    section.au8DriveProtocolType[n] = entry.protocol;
    section.au8DriveMediaType[n] = entry.media;
    section.au8DriveFormFactor[n] = entry.form_factor;
    section.au8Temp[n] = entry.temperature;
    section.au32NominalRPM[n] = entry.rpm;
    section.pdShmStatus[n] = entry.status;
    section.au16DriveCapacity[n] = entry.capacity;
    section.au8DriveImpendance[n] = entry.impedance;
    section.au8ChassisSlot[n] = entry.chassis_slot;
    section.au8EnclosureTyoe[n] = entry.enclosure_type;
    section.refTemp[n] = entry.reference_temperature;
    section.critTemp[n] = entry.critical_temperature;
    std::memcpy(section.Fqdd[n], entry.fqdd, sizeof(entry.fqdd));
    section.count = n + 1;
}

// id: the disk's slot, which is not empty.
void enter_drive(UpdateRun& run, const UpdateController& controller, DiskSlots slots, unsigned id) {
    const StorageObjectRecord* record = disk_record(*slots[id]);
    if (record == nullptr || !is_published(controller, record->body.pd, id)) {
        return;
    }
    const PhysicalDiskBody& disk = record->body.pd;
    const wchar_t* fqdd = record->hdr.FQDD;
    const int n = run.image.drives.count;
    DriveEntry entry = describe_drive(run, controller, disk, n);
    if (disk.enclosureId == RT_ENCLOSURE_NONE) {
        if (!place_alone(run, fqdd, entry)) {
            return;
        }
    } else if (const auto* node = enclosure_node(slots, disk.enclosureId)) {
        place_in_enclosure(run, controller, *node, entry);
    } else {
        LOG_AS(kUpdate, Level::Error, "Failed to get the enclosure object");
    }
    if (controller.is_hba() && contains(fqdd, L"Tape")) {
        mark_tape(run, entry);
        LOG_AS(kUpdate, Level::Trace, "PDStruct.au8DriveMediaType[%d]:%d", n, entry.media);
    }

    narrow(entry.fqdd, fqdd);
    LOG_AS(kUpdate, Level::Trace, "--> Fqdd populated in shared memory:%s", entry.fqdd);
    commit(run.image.drives, n, entry);
}

}  // namespace

void enter_drives(UpdateRun& run, const UpdateController& controller) {
    const DiskSlots slots = disk_slots(controller.eid);
    // Kept: the last slot is not looked at.
    for (unsigned id = 0; id + 1 < slots.size() && run.image.drives.count < SHM_DRIVES; ++id) {
        if (slots[id] != nullptr) {
            enter_drive(run, controller, slots, id);
        }
    }
}

}  // namespace vexutils
