#include "json_lines.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <nlohmann/json.hpp>

namespace vexplatform {
namespace {

using Kind = JsonValue::Kind;

constexpr size_t kDeepest = 16;  // chosen: our files need 5, and freeing a tree is recursive

/* Where the parser is: the line of the next character, and the last character it took. */
struct Position {
    unsigned line = 1;
    char last = '\0';
};

/* Reads a text and counts lines on the way. */
class CountingIterator {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    CountingIterator(const char* at, Position* position) : at_(at), position_(position) {}
    reference operator*() const { return *at_; }
    CountingIterator& operator++() {
        position_->last = *at_;
        position_->line += *at_ == '\n' ? 1 : 0;
        ++at_;
        return *this;
    }
    bool operator==(const CountingIterator& other) const { return at_ == other.at_; }
    bool operator!=(const CountingIterator& other) const { return at_ != other.at_; }

  private:
    const char* at_;
    Position* position_;
};

/* Builds the tree from the parser's calls. */
class TreeBuilder : public nlohmann::json_sax<nlohmann::json> {
  public:
    TreeBuilder(const std::string& text, const Position& position)
        : text_(text), position_(position) {}

    JsonValue take_root() { return std::move(root_); }

    bool null() override { return add(make(Kind::Null)); }
    bool boolean(bool value) override {
        JsonValue node = make(Kind::Bool);
        node.boolean = value;
        return add(std::move(node));
    }
    bool number_integer(number_integer_t value) override {
        return add_other_number(static_cast<double>(value));
    }
    bool number_unsigned(number_unsigned_t value) override {
        JsonValue node = make(Kind::Number);
        node.number = value;
        return add_number(std::move(node));
    }
    bool number_float(number_float_t value, const string_t&) override {
        return add_other_number(value);
    }
    bool string(string_t& value) override {
        JsonValue node = make(Kind::Text);
        node.text = value;
        return add(std::move(node));
    }
    bool binary(binary_t&) override { return false; }
    bool start_object(size_t) override { return open(Kind::Object); }
    bool start_array(size_t) override { return open(Kind::Array); }
    bool end_object() override { return close(); }
    bool end_array() override { return close(); }
    bool key(string_t& name) override {
        auto& members = open_.back()->members;
        const auto same = [&](const auto& member) { return member.name == name; };
        if (std::any_of(members.begin(), members.end(), same)) {
            throw JsonError(position_.line, name, "given twice");
        }
        members.push_back({name, make(Kind::Null)});
        return true;
    }
    bool parse_error(size_t offset, const std::string&,
                     const nlohmann::json::exception& error) override {
        const size_t read = std::min(offset, text_.size());
        const auto before = text_.begin() + static_cast<std::ptrdiff_t>(read > 0 ? read - 1 : 0);
        const auto newlines = std::count(text_.begin(), before, '\n');
        const std::string message = error.what();
        const size_t detail = message.find(": ");
        throw JsonError(static_cast<unsigned>(newlines) + 1, "",
                        detail == std::string::npos ? message : message.substr(detail + 2));
    }

  private:
    JsonValue make(Kind kind) const {
        JsonValue value;
        value.kind = kind;
        value.line = position_.line;
        return value;
    }
    bool add_other_number(double number) {
        JsonValue value = make(Kind::OtherNumber);
        value.other_number = number;
        return add_number(std::move(value));
    }
    // The end of a number shows only at the character behind it.
    bool add_number(JsonValue value) {
        value.line -= position_.last == '\n' ? 1 : 0;
        return add(std::move(value));
    }
    bool add(JsonValue value) {
        place(std::move(value));
        return true;
    }
    JsonValue& place(JsonValue value) {
        if (open_.empty()) {
            return root_ = std::move(value);
        }
        JsonValue& parent = *open_.back();
        if (parent.kind == Kind::Array) {
            return parent.items.emplace_back(std::move(value));
        }
        JsonValue& member = parent.members.back().value;
        value.line = member.line;
        return member = std::move(value);
    }
    bool open(Kind kind) {
        if (open_.size() == kDeepest) {
            throw JsonError(position_.line, "", "nested too deeply");
        }
        open_.push_back(&place(make(kind)));
        return true;
    }
    bool close() {
        open_.pop_back();
        return true;
    }

