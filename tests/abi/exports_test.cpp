// The export list three times: what the public headers declare, what the map names, what the binary
// exports.
#include <cstdio>
#include <regex>
#include <set>
#include <sstream>
#include <string>

#include "tests/support/files.h"

namespace {

using Names = std::set<std::string>;

std::string output_of(const std::string& command) {
    FILE* pipe = popen(command.c_str(), "r");
    std::string output;
    char part[4096];
    size_t length = 0;
    while (pipe != nullptr && (length = fread(part, 1, sizeof(part), pipe)) > 0) {
        output.append(part, length);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return output;
}

std::string without_comments(const std::string& text) {
    std::string result;
    for (size_t at = 0; at < text.size();) {
        if (text.compare(at, 2, "/*") == 0) {
            at = text.find("*/", at) + 2;
        } else if (text[at] == '#' && (at == 0 || text[at - 1] == '\n')) {
            while (at < text.size() && text[at] != '\n') {
                at += text[at] == '\\' ? 2u : 1u;
            }
        } else {
            result += text[at++];
        }
    }
    return result;
}

// Name declared by one statement of a header; empty for types and assertions.
std::string declared_name(std::string statement) {
    statement = std::regex_replace(statement, std::regex{R"(__attribute__\s*\(\(.*\)\))"}, "");
    statement = std::regex_replace(statement, std::regex{R"(\s+)"}, " ");
    statement.erase(0, statement.find_first_not_of(' '));
    static const std::regex kFunction{
        R"(^(?!typedef|static_assert|struct \w+ \{|enum)[^({]*?(\w+) ?\()"};
    static const std::regex kVariable{R"(^extern [^({]*?(\w+) ?(?:\[[^\]]*\])*$)"};
    std::smatch match;
    if (std::regex_search(statement, match, kVariable) ||
        std::regex_search(statement, match, kFunction)) {
        return match[1];
    }
    return "";
}

Names declared_in(const std::filesystem::path& header) {
    std::string text = without_comments(file_content(header));
    text = std::regex_replace(text, std::regex{R"(extern "C" \{)"}, "");
    Names names;
    std::string statement;
    int depth = 0;
    for (const char character : text) {
        depth += character == '{' ? 1 : character == '}' ? -1 : 0;
        if (character != ';' || depth > 0) {
            statement += character;
            continue;
        }
        depth = 0;  // the brace that closes extern "C" opens nothing
        if (const std::string name = declared_name(statement); !name.empty()) {
            names.insert(name);
        }
        statement.clear();
    }
    return names;
}

Names declared() {
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator{SOURCE_FOLDER "/vexutils"}) {
        if (entry.path().extension() == ".h") {
            names.merge(declared_in(entry.path()));
        }
    }
    return names;
}

Names mapped() {
    const std::string map = file_content(SOURCE_FOLDER "/vexutils/libvexutils.map");
    static const std::regex kName{R"(\n +(\w+);)"};
    Names names;
    for (std::sregex_iterator match{map.begin(), map.end(), kName}, end; match != end; ++match) {
        EXPECT_TRUE(names.insert((*match)[1]).second) << (*match)[1] << " stands twice in the map";
    }
    return names;
}

Names exported() {
    std::istringstream lines{output_of(NM " -D --defined-only --format=posix " LIBRARY)};
    Names names;
    for (std::string line; std::getline(lines, line);) {
        const std::string name = line.substr(0, line.find_first_of("@ "));
        if (name != "VEXUTILS_1") {
            names.insert(name);
        }
    }
    return names;
}

void expect_same(const Names& left, const char* left_is, const Names& right, const char* right_is) {
    for (const std::string& name : left) {
        EXPECT_TRUE(right.contains(name)) << name << " is " << left_is << " but not " << right_is;
    }
    for (const std::string& name : right) {
        EXPECT_TRUE(left.contains(name)) << name << " is " << right_is << " but not " << left_is;
    }
}

TEST(Exports, HeadersMapAndBinaryAgree) {
    const Names in_headers = declared();
    ASSERT_GT(in_headers.size(), 20u);
    EXPECT_TRUE(in_headers.contains("pRTLogPath"));
    EXPECT_TRUE(in_headers.contains("rtcache_GetCachedObject"));
    expect_same(in_headers, "declared in a header", mapped(), "named in the map");
    expect_same(in_headers, "declared in a header", exported(), "exported by the binary");
}

TEST(Exports, NoCodeOfOursRunsBeforeMain) {
    std::istringstream lines{output_of(NM " " LIBRARY)};
    for (std::string line; std::getline(lines, line);) {
        if (const size_t at = line.find("_GLOBAL__sub_I"); at != std::string::npos) {
            // The sanitizers' own constructors carry a priority.
            EXPECT_EQ(line.compare(at, 22, "_GLOBAL__sub_I_00099_0"), 0)
                << line << " initialises globals";
        }
    }
    if (output_of(NM " -D " LIBRARY).find("__asan_init") == std::string::npos) {
        const std::string section =
            output_of(READELF " -SW " LIBRARY " | sed -n 's/.*\\.init_array *INIT_ARRAY *//p'");
        unsigned address = 0, offset = 0, size = 0;
        ASSERT_EQ(sscanf(section.c_str(), "%x %x %x", &address, &offset, &size), 3) << section;
        EXPECT_EQ(size, sizeof(void*)) << "more than the compiler's entry";
    }
}

TEST(Exports, TheBinaryNamesItselfAndNeedsLittle) {
    const std::string dynamic = output_of(READELF " -dW " LIBRARY);
    EXPECT_NE(dynamic.find("soname: [libvexutils.so.1]"), std::string::npos);
    EXPECT_NE(dynamic.find("BIND_NOW"), std::string::npos);
    EXPECT_EQ(dynamic.find("TEXTREL"), std::string::npos);
    const std::string undefined = output_of(NM " -D --undefined-only " LIBRARY);
    for (const char* runtime : {"__cxa_throw", "_Unwind", "_Znw", "_Zna", "__cxa_guard"}) {
        EXPECT_EQ(undefined.find(runtime), std::string::npos) << runtime;
    }
}

}  // namespace
