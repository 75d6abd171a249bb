#include "rt_shm.h"

#include "internal/log.h"
#include "rt_shm/nvme_table.h"
#include "rt_shm/snapshot.h"

constinit uint8_t g_nvme_vdm_eids[RTSHM_VDM_EID_LIST_BYTES]{};
constinit uint8_t g_nvme_new_vdm_eids[RTSHM_VDM_EID_LIST_BYTES]{};
constinit uint8_t g_nvmecard_vdm_eids[RTSHM_VDM_EID_LIST_BYTES]{};
constinit uint8_t g_nvmecard_new_vdm_eids[RTSHM_VDM_EID_LIST_BYTES]{};
constinit uint8_t g_nvme_vdm_eid_count = 0;
constinit uint8_t g_nvmecard_vdm_eid_count = 0;

namespace {

constexpr std::uint8_t kFirstRearLocation = 48;
constexpr std::uint8_t kLastRearLocation = 51;

}  // namespace

using namespace vexutils;

uint32_t rtshm_getDriveTechFromBpInfo(uint8_t* pu8Tech, uint8_t u8BayID, uint8_t u8Slot) {
    const auto index = position_index(u8BayID, u8Slot);
    if (!index || pu8Tech == nullptr) {
        LOG(Level::Error, "ERROR:Drive at Bay %d Slot %d has INVALID_SLOT", u8BayID, u8Slot);
        return 1;
    }

    const NVMeSlotEntry& entry = sNVMeSSDBPInfo.slots[*index];
    *pu8Tech = load(entry.driveTechnology);
    LOG(Level::Trace, "DriveTech for EID:%d Bay:%d Slot:%d, u8DriveTech:%d", load(entry.i2cEid),
        u8BayID, u8Slot, *pu8Tech);
    return 0;
}

uint32_t rtshm_getBusNumFromBpInfo(uint8_t* pu8Bus, uint8_t u8BayID, uint8_t u8Slot) {
    const auto index = position_index(u8BayID, u8Slot);
    if (!index || pu8Bus == nullptr) {
        LOG(Level::Error, "ERROR:Drive at Bay %d Slot %d has INVALID_SLOT", u8BayID, u8Slot);
        return 1;
    }

    const NVMeSlotEntry& entry = sNVMeSSDBPInfo.slots[*index];
    *pu8Bus = load(entry.bus);
    LOG(Level::Trace, "BDFBus for EID:%d Bay:%d Slot:%d, u8PCIeBus:%d", load(entry.i2cEid), u8BayID,
        u8Slot, *pu8Bus);
    return 0;
}

uint32_t rtshm_getNVMeDriveState(uint16_t* pu16State, uint8_t u8BayID, uint8_t u8Slot) {
    const auto index = position_index(u8BayID, u8Slot);
    if (!index || pu16State == nullptr) {
        LOG(Level::Error, "ERROR:Drive at Bay %d Slot %d has INVALID_SLOT", u8BayID, u8Slot);
        return 1;
    }

    *pu16State = load(acted_drive_states[*index]);
    LOG(Level::Trace, "DriveState for Slot:%d, u6DriveState:%d", u8Slot, *pu16State);
    return 0;
}

uint32_t rtshm_SetNVMeDriveState(uint8_t u8BayID, uint8_t u8Slot, uint16_t u16State) {
    const auto index = position_index(u8BayID, u8Slot);
    if (!index) {
        LOG(Level::Error, "ERROR:Drive at Bay %d Slot %d has INVALID_SLOT", u8BayID, u8Slot);
        return 1;
    }

    LOG(Level::Trace, "DriveState for Slot:%d, u6DriveState:%d CurrentDriveState:%d", u8Slot,
        u16State, load(acted_drive_states[*index]));
    store(sNVMeSSDBPInfo.slots[*index].driveState, u16State);
    store(acted_drive_states[*index], u16State);
    return 0;
}

uint32_t rtshm_UpdateNVMeSSDSlotToEID(uint8_t u8BayID, uint8_t u8Slot, uint8_t u8EID) {
    const auto index = position_index(u8BayID, u8Slot);
    if (!index) {
        LOG(Level::Error, "ERROR:Drive at Bay %d Slot %d has INVALID_SLOT", u8BayID, u8Slot);
        return 1;
    }

    LOG(Level::Trace, "--> u8BayID:%d u8Slot:%d, u8EID:%d ", u8BayID, u8Slot, u8EID);
    store(sNVMeSSDBPInfo.slots[*index].i2cEid, u8EID);
    return 0;
}

