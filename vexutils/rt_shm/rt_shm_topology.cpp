#include "rt_shm.h"

#include <algorithm>
#include <optional>
#include <span>
#include <string_view>

#include "internal/log.h"
#include "internal/mutex_guard.h"
#include "internal/owned.h"
#include "internal/wide_text.h"
#include "rt_cache.h"
#include "rt_shm/fqdd_text.h"
#include "rt_shm/nvme_table.h"
#include "rt_shm/snapshot.h"

using namespace vexutils;

namespace {

constexpr uint32_t kRefused = 2;
constexpr uint32_t kFailed = 3;
constexpr uint32_t kNullArgument = 5;
constexpr uint32_t kNoEndpoint = 0;  // backplanes and extenders belong to no endpoint

// Rooms of the texts, in characters with the terminator. They fit numbers of two digits; longer
// ones are cut.
constexpr std::size_t kExtenderFqddRoom = 25;
constexpr std::size_t kExtenderNameRoom = 20;
constexpr std::size_t kBackplaneFqddRoom = sizeof("Enclosure.Internal.0-10");
constexpr std::size_t kExtendedFqddRoom = sizeof("Enclosure.Internal.0-10:PCIeExtender.Slot.10");
constexpr std::size_t kBackplaneNameRoom = sizeof("PCIe SSD BP 10");

constexpr std::size_t kNarrowedFqddRoom = 100;
constexpr unsigned kSlotField = 2;  // "Disk.Bay.7"
constexpr unsigned kBayField = 2;   // "Enclosure.Internal.0-2"

// A text that format writes into a block of its own; null without memory.
template <class... Args>
Owned<wchar_t> framed(std::size_t room, const wchar_t* format, Args... args) {
    Owned<wchar_t> text = make_owned<wchar_t>(room);
    if (text) {
        format_wide({text.get(), room}, format, args...);
    }
    return text;
}

// After the cache has taken the record that these blocks belong to.
template <class... Blocks>
void hand_over_to_cache(Blocks&... blocks) {
    (static_cast<void>(blocks.release()), ...);
}

// Null if there is no such extender.
const ExtenderCardInfo* cached_extender(uint32_t slot) VEX_REQUIRES(mutexRtCache) {
    void* card = nullptr;
    const auto key = static_cast<uint16_t>(std::min<uint32_t>(slot, UINT16_MAX));
    rtcache_GetCachedObject(RTCACHE_KEY_EXTENDER, kNoEndpoint, key, &card);
    return static_cast<const ExtenderCardInfo*>(card);
}

Owned<wchar_t> backplane_fqdd(uint8_t bay, const wchar_t* extender_fqdd) {
    if (extender_fqdd == nullptr) {
        return framed(kBackplaneFqddRoom, L"Enclosure.Internal.0-%ld", static_cast<long>(bay));
    }
    return framed(kExtendedFqddRoom, L"Enclosure.Internal.0-%ld:%ls", static_cast<long>(bay),
                  extender_fqdd);
}

void fill_status(BpStatusInfo& status, const NVMeBayEntry& bay, const NVMeSlotEntry& slot) {
    status.u8BayID = load(bay.bayId);
    status.u8SlotNumInBay = load(slot.slot);
    status.u8SlotCount = load(bay.physicalSlotCount);
    status.u8Byte3 = load(bay.rsvd3);
    status.au16DriveStatus = load(slot.driveState);
}

void fill_backplane(StorageObjectRecord& backplane, const BpStatusInfo& status) {
    backplane.objType = RT_OBJ_BACKPLANE;
    backplane.body.enclosure.bayId = status.u8BayID;
    backplane.body.enclosure.driveCount = status.u8SlotCount;
    backplane.body.enclosure.slotCount = status.u8Byte3;
}

}  // namespace

