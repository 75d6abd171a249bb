#include "vexinspect/fru.h"

#include <charconv>
#include <memory>
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

// The bytes of a FRU image, which the region's view gives as hexadecimal digits.
std::vector<uint8_t> image_of(const Record& record) {
    const std::string digits = record.text("image");
    std::vector<uint8_t> bytes(digits.size() / 2);
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::from_chars(&digits[2 * i], &digits[2 * i] + 2, bytes[i], 16);
    }
    return bytes;
}

std::string image_name(const Record& record) {
    const std::vector<uint8_t> image = image_of(record);
    return name_in(image.data(), image.size());
}

std::string show_drives(const RegionView& frus, const RegionView& status) {
    const List& drives = frus.list("drives");
    TextTable table({{"#", 2, true},
                     {"Bay", 3, true},
                     {"Slot", 4, true},
                     {"Temp", 5, true},
                     {"Status", 6},
                     {"Name", 15},
                     {"FQDD", 34}});
    for (const Record& drive : drives.entries) {
        const Record* slot = status.list("slots").at_index(drive.index());
        table.add({std::to_string(drive.index()), number_text(drive.number("bay")),
                   number_text(drive.number("slot")), degrees_text(drive.number("temperature")),
                   hex_text(slot ? slot->number("status") : std::nullopt, 4), image_name(drive),
                   drive.text("fqdd")});
    }
    return list_text("PCIe SSD drives, by global slot", frus, drives, table);
}

// A card's FQDD lies with the record or, of most cards, in a list of its own.
std::string show_cards(const RegionView& frus, const char* key, const std::string& title) {
    const List& cards = frus.list(key);
    TextTable table({{"#", 2, true},
                     {"Kind", 4, true},
                     {"Temp", 5, true},
                     {"Bytes", 5, true},
                     {"Name", 27},
                     {"FQDD", 29}});
    for (const Record& card : cards.entries) {
        const Record* place = frus.list("cardFqdds").at_index(card.index());
        const std::string fqdd = card.text("fqdd");
        table.add({std::to_string(card.index()), number_text(card.number("kind")),
                   degrees_text(card.number("temperature")),
                   card.number("sizeCode") == 0 ? "256" : "other", image_name(card),
                   fqdd.empty() && place != nullptr ? place->text("fqdd") : fqdd});
    }
    return list_text(title, frus, cards, table);
}

}  // namespace

std::string show_ssd_frus() {
    const RegionView frus = read_region(ZENT_SHM_PCIESSD_FRU);
    const RegionView status = read_region(ZENT_SHM_PCIESSD_STATUS);
    return show_drives(frus, status) + show_cards(frus, "cards", "PCIe SSD cards") +
           show_cards(frus, "kind2Cards", "PCIe SSD cards of kind 2");
}

std::string show_frus() {
    return show_controllers() + show_ssd_frus();
}

}  // namespace vexinspect
