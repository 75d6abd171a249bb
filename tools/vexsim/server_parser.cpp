#include "vexsim/server_parser.h"

#include <algorithm>
#include <charconv>

#include "rt_cache.h"
#include "rt_shm_layout.h"
#include "support/codes.h"

namespace vexsim {

using vextools::JsonReader;

namespace {

constexpr int64_t kMaxEid = 254;
constexpr int64_t kMaxKey = 2046;  // the last disk number that the publisher looks at
constexpr int64_t kMaxSlot = 254;
constexpr int64_t kMaxByte = 255;
constexpr size_t kMaxSlotsOfGroup = 255;
constexpr int64_t kNvmeBays = 5;
constexpr int64_t kNvmeSlots = 50;
constexpr int64_t kGlobalSlots = 32;
constexpr uint32_t kBatterySupported = 0x10;
constexpr uint8_t kTypeKron18 = 18;
constexpr uint8_t kInventoryDone = 2;
constexpr int64_t kFruTypeSlotCard = 4;
constexpr int64_t kFruTypeBootCard = 17;
constexpr size_t kMaxFruName = 63;  // what the length of a FRU's field can say
constexpr uint64_t kBlockBytes = 512;

uint8_t read_byte(const JsonReader& field, int64_t fallback) {
    return static_cast<uint8_t>(field.integer_or(fallback, 0, kMaxByte));
}

// Replaces every "{name}" in a pattern.
std::string filled(std::string pattern, const std::string& name, const std::string& value) {
    const std::string mark = "{" + name + "}";
    for (size_t at = 0; (at = pattern.find(mark, at)) != std::string::npos; at += value.size()) {
        pattern.replace(at, mark.size(), value);
    }
    return pattern;
}

// Refuses an FQDD that became too long when its pattern was filled.
std::string checked_fqdd(const JsonReader& object, const std::string& fqdd) {
    if (fqdd.size() > kMaxFqdd) {
        object.fail("expected an FQDD of at most " + std::to_string(kMaxFqdd) +
                    " characters, this makes " + fqdd);
    }
    return fqdd;
}

// "4", "0-7" and lists of them with commas between.
std::vector<uint8_t> parse_slots(const JsonReader& field, const std::string& text, int64_t high) {
    const std::string expected =
        "expected slots such as 4, \"0-7\" or \"0-3,6\", none above " + std::to_string(high);
    std::vector<uint8_t> slots;
    size_t at = 0;
    while (at <= text.size()) {
        const std::string part = text.substr(at, text.find(',', at) - at);
        const size_t dash = part.find('-');
        const auto first = vextools::parse_integer(part.substr(0, dash));
        const auto last =
            dash == std::string::npos ? first : vextools::parse_integer(part.substr(dash + 1));
        if (!first || !last || *first < 0 || *last > high || *first > *last) {
            field.fail(expected);
        }
        for (int64_t slot = *first; slot <= *last; ++slot) {
            slots.push_back(static_cast<uint8_t>(slot));
        }
        at += part.size() + 1;
    }
    if (slots.size() > kMaxSlotsOfGroup) {
        field.fail("expected at most 255 slots");
    }
    return slots;
}

std::vector<uint8_t> read_slots(const JsonReader& field, int64_t high) {
    if (field.is_text()) {
        return parse_slots(field, field.text(1000), high);
    }
    if (field.is_array()) {
        std::vector<uint8_t> slots;
        for (const JsonReader& item : field.items()) {
            slots.push_back(static_cast<uint8_t>(item.integer(0, high)));
        }
        return slots;
    }
    return {static_cast<uint8_t>(field.integer(0, high))};
}

// Two digits a byte.
std::array<uint8_t, 8> read_value(const JsonReader& field) {
    std::array<uint8_t, 8> bytes{};
    if (!field.exists()) {
        return bytes;
    }
    const std::string text = field.text(kMaxNameLength);
    for (size_t i = 0; i < bytes.size(); ++i) {
        const char* digits = text.data() + 2 * i;
        if (text.size() != 2 * bytes.size() ||
            std::from_chars(digits, digits + 2, bytes[i], 16).ptr != digits + 2) {
            field.fail("expected 16 hexadecimal digits");
        }
    }
    return bytes;
}

PciIdentity read_pci(const JsonReader& object) {
    object.expect_object({"slot", "ids"});
    const int64_t slot = object["slot"].integer(0, kMaxByte);
    PciIdentity pci;
    // The slot's bits 0 to 6 and 7 lie in two bytes.
    pci.location_a = static_cast<uint8_t>(slot << 1);
    pci.location_b = static_cast<uint8_t>(slot >> 7);
    const auto ids = object["ids"].items();
    if (ids.size() != pci.ids.size()) {
        object["ids"].fail(
            "expected 4 numbers: vendor, device, subsystem vendor, subsystem device");
    }
    for (size_t i = 0; i < ids.size(); ++i) {
        pci.ids[i] = static_cast<uint16_t>(ids[i].integer(0, 0xFFFF));
    }
    return pci;
}

FruCard read_fru(const JsonReader& object, const Controller& controller) {
    object.expect_object({"type", "slot", "name"});
    const bool boot_card = controller.type == RTCACHE_TYPE_BOOT_CARD;
    const int64_t slot =
        controller.pci ? controller.pci->location_b << 7 | controller.pci->location_a >> 1 : 0;
    return {.type = read_byte(object["type"], boot_card ? kFruTypeBootCard : kFruTypeSlotCard),
            .slot = read_byte(object["slot"], slot),
            .name = object["name"].text(kMaxFruName)};
}

Battery read_battery(const JsonReader& object, const std::string& controller) {
    object.expect_object({"fqdd", "name", "state", "temperature"});
    return {
        .fqdd = checked_fqdd(
            object, object["fqdd"].text_or("Battery.Integrated.1:" + controller, kMaxFqdd)),
        .name = object["name"].text_or("Battery", kMaxNameLength),
        .state = static_cast<uint8_t>(
            object["state"].exists() ? object["state"].code(vextools::kBatteryStates, 0, kMaxByte)
                                     : 1),
        .temperature = read_temperature(object["temperature"])};
}

// Fills one controller; keeps track of the disk numbers that are taken.
class ControllerReader {
  public:
    ControllerReader(const JsonReader& object, const DriveModels& models)
        : object_(object), models_(models) {}

