#include "tests/support/backplane_test.h"

namespace {

class Topology : public BackplaneTest {
  protected:
    // A bay entry whose slots from offset on are NVMe slots served by an extender.
    static void fill_bay(uint8_t bay, uint8_t offset, uint8_t count, uint8_t extender) {
        sNVMeSSDBPInfo.bays[bay] = {bay, 0, count, 9, {}, 0, 0, offset, {}, 0};
        for (unsigned slot = offset; slot < 50 && slot < 0u + offset + count; ++slot) {
            sNVMeSSDBPInfo.slots[50u * bay + slot] = {
                bay, static_cast<uint8_t>(slot), {}, 1, 0x1234, 4, 4, 0, extender, 0, 0, 0, 0};
        }
    }
};

TEST_F(Topology, RisersBecomeExtendersUntilOneCannot) {
    sNVMeSSDBPInfo.risers[1] = {1, 3, 4, 0};
    EXPECT_EQ(rtshm_getNVMeExtcard(), 0u);
    ASSERT_NE(cache_Extndrs[3], nullptr);
    EXPECT_STREQ(cache_Extndrs[3]->FQDD, L"PCIeExtender.Slot.3");
    EXPECT_STREQ(cache_Extndrs[3]->name, L"PCIe Extender 3");
    sNVMeSSDBPInfo.risers[2] = {1, 17, 4, 0};  // no key of the cache
    sNVMeSSDBPInfo.risers[15] = {1, 5, 4, 0};
    EXPECT_EQ(rtshm_getNVMeExtcard(), 3u);
    EXPECT_EQ(cache_Extndrs[5], nullptr) << "the walk has stopped";
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
    EXPECT_EQ(status.u8SlotNumInBay, 4);
    EXPECT_EQ(status.backplane->body.enclosure.slotCount + 0, 9);
    EXPECT_STREQ(status.backplane->NAME + 0, L"PCIe SSD BP 1");
    fill_bay(2, 0, 2, 0);
    const AllocationScope scope;
    platform.fail(Place::Allocation);
    EXPECT_EQ(rtshm_getNVMeBPs(), 0u);
    EXPECT_EQ(cache_Bkplanes[1], &status) << "nothing is rebuilt";
    EXPECT_EQ(cache_Bkplanes[2], nullptr) << "no second slot is tried in the first one's stead";
}

TEST_F(Topology, TheFqddNamesAKnownExtenderOnly) {
    for (const auto& [what, offset, count, extender, expected] :
         Rows<const char*, uint8_t, uint8_t, uint8_t, const wchar_t*>{
             {"no extender", 0, 1, 0, L"Enclosure.Internal.0-4"},
             {"known", 35, 1, 16, L"Enclosure.Internal.0-4:PCIeExtender.Slot.16"},
             {"not cached", 0, 1, 200, L"Enclosure.Internal.0-4"},
             {"slot that is not cabled", 36, 1, 16, L"Enclosure.Internal.0-4"},
             {"slots end at 50", 49, 255, 0, L"Enclosure.Internal.0-4"}}) {
        rtcache_Init();
        EXPECT_EQ(processNVMeExtndrcardInfo(1, 16), 0u);
        fill_bay(4, offset, count, extender);
        EXPECT_EQ(rtshm_getNVMeBPs(), 0u);
        ASSERT_NE(cache_Bkplanes[4], nullptr);
        EXPECT_STREQ(cache_Bkplanes[4]->backplane->hdr.FQDD + 0, expected);
    }
    EXPECT_EQ(processNVMeBackplaneInfo(&sNVMeSSDBPInfo.bays[0], nullptr), 2u);
}

TEST_F(Topology, AnFqddIsTakenApart) {
    // length: of a text in 16-bit characters; 238: untouched
    for (const auto& [fqdd, length, found] : Rows<const char*, uint8_t, Bytes>{
             {"Disk.Bay.7:Enclosure.Internal.0-2:PCIeExtender.Slot.3", 0, {7, 2}},
             {"Dxixsxkx.xBxaxyx.x7x", 20, {7, 238}},
             {"Disk.Bay.300:Enclosure.Internal.0-4294967297", 0, {44, 1}},
             {"Disk.Bay.x:Enclosure.Internal.0-y", 0, {0, 0}},
             {"::Disk..Bay.7.9:.Enclosure..Internal.-0--2", 0, {7, 2}}}) {
        uint8_t bay = 238, slot = 238;
        EXPECT_EQ(getBayIDandSlotFromFqdd(fqdd, length, &bay, &slot), 0u);
        EXPECT_EQ((Bytes{slot, bay}), found);
    }
}

}  // namespace
