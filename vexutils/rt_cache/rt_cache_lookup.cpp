#include "rt_cache.h"

#include <fcntl.h>
#include <platform/shm.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <optional>

#include "internal/log.h"
#include "internal/owned.h"
#include "internal/vexel_state.h"
#include "internal/wide_text.h"
#include "rt_cache/rt_cache_state.h"
#include "rt_shm.h"

namespace vexutils {
namespace {

constexpr std::uint8_t kNone = 255;  // no slot, bay or PCIe slot
constexpr std::size_t kSsdFqddBytes = 60;

const RtCacheControllerNode* controller_node(std::uint32_t eid, const char* function)
    VEX_REQUIRES(mutexRtCache) {
    void* object = nullptr;
    if (rtcache_GetCachedObject(RTCACHE_KEY_CONTROLLER, eid, static_cast<std::uint16_t>(eid),
                                &object) != RTCACHE_OK) {
        LOG_AS(function, Level::Error, "<-- error1");
    } else if (object == nullptr) {
        LOG_AS(function, Level::Error, "<-- error2");
    }
    return static_cast<const RtCacheControllerNode*>(object);
}

// Node of an enclosure or backplane that has a record; null if the slot holds none.
const RtCacheDiskNode* enclosure_node(std::uint32_t eid, std::uint32_t key, const char* function)
    VEX_REQUIRES(mutexRtCache) {
    void* object = nullptr;
    if (key <= UINT16_MAX) {
        rtcache_GetCachedObject(RTCACHE_KEY_DISK, eid, static_cast<std::uint16_t>(key), &object);
    }
    const auto* node = static_cast<const RtCacheDiskNode*>(object);
    if (node == nullptr) {
        LOG_AS(function, Level::Error, "<--pPdCache is NULL");
        return nullptr;
    }
    const bool external = node->objType == RT_OBJ_ENCLOSURE;
    if (!external && node->objType != RT_OBJ_BACKPLANE) {
        LOG_AS(function, Level::Error, "<--pPdCache->objType is not ENCLOSURE");
        return nullptr;
    }
    if (node->enclObj == nullptr) {
        LOG_AS(function, Level::Error, "<--pPdCache->enclObj is NULL");
        return nullptr;
    }
    LOG_AS(function, Level::Trace, "%s",
           external ? "Requesting enclosure FQDD is EXTERNAL"
                    : "Requesting enclosure FQDD is BACKPLANE");
    if (node->enclObj->enclType.extEncl.Obj == nullptr) {
        LOG_AS(function, Level::Error, "%s",
               external ? "<--pPdCache->enclObj->enclType.extEncl.Obj is NULL"
                        : "<--pPdCache->enclObj->enclType.backPlane.Obj is NULL");
        return nullptr;
    }
    return node;
}

struct SsdPosition {
    std::uint8_t slot = kNone;
    std::uint8_t bay = kNone;
};

// PCIe slot of the extender card that serves a bay, kNone without one; nothing if the region cannot
// be read.
std::optional<std::uint8_t> extender_of(const SsdPosition& position, const ExtenderCardTable& table,
                                        const char* function) {
    const unsigned given = table.count;
    if (given > SHM_EXTENDER_ENTRIES) {
        LOG_AS(function, Level::Warning, "extender entries:%u limited to %u", given,
               unsigned{SHM_EXTENDER_ENTRIES});
    }
    for (unsigned i = 0; i < std::min<unsigned>(given, SHM_EXTENDER_ENTRIES); ++i) {
        const ExtenderCardEntry entry = table.entries[i];
        if (entry.type != SHM_EXTENDER_TYPE_PCIESSD) {
            continue;
        }
        ExtenderCardRecord record{};
        if (Zent_shm_memread(ZENT_SHM_EXTENDER_CARDS, &record, entry.recordOffset,
                             sizeof(record)) != 0) {
            LOG_AS(function, Level::Error, "error, SHM read");
            return std::nullopt;
        }
        LOG_AS(function, Level::Trace, "u8FruBayID=%d u8Slot=%d u8bayId=%d", record.bayId,
               position.slot, position.bay);
        if (record.bayId == position.bay) {
            LOG_AS(function, Level::Trace, "u8PCIeSlotNo=%d, u8bayId=%d", entry.pcieSlot,
                   position.bay);
            return entry.pcieSlot;
        }
        LOG_AS(function, Level::Trace, "BayID is not Matching u8Iter = %d", i);
    }
    return kNone;
}

// ---- Dump ----

// An operator's file; only one that exists, and no link that would lead the writing elsewhere.
int open_dump(const char* path) {
    return open(path, O_WRONLY | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
}

void dump_heading(int file, const char* what) {
    dprintf(file, " >>>> %s >>>>\n", what);
}

PrintableWide fqdd_of(const StorageObjectRecord* record) {
    return PrintableWide{record != nullptr ? record->hdr.FQDD : nullptr};
}

void dump_controllers(int file) VEX_REQUIRES(mutexRtCache) {
    dump_heading(file, "Controllers");
    for (int eid = 0; eid < RTCACHE_EID_SLOTS; ++eid) {
        if (const auto* node = cache_AllEIDs[eid]; node != nullptr) {
            dprintf(file, "EID=%d %ls\n", eid, fqdd_of(node->adapter).get());
        }
    }
}

bool is_disk_or_enclosure(const RtCacheDiskNode* node) {
    return node != nullptr && node->enclObj != nullptr &&
           node->enclObj->enclType.physicalDisk.Obj != nullptr &&
           (node->objType == RT_OBJ_PHYSICAL_DISK || node->objType == RT_OBJ_ENCLOSURE ||
            node->objType == RT_OBJ_BACKPLANE);
}

void dump_row(int file, std::uint32_t row) VEX_REQUIRES(mutexRtCache) {
    dump_heading(file, "PDs");
    for (std::uint32_t key = 0; key < disk_limit(); ++key) {
        if (const auto* node = cache_PDs[row][key]; is_disk_or_enclosure(node)) {
            dprintf(file, "Index=%d DeviceID=%d %ls\n", static_cast<int>(row),
                    static_cast<int>(key), fqdd_of(node->enclObj->enclType.physicalDisk.Obj).get());
        }
    }
    dump_heading(file, "VDs");
    for (std::uint32_t key = 0; key < virtual_disk_limit(); ++key) {
        if (const auto* node = cache_VDs[row][key]; node != nullptr) {
            dprintf(file, "Index=%d TargetID=%d %ls\n", static_cast<int>(row),
                    static_cast<int>(key), fqdd_of(node->Obj).get());
        }
    }
}

}  // namespace
}  // namespace vexutils

using namespace vexutils;

const wchar_t* rtcache_GetAdapterFQDD(uint32_t eid) {
    const RtCacheControllerNode* node = controller_node(eid, __func__);
    if (node == nullptr ||
        (node->objType != RT_OBJ_ADAPTER && node->objType != RT_NODE_PCIESSD_ADAPTER)) {
        return nullptr;
    }
    if (node->adapter == nullptr) {
        LOG(Level::Error, "%s", node->objType == RT_OBJ_ADAPTER ? "<-- error3" : "<-- error4");
        return nullptr;
    }
    return node->adapter->hdr.FQDD;
}

const wchar_t* rtcache_GetBatteryFQDD(uint32_t eid) {
    const RtCacheControllerNode* node = controller_node(eid, __func__);
    if (node == nullptr) {
        return nullptr;
    }
    if (node->objType != RT_OBJ_ADAPTER) {
        LOG(Level::Error, "<-- error4");
        return nullptr;
    }
    if (node->battery == nullptr) {
        LOG(Level::Error, "<-- error3");
        return nullptr;
    }
    return node->battery->hdr.FQDD;
}

uint8_t rtcache_GetEnclosureFQDD(uint32_t eid, uint32_t enclId, wchar_t** out) {
    const auto shown_eid = static_cast<std::uint16_t>(eid);
    const auto shown_id = static_cast<std::uint16_t>(enclId);
    LOG(Level::Trace, "Fetching FQDD of enclosure with EID:%hu and EnclId:%hu", shown_eid,
        shown_id);
    const RtCacheDiskNode* node = nullptr;
    if (out != nullptr) {
        *out = nullptr;
        node = enclosure_node(eid, enclId, __func__);
    }
    if (node == nullptr) {
        LOG(Level::Error, "<--Failed to fetch the FQDD of enclosure with EID:%hu and EnclId:%hu",
            shown_eid, shown_id);
        return 0;
    }

    const StorageObjectRecord* record = node->enclObj->enclType.extEncl.Obj;
    if (const wchar_t* fqdd = record->hdr.FQDD; fqdd != nullptr) {
        if (node->objType == RT_OBJ_BACKPLANE) {
            LOG(Level::Trace, "ENCL FQDD:%ls\n", fqdd);  // Kept: the blank line.
        } else {
            LOG(Level::Trace, "ENCL FQDD:%ls", fqdd);
        }
        *out = copy_wide(fqdd).release();  // to the caller
    }
    const std::uint8_t position = record->body.enclosure.position;
    LOG(Level::Trace, "<--ENCL Position:%d", position);
    return position;
}

char* vexel_GetPCIeSSDFQDD(uint32_t globalSlot) {
    SsdPosition position;
    // Behind the region's table stand drive states, which would pass for positions.
    if (globalSlot >= SHM_PCIESSD_SLOTS ||
        RTSHM_readSSDSlotNumFromGblSlotNum(&position.slot, static_cast<std::uint8_t>(globalSlot)) !=
            0) {
        LOG(Level::Error, "Failed while getting slot");
        return nullptr;
    }
    if (RTSHM_readBayIDInfoFromGblSlotNum(&position.bay, globalSlot) != 0) {
        LOG(Level::Error, "Failed while getting bayID");
        return nullptr;
    }
    const auto table = make_owned<ExtenderCardTable>();
    if (table == nullptr) {
        LOG(Level::Error, "Failed to allocate memory");
        return nullptr;
    }
    if (Zent_shm_memread(ZENT_SHM_EXTENDER_CARDS, table.get(), 0, sizeof(*table)) != 0) {
        LOG(Level::Error, "error, SHM read");
        return nullptr;
    }
    LOG(Level::Trace, "u32GlobalSlotNumber=%d u8Slot=%d u8bayId=%d", globalSlot, position.slot,
        position.bay);
    const auto pcie_slot = extender_of(position, *table, __func__);
    if (!pcie_slot) {
        return nullptr;
    }

    auto fqdd = make_owned<char>(kSsdFqddBytes);
    if (fqdd == nullptr) {
        LOG(Level::Error, "%s Failed while constructing FQDD", __func__);
        return nullptr;
    }
    static_cast<void>(std::snprintf(fqdd.get(), kSsdFqddBytes,
                                    "Disk.Bay.%d:Enclosure.Internal.0-%d:PCIeExtender.Slot.%d",
                                    position.slot, position.bay, *pcie_slot));
    LOG(Level::Trace, "%s FQDD=%s", __func__, fqdd.get());
    return fqdd.release();  // to the caller
}

int rtcache_PrintCache(void) {
    const int file = open_dump(flag_paths.cache_dump);
    // Same either way: nothing is written to no file, and closing it gives -1.
    if (file < 0) {
        return -1;
    }
    dump_controllers(file);
    for (std::uint32_t row = 0; row < row_limit(); ++row) {
        dump_row(file, row);
    }
    return close(file);
}