    Controller read() {
        read_identity();
        read_state();
        for (const JsonReader& enclosure : object_["enclosures"].items()) {
            read_enclosure(enclosure);
        }
        for (const JsonReader& group : object_["drives"].items()) {
            read_drives(group, nullptr);
        }
        for (const JsonReader& disk : object_["virtualDisks"].items()) {
            read_virtual_disk(disk);
        }
        for (const JsonReader& name : object_["foreign"].items()) {
            controller_.foreign.push_back(name.text(kMaxNameLength));
        }
        return std::move(controller_);
    }

  private:
    void read_identity() {
        object_.expect_object({"fqdd",         "name",        "eid",
                               "type",         "modularId",   "inventory",
                               "pci",          "temperature", "batterySupported",
                               "capability",   "attributes",  "drivePollingDisabled",
                               "valueA",       "valueB",      "driver",
                               "battery",      "enclosures",  "drives",
                               "virtualDisks", "foreign",     "fru"});
        controller_.fqdd = object_["fqdd"].text(kMaxFqdd);
        controller_.name = object_["name"].text_or(controller_.fqdd, kMaxNameLength);
        controller_.eid = static_cast<uint8_t>(object_["eid"].integer(0, kMaxEid));
        controller_.type =
            static_cast<uint8_t>(object_["type"].code(vextools::kEndpointTypes, 0, kMaxByte));
        controller_.modular_id = read_byte(object_["modularId"], 0);
        const JsonReader inventory = object_["inventory"];
        controller_.inventory_state = static_cast<uint8_t>(
            inventory.exists() ? inventory.code(vextools::kInventoryStates, 0, kMaxByte)
                               : kInventoryDone);
        if (object_["pci"].exists()) {
            controller_.pci = read_pci(object_["pci"]);
        }
        if (object_["fru"].exists()) {
            controller_.fru = read_fru(object_["fru"], controller_);
        }
    }

    void read_state() {
        controller_.temperature = read_temperature(object_["temperature"]);
        if (object_["battery"].exists()) {
            controller_.battery = read_battery(object_["battery"], controller_.fqdd);
        }
        const bool supported = object_["batterySupported"].boolean_or(
            controller_.battery.has_value() && controller_.type == kTypeKron18);
        controller_.capability =
            static_cast<uint32_t>(object_["capability"].integer_or(0, 0, 0xFFFFFFFF)) |
            (supported ? kBatterySupported : 0);
        controller_.attributes = read_byte(object_["attributes"], 0);
        controller_.drive_polling_disabled = object_["drivePollingDisabled"].boolean_or(false);
        controller_.value_a = read_value(object_["valueA"]);
        controller_.value_b = read_value(object_["valueB"]);
        controller_.driver = object_["driver"].text_or("", kMaxNameLength);
    }

