#include "tests/support/platform_test.h"

PlatformTest::PlatformTest() {
    platform.reset();
    pRTLogPath = log_path_.c_str();
    pRTBakLogPath = backup_path_.c_str();
    vexutils::log_state.init = vexutils::LogInit::None;
    vexutils::log_state.file = vexutils::LogFile::Disabled;
    vexutils::log_state.depth = 0;
    vexutils::flag_paths = vexutils::FlagPaths{};
    blocks_before_ = fake::live_blocks();
}

PlatformTest::~PlatformTest() {
    EXPECT_EQ(platform.locks_held, 0) << "a lock is still held";
    EXPECT_EQ(platform.open_sessions(), 0) << "a backplane session is still open";
    EXPECT_EQ(platform.live_mutexes, 0) << "a mutex was not destroyed";
    EXPECT_EQ(platform.live_events, 0) << "an event was not destroyed";
    EXPECT_EQ(platform.live_lists, 0) << "a TLV list was not freed";
    EXPECT_EQ(fake::live_blocks(), blocks_before_) << "a block was not freed";
    platform.locks_held = platform.live_mutexes = platform.live_events = platform.live_lists = 0;
}

std::string PlatformTest::lines_of(const std::string& place) {
    std::string text;
    for (const fake::LogLine& line : platform.lines()) {
        if (line.text.starts_with(place) || line.function == place) {
            text += std::to_string(line.level) + " " + line.message + "|";
        }
    }
    platform.clear_lines();
    return text;
}
