#include "support/backplane_state.h"

#include <filesystem>
#include <limits>

#include "support/json_reader.h"

namespace vextools {

std::map<DrivePlace, int64_t> read_drive_states(const std::string& path) {
    std::map<DrivePlace, int64_t> states;
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) {
        return states;
    }
    const JsonReader root(path, std::make_shared<const JsonValue>(load_json(path)));
    for (const JsonReader& drive : root["drives"].items()) {
        constexpr int64_t kByte = std::numeric_limits<uint8_t>::max();
        const DrivePlace place{drive["bayId"].integer(0, kByte), drive["slot"].integer(0, kByte)};
        states[place] = drive["state"].integer(0, std::numeric_limits<uint16_t>::max());
    }
    return states;
}

}  // namespace vextools
