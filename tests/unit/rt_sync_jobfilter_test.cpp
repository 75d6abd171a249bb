#include "rt_sync.h"
#include "tests/support/platform_test.h"

namespace {

class JobFilter : public PlatformTest {
  protected:
    void TearDown() override { freeHybridData(&g_hybridJobData); }

    static void install(std::vector<const wchar_t*> fqdds) {
        updateNotifFQDD(static_cast<int32_t>(fqdds.size()), fqdds.data());
    }
    static const HybridJobInfo* entry(int index) {
        return static_cast<HybridJobData*>(g_hybridJobData)->hybridJobInfo[index];
    }
};

TEST_F(JobFilter, AListIsInstalledAndFreed) {
    install({L"a%%b%%%"});  // as a format, with no argument to convert
    EXPECT_EQ(isFQDDEIDPresent(L"a%b%%", 9, 0), 1u);
    freeHybridData(&g_hybridJobData);
    updateNotifFQDD(0, nullptr);
    updateNotifFQDD(1, nullptr);
    EXPECT_EQ(isFQDDEIDPresent(nullptr, 9, 0), 1u) << "without a list everything passes";
    EXPECT_EQ(isTAVIFQDDEIDPresent(9), 1u);
}

TEST_F(JobFilter, FindsAControllerByAddressAndFromThenOnByEndpoint) {
    install({L"", L"RAID.Slot.3-1", L"RAID.Slot.3"});  // an empty text matches nothing
    const wchar_t* disk = L"Disk.Bay.0:Enclosure.Internal.0-1:RAID.Slot.3-1";
    for (const auto& [what, fqdd, by_id, expected] :
         Rows<const char*, const wchar_t*, uint32_t, uint32_t>{{"not bound yet", disk, 1, 0},
                                                               {"behind it", disk, 0, 1},
                                                               {"its endpoint", nullptr, 1, 1},
                                                               {"part of one", L"RAID.Slot", 0, 0},
                                                               {"no address", nullptr, 0, 0}}) {
        EXPECT_EQ(isFQDDEIDPresent(fqdd, 9, by_id), expected);
    }
    EXPECT_EQ(entry(2)->ctrId, 0u) << "the first match ends the walk";
}

TEST_F(JobFilter, BootStoragePassesAlwaysAndTheFirstListedIsUnbound) {
    install({L"RAID.ROR", L"ROR.Slot.2", L"TAVI.Slot.3"});
    EXPECT_EQ(isFQDDEIDPresent(L"ROR.Slot.2", 2, 0), 1u);
    EXPECT_EQ(isFQDDEIDPresent(L"TAVI.Slot.3", 3, 0), 1u);
    EXPECT_EQ(isTAVIFQDDEIDPresent(7), 1u);
    EXPECT_EQ(entry(1)->ctrId, 0u);
    EXPECT_EQ(entry(2)->ctrId, 3u);
}

}  // namespace
