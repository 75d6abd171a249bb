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

TEST_F(JobFilter, WithoutAListEverythingPasses) {
    const wchar_t* fqdd = L"RAID.Slot.3-1";
    for (const int32_t count : {0, -1}) {
        updateNotifFQDD(count, &fqdd);
        EXPECT_EQ(g_hybridJobData, nullptr);
    }
    EXPECT_EQ(platform.count_logged(4, "FQDD count 0. FILTERING DISABLED"), 2);
    EXPECT_EQ(platform.count_logged(1, "<-- updateNotifFQDD Exit"), 2);
    EXPECT_EQ(isFQDDEIDPresent(fqdd, 9, 0), 1u);
    EXPECT_EQ(isFQDDEIDPresent(nullptr, 9, 1), 1u);
    EXPECT_EQ(isTAVIFQDDEIDPresent(9), 1u);
    EXPECT_EQ(platform.count_logged(4, "Filtering on FQDD Disabled"), 3);
    HybridJobData empty{0, nullptr};
    g_hybridJobData = &empty;
    EXPECT_EQ(isFQDDEIDPresent(fqdd, 9, 0), 1u);
    EXPECT_EQ(isTAVIFQDDEIDPresent(9), 1u);
    EXPECT_EQ(platform.count_logged(1, "FQDD count in g_hybridJobData 0"), 1);
    g_hybridJobData = nullptr;
    freeHybridData(nullptr);
}

TEST_F(JobFilter, FindsAControllerByAddressAndFromThenOnByEndpoint) {
    install({L"NonRAID.Slot.1", L"RAID.Slot.3-1", L"RAID.Slot.3"});
    const Rows<const char*, const wchar_t*, uint8_t, uint32_t, uint32_t, const char*> rows{
        {"no endpoint bound yet", L"RAID.Slot.3-1", 9, 1, 0,
         "Adapter FQDD [RAID.Slot.3-1] NOT found"},
        {"a disk behind it", L"Disk.Bay.0:Enclosure.Internal.0-1:RAID.Slot.3-1", 9, 0, 1,
         "Adapter FQDD [RAID.Slot.3-1] id 9 FOUND at index 1"},
        {"its endpoint", nullptr, 9, 1, 1, "Adapter ID [9] FOUND at index 1"},
        {"another endpoint", L"RAID.Slot.3-1", 10, 1, 0, "Adapter FQDD [RAID.Slot.3-1] NOT found"},
        {"part of a listed address", L"RAID.Slot", 9, 0, 0, "Adapter FQDD [RAID.Slot] NOT found"},
        {"no address", nullptr, 9, 0, 0, "Adapter FQDD [(null)] NOT found"},
        {"endpoint 0 finds who is not bound", nullptr, 0, 1, 1, "Adapter ID [0] FOUND at index 0"}};
    for (const auto& [what, fqdd, eid, by_id, expected, line] : rows) {
        EXPECT_EQ(isFQDDEIDPresent(fqdd, eid, by_id), expected);
        EXPECT_EQ(platform.messages(4).back(), line);
        EXPECT_EQ(platform.messages(1).back(), "FQDD count in g_hybridJobData 3");
    }
    EXPECT_TRUE(logged(4, "Adapter FQDD [RAID.Slot.3-1] ID 9 at index 1"));
    EXPECT_EQ(entry(2)->ctrId, 0u) << "the first match ends the walk";
}

TEST_F(JobFilter, StoresTextsAsFormatsCutToTheirRoom) {
    const std::wstring longest(63, L'x');
    const std::pair<std::wstring, std::wstring> rows[] = {
        {L"a%%b%%%", L"a%b%%"},
        {L"%d%n%s%", L"%d%n%s%"},  // no argument to convert
        {longest + L"yz", longest}};
    for (const auto& [given, stored] : rows) {
        install({given.c_str()});  // frees the list before
        EXPECT_EQ(entry(0)->FQDD, stored);
    }
    install({L"", nullptr});
    EXPECT_TRUE(logged(4, "g_hybridJobData->hybridJobInfo[1]->FQDD is NULL"));
    EXPECT_EQ(isFQDDEIDPresent(L"RAID.Slot.3-1", 9, 0), 0u) << "an empty text matches nothing";
}

TEST_F(JobFilter, BootStoragePassesAlwaysAndTheFirstListedIsUnbound) {
    const wchar_t* fqdds[] = {L"RAID.ROR", L"ROR.Slot.2", L"TAVI.Slot.3"};
    install({std::begin(fqdds), std::end(fqdds)});
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(isFQDDEIDPresent(fqdds[i], static_cast<uint8_t>(i + 1), 0), 1u);
    }
    EXPECT_EQ(isTAVIFQDDEIDPresent(7), 1u);
    EXPECT_EQ(entry(0)->ctrId, 1u);
    EXPECT_EQ(entry(1)->ctrId, 0u);
    EXPECT_EQ(entry(2)->ctrId, 3u);
    EXPECT_EQ(platform.messages(1).back(), "Adapter FQDD [ROR.Slot.2] id 0 FOUND at index 1");
    install({L"TAV", L"RAID.Slot.3-1"});
    EXPECT_EQ(isTAVIFQDDEIDPresent(7), 1u);
    EXPECT_EQ(platform.messages(1).back(), "FQDD count in g_hybridJobData 2");
}

TEST_F(JobFilter, InstallingAndFreeingSpeak) {
    install({L"a", L"b"});
    freeHybridData(&g_hybridJobData);
    EXPECT_EQ(g_hybridJobData, nullptr);
    EXPECT_EQ(platform.messages(4),
              (Lines{"--> entry", "FQDD count 2", "Going to update g_hybridJobData",
                     "Going to print 2 FQDD in Notif", "g_hybridJobData->count = 2",
                     "After update ctrId 0", "After update ctrId 0",
                     "Free Adapter FQDD [a] FOUND at index 0",
                     "Free Adapter FQDD [b] FOUND at index 1", "<-- freeHybridData Exit"}));
    updateNotifFQDD(1, nullptr);
    EXPECT_TRUE(logged(2, "<-- err null inputs"));
}

// List, table, then entry and text of each.
TEST_F(JobFilter, WithoutMemoryAListIsNoneOrShorter) {
    const Rows<int, const char*> rows{{1, "2 <-- err no memory"},
                                      {2, "2 <-- err no memory"},
                                      {3, "4 g_hybridJobData->hybridJobInfo[0] is NULL"},
                                      {4, "4 g_hybridJobData->hybridJobInfo[0]->FQDD is NULL"},
                                      {6, "4 g_hybridJobData->hybridJobInfo[1]->FQDD is NULL"}};
    for (const auto& [n, line] : rows) {
        platform.clear_lines();
        const AllocationScope scope;
        platform.fail(Place::Allocation, n);
        install({L"a", L"b"});
        EXPECT_TRUE(logged(line[0] - '0', line + 2));
        EXPECT_EQ(isFQDDEIDPresent(L"a", 5, 0), n == 3 || n == 4 ? 0u : 1u);
        EXPECT_EQ(isFQDDEIDPresent(L"c", 6, 1), n <= 2 ? 1u : 0u);
        EXPECT_EQ(isTAVIFQDDEIDPresent(5), 1u);
        freeHybridData(&g_hybridJobData);
    }
}

}  // namespace
