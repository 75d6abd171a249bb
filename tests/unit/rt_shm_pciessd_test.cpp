#include "tests/support/backplane_test.h"

namespace {

class PcieSsd : public BackplaneTest {
  protected:
    Bytes& region = platform.region(20);

    // A global slot's position, and its drive's status.
    void put_slot(int slot, uint8_t bay, uint8_t slot_in_bay, uint8_t drive) {
        std::ranges::copy(Bytes{bay, slot_in_bay}, region.begin() + 14 + 4 * slot);
        std::ranges::copy(Bytes{drive, 0x80}, region.begin() + 144 + 4 * slot);
    }
};

TEST_F(PcieSsd, StatusIsWrittenBeforeTheChangeCounter) {
    Bytes expected = region;
    EXPECT_EQ(updatePciessdDriveStatusToShm(0x0102, 31), 0u);
    expected[268] = 2;
    expected[269] = 1;
    expected[10] = 1;
    EXPECT_EQ(region, expected);
    platform.clear_writes();
    std::fill_n(expected.begin() + 142, 128, uint8_t{7});
    expected[10] = 2;
    EXPECT_EQ(updatePciessdiBCDDataToShm(Bytes(128, 7).data()), 0u);
    EXPECT_EQ(region, expected);
    EXPECT_EQ(platform.writes().back().offset, 10);
}

TEST_F(PcieSsd, AReadTakesAnySlotThatLiesInTheRegion) {
    uint16_t status = 0xEEEE;
    region[144 + 4 * 31] = 2;
    EXPECT_EQ(RTSHM_readPciessdDriveStatusFromShm(nullptr, -37), 0u) << "nothing is read";
    EXPECT_EQ(RTSHM_readPciessdDriveStatusFromShm(&status, 0x10000 + 31), 0u) << "16 bits";
    EXPECT_EQ(status, 2);
}

TEST_F(PcieSsd, LowestSlotOfABay) {
    uint8_t base = 0xEE;
    region[14 + 4 * 30] = region[14 + 4 * 31] = 4;
    EXPECT_EQ(RTSHM_GetPCIeSSDGlobalSlotNumberBase(4, &base), 0u);
    EXPECT_EQ(base, 30);
    EXPECT_EQ(RTSHM_GetPCIeSSDGlobalSlotNumberBase(1, &base), 3u);
}

TEST_F(PcieSsd, PresenceCounterIsComparedWithTheLastOneSeen) {
    uint8_t changed = 0xEE;
    for (const auto& [counter, expected] : {std::pair{200, 1}, {200, 0}, {0, 1}}) {
        region[6] = static_cast<uint8_t>(counter);
        EXPECT_EQ(RTSHM_ReadPCIeSSDPresenceSharedMem(&changed), 0u);
        EXPECT_EQ(changed, expected);
    }
}

TEST_F(PcieSsd, CardsOfTypeThreeBecomeExtendersUntilOneCannot) {
    Bytes& cards = platform.region(15);
    cards[2] = 3;
    std::ranges::copy(Bytes{3, 3, 0, 0, 140, 0}, cards.begin() + 4);  // slot, type, record's place
    std::ranges::copy(Bytes{4, 2, 0, 0, 140, 0}, cards.begin() + 12);
    std::ranges::copy(Bytes{16, 3, 0, 0, 144, 0}, cards.begin() + 20);
    cards[144] = 4;  // the bay
    EXPECT_EQ(rtshm_getPCIessdExtcard(), 0u);
    EXPECT_TRUE(cache_Extndrs[3] != nullptr && cache_Extndrs[4] == nullptr);
    ASSERT_NE(cache_Extndrs[16], nullptr);
    EXPECT_EQ(cache_Extndrs[16]->u8BayID, 4);
    cards[140] = 5;  // no such bay
    cards[20] = 6;
    EXPECT_EQ(rtshm_getPCIessdExtcard(), 3u);
    EXPECT_EQ(cache_Extndrs[6], nullptr);
}

TEST_F(PcieSsd, TheFirstSlotOfEachBayBecomesItsBackplane) {
    std::ranges::fill(region, 0xFF);
    put_slot(1, 1, 50, 0);  // no such slot
    put_slot(2, 1, 7, 0x21);
    put_slot(3, 1, 0, 0x31);
    put_slot(5, 5, 0, 0);  // no such bay
    put_slot(31, 4, 49, 0x41);
    platform.fail(Place::Lock);
    EXPECT_EQ(rtshm_getPCIessdBp(), 3u);
    EXPECT_EQ(cache_Bkplanes[1], nullptr) << "the next slot is not tried in its stead";
    EXPECT_NE(cache_Bkplanes[4], nullptr) << "the next bay is";
    EXPECT_EQ(rtshm_getPCIessdBp(), 0u);
    ASSERT_NE(cache_Bkplanes[1], nullptr);
    const BpStatusInfo& backplane = *cache_Bkplanes[1];
    EXPECT_EQ(backplane.u8SlotNumInBay, 7);
    EXPECT_EQ(backplane.au16DriveStatus, 0x8021);
}

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
    EXPECT_EQ(RTSHM_StoreFRU(11, 0, 0, 0, 0, fru.data(), 0), 2u);
}

TEST_F(PcieSsdFru, FqddOfADriveIsCutAndZeroFilled) {
    std::fill_n(region.begin() + 29144, 60, uint8_t{0xEE});
    EXPECT_EQ(RTSHM_Add_NVMeSSD_FQDD_toSHM(35, std::string(300, 'D').c_str()), 0u);
    const std::string cut(59, 'D');
    EXPECT_EQ(Bytes(region.begin() + 29144, region.begin() + 29204),
              Bytes(cut.data(), cut.data() + 60));
}

}  // namespace
