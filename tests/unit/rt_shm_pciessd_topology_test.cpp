#include "tests/support/backplane_test.h"

namespace {

class PcieSsdTopology : public BackplaneTest {
  protected:
    // A global slot's position, and its drive's status.
    void put_slot(int slot, uint8_t bay, uint8_t slot_in_bay, uint8_t drive) {
        std::ranges::copy(Bytes{bay, slot_in_bay}, platform.region(20).begin() + 14 + 4 * slot);
        std::ranges::copy(Bytes{drive, 0x80}, platform.region(20).begin() + 144 + 4 * slot);
    }
};

TEST_F(PcieSsdTopology, CardsOfTypeThreeBecomeExtendersUntilOneCannot) {
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

TEST_F(PcieSsdTopology, TheFirstSlotOfEachBayBecomesItsBackplane) {
    std::ranges::fill(platform.region(20), 0xFF);
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
    EXPECT_EQ(backplane.backplane->body.enclosure.driveCount + 0, 2);
}

}  // namespace
