#include "rt_shm.h"

#include <platform/shm.h>

#include "internal/log.h"
#include "rt_cache.h"
#include "rt_shm/nvme_table.h"
#include "rt_shm/snapshot.h"

using namespace vexutils;

namespace {

constexpr uint32_t kNotFound = 3;
constexpr uint8_t kUnknownType = 255;

// Where region 20 holds the position of a global slot. A slot that is not there gives an offset
// that the service refuses.
int position_offset(int16_t slot) {
    return static_cast<int>(offsetof(PCIeSSDStatusRegion, positions)) +
           static_cast<int>(sizeof(PCIeSSDPosition)) * slot;
}

}  // namespace

uint32_t RTSHM_readSSDSlotNumFromGblSlotNum(uint8_t* u8SlotNumInBay, int slot) {
    const auto global_slot = static_cast<int16_t>(slot);
    LOG(Level::Trace, " Entry u8Slot:%d ", global_slot);
    if (u8SlotNumInBay == nullptr) {
        return 0;  // Kept: nothing to fill is no error here.
    }
    const int offset =
        position_offset(global_slot) + static_cast<int>(offsetof(PCIeSSDPosition, u8SlotNumInBay));
    const int result = Zent_shm_memread(ZENT_SHM_PCIESSD_STATUS, u8SlotNumInBay, offset, 1);
    if (result != 0) {
        LOG(Level::Error, "%s %d", "error, SHM Read", result);
        return kNotFound;
    }

    LOG(Level::Trace, " After Read offset = %d  u8SlotNumInBay=%d ", offset, *u8SlotNumInBay);
    return 0;
}

uint32_t RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum(uint8_t* u8BayId, int slot) {
    const auto global_slot = static_cast<int16_t>(slot);
    LOG(Level::Trace, " Entry u8Slot:%d ", global_slot);
    if (u8BayId == nullptr) {
        return 0;  // Kept: nothing to fill is no error here.
    }
    const int offset =
        position_offset(global_slot) + static_cast<int>(offsetof(PCIeSSDPosition, u8BayId));
    const int result = Zent_shm_memread(ZENT_SHM_PCIESSD_STATUS, u8BayId, offset, 1);
    if (result != 0) {
        LOG(Level::Error, "%s %d", "error, SHM Read", result);
        return kNotFound;
    }

    LOG(Level::Trace, " After Read offset = %d  u8BayId=%d ", offset, *u8BayId);
    return 0;
}

uint32_t RTSHM_readBayIDInfoFromGblSlotNum(uint8_t* u8BayId, unsigned slot) {
    if (u8BayId == nullptr || slot >= NVME_SLOTS) {
        LOG(Level::Error, "%s %s slot:%u", "<-- error", __func__, slot);
        return kNotFound;
    }

    uint32_t result = kNotFound;
    for (unsigned bay = 0; bay < NVME_BAYS; ++bay) {
        const NVMeSlotEntry& entry = sNVMeSSDBPInfo.slots[*position_index(bay, slot)];
        const uint8_t technology = load(entry.bayTechnology);
        LOG(Level::Trace, " Entry u8BpType:%d ", technology);
        if (is_nvme(technology)) {
            *u8BayId = load(entry.bayId);
            result = 0;
        } else {
            LOG(Level::Error, "%s %d", "error!!, Not a NVMe Backplane", bay);
        }
    }
    return result;
}

uint32_t RTSHM_readBayIDAndSlotNoFromEID(uint8_t* bay, uint8_t* slot, int eid) {
    if (bay == nullptr || slot == nullptr) {
        LOG(Level::Error, "%s%s", "<-- err null inputs", __func__);
        return kNotFound;
    }
    uint8_t type = kUnknownType;
    if (rtcache_GetStorageEIDTypeNoLock(static_cast<uint32_t>(eid), &type) != 0) {
        LOG(Level::Error, "Failed while getting Type");
        return 1;
    }
    if (type != RTCACHE_TYPE_NVME) {
        LOG(Level::Trace, "%s EID= %d It is a PCIeSSD Add-in card", __func__, eid);
        return 0;
    }

    uint32_t result = kNotFound;
    for (unsigned index = 0; index < kDrivePositions; ++index) {
        // The eid has a type, so it is none of more than a byte and not the mark of a free slot.
        if (load(sNVMeSSDBPInfo.slots[index].i2cEid) == eid) {
            *bay = static_cast<uint8_t>(index / NVME_SLOTS);
            *slot = static_cast<uint8_t>(index % NVME_SLOTS);
            result = 0;
            LOG(Level::Detail, "s8BayNo:%d, s8SlotNo:%d, u8EID:%d", *bay, *slot, eid);
        }
    }
    if (result != 0) {
        LOG(Level::Error, "%s %d", "error, SHM Write", eid);
    }
    return result;
}

uint32_t RTSHM_readBayIDAndSlotNoFromVDMEID(uint8_t* bay, uint8_t* slot, int eid) {
    LOG(Level::Trace, " Entry u8EID:%d ", eid);
    if (bay == nullptr || slot == nullptr) {
        LOG(Level::Error, "%s%s", "<-- err null inputs", __func__);
        return kNotFound;
    }

    uint32_t result = kNotFound;
    for (unsigned index = 0; index < kDrivePositions; ++index) {
        // eid as given: what is no EID must not match one by its low bits, and 255 marks a free
        // slot.
        if (eid != RTCACHE_EID_FREE && load(sNVMeSSDBPVDMInfo.slots[index].vdmEid) == eid) {
            *bay = static_cast<uint8_t>(index / NVME_SLOTS);
            *slot = static_cast<uint8_t>(index % NVME_SLOTS);
            result = 0;
            LOG(Level::Detail, "s8BayNo:%d, s8SlotNo:%d, u8EID:%d", *bay, *slot, eid);
        }
    }
    LOG(Level::Trace, "--> Exits u8BayId:%d, u8SSDSlotNo:%d", *bay, *slot);
    return result;
}

uint8_t rtshm_getI2CNVMeSSDEIDfromVDMEID(int eid) {
    uint8_t bay = UINT8_MAX;
    uint8_t slot = UINT8_MAX;
    uint8_t i2c_eid = RTCACHE_EID_FREE;
    if (RTSHM_readBayIDAndSlotNoFromVDMEID(&bay, &slot, eid) != 0) {
        return i2c_eid;
    }
    const auto result = rtshm_getI2CNVMeSSDEIDfromSlotAndBayId(bay, slot, &i2c_eid);
    // Same either way: a position that was found is one of the table's, and they can all be read.
    if (result != 0) {                                                         // GCOVR_EXCL_BR_LINE
        LOG(Level::Error, "--> Failed to get I2C EID for VDM EID = %d", eid);  // GCOVR_EXCL_LINE
    }
    return i2c_eid;
}
