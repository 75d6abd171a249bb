/*
 * json_lines.h - JSON files that people write: every value knows its line, and every complaint
 * names line and field.
 */
#ifndef PLATFORM_LINUX_JSON_LINES_H
#define PLATFORM_LINUX_JSON_LINES_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vexplatform {

/* What is wrong with a file: "LINE: FIELD: expected ..." or "LINE: ...". */
class JsonError : public std::runtime_error {
  public:
    JsonError(unsigned line, const std::string& field, const std::string& text)
        : std::runtime_error(std::to_string(line) + ": " + (field.empty() ? "" : field + ": ") +
                             text) {}
};

struct JsonMember;

struct JsonValue {
    enum class Kind { Null, Bool, Number, OtherNumber, Text, Array, Object };

    Kind kind = Kind::Null;
    unsigned line = 0;
    bool boolean = false;
    uint64_t number = 0;  // of Kind::Number; a negative or broken number is Kind::OtherNumber
    double other_number = 0;
    std::string text;
    std::vector<JsonValue> items;
    std::vector<JsonMember> members;
};

struct JsonMember {
    std::string name;
    JsonValue value;
};

/* Throws: JsonError for bad syntax, a member given twice or nesting deeper than 16. */
JsonValue parse_json(const std::string& text);

/*
 * Takes an object apart. Each getter takes one member out; finish() complains about those that
 * nobody took. All of them throw JsonError.
 */
class JsonFields {
  public:
    /* path: the object's place in the file, "" at the top. object: outlives this. */
    JsonFields(const JsonValue& object, std::string path);

    /* A whole number from low to high. Without a fallback the member must be there. */
    uint64_t number(const char* name, uint64_t low, uint64_t high,
                    std::optional<uint64_t> fallback = std::nullopt);
    bool boolean(const char* name, bool fallback);
    std::string text(const char* name, const char* fallback);
    /* The items of an array of at most limit, empty if the member is not there. */
    const std::vector<JsonValue>& array(const char* name, size_t limit);
    /* The member, null if it is not there. */
    const JsonValue* take(const char* name);

    void finish() const;
    [[noreturn]] void complain(const char* name, const std::string& text) const;
    std::string path_of(const char* name) const;

  private:
    const JsonValue& object_;
    std::string path_;
    std::vector<const JsonValue*> taken_;
};

/* The number of an array's item, or JsonError: "FIELD[i]: expected ...". */
uint64_t json_item_number(const JsonValue& item, const std::string& field, uint64_t low,
                          uint64_t high);

}  // namespace vexplatform

#endif /* PLATFORM_LINUX_JSON_LINES_H */
