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

struct Value {
    size_t position, width;
    uint32_t value;
};
struct Field {
    size_t position, bytes;  // 0 bytes: a wide text
};
struct Kind {
    const char* what;
    uint32_t type;
    Copier copy;
    std::vector<Value> values = {};
    std::vector<Field> owned = {};  // besides the two of the header
};

Kind adapter_kind() {
    Kind kind{"adapter", 0, DupAdapter};
    kind.values = {{AT(88, body.adapter.capabilityMask), 4, 0x80000101},
                   {AT(160, body.adapter.capabilityMultiplier), 1, 2}};
    kind.owned = {{AT(112, body.adapter.text112), 0}, {AT(116, body.adapter.capabilities), 6 * 60}};
    for (size_t i = 0; i < 8; ++i) {
        const size_t stride = at(9, sizeof(AdapterTextEntry));
        kind.owned.push_back({AT(428, body.adapter.entries[0].text) + i * stride, 0});
    }
    return kind;
}

Kind smart_kind(const char* what, uint32_t selector, size_t pages) {
    Kind kind{what, 10, filled<rtraid_dupSmartPD>};
    kind.values = {{AT(68, body.smart.pageSelector), 4, selector},
                   {AT(80, body.smart.flags), 4, pages == 0 ? 2u : 0xFDu}};
    if (pages == 0) {
        kind.owned = {{AT(226, body.smart.nvmeBlock), 512}};
    }
    for (size_t i = 0; i < pages; ++i) {
        const size_t slot = i * at(8, sizeof(SmartPageSlot));
        const auto length = static_cast<uint32_t>(300 + i);
        kind.values.push_back({AT(89, body.smart.pages[0].length) + slot, 2, length});
        kind.owned.push_back({AT(84, body.smart.pages[0].page) + slot, length});
    }
    return kind;
}

const std::vector<Field> kDiskFields{
    {AT(384, body.pd.keyId), 256},   {AT(417, body.pd.text417), 256},
    {AT(426, body.pd.text426), 128}, {AT(430, body.pd.text430), 128},
    {AT(434, body.pd.text434), 256}, {AT(504, body.pd.words), 1020}};
const Value kDiskWords{AT(503, body.pd.wordCount), 1, 255};
const Value kMembers{AT(500, body.vd.memberCount), 4, 300};
const Field kMemberIds{AT(504, body.vd.targetID), 1200};

const std::vector<Kind> kKinds{adapter_kind(),
                               {"battery", 1, rtraid_DupBattery},
                               {"driver", 5, rtraid_DupDriver},
                               {"enclosure", 2, filled<rtraid_dupEnclosure>},
                               {"backplane", 240, filled<rtraid_dupEnclosure>},
                               {"EMM", 6, filled<rtraid_dupEMM>},
                               {"fan", 7, filled<rtraid_dupFAN>},
                               {"PSU", 8, filled<rtraid_dupPSU>},
                               {"temperature probe", 9, filled<rtraid_dupTEMPPROBE>},
                               {"disk", 3, filled<rtraid_dupPD>, {kDiskWords}, kDiskFields},
                               {"virtual disk", 4, filled<rtraid_DupVD>, {kMembers}, {kMemberIds}},
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
        for (const Value& value : kind.values) {
            put(value.position, &value.value, value.width);
        }
        fields = kind.owned;
        fields.insert(fields.end(), {{kName, 0}, {kFqdd, 0}});
        for (const Field& field : fields) {
            const std::string held = content(field);
            const void* block = std::memcpy(vexel_alloc(held.size()), held.data(), held.size());
            put(field.position, &block, sizeof(block));
        }
    }

    // The copy holds what the freed source did. Returns: how many of its fields are null.
    size_t look_at(const StorageObjectRecord& copy) {
        size_t missing = 0;
        for (const Field& field : fields) {
            const void* block = pointer(copy, field.position);
            const std::string held = content(field);
            EXPECT_TRUE(block == nullptr || std::memcmp(block, held.data(), held.size()) == 0);
            missing += block == nullptr ? 1 : 0;
            put(field.position, &block, sizeof(block));
        }
        EXPECT_EQ(std::memcmp(&copy, &source, sizeof(copy)), 0) << "flat but for its fields";
        return missing;
    }

    // Copies a source while the n-th allocation fails, frees the source, looks at the copy and
    // frees it. Counts the fields that are missing. Returns: whether there was an n-th allocation.
    bool copy_without(int n, const Kind& kind, uint32_t version, size_t& missing) {
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
        EXPECT_TRUE(copy != nullptr || n == 1) << "the record itself";
        if (copy != nullptr) {
            const size_t nulls = look_at(*copy);
            EXPECT_EQ(nulls, failed ? 1u : 0u);
            missing += nulls;
        }
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
            size_t missing = 0;
            for (int n = 1; copy_without(n, kind, version, missing); ++n) {
            }
            EXPECT_EQ(missing, fields.size()) << kind.what << ": each field once";
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
    StorageObjectRecord copy;
    EXPECT_EQ(DupPCIeSSDAdapter(nullptr, &copy) + DupPCIeSSDAdapter(&names, nullptr), -2);
    EXPECT_EQ(rtraid_DupAdapterKey(nullptr), nullptr);
    for (const auto fill :
         {rtraid_dupEnclosure, rtraid_dupEMM, rtraid_dupFAN, rtraid_dupPSU, rtraid_dupTEMPPROBE,
          rtraid_dupSmartPD, rtraid_dupNVMeSmartData, rtraid_DupVD}) {
        EXPECT_EQ(fill(nullptr, &copy) + fill(&source, nullptr), -2);
    }
    EXPECT_EQ(rtraid_dupPD(nullptr, &copy), 0xFFFFFFFFu);
    EXPECT_EQ(rtraid_dupPD(&source, nullptr), 0xFFFFFFFFu);
}

