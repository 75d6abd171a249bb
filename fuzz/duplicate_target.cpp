// Records of every kind with arbitrary plain bytes over blocks that the input keeps: copied, and
// the copies freed by the cache's own hand, so that only what a copy owns is freed.
#include <gtest/gtest.h>

#include <bit>
#include <cwchar>

#include "fuzz/fuzz.h"
#include "rt_cache.h"
#include "rt_dup.h"
#include "tests/support/objects.h"
#include "vexel.h"

namespace {

using fuzz::Bytes;
using fuzz::Input;

// Replaces every pointer of a record by what a hand makes of it; all else stays as it is.
template <class Hand>
void for_pointers(StorageObjectRecord& record, Hand hand) {
    record.NAME = hand.wide(record.NAME);
    record.hdr.FQDD = hand.wide(record.hdr.FQDD);
    switch (record.objType) {
        case RT_OBJ_ADAPTER: {
            AdapterBody& body = record.body.adapter;
            body.text112 = hand.wide(body.text112);
            for (AdapterTextEntry& entry : body.entries) {
                entry.text = hand.wide(entry.text);
            }
            const auto sets = static_cast<unsigned>(std::popcount(body.capabilityMask + 0u));
            body.capabilities = hand.block(body.capabilities,
                                           sets * std::max<unsigned>(body.capabilityMultiplier, 1) *
                                               sizeof(AdapterCapabilityEntry));
            break;
        }
        case RT_OBJ_PHYSICAL_DISK: {
            PhysicalDiskBody& body = record.body.pd;
            body.keyId = hand.narrow(body.keyId, 256);
            body.text417 = hand.narrow(body.text417, 256);
            body.text426 = hand.narrow(body.text426, 128);
            body.text430 = hand.narrow(body.text430, 128);
            body.text434 = hand.narrow(body.text434, 256);
            body.words = hand.block(body.words, body.wordCount * 4u);
            break;
        }
        case RT_OBJ_VIRTUAL_DISK:
            record.body.vd.targetID =
                hand.block(record.body.vd.targetID, record.body.vd.memberCount * 4u);
            break;
        case RT_OBJ_SMART_DATA:
            for (SmartPageSlot& slot : record.body.smart.pages) {
                slot.page = hand.block(slot.page, slot.length);
            }
            record.body.smart.nvmeBlock =
                hand.block(record.body.smart.nvmeBlock, RT_NVME_BLOCK_SIZE);
            break;
        case RT_OBJ_FOREIGN_CONFIG: {
            ForeignConfigBody& body = record.body.foreign;
            body.virtualDisks =
                hand.members(body.virtualDisks, body.virtualDiskCount, RT_OBJ_VIRTUAL_DISK);
            body.physicalDisks =
                hand.members(body.physicalDisks, body.physicalDiskCount, RT_OBJ_PHYSICAL_DISK);
            break;
        }
        default:
            break;
    }
}

StorageObjectRecord draw_record(Input& input, uint32_t type);

// Few members, and now and then more than 32 bits can count the bytes of.
constexpr uint32_t kTooMany = sizeof(size_t) == 4 ? 1u << 29 : 0, kMembers = 3 | kTooMany;

// Draws blocks that the input keeps, or none.
struct Drawn {
    Input& input;

