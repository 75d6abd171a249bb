#include "rt_cache.h"
#include "rt_dup.h"
#include "tests/support/platform_test.h"

namespace {

// Two virtual disks, of which the second has no name and no ids, and two physical disks.
class ForeignConfig : public PlatformTest {
  protected:
    ForeignConfig() {
        source.objType = 11;
        source.NAME = source.hdr.FQDD = virtual_disks[0].NAME = virtual_disks[0].hdr.FQDD = text;
        virtual_disks[0].body.vd.memberCount = 3;
        virtual_disks[0].body.vd.targetID = ids;
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

TEST_F(ForeignConfig, IsCopiedDownToItsMembersWithoutWhatCannotBeAllocated) {
    // By allocation: record, NAME, FQDD, virtual disks, name and ids of the first, disks, a name.
    StorageObjectRecord* copy = nullptr;
    for (int n = 1; n <= 9; ++n) {
        SCOPED_TRACE(n);
        rtcache_FreeRMObjects(copy, 1);
        platform.clear_lines();
        platform.fail(Place::Allocation, n);
        const AllocationScope scope;
        copy = DupForeign_Config(&source);
        EXPECT_EQ(platform.fault_fired(Place::Allocation), n < 9);
        platform.no_faults();
        ASSERT_EQ(copy == nullptr, n == 1);
        EXPECT_TRUE(n != 6 || copy->body.foreign.virtualDisks->body.vd.memberCount == 0);
    }
    EXPECT_EQ(platform.messages(4).size(), 7u) << "a line a member and what it points to";
    const StorageObjectRecord* vds = copy->body.foreign.virtualDisks;
    const StorageObjectRecord* pds = copy->body.foreign.physicalDisks;
    EXPECT_EQ(vds[0].hdr.FQDD + 0, +text) << "a member's FQDD is shared";
    for (const wchar_t* copied : {copy->NAME, copy->hdr.FQDD, vds[0].NAME, pds[1].NAME}) {
        EXPECT_STREQ(copied, L"a cfg");
        EXPECT_NE(copied, +text);
    }
    EXPECT_EQ(vds[0].body.vd.targetID[2], 7u);
    EXPECT_NE(vds[0].body.vd.targetID + 0, +ids);
    EXPECT_TRUE(vds[1].NAME == nullptr && vds[1].body.vd.targetID == nullptr);
    rtcache_FreeRMObjects(copy, 1);
}

TEST_F(ForeignConfig, OneEmptyArrayIsSharedTwoAreRefused) {
    source.body.foreign.physicalDiskCount = 0;
    StorageObjectRecord* copy = DupForeign_Config(&source);
    EXPECT_EQ(copy->body.foreign.physicalDisks + 0, +disks);
    rtcache_FreeRMObjects(copy, 1);
    source.body.foreign.virtualDiskCount = 0;
    EXPECT_EQ(DupForeign_Config(&source), nullptr);
    EXPECT_EQ(DupForeign_Config(nullptr), nullptr);
}

}  // namespace
