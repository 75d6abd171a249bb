#include "support/json_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <utility>

#include "support/input_error.h"

namespace vextools {

namespace {

using Kind = JsonValue::Kind;

constexpr size_t kMaxFileBytes = 64u << 20u;  // chosen: a thousand times the shipped scenario

nlohmann::ordered_json to_json(const JsonValue& value) {
    switch (value.kind) {
        case Kind::Null:
            return nullptr;
        case Kind::Bool:
            return value.boolean;
        case Kind::Number:
            return value.number;
        case Kind::OtherNumber:
            return value.other_number;
        case Kind::Text:
            return value.text;
        case Kind::Array: {
            auto list = nlohmann::ordered_json::array();
            for (const JsonValue& item : value.items) {
                list.push_back(to_json(item));
            }
            return list;
        }
        case Kind::Object:
            break;
    }
    auto object = nlohmann::ordered_json::object();
    for (const auto& [name, member] : value.members) {
        object[name] = to_json(member);
    }
    return object;
}

}  // namespace

std::string read_text_file(const std::string& path) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "re"),
                                                               &std::fclose);
    if (!file) {
        throw InputError(path, std::string("cannot be opened: ") + std::strerror(errno));
    }
    std::string content;
    char block[4096];
    size_t count = 0;
    while ((count = std::fread(block, 1, sizeof(block), file.get())) > 0) {
        content.append(block, count);
        if (content.size() > kMaxFileBytes) {
            throw InputError(path, "expected a file of at most 64 MiB");
        }
    }
    if (std::ferror(file.get()) != 0) {
        throw InputError(path, std::string("cannot be read: ") + std::strerror(errno));
    }
    return content;
}

JsonValue load_json(const std::string& path) {
    const std::string text = read_text_file(path);
    try {
        return vexplatform::parse_json(text);
    } catch (const vexplatform::JsonError& error) {
        throw InputError(path, error);
    }
}

const JsonValue* find_member(const JsonValue& object, const std::string& name) {
    const auto found = std::ranges::find(object.members, name, &vexplatform::JsonMember::name);
    return found == object.members.end() ? nullptr : &found->value;
}

JsonValue* find_member(JsonValue& object, const std::string& name) {
    return const_cast<JsonValue*>(find_member(std::as_const(object), name));
}

std::string to_json_text(const JsonValue& value) {
    constexpr int kIndent = 2;
    return to_json(value).dump(kIndent) + "\n";
}

}  // namespace vextools
