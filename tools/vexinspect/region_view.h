// One region as it was read: its fields by key, its lists as entries.
#ifndef TOOLS_VEXINSPECT_REGION_VIEW_H
#define TOOLS_VEXINSPECT_REGION_VIEW_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vexinspect/layout_table.h"

namespace vexinspect {

// What one field holds.
struct Value {
    const Field* field;
    std::optional<int64_t> number;    // none: an absent value
    std::optional<std::string> text;  // of Type::Bytes and Type::Text
};

// The fields of one entry of a list, or the single fields of a region.
class Record {
  public:
    explicit Record(uint32_t index) : index_(index) {}

    uint32_t index() const { return index_; }
    const std::vector<Value>& values() const { return values_; }
    void add(Value value) { values_.push_back(std::move(value)); }

    // None if the value is absent. key: of the layout table.
    std::optional<int64_t> number(const std::string& key) const;
    // Empty if the value is absent.
    std::string text(const std::string& key) const;

  private:
    const Value* find(const std::string& key) const;

    uint32_t index_;
    std::vector<Value> values_;
};

struct List {
    const Group* group;
    bool inventoried;  // false: its count says that nobody has looked yet
    bool clamped;      // its count claims more entries than there can be
    std::vector<Record> entries;

    // The entry of that index, null if it is not in use.
    const Record* at_index(uint32_t index) const;
};

struct RegionView {
    const Region* region;
    bool published;  // somebody has written it
    Record singles{0};
    std::vector<List> lists;

    const List& list(const std::string& key) const;
    bool inventoried(const std::string& list_key) const {
        return published && list(list_key).inventoried;
    }
};

// Decodes a region. bytes: region.size bytes.
RegionView decode(const Region& region, bool published, const std::vector<uint8_t>& bytes);

// Reads and decodes a region of the namespace. Throws std::runtime_error if the service refuses.
RegionView read_region(int id);

// How often a region was written; 0 nobody wrote it. Throws std::runtime_error.
uint32_t region_generation(int id);

}  // namespace vexinspect

#endif  // TOOLS_VEXINSPECT_REGION_VIEW_H
