#include <algorithm>

#include "platform/shm.h"
#include "rt_shm.h"
#include "support/codes.h"
#include "vexel.h"
#include "vexsim/cache_lock.h"
#include "vexsim/daemon.h"
#include "vexsim/object_builder.h"

namespace vexsim {

namespace {

constexpr uint16_t kNvmeDiskKey = 0;  // an NVMe endpoint has one disk
constexpr uint8_t kInventoryDone = 2;
constexpr int kMaxDegrees = 254;

std::string type_text(uint8_t type) {
    const char* name = vextools::name_of(vextools::kEndpointTypes, type);
    return name != nullptr ? name : "type " + std::to_string(type);
}

}  // namespace

int Daemon::read_sensor(const Temperature& temperature) {
    if (temperature.base == kNoTemperature || temperature.jitter == 0) {
        return temperature.base;
    }
    const int moved = temperature.base + random_.between(-temperature.jitter, temperature.jitter);
    return std::clamp(moved, 0, kMaxDegrees);
}

void Daemon::register_endpoint(uint8_t eid, uint8_t type, uint8_t modular_id, uint8_t state) {
    expect_zero("rtcache_UpdateCachedObject",
                rtcache_UpdateCachedObject(RTCACHE_REGISTER, eid, type, modular_id));
    expect_zero("rtcache_SetStorageEIDStatus", rtcache_SetStorageEIDStatus(eid, state));
    take_command_results(eid);
}

void Daemon::add_controller(const Controller& controller) {
    register_endpoint(controller.eid, controller.type, controller.modular_id,
                      controller.inventory_state);
    size_t drives = 0;
    const CacheLock lock;
    store_object(RTCACHE_KEY_CONTROLLER, controller.eid, controller.eid,
                 build_controller(
                     controller, controller.temperature.base,
                     controller.battery ? controller.battery->temperature.base : kNoTemperature));
    for (const Enclosure& enclosure : controller.enclosures) {
        store_object(RTCACHE_KEY_DISK, controller.eid, enclosure.key, build_enclosure(enclosure));
    }
    for (const Drive& drive : controller.drives) {
        if (drive.present) {
            store_object(RTCACHE_KEY_DISK, controller.eid, drive.key,
                         build_drive(drive, drive.model.temperature.base));
            ++drives;
        }
    }
    for (const VirtualDisk& disk : controller.virtual_disks) {
        store_object(RTCACHE_KEY_VIRTUAL_DISK, controller.eid, disk.key, build_virtual_disk(disk));
    }
    transcript_.line("endpoint %u: %s %s, %zu enclosures, %zu drives, %zu virtual disks",
                     unsigned{controller.eid}, type_text(controller.type).c_str(),
                     controller.fqdd.c_str(), controller.enclosures.size(), drives,
                     controller.virtual_disks.size());
    if (controller.fru) {
        report_fru(controller);
    }
}

void Daemon::add_nvme(const NvmeDrive& drive) {
    register_endpoint(drive.eid, RTCACHE_TYPE_NVME, 0, kInventoryDone);
    expect_zero("rtshm_UpdateNVMeSSDSlotToEID",
                rtshm_UpdateNVMeSSDSlotToEID(drive.bay, drive.slot, drive.eid));
    {
        const CacheLock lock;
        const int temperature = drive.model.temperature.base;
        store_object(RTCACHE_KEY_CONTROLLER, drive.eid, drive.eid,
                     build_ssd_controller(drive.model.name, drive.fqdd, temperature));
        store_object(RTCACHE_KEY_DISK, drive.eid, kNvmeDiskKey,
                     build_nvme_disk(drive, temperature));
    }
    publish_ssd(drive);
    transcript_.line("endpoint %u: nvme %s", unsigned{drive.eid}, drive.fqdd.c_str());
}

// What the row holds goes before the endpoint, since another one may get it.
void Daemon::drop_endpoint(uint8_t eid, uint8_t type) {
    alerts_.settle(eid);
    for (const uint32_t level :
         {RTCACHE_KEY_DISK, RTCACHE_KEY_VIRTUAL_DISK, RTCACHE_KEY_CONTROLLER}) {
        expect_zero("rtcache_FreeObjectLevel", rtcache_FreeObjectLevel(eid, level));
    }
    expect_zero("rtcache_UpdateCachedObject", rtcache_UpdateCachedObject(0, eid, type, 0));
    drop_command_results(eid);
}

void Daemon::drop(const std::string& fqdd) {
    const auto card = std::ranges::find(cards_, fqdd, &SsdCard::fqdd);
    if (card != cards_.end()) {
        drop_card(*card);
        cards_.erase(card);
        return;
    }
    const auto controller = std::ranges::find(controllers_, fqdd, &Controller::fqdd);
    const auto drives = std::ranges::count_if(controller->drives, &Drive::present);
    drop_endpoint(controller->eid, controller->type);
    transcript_.line("endpoint %u: dropped with %zd drives", unsigned{controller->eid}, drives);
    controllers_.erase(controller);
}

void Daemon::remove_nvme(const NvmeDrive& drive) {
    drop_endpoint(drive.eid, RTCACHE_TYPE_NVME);
    expect_zero("rtshm_UpdateNVMeSSDSlotToEID",
                rtshm_UpdateNVMeSSDSlotToEID(drive.bay, drive.slot, RTCACHE_EID_FREE));
    withdraw_ssd(drive);
}

void Daemon::refresh() {
    for (const Controller& controller : controllers_) {
        refresh_controller(controller);
        for (const Drive& drive : controller.drives) {
            if (drive.present) {
                refresh_drive(controller, drive);
            }
        }
    }
    for (const NvmeDrive& drive : nvme_) {
        if (drive.present) {
            publish_temperature(drive, read_sensor(drive.model.temperature));
        }
    }
    for (const SsdCard& card : cards_) {
        publish_temperature(card, read_sensor(card.model.temperature));
    }
}

// The caller holds the cache lock.
void Daemon::refresh_controller(const Controller& controller) {
    const auto* node =
        cached<RtCacheControllerNode>(RTCACHE_KEY_CONTROLLER, controller.eid, controller.eid);
    const int temperature = read_sensor(controller.temperature);
    const int battery =
        controller.battery ? read_sensor(controller.battery->temperature) : kNoTemperature;
    // None is -1 here and all bits set there.
    node->adapter->body.adapter.temperature = static_cast<uint32_t>(temperature);
    node->adapter->body.adapter.batteryTemperature = static_cast<uint32_t>(battery);
}

// The caller holds the cache lock.
void Daemon::refresh_drive(const Controller& controller, const Drive& drive) {
    const auto* node = cached<RtCacheDiskNode>(RTCACHE_KEY_DISK, controller.eid, drive.key);
    StorageObjectRecord* record = node->enclObj->enclType.physicalDisk.Obj;
    record->body.pd.temperature = static_cast<uint8_t>(read_sensor(drive.model.temperature));
    record->body.pd.state = drive.model.state;
}

DriveRef Daemon::find_drive(const std::string& fqdd) {
    for (Controller& controller : controllers_) {
        const auto drive = std::ranges::find(controller.drives, fqdd, &Drive::fqdd);
        if (drive != controller.drives.end()) {
            return {.controller = &controller, .drive = &*drive};
        }
    }
    const auto nvme = std::ranges::find(nvme_, fqdd, &NvmeDrive::fqdd);
    return {.nvme = nvme == nvme_.end() ? nullptr : &*nvme};
}

void Daemon::set(const SetStep& step) {
    const auto controller = std::ranges::find(controllers_, step.fqdd, &Controller::fqdd);
    const DriveRef found = find_drive(step.fqdd);
    DriveModel* model = found.drive != nullptr  ? &found.drive->model
                        : found.nvme != nullptr ? &found.nvme->model
                                                : nullptr;
    Temperature& temperature = model != nullptr ? model->temperature : controller->temperature;
    if (step.temperature) {
        temperature = {.base = *step.temperature};
        transcript_.line("%s: temperature %d", step.fqdd.c_str(), *step.temperature);
    }
    if (step.state) {
        model->state = static_cast<uint64_t>(*step.state);
        transcript_.line("%s: state 0x%llx", step.fqdd.c_str(),
                         static_cast<unsigned long long>(*step.state));
    }
}

void Daemon::remove_drive(const std::string& fqdd) {
    const DriveRef found = find_drive(fqdd);
    if (found.nvme != nullptr) {
        remove_nvme(*found.nvme);
        found.nvme->present = false;
        return;
    }
    const CacheLock lock;
    const uint8_t eid = found.controller->eid;
    RtCacheDiskNode* node = cached<RtCacheDiskNode>(RTCACHE_KEY_DISK, eid, found.drive->key);
    store_object(RTCACHE_KEY_DISK, eid, found.drive->key, nullptr);
    free_disk_node(node);
    found.drive->present = false;
}

void Daemon::insert_drive(const std::string& fqdd, const std::optional<DriveModel>& model) {
    const DriveRef found = find_drive(fqdd);
    if (found.nvme != nullptr) {
        found.nvme->model = model.value_or(found.nvme->model);
        found.nvme->present = true;
        add_nvme(*found.nvme);
        return;
    }
    Drive& drive = *found.drive;
    drive.model = model.value_or(drive.model);
    drive.present = true;
    const CacheLock lock;
    store_object(RTCACHE_KEY_DISK, found.controller->eid, drive.key,
                 build_drive(drive, drive.model.temperature.base));
}

}  // namespace vexsim
