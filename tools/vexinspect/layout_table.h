// The layout of every shared-memory region as data: where each field lies, how it reads and what it
// means. Everything that vexinspect shows is drawn from this one table.
#ifndef TOOLS_VEXINSPECT_LAYOUT_TABLE_H
#define TOOLS_VEXINSPECT_LAYOUT_TABLE_H

#include <cstdint>
#include <span>

namespace vexinspect {

enum class Type {
    U8,
    U16,
    U32,
    I32,
    Bytes,  // shown as hexadecimal digits
    Text,   // narrow, ends at the first zero byte
};

// One field, or an array of it.
struct Field {
    const char* group;  // key of the list that the array belongs to, "" for a single field
    const char* key;    // name in JSON; "" for bytes that carry nothing
    const char* name;   // name in the C declaration
    uint32_t offset;    // of the first element in the region; little-endian
    Type type;
    uint32_t length;  // bytes of one element
    uint32_t count;   // elements
    uint32_t stride;  // bytes from one element to the next
    bool all_ones_is_none;
    const char* meaning;
};

// A list of records in a region; entry i takes element i of every field of the group.
struct Group {
    const char* key;
    uint32_t max;
    // Key of the single field that counts the entries; "" if every entry may be in use, which its
    // used_key then tells: it is used if that field has a value.
    const char* count_key;
    const char* used_key;
};

struct Region {
    int id;
    const char* key;
    const char* title;
    uint32_t size;
    const char* writer;
    std::span<const Group> groups;
    std::span<const Field> fields;
};

// Every region that there is, by id.
std::span<const Region> regions();

// Null for an unknown id.
const Region* find_region(int id);

}  // namespace vexinspect

#endif  // TOOLS_VEXINSPECT_LAYOUT_TABLE_H
