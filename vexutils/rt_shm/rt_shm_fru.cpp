#include "rt_shm.h"

#include <platform/shm.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string_view>

#include "internal/log.h"
#include "internal/owned.h"
#include "rt_shm/fqdd_text.h"
#include "vexel.h"

namespace vexutils {
namespace {

constexpr std::uint32_t kUnreadable = 2;
constexpr std::uint32_t kNoFru = 3;

constexpr std::uint8_t kSlotCardType = 4;  // cards that only their slot tells apart
constexpr std::uint8_t kTaviCardType = 17;
constexpr std::uint8_t kAnySlot = 255;

constexpr std::size_t kNameOffset = 19;  // of the controller name in a TAVI card's FRU data
constexpr std::size_t kNameBytes = 32;
constexpr std::string_view kTaviA1 = "TAVI-A1";
constexpr std::string_view kTaviA2 = "TAVI-A2";

constexpr std::uint32_t kDumpedBytes = 100;

#pragma pack(push, 1)
// Region 49: a header, then entries to its end.
struct FruTableHeader {
    std::uint8_t rsvd0[6];
    std::uint16_t count;  // may claim more than the region holds
    std::uint8_t rsvd8;
};

struct FruTableEntry {
    std::uint16_t fru_id;
    std::uint8_t rsvd2[2];
    std::uint8_t card_type;
    std::uint8_t rsvd5[10];
};

struct FruInformation {
    std::uint8_t device_presence;
    std::uint16_t device_id;
    std::uint8_t fru_rev;
    std::uint8_t slot;
    std::uint8_t device_type;
    std::uint8_t rsvd6;
    std::uint16_t size;
    std::uint32_t offset;
    std::uint16_t embedded_device;
};
#pragma pack(pop)
static_assert(sizeof(FruTableHeader) == 9);
static_assert(sizeof(FruTableEntry) == 15);
static_assert(offsetof(FruTableEntry, card_type) == 4);
static_assert(sizeof(FruInformation) == 15);
static_assert(offsetof(FruInformation, size) == 7);

constexpr unsigned kMaxEntries =
    (ZENT_SHM_FRU_TABLE_SIZE - sizeof(FruTableHeader)) / sizeof(FruTableEntry);

// Which card is looked for, and by which exported function.
struct Search {
    const char* function;
    std::uint8_t card_type;
    std::uint8_t slot;
    bool any_slot;
};

struct FruBlock {
    Owned<std::uint8_t> data;
    std::uint32_t size;
};

void print_information(const char* function, std::uint16_t fru_id, const FruInformation& info) {
    LOG_AS(function, Level::Trace, "FruId : %u", fru_id);
    LOG_AS(function, Level::Trace, "Device_presence : %u", info.device_presence);
    LOG_AS(function, Level::Trace, "device_id : %u", std::uint16_t{info.device_id});
    LOG_AS(function, Level::Trace, "fru_rev : %u", info.fru_rev);
    LOG_AS(function, Level::Trace, "slotNumber : %u", info.slot);
    LOG_AS(function, Level::Trace, "device_type : %u", info.device_type);
    LOG_AS(function, Level::Trace, "size : %u", std::uint16_t{info.size});
    LOG_AS(function, Level::Trace, "offset : %u", std::uint32_t{info.offset});
    LOG_AS(function, Level::Trace, "embeddedDevice : %u", std::uint16_t{info.embedded_device});
}

FruTableEntry table_entry(const std::uint8_t* table, unsigned index) {
    FruTableEntry entry;
    std::memcpy(&entry, table + sizeof(FruTableHeader) + sizeof(entry) * index, sizeof(entry));
    return entry;
}

// Entries that the table holds; it may claim more.
unsigned entry_count(const char* function, const std::uint8_t* table) {
    FruTableHeader header;
    std::memcpy(&header, table, sizeof(header));
    const unsigned count = header.count;
    if (count > kMaxEntries) {
        LOG_AS(function, Level::Warning, "FRU table entries:%u limited to %u", count, kMaxEntries);
    }
    return std::min(count, kMaxEntries);
}

// Id of the first card that fits, and its information in info.
std::optional<std::uint16_t> find_card(const Search& search, FruInformation& info) {
    const auto* table = static_cast<const std::uint8_t*>(Zent_shm_get_shm(ZENT_SHM_FRU_TABLE));
    if (table == nullptr) {
        LOG_AS(search.function, Level::Error, "Failed to get IPMI FRU table");
        return std::nullopt;
    }
    const unsigned count = entry_count(search.function, table);
    for (unsigned i = 0; i < count; ++i) {
        const FruTableEntry entry = table_entry(table, i);
        if (entry.card_type != search.card_type) {
            continue;
        }
        LOG_AS(search.function, Level::Trace, "card type match at index:%d", i);
        if (Zent_shm_get_fruinfo(entry.fru_id, &info, &entry, 0) != 0) {
            continue;
        }
        print_information(search.function, entry.fru_id, info);
        if (search.any_slot || info.slot == search.slot) {
            return entry.fru_id;
        }
        LOG_AS(search.function, Level::Trace, "Traversing at slot:%d %d", info.slot, search.slot);
    }
    return std::nullopt;
}

// Reads a card's FRU data. Returns: 0; kUnreadable or kNoFru, block unchanged.
std::uint32_t read_card(std::uint16_t fru_id, std::uint32_t size, FruBlock& block) {
    auto data = make_owned<std::uint8_t>(size);
    if (data == nullptr) {
        return kNoFru;
    }
    if (Zent_shm_get_frudata(fru_id, data.get(), size) != 0) {
        return kUnreadable;
    }
    block = {std::move(data), size};
    return 0;
}

// The two look-ups, which differ in their words and in what counts as a match.
std::uint32_t look_up(const Search& search, const char* found, std::uint8_t** data,
                      std::uint32_t* size) {
    LOG_AS(search.function, Level::Trace, "Entry");
    if (data == nullptr || size == nullptr) {
        LOG_AS(search.function, Level::Error, "%s%s", "<-- err null inputs", search.function);
        return kNoFru;
    }
    *data = nullptr;
    *size = 0;
    const auto info = make_owned<FruInformation>();
    if (info == nullptr) {
        LOG_AS(search.function, Level::Error, "Memory allocation failed ");
        return kNoFru;
    }

    const auto fru_id = find_card(search, *info);
    if (!fru_id) {
        LOG_AS(search.function, Level::Error, "Exit");
        return kNoFru;
    }
    LOG_AS(search.function, Level::Trace, "%s", found);
    FruBlock block{};
    if (const std::uint32_t error = read_card(*fru_id, info->size, block); error != 0) {
        return error;
    }
    hexdump(block.data.get(), static_cast<int>(std::min(block.size, kDumpedBytes)));
    *size = block.size;
    *data = block.data.release();  // to the caller
    LOG_AS(search.function, Level::Detail, "exit");
    return 0;
}

// The controller name in a TAVI card's FRU data, up to its first space or end; empty without data.
std::string_view controller_name(const void* data, std::size_t size) {
    const std::string_view all{static_cast<const char*>(data), data != nullptr ? size : 0};
    const auto name = all.substr(std::min(kNameOffset, all.size()), kNameBytes);
    return name.substr(0, name.find_first_of(std::string_view{" \0", 2}));
}

constexpr char ascii_upper(char character) {
    return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A')
                                                : character;
}

// Independent of the locale. model: upper case.
bool is_model(std::string_view name, std::string_view model) {
    return std::ranges::equal(name.substr(0, model.size()), model, {}, ascii_upper);
}

// ---- FQDD of a PCIe SSD ----

constexpr std::size_t kFqddBytes = 60;
constexpr std::uint32_t kSlotTypeIntegrated = 4;
constexpr std::uint32_t kSlotTypeSlot = 8;
constexpr std::uint32_t kSlotTypeOther = 1;

std::uint32_t slot_type(std::string_view field, std::uint32_t otherwise) {
    if (field.starts_with("Integrated")) {
        return kSlotTypeIntegrated;
    }
    if (field.starts_with("Slot")) {
        return kSlotTypeSlot;
    }
    return field.starts_with("SL") ? kSlotTypeOther : otherwise;
}

}  // namespace
}  // namespace vexutils

