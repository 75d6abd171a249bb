#include "vexinspect/show.h"

#include <cinttypes>
#include <stdexcept>

#include "platform/shm.h"
#include "rt_shm_layout.h"
#include "support/codes.h"
#include "vexinspect/device_text.h"
#include "vexinspect/fru.h"
#include "vexinspect/region_view.h"
#include "vexinspect/text_table.h"

namespace vexinspect {

namespace {

constexpr int64_t kNotIntegrated = 254;  // drivePollingDisabled

constexpr vextools::NamedCode kControllerKinds[] = {
    {"KRON", CTRL_KIND_KRON}, {"HBA", CTRL_KIND_HBA}, {"type 12", CTRL_KIND_CONTROLLER_12},
    {"TAVI", CTRL_KIND_TAVI}, {"ROR", CTRL_KIND_ROR},
};

std::string heading(const std::string& title, const List& list) {
    std::string text = title;
    if (list.inventoried) {
        text += " (" + std::to_string(list.entries.size()) + ")";
    }
    return text + (list.clamped ? ", the count claims more than there can be\n" : "\n");
}

// The body of a list: its table, or why there is none.
std::string body(const RegionView& view, const List& list, const TextTable& table) {
    if (!view.published || !list.inventoried) {
        return kNotInventoried;
    }
    return list.entries.empty() ? "  none\n" : table.text();
}

std::string polling_text(std::optional<int64_t> disabled) {
    if (disabled == kNotIntegrated) {
        return "not integrated";
    }
    return disabled == 0 ? "on" : disabled == 1 ? "off" : number_text(disabled);
}

std::string pci_text(const Record& controller) {
    std::string text;
    for (const char* key : {"vendorId", "deviceId", "subsystemVendorId", "subsystemDeviceId"}) {
        text += (text.empty() ? "" : ":") + hex_text(controller.number(key), 4);
    }
    return text;
}

std::string show_controllers() {
    const RegionView view = read_region(ZENT_SHM_STORAGE_INVENTORY);
    const List& list = view.list("controllers");
    TextTable table({{"#", 3, true},
                     {"Kind", 7},
                     {"Slot", 4, true},
                     {"Card", 4, true},
                     {"Temp", 6, true},
                     {"Battery", 7, true},
                     {"PCI ids", 19},
                     {"Drive polling", 14}});
    for (const Record& entry : list.entries) {
        table.add({std::to_string(entry.index()), code_text(kControllerKinds, entry.number("kind")),
                   number_text(entry.number("pciSlot")), number_text(entry.number("cardLocation")),
                   degrees_text(entry.number("temperature")),
                   degrees_text(entry.number("batteryTemperature")), pci_text(entry),
                   polling_text(entry.number("drivePollingDisabled"))});
    }
    return heading("Controllers", list) + body(view, list, table);
}

// Drives stand under the enclosure and controller that their FQDDs end with.
std::string show_drives() {
    const RegionView view = read_region(ZENT_SHM_STORAGE_INVENTORY);
    const List& list = view.list("drives");
    std::string out = heading("Drives", list);
    if (!view.published || !list.inventoried || list.entries.empty()) {
        return out + body(view, list, TextTable({}));
    }
    const std::vector<Column> columns = {{"#", 3, true},    {"Drive", 16},     {"Bay", 3, true},
                                         {"Slot", 4, true}, {"Kind", 9},       {"Size", 9, true},
                                         {"Temp", 5, true}, {"Crit", 5, true}, {"Status", 6}};
    std::string place;
    TextTable table(columns);
    for (size_t i = 0; i <= list.entries.size(); ++i) {
        const bool end = i == list.entries.size();
        const std::string fqdd = end ? "" : list.entries[i].text("fqdd");
        const size_t colon = fqdd.find(':');
        const std::string here = colon == std::string::npos ? "-" : fqdd.substr(colon + 1);
        if (i > 0 && (end || here != place)) {
            out += " " + fitted(place, kTerminalColumns - 1) + "\n" + table.text();
            table = TextTable(columns);
        }
        if (!end) {
            const Record& entry = list.entries[i];
            place = here;
            table.add({std::to_string(entry.index()), fqdd.substr(0, colon),
                       number_text(entry.number("bay")), number_text(entry.number("slot")),
                       drive_kind(entry), size_text(entry.number("capacityGiB")),
                       degrees_text(entry.number("temperature")),
                       degrees_text(entry.number("criticalTemperature")),
                       hex_text(entry.number("status"), 4)});
        }
    }
    return out;
}

std::string show_batteries() {
    const RegionView view = read_region(ZENT_SHM_STORAGE_INVENTORY);
    const List& list = view.list("batteries");
    TextTable table({{"#", 3, true}, {"Controller slot", 15, true}, {"State", 12}});
    for (const Record& entry : list.entries) {
        table.add({std::to_string(entry.index()), number_text(entry.number("slot")),
                   code_text(vextools::kBatteryStates, entry.number("state"))});
    }
    return heading("Batteries", list) + body(view, list, table);
}

std::string show_tape() {
    static constexpr vextools::NamedCode kPresence[] = {
        {"present", TAPE_PRESENT}, {"absent", TAPE_ABSENT}, {"not known yet", 0}};
    const RegionView view = read_region(ZENT_SHM_STORAGE_INVENTORY);
    return "Tape drive\n" + (view.published
                                 ? "  " + code_text(kPresence, view.singles.number("tape")) + "\n"
                                 : std::string(kNotInventoried));
}

std::string show_inventory() {
    const RegionView view = read_region(ZENT_SHM_STORAGE_INVENTORY);
    if (!view.published) {
        return "Inventory\n" + std::string(kNotInventoried);
    }
    const bool complete = view.singles.number("inventoryState") == 1;
    return std::string("Inventory\n  ") +
           (complete ? "complete" : "not complete: controllers are missing or being read") + "\n";
}

std::string show_nvme() {
    const RegionView status = read_region(ZENT_SHM_PCIESSD_STATUS);
    const RegionView fru = read_region(ZENT_SHM_PCIESSD_FRU);
    const List& slots = status.list("slots");
    TextTable table(
        {{"#", 2, true}, {"Drive", 7}, {"Status", 6}, {"Temp", 5, true}, {"Place", 50}});
    for (const Record& slot : slots.entries) {
        const Record* record = fru.list("drives").at_index(slot.index());
        const bool present = (slot.number("status").value_or(0) & 1) != 0;
        table.add({std::to_string(slot.index()), present ? "present" : "empty",
                   hex_text(slot.number("status"), 4),
                   degrees_text(record ? record->number("temperature") : std::nullopt),
                   record ? record->text("fqdd")
                          : "bay " + number_text(slot.number("bay")) + " slot " +
                                number_text(slot.number("slot"))});
    }
    return heading("NVMe drives, by global slot", slots) + body(status, slots, table) +
           (status.published
                ? "  changes of presence: " +
                      number_text(status.singles.number("presenceCounter")) + ", of status: " +
                      number_text(status.singles.number("statusChangeCounter")) + "\n"
                : "");
}

std::string show_extenders() {
    const RegionView view = read_region(ZENT_SHM_EXTENDER_CARDS);
    const List& list = view.list("extenders");
    TextTable table({{"#", 3, true}, {"PCIe slot", 9, true}, {"Type", 4, true}});
    for (const Record& entry : list.entries) {
        table.add({std::to_string(entry.index()), number_text(entry.number("pcieSlot")),
                   number_text(entry.number("type"))});
    }
    return heading("PCIe extender cards", list) + body(view, list, table);
}

std::string show_thermal() {
    const RegionView view = read_region(ZENT_SHM_THERMAL_SETTINGS);
    if (!view.published) {
        return "Drive temperature polling\n" + std::string(kNotInventoried);
    }
    const int64_t flags = view.singles.number("drivePolling").value_or(0);
    return std::string("Drive temperature polling\n  behind HBAs: ") +
           ((flags & SHM_POLLING_DISABLE_HBA) != 0 ? "off" : "on") +
           "\n  behind KRON controllers: " +
           ((flags & SHM_POLLING_DISABLE_KRON) != 0 ? "off" : "on") + "\n";
}

struct Topic {
    const char* name;
    std::string (*show)();
};

constexpr Topic kTopics[] = {
    {"inventory", &show_inventory}, {"controllers", &show_controllers},
    {"batteries", &show_batteries}, {"tape", &show_tape},
    {"drives", &show_drives},       {"nvme", &show_nvme},
    {"extenders", &show_extenders}, {"thermal", &show_thermal},
    {"frus", &show_ssd_frus},
};

}  // namespace

std::string list_text(const std::string& title, const RegionView& view, const List& list,
                      const TextTable& table) {
    return heading(title, list) + body(view, list, table);
}

std::vector<std::string> show_topics() {
    std::vector<std::string> names;
    for (const Topic& topic : kTopics) {
        names.emplace_back(topic.name);
    }
    return names;
}

std::string show(const std::string& topic) {
    for (const Topic& known : kTopics) {
        if (topic == known.name) {
            return known.show();
        }
    }
    throw std::logic_error("no topic " + topic);
}

std::string list_regions() {
    TextTable table(
        {{"Region", 6, true}, {"Name", 18}, {"Bytes", 6, true}, {"Written by", 22}, {"State", 22}});
    for (const Region& region : regions()) {
        const uint32_t writes = region_generation(region.id);
        std::string state = "written";
        if (writes == 0) {
            state = "not yet inventoried";
        } else if (region.id == ZENT_SHM_STORAGE_INVENTORY) {
            const RegionView view = read_region(region.id);
            state = view.inventoried("controllers") ? "inventoried" : "not yet inventoried";
        }
        table.add({std::to_string(region.id), region.title, std::to_string(region.size),
                   region.writer, state});
    }
    return table.text();
}

}  // namespace vexinspect