uint32_t rtshm_getNVMeExtcard(void) {
    LOG(Level::Trace, "--> %s", __func__);
    for (unsigned i = 0; i < NVME_RISERS; ++i) {
        const NVMeRiserEntry& riser = sNVMeSSDBPInfo.risers[i];
        const uint8_t type = load(riser.type);
        LOG(Level::Trace, " s8Extender=%d ", i);
        if (type != NVME_RISER_TYPE_EXTENDER) {
            LOG(Level::Trace, "--> %s s8Extender=%d u8RiserType=%d", "Not an Extender", i, type);
            continue;
        }
        const uint8_t pcie_slot = load(riser.pcieSlot);
        const uint8_t bay = load(riser.bayId);
        LOG(Level::Trace, "--> %s u8PciSlot:%d, u8RiserType:%d, u8BayID:%d", "Extender Found",
            pcie_slot, type, bay);
        if (processNVMeExtndrcardInfo(bay, pcie_slot) != 0) {
            // Kept: one bad riser hides those behind it.
            LOG(Level::Error, "<-- Error, processPciessdExtndrcardInfo");
            return kFailed;
        }
    }
    LOG(Level::Trace, "exit u32Ret=%d", 0);
    return 0;
}

uint32_t processNVMeExtndrcardInfo(uint8_t bayId, uint32_t extenderSlot) {
    const MutexGuard lock{mutexRtCache};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return kFailed;
    }
    if (cached_extender(extenderSlot) != nullptr) {
        LOG(Level::Trace, "%s u32Ret=%d %d", "<-- error", 0, __LINE__);
        return 0;
    }
    Owned<ExtenderCardInfo> card = make_owned<ExtenderCardInfo>();
    if (!card) {
        LOG(Level::Fatal, "<-- err extcardInfo is NULL");
        return kFailed;
    }

    card->u8BayID = bayId;
    LOG(Level::Trace, "%s extndrtempInfo->u8BayID=%d", "Extender FQDD", bayId);
    Owned<wchar_t> fqdd =
        framed(kExtenderFqddRoom, L"PCIeExtender.Slot.%ld", static_cast<long>(extenderSlot));
    if (fqdd) {
        LOG(Level::Trace, "Framing FQDD %d", extenderSlot);
        LOG(Level::Fatal, "Inventory store %ls", fqdd.get());
    }
    Owned<wchar_t> name = framed(kExtenderNameRoom, L"PCIe Extender %d", extenderSlot);
    if (name) {
        LOG(Level::Trace, "Framing NAME %d", extenderSlot);
        LOG(Level::Trace, "ExtenderNAME=%ls u8ExtenderSlot=%d", name.get(), extenderSlot);
    }

    card->FQDD = fqdd.get();
    card->name = name.get();
    const auto key = static_cast<uint16_t>(std::min<uint32_t>(extenderSlot, UINT16_MAX));
    const uint32_t result =
        rtcache_SetCachedObject(RTCACHE_KEY_EXTENDER, kNoEndpoint, key, card.get());
    if (result != 0) {
        LOG(Level::Fatal, "%s  %d", " Error Exit", result);
        return result;
    }
    hand_over_to_cache(card, fqdd, name);
    return 0;
}