    uint16_t take_key(const JsonReader& field) {
        uint16_t key = 0;
        if (field.exists()) {
            key = static_cast<uint16_t>(field.integer(0, kMaxKey));
            if (taken(key)) {
                field.fail("expected a disk number that no other drive or enclosure has");
            }
        } else {
            while (taken(key)) {
                ++key;
            }
            if (key > kMaxKey) {
                field.fail("expected at most 2047 drives and enclosures behind one controller");
            }
        }
        keys_.push_back(key);
        return key;
    }

    bool taken(uint16_t key) const { return std::ranges::find(keys_, key) != keys_.end(); }

    void read_enclosure(const JsonReader& object) {
        object.expect_object({"kind", "fqdd", "name", "key", "bay", "snapshotBay", "secondId",
                              "position", "chassisSlot", "type", "slots", "drives"});
        static constexpr vextools::NamedCode kKinds[] = {{"backplane", 240}, {"external", 2}};
        Enclosure enclosure;
        enclosure.backplane =
            !object["kind"].exists() || object["kind"].code(kKinds, 240, 240) == 240;
        enclosure.bay = read_byte(object["bay"], 0);
        enclosure.position = read_byte(object["position"], enclosure.bay);
        const std::string address =
            enclosure.backplane ? "Enclosure.Internal.0-" + std::to_string(enclosure.bay)
                                : "Enclosure.External.0-" + std::to_string(enclosure.position);
        enclosure.fqdd = checked_fqdd(
            object, object["fqdd"].text_or(address + ":" + controller_.fqdd, kMaxFqdd));
        enclosure.name =
            object["name"].text_or((enclosure.backplane ? "Backplane " : "Enclosure ") +
                                       std::to_string(enclosure.position),
                                   kMaxNameLength);
        enclosure.key = take_key(object["key"]);
        enclosure.chassis_slot = read_byte(object["chassisSlot"], 0);
        enclosure.second_id = read_byte(object["secondId"], 0);
        enclosure.type = read_byte(object["type"], enclosure.backplane ? 1 : 2);
        enclosure.slots = read_byte(object["slots"], 0);
        if (enclosure.backplane) {
            snapshot_bay_ = read_byte(object["snapshotBay"], enclosure.bay);
        }
        for (const JsonReader& group : object["drives"].items()) {
            read_drives(group, &enclosure);
        }
        snapshot_bay_.reset();
        controller_.enclosures.push_back(enclosure);
    }

    // One drive a slot. enclosure: null for drives without one.
    void read_drives(const JsonReader& group, Enclosure* enclosure) {
        group.expect_object(
            {"use", "with", "slots", "slot", "fqdd", "key", "present", "enclosureType", "primary"});
        const DriveModel model = models_.read(group);
        const JsonReader slots = group["slots"].exists() ? group["slots"] : group["slot"];
        const std::string pattern =
            group["fqdd"].text_or(enclosure != nullptr ? "Disk.Bay.{slot}:{enclosure}"
                                                       : "Disk.Direct.0-{slot}:{controller}",
                                  kMaxFqdd);
        for (const uint8_t slot : read_slots(slots, kMaxSlot)) {
            Drive drive;
            drive.fqdd = filled(pattern, "slot", std::to_string(slot));
            drive.fqdd = filled(drive.fqdd, "enclosure", enclosure ? enclosure->fqdd : "");
            drive.fqdd = checked_fqdd(group, filled(drive.fqdd, "controller", controller_.fqdd));
            drive.model = model;
            drive.key = take_key(group["key"]);
            drive.slot = slot;
            if (enclosure != nullptr) {
                drive.enclosure_key = enclosure->key;
                drive.enclosure_type = enclosure->type;
                ++enclosure->drives;
            }
            drive.enclosure_type = read_byte(group["enclosureType"], drive.enclosure_type);
            drive.bay = snapshot_bay_;
            drive.present = group["present"].boolean_or(true);
            if (group["primary"].exists()) {
                drive.primary = static_cast<uint16_t>(group["primary"].integer(0, kMaxKey));
            }
            controller_.drives.push_back(drive);
        }
    }

