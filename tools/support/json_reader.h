// A view of one field of a parsed file. Reading a field checks it, and a field that is not what its
// reader expects ends the reading with an InputError that names file, line and field.
#ifndef TOOLS_SUPPORT_JSON_READER_H
#define TOOLS_SUPPORT_JSON_READER_H

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "support/codes.h"
#include "support/json_file.h"

namespace vextools {

class JsonReader {
  public:
    // The whole document; it stays alive as long as a view of it.
    JsonReader(std::string file, std::shared_ptr<const JsonValue> document);

    // Is the field there, and not null?
    bool exists() const { return value_ != nullptr && value_->kind != JsonValue::Kind::Null; }
    const std::string& file() const { return *file_; }
    // The value itself; the field exists.
    const JsonValue& value() const { return *value_; }

    [[noreturn]] void fail(const std::string& expected) const;

    // The member of an object. It need not exist.
    JsonReader operator[](const std::string& name) const;
    // The elements of a list; none if the field does not exist.
    std::vector<JsonReader> items() const;

    // Checks that the field is an object without members of other names.
    void expect_object(std::initializer_list<const char*> names) const;
    // Names of an object's members.
    std::vector<std::string> member_names() const;

    int64_t integer(int64_t low, int64_t high) const;
    int64_t integer_or(int64_t fallback, int64_t low, int64_t high) const;
    double number(double low, double high) const;
    bool boolean_or(bool fallback) const;
    // Printable ASCII text of 1 to max_length bytes.
    std::string text(size_t max_length) const;
    std::string text_or(const std::string& fallback, size_t max_length) const;
    // One of the names, or a number from low to high.
    int64_t code(std::span<const NamedCode> names, int64_t low, int64_t high) const;

    bool is_text() const { return exists() && value_->kind == JsonValue::Kind::Text; }
    bool is_object() const { return exists() && value_->kind == JsonValue::Kind::Object; }
    bool is_array() const { return exists() && value_->kind == JsonValue::Kind::Array; }

  private:
    JsonReader(const JsonReader& parent, const JsonValue* value, std::string path);

    std::shared_ptr<const std::string> file_;
    std::shared_ptr<const JsonValue> document_;
    const JsonValue* value_;
    unsigned line_;
    std::string path_;
};

// A whole number as text, decimal or with 0x. Returns: none for anything else.
std::optional<int64_t> parse_integer(const std::string& text);

}  // namespace vextools

#endif  // TOOLS_SUPPORT_JSON_READER_H