uint32_t rtshm_getNVMeBPs(void) {
    LOG(Level::Trace, " u8BayCount=%d ", load(sNVMeSSDBPInfo.bayCount));
    for (unsigned i = 0; i < NVME_BAYS; ++i) {
        const NVMeBayEntry& bay = sNVMeSSDBPInfo.bays[i];
        const uint8_t bay_id = load(bay.bayId);
        const unsigned count = load(bay.physicalSlotCount);
        const unsigned offset = load(bay.driveSlotOffset);
        LOG(Level::Trace, " s8BayNo=%d u8BayID=%d u8SlotCount=%d u8Offset=%d", i, bay_id, count,
            offset);
        bool built = false;
        for (unsigned j = offset; j < std::min<unsigned>(offset + count, NVME_SLOTS); ++j) {
            const NVMeSlotEntry& slot = sNVMeSSDBPInfo.slots[NVME_SLOTS * i + j];
            const uint8_t drive_bay = load(slot.bayId);
            const uint8_t slot_number = load(slot.slot);
            if (drive_bay != bay_id) {
                LOG(Level::Detail, "%s BayID_bp:%d, BayID_drv:%d", "BayID missmatch", bay_id,
                    drive_bay);
            } else if (is_nvme(load(slot.bayTechnology)) && !built) {
                processNVMeBackplaneInfo(&bay, &slot);
                built = true;  // Kept: whether it was built or could not be.
                LOG(Level::Trace, " u8BayID=%d: u8SlotNumInBay=%d", bay_id, slot_number);
            } else if (is_nvme(load(slot.bayTechnology))) {
                LOG(Level::Trace, "BP FQDD is already constrructed u8BayID=%d: u8SlotNumInBay=%d",
                    bay_id, slot_number);
            }
        }
    }
    LOG(Level::Trace, "<-- exit");
    return 0;
}

uint32_t processNVMeBackplaneInfo(const NVMeBayEntry* bay, const NVMeSlotEntry* slot) {
    if (bay == nullptr || slot == nullptr) {
        LOG(Level::Error, "%s%s", "<-- err null inputs", __func__);
        return kRefused;
    }
    const MutexGuard lock{mutexRtCache};
    if (!lock) {
        LOG(Level::Fatal, "%s%s", "<-- err mutex fail", __func__);
        return kFailed;
    }
    const uint8_t bay_id = load(bay->bayId);
    LOG(Level::Trace, "%s bpStatusInfo->u8BayID = %d Line:%d", "get BP", bay_id, __LINE__);
    void* known = nullptr;
    if (rtcache_GetCachedObject(RTCACHE_KEY_BACKPLANE, kNoEndpoint, bay_id, &known) != 0) {
        LOG(Level::Error, "<-- error");  // what can be stored but not fetched would be built again
        return kFailed;
    }
    if (known != nullptr) {
        return 0;
    }

    Owned<BpStatusInfo> status = make_owned<BpStatusInfo>();
    if (!status) {
        return kFailed;
    }
    fill_status(*status, *bay, *slot);
    LOG(Level::Trace, "%s u8BayID:%d u8SlotNumInBay:%d au16DriveStatus:%x",
        "Process NVMe BP:", status->u8BayID, status->u8SlotNumInBay, status->au16DriveStatus);
    Owned<StorageObjectRecord> backplane = make_owned<StorageObjectRecord>();
    if (!backplane) {
        LOG(Level::Fatal, "Fail to alloc memory");
        return kFailed;
    }

    uint8_t extender_slot = 0;
    if (rtshm_getExtenderSlotFromDriveSlot(bay_id, status->u8SlotNumInBay, &extender_slot) != 0) {
        LOG(Level::Error, "GetExtSlot Failed for BayId=%d,Slot=%d", bay_id, status->u8SlotNumInBay);
    }
    LOG(Level::Trace, "%s :BayId=%d, u8ExtenderSlot=%d", "Get PCIe Slot", bay_id, extender_slot);
    const wchar_t* extender_fqdd = nullptr;
    if (extender_slot != 0) {
        const ExtenderCardInfo* card = cached_extender(extender_slot);
        extender_fqdd = card != nullptr ? card->FQDD : nullptr;
        if (card == nullptr) {
            LOG(Level::Error, "Extender Read Error or Not Available");
        } else if (extender_fqdd == nullptr) {
            LOG(Level::Error, "Extender is not available in the server");
        } else {
            LOG(Level::Trace, "%s u8ExtenderSlot:%d", "Extender Info Available", extender_slot);
        }
    }

    Owned<wchar_t> fqdd = backplane_fqdd(bay_id, extender_fqdd);
    const bool extended = extender_fqdd != nullptr;
    if (fqdd) {
        LOG(Level::Trace, "Framing FQDD %s Done!", extended ? "with Extndr" : "w/o extndr");
    } else {
        LOG(Level::Error, "%s vexel_alloc Failed %sBayId=%d", __func__,
            extended ? "" : "@No Extender, ", bay_id);
    }
    Owned<wchar_t> name = framed(kBackplaneNameRoom, L"PCIe SSD BP %d", bay_id);
    if (name) {
        LOG(Level::Trace, "PCIeSSD BP NAME=%ls", name.get());
    } else {
        LOG(Level::Error, "%s vexel_alloc Failed for NAME, BayId=%d", __func__, bay_id);
    }

    fill_backplane(*backplane, *status);
    LOG(Level::Trace, "%s driveCount=%d  slotCount=%d", __func__, status->u8SlotCount,
        status->u8Byte3);
    backplane->NAME = name.get();
    backplane->hdr.FQDD = fqdd.get();
    status->backplane = backplane.get();
    // Where there is none, but could be one, one can be stored.
    rtcache_SetCachedObject(RTCACHE_KEY_BACKPLANE, kNoEndpoint, bay_id, status.get());
    hand_over_to_cache(status, backplane, fqdd, name);
    return 0;
}

