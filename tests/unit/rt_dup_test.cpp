#include "rt_dup.h"

#include <cwchar>

#include "rt_cache.h"
#include "tests/support/objects.h"
#include "tests/support/platform_test.h"

namespace {

// Where a field lies: on the controller as written out by hand, elsewhere as declared.
constexpr size_t at(size_t controller, size_t here) {
    return sizeof(void*) == 4 ? controller : here;
}
#define AT(controller, member) at(controller, offsetof(StorageObjectRecord, member))
constexpr size_t kName = AT(8, NAME);
constexpr size_t kVersion = AT(16, hdr.VERSION);
constexpr size_t kFqdd = AT(20, hdr.FQDD);

// A copy in a record of its own; null where it is refused or there is no memory for the record.
using Copier = StorageObjectRecord* (*)(const StorageObjectRecord* source);

// By an operation that fills a record of the caller's.
template <auto Dup>
StorageObjectRecord* filled(const StorageObjectRecord* source) {
    StorageObjectRecord* copy = [] {
        const fake::AllocationPause pause;
        return make(StorageObjectRecord{});
    }();
    if (Dup(source, copy) != 0) {
        vexel_free(std::exchange(copy, nullptr));
    }
    return copy;
}

struct Field {
    size_t position, bytes;  // 0 bytes: a wide text
};
struct Kind {
    const char* what;
    uint32_t type;
    Copier copy;
    std::vector<Field> owned = {};  // besides the two of the header
    std::function<void(StorageObjectRecord&)> set = [](auto&) {};
};

Kind adapter_kind(const char* what, uint8_t multiplier, size_t entries) {
    Kind kind{what, 0, DupAdapter};
    kind.set = [=](StorageObjectRecord& record) {
        record.body.adapter.capabilityMask = 0x80000101;
        record.body.adapter.capabilityMultiplier = multiplier;
    };
    kind.owned = {{AT(112, body.adapter.text112), 0},
                  {AT(116, body.adapter.capabilities), entries * 60}};
    for (size_t i = 0; i < 8; ++i) {
        const size_t stride = at(9, sizeof(AdapterTextEntry));
        kind.owned.push_back({AT(428, body.adapter.entries[0].text) + i * stride, 0});
    }
    return kind;
}

Kind smart_kind(const char* what, uint32_t selector, size_t pages) {
    Kind kind{what, 10, filled<rtraid_dupSmartPD>};
    kind.set = [=](StorageObjectRecord& record) {
        record.body.smart.pageSelector = selector;
        record.body.smart.flags = pages == 0 ? 2 : 0xFD;
        for (SmartPageSlot& page : record.body.smart.pages) {
            page.length = 300;
        }
    };
    if (pages == 0) {
        kind.owned = {{AT(226, body.smart.nvmeBlock), 512}};
    }
    for (size_t i = 0; i < pages; ++i) {
        kind.owned.push_back(
            {AT(84, body.smart.pages[0].page) + i * at(8, sizeof(SmartPageSlot)), 300});
    }
    return kind;
}

const std::vector<Field> kDiskFields{
    {AT(384, body.pd.keyId), 256},   {AT(417, body.pd.text417), 256},
    {AT(426, body.pd.text426), 128}, {AT(430, body.pd.text430), 128},
    {AT(434, body.pd.text434), 256}, {AT(504, body.pd.words), 1020}};
const Field kMemberIds{AT(504, body.vd.targetID), 1200};

const std::vector<Kind> kKinds{adapter_kind("adapter", 2, 6),
                               adapter_kind("adapter, no multiplier counts as one", 0, 3),
                               {"battery", 1, rtraid_DupBattery},
                               {"driver", 5, rtraid_DupDriver},
                               {"enclosure", 2, filled<rtraid_dupEnclosure>},
                               {"backplane", 240, filled<rtraid_dupEnclosure>},
                               {"EMM", 6, filled<rtraid_dupEMM>},
                               {"fan", 7, filled<rtraid_dupFAN>},
                               {"PSU", 8, filled<rtraid_dupPSU>},
                               {"temperature probe", 9, filled<rtraid_dupTEMPPROBE>},
                               {"disk", 3, filled<rtraid_dupPD>, kDiskFields,
                                [](auto& record) { record.body.pd.wordCount = 255; }},
                               {"virtual disk",
                                4,
                                filled<rtraid_DupVD>,
                                {kMemberIds},
                                [](auto& record) { record.body.vd.memberCount = 300; }},
                               smart_kind("SMART, NVMe whatever the selector", 32, 0),
                               smart_kind("SMART, seven pages", 32, 7),
                               smart_kind("SMART, five pages", 16, 5),
                               {"SMART, names only", 5, filled<rtraid_dupNVMeSmartData>}};

// Without a version they share the FQDD.
constexpr uint32_t kVersioned[] = {2, 3, 6, 7, 8, 9, 240};

class Duplicates : public PlatformTest {
  protected:
    static void* pointer(const StorageObjectRecord& record, size_t position) {
        void* value;
        std::memcpy(&value, reinterpret_cast<const char*>(&record) + position, sizeof(value));
        return value;
    }
    void put(size_t position, const void* value, size_t width) {
        std::memcpy(reinterpret_cast<char*>(&source) + position, value, width);
    }