using namespace vexutils;

uint32_t get_HBA_FRU_Info(uint8_t** data, uint32_t* size, uint8_t cardType, uint8_t slot) {
    char found[80];
    static_cast<void>(std::snprintf(found, sizeof(found),
                                    "HBA FRU is present at slot:%d %d, Now get the actual FRU data",
                                    slot, slot));
    return look_up({__func__, cardType, slot, false}, found, data, size);
}

uint32_t get_KRON_TAVI_FRU_Info(uint8_t** data, uint32_t* size, uint8_t cardType, uint8_t slot) {
    return look_up({__func__, cardType, slot, cardType != kSlotCardType},
                   "FRU is present, Now get the actual FRU data", data, size);
}

uint32_t is_TAVI_A2_Present(void) {
    std::uint8_t* fru = nullptr;
    std::uint32_t size = 0;
    if (get_KRON_TAVI_FRU_Info(&fru, &size, kTaviCardType, kAnySlot) != 0) {
        LOG(Level::Error, "get_KRON_TAVI_FRU_Info Failed !!!");
        return 1;
    }
    const Owned<std::uint8_t> data{fru};
    const auto name = controller_name(fru, size);
    LOG(Level::Error, "Controller Name is %.*s", static_cast<int>(name.size()), name.data());
    if (!is_model(name, kTaviA2)) {
        LOG(Level::Trace, "Not A2, Found  %.*s", static_cast<int>(name.size()), name.data());
        return 1;
    }
    LOG(Level::Trace, "Found  %.*s", static_cast<int>(name.size()), name.data());
    return 0;
}