    template <class T>
    T* block(T*, size_t size) {
        return input.below(4) == 0
                   ? nullptr
                   : static_cast<T*>(static_cast<void*>(input.keep(Bytes(size, 7))));
    }
    wchar_t* wide(wchar_t*) {
        const std::wstring text = input.wide_text();
        auto* copy = block<wchar_t>(nullptr, (text.size() + 1) * sizeof(wchar_t));
        if (copy != nullptr) {
            memcpy(copy, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
        }
        return copy;
    }
    // A text of up to size - 1 characters, or one that does not end.
    char* narrow(char*, size_t size) {
        auto* text = block<char>(nullptr, size);
        if (text != nullptr) {
            text[input.below(256) % size] = static_cast<char>(input.below(2));
        }
        return text;
    }
    StorageObjectRecord* members(StorageObjectRecord*, uint32_t count, uint32_t type) {
        count &= ~kTooMany;
        auto* members = block<StorageObjectRecord>(nullptr, count * sizeof(StorageObjectRecord));
        for (uint32_t i = 0; members != nullptr && i < count; ++i) {
            const StorageObjectRecord member = draw_record(input, type);
            memcpy(members + i, &member, sizeof(member));
        }
        return members;
    }
};

void bound_counts(StorageObjectRecord& record) {
    if (record.objType == RT_OBJ_ADAPTER) {
        record.body.adapter.capabilityMultiplier %= 4;
    } else if (record.objType == RT_OBJ_VIRTUAL_DISK) {
        record.body.vd.memberCount %= 64;
    } else if (record.objType == RT_OBJ_SMART_DATA) {
        record.body.smart.pageSelector = record.body.smart.pageSelector % 4 * 16;
    } else if (record.objType == RT_OBJ_FOREIGN_CONFIG) {
        record.body.foreign.virtualDiskCount &= kMembers;
        record.body.foreign.physicalDiskCount &= kMembers;
    }
}

StorageObjectRecord draw_record(Input& input, uint32_t type) {
    StorageObjectRecord record;
    input.take(&record, sizeof(record));
    record.objType = type;
    record.hdr.VERSION %= 2;
    bound_counts(record);
    for_pointers(record, Drawn{input});
    return record;
}

// Tells what a copy points to, and all else of it.
struct Told {
    template <class T>
    T* block(T* block, size_t size) {
        fuzz::tell("block", block, block != nullptr ? size : 0);
        return nullptr;
    }
    wchar_t* wide(wchar_t* text) {
        return block(text, text != nullptr ? wcslen(text) * sizeof(wchar_t) : 0);
    }
    char* narrow(char* text, size_t size) {
        return block(text, text != nullptr ? strnlen(text, size) : 0);
    }
    StorageObjectRecord* members(StorageObjectRecord* members, uint32_t count, uint32_t) {
        for (uint32_t i = 0; members != nullptr && i < count; ++i) {
            tell(members[i]);
        }
        return nullptr;
    }
    static void tell(StorageObjectRecord record) {
        for_pointers(record, Told{});
        fuzz::tell("record", &record, sizeof(record));
    }
};

template <auto dup>
StorageObjectRecord* filled(const StorageObjectRecord* record) {
    StorageObjectRecord empty{};
    empty.objType = record != nullptr
                        ? record->objType
                        : uint32_t{RT_OBJ_FAN};  // which SMART data without pages keeps
    const fake::AllocationPause pause;
    StorageObjectRecord* copy = make(empty);
    {
        const fake::AllocationScope scope;
        fuzz::tell("result", static_cast<uint64_t>(dup(record, copy)));
    }
    return copy;
}

int32_t name_adapter(const StorageObjectRecord* card, StorageObjectRecord* copy) {
    if (card == nullptr) {
        return DupPCIeSSDAdapter(nullptr, copy);
    }
    const PCIeSSDAdapterNames names{card->NAME, card->hdr.FQDD};
    return DupPCIeSSDAdapter(&names, copy);
}

constexpr struct {
    uint32_t type;
    StorageObjectRecord* (*copy)(const StorageObjectRecord*);
} kKinds[] = {
    {RT_OBJ_ADAPTER, DupAdapter},
    {RT_OBJ_ADAPTER, filled<name_adapter>},
    {RT_OBJ_BATTERY, rtraid_DupBattery},
    {RT_OBJ_DRIVER, rtraid_DupDriver},
    {RT_OBJ_PHYSICAL_DISK, filled<rtraid_dupPD>},
    {RT_OBJ_VIRTUAL_DISK, filled<rtraid_DupVD>},
    {RT_OBJ_SMART_DATA, filled<rtraid_dupSmartPD>},
    {RT_OBJ_DRIVER, filled<rtraid_dupNVMeSmartData>},
    {RT_OBJ_ENCLOSURE, filled<rtraid_dupEnclosure>},
    {RT_OBJ_BACKPLANE, filled<rtraid_dupEnclosure>},
    {RT_OBJ_EMM, filled<rtraid_dupEMM>},
    {RT_OBJ_FAN, filled<rtraid_dupFAN>},
    {RT_OBJ_PSU, filled<rtraid_dupPSU>},
    {RT_OBJ_TEMPERATURE_PROBE, filled<rtraid_dupTEMPPROBE>},
    {RT_OBJ_FOREIGN_CONFIG, DupForeign_Config},
};

void run(Input& input) {
    // Half of them of the last kind, which has all that others have.
    const auto& kind =
        kKinds[std::min<size_t>(input.below(2 * std::size(kKinds)), std::size(kKinds) - 1)];
    const StorageObjectRecord record = draw_record(input, kind.type);
    const StorageObjectRecord* source = input.below(32) == 31 ? nullptr : &record;
    const auto [copy, failed] = [&] {
        const fuzz::Failures failures;
        return std::pair{kind.copy(source), failures.happened()};
    }();
    if (copy != nullptr) {
        const wchar_t *name = record.NAME, *copied = copy->NAME;
        EXPECT_TRUE((copied == nullptr) == (name == nullptr) || failed || source == nullptr);
        EXPECT_TRUE(copied == nullptr || (copied != name && wcscmp(copied, name) == 0));
        Told::tell(*copy);
    }
    rtcache_FreeRMObjects(copy, 1);
}
const fuzz::Target target{"duplicate", run};

}  // namespace
