#include "vexinspect/fru.h"

#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "platform/shm.h"
#include "rt_shm.h"
#include "support/codes.h"
#include "vexel.h"
#include "vexinspect/device_text.h"
#include "vexinspect/region_view.h"
#include "vexinspect/show.h"
#include "vexinspect/text_table.h"

namespace vexinspect {

namespace {

constexpr int64_t kTypeTavi = 17;
constexpr size_t kNameOffset = 19;  // of the name in a FRU's board area
constexpr size_t kMaxName = 32;
constexpr vextools::NamedCode kCardTypes[] = {{"slot", 4}, {"boot card", kTypeTavi}};

struct FreeBlock {
    void operator()(uint8_t* block) const { vexel_free(block); }
};

// What a name may hold ends at the first byte that is not printable.
std::string name_in(const uint8_t* data, size_t size) {
    std::string name;
    for (size_t i = kNameOffset; i < size && name.size() < kMaxName; ++i) {
        if (data[i] < ' ' || data[i] > '~') {
            break;
        }
        name += static_cast<char>(data[i]);
    }
    return name;
}

const char* revision_text(uint32_t revision) {
    return revision == 1 ? "TAVI-A1" : revision == 2 ? "TAVI-A2" : "-";
}

// The cells of a card: those of the table, then what the library reads of it.
std::vector<std::string> card_cells(const Record& card) {
    ZentFruTableEntry entry{};
    entry.fruId = static_cast<uint16_t>(card.number("fruId").value_or(UINT16_MAX));
    entry.cardType = static_cast<uint8_t>(card.number("cardType").value_or(UINT8_MAX));
    std::vector<std::string> cells = {std::to_string(card.index()),
                                      code_text(kCardTypes, card.number("cardType")),
                                      number_text(card.number("fruId"))};
    ZentFruInfo info{};
    if (Zent_shm_get_fruinfo(entry.fruId, &info, &entry, 0) != 0) {
        cells.insert(cells.end(), {"-", "-", "-", "-", "no FRU information"});
        return cells;
    }
    cells.push_back(std::to_string(info.slotNumber));
    cells.push_back(info.device_presence == 1 ? "present" : "absent");
    cells.push_back(std::to_string(info.size));
    uint8_t* data = nullptr;
    uint32_t size = 0;
    if (get_HBA_FRU_Info(&data, &size, entry.cardType, info.slotNumber) != 0) {
        cells.insert(cells.end(), {"-", "the data cannot be read"});
        return cells;
    }
    const std::unique_ptr<uint8_t, FreeBlock> owned(data);
    const uint32_t revision = entry.cardType == kTypeTavi ? get_TAVI_Revison(data, size) : 0;
    cells.push_back(revision_text(revision));
    cells.push_back(name_in(data, size));
    return cells;
}

std::string show_controllers() {
    const RegionView view = read_region(ZENT_SHM_FRU_TABLE);
    const List& cards = view.list("cards");
    TextTable table({{"#", 4, true},
                     {"Type", 9},
                     {"FRU", 5, true},
                     {"Slot", 4, true},
                     {"Card", 7},
                     {"Bytes", 5, true},
                     {"Model", 7},
                     {"Name", 23}});
    for (const Record& card : cards.entries) {
        table.add(card_cells(card));
    }
    return list_text("Controller cards", view, cards, table);
}

}  // namespace

std::string show_frus() {
    return show_controllers();
}

}  // namespace vexinspect