uint32_t rtshm_getExtenderSlotFromDriveSlot(uint8_t bayId, uint8_t driveSlot,
                                            uint8_t* extenderSlot) {
    const auto index = cabled_index(bayId, driveSlot);
    if (!index || extenderSlot == nullptr) {
        LOG(Level::Error, "Error!!, Invalid DriveSlot:%d", driveSlot);
        return kRefused;
    }

    *extenderSlot = load(sNVMeSSDBPInfo.slots[*index].extenderSlot);
    if (*extenderSlot != 0) {
        LOG(Level::Trace, "--> u8BayID:%d u8DriveSlot:%d, u8ExtenderSlot:%d", bayId, driveSlot,
            *extenderSlot);
    } else {
        LOG(Level::Trace, "--> No Extender Found for u8BayID:%d u8DriveSlot:%d ", bayId, driveSlot);
    }
    return 0;
}

uint32_t getBayIDandSlotFromFqdd(const char* fqdd, uint8_t length, uint8_t* bayId, uint8_t* slot) {
    if (fqdd == nullptr || bayId == nullptr || slot == nullptr) {
        LOG(Level::Error, "err1:fqdd is NULL");
        return kNullArgument;
    }

    char narrowed[kNarrowedFqddRoom]{};
    if (length != 0) {
        narrow_by_halves(narrowed, fqdd, length);
        LOG(Level::Trace, "fqddstr: %s", narrowed);
    } else {
        LOG(Level::Trace, "FQDD : %s", fqdd);
    }
    std::string_view rest{length != 0 ? narrowed : fqdd};
    std::string_view disk = take_field(rest, ':');
    unsigned field = 0;
    for (auto text = take_field(disk, '.'); !text.empty(); text = take_field(disk, '.')) {
        LOG(Level::Detail, "%.*s", static_cast<int>(text.size()), text.data());
        if (field++ == kSlotField) {
            *slot = leading_number(text);
            LOG(Level::Trace, "%s u8SlotNo:%d", "FQDD string", *slot);
        }
    }
    // Kept: behind the disk only dots part fields, so the bay's field runs on past its colon.
    field = 0;
    for (auto text = take_field(rest, '.'); !text.empty(); text = take_field(rest, '.')) {
        LOG(Level::Detail, "%.*s", static_cast<int>(text.size()), text.data());
        take_field(text, '-');
        const std::string_view number = take_field(text, '-');
        if (field++ == kBayField && !number.empty()) {
            *bayId = leading_number(number);
            LOG(Level::Trace, "%s u8BayID:%d", "FQDD string", *bayId);
        }
    }
    return 0;
}