    // What a field holds: bytes that no other field holds, ending in a zero.
    static std::string content(const Field& field) {
        const auto letter = static_cast<char>('A' + field.position % 50);
        if (field.bytes != 0) {
            return std::string(field.bytes - 1, letter) + '\0';
        }
        const std::wstring text(field.position % 50, static_cast<wchar_t>(letter));
        return {reinterpret_cast<const char*>(text.c_str()), (text.size() + 1) * sizeof(wchar_t)};
    }

    // A source of a kind with every byte set.
    void build(const Kind& kind, uint32_t version) {
        auto* bytes = reinterpret_cast<uint8_t*>(&source);
        std::iota(bytes, bytes + sizeof(source), uint8_t{1});
        put(0, &kind.type, 4);
        put(kVersion, &version, 4);
        kind.set(source);
        fields = kind.owned;
        fields.insert(fields.end(), {{kName, 0}, {kFqdd, 0}});
        for (const Field& field : fields) {
            const std::string held = content(field);
            const void* block = std::memcpy(vexel_alloc(held.size()), held.data(), held.size());
            put(field.position, &block, sizeof(block));
        }
    }

    // Copies a source while the n-th allocation fails, frees the source, looks at the copy and
    // frees it. Returns: whether there was an n-th allocation.
    bool copy_without(int n, const Kind& kind, uint32_t version) {
        SCOPED_TRACE(testing::Message() << kind.what << " " << version << ", allocation " << n);
        build(kind, version);
        platform.fail(Place::Allocation, n);
        const AllocationScope scope;
        StorageObjectRecord* copy = kind.copy(&source);
        const bool failed = platform.fault_fired(Place::Allocation);
        platform.no_faults();
        for (const Field& field : fields) {
            vexel_free(pointer(source, field.position));
        }
        if (version == 0 && std::ranges::count(kVersioned, kind.type) != 0) {
            fields.pop_back();  // the FQDD is shared
        }
        if (copy == nullptr) {
            EXPECT_EQ(n, 1) << "the record itself";
            return failed;
        }
        int missing = 0;
        for (const Field& field : fields) {
            const void* block = pointer(*copy, field.position);
            const std::string held = content(field);
            EXPECT_TRUE(block == nullptr || std::memcmp(block, held.data(), held.size()) == 0);
            missing += block == nullptr ? 1 : 0;
            put(field.position, &block, sizeof(block));
        }
        EXPECT_EQ(missing, failed ? 1 : 0);
        EXPECT_EQ(std::memcmp(copy, &source, sizeof(*copy)), 0) << "flat but for its fields";
        rtcache_FreeRMObjects(copy, 1);  // what the cache takes it to own
        return failed;
    }

