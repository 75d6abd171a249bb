// A fixture whose trace lines go nowhere: neither sink then orders the threads that log.
#ifndef TESTS_THREADS_QUIET_LOG_H
#define TESTS_THREADS_QUIET_LOG_H

#include <cstdlib>

#include "internal/vexel_state.h"
#include "tests/support/linux_test.h"

// How much is done; VEX_TEST_EVENTS asks for more than a test run can wait for.
inline const unsigned kEvents = [] {
    const char* asked = std::getenv("VEX_TEST_EVENTS");
    return asked != nullptr ? static_cast<unsigned>(std::atoi(asked)) : VEX_THREAD_TEST_EVENTS;
}();

class QuietLog : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        setenv("VEX_DEBUG_LOG", "none", 1);
        vexutils::log_state.file = vexutils::LogFile::Disabled;
    }
};

#endif  // TESTS_THREADS_QUIET_LOG_H
