#include "rt_dup.h"

#include <cwchar>

#include "rt_cache.h"
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

// Fills copy from source, a full record of the kind; false without memory for it.
using Copier = bool (*)(const StorageObjectRecord& source, StorageObjectRecord& copy);

template <auto Dup>
bool filled(const StorageObjectRecord& source, StorageObjectRecord& copy) {
    return Dup(&source, &copy) == 0;
}

template <auto Dup>
bool allocated(const StorageObjectRecord& source, StorageObjectRecord& copy) {
    StorageObjectRecord* record = Dup(&source);
    if (record != nullptr) {
        std::memcpy(&copy, record, sizeof(copy));
    }
    vexel_free(record);
    return record != nullptr;
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
    const char* freed;  // lines of its freeing, between entry and exit
    std::vector<Value> values = {};
    std::vector<Field> owned = {};  // besides the two of the header
};

Kind adapter_kind() {
    Kind kind{"adapter", 0, allocated<DupAdapter>, ""};
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
    Kind kind{what, 10, filled<rtraid_dupSmartPD>, "OBJTYPE is SMART_DATA_OBJ\nFreeing logPages\n"};
    kind.values = {{AT(68, body.smart.pageSelector), 4, selector},
                   {AT(80, body.smart.flags), 4, pages == 0 ? 2u : 0xFDu}};
    if (pages == 0) {
        kind.freed = "OBJTYPE is SMART_DATA_OBJ\nFreeing rawData\n";
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

const std::vector<Kind> kKinds{
    adapter_kind(),
    {"battery", 1, allocated<rtraid_DupBattery>, ""},
    {"driver", 5, allocated<rtraid_DupDriver>, ""},
    {"unknown", 99, allocated<rtraid_DupDriver>, ""},
    {"enclosure", 2, filled<rtraid_dupEnclosure>, "OBJTYPE is ENCLOSURE\n"},
    {"backplane", 240, filled<rtraid_dupEnclosure>, ""},
    {"EMM", 6, filled<rtraid_dupEMM>, ""},
    {"fan", 7, filled<rtraid_dupFAN>, ""},
    {"PSU", 8, filled<rtraid_dupPSU>, ""},
    {"temperature probe", 9, filled<rtraid_dupTEMPPROBE>, ""},
    {"disk",
     3,
     filled<rtraid_dupPD>,
     "OBJTYPE is PHYSICALDISK\n",
     {{AT(503, body.pd.wordCount), 1, 255}},
     {{AT(384, body.pd.keyId), 256},
      {AT(417, body.pd.text417), 256},
      {AT(426, body.pd.text426), 128},
      {AT(430, body.pd.text430), 128},
      {AT(434, body.pd.text434), 256},
      {AT(504, body.pd.words), 255 * 4}}},
    {"virtual disk",
     4,
     filled<rtraid_DupVD>,
     "OBJTYPE is LOGICALDISK\n",
     {{AT(500, body.vd.memberCount), 4, 300}},
     {{AT(504, body.vd.targetID), 300 * 4}}},
    smart_kind("SMART, NVMe whatever the selector", 32, 0),
    smart_kind("SMART, seven pages", 32, 7),
    smart_kind("SMART, five pages", 16, 5),
    {"SMART, names only", 5, filled<rtraid_dupNVMeSmartData>, ""}};

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
        for (size_t i = 0; i < sizeof(source); ++i) {
            const auto byte = static_cast<uint8_t>(i * 7 + 1);
            put(i, &byte, 1);
        }
        put(0, &kind.type, 4);
        put(kVersion, &version, 4);
        for (const Value& value : kind.values) {
            put(value.position, &value.value, value.width);
        }
        fields = kind.owned;
        fields.insert(fields.end(), {{kName, 0}, {kFqdd, 0}});
        for (const Field& field : fields) {
            const std::string bytes = content(field);
            void* block = vexel_alloc(bytes.size());
            std::memcpy(block, bytes.data(), bytes.size());
            put(field.position, &block, sizeof(block));
        }
        std::memset(static_cast<void*>(&copy), 0xEE, sizeof(copy));
    }
    void free_fields(const StorageObjectRecord& record) const {
        for (const Field& field : fields) {
            vexel_free(pointer(record, field.position));
        }
    }
    // Gives back what the cache takes a record of this kind to own.
    void free_copy() const {
        auto* record = static_cast<StorageObjectRecord*>(vexel_alloc(sizeof(copy)));
        std::memcpy(record, &copy, sizeof(copy));
        rtcache_FreeRMObjects(record, 1);
    }
    bool in_a_field(size_t byte) const {
        return std::any_of(fields.begin(), fields.end(), [byte](const Field& field) {
            return byte >= field.position && byte < field.position + sizeof(void*);
        });
    }
    // Fields of the copy that are null; the others hold what the source's did.
    int count_missing() const {
        int missing = 0;
        for (const Field& field : fields) {
            const std::string bytes = content(field);
            const void* block = pointer(copy, field.position);
            missing += block == nullptr ? 1 : 0;
            EXPECT_TRUE(block == nullptr || std::memcmp(block, bytes.data(), bytes.size()) == 0)
                << field.position;
        }
        return missing;
    }

    StorageObjectRecord source, copy;
    std::vector<Field> fields;
};

