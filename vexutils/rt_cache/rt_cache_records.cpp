#include "rt_cache.h"

#include <algorithm>
#include <span>

#include "internal/log.h"
#include "internal/storage_object.h"
#include "vexel.h"

using namespace vexutils;

namespace {

// VEXEL marks owned pointers that were never set with one of two values instead of null, as 32-bit
// and as pointer-wide integers.
bool is_empty(const void* block) {
    constexpr std::uintptr_t kUnset[] = {0, 0xFFFFFFFF, 0xFFFFFFFE, UINTPTR_MAX, UINTPTR_MAX - 1};
    return std::ranges::count(kUnset, reinterpret_cast<std::uintptr_t>(block)) != 0;
}

// Frees a block unless it is empty. Returns null, for the field: records are packed, so none of
// their fields can be passed by reference.
std::nullptr_t freed(void* block) {
    if (!is_empty(block)) {
        vexel_free(block);
    }
    return nullptr;
}

void free_adapter(AdapterBody& adapter) {
    adapter.text112 = freed(adapter.text112);
    adapter.capabilities = freed(adapter.capabilities);
    for (AdapterTextEntry& entry : adapter.entries) {
        entry.text = freed(entry.text);
    }
}

void free_physical_disk(PhysicalDiskBody& disk) {
    disk.keyId = freed(disk.keyId);
    disk.text417 = freed(disk.text417);
    disk.text426 = freed(disk.text426);
    disk.text430 = freed(disk.text430);
    disk.text434 = freed(disk.text434);
    if (disk.wordCount != 0) {
        disk.words = freed(disk.words);
    }
}

// Members share all but their names, and virtual disks their member ids, with the record they were
// copied from. An array without a count is shared itself. Returns what is left for the field.
StorageObjectRecord* free_members(StorageObjectRecord* members, std::uint32_t count,
                                  bool with_ids) {
    if (count == 0 || is_empty(members)) {
        return members;
    }
    for (std::uint32_t i = 0; i < count; ++i) {
        freed(members[i].NAME);
        if (with_ids) {
            freed(members[i].body.vd.targetID);
        }
    }
    return freed(members);
}

void free_foreign_config(ForeignConfigBody& foreign) {
    foreign.virtualDisks = free_members(foreign.virtualDisks, foreign.virtualDiskCount, true);
    foreign.physicalDisks = free_members(foreign.physicalDisks, foreign.physicalDiskCount, false);
}

// Whether a record's FQDD is its own. Of some kinds without a version it is shared with the record
// that they were copied from.
bool owns_fqdd(const StorageObjectRecord& record) {
    switch (record.objType) {
        case RT_OBJ_PHYSICAL_DISK:
        case RT_OBJ_ENCLOSURE:
        case RT_OBJ_BACKPLANE:
        case RT_OBJ_EMM:
        case RT_OBJ_FAN:
        case RT_OBJ_PSU:
        case RT_OBJ_TEMPERATURE_PROBE:
            return record.hdr.VERSION != 0;
        default:
            return true;
    }
}

}  // namespace

void rtcache_FreeRMObjects(StorageObjectRecord* objects, uint32_t count) {
    if (objects == nullptr) {
        return;
    }

    LOG(Level::Trace, "--> enter with obj addr:%p", static_cast<void*>(objects));
    for (StorageObjectRecord& record : std::span{objects, count}) {
        record.NAME = freed(record.NAME);
        if (owns_fqdd(record)) {
            record.hdr.FQDD = freed(record.hdr.FQDD);
        }
        switch (record.objType) {
            case RT_OBJ_ADAPTER:
                free_adapter(record.body.adapter);
                break;
            case RT_OBJ_ENCLOSURE:
                LOG(Level::Trace, "OBJTYPE is ENCLOSURE");
                break;
            case RT_OBJ_PHYSICAL_DISK:
                LOG(Level::Trace, "OBJTYPE is PHYSICALDISK");
                free_physical_disk(record.body.pd);
                break;
            case RT_OBJ_VIRTUAL_DISK:
                LOG(Level::Trace, "OBJTYPE is LOGICALDISK");
                record.body.vd.targetID = freed(record.body.vd.targetID);
                break;
            case RT_OBJ_SMART_DATA:
                LOG(Level::Trace, "OBJTYPE is SMART_DATA_OBJ");
                if ((record.body.smart.flags & RT_SMART_FLAG_NVME) != 0) {
                    LOG(Level::Trace, "Freeing rawData");
                    record.body.smart.nvmeBlock = freed(record.body.smart.nvmeBlock);
                } else if (const std::size_t pages = owned_pages(record.body.smart); pages != 0) {
                    LOG(Level::Trace, "Freeing logPages");
                    for (SmartPageSlot& slot : std::span{record.body.smart.pages}.first(pages)) {
                        slot.page = freed(slot.page);
                    }
                }
                break;
            case RT_OBJ_FOREIGN_CONFIG:
                free_foreign_config(record.body.foreign);
                LOG(Level::Trace, "Memory freed FOREIGN_CONFIG");
                break;
            default:
                break;
        }
    }
    vexel_free(objects);
    LOG(Level::Trace, "<-- exit");
}
