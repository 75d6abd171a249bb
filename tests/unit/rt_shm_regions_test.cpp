#include <unistd.h>

#include "rt_shm.h"
#include "tests/support/platform_test.h"

namespace {

class Regions : public PlatformTest {
  protected:
    Bytes& inventory = platform.region(3);
};

TEST_F(Regions, StartMarksSectionsAsNotInventoried) {
    std::ranges::fill(inventory, 0x5A);
    g_IsTapeDrivePresent = TAPE_PRESENT;
    RTSHM_InitPartialSharedMem();
    Bytes expected(23706, 0xFF);
    std::fill_n(expected.begin() + 23678, 28, uint8_t{0x5A});
    EXPECT_EQ(inventory, expected);
    RTSHM_InitSharedMem();
    std::fill_n(expected.begin() + 23678, 24, uint8_t{0xFF});
    std::fill_n(expected.begin() + 23702, 4, uint8_t{0});
    EXPECT_EQ(inventory, expected);
    EXPECT_EQ(g_IsTapeDrivePresent, TAPE_UNKNOWN);
    EXPECT_EQ(RTSHM_InitTBUSharedMem(1), 0);
    EXPECT_EQ(Bytes(inventory.end() - 4, inventory.end()), (Bytes{1, 0, 0, 0}));
    RTSHM_InitPCIeSSDSharedMem();
    EXPECT_EQ(platform.region(26), Bytes(34132, 0xFF));
    EXPECT_EQ(platform.singles.size(), 1u) << "which tells of the empty region";
}

TEST_F(Regions, PollingFlagsAndSplitModeAreReadFromTheirPlaces) {
    const std::string file = path("pdthermaldisabled");
    vexutils::flag_paths.disk_thermal_disabled = file.c_str();
    std::ranges::copy(Bytes{2, 0, 0, 0x80}, platform.region(55).begin() + 522);
    Bytes flags(4);
    write_file(file, "");
    EXPECT_EQ(RTSHM_ReadSharedThermalPolling(flags.data()), 0u);
    EXPECT_EQ(flags, (Bytes{3, 0, 0, 0x80}));
    Bytes split(40);
    std::fill_n(platform.region(20).begin() + 285, 40, uint8_t{0x77});
    EXPECT_EQ(RTSHM_readBackplaneSharedMem(split.data()), 0u);
    EXPECT_EQ(split, Bytes(40, 0x77));
}

TEST_F(Regions, ADumpShowsEveryEntryInOrder) {
    for (const unsigned count : {0u, 724u, 23678u}) {
        std::ranges::copy(Bytes{1, 0, 0, 0}, &inventory[count]);
    }
    std::fill_n(&inventory[5828], 70, uint8_t{'x'});  // an FQDD that is not terminated
    platform.region(55)[522] = 0x03;
    for (const size_t count : {0u, 724u, 23678u}) {
        inventory[count + 2] = 1;  // of which the region has no 65537
        RTSHM_DumpSharedMem();
        EXPECT_EQ(platform.messages(3).size(), 1u);
        platform.clear_lines();
        inventory[count + 2] = 0;
    }
    use_log_file();
    RTSHM_DumpSharedMem();
    EXPECT_TRUE(logged(6, "Fqdd " + std::string(70, 'x') + " "));
    EXPECT_EQ(std::ranges::count(lines_of("RTSHM_DumpSharedMem"), '|'), 31) << "lines";
    EXPECT_EQ(std::ranges::count(file_content(path("vexel.log")), '\n'), 4) << "lines of the file";
}

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
    write_file(status_file, std::string(4096, '\n'));
    EXPECT_EQ(RTSHM_SimulatePCIeSSD(), 0u);
    EXPECT_TRUE(logged(4, status_file + ": slots set:0 lines skipped:0")) << "none is cut";
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
    std::filesystem::remove(status_file);
    std::filesystem::create_directory(status_file);  // which can be opened, but is not read
    write_file(fru_file, std::string(36 * 512, 'A'));
    EXPECT_EQ(RTSHM_SimulatePCIeSSD(), 0u);
    EXPECT_EQ(platform.messages(3).size(), 1u) << "there is no rest";
}

}  // namespace