TEST_F(Duplicates, OutliveTheSourceAndAreFlatElsewhere) {
    for (const Kind& kind : kKinds) {
        for (const uint32_t version : {0u, 0x01000000u}) {
            SCOPED_TRACE(testing::Message() << kind.what << ", version " << version);
            build(kind, version);
            ASSERT_TRUE(kind.copy(source, copy));
            for (size_t i = 0; i < sizeof(source); ++i) {
                const bool same = reinterpret_cast<const char*>(&copy)[i] ==
                                  reinterpret_cast<const char*>(&source)[i];
                EXPECT_TRUE(same || in_a_field(i)) << i;
            }
            const bool shared = version == 0 && std::ranges::count(kVersioned, kind.type) != 0;
            for (const Field& field : fields) {
                EXPECT_EQ(pointer(copy, field.position) == pointer(source, field.position),
                          shared && field.position == kFqdd)
                    << field.position;
            }
            free_fields(source);
            if (shared) {
                fields.pop_back();  // went with the source
            }
            EXPECT_EQ(count_missing(), 0);
            platform.clear_lines();
            free_copy();
            const std::string lines = told(4);
            EXPECT_TRUE(lines.starts_with("--> enter with obj addr:0x"));
            EXPECT_EQ(lines.substr(lines.find('\n') + 1), kind.freed + std::string{"<-- exit\n"});
        }
    }
}

TEST_F(Duplicates, FieldsThatWereNeverSetAreNotFreed) {
    for (const Kind& kind : kKinds) {
        for (const uintptr_t sentinel : {uintptr_t{0xFFFFFFFF}, uintptr_t{0xFFFFFFFE}, UINTPTR_MAX,
                                         UINTPTR_MAX - 1, uintptr_t{0}}) {
            build(kind, 7);
            auto* records = static_cast<StorageObjectRecord*>(vexel_alloc(2 * sizeof(source)));
            std::memcpy(&records[1], &source, sizeof(source));  // these are
            for (const Field& field : fields) {
                put(field.position, &sentinel, sizeof(sentinel));
            }
            std::memcpy(&records[0], &source, sizeof(source));
            rtcache_FreeRMObjects(records, 2);
        }
    }
    source = {};
    source.objType = RT_OBJ_SMART_DATA;  // of neither selector: the pages are not its own
    source.body.smart.pages[0].page = &source;
    std::memcpy(&copy, &source, sizeof(copy));
    free_copy();
    rtcache_FreeRMObjects(nullptr, 5);
}

TEST_F(Duplicates, AreWholeButForTheFieldWhoseAllocationFailed) {
    for (const Kind& kind : kKinds) {
        bool fails = true;
        size_t missing = 0;
        for (int n = 1; fails; ++n) {
            SCOPED_TRACE(testing::Message() << kind.what << ", allocation " << n);
            build(kind, 7);
            platform.fail(Place::Allocation, n);
            const AllocationScope scope;
            const bool done = kind.copy(source, copy);
            fails = platform.fault_fired(Place::Allocation);
            platform.no_faults();
            EXPECT_TRUE(done || n == 1);
            if (done) {
                EXPECT_EQ(count_missing(), fails ? 1 : 0);
                free_copy();
                missing += fails ? 1 : 0;
            }
            free_fields(source);
        }
        EXPECT_EQ(missing, fields.size()) << kind.what << ": each field once";
    }
}

