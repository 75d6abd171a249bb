#include <unistd.h>

#include "internal/vexel_state.h"
#include "rt_shm.h"
#include "tests/support/platform_test.h"

namespace {

class Simulation : public PlatformTest {
  protected:
    Simulation() {
        vexutils::flag_paths.ssd_status = status_file.c_str();
        vexutils::flag_paths.ssd_fru = fru_file.c_str();
    }
    const std::string status_file = path("ssdstatus.txt"), fru_file = path("ssdfru.bin");
};

TEST_F(Simulation, StatusLinesSetTheirSlotsUpToTheLastWholeOne) {
    const std::string good = "0 1\n31 0xFFFF\r\n\n  7\tabcd  \n7 12\n";
    const std::string bad = "32 1\n-1 1\n1\n1 \n1 10000\n1 2 3\n1 0x\nx 1\n300 1\n0x1 1\n5 z\n";
    const std::string empty(4090 - good.size() - bad.size(), '\n');
    write_file(status_file, good + bad + empty + "4 12345");  // cut behind "4 1234"
    Bytes expected = platform.region(20);
    expected[144] = 1;
    expected[144 + 4 * 31] = expected[145 + 4 * 31] = 0xFF;
    expected[144 + 4 * 7] = 0x12;
    expected[10] = 1;
    EXPECT_EQ(RTSHM_SimulatePCIeSSD(), 0u);
    EXPECT_EQ(platform.region(20), expected);
}

TEST_F(Simulation, ImagesBecomeTheFrusOfDrivesAndLinksAreNotFollowed) {
    write_file(fru_file, std::string(36 * 512, 'A') + "more");
    write_file(path("real"), "1 1\n");
    EXPECT_EQ(symlink(path("real").c_str(), status_file.c_str()), 0);
    EXPECT_EQ(RTSHM_SimulatePCIeSSD(), 0u);
    EXPECT_EQ(platform.region(20)[10], 0) << "no status has changed";
    const auto last = platform.region(26).begin() + 4 + 520 * 35;
    EXPECT_EQ(Bytes(last + 1, last + 4), (Bytes{0xFF, 0xFF, 1})) << "behind the 32 positions";
    EXPECT_EQ(last[519], 'A');
    EXPECT_EQ(platform.messages(3).size(), 1u) << "the rest is skipped";
}

}  // namespace
