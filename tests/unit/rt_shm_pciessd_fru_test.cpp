#include "rt_shm.h"
#include "tests/support/platform_test.h"

namespace {

// One device of each group of the region, its first and its last, with their places by hand.
struct Device {
    const char* what;
    uint8_t type, kind, index;
    int record, fqdd, fqdd_bytes;  // -1: has none
};
constexpr Device kDevices[] = {{"first drive", 7, 0, 0, 4, 27044, 60},
                               {"last drive, whatever the kind", 7, 2, 35, 18204, 29144, 60},
                               {"drive beyond", 7, 0, 36, -1, -1, 0},
                               {"first card", 11, 0, 0, 18724, 29204, 30},
                               {"last card with a record", 11, 3, 15, 26524, 29654, 30},
                               {"slot with a text alone", 11, 0, 16, -1, 29684, 30},
                               {"last slot of cards", 11, 0, 35, -1, 30254, 30},
                               {"card beyond", 11, 0, 36, -1, -1, 0},
                               {"first card of kind 2", 11, 2, 0, 31932, 34012, 30},
                               {"last card of kind 2", 11, 2, 3, 33492, 34102, 30},
                               {"card of kind 2 beyond", 11, 2, 4, -1, -1, 0},
                               {"another endpoint type", 10, 0, 0, -1, -1, 0}};

class PcieSsdFru : public PlatformTest {
  protected:
    Bytes& region = platform.region(26);

    // Checks the result against whether there is a place, and the whole region against expected.
    void expect_done(uint32_t result, int place, const Bytes& expected) {
        EXPECT_EQ(result, place >= 0 ? 0u : 2u);
        EXPECT_EQ(region, expected);
        EXPECT_EQ(platform.messages(2).empty(), place >= 0);
    }
};

TEST_F(PcieSsdFru, EachDeviceHasARecordOfItsOwn) {
    const Bytes fru(200, 0xF7);
    for (const Device& device : kDevices) {
        SCOPED_TRACE(device.what);
        std::ranges::fill(region, 0xEE);
        platform.clear_lines();
        platform.clear_writes();
        Bytes expected = region;
        const auto result = RTSHM_StoreFRU(device.type, device.kind, device.index, 0xB1, 0x5A,
                                           fru.data(), static_cast<uint32_t>(fru.size()));
        if (device.record >= 0) {
            const auto record = expected.begin() + device.record;
            const bool card = device.type == 11;
            record[1] = card ? device.kind : 0xB1;
            record[2] = card ? device.index : 0x5A;
            record[3] = 1;
            record[6] = card ? 1 : 0xEE;
            std::fill_n(std::fill_n(record + 8, 200, uint8_t{0xF7}), 312, uint8_t{0});
            expected[0] = 1;
            std::vector<int> order;
            for (const auto& write : platform.writes()) {
                order.push_back(write.offset == 0 ? 0 : write.offset - device.record);
            }
            EXPECT_EQ(order, card ? (std::vector{8, 1, 2, 6, 3, 0}) : (std::vector{8, 1, 2, 3, 0}));
        }
        expect_done(result, device.record, expected);
    }
}

TEST_F(PcieSsdFru, TemperatureRecordAndTextAreWrittenAndCleared) {
    for (const Device& device : kDevices) {
        SCOPED_TRACE(device.what);
        std::ranges::fill(region, 0xEE);
        platform.clear_lines();
        Bytes expected = region;
        const auto fill = [&](int first, int count, uint8_t value) {
            std::fill_n(expected.begin() + std::max(first, 0), first < 0 ? 0 : count, value);
        };
        fill(device.record, 1, 41);
        expect_done(RTSHM_StoreFRUTemp(device.type, device.kind, device.index, 41), device.record,
                    expected);
        fill(device.record, 520, 0xFF);
        fill(device.record < 0 ? -1 : 0, 1, 1);
        expect_done(RTSHM_ClearFRU(device.type, device.kind, device.index), device.record,
                    expected);
        platform.clear_lines();
        fill(device.fqdd, device.fqdd_bytes, 0xFF);
        expect_done(RTSHM_ClearFqdd(device.type, device.kind, device.index), device.fqdd, expected);
    }
}

TEST_F(PcieSsdFru, SizeCodeTellsSmallImages) {
    const Bytes fru(512, 7);
    const Rows<uint32_t, uint32_t, uint8_t> rows{{1, 0, 1},     {255, 0, 1}, {256, 0, 0},
                                                 {257, 0, 1},   {512, 0, 1}, {0, 2, 0xEE},
                                                 {513, 2, 0xEE}};
    for (const auto& [size, row_result, code] : rows) {
        region[18724 + 6] = 0xEE;
        EXPECT_EQ(RTSHM_StoreFRU(11, 1, 0, 0, 0, fru.data(), size), row_result);
        EXPECT_EQ(region[18724 + 6], code);
    }
    EXPECT_EQ(RTSHM_StoreFRU(11, 1, 0, 0, 0, nullptr, 10), 2u);
}

TEST_F(PcieSsdFru, FqddOfADriveIsCutAndZeroFilled) {
    for (const size_t length : {0u, 12u, 59u, 60u, 300u}) {
        SCOPED_TRACE(length);
        std::ranges::fill(region, 0xEE);
        platform.clear_writes();
        Bytes expected = region;
        std::fill_n(expected.begin() + 29144, 60, uint8_t{0});
        std::fill_n(expected.begin() + 29144, std::min<size_t>(length, 59), uint8_t{'D'});
        const std::string fqdd(length, 'D');
        expect_done(RTSHM_Add_NVMeSSD_FQDD_toSHM(35, fqdd.c_str()), 0, expected);
        EXPECT_EQ(platform.writes().size(), 1u);
    }
    EXPECT_EQ(RTSHM_Add_NVMeSSD_FQDD_toSHM(36, "D"), 2u);
    EXPECT_EQ(RTSHM_Add_NVMeSSD_FQDD_toSHM(0, nullptr), 2u);
}

}  // namespace
