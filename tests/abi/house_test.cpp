// The house rule that a script can check: which way includes point.
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "tests/support/files.h"

namespace {

namespace fs = std::filesystem;

using Names = std::set<std::string>;

struct Source {
    std::string path;  // relative to the tree
    std::vector<std::string> includes;
};

std::vector<Source> sources_below(const std::string& folder) {
    std::vector<Source> sources;
    static const std::regex kInclude{R"(\n#include [<"]([^>"]+)[>"])"};
    for (const auto& entry : fs::recursive_directory_iterator{SOURCE_FOLDER "/" + folder}) {
        if (entry.path().extension() == ".h" || entry.path().extension() == ".cpp") {
            const std::string text = "\n" + file_content(entry.path());
            const std::sregex_token_iterator first{text.begin(), text.end(), kInclude, 1}, end;
            sources.push_back({fs::relative(entry.path(), SOURCE_FOLDER), {first, end}});
        }
    }
    EXPECT_FALSE(sources.empty()) << folder;
    return sources;
}

// Height of each public header's area; a source includes what is at its own height or below.
const std::map<std::string, int> kHeight = {
    {"vexel.h", 0},       {"rt_sync.h", 1},       {"rt_dup.h", 1},
    {"notifQue.h", 1},    {"rt_evtq.h", 1},       {"rt_cache.h", 2},
    {"rt_lclogwrp.h", 3}, {"rt_shm_layout.h", 4}, {"rt_shm.h", 4}};
const std::map<std::string, int> kRoomHeight = {{"internal", 2},    {"vexel", 0},  {"rt_sync", 1},
                                                {"rt_dup", 1},      {"queues", 1}, {"rt_cache", 2},
                                                {"rt_lclogwrp", 3}, {"rt_shm", 4}};
// A drive's bay and slot are asked of rt_shm by these two, and by no other source below it. The
// third is about the locks of all headers, and no source includes it.
const Names kUpwards = {"vexutils/rt_cache/rt_cache_lookup.cpp",
                        "vexutils/rt_cache/rt_cache_cmdstatus.cpp",
                        "vexutils/internal/lock_contract.h"};

// First folder of a path, or nothing.
std::string room_of(const std::string& path) {
    const size_t slash = path.find('/');
    return slash == std::string::npos ? "" : path.substr(0, slash);
}

TEST(House, TheLibraryIncludesDownwardsOnly) {
    const Names foreign = {"nlohmann", "CLI", "gtest", "tests", "tools", "linux"};
    for (const Source& source : sources_below("vexutils")) {
        const std::string inside = source.path.substr(std::string{"vexutils/"}.size());
        const std::string room = room_of(inside);
        const int height = room.empty() ? kHeight.at(inside) : kRoomHeight.at(room);
        for (const std::string& include : source.includes) {
            SCOPED_TRACE(source.path + " includes " + include);
            const std::string owner = room_of(include);
            EXPECT_FALSE(foreign.contains(owner));
            if (const auto header = kHeight.find(include); header != kHeight.end()) {
                EXPECT_TRUE(header->second <= height || kUpwards.contains(source.path));
            } else if (kRoomHeight.contains(owner)) {
                EXPECT_TRUE(owner == room || (owner == "internal" && !room.empty())) << "private";
            }
        }
    }
}

TEST(House, PlatformAndToolsStayOnTheirSide) {
    // Files of the Linux platform that the tools write, read or show.
    const Names shared = {"bpapi_topology.h", "event_log.h", "json_lines.h", "os_support.h",
                          "shm_admin.h"};
    for (const std::string folder : {"platform", "tools"}) {
        for (const Source& source : sources_below(folder)) {
            for (const std::string& include : source.includes) {
                SCOPED_TRACE(source.path + " includes " + include);
                EXPECT_FALSE(kRoomHeight.contains(room_of(include)));
                const std::string name = fs::path{include}.filename();
                const bool of_platform = fs::exists(SOURCE_FOLDER "/platform/linux/" + name);
                EXPECT_TRUE(folder == "tools" ? !of_platform || shared.contains(name)
                                              : !kHeight.contains(include));
            }
        }
    }
}

}  // namespace
