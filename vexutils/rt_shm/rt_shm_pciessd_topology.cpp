#include <platform/shm.h>

#include <algorithm>
#include <array>

#include "internal/log.h"
#include "rt_shm.h"

using namespace vexutils;

namespace {

template <class Record>
int read_record(int region, int offset, Record& record) {
    return Zent_shm_memread(region, &record, offset, static_cast<int>(sizeof(record)));
}

// A region that nobody has written yet reads as zeros, which would be 32 times the same slot.
bool is_written(const PCIeSSDStatusRegion& region) {
    return std::ranges::any_of(region.positions, [](const PCIeSSDPosition& position) {
        return position.u8BayId != 0 || position.u8SlotNumInBay != 0;
    });
}

// Whether a slot names a drive position; 0xFF in both bytes is a slot that is not there.
bool is_position(const PCIeSSDPosition& position) {
    return position.u8BayId < NVME_BAYS && position.u8SlotNumInBay < NVME_SLOTS;
}

std::uint8_t count_slots(const PCIeSSDStatusRegion& region, unsigned bay) {
    return static_cast<std::uint8_t>(
        std::ranges::count_if(region.positions, [bay](const PCIeSSDPosition& position) {
            return position.u8BayId == bay && is_position(position);
        }));
}

bool is_absent(const PCIeSSDPosition& position) {
    return position.u8BayId == 0xFF && position.u8SlotNumInBay == 0xFF;
}

}  // namespace

uint32_t rtshm_getPCIessdExtcard(void) {
    LOG(Level::Trace, "--> %s", __func__);
    ExtenderCardTable table;
    if (const int result = read_record(ZENT_SHM_EXTENDER_CARDS, 0, table); result != 0) {
        LOG(Level::Error, "%s %d", "error, SHM Read", result);
        return 3;
    }
    const unsigned count = std::min<unsigned>(table.count, SHM_EXTENDER_ENTRIES);
    if (count < table.count) {
        LOG(Level::Warning, "extender entries:%d beyond the table", table.count);
    }

    for (unsigned i = 0; i < count; ++i) {
        const ExtenderCardEntry entry = table.entries[i];
        if (entry.type != SHM_EXTENDER_TYPE_PCIESSD) {
            LOG(Level::Trace, "--> %s s8Extender=%d u8Type=%d", "Not an Extender", i, entry.type);
            continue;
        }
        ExtenderCardRecord card;
        int result = read_record(ZENT_SHM_EXTENDER_CARDS, entry.recordOffset, card);
        if (result == 0) {
            LOG(Level::Trace, "--> %s u8PciSlot:%d, u8BayID:%d", "Extender Found", entry.pcieSlot,
                card.bayId);
            result = static_cast<int>(processPciessdExtndrcardInfo(card.bayId, entry.pcieSlot));
        }
        if (result != 0) {
            LOG(Level::Error, "<-- Error, processPciessdExtndrcardInfo");
            return 3;
        }
    }
    LOG(Level::Trace, "exit u32Ret=%d", 0);
    return 0;
}

uint32_t processPciessdExtndrcardInfo(uint8_t bayId, uint32_t extenderSlot) {
    LOG(Level::Trace, "--> %s u8BayID:%d extenderSlot:%u", __func__, bayId, extenderSlot);
    if (bayId >= NVME_BAYS) {
        LOG(Level::Error, "<-- err no such u8BayID:%d", bayId);
        return 2;
    }
    return processNVMeExtndrcardInfo(bayId, extenderSlot);
}

uint32_t rtshm_getPCIessdBp(void) {
    LOG(Level::Trace, "--> %s", __func__);
    PCIeSSDStatusRegion region;
    if (const int result = read_record(ZENT_SHM_PCIESSD_STATUS, 0, region); result != 0) {
        LOG(Level::Error, "%s %d", "error, SHM Read", result);
        return 3;
    }
    if (!is_written(region)) {
        LOG(Level::Trace, "<-- %s no slots yet", __func__);
        return 0;
    }

    std::uint32_t failure = 0;
    std::array<bool, NVME_BAYS> known{};
    for (unsigned i = 0; i < SHM_PCIESSD_SLOTS; ++i) {
        const PCIeSSDPosition position = region.positions[i];
        if (is_absent(position)) {
            continue;
        }
        if (!is_position(position)) {
            LOG(Level::Warning, "global slot:%d has no such position, u8BayID:%d slot:%d", i,
                position.u8BayId, position.u8SlotNumInBay);
            continue;
        }
        if (known[position.u8BayId]) {
            continue;
        }
        known[position.u8BayId] = true;
        if (processPciessdBackplaneInfo(position.u8BayId, position.u8SlotNumInBay,
                                        region.status[i].u16DriveStatus,
                                        count_slots(region, position.u8BayId)) != 0) {
            LOG(Level::Error, "<-- Error, processPciessdBackplaneInfo u8BayID:%d",
                position.u8BayId);
            failure = 3;
        }
    }
    LOG(Level::Trace, "exit u32Ret=%d", failure);
    return failure;
}

uint32_t processPciessdBackplaneInfo(uint8_t bayId, uint8_t slotInBay, uint16_t driveStatus,
                                     uint8_t slotCount) {
    LOG(Level::Trace, "--> %s u8BayID:%d u8SlotNumInBay:%d au16DriveStatus:%x slotCount:%d",
        __func__, bayId, slotInBay, driveStatus, slotCount);
    if (bayId >= NVME_BAYS || slotInBay >= NVME_SLOTS) {
        LOG(Level::Error, "<-- err no such u8BayID:%d slot:%d", bayId, slotInBay);
        return 2;
    }

    NVMeBayEntry bay{};
    bay.bayId = bayId;
    bay.physicalSlotCount = slotCount;
    bay.rsvd3 = slotCount;  // the record's count of slots, which no snapshot carries
    NVMeSlotEntry slot{};
    slot.bayId = bayId;
    slot.slot = slotInBay;
    slot.driveState = driveStatus;
    return processNVMeBackplaneInfo(&bay, &slot);
}
