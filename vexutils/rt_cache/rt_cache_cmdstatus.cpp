#include "rt_cache.h"

#include "internal/log.h"
#include "rt_shm.h"

RtControllerStatus g_rtpil_Controller_Status[RTPIL_CONTROLLERS];
uint8_t g_rtpil_MCTPCommandStatus[RTPIL_MCTP_COMMAND_STATUS_BYTES];
uint8_t g_rtpil_HBA_Communication_Status[RTPIL_HBA_COMMUNICATION_STATUS_BYTES];

namespace vexutils {
namespace {

constexpr char kUpdate[] = "rtmpi2_UpdateControllerCommandStatus";

constexpr std::uint8_t kCommunicationBits = 0x07;
constexpr std::uint8_t kLibraryBits = 0x7F;  // what a reset clears
constexpr std::uint16_t kFailLimit = 10;
constexpr std::uint16_t kDrivePresent = 1;

RtControllerStatus* find_status(std::int32_t eid) {
    for (RtControllerStatus& entry : g_rtpil_Controller_Status) {
        if (entry.eid == eid) {
            return &entry;
        }
    }
    return nullptr;
}

void set_communication(RtControllerStatus& entry, std::uint32_t code) {
    entry.status = static_cast<std::uint8_t>((entry.status & ~unsigned{kCommunicationBits}) | code);
}

void count_failure(RtControllerStatus& entry, std::uint8_t& kept, std::uint32_t recovery) {
    if (entry.failCount < kFailLimit) {
        ++entry.failCount;
        return;
    }
    set_communication(entry, RTPIL_COMMUNICATION_FAILED);
    entry.failCount = kFailLimit;
    kept = static_cast<std::uint8_t>(recovery);
}

// All commands but a failure end a run of failures.
void apply_command(RtControllerStatus& entry, std::uint32_t command) {
    entry.failCount = 0;
    switch (command) {
        case RTPIL_COMMAND_RESET:
            entry.status = static_cast<std::uint8_t>(entry.status & ~unsigned{kLibraryBits});
            return;
        case RTPIL_COMMAND_CLEAR_COUNT:
            return;
        case RTPIL_COMMAND_SUCCESS:
            set_communication(entry, RTPIL_COMMUNICATION_GOOD);
            return;
        default:
            set_communication(entry, command);
    }
}

// eid: that of the entry, so none below 0.
void update_status(RtControllerStatus& entry, std::int32_t eid, std::uint32_t command,
                   std::uint32_t recovery) VEX_REQUIRES(mutexRtCache) {
    if (command > RTPIL_COMMAND_LAST) {
        LOG_AS(kUpdate, Level::Error, "Unknown status for ctrl:%d", eid);
        return;
    }
    // Kept: the recovery byte is that of the entry at the endpoint id, not of the entry found.
    std::uint8_t dropped = 0;
    std::uint8_t& kept =
        eid < RTPIL_CONTROLLERS ? g_rtpil_Controller_Status[eid].recoveryStatus : dropped;
    if (command != RTPIL_COMMAND_FAILED) {
        if (command == RTPIL_COMMAND_RESET) {
            LOG_AS(kUpdate, Level::Trace,
                   "Resetting controller command status and counter for EID=%d", eid);
        } else if (command == RTPIL_COMMAND_CLEAR_COUNT) {
            LOG_AS(kUpdate, Level::Trace,
                   " Cleanup the controller command failed counter for EID=%d", eid);
        }
        apply_command(entry, command);
        kept = 0;
        return;
    }
    if (rtpil_IfNVMeSSD_isNotPresent(eid) == 1) {
        LOG_AS(kUpdate, Level::Trace, "Drive EID:%d, has been removed, do not update status", eid);
        return;
    }
    count_failure(entry, kept, recovery);
    LOG_AS(kUpdate, Level::Trace, "ctrl:%d command fail count:%d", eid, entry.failCount);
    LOG_AS(kUpdate, Level::Trace, "ctrl:%d recovery cmd status used ctrId:%d", eid, kept);
}

}  // namespace
}  // namespace vexutils

using namespace vexutils;

int32_t rtpil_GetControllerCommunicationStatus(int32_t eid, uint8_t* status) {
    LOG(Level::Trace, "-->  %s", __func__);
    if (status == nullptr) {
        LOG(Level::Trace, "<--  %s", __func__);
        return -1;
    }
    *status = RTPIL_COMMUNICATION_GOOD;
    if (const RtControllerStatus* entry = find_status(eid); entry != nullptr) {
        *status = entry->status & kCommunicationBits;
        LOG(Level::Trace, "Controller Comm status:%d for ctrl:%d at index:%d", *status, eid,
            static_cast<int>(entry - g_rtpil_Controller_Status));
    } else {
        LOG(Level::Error, "Unable to get Controller Comm status for ctrl:%d", eid);
    }
    LOG(Level::Trace, "<--  %s", __func__);
    return 0;
}

int32_t rtmpi2_UpdateControllerCommandStatus(int32_t eid, uint32_t command, uint32_t recovery) {
    LOG(Level::Trace, "-->  %s", __func__);
    RtControllerStatus* entry = find_status(eid);
    if (entry != nullptr) {
        update_status(*entry, eid, command, recovery);
    }
    LOG(Level::Trace, "<--  %s", __func__);
    return entry != nullptr ? 0 : -1;
}

uint32_t rtpil_IfNVMeSSD_isNotPresent(int32_t eid) {
    LOG(Level::Trace, "-->  %s", __func__);
    std::uint8_t type = 0;
    std::uint8_t bay = 0xFF;
    std::uint8_t slot = 0xFF;
    std::uint16_t state = kDrivePresent;  // unless its slot is known to be empty
    rtcache_GetStorageEIDTypeNoLock(static_cast<std::uint32_t>(eid), &type);
    if (type == RTCACHE_TYPE_NVME && RTSHM_readBayIDAndSlotNoFromEID(&bay, &slot, eid) == 0) {
        rtshm_getNVMeDriveState(&state, bay, slot);
    }
    LOG(Level::Trace, "<--  %s", __func__);
    return (state & kDrivePresent) == 0 ? 1 : 0;
}

uint8_t rtpil_GetctrlEnableLoggingStatus(int32_t eid) {
    LOG(Level::Trace, "-->  %s", __func__);
    std::uint8_t value = 0;
    if (const RtControllerStatus* entry = find_status(eid); entry != nullptr) {
        value = entry->enableLogging;
        LOG(Level::Trace, "ctrlid:%d with Enablelogging:%d", eid, value);
    } else {
        LOG(Level::Error, "EnableLogging is not found for ctrlId:%d", eid);
    }
    LOG(Level::Trace, "<--  %s", __func__);
    return value;
}

uint32_t rtpil_SetctrlEnableLoggingStatus(int32_t eid, uint8_t value) {
    LOG(Level::Trace, "-->  %s", __func__);
    bool found = false;
    for (RtControllerStatus& entry : g_rtpil_Controller_Status) {
        if (entry.eid == eid) {
            found = true;
            entry.enableLogging = value;
            LOG(Level::Trace, "ctrlid:%d with Enablelogging:%d", eid, value);
        }
    }
    if (!found) {
        LOG(Level::Error, "EnableLogging is not found for ctrlId:%d", eid);
    }
    LOG(Level::Trace, "<--  %s", __func__);
    return 0;
}
