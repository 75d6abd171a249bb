#include "internal/vexel_state.h"
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
    EXPECT_EQ(RTSHM_ReadSharedThermalPolling(nullptr), 2u);
    Bytes split(40);
    std::fill_n(platform.region(20).begin() + 285, 40, uint8_t{0x77});
    EXPECT_EQ(RTSHM_readBackplaneSharedMem(split.data()), 0u);
    EXPECT_EQ(split, Bytes(40, 0x77));
    EXPECT_EQ(RTSHM_readBackplaneSharedMem(nullptr), 2u);
}

TEST_F(Regions, ADumpShowsEveryEntryInOrder) {
    for (const unsigned count : {0u, 724u, 23678u}) {
        std::ranges::copy(Bytes{1, 0, 0, 0}, &inventory[count]);
    }
    std::fill_n(&inventory[5828], 70, uint8_t{'x'});  // an FQDD that is not terminated
    platform.region(55)[522] = 0x03;
    use_log_file();
    RTSHM_DumpSharedMem();
    EXPECT_TRUE(logged(6, "Fqdd " + std::string(70, 'x') + " "));
    EXPECT_EQ(std::ranges::count(lines_of("RTSHM_DumpSharedMem"), '|'), 31) << "lines";
    EXPECT_EQ(std::ranges::count(file_content(path("vexel.log")), '\n'), 4) << "lines of the file";
}

}  // namespace
