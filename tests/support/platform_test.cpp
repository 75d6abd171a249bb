#include "tests/support/platform_test.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "internal/vexel_state.h"
#include "vexel.h"

PlatformTest::PlatformTest() {
    platform.reset();
    std::string pattern = testing::TempDir() + "vexXXXXXX";
    folder_ = mkdtemp(pattern.data());
    log_path_ = path("vexel.log");
    backup_path_ = path("vexel.log.bak");
    pRTLogPath = log_path_.c_str();
    pRTBakLogPath = backup_path_.c_str();
    vexutils::log_state.init = vexutils::LogInit::None;
    vexutils::log_state.file = vexutils::LogFile::Disabled;
    vexutils::log_state.depth = 0;
    vexutils::flag_paths = vexutils::FlagPaths{};
    blocks_before_ = fake::live_blocks();
}

PlatformTest::~PlatformTest() {
    EXPECT_EQ(platform.locks_held(), 0) << "a lock is still held";
    EXPECT_EQ(platform.open_sessions(), 0) << "a backplane session is still open";
    EXPECT_EQ(platform.live_mutexes(), 0) << "a mutex was not destroyed";
    EXPECT_EQ(platform.live_events(), 0) << "an event was not destroyed";
    EXPECT_EQ(platform.live_lists(), 0) << "a TLV list was not freed";
    EXPECT_EQ(fake::live_blocks(), blocks_before_) << "a block was not freed";
    platform.held = platform.mutexes = platform.events = platform.lists = 0;
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

void PlatformTest::use_log_file() {
    vexutils::log_state.file = vexutils::LogFile::Enabled;
}

std::string PlatformTest::read_file(const std::string& path) const {
    std::ifstream file{path, std::ios::binary};
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

void PlatformTest::write_file(const std::string& path, const std::string& content) const {
    std::ofstream file{path, std::ios::binary};
    file << content;
    EXPECT_TRUE(file.good()) << path;
}
