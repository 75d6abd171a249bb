#include "platform/debug_log.h"
#include "tests/support/linux_test.h"

namespace {

// What a child writes to standard error when its log is configured so.
template <typename Body>
std::string written(const char* sink, const char* level, Body body) {
    const TempDir dir;
    EXPECT_TRUE(succeeded(in_child([&] {
        const bool redirected = freopen((dir / "stderr").c_str(), "w", stderr) != nullptr;
        sink != nullptr ? setenv("VEX_DEBUG_LOG", sink, 1) : unsetenv("VEX_DEBUG_LOG");
        level != nullptr ? setenv("VEX_DEBUG_LEVEL", level, 1) : unsetenv("VEX_DEBUG_LEVEL");
        body();
        return redirected;
    })));
    return file_content(dir / "stderr");
}

TEST(DebugLog, LetsTheConfiguredLevelsPassToTheConfiguredSink) {
    for (const auto& [what, sink, row_level, passed] :
         Rows<const char*, const char*, const char*, const char*>{
             {"default level", "stderr", nullptr, "1\n2\n"},
             {"level of its own", "stderr", "4", "1\n2\n3\n4\n"},
             {"nothing", "stderr", "0", ""},
             {"a level that is none is the default", "stderr", "4x", "1\n2\n"},
             {"no sink", "none", "6", ""},
             {"the system log is the default", nullptr, "6", ""}}) {
        EXPECT_EQ(written(sink, row_level,
                          [] {
                              for (int level = 1; level <= 6; ++level) {
                                  zentprintf(level, 15, "%d\n", level);
                              }
                          }),
                  passed);
    }
}

TEST(DebugLog, KeepsTheNewlineOfWhatItCutsOrCannotConvert) {
    const std::string text = written("stderr", "2", [] {
        zentprintf(1, 15, "name=%ls.\n", L"\u00e9\u4e2d");  // no such characters in the "C" locale
        zentprintf(1, 15, "plain=%ls.\n", L"abc");
        zentprintf(1, 15, "%s\n", std::string(5000, 'x').c_str());
    });
    EXPECT_TRUE(text.starts_with("name=?\nplain=abc.\nxxx")) << text;
    EXPECT_GE(text.size(), 1024u);
    EXPECT_LT(text.size(), 5000u);
    EXPECT_TRUE(text.ends_with("x\n"));
}

}  // namespace
