#include "vexinspect/json_report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "vexinspect/region_view.h"

namespace vexinspect {

namespace {

using Json = nlohmann::ordered_json;

// Lines of a document, with its items (objects that hold values only) each on one: people read an
// inventory by its items, and so do line-based tools.
class Lines {
  public:
    static std::string of(const Json& document) {
        Lines lines;
        lines.add(document);
        return lines.text_ + "\n";
    }

  private:
    void add(const Json& value) {
        const bool item = value.is_object() && std::ranges::none_of(value, &Json::is_structured);
        if (item || !value.is_structured() || value.empty()) {
            add_flat(value);
            return;
        }
        add_opened(value);
    }

    void add_flat(const Json& value) {
        if (!value.is_object()) {
            text_ += value.dump();
            return;
        }
        const char* separator = "{";
        for (const auto& [key, member] : value.items()) {
            text_ += separator + Json(key).dump() + ": " + member.dump();
            separator = ", ";
        }
        text_ += value.empty() ? "{}" : "}";
    }

    void add_opened(const Json& value) {
        text_ += value.is_object() ? '{' : '[';
        ++depth_;
        const char* separator = "\n";
        for (const auto& [key, member] : value.items()) {
            text_ += separator + std::string(depth_, ' ');
            text_ += value.is_object() ? Json(key).dump() + ": " : "";
            add(member);
            separator = ",\n";
        }
        --depth_;
        text_ += "\n" + std::string(depth_, ' ') + (value.is_object() ? '}' : ']');
    }

    std::string text_;
    size_t depth_ = 0;
};

Json header(const char* format) {
    return {{"format", format}, {"version", kJsonVersion}};
}

void add_values(const Record& record, Json& object) {
    for (const Value& value : record.values()) {
        if (value.number) {
            object[value.field->key] = *value.number;
        } else if (value.text) {
            object[value.field->key] = *value.text;
        } else {
            object[value.field->key] = nullptr;
        }
    }
}

Json list_json(const List& list) {
    if (!list.inventoried) {
        return nullptr;
    }
    Json entries = Json::array();
    for (const Record& record : list.entries) {
        Json entry = {{"index", record.index()}};
        add_values(record, entry);
        entries.push_back(std::move(entry));
    }
    return entries;
}

// A region counts as inventoried when somebody wrote it and none of its lists is waiting.
Json region_json(const Region& region) {
    const RegionView view = read_region(region.id);
    bool inventoried = view.published;
    for (const List& list : view.lists) {
        inventoried = inventoried && list.inventoried;
    }
    Json object = {{"region", region.id},
                   {"name", region.key},
                   {"written", view.published},
                   {"inventoried", inventoried}};
    if (view.published) {
        add_values(view.singles, object);
        for (const List& list : view.lists) {
            object[list.group->key] = list_json(list);
        }
    }
    return object;
}

const char* type_name(Type type) {
    switch (type) {
        case Type::U8:
            return "u8";
        case Type::U16:
            return "u16";
        case Type::U32:
            return "u32";
        case Type::I32:
            return "i32";
        case Type::Bytes:
            return "bytes";
        case Type::Text:
            return "text";
    }
    return "";
}

Json field_json(const Field& field) {
    return {{"offset", field.offset},  {"type", type_name(field.type)},
            {"length", field.length},  {"count", field.count},
            {"stride", field.stride},  {"name", field.name},
            {"list", field.group},     {"key", field.key},
            {"meaning", field.meaning}};
}

}  // namespace

std::string regions_json() {
    Json document = header("vexinspect.regions");
    document["regions"] = Json::array();
    for (const Region& region : regions()) {
        document["regions"].push_back(region_json(region));
    }
    return Lines::of(document);
}

std::string layout_json() {
    Json document = header("vexinspect.layout");
    document["regions"] = Json::array();
    for (const Region& region : regions()) {
        Json object = {{"region", region.id}, {"name", region.key}, {"size", region.size}};
        object["fields"] = Json::array();
        for (const Field& field : region.fields) {
            object["fields"].push_back(field_json(field));
        }
        document["regions"].push_back(std::move(object));
    }
    return Lines::of(document);
}

}  // namespace vexinspect
