#include "bpapi_state.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <vector>

#include <nlohmann/json.hpp>

#include "json_lines.h"
#include "os_support.h"
#include "platform/debug_log.h"

namespace vexplatform {
namespace {

constexpr uint64_t kFormat = 1;
constexpr uint64_t kLargestFile = 1 << 20;  // chosen: 65536 slots do not fit in a backplane
constexpr size_t kMostStates = 256 * 256;

struct States {
    uint64_t writes = 0;  // since the file was made
    std::vector<BpDriveStateWrite> drives;
};

BpDriveStateWrite parse_state(const JsonValue& value) {
    JsonFields fields{value, "drives"};
    const BpDriveStateWrite state{static_cast<uint8_t>(fields.number("bayId", 0, UINT8_MAX)),
                                  static_cast<uint8_t>(fields.number("slot", 0, UINT8_MAX)),
                                  static_cast<uint16_t>(fields.number("state", 0, UINT16_MAX))};
    fields.boolean("identify", false);
    fields.finish();
    return state;
}

States parse_states(const std::string& text) {
    const JsonValue root = parse_json(text);
    JsonFields fields{root, ""};
    fields.number("format", kFormat, kFormat);
    States states;
    states.writes = fields.number("writes", 0, UINT64_MAX);
    for (const JsonValue& item : fields.array("drives", kMostStates)) {
        states.drives.push_back(parse_state(item));
    }
    fields.finish();
    return states;
}

/*
 * Returns: 0, or an errno value when there is a file that cannot be read; damaged content counts as
 * none.
 */
int load(const std::string& path, States& states) {
    const auto text = read_file(path, kLargestFile);
    if (!text) {
        return errno == ENOENT ? 0 : errno;
    }
    try {
        states = parse_states(*text);
    } catch (const JsonError& error) {
        zentprintf(kLogWarning, kLogModule, "%s:%s: the drive states start anew\n", path.c_str(),
                   error.what());
    }
    return 0;
}

/* Replaces the file in one step. */
int save(const std::string& path, const States& states) {
    auto drives = nlohmann::ordered_json::array();
    for (const BpDriveStateWrite drive : states.drives) {
        const unsigned state = drive.driveState;
        drives.push_back({{"bayId", unsigned{drive.bayId}},
                          {"slot", unsigned{drive.slot}},
                          {"state", state},
                          {"identify", state == BPAPI_DRIVE_STATE_IDENTIFY}});
    }
    const nlohmann::ordered_json root{
        {"format", kFormat}, {"writes", states.writes}, {"drives", std::move(drives)}};
    const std::string fresh = path + ".new";
    const UniqueFd fd = open_regular(fresh, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (!fd) {
        return errno;
    }
    if (const int error = write_whole(fd.get(), root.dump(2) + '\n'); error != 0) {
        return error;
    }
    return rename(fresh.c_str(), path.c_str()) == 0 ? 0 : errno;
}

}  // namespace

int store_drive_state(const std::string& path, const BpDriveStateWrite& write) {
    const FileLock lock{path + ".lock"};
    States states;
    int error = lock.error();
    error = error != 0 ? error : load(path, states);
    if (error != 0) {
        return error;
    }
    const auto same = [&](const BpDriveStateWrite& s) {
        return s.bayId == write.bayId && s.slot == write.slot;
    };
    const auto found = std::find_if(states.drives.begin(), states.drives.end(), same);
    if (found != states.drives.end()) {
        *found = write;
    } else {
        states.drives.push_back(write);
    }
    ++states.writes;
    return save(path, states);
}

int drop_drive_states(const std::string& path,
                      const std::function<bool(uint8_t bay, uint8_t slot)>& gone) {
    const FileLock lock{path + ".lock"};
    States states;
    int error = lock.error();
    error = error != 0 ? error : load(path, states);
    if (error != 0) {
        return error;
    }
    const auto is_gone = [&](const BpDriveStateWrite& s) { return gone(s.bayId, s.slot); };
    return std::erase_if(states.drives, is_gone) > 0 ? save(path, states) : 0;
}

}  // namespace vexplatform