uint32_t rtshm_UpdateNVMeSSDSlotToVDMEID(uint8_t u8BayID, uint8_t u8Slot, uint8_t u8EID) {
    const auto index = position_index(u8BayID, u8Slot);
    if (!index) {
        LOG(Level::Error, "ERROR:Drive at Bay %d Slot %d has INVALID_SLOT", u8BayID, u8Slot);
        return 1;
    }

    LOG(Level::Trace, "--> u8BayID:%d u8Slot:%d, u8EID:%d ", u8BayID, u8Slot, u8EID);
    store(sNVMeSSDBPVDMInfo.slots[*index].vdmEid, u8EID);
    return 0;
}

uint32_t rtshm_getI2CNVMeSSDEIDfromSlotAndBayId(uint8_t u8BayID, uint8_t u8Slot, uint8_t* pu8EID) {
    const auto index = position_index(u8BayID, u8Slot);
    if (!index || pu8EID == nullptr) {
        LOG(Level::Error, "ERROR:Drive at Bay %d Slot %d has INVALID_SLOT", u8BayID, u8Slot);
        return 1;
    }

    *pu8EID = load(sNVMeSSDBPInfo.slots[*index].i2cEid);
    LOG(Level::Trace, "--> u8BayID:%d u8Slot:%d, u8I2CEID:%d ", u8BayID, u8Slot, *pu8EID);
    return 0;
}

uint32_t rtshm_GetNVMeSSDvdmEIDfromSlotandBayID(uint8_t u8BayID, uint8_t u8Slot, uint8_t* pu8EID) {
    const auto index = position_index(u8BayID, u8Slot);
    if (!index || pu8EID == nullptr) {
        LOG(Level::Error, "ERROR:Drive at Bay %d Slot %d has INVALID_SLOT", u8BayID, u8Slot);
        return 1;
    }

    *pu8EID = load(sNVMeSSDBPVDMInfo.slots[*index].vdmEid);
    LOG(Level::Trace, "u8BayID:%d u8Slot:%d, VDM-EID:%d ", u8BayID, u8Slot, *pu8EID);
    return 0;
}

uint32_t rtshm_IsDriveBehindKRONfromBPAPI(uint8_t* pu8Behind, uint8_t u8BayID, uint8_t u8Slot) {
    const auto index = cabled_index(u8BayID, u8Slot);
    if (!index || pu8Behind == nullptr) {
        LOG(Level::Error, "ERROR:Drive at Bay %d Slot %d has INVALID_SLOT", u8BayID, u8Slot);
        return 1;
    }

    *pu8Behind = load(sNVMeSSDBPInfo.slots[*index].behindKron);
    LOG(Level::Trace, "Is drive at Bay %d Slot %d connected behind the KRON? %d", u8BayID, u8Slot,
        *pu8Behind);
    return 0;
}

uint32_t rtshm_IsDriveConnectedRearBP(uint8_t* pu8Rear, uint8_t u8BayID, uint8_t u8Slot) {
    const auto index = cabled_index(u8BayID, u8Slot);
    if (!index || pu8Rear == nullptr) {
        LOG(Level::Error, "ERROR:Drive at Bay %d Slot %d has INVALID_SLOT", u8BayID, u8Slot);
        return 1;
    }

    const uint8_t location = load(sNVMeSSDBPInfo.slots[*index].location);
    const bool rear = location >= kFirstRearLocation && location <= kLastRearLocation;
    *pu8Rear = rear ? 1 : 0;
    if (!rear) {
        LOG(Level::Trace, "Drive is not connected to rear BP, location[%d]", location);
    }
    return 0;
}

uint32_t ReadNVMeBPInfo(uint8_t* pu8Buffer) {
    const ZentBpApiHandle handle = session(bpAPIHandler);
    if (handle == nullptr) {
        LOG(Level::Error, "%s %d", "<-- error:BPAPI Handler is NULL!!!", __LINE__);
        return 1;
    }
    const uint32_t result =
        pu8Buffer != nullptr
            ? ZentBpApiReadExec(handle, pu8Buffer, __FILE_NAME__, __func__, __LINE__)
            : 1;
    if (!bp_succeeded(result)) {
        LOG(Level::Error, "%s %d u8Ret:%d", "<-- error Reading BPAPI Failed!", __LINE__,
            static_cast<uint8_t>(result));
        return 1;
    }
    return 0;
}
