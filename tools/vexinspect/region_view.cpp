#include "vexinspect/region_view.h"

#include <algorithm>
#include <cstring>
#include <system_error>

#include "platform/linux/shm_admin.h"
#include "platform/shm.h"

namespace vexinspect {

namespace {

using Bytes = std::vector<uint8_t>;

// The raw bits of a number, little-endian.
uint32_t bits_at(const uint8_t* at, uint32_t length) {
    uint32_t bits = 0;
    for (uint32_t i = 0; i < length; ++i) {
        bits |= uint32_t{at[i]} << (8 * i);
    }
    return bits;
}

std::optional<int64_t> number_at(const Field& field, const uint8_t* at) {
    const uint32_t bits = bits_at(at, field.length);
    const uint32_t all_ones = field.length == 4 ? UINT32_MAX : (1u << (8 * field.length)) - 1;
    if (field.all_ones_is_none && bits == all_ones) {
        return std::nullopt;
    }
    return field.type == Type::I32 ? int64_t{static_cast<int32_t>(bits)} : int64_t{bits};
}

bool all_ones(const uint8_t* at, uint32_t length) {
    return std::all_of(at, at + length, [](uint8_t byte) { return byte == 0xFF; });
}

std::string hexadecimal(const uint8_t* at, uint32_t length) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (uint32_t i = 0; i < length; ++i) {
        text += kDigits[at[i] >> 4u];
        text += kDigits[at[i] & 0xFu];
    }
    return text;
}

// What other programs wrote may hold anything: only printable ASCII is passed on.
std::string narrow_text(const uint8_t* at, uint32_t length) {
    std::string text;
    for (uint32_t i = 0; i < length && at[i] != 0; ++i) {
        text += at[i] >= ' ' && at[i] <= '~' ? static_cast<char>(at[i]) : '?';
    }
    return text;
}

Value value_at(const Field& field, const Bytes& bytes, uint32_t index) {
    const uint8_t* at = bytes.data() + field.offset + index * field.stride;
    Value value{&field, std::nullopt, std::nullopt};
    const bool is_text = field.type == Type::Text;
    if (!is_text && field.type != Type::Bytes) {
        value.number = number_at(field, at);
    } else if (!field.all_ones_is_none || !all_ones(at, field.length)) {
        value.text = is_text ? narrow_text(at, field.length) : hexadecimal(at, field.length);
    }
    return value;
}

Record decode_entry(const Region& region, const Group& group, const Bytes& bytes, uint32_t index) {
    Record record(index);
    for (const Field& field : region.fields) {
        if (std::strcmp(field.group, group.key) == 0 && index < field.count) {
            record.add(value_at(field, bytes, index));
        }
    }
    return record;
}

bool used(const Group& group, const Record& record) {
    return *group.used_key == '\0' || record.number(group.used_key).has_value() ||
           !record.text(group.used_key).empty();
}

List decode_list(const Region& region, const Group& group, const RegionView& view,
                 const Bytes& bytes) {
    List list{&group, true, false, {}};
    int64_t count = group.max;
    if (*group.count_key != '\0') {
        count = view.singles.number(group.count_key).value_or(-1);
        list.inventoried = count >= 0;
        list.clamped = count > group.max;
    }
    const int64_t end = std::min<int64_t>(count, group.max);
    for (int64_t index = 0; index < end; ++index) {
        Record record = decode_entry(region, group, bytes, static_cast<uint32_t>(index));
        if (used(group, record)) {
            list.entries.push_back(std::move(record));
        }
    }
    return list;
}

}  // namespace

const Value* Record::find(const std::string& key) const {
    const auto found = std::ranges::find_if(
        values_, [&](const Value& value) { return value.field->key == key; });
    return found == values_.end() ? nullptr : &*found;
}

std::optional<int64_t> Record::number(const std::string& key) const {
    const Value* value = find(key);
    return value == nullptr ? std::nullopt : value->number;
}

std::string Record::text(const std::string& key) const {
    const Value* value = find(key);
    return value == nullptr ? "" : value->text.value_or("");
}

const Record* List::at_index(uint32_t index) const {
    const auto found = std::ranges::find(entries, index, &Record::index);
    return found == entries.end() ? nullptr : &*found;
}

const List& RegionView::list(const std::string& key) const {
    const auto found =
        std::ranges::find_if(lists, [&](const List& item) { return item.group->key == key; });
    if (found == lists.end()) {
        throw std::logic_error("no list " + key);
    }
    return *found;
}

RegionView decode(const Region& region, bool published, const Bytes& bytes) {
    RegionView view{.region = &region, .published = published, .lists = {}};
    for (const Field& field : region.fields) {
        if (*field.group == '\0' && *field.key != '\0') {
            view.singles.add(value_at(field, bytes, 0));
        }
    }
    for (const Group& group : region.groups) {
        view.lists.push_back(decode_list(region, group, view, bytes));
    }
    return view;
}

uint32_t region_generation(int id) {
    uint32_t generation = 0;
    const int error = vexplatform_shm_generation(id, &generation);
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "region " + std::to_string(id));
    }
    return generation;
}

RegionView read_region(int id) {
    const Region& region = *find_region(id);
    const bool published = region_generation(id) != 0;
    Bytes bytes(region.size);
    const int result =
        Zent_shm_memread(id, bytes.data(), 0, static_cast<int>(region.size));
    if (result != 0) {
        throw std::runtime_error("region " + std::to_string(id) + " cannot be read");
    }
    return decode(region, published, bytes);
}

}  // namespace vexinspect
