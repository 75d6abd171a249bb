// Records of every kind with arbitrary plain bytes and well-formed owned pointers: copied, and
// freed by the cache's own hand.
#include <cwchar>

#include "fuzz/fuzz_platform.h"
#include "rt_cache.h"
#include "rt_dup.h"
#include "vexel.h"

namespace {

constexpr std::size_t kMaxText = 40;

wchar_t* wide(fuzz::Input& input) {
    const std::size_t length = input.byte() % kMaxText;
    if (length == 0) {
        return nullptr;
    }
    auto* text = static_cast<wchar_t*>(vexel_alloc((length + 1) * sizeof(wchar_t)));
    for (std::size_t i = 0; i < length; ++i) {
        text[i] = static_cast<wchar_t>(input.byte() == 0xFF ? 0x10FFFF : 1 + input.byte() % 0xFE);
    }
    return text;
}

char* narrow(fuzz::Input& input, std::size_t room) {
    if (input.byte() % 4 == 0) {
        return nullptr;
    }
    auto* text = static_cast<char*>(vexel_alloc(room));
    input.take(text, input.byte() % room);
    return text;
}

void* block(fuzz::Input& input, std::size_t size) {
    return input.byte() % 4 == 0 ? nullptr : vexel_alloc(size);
}

// Gives the record the owned fields of its kind; all else stays as the input has it.
void own(StorageObjectRecord& record, fuzz::Input& input) {
    record.NAME = wide(input);
    record.hdr.FQDD = wide(input);
    switch (record.objType) {
        case RT_OBJ_ADAPTER: {
            AdapterBody& body = record.body.adapter;
            body.text112 = wide(input);
            for (int i = 0; i < RT_ADAPTER_ENTRIES; ++i) {
                body.entries[i].text = wide(input);
            }
            const unsigned sets = static_cast<unsigned>(__builtin_popcount(body.capabilityMask)) *
                                  (body.capabilityMultiplier != 0 ? body.capabilityMultiplier : 1u);
            body.capabilities = static_cast<AdapterCapabilityEntry*>(
                block(input, sets * sizeof(AdapterCapabilityEntry)));
            break;
        }
        case RT_OBJ_PHYSICAL_DISK: {
            PhysicalDiskBody& body = record.body.pd;
            body.keyId = narrow(input, 256);
            body.text417 = narrow(input, 256);
            body.text426 = narrow(input, 128);
            body.text430 = narrow(input, 128);
            body.text434 = narrow(input, 256);
            body.words = static_cast<std::uint32_t*>(block(input, body.wordCount * 4u));
            break;
        }
        case RT_OBJ_VIRTUAL_DISK:
            record.body.vd.memberCount %= 64;
            record.body.vd.targetID =
                static_cast<std::uint32_t*>(block(input, record.body.vd.memberCount * 4u));
            break;
        case RT_OBJ_SMART_DATA: {
            SmartDataBody& body = record.body.smart;
            for (int i = 0; i < RT_SMART_PAGES; ++i) {
                body.pages[i].page = block(input, body.pages[i].length);
            }
            body.nvmeBlock = static_cast<std::uint8_t*>(block(input, RT_NVME_BLOCK_SIZE));
            break;
        }
        default:
            break;
    }
}

StorageObjectRecord* copy_of(const StorageObjectRecord& record) {
    using Fill = std::uint32_t (*)(const StorageObjectRecord*, StorageObjectRecord*);
    Fill fill = nullptr;
    switch (record.objType) {
        case RT_OBJ_ADAPTER:
            return DupAdapter(&record);
        case RT_OBJ_BATTERY:
            return rtraid_DupBattery(&record);
        case RT_OBJ_DRIVER:
            return rtraid_DupDriver(&record);
        case RT_OBJ_PHYSICAL_DISK:
            fill = rtraid_dupPD;
            break;
        case RT_OBJ_VIRTUAL_DISK:
            fill = rtraid_DupVD;
            break;
        case RT_OBJ_SMART_DATA:
            fill = rtraid_dupSmartPD;
            break;
        case RT_OBJ_FAN:
            fill = rtraid_dupFAN;
            break;
        default:
            fill = rtraid_dupEnclosure;
            break;
    }
    auto* copy = static_cast<StorageObjectRecord*>(vexel_alloc(sizeof(StorageObjectRecord)));
    fill(&record, copy);
    return copy;
}

// What the freeing leaves to a record's source: pointers that a copy of this kind shares.
void free_shared(StorageObjectRecord& record) {
    const bool fqdd_by_version =
        record.objType == RT_OBJ_PHYSICAL_DISK || record.objType == RT_OBJ_ENCLOSURE ||
        record.objType == RT_OBJ_BACKPLANE ||
        (record.objType >= RT_OBJ_EMM && record.objType <= RT_OBJ_TEMPERATURE_PROBE);
    if (fqdd_by_version && record.hdr.VERSION == 0) {
        vexel_free(record.hdr.FQDD);
    }
    if (record.objType == RT_OBJ_PHYSICAL_DISK && record.body.pd.wordCount == 0) {
        vexel_free(record.body.pd.words);
    }
    if (record.objType == RT_OBJ_SMART_DATA) {
        SmartDataBody& body = record.body.smart;
        const bool nvme = (body.flags & RT_SMART_FLAG_NVME) != 0;
        const int pages = nvme                                           ? 0
                          : body.pageSelector == RT_SMART_SELECT_7_PAGES ? 7
                          : body.pageSelector == RT_SMART_SELECT_5_PAGES ? 5
                                                                         : 0;
        for (int i = pages; i < RT_SMART_PAGES; ++i) {
            vexel_free(body.pages[i].page);
        }
        if (!nvme) {
            vexel_free(body.nvmeBlock);
        }
    }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::reset();
    fuzz::Input input{data, size};
    auto* record = static_cast<StorageObjectRecord*>(vexel_alloc(sizeof(StorageObjectRecord)));
    input.take(record, sizeof(*record));
    record->objType = input.byte() % 16 == 15 ? 240u : record->objType % 11;
    own(*record, input);
    StorageObjectRecord* copy = copy_of(*record);
    rtcache_FreeRMObjects(copy, 1);
    free_shared(*record);
    rtcache_FreeRMObjects(record, 1);
    return 0;
}
