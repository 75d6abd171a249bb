#include "support/json_reader.h"

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "support/input_error.h"

namespace vextools {

namespace {

std::string number_text(double number) {
    char text[32];
    std::snprintf(text, sizeof(text), "%g", number);
    return text;
}

std::string describe(const JsonValue& value) {
    switch (value.kind) {
        case JsonValue::Kind::Null:
            return "null";
        case JsonValue::Kind::Bool:
            return value.boolean ? "true" : "false";
        case JsonValue::Kind::Number:
            return std::to_string(value.number);
        case JsonValue::Kind::OtherNumber:
            return number_text(value.other_number);
        case JsonValue::Kind::Text:
            return "\"" + value.text.substr(0, 60) + "\"";
        case JsonValue::Kind::Array:
            return "a list";
        case JsonValue::Kind::Object:
            return "an object";
    }
    return "";
}

std::string range_text(int64_t low, int64_t high) {
    return std::to_string(low) + " to " + std::to_string(high);
}

std::string list_text(std::initializer_list<const char*> names) {
    std::string out;
    for (const char* name : names) {
        out += (out.empty() ? "" : ", ") + std::string(name);
    }
    return out;
}

}  // namespace

std::optional<int64_t> parse_integer(const std::string& text) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const char* begin = text.data() + (hexadecimal ? 2 : 0);
    const char* end = text.data() + text.size();
    int64_t number = 0;
    const auto [stop, error] = std::from_chars(begin, end, number, hexadecimal ? 16 : 10);
    if (error != std::errc{} || stop != end || (hexadecimal && *begin == '-')) {
        return std::nullopt;
    }
    return number;
}

JsonReader::JsonReader(std::string file, std::shared_ptr<const JsonValue> document)
    : file_(std::make_shared<const std::string>(std::move(file))),
      document_(std::move(document)),
      value_(document_.get()),
      line_(value_->line) {}

JsonReader::JsonReader(const JsonReader& parent, const JsonValue* value, std::string path)
    : file_(parent.file_),
      document_(parent.document_),
      value_(value),
      line_(value == nullptr ? parent.line_ : value->line),
      path_(std::move(path)) {}

void JsonReader::fail(const std::string& expected) const {
    throw InputError(*file_, vexplatform::JsonError(line_, path_, expected));
}

JsonReader JsonReader::operator[](const std::string& name) const {
    const JsonValue* child = is_object() ? find_member(*value_, name) : nullptr;
    return JsonReader(*this, child, path_.empty() ? name : path_ + "." + name);
}

std::vector<JsonReader> JsonReader::items() const {
    if (!exists()) {
        return {};
    }
    if (value_->kind != JsonValue::Kind::Array) {
        fail("expected a list, found " + describe(*value_));
    }
    std::vector<JsonReader> readers;
    for (const JsonValue& item : value_->items) {
        const std::string index = "[" + std::to_string(readers.size()) + "]";
        readers.push_back(JsonReader(*this, &item, path_ + index));
    }
    return readers;
}

void JsonReader::expect_object(std::initializer_list<const char*> names) const {
    if (!is_object()) {
        fail("expected an object" + (exists() ? ", found " + describe(*value_) : std::string()));
    }
    for (const auto& [name, value] : value_->members) {
        const auto same = [&name = name](const char* known) { return name == known; };
        if (std::none_of(names.begin(), names.end(), same)) {
            (*this)[name].fail("unknown field, expected one of: " + list_text(names));
        }
    }
}

std::vector<std::string> JsonReader::member_names() const {
    if (!is_object()) {
        fail("expected an object");
    }
    std::vector<std::string> names;
    for (const auto& [name, value] : value_->members) {
        names.push_back(name);
    }
    return names;
}

int64_t JsonReader::integer(int64_t low, int64_t high) const {
    return code({}, low, high);
}

int64_t JsonReader::integer_or(int64_t fallback, int64_t low, int64_t high) const {
    return exists() ? integer(low, high) : fallback;
}

double JsonReader::number(double low, double high) const {
    const std::string expected =
        "expected a number from " + number_text(low) + " to " + number_text(high);
    if (!exists()) {
        fail("missing, " + expected);
    }
    const bool whole = value_->kind == JsonValue::Kind::Number;
    const double number = whole ? static_cast<double>(value_->number) : value_->other_number;
    if ((!whole && value_->kind != JsonValue::Kind::OtherNumber) || !(number >= low) ||
        !(number <= high)) {
        fail(expected + ", found " + describe(*value_));
    }
    return number;
}

bool JsonReader::boolean_or(bool fallback) const {
    if (!exists()) {
        return fallback;
    }
    if (value_->kind != JsonValue::Kind::Bool) {
        fail("expected true or false, found " + describe(*value_));
    }
    return value_->boolean;
}

std::string JsonReader::text(size_t max_length) const {
    const std::string expected =
        "expected 1 to " + std::to_string(max_length) + " printable ASCII characters";
    const auto printable = [](char c) { return c >= ' ' && c <= '~'; };
    if (!exists()) {
        fail("missing, " + expected);
    }
    if (!is_text() || value_->text.empty() || value_->text.size() > max_length ||
        !std::ranges::all_of(value_->text, printable)) {
        fail(expected + ", found " + describe(*value_));
    }
    return value_->text;
}

std::string JsonReader::text_or(const std::string& fallback, size_t max_length) const {
    return exists() ? text(max_length) : fallback;
}

int64_t JsonReader::code(std::span<const NamedCode> names, int64_t low, int64_t high) const {
    std::string expected = "expected ";
    for (const NamedCode& named : names) {
        if (is_text() && value_->text == named.name) {
            return named.code;
        }
        expected += "\"" + std::string(named.name) + "\", ";
    }
    expected +=
        (!names.empty() ? "or " : "") + std::string("a whole number from ") + range_text(low, high);
    if (!exists()) {
        fail("missing, " + expected);
    }
    std::optional<int64_t> number;
    if (value_->kind == JsonValue::Kind::Number && value_->number <= INT64_MAX) {
        number = static_cast<int64_t>(value_->number);
    } else if (is_text()) {
        number = parse_integer(value_->text);  // hexadecimal, which JSON does not have
    }
    if (!number || *number < low || *number > high) {
        fail(expected + ", found " + describe(*value_));
    }
    return *number;
}

}  // namespace vextools
