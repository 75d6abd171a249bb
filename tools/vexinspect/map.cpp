#include "vexinspect/map.h"

#include <array>
#include <map>
#include <vector>

#include "platform/shm.h"
#include "vexinspect/device_text.h"
#include "vexinspect/region_view.h"
#include "vexinspect/show.h"
#include "vexinspect/text_table.h"

namespace vexinspect {

namespace {

constexpr size_t kCellsInRow = 8;
constexpr size_t kCellWidth = 8;  // 8 cells, their borders and the indent fit 80 columns
constexpr size_t kCellLines = 3;

// What stands in one slot.
using Cell = std::array<std::string, kCellLines>;

struct Bay {
    std::string title;
    size_t columns;
    std::map<int64_t, Cell> cells;  // by slot
};

Cell drive_cell(const Record& drive) {
    return {drive_kind(drive), size_text(drive.number("capacityGiB")),
            degrees_text(drive.number("temperature"))};
}

// Drives in the order of their places, one picture for each enclosure.
std::vector<Bay> inventory_bays(const RegionView& view) {
    std::vector<Bay> bays;
    std::map<std::string, size_t> known;
    for (const Record& drive : view.list("drives").entries) {
        const std::string fqdd = drive.text("fqdd");
        const size_t colon = fqdd.find(':');
        const std::string place = colon == std::string::npos ? "" : fqdd.substr(colon + 1);
        const bool direct = place.find("Enclosure") == std::string::npos;
        const std::string title = direct ? "Attached directly: " + place
                                         : "Bay " + number_text(drive.number("bay")) + ": " + place;
        const auto [found, fresh] = known.try_emplace(title, bays.size());
        if (fresh) {
            bays.push_back({title, direct ? 0 : kCellsInRow, {}});
        }
        bays[found->second].cells[drive.number("slot").value_or(0)] = drive_cell(drive);
    }
    return bays;
}

// Pictures of the bays that hold NVMe drives.
std::vector<Bay> nvme_bays(const RegionView& status, const RegionView& fru,
                           const DaemonState& state) {
    std::map<int64_t, Bay> bays;
    for (const Record& slot : status.list("slots").entries) {
        const int64_t number = slot.number("bay").value_or(0);
        Bay& bay = bays.try_emplace(
                           number, Bay{"Bay " + std::to_string(number) + ": NVMe", kCellsInRow, {}})
                       .first->second;
        const bool present = (slot.number("status").value_or(0) & 1) != 0;
        const Record* drive = fru.list("drives").at_index(slot.index());
        const vextools::DrivePlace place{number, slot.number("slot").value_or(0)};
        Cell cell = {"empty", "", ""};
        if (present) {
            const auto eid = state.eids.find(place);
            cell = {state.blinks(place) ? "* NVMe *" : "NVMe",
                    eid != state.eids.end() ? "EID " + std::to_string(eid->second)
                                            : "# " + std::to_string(slot.index()),
                    degrees_text(drive ? drive->number("temperature") : std::nullopt)};
        }
        const std::string fqdd = drive ? drive->text("fqdd") : "";
        const size_t extender = fqdd.find("PCIeExtender");
        if (extender != std::string::npos) {
            bay.title = "Bay " + std::to_string(number) + ": NVMe, " + fqdd.substr(extender);
        }
        bay.cells[place.slot] = cell;
    }
    std::vector<Bay> list;
    for (auto& [number, bay] : bays) {
        list.push_back(std::move(bay));
    }
    return list;
}

std::string centred(const std::string& text) {
    const std::string cut = fitted(text, kCellWidth);
    const size_t left = (kCellWidth - cut.size()) / 2;
    return std::string(left, ' ') + cut + std::string(kCellWidth - cut.size() - left, ' ');
}

std::string border(size_t columns) {
    std::string out = "  +";
    for (size_t i = 0; i < columns; ++i) {
        out += std::string(kCellWidth, '-') + "+";
    }
    return out + "\n";
}

std::string draw_row(const Bay& bay, int64_t first, size_t columns) {
    std::string numbers = "  |";
    std::array<std::string, kCellLines> lines = {"  |", "  |", "  |"};
    for (int64_t slot = first; slot < first + static_cast<int64_t>(columns); ++slot) {
        const auto found = bay.cells.find(slot);
        const Cell cell = found == bay.cells.end() ? Cell{} : found->second;
        const bool empty = cell[0].empty();
        numbers += centred(std::to_string(slot)) + "|";
        for (size_t i = 0; i < kCellLines; ++i) {
            lines[i] += centred(empty && i == 0 ? "." : cell[i]) + "|";
        }
    }
    std::string out = numbers + "\n";
    for (const std::string& line : lines) {
        out += line + "\n";
    }
    return out + border(columns);
}

// Whole rows of a bay; of drives without one, only as many cells as there are drives.
std::string draw(const Bay& bay) {
    const int64_t last = bay.cells.rbegin()->first;
    const auto width = static_cast<int64_t>(kCellsInRow);
    const int64_t start = bay.cells.begin()->first / width * width;
    const size_t columns = bay.columns != 0 || last - start >= width
                               ? kCellsInRow
                               : static_cast<size_t>(last - start + 1);
    std::string out = fitted(bay.title, kTerminalColumns) + "\n" + border(columns);
    for (int64_t first = start; first <= last; first += width) {
        out += draw_row(bay, first, columns);
    }
    return out;
}

}  // namespace

std::string draw_map(const DaemonState& state) {
    const RegionView inventory = read_region(ZENT_SHM_STORAGE_INVENTORY);
    const RegionView status = read_region(ZENT_SHM_PCIESSD_STATUS);
    const RegionView fru = read_region(ZENT_SHM_PCIESSD_FRU);
    std::string out;
    if (!inventory.inventoried("drives")) {
        out += "Drives\n" + std::string(kNotInventoried);
    } else {
        for (const Bay& bay : inventory_bays(inventory)) {
            out += draw(bay);
        }
    }
    if (status.published) {
        for (const Bay& bay : nvme_bays(status, fru, state)) {
            out += draw(bay);
        }
    }
    return out;
}

}  // namespace vexinspect