    StorageObjectRecord source = {};
    std::vector<Field> fields;
};

TEST_F(Duplicates, OutliveTheSourceWholeButForTheFieldWithoutMemory) {
    for (const Kind& kind : kKinds) {
        EXPECT_EQ(kind.copy(nullptr), nullptr);
        for (const uint32_t version : {0u, 0x01000000u}) {
            for (int n = 1; copy_without(n, kind, version); ++n) {
            }
        }
        for (const uintptr_t unset :
             {uintptr_t{0xFFFFFFFF}, uintptr_t{0xFFFFFFFE}, UINTPTR_MAX, UINTPTR_MAX - 1}) {
            for (const Field& field : fields) {
                put(field.position, &unset, sizeof(unset));
            }
            rtcache_FreeRMObjects(make(source), 1);  // what was never set is not freed
        }
    }
}

TEST_F(Duplicates, MissingArgumentsAreRefused) {
    const PCIeSSDAdapterNames names{};
    EXPECT_EQ(DupPCIeSSDAdapter(nullptr, &source) + DupPCIeSSDAdapter(&names, nullptr), -2);
    EXPECT_EQ(rtraid_DupAdapterKey(nullptr), nullptr);
    EXPECT_EQ(rtraid_dupPD(&source, nullptr), 0xFFFFFFFFu);
    for (const auto fill :
         {rtraid_dupEnclosure, rtraid_dupSmartPD, rtraid_dupNVMeSmartData, rtraid_DupVD}) {
        EXPECT_EQ(fill(&source, nullptr), -1);
    }
}

TEST_F(Duplicates, TextsOfADiskAreBoundedAndKeysEndOnePastTheirEnd) {
    std::string key(256, 'x'), endless(256, 'x');
    key[3] = '\0';
    source.objType = RT_OBJ_PHYSICAL_DISK;
    PhysicalDiskBody& disk = source.body.pd;
    disk.keyId = key.data();
    disk.text426 = disk.text434 = endless.data();
    StorageObjectRecord* copy = filled<rtraid_dupPD>(&source);
    EXPECT_EQ(std::string(copy->body.pd.keyId, 6), std::string("xxx\0\0x", 6));
    EXPECT_EQ(copy->body.pd.text426 + 0, endless.substr(0, 127));
    EXPECT_EQ(copy->body.pd.text434 + 0, endless.substr(0, 255));
    rtcache_FreeRMObjects(copy, 1);
}

TEST_F(Duplicates, ArraysWithoutElementsAreSharedByADiskOnly) {
    uint32_t ids[] = {11, 12};
    source.objType = RT_OBJ_FAN;  // which owns neither
    source.body.vd.targetID = ids;
    StorageObjectRecord* copy = filled<rtraid_DupVD>(&source);
    EXPECT_EQ(copy->body.vd.targetID + 0, nullptr);
    rtcache_FreeRMObjects(copy, 1);
    source.body.vd.targetID = nullptr;
    source.body.pd.words = ids;
    copy = filled<rtraid_dupPD>(&source);
    EXPECT_EQ(copy->body.pd.words + 0, ids);
    rtcache_FreeRMObjects(copy, 1);
    AdapterCapabilityEntry entry{};
    source = {};
    source.body.adapter.capabilities = &entry;
    platform.clear_lines();
    copy = DupAdapter(&source);
    EXPECT_EQ(platform.lines().size(), 4u) << "none of them tells of an entry";
    rtcache_FreeRMObjects(copy, 1);
}

TEST_F(Duplicates, SmartDataOfNeitherSelectorLeavesTheCopyAlone) {
    const StorageObjectRecord empty{};
    wchar_t name[] = L"a name";
    source.objType = 7;
    source.NAME = source.hdr.FQDD = name;
    EXPECT_EQ(rtraid_dupSmartPD(&empty, &source), 0);
    EXPECT_EQ(uint32_t{source.objType}, 7u);
    EXPECT_TRUE(source.NAME == name && source.hdr.FQDD == name);
}

TEST_F(Duplicates, NamesOfAnSsdCardFillARecordAndAnAdapterKeyIsFlat) {
    wchar_t name[] = L"a name", fqdd[] = L"an FQDD";
    const PCIeSSDAdapterNames names{name, fqdd};
    EXPECT_EQ(DupPCIeSSDAdapter(&names, &source), 0);
    EXPECT_STREQ(source.NAME + 0, name);
    EXPECT_STREQ(source.hdr.FQDD + 0, fqdd);
    EXPECT_STREQ(source.body.adapter.text112 + 0, L"Not Applicable");
    const wchar_t* copied = source.NAME;
    vexel_free(source.body.adapter.text112);
    const PCIeSSDAdapterNames nameless{};
    EXPECT_EQ(DupPCIeSSDAdapter(&nameless, &source), 0);
    EXPECT_EQ(source.NAME, copied) << "what has no new name keeps the old one";
    EXPECT_STREQ(source.hdr.FQDD + 0, fqdd);
    rtcache_FreeRMObjects(make(source), 1);
    AdapterKeyRecord key;
    std::memset(&key, 'k', sizeof(key));
    const AllocationScope scope;
    AdapterKeyRecord* duplicate = rtraid_DupAdapterKey(&key);
    EXPECT_EQ(std::memcmp(duplicate, &key, 292), 0);
    vexel_free(duplicate);
    platform.fail(Place::Allocation);
    EXPECT_EQ(rtraid_DupAdapterKey(&key), nullptr);
}

// Two virtual disks, of which the first has no name and no ids, and two physical disks.
class ForeignConfig : public Duplicates {
  protected:
    ForeignConfig() {
        source.objType = 11;
        source.NAME = source.hdr.FQDD = virtual_disks[1].NAME = virtual_disks[1].hdr.FQDD = text;
        virtual_disks[0].body.vd.memberCount = virtual_disks[1].body.vd.memberCount = 3;
        virtual_disks[1].body.vd.targetID = ids;
        disks[1].NAME = text;
        const uint32_t two = 2;
        const void* arrays[] = {virtual_disks, disks};
        put(AT(64, body.foreign.virtualDiskCount), &two, sizeof(two));
        put(AT(76, body.foreign.physicalDiskCount), &two, sizeof(two));
        put(AT(68, body.foreign.virtualDisks), &arrays[0], sizeof(void*));
        put(AT(80, body.foreign.physicalDisks), &arrays[1], sizeof(void*));
    }

