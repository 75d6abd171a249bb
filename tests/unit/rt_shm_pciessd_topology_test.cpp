#include "tests/support/backplane_test.h"

namespace {

class PcieSsdTopology : public BackplaneTest {
  protected:
    Bytes& cards = platform.region(15);
    Bytes& status = platform.region(20);

    // Entry i of region 15 and its record at offset 140 + 4 * i.
    void put_card(size_t i, uint8_t slot, uint8_t type, uint8_t bay) {
        std::ranges::copy(Bytes{slot, type, 0, 0, static_cast<uint8_t>(140 + 4 * i), 0},
                          cards.begin() + 4 + 8 * static_cast<int>(i));
        cards[140 + 4 * i] = bay;
    }
    void put_slot(int slot, uint8_t bay, uint8_t slot_in_bay, uint8_t drive) {
        std::ranges::copy(Bytes{bay, slot_in_bay}, status.begin() + 14 + 4 * slot);
        std::ranges::copy(Bytes{drive, 0x80}, status.begin() + 144 + 4 * slot);
    }
};

TEST_F(PcieSsdTopology, CardsOfTypeThreeBecomeExtenders) {
    put_card(0, 3, 3, 1);
    put_card(1, 4, 2, 1);
    put_card(15, 16, 3, 4);
    cards[2] = 17;  // one more than there are
    EXPECT_EQ(rtshm_getPCIessdExtcard(), 0u);
    ASSERT_TRUE(cache_Extndrs[3] != nullptr && cache_Extndrs[16] != nullptr);
    EXPECT_STREQ(cache_Extndrs[3]->FQDD, L"PCIeExtender.Slot.3");
    EXPECT_EQ(cache_Extndrs[3]->u8BayID, 1);
    EXPECT_EQ(cache_Extndrs[16]->u8BayID, 4);
    EXPECT_EQ(cache_Extndrs[4], nullptr);
    EXPECT_EQ(platform.messages(3).size(), 1u) << "the count is clamped";
    EXPECT_EQ(rtshm_getPCIessdExtcard(), 0u) << "what is there stays";
}

TEST_F(PcieSsdTopology, TheFirstFailureStopsTheWalkOverTheCards) {
    const Rows<const char*, uint8_t, uint8_t, int, uint32_t> rows{
        {"the table", 1, 0, 1, 3},      {"the first record", 1, 0, 2, 3},
        {"no such slot", 17, 0, 99, 3}, {"no such bay", 1, 5, 99, 3},
        {"none", 1, 0, 99, 0},
    };
    cards[2] = 2;
    for (const auto& [what, row_slot, row_bay, read, result] : rows) {
        put_card(0, row_slot, 3, row_bay);
        put_card(1, 2, 3, 0);
        platform.fail(Place::ShmRead, read);
        EXPECT_EQ(rtshm_getPCIessdExtcard(), result);
        EXPECT_EQ(cache_Extndrs[2] != nullptr, result == 0);
        EXPECT_EQ(logged(2, "<-- Error, processPciessdExtndrcardInfo"), read != 1);
    }
}

TEST_F(PcieSsdTopology, TheFirstSlotOfEachBayBecomesItsBackplane) {
    EXPECT_EQ(rtshm_getPCIessdBp(), 0u) << "a region of zeros has no slots";
    EXPECT_EQ(cache_Bkplanes[0], nullptr);
    std::ranges::fill(status, 0xFF);
    put_slot(2, 1, 7, 0x21);
    put_slot(3, 1, 0, 0x31);
    put_slot(31, 4, 49, 0x41);
    put_slot(5, 5, 0, 0);   // no such bay
    put_slot(1, 1, 50, 0);  // no such slot
    EXPECT_EQ(rtshm_getPCIessdBp(), 0u);
    for (const auto& [row_bay, row_slot, count, row_drive, fqdd] :
         Rows<unsigned, int, int, int, const wchar_t*>{
             {1, 7, 2, 0x8021, L"Enclosure.Internal.0-1"},
             {4, 49, 1, 0x8041, L"Enclosure.Internal.0-4"}}) {
        ASSERT_NE(cache_Bkplanes[row_bay], nullptr);
        const BpStatusInfo& backplane = *cache_Bkplanes[row_bay];
        EXPECT_EQ(backplane.u8SlotNumInBay, row_slot);
        EXPECT_EQ(backplane.au16DriveStatus, row_drive);
        EXPECT_EQ(backplane.backplane->body.enclosure.driveCount + 0, count);
        EXPECT_EQ(backplane.backplane->body.enclosure.slotCount + 0, count);
        EXPECT_STREQ(backplane.backplane->hdr.FQDD + 0, fqdd);
    }
    EXPECT_EQ(cache_Bkplanes[0], nullptr);
    EXPECT_EQ(platform.messages(3).size(), 2u) << "one warning a slot that cannot be";
    platform.fail(Place::ShmRead);
    EXPECT_EQ(rtshm_getPCIessdBp(), 3u);
}

TEST_F(PcieSsdTopology, ABackplaneThatFailsDoesNotStopTheOthers) {
    std::ranges::fill(status, 0xFF);
    put_slot(0, 1, 0, 0);
    put_slot(1, 1, 1, 0);  // is not tried in its stead
    put_slot(2, 2, 0, 0);
    platform.fail(Place::Lock);
    EXPECT_EQ(rtshm_getPCIessdBp(), 3u);
    EXPECT_EQ(cache_Bkplanes[1], nullptr);
    EXPECT_NE(cache_Bkplanes[2], nullptr);
    EXPECT_EQ(processPciessdBackplaneInfo(5, 0, 0, 1), 2u);
    EXPECT_EQ(processPciessdBackplaneInfo(0, 50, 0, 1), 2u);
    EXPECT_EQ(processPciessdExtndrcardInfo(5, 1), 2u);
}

TEST_F(PcieSsdTopology, CablingOfAnEndpoint) {
    sNVMeSSDBPInfo.slots[50 * 2 + 35].i2cEid = 20;
    sNVMeSSDBPInfo.slots[50 * 2 + 35].behindKron = 1;
    const Rows<const char*, uint8_t, uint32_t, int> rows{{"NVMe drive", 20, 0, 1},
                                                         {"add-in card: no position", 21, 1, 0xEE},
                                                         {"not registered", 22, 1, 0xEE},
                                                         {"drive without a position", 23, 3, 0xEE}};
    EXPECT_EQ(rtcache_UpdateCachedObject(RTCACHE_REGISTER, 23, RTCACHE_TYPE_NVME, 0), 0u);
    for (const auto& [what, eid, result, row_behind] : rows) {
        uint8_t behind = 0xEE;
        EXPECT_EQ(rtshm_IsDriveBehindKRONfromBPAPIByEID(&behind, eid), result);
        EXPECT_EQ(behind, row_behind);
    }
    EXPECT_EQ(rtshm_IsDriveBehindKRONfromBPAPIByEID(nullptr, 20), 1u);
}

}  // namespace
