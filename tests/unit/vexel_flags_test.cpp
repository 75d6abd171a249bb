#include <signal.h>

#include <chrono>

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

TEST_F(Flags, InventorySwitchesAreZeroWhileTheirFileExists) {
    const vexutils::FlagPaths defaults;
    EXPECT_STREQ(defaults.hba_disabled, "/flash/data0/oem_ps/vexel_sashba_disabled");
    EXPECT_STREQ(defaults.tavi_disabled, "/flash/data0/oem_ps/vexel_tavi_disabled");
    for (const auto test : {IsvexelHBAInventoryDisabled, IsvexelTAVIInventoryDisabled}) {
        EXPECT_EQ(test(), 1u);
        write_file(flag_, "");
        EXPECT_EQ(test(), 0u);
        remove(flag_.c_str());
        EXPECT_EQ(test(), 1u) << "nothing is remembered";
    }
}

TEST_F(Flags, ThePollingFileGivesTwoNumbersOrNone) {
    int first = 8;
    int second = 9;
    EXPECT_EQ(IsstressTAVIPollEnabled(&first, &second), 0u);
    EXPECT_EQ(first, 8);
    EXPECT_EQ(second, 9);
    for (const auto& [content, row_first, row_second] : Rows<const char*, int, int>{
             {"2 7", 2, 7}, {"-1\n+12 rest", -1, 12}, {"5", 0, 3}, {"5 x", 0, 3}, {"", 0, 3}}) {
        write_file(flag_, content);
        EXPECT_EQ(IsstressTAVIPollEnabled(&first, &second), 1u);
        EXPECT_EQ(first, row_first);
        EXPECT_EQ(second, row_second);
    }
}

TEST_F(Flags, ADumpIsGrantedOncePerRequest) {
    EXPECT_EQ(IsDumpEnabled(), 0u);
    write_file(flag_, "");
    EXPECT_EQ(IsDumpEnabled(), 1u);
    EXPECT_EQ(IsDumpEnabled(), 0u);
}

int calls_left = 0;
int count_down() {
    return --calls_left;
}

TEST_F(Flags, SleepsUntilTheCallbackSaysStop) {
    calls_left = 2;
    vexel_sleep(0, 5, count_down);
    EXPECT_EQ(calls_left, 0) << "stopped after the call that returned 0";
    calls_left = 9;
    vexel_sleep(0, 3, count_down);
    EXPECT_EQ(calls_left, 6);
    vexel_sleep(3600, 0, count_down);
    EXPECT_EQ(calls_left, 6);
}

TEST_F(Flags, ASignalDoesNotShortenASleep) {
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, &before);
    const auto start = std::chrono::steady_clock::now();
    std::thread sleeper{[] { vexel_sleep(1, 1, nullptr); }};
    for (int i = 0; i < 3; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds{50});
        pthread_kill(sleeper.native_handle(), SIGUSR1);
    }
    sleeper.join();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds{990});
    sigaction(SIGUSR1, &before, nullptr);
}

}  // namespace
