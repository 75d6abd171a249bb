#include "bpapi_topology.h"

#include <charconv>
#include <cstring>
#include <optional>
#include <string_view>

#include "json_lines.h"

namespace vexplatform {
namespace {

using Kind = JsonValue::Kind;

constexpr uint64_t kFormat = 1;
constexpr uint64_t kMaxId = 254;  // 255 means "none" to the readers of a snapshot
constexpr uint64_t kMaxByte = 0xFF;
constexpr uint64_t kMaxState = 0xFFFF;
constexpr uint64_t kMaxComponent = 0xFFFFFF;
constexpr uint64_t kMapBits = 32;
constexpr uint16_t kStatePresent = 1;  // bit 0 of a drive's state
constexpr uint8_t kTechnologySas = 2;  // chosen: any value that is no NVMe technology does
constexpr uint8_t kRiserExtender = 4;  // type of the riser that holds a PCIe extender card

std::string item_path(const std::string& list, size_t index) {
    return list + '[' + std::to_string(index) + ']';
}

/* A byte from low to high. */
uint8_t byte(JsonFields& fields, const char* name, std::optional<uint64_t> fallback = std::nullopt,
             uint64_t high = kMaxByte) {
    return static_cast<uint8_t>(fields.number(name, 0, high, fallback));
}

uint8_t technology(JsonFields& fields, std::optional<uint8_t> fallback) {
    constexpr char kName[] = "technology";
    const JsonValue* value = fields.take(kName);
    if (value == nullptr && fallback) {
        return *fallback;
    }
    if (value != nullptr && value->kind == Kind::Number && value->number <= kMaxByte) {
        return static_cast<uint8_t>(value->number);
    }
    if (value != nullptr && value->kind == Kind::Text && value->text == "nvme") {
        return BPAPI_TECHNOLOGY_NVME_A;
    }
    if (value != nullptr && value->kind == Kind::Text && value->text == "sas") {
        return kTechnologySas;
    }
    fields.complain(kName, "expected \"nvme\", \"sas\" or a number from 0 to 255");
}

/* A hexadecimal number that fills the text. */
std::optional<unsigned> parse_hex(std::string_view text) {
    unsigned value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    if (error != std::errc{} || stop != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

/*
 * "MAJOR.MINOR": the snapshot's readers print both bytes in hexadecimal, so the text is taken so.
 */
void read_firmware(JsonFields& fields, BpApiBay& bay) {
    const std::string text = fields.text("firmware", "0.0");
    const size_t dot = text.find('.');
    const auto major = parse_hex(std::string_view{text}.substr(0, dot));
    const auto minor =
        dot == std::string::npos ? std::nullopt : parse_hex(std::string_view{text}.substr(dot + 1));
    if (!major || !minor || *major > kMaxByte || *minor > kMaxByte) {
        fields.complain("firmware", "expected MAJOR.MINOR in hexadecimal, each at most ff");
    }
    bay.firmwareMajor = static_cast<uint8_t>(*major);
    bay.firmwareMinor = static_cast<uint8_t>(*minor);
}

void read_component(JsonFields& fields, BpApiBay& bay) {
    const std::string text = fields.text("componentId", "0x0");
    const auto value = text.starts_with("0x") ? parse_hex(text.substr(2)) : std::nullopt;
    if (!value || *value > kMaxComponent) {
        fields.complain("componentId", "expected a text from 0x0 to 0xffffff");
    }
    for (unsigned i = 0; i < sizeof bay.componentId; ++i) {
        bay.componentId[i] = static_cast<uint8_t>(*value >> (8 * i));
    }
}

/* A list of numbers as a map of bits. */
uint32_t read_map(JsonFields& fields, const char* name) {
    uint32_t map = 0;
    const auto& items = fields.array(name, kMapBits);
    for (size_t i = 0; i < items.size(); ++i) {
        const std::string field = item_path(fields.path_of(name), i);
        map |= 1u << json_item_number(items[i], field, 0, kMapBits - 1);
    }
    return map;
}

void read_downstream(JsonFields& fields, BpApiBay& bay) {
    constexpr char kName[] = "downstreamBays";
    const auto& items = fields.array(kName, BPAPI_MAX_DOWNSTREAM);
    for (size_t i = 0; i < items.size(); ++i) {
        const std::string field = item_path(fields.path_of(kName), i);
        bay.downstreamBayIds[i] =
            static_cast<uint8_t>(json_item_number(items[i], field, 0, kMaxId));
    }
    bay.downstreamCount = static_cast<uint8_t>(items.size());
}

/* The drive's state: as given, or what "present" says; they may not contradict each other. */
uint16_t read_state(JsonFields& fields) {
    const bool state_given = fields.take("state") != nullptr;
    const bool present_given = fields.take("present") != nullptr;
    const bool present = fields.boolean("present", true);
    const auto state =
        static_cast<uint16_t>(fields.number("state", 0, kMaxState, present ? kStatePresent : 0));
    if (state_given && present_given && present != ((state & kStatePresent) != 0)) {
        fields.complain("state", "expected bit 0 to say the same as \"present\"");
    }
    return state;
}

/* Builds the snapshot, list by list. */
class Reader {
  public:
    Topology read(const JsonValue& root) {
        JsonFields fields{root, ""};
        fields.number("format", kFormat, kFormat, kFormat);
        result_.system_id = static_cast<uint32_t>(fields.number("systemId", 0, UINT32_MAX, 0));
        const auto& bays = fields.array("bays", BPAPI_MAX_BAYS);
        for (size_t i = 0; i < bays.size(); ++i) {
            read_bay(bays[i], item_path("bays", i));
        }
        const auto& risers = fields.array("risers", BPAPI_MAX_RISERS);
        for (size_t i = 0; i < risers.size(); ++i) {
            read_riser(risers[i], item_path("risers", i));
        }
        fields.finish();
        result_.info.driveCnt = result_.info.printDriveCnt = static_cast<uint8_t>(drives_);
        return result_;
    }

  private:
    void read_bay(const JsonValue& value, const std::string& path) {
        JsonFields fields{value, path};
        BpApiBay bay{};
        bay.bayId = byte(fields, "bayId", std::nullopt, kMaxId);
        if (has_bay(result_.info, bay.bayId)) {
            fields.complain("bayId", "expected a number that no other bay has");
        }
        bay.technology = technology(fields, std::nullopt);
        bay.physicalSlotCount = byte(fields, "physicalSlots");
        bay.driveSlotOffset = byte(fields, "slotOffset", 0, kMaxByte - bay.physicalSlotCount);
        bay.logicalSlotCount = byte(fields, "logicalSlots", bay.physicalSlotCount);
        bay.inventoried = fields.boolean("inventoried", true);
        bay.secondary = !fields.boolean("primary", true);
        bay.primaryBayId = byte(fields, "primaryBay", bay.bayId, kMaxId);
        bay.raidManagement = byte(fields, "raidManagement", 0, 2);
        bay.controllerBay = byte(fields, "controllerBay", bay.bayId);
        bay.secondId = byte(fields, "secondId", 0);
        bay.bpId = static_cast<uint16_t>(fields.number("bpId", 0, UINT16_MAX, 0));
        bay.carrier = byte(fields, "carrier", 0);
        bay.pcieSlotMap = read_map(fields, "pcieSlots");
        bay.nvmeKronSlotMap = read_map(fields, "nvmeKronSlots");
        read_firmware(fields, bay);
        read_component(fields, bay);
        read_downstream(fields, bay);
        read_drives(fields, bay);
        fields.finish();
        result_.info.bays[result_.info.bayCnt++] = bay;
    }

    void read_drives(JsonFields& fields, BpApiBay& bay) {
        const auto& drives = fields.array("drives", BPAPI_MAX_DRIVES - drives_);
        const unsigned first = drives_;
        for (size_t i = 0; i < drives.size(); ++i) {
            const BpApiDrive drive =
                read_drive(drives[i], item_path(fields.path_of("drives"), i), bay, first);
            std::memcpy(&result_.info.drives[BPAPI_DRIVE_STRIDE * drives_], &drive, sizeof drive);
            ++drives_;
            bay.physicalDriveCount += (drive.state & kStatePresent) != 0 ? 1 : 0;
        }
    }

    /* first: the bay's first record in the snapshot. */
    BpApiDrive read_drive(const JsonValue& value, const std::string& path, const BpApiBay& bay,
                          unsigned first) const {
        JsonFields fields{value, path};
        BpApiDrive drive{};
        drive.bayId = bay.bayId;
        if (bay.physicalSlotCount == 0) {
            fields.complain("slot", "expected no drive in a bay without slots");
        }
        const unsigned end = bay.driveSlotOffset + bay.physicalSlotCount;
        drive.slot = static_cast<uint8_t>(fields.number("slot", bay.driveSlotOffset, end - 1));
        for (unsigned d = first; d < drives_; ++d) {
            if (drive_of(result_.info, d).slot == drive.slot) {
                fields.complain("slot", "expected a slot that holds no other drive");
            }
        }
        drive.driveId = byte(fields, "id", drives_);
        drive.state = read_state(fields);
        drive.technology = technology(fields, bay.technology);
        drive.sensor = byte(fields, "sensor", 0);
        drive.controllerSlot = byte(fields, "controllerSlot", drive.slot);
        drive.extenderSlot = byte(fields, "extenderSlot", 0);
        drive.location = byte(fields, "location", 0);
        drive.bdfValid = fields.take("bus") != nullptr;
        drive.bus = byte(fields, "bus", 0);
        fields.finish();
        return drive;
    }

    void read_riser(const JsonValue& value, const std::string& path) {
        JsonFields fields{value, path};
        BpApiRiser riser{};
        riser.bayId = byte(fields, "bayId");
        if (!has_bay(result_.info, riser.bayId)) {
            fields.complain("bayId", "expected the id of one of the bays");
        }
        riser.present = fields.boolean("present", true);
        riser.type = byte(fields, "type", kRiserExtender);
        riser.pcieSlot = byte(fields, "pcieSlot");
        riser.number = byte(fields, "number", result_.info.riserCnt + 1);
        fields.finish();
        result_.info.risers[result_.info.riserCnt++] = riser;
    }

    Topology result_;
    unsigned drives_ = 0;
};

const BpApiBay* find_bay(const BpApiInfo& info, uint8_t bay_id) {
    for (unsigned i = 0; i < info.bayCnt; ++i) {
        if (info.bays[i].bayId == bay_id) {
            return &info.bays[i];
        }
    }
    return nullptr;
}

}  // namespace

Topology parse_topology(const std::string& text) {
    return Reader{}.read(parse_json(text));
}

BpApiDrive drive_of(const BpApiInfo& info, unsigned d) {
    BpApiDrive drive;
    std::memcpy(&drive, &info.drives[BPAPI_DRIVE_STRIDE * d], sizeof drive);
    return drive;
}

bool has_bay(const BpApiInfo& info, uint8_t bay_id) {
    return find_bay(info, bay_id) != nullptr;
}

bool has_slot(const BpApiInfo& info, uint8_t bay_id, uint8_t slot) {
    const BpApiBay* bay = find_bay(info, bay_id);
    return bay != nullptr && slot >= bay->driveSlotOffset &&
           slot - bay->driveSlotOffset < bay->physicalSlotCount;
}

bool has_drive(const BpApiInfo& info, uint8_t bay_id, uint8_t slot) {
    for (unsigned d = 0; d < info.driveCnt; ++d) {
        const BpApiDrive drive = drive_of(info, d);
        if (drive.bayId == bay_id && drive.slot == slot) {
            return (drive.state & kStatePresent) != 0;
        }
    }
    return false;
}

}  // namespace vexplatform
