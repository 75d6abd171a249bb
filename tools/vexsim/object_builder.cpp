#include "vexsim/object_builder.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <new>

#include "vexel.h"
#include "vexsim/block.h"

namespace vexsim {

namespace {

constexpr uint32_t kRecordVersion = 1;         // not 0: the FQDD belongs to the record
constexpr size_t kKeyIdBytes = 256;            // a copy reads all of them
constexpr size_t kShortTextBytes = 128;        // likewise
constexpr uint32_t kRaidLevels[] = {0, 1, 5};  // chosen: what a RAID controller can do

template <typename T>
Block<T> allocate() {
    Block<T> block(static_cast<T*>(vexel_alloc(sizeof(T))));
    if (!block) {
        throw std::bad_alloc();
    }
    return block;
}

std::wstring widen(const std::string& text) {
    return std::wstring(text.begin(), text.end());
}

uint32_t degrees_word(Degrees degrees) {
    return degrees == kNoTemperature ? RT_TEMPERATURE_NONE : static_cast<uint32_t>(degrees);
}

// A record as the daemon reads it from a device, on memory that it will free: what goes into the
// cache is a deep copy.
class Source {
  public:
    Source(uint32_t type, const std::string& name, const std::string& fqdd) {
        record.objType = type;
        record.NAME = keep(name);
        record.hdr.VERSION = kRecordVersion;
        record.hdr.FQDD = keep(fqdd);
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    StorageObjectRecord record{};

    // A wide text that lives as long as the source.
    wchar_t* keep(const std::string& text) { return texts_.emplace_back(widen(text)).data(); }
    // A narrow text in a block of a size that a copy reads to its end.
    char* keep(const std::string& text, size_t size) {
        std::string& block = blocks_.emplace_back(text);
        block.resize(size);
        return block.data();
    }

    // The copy by one of the operations that allocate their result.
    StorageObjectRecord* copy(StorageObjectRecord* (*duplicate)(const StorageObjectRecord*)) const {
        StorageObjectRecord* made = duplicate(&record);
        if (made == nullptr) {
            throw std::bad_alloc();
        }
        return made;
    }

    // The copy by one of those that fill a block of the caller's.
    template <typename Result>
    StorageObjectRecord* copy(Result (*duplicate)(const StorageObjectRecord*,
                                                  StorageObjectRecord*)) const {
        Block<StorageObjectRecord> made = allocate<StorageObjectRecord>();
        duplicate(&record, made.get());
        return made.release();
    }

  private:
    std::deque<std::wstring> texts_;  // never moves what it holds
    std::deque<std::string> blocks_;
};

RtCacheDiskNode* disk_node(uint32_t type, StorageObjectRecord* record) {
    Block<RtCacheEnclosureLink> link = allocate<RtCacheEnclosureLink>();
    link->enclType.physicalDisk.Obj = record;
    Block<RtCacheDiskNode> node = allocate<RtCacheDiskNode>();
    node->objType = type;
    node->enclObj = link.release();
    return node.release();
}

StorageObjectRecord* adapter_record(const Controller& controller, Degrees temperature,
                                    Degrees battery_temperature) {
    Source source(RT_OBJ_ADAPTER, controller.name, controller.fqdd);
    AdapterBody& body = source.record.body.adapter;
    body.temperature = degrees_word(temperature);
    body.batteryTemperature = degrees_word(battery_temperature);
    std::memcpy(body.ctrlValueA, controller.value_a.data(), sizeof(body.ctrlValueA));
    std::memcpy(body.ctrlValueB, controller.value_b.data(), sizeof(body.ctrlValueB));
    body.capability = controller.capability;
    body.ctrlAttr = controller.attributes;
    body.thermalPDPollDisable = controller.drive_polling_disabled ? 1 : 0;
    body.text112 = source.keep(controller.driver.empty() ? "Not Applicable" : controller.driver);
    for (size_t i = 0; i < std::min<size_t>(controller.enclosures.size(), RT_ADAPTER_ENTRIES);
         ++i) {
        body.entries[i].text = source.keep(controller.enclosures[i].name);
    }
    std::array<AdapterCapabilityEntry, std::size(kRaidLevels)> levels{};
    if (!controller.virtual_disks.empty()) {
        for (size_t i = 0; i < levels.size(); ++i) {
            levels[i].rl = kRaidLevels[i];
        }
        body.capabilityMask = (1u << levels.size()) - 1;  // a bit for each
        body.capabilities = levels.data();
    }
    return source.copy(&DupAdapter);
}

// Virtual disks that another controller made, each on one disk. Members carry no FQDD, since a copy
// shares it with its source.
StorageObjectRecord* foreign_record(const Controller& controller) {
    Source source(RT_OBJ_FOREIGN_CONFIG, "Foreign configuration", controller.fqdd);
    std::vector<StorageObjectRecord> disks(controller.foreign.size());
    std::vector<StorageObjectRecord> members(controller.foreign.size());
    std::vector<uint32_t> ids(controller.foreign.size());
    for (size_t i = 0; i < disks.size(); ++i) {
        ids[i] = static_cast<uint32_t>(i);
        members[i].objType = RT_OBJ_PHYSICAL_DISK;
        members[i].NAME = source.keep("Disk of " + controller.foreign[i]);
        disks[i].objType = RT_OBJ_VIRTUAL_DISK;
        disks[i].NAME = source.keep(controller.foreign[i]);
        disks[i].body.vd.memberCount = 1;
        disks[i].body.vd.targetID = &ids[i];
    }
    ForeignConfigBody& body = source.record.body.foreign;
    body.virtualDiskCount = body.physicalDiskCount = static_cast<uint32_t>(disks.size());
    body.virtualDisks = disks.data();
    body.physicalDisks = members.data();
    return source.copy(&DupForeign_Config);
}

RtCachePciInfo* pci_info(const PciIdentity& pci) {
    Block<RtCachePciInfo> info = allocate<RtCachePciInfo>();
    info->locationA = pci.location_a;
    info->locationB = pci.location_b;
    info->vendor = pci.ids[0];
    info->device = pci.ids[1];
    info->subvendor = pci.ids[2];
    info->subdevice = pci.ids[3];
    return info.release();
}

StorageObjectRecord* battery_record(const Battery& battery) {
    Source source(RT_OBJ_BATTERY, battery.name, battery.fqdd);
    source.record.body.battery.state = battery.state;
    return source.copy(&rtraid_DupBattery);
}

void fill_disk(PhysicalDiskBody& body, const DriveModel& model, Degrees temperature) {
    body.protocol = model.protocol;
    body.nominalRPM = model.rpm;
    body.size = model.size;
    body.state = model.state;
    body.hotSpare = model.hot_spare;
    body.media = model.media;
    body.formFactor = model.form_factor;
    body.temperature = degrees_byte(temperature);
    body.refTemp = static_cast<uint8_t>(model.reference_temperature);
    body.critTemp = static_cast<uint8_t>(model.critical_temperature);
    body.impedance = model.impedance;
    body.enclosureId = RT_ENCLOSURE_NONE;
    body.deviceInfoId = RT_DEVICE_INFO_UNSET;
}

}  // namespace

void free_disk_node(RtCacheDiskNode* node) {
    if (node != nullptr && node->enclObj != nullptr) {
        rtcache_FreeRMObjects(node->enclObj->enclType.physicalDisk.Obj, 1);
        vexel_free(node->enclObj);
    }
    vexel_free(node);
}

RtCacheControllerNode* build_controller(const Controller& controller, Degrees temperature,
                                        Degrees battery_temperature) {
    Block<RtCacheControllerNode> node = allocate<RtCacheControllerNode>();
    node->objType = RT_OBJ_ADAPTER;
    node->adapter = adapter_record(controller, temperature, battery_temperature);
    if (controller.battery) {
        node->battery = battery_record(*controller.battery);
    }
    if (!controller.driver.empty()) {
        const Source source(RT_OBJ_DRIVER, controller.driver, controller.fqdd);
        node->driver = source.copy(&rtraid_DupDriver);
    }
    if (!controller.foreign.empty()) {
        node->foreignConfig = foreign_record(controller);
    }
    AdapterKeyRecord key{};
    std::memcpy(key.key, controller.fqdd.data(), controller.fqdd.size());
    node->adapterKey = rtraid_DupAdapterKey(&key);
    if (controller.pci) {
        node->pciInfo = pci_info(*controller.pci);
    }
    return node.release();
}

RtCacheControllerNode* build_ssd_controller(const std::string& name, const std::string& fqdd,
                                            Degrees temperature) {
    std::wstring wide_name = widen(name);
    std::wstring wide_fqdd = widen(fqdd);
    const PCIeSSDAdapterNames names{wide_name.data(), wide_fqdd.data()};
    Block<StorageObjectRecord> record = allocate<StorageObjectRecord>();
    record->objType = RT_OBJ_ADAPTER;
    record->hdr.VERSION = kRecordVersion;
    record->body.adapter.temperature = degrees_word(temperature);
    record->body.adapter.batteryTemperature = RT_TEMPERATURE_NONE;
    DupPCIeSSDAdapter(&names, record.get());
    Block<RtCacheControllerNode> node = allocate<RtCacheControllerNode>();
    node->objType = RT_NODE_PCIESSD_ADAPTER;
    node->adapter = record.release();
    return node.release();
}

RtCacheDiskNode* build_drive(const Drive& drive, Degrees temperature) {
    Source source(RT_OBJ_PHYSICAL_DISK, drive.model.name, drive.fqdd);
    PhysicalDiskBody& body = source.record.body.pd;
    fill_disk(body, drive.model, temperature);
    body.id = drive.key;
    body.slot = drive.slot;
    body.enclosureType = drive.enclosure_type;
    body.multipath = drive.primary ? 1 : 0;
    body.primaryId = drive.primary.value_or(drive.key);
    body.enclosureId = drive.enclosure_key;
    if (drive.bay) {
        body.deviceInfoId = drive.key;  // in the controller's own enclosures
    }
    body.keyId = source.keep(drive.fqdd, kKeyIdBytes);
    body.text417 = source.keep("Serial " + std::to_string(drive.key), kKeyIdBytes);
    body.text426 = source.keep("Revision 1", kShortTextBytes);
    body.text430 = source.keep(drive.model.name, kShortTextBytes);
    body.text434 = source.keep(drive.fqdd, kKeyIdBytes);
    std::array<uint32_t, 2> words{drive.key, drive.slot};
    body.wordCount = words.size();
    body.words = words.data();
    return disk_node(RT_OBJ_PHYSICAL_DISK, source.copy(&rtraid_dupPD));
}

RtCacheDiskNode* build_nvme_disk(const NvmeDrive& drive, Degrees temperature) {
    Source source(RT_OBJ_PHYSICAL_DISK, drive.model.name, drive.fqdd);
    fill_disk(source.record.body.pd, drive.model, temperature);
    source.record.body.pd.slot = drive.slot;
    return disk_node(RT_OBJ_PHYSICAL_DISK, source.copy(&rtraid_dupPD));
}

RtCacheDiskNode* build_enclosure(const Enclosure& enclosure) {
    const uint32_t type = enclosure.backplane ? RT_OBJ_BACKPLANE : RT_OBJ_ENCLOSURE;
    Source source(type, enclosure.name, enclosure.fqdd);
    EnclosureBody& body = source.record.body.enclosure;
    body.position = enclosure.position;
    body.bayId = enclosure.bay;
    body.chassisSlot = enclosure.chassis_slot;
    body.secondId = enclosure.second_id;
    body.enclosureType = enclosure.type;
    body.externalFlag = enclosure.backplane ? 0 : 1;
    body.driveCount = enclosure.drives;
    body.slotCount = enclosure.slots;
    return disk_node(type, source.copy(&rtraid_dupEnclosure));
}

RtCacheVirtualDiskNode* build_virtual_disk(const VirtualDisk& disk) {
    std::vector<uint32_t> members = disk.members;
    Source source(RT_OBJ_VIRTUAL_DISK, disk.name, disk.fqdd);
    source.record.body.vd.size = disk.blocks;
    source.record.body.vd.memberCount = static_cast<uint32_t>(members.size());
    source.record.body.vd.targetID = members.data();
    Block<RtCacheVirtualDiskNode> node = allocate<RtCacheVirtualDiskNode>();
    node->objType = RT_OBJ_VIRTUAL_DISK;
    node->Obj = source.copy(&rtraid_DupVD);
    return node.release();
}

}  // namespace vexsim
