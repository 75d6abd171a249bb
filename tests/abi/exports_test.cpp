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
    const TempDir dir;
    EXPECT_EQ(std::system((command + " >" + dir / "output").c_str()), 0) << command;
    return file_content(dir / "output");
}

Names matches(const std::string& text, const char* pattern) {
    const std::regex expression{pattern};
    Names names;
    for (std::sregex_iterator match{text.begin(), text.end(), expression}, end; match != end;
         ++match) {
        EXPECT_TRUE(names.insert((*match)[1]).second) << (*match)[1] << " stands there twice";
    }
    return names;
}

// A declaration starts its line, which nothing else does that has a ")" or "]" or name before ";".
Names declared() {
    std::string text;
    for (const auto& entry : std::filesystem::directory_iterator{SOURCE_FOLDER "/vexutils"}) {
        text += entry.path().extension() == ".h" ? file_content(entry.path()) : "";
    }
    Names names = matches(text, R"(\nextern [^"(;]*?(\w+)(?:\[[^;]*\])?;)");
    names.merge(matches(text, R"(\n(?!typedef|static_assert|extern)\w[^;{}()#=]*?(\w+)\()"));
    return names;
}

Names mapped() {
    return matches(file_content(SOURCE_FOLDER "/vexutils/libvexutils.map"), R"(\n +(\w+);)");
}

Names exported() {
    Names names = matches(output_of(NM " -D --defined-only --format=posix " LIBRARY),
                          R"((\w+)@?\S* [^\n]*\n)");
    names.erase("VEXUTILS_1");
    return names;
}

void expect_in(const Names& names, const Names& others, const char* what) {
    for (const std::string& name : names) {
        EXPECT_TRUE(others.contains(name)) << name << " is " << what;
    }
}

TEST(Exports, HeadersMapAndBinaryAgree) {
    const Names in_headers = declared();
    EXPECT_GT(in_headers.size(), 100u);
    expect_in(in_headers, mapped(), "declared, but not named in the map");
    expect_in(mapped(), exported(), "named in the map, but not exported");
    expect_in(exported(), in_headers, "exported, but not declared in a header");
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
    for (const char* harmful :
         {"__cxa_throw", "_Unwind", "_Znw", "_Zna", "__cxa_guard", "setlocale", "strtok"}) {
        EXPECT_EQ(undefined.find(harmful), std::string::npos) << harmful;
    }
}

}  // namespace