    void read_virtual_disk(const JsonReader& object) {
        object.expect_object({"name", "sizeGB", "drives"});
        VirtualDisk disk;
        disk.key = static_cast<uint16_t>(controller_.virtual_disks.size());
        disk.fqdd = checked_fqdd(
            object, "Disk.Virtual." + std::to_string(disk.key) + ":" + controller_.fqdd);
        disk.name =
            object["name"].text_or("Virtual Disk " + std::to_string(disk.key), kMaxNameLength);
        const auto gigabytes = static_cast<uint64_t>(object["sizeGB"].integer(0, 1'000'000'000));
        disk.blocks = gigabytes * (1'000'000'000 / kBlockBytes);
        for (const JsonReader& member : object["drives"].items()) {
            const std::string fqdd = member.text(kMaxFqdd);
            const auto drive = std::ranges::find(controller_.drives, fqdd, &Drive::fqdd);
            if (drive == controller_.drives.end()) {
                member.fail("expected the FQDD of a drive of this controller");
            }
            disk.members.push_back(drive->key);
        }
        controller_.virtual_disks.push_back(disk);
    }

    const JsonReader object_;
    const DriveModels& models_;
    Controller controller_;
    std::vector<uint16_t> keys_;
    std::optional<uint8_t> snapshot_bay_;  // of the backplane whose drives are being read
};

}  // namespace

Controller read_controller(const JsonReader& object, const DriveModels& models) {
    return ControllerReader(object, models).read();
}

std::vector<NvmeDrive> read_nvme_group(const JsonReader& object, const DriveModels& models) {
    object.expect_object({"use", "with", "bay", "slots", "slot", "firstEid", "extender",
                          "firstGlobalSlot", "fqdd", "present"});
    const DriveModel model = models.read(object);
    const auto bay = static_cast<uint8_t>(object["bay"].integer(0, kNvmeBays - 1));
    const std::string extender =
        object["extender"].exists()
            ? ":PCIeExtender.Slot." + std::to_string(object["extender"].integer(0, kMaxByte))
            : "";
    const std::string pattern = object["fqdd"].text_or(
        "Disk.Bay.{slot}:Enclosure.Internal.0-" + std::to_string(bay) + extender, kMaxFqdd);
    const JsonReader slots = object["slots"].exists() ? object["slots"] : object["slot"];
    std::vector<NvmeDrive> drives;
    for (const uint8_t slot : read_slots(slots, kNvmeSlots - 1)) {
        const auto index = static_cast<int64_t>(drives.size());
        NvmeDrive drive;
        drive.fqdd = checked_fqdd(object, filled(pattern, "slot", std::to_string(slot)));
        drive.model = model;
        drive.eid = static_cast<uint8_t>(object["firstEid"].integer(0, kMaxEid - index) + index);
        drive.bay = bay;
        drive.slot = slot;
        drive.global_slot = static_cast<uint8_t>(
            object["firstGlobalSlot"].integer(0, kGlobalSlots - 1 - index) + index);
        drive.present = object["present"].boolean_or(true);
        drives.push_back(drive);
    }
    return drives;
}

SsdCard read_ssd_card(const JsonReader& object, const DriveModels& models) {
    object.expect_object({"use", "with", "slot", "eid", "kind", "index", "fqdd"});
    SsdCard card;
    card.model = models.read(object);
    card.eid = static_cast<uint8_t>(object["eid"].integer(0, kMaxEid));
    card.kind = read_byte(object["kind"], 0);
    const int64_t cards = card.kind == SHM_FRU_KIND_2 ? SHM_FRU_KIND_2_CARDS : SHM_FRU_CARDS;
    card.index = static_cast<uint8_t>(object["index"].integer_or(0, 0, cards - 1));
    const std::string slot = std::to_string(object["slot"].integer(0, kMaxByte));
    card.fqdd = object["fqdd"].text_or("PCIeSSD.Slot." + slot + "-1", SHM_FRU_CARD_FQDD_BYTES - 1);
    return card;
}

ExtenderCard read_extender(const JsonReader& object) {
    object.expect_object({"slot", "type", "bay"});
    static constexpr int64_t kTypeNvmeExtender = 3;
    return {.pcie_slot = static_cast<uint8_t>(object["slot"].integer(0, kMaxByte)),
            .type = read_byte(object["type"], kTypeNvmeExtender),
            .bay = static_cast<uint8_t>(object["bay"].integer(0, kMaxByte))};
}

ThermalSettings read_thermal(const JsonReader& object) {
    if (!object.exists()) {
        return {};
    }
    object.expect_object({"disableHbaPolling", "disableKronPolling"});
    return {.disable_hba = object["disableHbaPolling"].boolean_or(false),
            .disable_kron = object["disableKronPolling"].boolean_or(false)};
}

}  // namespace vexsim
