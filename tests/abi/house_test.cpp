// The house rules that a script can check: which way includes point, guards, and words that stay
// out of the tree.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Source {
    std::string path;  // relative to the tree
    std::vector<std::string> includes;
    std::string text;
};

std::vector<Source> sources_below(const std::string& folder) {
    std::vector<Source> sources;
    static const std::regex kInclude{R"(^#include [<"]([^>"]+)[>"])"};
    for (const auto& entry : fs::recursive_directory_iterator{SOURCE_FOLDER "/" + folder}) {
        const std::string extension = entry.path().extension();
        if (extension != ".h" && extension != ".cpp") {
            continue;
        }
        Source source{fs::relative(entry.path(), SOURCE_FOLDER), {}, ""};
        std::ifstream file{entry.path()};
        for (std::string line; std::getline(file, line);) {
            source.text += line + '\n';
            std::smatch match;
            if (std::regex_search(line, match, kInclude)) {
                source.includes.push_back(match[1]);
            }
        }
        sources.push_back(source);
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
// A drive's bay and slot are asked of rt_shm by these two, and by no other source below it.
const std::set<std::string> kUpwards = {"vexutils/rt_cache/rt_cache_lookup.cpp",
                                        "vexutils/rt_cache/rt_cache_cmdstatus.cpp"};

bool is_foreign(const std::string& include) {
    return include.starts_with("nlohmann/") || include.starts_with("CLI/") ||
           include.starts_with("gtest/") || include.starts_with("tests/") ||
           include.starts_with("tools/");
}

TEST(House, TheLibraryIncludesDownwardsOnly) {
    for (const Source& source : sources_below("vexutils")) {
        SCOPED_TRACE(source.path);
        const std::string inside = source.path.substr(std::string{"vexutils/"}.size());
        const size_t slash = inside.find('/');
        const bool is_public = slash == std::string::npos;
        const std::string room = is_public ? "" : inside.substr(0, slash);
        const int height = is_public ? kHeight.at(inside) : kRoomHeight.at(room);
        for (const std::string& include : source.includes) {
            EXPECT_FALSE(is_foreign(include) || include.starts_with("linux/")) << include;
            if (const auto header = kHeight.find(include); header != kHeight.end()) {
                EXPECT_TRUE(header->second <= height || kUpwards.contains(source.path)) << include;
            } else if (include.ends_with(".h") && include.find('/') != std::string::npos) {
                const std::string owner = include.substr(0, include.find('/'));
                EXPECT_TRUE(!kRoomHeight.contains(owner) || owner == "internal" || owner == room)
                    << include << " is private to its room";
                EXPECT_FALSE(is_public && owner == "internal") << include;
            }
        }
    }
}

TEST(House, PlatformAndToolsStayOnTheirSide) {
    for (const Source& source : sources_below("platform")) {
        for (const std::string& include : source.includes) {
            EXPECT_FALSE(kHeight.contains(include) || include.starts_with("internal/"))
                << source.path << " includes " << include;
        }
    }
    // Files of the Linux platform that the tools write, read or show.
    const std::set<std::string> readers = {"bpapi_topology.h", "event_log.h", "json_lines.h",
                                           "os_support.h", "shm_admin.h"};
    for (const Source& source : sources_below("tools")) {
        for (const std::string& include : source.includes) {
            const std::string name = fs::path{include}.filename();
            EXPECT_TRUE(!fs::exists(SOURCE_FOLDER "/platform/linux/" + name) ||
                        readers.contains(name))
                << source.path << " includes " << include;
            EXPECT_FALSE(include.starts_with("internal/") ||
                         kRoomHeight.contains(include.substr(0, include.find('/'))))
                << source.path << " includes " << include;
        }
    }
}

TEST(House, HeadersAreGuardedByTheirName) {
    for (const char* folder : {"vexutils", "platform", "tools"}) {
        for (const Source& source : sources_below(folder)) {
            if (!source.path.ends_with(".h")) {
                continue;
            }
            std::string guard = source.path;
            for (const std::string prefix : {"platform/include/"}) {
                if (guard.starts_with(prefix)) {
                    guard.erase(0, prefix.size());
                }
            }
            std::transform(guard.begin(), guard.end(), guard.begin(), [](unsigned char c) {
                return c == '/' || c == '.' || c == '-' ? '_' : static_cast<char>(std::toupper(c));
            });
            EXPECT_NE(source.text.find("#ifndef " + guard + "\n"), std::string::npos)
                << source.path << " wants the guard " << guard;
        }
    }
}

TEST(House, TheLibraryKeepsOffWhatHarmsItsCallers) {
    // Tables of row pointers change type; bytes become records by memcpy only.
    static const std::regex kRecordCast{
        R"(reinterpret_cast<(?!(const )?(std::)?uint8_t\*>|(std::)?uintptr_t>|[^>]*\*\*>))"};
    for (const Source& source : sources_below("vexutils")) {
        if (source.path.ends_with(".cpp")) {
            EXPECT_FALSE(std::regex_search(source.text, kRecordCast)) << source.path;
            EXPECT_EQ(source.text.find("setlocale"), std::string::npos) << source.path;
            EXPECT_EQ(source.text.find("strtok"), std::string::npos) << source.path;
        }
    }
}

}  // namespace
