#include "rt_cache.h"
#include "rt_dup.h"
#include "tests/support/platform_test.h"

namespace {

// Two virtual disks, of which the second has no name and no ids, and two physical disks.
class ForeignConfig : public PlatformTest {
  protected:
    ForeignConfig() {
        source.objType = 11;
        source.NAME = source.hdr.FQDD = text;
        virtual_disks[0].NAME = virtual_disks[0].hdr.FQDD = text;
        virtual_disks[0].body.vd.memberCount = 3;
        virtual_disks[0].body.vd.targetID = ids;
        disks[0].body.pd.id = 7;
        disks[0].body.pd.size = 0x123456789;
        disks[0].body.pd.state = 0xFFFFFFFFF;
        disks[0].body.pd.slot = 4;
        disks[0].body.pd.hotSpare = 1;
        disks[1].NAME = text;
        put(64, offsetof(StorageObjectRecord, body.foreign.virtualDiskCount), 2);
        put(76, offsetof(StorageObjectRecord, body.foreign.physicalDiskCount), 2);
        put(68, offsetof(StorageObjectRecord, body.foreign.virtualDisks), +virtual_disks);
        put(80, offsetof(StorageObjectRecord, body.foreign.physicalDisks), +disks);
    }

    template <class T>
    void put(size_t controller, size_t here, T value) {
        std::memcpy(reinterpret_cast<char*>(&source) + (sizeof(void*) == 4 ? controller : here),
                    &value, sizeof(value));
    }

    wchar_t text[6] = L"a cfg";
    uint32_t ids[3] = {5, 6, 7};
    StorageObjectRecord virtual_disks[2] = {}, disks[2] = {}, source = {};
};

TEST_F(ForeignConfig, IsCopiedDownToItsMembers) {
    StorageObjectRecord* freed = DupForeign_Config(&source);
    ASSERT_NE(freed, nullptr);
    platform.clear_lines();
    StorageObjectRecord* copy = DupForeign_Config(freed);
    ASSERT_NE(copy, nullptr);
    rtcache_FreeRMObjects(freed, 1);
    const StorageObjectRecord* vds = copy->body.foreign.virtualDisks;
    const StorageObjectRecord* pds = copy->body.foreign.physicalDisks;
    EXPECT_EQ(vds[0].hdr.FQDD + 0, +text) << "a member's FQDD is shared";
    for (const wchar_t* copied : {copy->NAME, copy->hdr.FQDD, vds[0].NAME, pds[1].NAME}) {
        EXPECT_STREQ(copied, L"a cfg");
    }
    EXPECT_EQ(vds[0].body.vd.targetID[2], 7u);
    EXPECT_TRUE(vds[1].NAME == nullptr && vds[1].body.vd.targetID == nullptr);
    EXPECT_TRUE(
        logged(4, "id:  7 Size:4886718345,Stae:68719476735,Slot: 4 ,Hotspare:1,Name: (null)"));
    for (const char* line : {"Copied VD Name", "Copied PD Name", "Copied pds"}) {
        EXPECT_EQ(platform.count_logged(4, line), 1) << line;
    }
    rtcache_FreeRMObjects(copy, 1);
    EXPECT_TRUE(logged(4, "Memory freed FOREIGN_CONFIG"));
}

TEST_F(ForeignConfig, OneEmptyArrayIsSharedTwoAreRefused) {
    source.body.foreign.physicalDiskCount = 0;
    StorageObjectRecord* copy = DupForeign_Config(&source);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->body.foreign.physicalDisks + 0, +disks);
    rtcache_FreeRMObjects(copy, 1);
    source.body.foreign.virtualDiskCount = 0;
    EXPECT_EQ(DupForeign_Config(&source), nullptr);
    source.body.foreign.physicalDiskCount = 2;
    copy = DupForeign_Config(&source);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->body.foreign.virtualDisks + 0, +virtual_disks);
    rtcache_FreeRMObjects(copy, 1);
    EXPECT_TRUE(logged(2, "<--error6 DupForeign_Config"));
    EXPECT_EQ(DupForeign_Config(nullptr), nullptr);
    EXPECT_TRUE(logged(2, "<--error1 DupForeign_Config"));
    source.body.foreign.virtualDiskCount = 2;
    source.body.foreign.virtualDisks = nullptr;
    copy = DupForeign_Config(&source);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->body.foreign.virtualDisks + 0, nullptr);
    EXPECT_FALSE(logged(2, "<--error3 DupForeign_Config"));
    copy->body.foreign.virtualDisks = reinterpret_cast<StorageObjectRecord*>(0xFFFFFFFF);
    rtcache_FreeRMObjects(copy, 1);  // nor is what was never set
}

TEST_F(ForeignConfig, GoesOnWithoutWhatCannotBeAllocated) {
    // By allocation: record, NAME, FQDD, virtual disks, name and ids of the first, disks, a name.
    const char* const errors[] = {"<--error2", "",          "", "<--error3", "",
                                  "<--error4", "<--error5", "", ""};
    for (int n = 1; n <= 9; ++n) {
        SCOPED_TRACE(n);
        platform.clear_lines();
        platform.fail(Place::Allocation, n);
        const AllocationScope scope;
        StorageObjectRecord* copy = DupForeign_Config(&source);
        EXPECT_EQ(platform.fault_fired(Place::Allocation), n < 9);
        platform.no_faults();
        const std::string error = errors[n - 1];
        EXPECT_EQ(platform.messages(2).size(), error.empty() ? 0u : 1u);
        EXPECT_TRUE(error.empty() || logged(2, error + " DupForeign_Config"));
        ASSERT_EQ(copy == nullptr, n == 1);
        if (n == 6) {
            EXPECT_EQ(copy->body.foreign.virtualDisks[0].body.vd.memberCount + 0, 0u);
        }
        rtcache_FreeRMObjects(copy, 1);
    }
}

}  // namespace
