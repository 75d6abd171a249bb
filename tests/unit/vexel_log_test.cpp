#include <gtest/gtest.h>

#include "internal/log.h"
#include "tests/support/platform_test.h"
#include "vexel.h"

using vexutils::Level;

namespace {

class TraceLog : public PlatformTest {};

int evaluated = 0;
int next() {
    return ++evaluated;
}

TEST_F(TraceLog, ALineReachesBothSinksWithItsArgumentsEvaluatedOnce) {
    use_log_file();
    evaluated = 0;
    errno = 77;
    LOG(Level::Trace, "%s%s %d", "--> enter", __func__, next());
    EXPECT_EQ(errno, 77);
    EXPECT_EQ(evaluated, 1);
    ASSERT_EQ(platform.lines().size(), 1u);
    EXPECT_EQ(platform.lines()[0].module, 15);
    EXPECT_EQ(platform.lines()[0].text.rfind("vexel_log_test.cpp:TestBody:", 0), 0u);
    EXPECT_TRUE(logged(4, "--> enterTestBody 1"));
    const std::string line = read_file(path("vexel.log"));
    unsigned thread, month, day, hour, minute, second;
    char rest[100] = "";
    ASSERT_EQ(sscanf(line.c_str(), "(T:%8X) %2u-%2u %2u:%2u:%2u [TestBody] %99[^\n]", &thread,
                     &month, &day, &hour, &minute, &second, rest),
              7)
        << line;
    EXPECT_STREQ(rest, "--> enterTestBody 1");
    EXPECT_EQ(line.back(), '\n');
}

}  // namespace
