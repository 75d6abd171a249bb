// A fixture whose trace lines go nowhere: neither sink then orders the threads that log.
#ifndef TESTS_THREADS_QUIET_LOG_H
#define TESTS_THREADS_QUIET_LOG_H

#include "internal/vexel_state.h"
#include "tests/support/linux_test.h"

class QuietLog : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        setenv("VEX_DEBUG_LOG", "none", 1);
        vexutils::log_state.file = vexutils::LogFile::Disabled;
    }
};

#endif  // TESTS_THREADS_QUIET_LOG_H
