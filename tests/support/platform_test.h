// Base of every unit-test fixture: a fresh fake platform and trace log before each test; after it,
// nothing may be left locked, open or allocated.
#ifndef TESTS_SUPPORT_PLATFORM_TEST_H
#define TESTS_SUPPORT_PLATFORM_TEST_H

#include <gtest/gtest.h>

#include <string>

#include "tests/support/fake_platform.h"

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

    // A folder of this test's own, removed afterwards.
    const std::string& folder() const { return folder_; }
    std::string path(const std::string& name) const { return folder_ + "/" + name; }
    // Makes the trace log write to path("vexel.log") in this test (by default it writes nowhere).
    void use_log_file();
    std::string read_file(const std::string& path) const;
    void write_file(const std::string& path, const std::string& content) const;

  private:
    std::string folder_;
    std::string log_path_;
    std::string backup_path_;
    long blocks_before_ = 0;
};

#endif  // TESTS_SUPPORT_PLATFORM_TEST_H