TEST_F(Duplicates, TextsOfADiskAreBoundedAndKeysEndOnePastTheirEnd) {
    std::string key(256, 'x'), endless(256, 'x');
    key[3] = '\0';
    source.objType = RT_OBJ_PHYSICAL_DISK;
    PhysicalDiskBody& disk = source.body.pd;
    disk.keyId = key.data();
    disk.text417 = disk.text426 = disk.text430 = disk.text434 = endless.data();
    StorageObjectRecord* copy = filled<rtraid_dupPD>(&source);
    EXPECT_EQ(std::string(copy->body.pd.keyId, 6), std::string("xxx\0\0x", 6));
    EXPECT_EQ(copy->body.pd.text417 + 0, endless);
    EXPECT_EQ(copy->body.pd.text426 + 0, endless.substr(0, 127));
    EXPECT_EQ(copy->body.pd.text430 + 0, endless.substr(0, 127));
    EXPECT_EQ(copy->body.pd.text434 + 0, endless.substr(0, 255));
    rtcache_FreeRMObjects(copy, 1);
}

TEST_F(Duplicates, ArraysWithoutElementsAreSharedByADiskOnly) {
    uint32_t ids[] = {11, 12};
    source.objType = RT_OBJ_VIRTUAL_DISK;
    source.body.vd.size = 0x123456789;
    source.body.pd.words = source.body.vd.targetID = ids;  // the same bytes
    for (const uint32_t count : {0u, 2u}) {
        source.body.vd.memberCount = count;
        StorageObjectRecord* copy = filled<rtraid_DupVD>(&source);
        EXPECT_EQ(copy->body.vd.targetID == nullptr, count == 0);
        rtcache_FreeRMObjects(copy, 1);
    }
    EXPECT_TRUE(
        lines_of("rt_dup.cpp")
            .ends_with("4 --> rtraid_DupVD|4 VD Size=4886718345 |4 PD targetID=11|4 PD targetID=12|"
                       "4 <-- rtraid_DupVD|"));
    source.objType = RT_OBJ_PHYSICAL_DISK;
    source.body.pd.wordCount = 0;
    StorageObjectRecord* copy = filled<rtraid_dupPD>(&source);
    EXPECT_EQ(copy->body.pd.words + 0, +ids);
    rtcache_FreeRMObjects(copy, 1);
}

TEST_F(Duplicates, SmartDataOfNeitherSelectorLeavesTheCopyAlone) {
    const StorageObjectRecord empty{};
    source.objType = 7;
    EXPECT_EQ(rtraid_dupSmartPD(&empty, &source), 0);
    EXPECT_EQ(uint32_t{source.objType}, 7u);
}

TEST_F(Duplicates, NamesOfAnSsdCardFillARecordAndAnAdapterKeyIsFlat) {
    wchar_t name[] = L"a name", fqdd[] = L"an FQDD";
    const PCIeSSDAdapterNames names{name, fqdd};
    EXPECT_EQ(DupPCIeSSDAdapter(&names, &source), 0);
    EXPECT_STREQ(source.NAME + 0, name);
    EXPECT_STREQ(source.hdr.FQDD + 0, fqdd);
    EXPECT_STREQ(source.body.adapter.text112 + 0, L"Not Applicable");
    rtcache_FreeRMObjects(make(source), 1);
    const AdapterKeyRecord key{};
    AdapterKeyRecord* duplicate = rtraid_DupAdapterKey(&key);
    EXPECT_EQ(std::memcmp(duplicate, &key, 292), 0);
    vexel_free(duplicate);
}

TEST_F(Duplicates, EntriesOfAnAdapterAreCountedAndLogged) {
    AdapterCapabilityEntry entry{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    source.body.adapter.capabilityMask = 0x100;  // one entry: no multiplier counts as one
    source.body.adapter.capabilities = &entry;
    source.body.adapter.spdm = 3;
    rtcache_FreeRMObjects(DupAdapter(&source), 1);
    EXPECT_EQ(lines_of("rt_dup.cpp"),
              "4 --> DupAdapter|4 SPDM Dst 3 SRC 3|4 PLDM Dst 0 SRC 0|"
              "4 RL 1 MDR 2 MDA 3 DCP 4 ACP 5 DSS 6 ASS 7 BM 8 DRQ 9 ARLQ 10 DSRL 11 "
              "ASRL 12 AP 13 FF 14 |4 <-- DupAdapter|");
}

}  // namespace
