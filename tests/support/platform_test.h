// Base of every unit-test fixture: a fresh fake platform and trace log before each test; after it,
// nothing may be left locked, open or allocated.
#ifndef TESTS_SUPPORT_PLATFORM_TEST_H
#define TESTS_SUPPORT_PLATFORM_TEST_H

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "internal/vexel_state.h"
#include "tests/support/fake_platform.h"
#include "tests/support/files.h"
#include "tests/support/rows.h"
#include "vexel.h"

using fake::AllocationScope;
using fake::Place;
using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;

class PlatformTest : public testing::Test {
  protected:
    PlatformTest();
    ~PlatformTest() override;

    // Derived fixtures end what they started (rtcache_Destroy and the like) in their own TearDown,
    // before the checks of the destructor.
    fake::Platform& platform = fake::platform();

    bool logged(int level, const std::string& message) const {
        return platform.logged(level, message);
    }
    // The messages of a function, or of files by the start of their names, since the last call:
    // "level message|" each.
    std::string lines_of(const std::string& place);

    // A name in a folder of this test's own.
    std::string path(const std::string& name) const { return folder_ / name; }
    // Makes the trace log write to path("vexel.log") in this test (by default it writes nowhere).
    static void use_log_file() { vexutils::log_state.file = vexutils::LogFile::Enabled; }

  private:
    TempDir folder_;
    std::string log_path_ = path("vexel.log");
    std::string backup_path_ = path("vexel.log.bak");
    long blocks_before_ = 0;
};

#endif  // TESTS_SUPPORT_PLATFORM_TEST_H
