// Records of every kind with arbitrary plain bytes over blocks that the input keeps: copied, and
// the copies freed by the cache's own hand, so that only what a copy owns is freed.
#include <gtest/gtest.h>

#include <bit>
#include <cwchar>

#include "fuzz/fuzz.h"
#include "rt_cache.h"
#include "rt_dup.h"
#include "vexel.h"

namespace {

using fuzz::Bytes;
using fuzz::Input;

template <class T>
T* block(Input& input, size_t size) {
    return input.below(4) == 0 ? nullptr
                               : static_cast<T*>(static_cast<void*>(input.keep(Bytes(size, 7))));
}

wchar_t* wide(Input& input) {
    const std::wstring text = input.wide_text();
    auto* copy = block<wchar_t>(input, (text.size() + 1) * sizeof(wchar_t));
    if (copy != nullptr) {
        memcpy(copy, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    }
    return copy;
}

// A text of up to size - 1 characters, or one that does not end.
char* narrow(Input& input, size_t size) {
    auto* text = block<char>(input, size);
    if (text != nullptr) {
        text[input.below(256) % size] = static_cast<char>(input.below(2));
    }
    return text;
}

StorageObjectRecord draw_record(Input& input, uint32_t type);

StorageObjectRecord* draw_members(Input& input, uint32_t& count, uint32_t type) {
    count = input.below(4);
    auto* members = block<StorageObjectRecord>(input, count * sizeof(StorageObjectRecord));
    for (uint32_t i = 0; members != nullptr && i < count; ++i) {
        const StorageObjectRecord member = draw_record(input, type);
        memcpy(members + i, &member, sizeof(member));
    }
    return members;
}

// Gives the record the pointers of its kind; all else stays as it is.
void draw_pointers(Input& input, StorageObjectRecord& record) {
    switch (record.objType) {
        case RT_OBJ_ADAPTER: {
            AdapterBody& body = record.body.adapter;
            body.text112 = wide(input);
            for (AdapterTextEntry& entry : body.entries) {
                entry.text = wide(input);
            }
            body.capabilityMultiplier %= 4;
            const auto sets = static_cast<unsigned>(std::popcount(body.capabilityMask + 0u));
            body.capabilities = block<AdapterCapabilityEntry>(
                input, sets * std::max<unsigned>(body.capabilityMultiplier, 1) *
                           sizeof(AdapterCapabilityEntry));
            break;
        }
        case RT_OBJ_PHYSICAL_DISK: {
            PhysicalDiskBody& body = record.body.pd;
            body.keyId = narrow(input, 256);
            body.text417 = narrow(input, 256);
            body.text426 = narrow(input, 128);
            body.text430 = narrow(input, 128);
            body.text434 = narrow(input, 256);
            body.words = block<uint32_t>(input, body.wordCount * 4u);
            break;
        }
        case RT_OBJ_VIRTUAL_DISK:
            record.body.vd.memberCount %= 64;
            record.body.vd.targetID = block<uint32_t>(input, record.body.vd.memberCount * 4u);
            break;
        case RT_OBJ_SMART_DATA:
            record.body.smart.pageSelector = 16 * input.below(3);
            for (SmartPageSlot& slot : record.body.smart.pages) {
                slot.page = block<void>(input, slot.length);
            }
            record.body.smart.nvmeBlock = block<uint8_t>(input, RT_NVME_BLOCK_SIZE);
            break;
        case RT_OBJ_FOREIGN_CONFIG: {
            uint32_t count = 0;
            ForeignConfigBody& body = record.body.foreign;
            body.virtualDisks = draw_members(input, count, RT_OBJ_VIRTUAL_DISK);
            body.virtualDiskCount = count;
            body.physicalDisks = draw_members(input, count, RT_OBJ_PHYSICAL_DISK);
            body.physicalDiskCount = count;
            break;
        }
        default:
            break;
    }
}

StorageObjectRecord draw_record(Input& input, uint32_t type) {
    StorageObjectRecord record;
    input.take(&record, sizeof(record));
    record.objType = type;
    record.NAME = wide(input);
    record.hdr.FQDD = wide(input);
    record.hdr.VERSION %= 2;
    draw_pointers(input, record);
    return record;
}

template <auto dup>
StorageObjectRecord* filled(const StorageObjectRecord* record) {
    auto* copy = static_cast<StorageObjectRecord*>(vexel_alloc(sizeof(StorageObjectRecord)));
    copy->objType = record->objType;  // which a SMART record without pages keeps
    EXPECT_EQ(static_cast<int32_t>(dup(record, copy)), 0);
    return copy;
}

constexpr struct {
    uint32_t type;
    StorageObjectRecord* (*copy)(const StorageObjectRecord*);
} kKinds[] = {
    {RT_OBJ_ADAPTER, DupAdapter},
    {RT_OBJ_BATTERY, rtraid_DupBattery},
    {RT_OBJ_DRIVER, rtraid_DupDriver},
    {RT_OBJ_PHYSICAL_DISK, filled<rtraid_dupPD>},
    {RT_OBJ_VIRTUAL_DISK, filled<rtraid_DupVD>},
    {RT_OBJ_SMART_DATA, filled<rtraid_dupSmartPD>},
    {RT_OBJ_ENCLOSURE, filled<rtraid_dupEnclosure>},
    {RT_OBJ_BACKPLANE, filled<rtraid_dupEnclosure>},
    {RT_OBJ_EMM, filled<rtraid_dupEMM>},
    {RT_OBJ_FAN, filled<rtraid_dupFAN>},
    {RT_OBJ_PSU, filled<rtraid_dupPSU>},
    {RT_OBJ_TEMPERATURE_PROBE, filled<rtraid_dupTEMPPROBE>},
    {RT_OBJ_FOREIGN_CONFIG, DupForeign_Config},
};

void run(Input& input) {
    const auto& kind = kKinds[input.below(std::size(kKinds))];
    const StorageObjectRecord record = draw_record(input, kind.type);
    StorageObjectRecord* copy = kind.copy(&record);
    if (copy != nullptr) {
        const wchar_t *name = record.NAME, *copied = copy->NAME;
        EXPECT_EQ(copied == nullptr, name == nullptr);
        EXPECT_TRUE(name == nullptr || (copied != name && wcscmp(copied, name) == 0));
    }
    rtcache_FreeRMObjects(copy, 1);
}
const fuzz::Target target{"duplicate", run};

}  // namespace