uint32_t get_TAVI_Revison(const uint8_t* data, uint32_t size) {
    LOG(Level::Trace, "entry");
    const auto name = controller_name(data, size);
    LOG(Level::Trace, "Controller Name is %.*s", static_cast<int>(name.size()), name.data());
    const std::uint32_t revision = is_model(name, kTaviA1) ? 1 : (is_model(name, kTaviA2) ? 2 : 0);
    if (revision != 0) {
        LOG(Level::Trace, "Found  %.*s", static_cast<int>(name.size()), name.data());
    }
    return revision;
}

uint32_t update_TAVI_FRU_Info(const void* tableEntry, uint8_t* slotNumber, uint8_t* revision) {
    if (tableEntry == nullptr || slotNumber == nullptr || revision == nullptr) {
        LOG(Level::Error, "%s%s", "<-- err null inputs", __func__);
        return kNoFru;
    }
    FruTableEntry entry;
    std::memcpy(&entry, tableEntry, sizeof(entry));
    FruInformation info{};
    if (Zent_shm_get_fruinfo(entry.fru_id, &info, tableEntry, 0) != 0) {
        LOG(Level::Error, "Failed to get the FRU information of %u", std::uint16_t{entry.fru_id});
        return kNoFru;
    }
    print_information(__func__, entry.fru_id, info);
    FruBlock block{};
    if (const std::uint32_t error = read_card(entry.fru_id, info.size, block); error != 0) {
        LOG(Level::Error, "Failed to get the FRU data of %u", std::uint16_t{entry.fru_id});
        return error;
    }

    *slotNumber = info.slot;
    *revision = static_cast<std::uint8_t>(get_TAVI_Revison(block.data.get(), block.size));
    LOG(Level::Trace, "Found TAVI.M %u TAVI.F : %u", std::uint16_t{info.device_id},
        std::uint16_t{entry.fru_id});
    LOG(Level::Trace, "slotNumber : %u Revision:%u ", *slotNumber, *revision);
    return 0;
}

uint32_t getSlotandSlotIndexfromFQDD(const void* fqdd, uint32_t length, uint8_t* slot,
                                     uint8_t* slotIndex, uint32_t* slotType) {
    if (fqdd == nullptr || slot == nullptr || slotIndex == nullptr || slotType == nullptr) {
        LOG(Level::Error, "err1:fqdd is NULL");
        return 5;
    }
    const auto* text = static_cast<const char*>(fqdd);
    char narrowed[kFqddBytes] = {};
    if (length != 0) {
        narrow_by_halves(narrowed, text, length);
        text = narrowed;
        LOG(Level::Trace, "%s: %s", "fqddstr: ", text);
    }
    std::string_view rest{text};
    if (!rest.starts_with("PCIeSSD")) {
        LOG(Level::Fatal, "Invalid fqddstr passed = %s", text);
        return 1;
    }

    take_field(rest, '.');
    *slotType = slot_type(take_field(rest, '.'), *slotType);
    *slot = leading_number(take_field(rest, '-'));
    *slotIndex = leading_number(take_field(rest, '-'));
    LOG(Level::Trace, "SlotNum = %d SlotIndex = %d", *slot, *slotIndex);
    return 0;
}