TEST_F(Duplicates, MissingArgumentsAndMemoryAreNamed) {
    const auto refuse = [this](auto duplicate, const auto& from, const std::string& name) {
        EXPECT_EQ(duplicate(nullptr), nullptr);
        platform.fail(Place::Allocation);
        const AllocationScope scope;
        EXPECT_EQ(duplicate(&from), nullptr);
        EXPECT_EQ(told(2), "<--error1 " + name + "\n<--error2 " + name + "\n");
    };
    source = {};
    refuse(DupAdapter, source, "DupAdapter");
    refuse(rtraid_DupBattery, source, "rtraid_DupBattery");
    refuse(rtraid_DupDriver, source, "rtraid_DupDriver");
    refuse(rtraid_DupAdapterKey, AdapterKeyRecord{}, "rtraid_DupAdapterKey");
    const PCIeSSDAdapterNames names{};
    EXPECT_EQ(DupPCIeSSDAdapter(nullptr, &copy) + DupPCIeSSDAdapter(&names, nullptr), -2);
    EXPECT_EQ(rtraid_DupVD(&source, nullptr) + rtraid_DupVD(nullptr, &copy), -2);
    for (const auto fill : {rtraid_dupEnclosure, rtraid_dupEMM, rtraid_dupFAN, rtraid_dupPSU,
                            rtraid_dupTEMPPROBE, rtraid_dupSmartPD, rtraid_dupNVMeSmartData}) {
        EXPECT_EQ(fill(nullptr, &copy) + fill(&source, nullptr), -2);
    }
    EXPECT_EQ(rtraid_dupPD(nullptr, &copy), 0xFFFFFFFFu);
    EXPECT_EQ(rtraid_dupPD(&source, nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(told(2),
              "<--error1 DupPCIeSSDAdapter\n<--error2 DupPCIeSSDAdapter\n"
              "<--error1 rtraid_DupVD\n<--error1 rtraid_DupVD\n");
}

TEST_F(Duplicates, TextsOfADiskAreBoundedAndEndOnePastTheirEnd) {
    // zero: the text; the extra zero of keyId and text417
    const Rows<size_t, size_t> rows{{0, 1}, {3, 4}, {126, 127}, {254, 255}, {255, 256}, {256, 256}};
    for (const auto& [length, zero] : rows) {
        std::string text(257, 'x');
        text[length] = '\0';
        source = {};
        auto* exact = static_cast<char*>(vexel_alloc(256));  // ends where it must not be read
        std::memcpy(exact, text.data(), 256);
        PhysicalDiskBody& disk = source.body.pd;
        disk.keyId = disk.text417 = exact;
        disk.text426 = disk.text430 = disk.text434 = text.data();
        ASSERT_EQ(rtraid_dupPD(&source, &copy), 0u);
        const std::string shorter = text.substr(0, std::min<size_t>(length, 127));
        const std::string longer = text.substr(0, std::min<size_t>(length, 255));
        text[256] = text[zero] = '\0';
        for (char* key : {copy.body.pd.keyId, copy.body.pd.text417}) {
            EXPECT_EQ(std::string(key, 257), text);
        }
        EXPECT_EQ(copy.body.pd.text426 + 0, shorter);
        EXPECT_EQ(copy.body.pd.text430 + 0, shorter);
        EXPECT_EQ(copy.body.pd.text434 + 0, longer);
        copy.objType = RT_OBJ_PHYSICAL_DISK;
        free_copy();
        vexel_free(exact);
    }
}

TEST_F(Duplicates, CapabilityEntriesAreCountedByMaskAndMultiplier) {
    AdapterCapabilityEntry entries[64] = {};
    entries[5] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    const Rows<uint32_t, uint8_t, bool, size_t> rows{
        {7, 2, true, 6}, {7, 0, true, 3}, {~0u, 2, true, 64}, {0, 9, true, 0}, {7, 2, false, 0}};
    for (const auto& [mask, multiplier, has_entries, count] : rows) {
        SCOPED_TRACE(testing::Message() << mask << " * " << +multiplier);
        source = {};
        source.body.adapter.capabilityMask = mask;
        source.body.adapter.capabilityMultiplier = multiplier;
        source.body.adapter.capabilities = has_entries ? entries : nullptr;
        platform.clear_lines();
        ASSERT_TRUE(allocated<DupAdapter>(source, copy));
        AdapterCapabilityEntry* copies = copy.body.adapter.capabilities;
        EXPECT_EQ(copies != nullptr, has_entries);
        EXPECT_TRUE(count == 0 || std::memcmp(copies, entries, 60 * count) == 0);
        EXPECT_EQ(platform.lines().size(), 4 + count);
        EXPECT_EQ(logged(4,
                         "RL 1 MDR 2 MDA 3 DCP 4 ACP 5 DSS 6 ASS 7 BM 8 DRQ 9 ARLQ 10 DSRL 11 "
                         "ASRL 12 AP 13 FF 14 "),
                  count > 5);
        vexel_free(copies);
    }
}

TEST_F(Duplicates, ArraysWithoutElementsOrWithoutASource) {
    uint32_t word = 1;
    source = {};
    source.objType = 3;
    source.body.pd.words = source.body.vd.targetID = &word;  // the same bytes
    EXPECT_EQ(rtraid_dupPD(&source, &copy), 0u);
    EXPECT_EQ(pointer(copy, AT(504, body.pd.words)), &word) << "a disk shares it";
    free_copy();
    source.body.vd.memberCount = 0;
    EXPECT_EQ(rtraid_DupVD(&source, &copy), 0);
    EXPECT_EQ(pointer(copy, AT(504, body.vd.targetID)), nullptr) << "a virtual disk has none";
    source.body.vd.memberCount = 0xFFFFFFFF;
    source.body.vd.targetID = nullptr;
    platform.clear_lines();
    EXPECT_EQ(rtraid_DupVD(&source, &copy), 0);
    EXPECT_EQ(pointer(copy, AT(504, body.vd.targetID)), nullptr);
    EXPECT_EQ(platform.lines().size(), 2u);
}

TEST_F(Duplicates, SomeLeaveTheRestOfTheRecordAlone) {
    wchar_t name[] = L"a name";
    wchar_t fqdd[] = L"an FQDD";
    const PCIeSSDAdapterNames names{name, fqdd};
    StorageObjectRecord before;
    std::memset(static_cast<void*>(&before), 0xEE, sizeof(before));
    source = {};
    source.NAME = name;
    source.hdr.FQDD = fqdd;
    source.body.smart.pageSelector = 48;
    for (const bool adapter : {false, true}) {
        std::memcpy(&copy, &before, sizeof(copy));
        EXPECT_EQ(adapter ? DupPCIeSSDAdapter(&names, &copy) : rtraid_dupSmartPD(&source, &copy),
                  0);
        std::vector<std::pair<size_t, std::wstring>> texts{{kName, name}, {kFqdd, fqdd}};
        if (adapter) {
            texts.push_back({AT(112, body.adapter.text112), L"Not Applicable"});
        }
        for (const auto& [position, text] : texts) {
            EXPECT_EQ(static_cast<wchar_t*>(pointer(copy, position)), text);
            vexel_free(pointer(copy, position));
            std::memset(reinterpret_cast<char*>(&copy) + position, 0xEE, sizeof(void*));
        }
        EXPECT_EQ(std::memcmp(&copy, &before, sizeof(copy)), 0);
    }
    AdapterKeyRecord key;
    std::memset(&key, 0xA5, sizeof(key));
    AdapterKeyRecord* duplicate = rtraid_DupAdapterKey(&key);
    EXPECT_EQ(std::memcmp(duplicate, &key, 292), 0);
    vexel_free(duplicate);
}

TEST_F(Duplicates, LogWhatTheyCopied) {
    wchar_t name[] = L"Disk 0";
    uint32_t ids[] = {11, 12};
    source = {};
    source.NAME = name;
    source.body.vd.size = 0x123456789;
    source.body.vd.memberCount = 2;
    source.body.vd.targetID = ids;
    EXPECT_EQ(rtraid_DupVD(&source, &copy), 0);
    vexel_free(copy.body.vd.targetID);
    vexel_free(copy.NAME);
    EXPECT_EQ(told(4),
              "--> rtraid_DupVD\nVD Size=4886718345 \nPD targetID=11\nPD targetID=12\n"
              "<-- rtraid_DupVD\n");
    EXPECT_EQ(rtraid_dupEnclosure(&source, &copy), 0);
    vexel_free(copy.NAME);
    EXPECT_EQ(told(4),
              "--> rtraid_dupEnclosure\nDUPE-ENCLOSURE After copy NAME=Disk 0\n"
              "<-- rtraid_dupEnclosure\n");
    source.body = {};
    EXPECT_EQ(rtraid_dupPD(&source, &copy), 0u);
    vexel_free(copy.NAME);
    for (const char* text : {"PCIeSSD hdr.FQDD=(null) NAME=Disk 0 pDestPD->hdr.VERSION=0",
                             "rtraid_dupPD pSrcPD->keyId = (null) , pDestPD->keyId = (null)"}) {
        EXPECT_TRUE(logged(4, text)) << text;
    }
    EXPECT_EQ(platform.lines().size(), 5u);
}

}  // namespace
