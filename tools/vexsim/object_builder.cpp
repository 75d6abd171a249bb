#include "vexsim/object_builder.h"

#include <array>
#include <cstring>
#include <memory>
#include <new>

#include "vexel.h"

namespace vexsim {

namespace {

constexpr uint32_t kRecordVersion = 1;  // not 0: the FQDD belongs to the record
constexpr size_t kKeyIdBytes = 256;     // a copy reads all of them

struct FreeBlock {
    void operator()(void* block) const { vexel_free(block); }
};

template <typename T>
using Block = std::unique_ptr<T, FreeBlock>;

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

uint8_t degrees_byte(Degrees degrees) {
    return static_cast<uint8_t>(degrees == kNoTemperature ? RT_TEMPERATURE_NONE_U8 : degrees);
}

uint32_t degrees_word(Degrees degrees) {
    return degrees == kNoTemperature ? RT_TEMPERATURE_NONE : static_cast<uint32_t>(degrees);
}

// A record as the daemon reads it from a device, on memory that it will free: what goes into the
// cache is a deep copy.
class Source {
  public:
    Source(uint32_t type, const std::string& name, const std::string& fqdd)
        : name_(widen(name)), fqdd_(widen(fqdd)) {
        record.objType = type;
        record.NAME = name_.data();
        record.hdr.VERSION = kRecordVersion;
        record.hdr.FQDD = fqdd_.data();
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    StorageObjectRecord record{};

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
    std::wstring name_;
    std::wstring fqdd_;
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
    return source.copy(&DupAdapter);
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

void free_controller_node(RtCacheControllerNode* node) {
    if (node != nullptr) {
        rtcache_FreeRMObjects(node->adapter, 1);
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
    AdapterKeyRecord key{};
    std::memcpy(key.key, controller.fqdd.data(), controller.fqdd.size());
    node->adapterKey = rtraid_DupAdapterKey(&key);
    if (controller.pci) {
        node->pciInfo = pci_info(*controller.pci);
    }
    return node.release();
}

RtCacheControllerNode* build_nvme_controller(const NvmeDrive& drive, Degrees temperature) {
    std::wstring name = widen(drive.model.name);
    std::wstring fqdd = widen(drive.fqdd);
    const PCIeSSDAdapterNames names{name.data(), fqdd.data()};
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
    std::array<char, kKeyIdBytes> key_id{};
    std::memcpy(key_id.data(), drive.fqdd.data(), drive.fqdd.size());
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
    body.keyId = key_id.data();
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
