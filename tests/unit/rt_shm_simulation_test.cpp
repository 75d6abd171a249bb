#include <fcntl.h>
#include <sys/stat.h>
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
        std::ranges::fill(region, 0xEE);
    }
    std::string skipped(int set, int lines) const {
        return status_file + ": slots set:" + std::to_string(set) +
               " lines skipped:" + std::to_string(lines);
    }
    const std::string status_file = path("ssdstatus.txt"), fru_file = path("ssdfru.bin");
    Bytes& region = platform.region(20);
};

TEST_F(Simulation, StatusLinesSetTheirSlots) {
    write_file(status_file,
               "0 1\n31 0xFFFF\r\n\n  7\tabcd  \n7 12\n"                            // 4 good
               "32 1\n-1 1\n1\n1 \n1 10000\n1 2 3\n1 0x\nx 1\n300 1\n0x1 1\n5 z");  // 11 bad
    Bytes expected = region;
    const std::pair<size_t, uint16_t> slots[] = {{0, 1}, {31, 0xFFFF}, {7, 0x12}};
    for (const auto& [slot, status] : slots) {
        expected[144 + 4 * slot] = static_cast<uint8_t>(status);
        expected[145 + 4 * slot] = static_cast<uint8_t>(status >> 8);
    }
    expected[10] = 0xEF;
    EXPECT_EQ(RTSHM_SimulatePCIeSSD(), 0u);
    EXPECT_EQ(region, expected);
    EXPECT_EQ(platform.writes().size(), 2u) << "the block at once, then the counter";
    EXPECT_TRUE(logged(3, skipped(4, 11)));
}

TEST_F(Simulation, ALongFileEndsAtItsLastWholeLine) {
    write_file(status_file, "3 1\n" + std::string(4086, '\n') + "4 12345");  // cut behind "4 1234"
    EXPECT_EQ(RTSHM_SimulatePCIeSSD(), 0u);
    EXPECT_EQ(region[144 + 12], 1);
    EXPECT_EQ(region[144 + 16], 0xEE);
    EXPECT_TRUE(logged(3, skipped(1, 1))) << "what was cut off counts as one";
    write_file(status_file, std::string(4091, '\n') + "4 123");
    EXPECT_EQ(RTSHM_SimulatePCIeSSD(), 0u);
    EXPECT_TRUE(logged(4, skipped(1, 0))) << "just as long as fits";
}

TEST_F(Simulation, ImagesBecomeTheFrusOfDrives) {
    std::string images;
    for (int i = 0; i < 37; ++i) {
        images += std::string(512, static_cast<char>('A' + i));
    }
    Bytes& fru = platform.region(26);
    for (const size_t length : {size_t{512 + 511}, images.size()}) {
        std::ranges::fill(fru, 0xEE);
        write_file(fru_file, images.substr(0, length));
        EXPECT_EQ(RTSHM_SimulatePCIeSSD(), 0u);
        EXPECT_EQ(Bytes(fru.begin() + 4, fru.begin() + 13),
                  (Bytes{0xEE, 0xEE, 0xEE, 1, 0xEE, 0xEE, 0xEE, 0xEE, 'A'}));
        const bool all = length == images.size();
        EXPECT_EQ(fru[4 + 520 + 3], all ? 1 : 0xEE) << "half an image is none";
        const auto last = fru.begin() + 4 + 520 * 35;
        EXPECT_EQ(Bytes(last + 1, last + 4), all ? (Bytes{0xFF, 0xFF, 1}) : Bytes(3, 0xEE));
        EXPECT_EQ(last[519], all ? 'A' + 35 : 0xEE);
        EXPECT_EQ(fru[18724 + 8], 0xEE) << "a 37th image is no card's";
        EXPECT_TRUE(
            logged(3, fru_file + ": images stored:" + (all ? "36" : "1") + " images skipped:1"));
    }
}

TEST_F(Simulation, WhatIsNoPlainFileChangesNothing) {
    write_file(path("real"), "1 1\n");
    EXPECT_EQ(symlink(path("real").c_str(), status_file.c_str()), 0);
    EXPECT_EQ(mkfifo(fru_file.c_str(), 0600), 0);
    const int pipe = open(fru_file.c_str(), O_RDWR | O_NONBLOCK);
    EXPECT_EQ(write(pipe, std::string(512, 'p').data(), 512), 512);
    EXPECT_EQ(RTSHM_SimulatePCIeSSD(), 0u);
    close(pipe);
    unlink(status_file.c_str());
    unlink(fru_file.c_str());
    EXPECT_EQ(RTSHM_SimulatePCIeSSD(), 0u);
    write_file(status_file, "no line of it is good\n");
    EXPECT_EQ(RTSHM_SimulatePCIeSSD(), 0u);
    EXPECT_TRUE(platform.writes().empty());
}

}  // namespace
