// JSON files of the tools: read with the line of every value, as the platform reads its own, and
// written again.
#ifndef TOOLS_SUPPORT_JSON_FILE_H
#define TOOLS_SUPPORT_JSON_FILE_H

#include <string>

#include "platform/linux/json_lines.h"

namespace vextools {

using vexplatform::JsonValue;

// Reads a whole file. Throws InputError if it cannot.
std::string read_text_file(const std::string& path);

// Reads and parses a file. Throws InputError.
JsonValue load_json(const std::string& path);

// The member of an object, null if there is none.
const JsonValue* find_member(const JsonValue& object, const std::string& name);
JsonValue* find_member(JsonValue& object, const std::string& name);

// The document as text, two blanks a level, ended by a newline.
std::string to_json_text(const JsonValue& value);

}  // namespace vextools

#endif  // TOOLS_SUPPORT_JSON_FILE_H
