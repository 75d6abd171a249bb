#include "rt_shm.h"
#include "tests/support/platform_test.h"

namespace {

// One device of each group of the region, its first and its last, with their places by hand.
struct Device {
    const char* what;
    uint8_t type, kind, index;
    int record, fqdd, fqdd_bytes;  // -1: has none
};
constexpr Device kDevices[] = {{"last drive, whatever the kind", 7, 2, 35, 18204, 29144, 60},
                               {"drive beyond", 7, 0, 36, -1, -1, 0},
                               {"first card", 11, 0, 0, 18724, 29204, 30},
                               {"last card with a record", 11, 3, 15, 26524, 29654, 30},
                               {"slot with a text alone", 11, 0, 16, -1, 29684, 30},
                               {"last slot of cards", 11, 0, 35, -1, 30254, 30},
                               {"card beyond", 11, 0, 36, -1, -1, 0},
                               {"last card of kind 2", 11, 2, 3, 33492, 34102, 30},
                               {"card of kind 2 beyond", 11, 2, 4, -1, -1, 0},
                               {"another endpoint type", 10, 0, 0, -1, -1, 0}};

class PcieSsdFru : public PlatformTest {
  protected:
    Bytes& region = platform.region(26);
};

TEST_F(PcieSsdFru, EachDeviceHasARecordAndATextOfItsOwn) {
    const Bytes fru(200, 0xF7);
    for (const auto& [what, type, kind, index, record, fqdd, fqdd_bytes] : kDevices) {
        SCOPED_TRACE(what);
        std::ranges::fill(region, 0xEE);
        Bytes expected = region;
        const uint32_t result = record < 0 ? 2 : 0;
        EXPECT_EQ(RTSHM_StoreFRU(type, kind, index, 0xB1, 0x5A, fru.data(), 200), result);
        EXPECT_EQ(RTSHM_StoreFRUTemp(type, kind, index, 41), result);
        if (record >= 0) {
            const Bytes start = type == 11 ? Bytes{41, kind, index, 1, 0xEE, 0xEE, 1, 0xEE}
                                           : Bytes{41, 0xB1, 0x5A, 1, 0xEE, 0xEE, 0xEE, 0xEE};
            const auto image = std::ranges::copy(start, expected.begin() + record).out;
            std::fill_n(std::fill_n(image, 200, uint8_t{0xF7}), 312, uint8_t{0});
            expected[0] = 1;
        }
        EXPECT_EQ(region, expected);

        EXPECT_EQ(RTSHM_ClearFRU(type, kind, index), result);
        EXPECT_EQ(RTSHM_ClearFqdd(type, kind, index), fqdd < 0 ? 2u : 0u);
        std::fill_n(expected.begin() + std::max(record, 0), record < 0 ? 0 : 520, uint8_t{0xFF});
        std::fill_n(expected.begin() + std::max(fqdd, 0), fqdd_bytes, uint8_t{0xFF});
        EXPECT_EQ(region, expected);
    }
}

TEST_F(PcieSsdFru, TheImageIsWrittenFirstAndThePresenceLast) {
    const Bytes fru(256, 7);
    EXPECT_EQ(RTSHM_StoreFRU(11, 0, 0, 0, 0, fru.data(), 256), 0u);
    const auto& writes = platform.writes();
    EXPECT_EQ(writes.front().offset, 18732);
    EXPECT_EQ(writes[writes.size() - 2].offset, 18727);
    EXPECT_EQ(region[18730], 0) << "the size code of 256 bytes; others have 1";
    EXPECT_EQ(RTSHM_StoreFRU(11, 0, 0, 0, 0, fru.data(), 513), 2u);
    EXPECT_EQ(RTSHM_StoreFRU(11, 0, 0, 0, 0, fru.data(), 0), 2u);
}

TEST_F(PcieSsdFru, FqddOfADriveIsCutAndZeroFilled) {
    std::fill_n(region.begin() + 29144, 60, uint8_t{0xEE});
    EXPECT_EQ(RTSHM_Add_NVMeSSD_FQDD_toSHM(35, std::string(300, 'D').c_str()), 0u);
    const std::string cut(59, 'D');
    EXPECT_EQ(Bytes(region.begin() + 29144, region.begin() + 29204),
              Bytes(cut.data(), cut.data() + 60));
    EXPECT_EQ(RTSHM_Add_NVMeSSD_FQDD_toSHM(36, "D"), 2u);
    EXPECT_EQ(RTSHM_Add_NVMeSSD_FQDD_toSHM(0, nullptr), 2u);
}

}  // namespace