    const std::string& text_;
    const Position& position_;
    JsonValue root_;
    std::vector<JsonValue*> open_;  // only the last one grows, so the others stay in place
};

std::string range_text(uint64_t low, uint64_t high) {
    return "expected a whole number from " + std::to_string(low) + " to " + std::to_string(high);
}

bool is_number(const JsonValue& value, uint64_t low, uint64_t high) {
    return value.kind == Kind::Number && value.number >= low && value.number <= high;
}

}  // namespace

JsonValue parse_json(const std::string& text) {
    Position position;
    TreeBuilder builder{text, position};
    const char* start = text.data();
    const bool whole =
        nlohmann::json::sax_parse(CountingIterator{start, &position},
                                  CountingIterator{start + text.size(), &position}, &builder);
    if (!whole) {
        throw JsonError(position.line, "", "not JSON text");
    }
    return builder.take_root();
}

JsonFields::JsonFields(const JsonValue& object, std::string path)
    : object_(object), path_(std::move(path)) {
    if (object_.kind != Kind::Object) {
        throw JsonError(object_.line, path_, "expected an object");
    }
}

const JsonValue* JsonFields::take(const char* name) {
    for (const auto& [key, value] : object_.members) {
        if (key == name) {
            taken_.push_back(&value);
            return &value;
        }
    }
    return nullptr;
}

uint64_t JsonFields::number(const char* name, uint64_t low, uint64_t high,
                            std::optional<uint64_t> fallback) {
    const JsonValue* value = take(name);
    if (value == nullptr && fallback) {
        return *fallback;
    }
    if (value == nullptr || !is_number(*value, low, high)) {
        complain(name, range_text(low, high));
    }
    return value->number;
}

bool JsonFields::boolean(const char* name, bool fallback) {
    const JsonValue* value = take(name);
    if (value == nullptr) {
        return fallback;
    }
    if (value->kind != Kind::Bool) {
        complain(name, "expected true or false");
    }
    return value->boolean;
}

std::string JsonFields::text(const char* name, const char* fallback) {
    const JsonValue* value = take(name);
    if (value == nullptr) {
        return fallback;
    }
    if (value->kind != Kind::Text) {
        complain(name, "expected a text");
    }
    return value->text;
}

const std::vector<JsonValue>& JsonFields::array(const char* name, size_t limit) {
    static const std::vector<JsonValue> none;
    const JsonValue* value = take(name);
    if (value == nullptr) {
        return none;
    }
    if (value->kind != Kind::Array || value->items.size() > limit) {
        complain(name, "expected a list of at most " + std::to_string(limit));
    }
    return value->items;
}

void JsonFields::finish() const {
    for (const auto& [key, value] : object_.members) {
        if (std::find(taken_.begin(), taken_.end(), &value) == taken_.end()) {
            throw JsonError(value.line, path_of(key.c_str()), "unknown field");
        }
    }
}

void JsonFields::complain(const char* name, const std::string& text) const {
    const auto member = std::find_if(object_.members.begin(), object_.members.end(),
                                     [&](const auto& m) { return m.name == name; });
    const bool given = member != object_.members.end();
    throw JsonError(given ? member->value.line : object_.line, path_of(name),
                    given ? text : "missing: " + text);
}

std::string JsonFields::path_of(const char* name) const {
    return path_.empty() ? name : path_ + '.' + name;
}

uint64_t json_item_number(const JsonValue& item, const std::string& field, uint64_t low,
                          uint64_t high) {
    if (!is_number(item, low, high)) {
        throw JsonError(item.line, field, range_text(low, high));
    }
    return item.number;
}

}  // namespace vexplatform
