#include "tests/support/backplane_test.h"

namespace {

class Topology : public BackplaneTest {
  protected:
    void TearDown() override {
        forget_backplanes();
        for (ExtenderCardInfo*& card : cache_Extndrs) {
            forget(card);
        }
        BackplaneTest::TearDown();
    }
    static void forget(ExtenderCardInfo*& card) {
        if (card != nullptr) {
            vexel_free(card->name);
            vexel_free(card->FQDD);
            vexel_free(std::exchange(card, nullptr));
        }
    }
    static void forget_backplanes() {
        for (BpStatusInfo*& status : cache_Bkplanes) {
            if (status != nullptr) {
                vexel_free(status->backplane->NAME);
                vexel_free(status->backplane->hdr.FQDD);
                vexel_free(status->backplane);
                vexel_free(std::exchange(status, nullptr));
            }
        }
    }
    // A bay entry whose slots from offset on are NVMe slots served by an extender.
    static void fill_bay(uint8_t bay, uint8_t offset, uint8_t count, uint8_t extender) {
        sNVMeSSDBPInfo.bays[bay] = {bay, 0, count, 9, {}, 0, 0, offset, {}, 0};
        for (unsigned slot = offset; slot < 50 && slot < 0u + offset + count; ++slot) {
            sNVMeSSDBPInfo.slots[50u * bay + slot] = {
                bay, static_cast<uint8_t>(slot), {}, 1, 0x1234, 4, 4, 0, extender, 0, 0, 0, 0};
        }
    }
    static std::wstring fqdd(unsigned bay) {
        return cache_Bkplanes[bay] != nullptr ? cache_Bkplanes[bay]->backplane->hdr.FQDD : L"none";
    }
};

TEST_F(Topology, AnExtenderServesTheSlotsOfFiveBays) {
    uint8_t* const none = nullptr;
    uint8_t slot = 99;
    fill_bay(4, 0, 36, 7);
    for (const auto& [bay, drive_slot, out, result] : Rows<uint8_t, uint8_t, uint8_t*, uint32_t>{
             {5, 0, &slot, 2}, {4, 36, &slot, 2}, {4, 35, none, 2}, {4, 35, &slot, 0}}) {
        EXPECT_EQ(slot, 99);
        EXPECT_EQ(rtshm_getExtenderSlotFromDriveSlot(bay, drive_slot, out), result);
    }
    EXPECT_EQ(slot, 7);
}

TEST_F(Topology, RisersBecomeExtendersOnce) {
    sNVMeSSDBPInfo.risers[1] = {1, 3, 4, 0};
    sNVMeSSDBPInfo.risers[15] = {2, 16, 4, 0};
    EXPECT_EQ(rtshm_getNVMeExtcard(), 0u);
    ASSERT_NE(cache_Extndrs[3], nullptr);
    ASSERT_NE(cache_Extndrs[16], nullptr);
    EXPECT_STREQ(cache_Extndrs[3]->FQDD, L"PCIeExtender.Slot.3");
    EXPECT_STREQ(cache_Extndrs[3]->name, L"PCIe Extender 3");
    EXPECT_EQ(cache_Extndrs[3]->u8BayID, 1);
    EXPECT_EQ(platform.messages(1).size(), 2u);
    EXPECT_TRUE(logged(1, "Inventory store PCIeExtender.Slot.16"));
    const ExtenderCardInfo* first = cache_Extndrs[3];
    EXPECT_EQ(rtshm_getNVMeExtcard(), 0u);
    EXPECT_EQ(cache_Extndrs[3], first);

    sNVMeSSDBPInfo.risers[0] = {1, 17, 4, 0};  // no key of the cache
    sNVMeSSDBPInfo.risers[2] = {1, 5, 4, 0};
    EXPECT_EQ(rtshm_getNVMeExtcard(), 3u);
    EXPECT_EQ(cache_Extndrs[5], nullptr) << "the walk has stopped";
    EXPECT_TRUE(logged(1, " Error Exit  2"));
    EXPECT_TRUE(logged(2, "<-- Error, processPciessdExtndrcardInfo"));
    EXPECT_EQ(processNVMeExtndrcardInfo(0, 0x10005), 2u) << "a key keeps all its bits";
}

TEST_F(Topology, ABayBecomesABackplaneFromItsFirstNVMeSlot) {
    EXPECT_EQ(processNVMeExtndrcardInfo(1, 3), 0u);
    fill_bay(1, 2, 4, 3);
    sNVMeSSDBPInfo.slots[52].bayTechnology = 3;
    sNVMeSSDBPInfo.slots[53].bayId = 9;
    EXPECT_EQ(rtshm_getNVMeBPs(), 0u);
    ASSERT_NE(cache_Bkplanes[1], nullptr);
    const BpStatusInfo& status = *cache_Bkplanes[1];
    EXPECT_EQ(status.u8BayID, 1);
    EXPECT_EQ(status.u8SlotNumInBay, 4);
    EXPECT_EQ(status.u8SlotCount, 4);
    EXPECT_EQ(status.u8Byte3, 9);
    EXPECT_EQ(status.au16DriveStatus, 0x1234);
    const StorageObjectRecord backplane = *status.backplane;
    EXPECT_EQ(uint32_t{backplane.objType}, 240u);
    EXPECT_EQ(backplane.body.enclosure.bayId, 1);
    EXPECT_EQ(backplane.body.enclosure.driveCount, 4);
    EXPECT_EQ(backplane.body.enclosure.slotCount, 9);
    EXPECT_EQ(std::wstring(backplane.NAME), L"PCIe SSD BP 1");
    EXPECT_EQ(fqdd(1), L"Enclosure.Internal.0-1:PCIeExtender.Slot.3");
    EXPECT_TRUE(logged(4, "BP FQDD is already constrructed u8BayID=1: u8SlotNumInBay=5"));
    EXPECT_TRUE(logged(5, "BayID missmatch BayID_bp:1, BayID_drv:9"));
    EXPECT_EQ(rtshm_getNVMeBPs(), 0u);
    EXPECT_EQ(cache_Bkplanes[1], &status) << "nothing is rebuilt";
}

TEST_F(Topology, TheFqddNamesAKnownExtenderOnly) {
    EXPECT_EQ(processNVMeExtndrcardInfo(1, 3), 0u);
    EXPECT_EQ(processNVMeExtndrcardInfo(1, 4), 0u);
    vexel_free(std::exchange(cache_Extndrs[4]->FQDD, nullptr));
    for (const auto& [what, row_offset, row_count, row_extender, row_fqdd, level, line] :
         Rows<const char*, uint8_t, uint8_t, uint8_t, const wchar_t*, int, const char*>{
             {"no extender", 0, 1, 0, L"Enclosure.Internal.0-4", 4,
              "--> No Extender Found for u8BayID:4 u8DriveSlot:0 "},
             {"known", 35, 1, 3, L"Enclosure.Internal.0-4:PCIeExtender.Slot.3", 4,
              "Framing FQDD with Extndr Done!"},
             {"not cached", 0, 1, 5, L"Enclosure.Internal.0-4", 2,
              "Extender Read Error or Not Available"},
             {"no key of the cache", 0, 1, 200, L"Enclosure.Internal.0-4", 2,
              "Extender Read Error or Not Available"},
             {"without FQDD", 0, 1, 4, L"Enclosure.Internal.0-4", 2,
              "Extender is not available in the server"},
             {"slot that is not cabled", 36, 1, 3, L"Enclosure.Internal.0-4", 2,
              "GetExtSlot Failed for BayId=4,Slot=36"},
             {"slots end at 50", 49, 255, 0, L"Enclosure.Internal.0-4", 4, "<-- exit"},
             {"no slots in the table", 50, 255, 0, L"none", 4, "<-- exit"},
             {"no slots", 0, 0, 0, L"none", 4, " s8BayNo=4 u8BayID=4 u8SlotCount=0 u8Offset=0"}}) {
        fill_bay(4, row_offset, row_count, row_extender);
        platform.clear_lines();
        EXPECT_EQ(rtshm_getNVMeBPs(), 0u);
        EXPECT_EQ(fqdd(4), row_fqdd);
        EXPECT_TRUE(logged(level, line));
        forget_backplanes();
    }
}

TEST_F(Topology, TextsOfThreeDigitsAreCut) {
    EXPECT_EQ(processNVMeExtndrcardInfo(1, 16), 0u);
    vexel_free(std::exchange(cache_Extndrs[16]->FQDD, nullptr));
    cache_Extndrs[16]->FQDD = static_cast<wchar_t*>(vexel_alloc(4 * 25));
    std::wcscpy(cache_Extndrs[16]->FQDD, L"PCIeExtender.Slot.123456");
    fill_bay(0, 0, 1, 16);
    EXPECT_EQ(rtshm_getNVMeBPs(), 0u);
    EXPECT_EQ(fqdd(0), L"Enclosure.Internal.0-0:PCIeExtender.Slot.123");
}

TEST_F(Topology, EveryFailureHasItsLine) {
    fill_bay(2, 0, 2, 3);  // the second slot is not tried in the first one's stead
    sNVMeSSDBPInfo.risers[0] = {2, 3, 4, 0};
    const NVMeBayEntry far_bay{200, 0, 1, 0, {}, 0, 0, 0, {}, 0};
    EXPECT_EQ(processNVMeBackplaneInfo(nullptr, &sNVMeSSDBPInfo.slots[0]), 2u);
    EXPECT_EQ(processNVMeBackplaneInfo(&far_bay, nullptr), 2u);
    EXPECT_EQ(processNVMeBackplaneInfo(&far_bay, &sNVMeSSDBPInfo.slots[0]), 3u);
    const AllocationScope scope;
    for (const auto& [line, place, n, extender, backplane] :
         Rows<const char*, Place, int, bool, bool>{
             {"<-- err mutex failprocessNVMeExtndrcardInfo", Place::Lock, 1, false, true},
             {"<-- err mutex failprocessNVMeBackplaneInfo", Place::Lock, 2, true, false},
             {"<-- err extcardInfo is NULL", Place::Allocation, 1, false, true},
             {"Fail to alloc memory", Place::Allocation, 5, true, false},
             {"processNVMeBackplaneInfo vexel_alloc Failed BayId=2", Place::Allocation, 6, true,
              true},
             {"processNVMeBackplaneInfo vexel_alloc Failed for NAME, BayId=2", Place::Allocation, 7,
              true, true}}) {
        platform.fail(place, n);
        rtshm_getNVMeExtcard();
        rtshm_getNVMeBPs();
        platform.no_faults();
        EXPECT_TRUE(logged(1, line) || logged(2, line));
        EXPECT_EQ(cache_Extndrs[3] != nullptr, extender);
        EXPECT_EQ(cache_Bkplanes[2] != nullptr, backplane);
        forget_backplanes();
        forget(cache_Extndrs[3]);
    }
}

TEST_F(Topology, AnFqddIsTakenApart) {
    const struct {
        const char* fqdd;
        int slot, bay;  // 238: untouched
    } rows[] = {{"Disk.Bay.7:Enclosure.Internal.0-2:PCIeExtender.Slot.3", 7, 2},
                {"Disk.Bay.12:Enclosure.Internal.0-1", 12, 1},
                {"Disk.Bay.300:Enclosure.Internal.0-4294967297", 44, 1},
                {"Disk.Bay.7", 7, 238},
                {"Disk.Bay", 238, 238},
                {"Disk.Bay.7:Enclosure.Internal", 7, 238},
                {"Disk.Bay.7:Enclosure.Internal.0", 7, 238},
                {"Disk.Bay.x:Enclosure.Internal.0-y", 0, 0},
                {"::Disk..Bay.7.9:.Enclosure..Internal.-0--2", 7, 2},
                {"", 238, 238},
                {":.-:", 238, 238}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.fqdd);
        std::string wide;
        for (const char* c = row.fqdd; *c != '\0'; ++c) {
            wide += {*c, '\x01'};
        }
        const auto take = [&](const char* text, size_t length) {
            uint8_t bay = 238, slot = 238;
            EXPECT_EQ(getBayIDandSlotFromFqdd(text, static_cast<uint8_t>(length), &bay, &slot), 0u);
            EXPECT_EQ(slot, row.slot);
            EXPECT_EQ(bay, row.bay);
        };
        take(row.fqdd, 0);
        take(wide.c_str(), wide.size());
    }
    uint8_t bay = 238, slot = 238;
    EXPECT_EQ(getBayIDandSlotFromFqdd(nullptr, 0, &bay, &slot), 5u);
    EXPECT_EQ(getBayIDandSlotFromFqdd("Disk.Bay.7", 0, &bay, nullptr), 5u);
    EXPECT_EQ(getBayIDandSlotFromFqdd("Disk.Bay.7", 0, nullptr, &slot), 5u);
    EXPECT_EQ(platform.count_logged(2, "err1:fqdd is NULL"), 3);
    const std::string longest(254, 'A');
    EXPECT_EQ(getBayIDandSlotFromFqdd(longest.c_str(), 255, &bay, &slot), 0u);
    EXPECT_TRUE(logged(4, "fqddstr: " + std::string(99, 'A')));
}

}  // namespace