    wchar_t text[6] = L"a cfg";
    uint32_t ids[3] = {5, 6, 7};
    StorageObjectRecord virtual_disks[2] = {}, disks[2] = {};
};

TEST_F(ForeignConfig, IsCopiedDownToItsMembersWithoutWhatCannotBeAllocated) {
    // By allocation: record, NAME, FQDD, virtual disks, name and ids of the second, disks, a name.
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
        EXPECT_TRUE(n != 6 || copy->body.foreign.virtualDisks[1].body.vd.memberCount == 0);
    }
    EXPECT_EQ(platform.messages(4).size(), 7u) << "a line a member and what it points to";
    const StorageObjectRecord* vds = copy->body.foreign.virtualDisks;
    const StorageObjectRecord* pds = copy->body.foreign.physicalDisks;
    EXPECT_EQ(vds[1].hdr.FQDD + 0, +text) << "a member's FQDD is shared";
    for (const wchar_t* copied : {copy->NAME, copy->hdr.FQDD, vds[1].NAME, pds[1].NAME}) {
        EXPECT_STREQ(copied, L"a cfg");
        EXPECT_NE(copied, +text);
    }
    EXPECT_EQ(vds[1].body.vd.targetID[2], 7u);
    EXPECT_NE(vds[1].body.vd.targetID + 0, +ids);
    EXPECT_TRUE(vds[0].NAME == nullptr && vds[0].body.vd.targetID == nullptr);
    EXPECT_EQ(uint32_t{vds[0].body.vd.memberCount}, 3u);
    rtcache_FreeRMObjects(copy, 1);
}

TEST_F(ForeignConfig, OneEmptyArrayIsSharedTwoAreRefused) {
    source.body.foreign.physicalDiskCount = 0;
    StorageObjectRecord* copy = DupForeign_Config(&source);
    EXPECT_EQ(copy->body.foreign.physicalDisks + 0, +disks);
    rtcache_FreeRMObjects(copy, 1);
    source.body.foreign.virtualDiskCount = 0;
    EXPECT_EQ(DupForeign_Config(&source), nullptr);
    source.body.foreign.physicalDiskCount = 2;
    copy = DupForeign_Config(&source);
    EXPECT_EQ(copy->body.foreign.virtualDisks + 0, +virtual_disks);
    rtcache_FreeRMObjects(copy, 1);
    EXPECT_EQ(DupForeign_Config(nullptr), nullptr);
#if SIZE_MAX == UINT32_MAX
    source.body.foreign.virtualDiskCount = 2;
    virtual_disks[1].body.vd.memberCount = 0x40000001;
    copy = DupForeign_Config(&source);
    EXPECT_EQ(copy->body.foreign.virtualDisks[1].body.vd.memberCount, 0u) << "4 bytes too many";
    rtcache_FreeRMObjects(copy, 1);
#endif
}

}  // namespace
