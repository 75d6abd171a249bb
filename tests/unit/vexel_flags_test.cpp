#include "internal/vexel_state.h"
#include "tests/support/platform_test.h"

namespace {

class Flags : public PlatformTest {
  protected:
    Flags() {
        vexutils::FlagPaths& flags = vexutils::flag_paths;
        flags.hba_disabled = flags.tavi_disabled = flag_.c_str();
        flags.tavi_poll = flags.dump_request = flag_.c_str();
    }
    const std::string flag_ = path("flag");
};

TEST_F(Flags, AFileSwitchesTheInventoryOffAndGrantsOneDump) {
    for (const unsigned off : {1u, 0u}) {
        EXPECT_EQ(IsvexelHBAInventoryDisabled(), off) << "0 while the file exists";
        EXPECT_EQ(IsvexelTAVIInventoryDisabled(), off);
        EXPECT_EQ(IsDumpEnabled(), 1 - off);
        write_file(flag_, "");
    }
    EXPECT_EQ(IsDumpEnabled(), 1u);
    EXPECT_EQ(IsDumpEnabled(), 0u) << "taken back when granted";
}

TEST_F(Flags, ThePollingFileGivesTwoNumbersOrNone) {
    int first = 8, second = 9;
    EXPECT_EQ(IsstressTAVIPollEnabled(&first, &second), 0u);
    write_file(flag_, "2 7");
    EXPECT_EQ(IsstressTAVIPollEnabled(&first, &second), 1u);
    EXPECT_EQ(10 * first + second, 27);
    write_file(flag_, "5");
    EXPECT_EQ(IsstressTAVIPollEnabled(&first, &second), 1u);
    EXPECT_EQ(10 * first + second, 3);
}

TEST_F(Flags, SleepsUntilTheCallbackSaysStop) {
    static int calls_left = 2;
    vexel_sleep(0, 5, [] { return --calls_left; });
    EXPECT_EQ(calls_left, 0) << "stopped after the call that returned 0";
}

}  // namespace
