#include "vexinspect/daemon_state.h"

#include <filesystem>

#include "platform/bpapi.h"
#include "support/json_reader.h"

namespace vexinspect {

namespace {

constexpr int64_t kMaxByte = 255;

}  // namespace

bool DaemonState::blinks(const vextools::DrivePlace& place) const {
    const auto found = written.find(place);
    return found != written.end() && found->second == BPAPI_DRIVE_STATE_IDENTIFY;
}

DaemonState read_daemon_state(const std::string& folder) {
    DaemonState state;
    if (folder.empty()) {
        return state;
    }
    state.written = vextools::read_drive_states(folder + "/backplane.json");
    const std::string path = folder + "/endpoints.json";
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored)) {
        return state;
    }
    const vextools::JsonReader root(
        path, std::make_shared<const vextools::JsonValue>(vextools::load_json(path)));
    for (const vextools::JsonReader& endpoint : root["endpoints"].items()) {
        if (endpoint["bay"].exists()) {
            const vextools::DrivePlace place{endpoint["bay"].integer(0, kMaxByte),
                                             endpoint["slot"].integer(0, kMaxByte)};
            state.eids[place] = endpoint["eid"].integer(0, kMaxByte);
        }
    }
    return state;
}

}  // namespace vexinspect
