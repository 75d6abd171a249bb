#include "vexinspect/layout_table.h"

#include "platform/shm.h"
#include "rt_shm_layout.h"

namespace vexinspect {

namespace {

constexpr uint32_t kFruRecord = sizeof(PCIeSSDFruRecord);
constexpr uint32_t kFruEntry = sizeof(ZentFruTableEntry);
constexpr uint32_t kFruCards =
    (uint32_t{ZENT_SHM_FRU_TABLE_SIZE} - ZENT_SHM_FRU_ENTRIES) / sizeof(ZentFruTableEntry);
constexpr uint32_t kFruEnd = ZENT_SHM_FRU_ENTRIES + kFruCards * kFruEntry;

constexpr uint32_t size_of(Type type) {
    switch (type) {
        case Type::U16:
            return 2;
        case Type::U32:
        case Type::I32:
            return 4;
        default:
            return 1;
    }
}

// A single number.
constexpr Field one(const char* key, const char* name, size_t offset, Type type,
                    const char* meaning) {
    const uint32_t size = size_of(type);
    return {"", key, name, static_cast<uint32_t>(offset), type, size, 1, size, false, meaning};
}

// An array of numbers without gaps, one for each entry of a group; all ones stand for none.
constexpr Field each(const char* group, const char* key, const char* name, size_t offset, Type type,
                     size_t count, const char* meaning) {
    const uint32_t size = size_of(type);
    return {group, key, name, static_cast<uint32_t>(offset), type, size,
            static_cast<uint32_t>(count), size, true, meaning};
}

// A number in an array of records.
constexpr Field in_record(const char* group, const char* key, const char* name, size_t offset,
                          Type type, size_t count, size_t stride, const char* meaning) {
    return {group, key, name, static_cast<uint32_t>(offset), type, size_of(type),
            static_cast<uint32_t>(count), static_cast<uint32_t>(stride), true, meaning};
}

// Bytes or text, one block for each entry of a group.
constexpr Field block(const char* group, const char* key, const char* name, size_t offset,
                      Type type, size_t length, size_t count, size_t stride, const char* meaning) {
    return {group, key, name, static_cast<uint32_t>(offset), type, static_cast<uint32_t>(length),
            static_cast<uint32_t>(count), static_cast<uint32_t>(stride), true, meaning};
}

// Bytes that carry nothing.
constexpr Field unused(const char* name, size_t offset, size_t length, size_t count = 1,
                       size_t stride = 0) {
    return {"", "", name, static_cast<uint32_t>(offset), Type::Bytes,
            static_cast<uint32_t>(length), static_cast<uint32_t>(count),
            static_cast<uint32_t>(stride == 0 ? length : stride), false, "carries nothing"};
}

// ---- Region 3: storage inventory --------------------------------------------------------------------

using Ctrl = sCEMKronInventory;
using Drive = sCEMSASSATAInventory;
using Battery = sCEMKRONBatteryInventory;
constexpr const char* kCtrl = "controllers";
constexpr const char* kDrive = "drives";
constexpr const char* kBattery = "batteries";

constexpr size_t in_drives(size_t offset) {
    return SHM_DRIVE_OFFSET + offset;
}

constexpr size_t in_batteries(size_t offset) {
    return SHM_BATTERY_OFFSET + offset;
}

constexpr Field pci_id(const char* key, size_t index, const char* meaning) {
    return each(kCtrl, key, "au32PCIIDs",
                offsetof(Ctrl, au32PCIIDs) + index * SHM_CONTROLLERS * sizeof(uint32_t), Type::U32,
                SHM_CONTROLLERS, meaning);
}

constexpr Field drive_field(const char* key, const char* name, size_t offset, Type type,
                            const char* meaning) {
    return each(kDrive, key, name, in_drives(offset), type, SHM_DRIVES, meaning);
}

constexpr Field kInventoryFields[] = {
    one("controllerCount", "sCEMKronInventory.count", offsetof(Ctrl, count), Type::I32,
        "number of controllers, -1 not inventoried yet"),
    each(kCtrl, "pciSlot", "au8PCISlot", offsetof(Ctrl, au8PCISlot), Type::U8, SHM_CONTROLLERS,
         "PCI slot; KRON controllers only"),
    each(kCtrl, "temperature", "au32Temp", offsetof(Ctrl, au32Temp), Type::U32, SHM_CONTROLLERS,
         "degrees Celsius"),
    each(kCtrl, "batteryTemperature", "au32BatteryTemp", offsetof(Ctrl, au32BatteryTemp), Type::U32,
         SHM_CONTROLLERS, "degrees Celsius; none without a supported battery"),
    pci_id("vendorId", 0, "PCI vendor id"),
    pci_id("deviceId", 1, "PCI device id"),
    pci_id("subsystemVendorId", 2, "PCI subsystem vendor id"),
    pci_id("subsystemDeviceId", 3, "PCI subsystem device id"),
    each(kCtrl, "cardLocation", "au8CardLocation", offsetof(Ctrl, au8CardLocation), Type::U8,
         SHM_CONTROLLERS, "modular id of the endpoint, 0 not modular"),
    block(kCtrl, "valueA", "au64CtrlValueA", offsetof(Ctrl, au64CtrlValueA), Type::Bytes, 8,
          SHM_CONTROLLERS, 8, "value of the adapter record; KRON controllers only"),
    each(kCtrl, "kind", "au8CtrlKind", offsetof(Ctrl, au8CtrlKind), Type::U8, SHM_CONTROLLERS,
         "0 KRON, 1 HBA, 2 endpoint type 12, 3 TAVI, 4 ROR"),
    each(kCtrl, "attributes", "au8CtrlAttr", offsetof(Ctrl, au8CtrlAttr), Type::U8, SHM_CONTROLLERS,
         "byte of the adapter record"),
    each(kCtrl, "drivePollingDisabled", "thermalPDPollDisable",
         offsetof(Ctrl, thermalPDPollDisable), Type::U8, SHM_CONTROLLERS,
         "1 temperatures of its drives are not polled, 254 not an integrated controller"),
    block(kCtrl, "valueB", "au64CtrlValueB", offsetof(Ctrl, au64CtrlValueB), Type::Bytes, 8,
          SHM_CONTROLLERS, 8, "second value of the adapter record; KRON controllers only"),

    one("driveCount", "sCEMSASSATAInventory.count", in_drives(offsetof(Drive, count)), Type::I32,
        "number of drives, -1 not inventoried yet"),
    drive_field("bay", "au8DriveBayID", offsetof(Drive, au8DriveBayID), Type::U8, "bay"),
    drive_field("slot", "au8DriveOccupiedSlot", offsetof(Drive, au8DriveOccupiedSlot), Type::U8,
                "slot in its bay"),
    drive_field("protocol", "au8DriveProtocolType", offsetof(Drive, au8DriveProtocolType), Type::U8,
                "protocol, the daemon's code"),
    drive_field("media", "au8DriveMediaType", offsetof(Drive, au8DriveMediaType), Type::U8,
                "0 rotating, 1 solid state, 2 tape"),
    drive_field("formFactor", "au8DriveFormFactor", offsetof(Drive, au8DriveFormFactor), Type::U8,
                "form factor, the daemon's code"),
    drive_field("temperature", "au8Temp", offsetof(Drive, au8Temp), Type::U8, "degrees Celsius"),
    drive_field("rpm", "au32NominalRPM", offsetof(Drive, au32NominalRPM), Type::U32,
                "revolutions per minute"),
    block("", "", "au8DriveReserved", in_drives(offsetof(Drive, au8DriveReserved)), Type::Bytes, 1,
          SHM_DRIVES, 1, "carries nothing, 0xFF"),
    drive_field("status", "pdShmStatus", offsetof(Drive, pdShmStatus), Type::U16,
                "state of the drive, the daemon's bits"),
    drive_field("capacityGiB", "au16DriveCapacity", offsetof(Drive, au16DriveCapacity), Type::U16,
                "capacity in GiB"),
    drive_field("impedance", "au8DriveImpendance", offsetof(Drive, au8DriveImpendance), Type::U8,
                "air flow impedance"),
    drive_field("chassisSlot", "au8ChassisSlot", offsetof(Drive, au8ChassisSlot), Type::U8,
                "chassis slot, or the bay of an internal backplane"),
    drive_field("enclosureType", "au8EnclosureTyoe", offsetof(Drive, au8EnclosureTyoe), Type::U8,
                "type of the enclosure that holds the drive"),
    drive_field("referenceTemperature", "refTemp", offsetof(Drive, refTemp), Type::U8,
                "degrees Celsius"),
    drive_field("criticalTemperature", "critTemp", offsetof(Drive, critTemp), Type::U8,
                "degrees Celsius"),
    block(kDrive, "fqdd", "Fqdd", in_drives(offsetof(Drive, Fqdd)), Type::Text, SHM_FQDD_BYTES,
          SHM_DRIVES, SHM_FQDD_BYTES, "address of the drive"),

    one("batteryCount", "sCEMKRONBatteryInventory.count", in_batteries(offsetof(Battery, count)),
        Type::I32, "number of batteries, -1 not inventoried yet"),
    each(kBattery, "slot", "au8Slot", in_batteries(offsetof(Battery, au8Slot)), Type::U8,
         SHM_BATTERIES, "PCI slot of the controller that owns it"),
    each(kBattery, "state", "au8State", in_batteries(offsetof(Battery, au8State)), Type::U8,
         SHM_BATTERIES, "state, the daemon's code"),
    one("inventoryState", "vexel_inventory", in_batteries(offsetof(Battery, vexel_inventory)),
        Type::U8, "1 all KRON controllers are inventoried, 255 not yet"),
    unused("vexel_inventory+1", in_batteries(offsetof(Battery, vexel_inventory) + 1), 3),
    one("tape", "IsTapeDrivePresent", SHM_TAPE_OFFSET, Type::U8,
        "1 a tape drive is present, 2 absent, 0 not known yet"),
    unused("rsvd23703", SHM_TAPE_OFFSET + 1, 3),
};

constexpr Group kInventoryGroups[] = {
    {kCtrl, SHM_CONTROLLERS, "controllerCount", ""},
    {kDrive, SHM_DRIVES, "driveCount", ""},
    {kBattery, SHM_BATTERIES, "batteryCount", ""},
};

// ---- Region 15: extender cards ----------------------------------------------------------------------

constexpr const char* kExtender = "extenders";
constexpr size_t kExtenders = offsetof(ExtenderCardTable, entries);

constexpr Field extender_field(const char* key, const char* name, size_t offset, Type type,
                               const char* meaning) {
    return in_record(kExtender, key, name, kExtenders + offset, type, SHM_EXTENDER_ENTRIES,
                     sizeof(ExtenderCardEntry), meaning);
}

constexpr Field kExtenderFields[] = {
    unused("rsvd0", 0, 2),
    one("extenderCount", "ExtenderCardTable.count", offsetof(ExtenderCardTable, count), Type::U16,
        "number of entries"),
    extender_field("pcieSlot", "pcieSlot", offsetof(ExtenderCardEntry, pcieSlot), Type::U8,
                   "PCIe slot of the card"),
    extender_field("type", "type", offsetof(ExtenderCardEntry, type), Type::U8,
                   "3 extender card of PCIe SSDs"),
    unused("rsvd2", kExtenders + 2, 2, SHM_EXTENDER_ENTRIES, sizeof(ExtenderCardEntry)),
    extender_field("recordOffset", "recordOffset", offsetof(ExtenderCardEntry, recordOffset),
                   Type::U16, "where in the region the card's record lies; its byte 0 is the bay"),
    unused("rsvd6", kExtenders + 6, 2, SHM_EXTENDER_ENTRIES, sizeof(ExtenderCardEntry)),
    unused("records", sizeof(ExtenderCardTable),
           ZENT_SHM_EXTENDER_CARDS_SIZE - sizeof(ExtenderCardTable)),
};

constexpr Group kExtenderGroups[] = {{kExtender, SHM_EXTENDER_ENTRIES, "extenderCount", ""}};

// ---- Region 20: PCIe SSD status ---------------------------------------------------------------------

using Status = PCIeSSDStatusRegion;
constexpr const char* kSlot = "slots";
constexpr size_t kPositions = offsetof(Status, positions);
constexpr size_t kStatus = offsetof(Status, status);

constexpr Field kStatusFields[] = {
    unused("rsvd0", 0, 6),
    one("presenceCounter", "presenceCounter", offsetof(Status, presenceCounter), Type::U8,
        "raised with each change of presence"),
    unused("rsvd7", 7, 3),
    one("statusChangeCounter", "statusChangeCounter", offsetof(Status, statusChangeCounter),
        Type::U8, "raised with each written status"),
    unused("rsvd11", 11, 3),
    in_record(kSlot, "bay", "u8BayId", kPositions, Type::U8, SHM_PCIESSD_SLOTS,
              sizeof(PCIeSSDPosition), "bay of the global slot"),
    in_record(kSlot, "slot", "u8SlotNumInBay", kPositions + 1, Type::U8, SHM_PCIESSD_SLOTS,
              sizeof(PCIeSSDPosition), "slot in the bay"),
    unused("positions.rsvd2", kPositions + 2, 2, SHM_PCIESSD_SLOTS, sizeof(PCIeSSDPosition)),
    unused("status.rsvd0", kStatus, 2, SHM_PCIESSD_SLOTS, sizeof(PCIeSSDStatusEntry)),
    in_record(kSlot, "status", "u16DriveStatus",
              kStatus + offsetof(PCIeSSDStatusEntry, u16DriveStatus), Type::U16, SHM_PCIESSD_SLOTS,
              sizeof(PCIeSSDStatusEntry), "drive status; bit 0 present"),
    unused("rsvd270", offsetof(Status, rsvd270), sizeof(Status::rsvd270)),
    {"", "splitMode", "splitMode", SHM_SPLIT_MODE_OFFSET, Type::Bytes, SHM_SPLIT_MODE_BYTES, 1,
     SHM_SPLIT_MODE_BYTES, false, "backplane split mode"},
};

constexpr Group kStatusGroups[] = {{kSlot, SHM_PCIESSD_SLOTS, "", "bay"}};

// ---- Region 26: PCIe SSD FRU ------------------------------------------------------------------------

using Fru = PCIeSSDFruRegion;
constexpr const char* kFruDrive = "drives";
constexpr const char* kFruCard = "cards";
constexpr const char* kFruKind2 = "kind2Cards";
constexpr const char* kFruCardFqdd = "cardFqdds";
constexpr size_t kDrives = offsetof(Fru, drives);
constexpr size_t kCards = offsetof(Fru, cards);
constexpr size_t kKind2 = offsetof(Fru, kind2Cards);

constexpr Field fru_field(const char* group, const char* key, const char* name, size_t offset,
                          size_t count, const char* meaning) {
    return in_record(group, key, name, offset, Type::U8, count, kFruRecord, meaning);
}

constexpr Field fru_image(const char* group, size_t records, size_t count) {
    return block(group, "image", "image", records + offsetof(PCIeSSDFruRecord, image), Type::Bytes,
                 SHM_FRU_IMAGE_BYTES, count, kFruRecord, "FRU image, zero behind its end");
}

constexpr Field kFruFields[] = {
    one("update", "update", 0, Type::U8, "1 after each stored or cleared record"),
    unused("rsvd1", 1, 3),
    fru_field(kFruDrive, "temperature", "temperature", kDrives, SHM_FRU_DRIVES, "degrees Celsius"),
    fru_field(kFruDrive, "bay", "bayIdOrKind", kDrives + 1, SHM_FRU_DRIVES, "bay of the drive"),
    fru_field(kFruDrive, "slot", "slotOrIndex", kDrives + 2, SHM_FRU_DRIVES, "slot in the bay"),
    fru_field(kFruDrive, "presence", "presence", kDrives + 3, SHM_FRU_DRIVES, "1 present"),
    unused("drives.rsvd4", kDrives + 4, 4, SHM_FRU_DRIVES, kFruRecord),
    fru_image(kFruDrive, kDrives, SHM_FRU_DRIVES),
    fru_field(kFruCard, "temperature", "temperature", kCards, SHM_FRU_CARDS, "degrees Celsius"),
    fru_field(kFruCard, "kind", "bayIdOrKind", kCards + 1, SHM_FRU_CARDS, "kind of the card"),
    fru_field(kFruCard, "index", "slotOrIndex", kCards + 2, SHM_FRU_CARDS, "index of the card"),
    fru_field(kFruCard, "presence", "presence", kCards + 3, SHM_FRU_CARDS, "1 present"),
    unused("cards.rsvd4", kCards + 4, 2, SHM_FRU_CARDS, kFruRecord),
    fru_field(kFruCard, "sizeCode", "sizeCode", kCards + 6, SHM_FRU_CARDS,
              "0 image of 256 bytes, 1 of another size"),
    unused("cards.rsvd7", kCards + 7, 1, SHM_FRU_CARDS, kFruRecord),
    fru_image(kFruCard, kCards, SHM_FRU_CARDS),
    block(kFruDrive, "fqdd", "driveFqdds", offsetof(Fru, driveFqdds), Type::Text,
          SHM_FRU_DRIVE_FQDD_BYTES, SHM_FRU_DRIVES, SHM_FRU_DRIVE_FQDD_BYTES,
          "address of the drive"),
    block(kFruCardFqdd, "fqdd", "cardFqdds", offsetof(Fru, cardFqdds), Type::Text,
          SHM_FRU_CARD_FQDD_BYTES, SHM_FRU_CARD_FQDDS, SHM_FRU_CARD_FQDD_BYTES,
          "address of the card in a slot"),
    unused("rsvd30284", offsetof(Fru, rsvd30284), sizeof(Fru::rsvd30284)),
    fru_field(kFruKind2, "temperature", "temperature", kKind2, SHM_FRU_KIND_2_CARDS,
              "degrees Celsius"),
    fru_field(kFruKind2, "kind", "bayIdOrKind", kKind2 + 1, SHM_FRU_KIND_2_CARDS,
              "kind of the card"),
    fru_field(kFruKind2, "index", "slotOrIndex", kKind2 + 2, SHM_FRU_KIND_2_CARDS,
              "index of the card"),
    fru_field(kFruKind2, "presence", "presence", kKind2 + 3, SHM_FRU_KIND_2_CARDS, "1 present"),
    unused("kind2Cards.rsvd4", kKind2 + 4, 2, SHM_FRU_KIND_2_CARDS, kFruRecord),
    fru_field(kFruKind2, "sizeCode", "sizeCode", kKind2 + 6, SHM_FRU_KIND_2_CARDS,
              "0 image of 256 bytes, 1 of another size"),
    unused("kind2Cards.rsvd7", kKind2 + 7, 1, SHM_FRU_KIND_2_CARDS, kFruRecord),
    fru_image(kFruKind2, kKind2, SHM_FRU_KIND_2_CARDS),
    block(kFruKind2, "fqdd", "kind2Fqdds", offsetof(Fru, kind2Fqdds), Type::Text,
          SHM_FRU_CARD_FQDD_BYTES, SHM_FRU_KIND_2_CARDS, SHM_FRU_CARD_FQDD_BYTES,
          "address of the card"),
};

constexpr Group kFruGroups[] = {
    {kFruDrive, SHM_FRU_DRIVES, "", "presence"},
    {kFruCard, SHM_FRU_CARDS, "", "presence"},
    {kFruCardFqdd, SHM_FRU_CARD_FQDDS, "", "fqdd"},
    {kFruKind2, SHM_FRU_KIND_2_CARDS, "", "presence"},
};

// ---- Region 49: FRU table ---------------------------------------------------------------------------

constexpr const char* kFruTableCard = "cards";

constexpr Field fru_table_field(const char* key, const char* name, size_t offset, Type type,
                                const char* meaning) {
    return in_record(kFruTableCard, key, name, ZENT_SHM_FRU_ENTRIES + offset, type, kFruCards,
                     kFruEntry, meaning);
}

constexpr Field kFruTableFields[] = {
    unused("rsvd0", 0, ZENT_SHM_FRU_COUNT),
    one("cardCount", "count", ZENT_SHM_FRU_COUNT, Type::U16, "number of entries"),
    unused("rsvd8", 8, 1),
    fru_table_field("fruId", "fruId", offsetof(ZentFruTableEntry, fruId), Type::U16,
                    "id of the card's FRU"),
    unused("entries.rsvd2", ZENT_SHM_FRU_ENTRIES + 2, 2, kFruCards, kFruEntry),
    fru_table_field("cardType", "cardType", offsetof(ZentFruTableEntry, cardType), Type::U8,
                    "4 controller in a slot, 17 boot-storage card"),
    fru_table_field("infoOffset", "infoOffset", offsetof(ZentFruTableEntry, infoOffset), Type::U32,
                    "where in the region the card's FRU information lies"),
    unused("entries.rsvd9", ZENT_SHM_FRU_ENTRIES + 9, 6, kFruCards, kFruEntry),
    unused("tail", kFruEnd, ZENT_SHM_FRU_TABLE_SIZE - kFruEnd),
};

constexpr Group kFruTableGroups[] = {{kFruTableCard, kFruCards, "cardCount", ""}};

// ---- Region 55: thermal settings --------------------------------------------------------------------

constexpr Field kThermalFields[] = {
    unused("rsvd0", 0, CEM_KRON_DRIVE_POLLING_OFFSET),
    one("drivePolling", "sCEMKRONDrivePolling", CEM_KRON_DRIVE_POLLING_OFFSET, Type::U32,
        "bit 0: drives behind HBAs are not polled, bit 1: the same behind KRON controllers"),
};

constexpr Region kRegions[] = {
    {ZENT_SHM_STORAGE_INVENTORY, "storageInventory", "storage inventory",
     ZENT_SHM_STORAGE_INVENTORY_SIZE, "library", kInventoryGroups, kInventoryFields},
    {ZENT_SHM_EXTENDER_CARDS, "extenderCards", "extender cards", ZENT_SHM_EXTENDER_CARDS_SIZE,
     "another daemon", kExtenderGroups, kExtenderFields},
    {ZENT_SHM_PCIESSD_STATUS, "pcieSsdStatus", "PCIe SSD status", ZENT_SHM_PCIESSD_STATUS_SIZE,
     "library, other daemons", kStatusGroups, kStatusFields},
    {ZENT_SHM_PCIESSD_FRU, "pcieSsdFru", "PCIe SSD FRU", ZENT_SHM_PCIESSD_FRU_SIZE, "library",
     kFruGroups, kFruFields},
    {ZENT_SHM_FRU_TABLE, "fruTable", "FRU table", ZENT_SHM_FRU_TABLE_SIZE, "another daemon",
     kFruTableGroups, kFruTableFields},
    {ZENT_SHM_THERMAL_SETTINGS, "thermalSettings", "thermal settings",
     ZENT_SHM_THERMAL_SETTINGS_SIZE, "another daemon", {}, kThermalFields},
};

}  // namespace

std::span<const Region> regions() {
    return kRegions;
}

const Region* find_region(int id) {
    for (const Region& region : kRegions) {
        if (region.id == id) {
            return &region;
        }
    }
    return nullptr;
}

}  // namespace vexinspect
