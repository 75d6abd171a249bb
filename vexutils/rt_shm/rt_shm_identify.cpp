#include "rt_shm.h"

#include "internal/log.h"
#include "rt_shm/nvme_table.h"
#include "rt_shm/snapshot.h"

using namespace vexutils;

namespace {

constexpr uint32_t kOpenFailed = 1;  // a refused open carries no code of its own

// A short session for writes, closed at the end of its scope at the latest.
class WriteSession {
  public:
    WriteSession(const char* function, uint32_t line)
        : handle_(ZentBpApiOpenExec(nullptr, 0, __FILE_NAME__, function, line, 0)) {}
    ~WriteSession() { close(__func__, __LINE__); }
    WriteSession(const WriteSession&) = delete;
    WriteSession& operator=(const WriteSession&) = delete;
    explicit operator bool() const { return handle_ != nullptr; }

    uint32_t write(const BpDriveStateWrite& record, const char* function, uint32_t line) const {
        return ZentBpApiWriteExec(handle_, BPAPI_WRITE_DRIVE_STATE, &record, __FILE_NAME__,
                                  function, line);
    }

    // Whether the session is closed in order.
    bool close(const char* function, uint32_t line) {
        const ZentBpApiHandle handle = handle_;
        handle_ = nullptr;
        return handle == nullptr ||
               bp_succeeded(ZentBpApiCloseExec(handle, __FILE_NAME__, function, line));
    }
    void leave_open() { handle_ = nullptr; }

  private:
    ZentBpApiHandle handle_;
};

}  // namespace

uint32_t BlinkNVMeSSD(uint8_t u8bayId, uint8_t u8Slot) {
    LOG(Level::Trace, "-->Blink NVMe SSD:u8Slot:%d u8bayId:%d", u8Slot, u8bayId);
    LOG(Level::Trace, "--> %s Calling BPAPIOpen", __func__);
    WriteSession backplane{__func__, __LINE__};
    if (!backplane) {
        LOG(Level::Trace, "%s u8SSDSlotNum:%d,BPAPIOpen: Error:%s",
            "<-- unable to Open backplaneApi.", u8Slot, ZentBpApiError(kOpenFailed));
        return 1;
    }

    LOG(Level::Trace, "Blink NVMe SSD:u8Slot:%d u8bayId:%d", u8Slot, u8bayId);
    const uint32_t result =
        backplane.write({u8bayId, u8Slot, BPAPI_DRIVE_STATE_IDENTIFY}, __func__, __LINE__);
    if (!bp_succeeded(result)) {
        LOG(Level::Trace, "%s u8Ret:%d,NVMeSSDBlink: Error:%s", "<-- unable to write backplaneApi.",
            static_cast<uint8_t>(result), ZentBpApiError(result));
    }
    if (!backplane.close(__func__, __LINE__)) {
        LOG(Level::Trace, "--> Failed to Close to BPAPI @ %d", __LINE__);
    }
    if (!bp_succeeded(result)) {
        return 1;
    }
    LOG(Level::Trace, "<-- Exit %s", __func__);
    return 0;
}

uint32_t UnBlinkNVMeSSD(uint8_t u8bayId, uint8_t u8Slot, uint16_t u6NVMeDriveState) {
    LOG(Level::Trace, "-->UnBlink NVMe SSD:u8Slot:%d u8bayId:%d", u8Slot, u8bayId);
    LOG(Level::Trace, "--> %s Calling BPAPIOpen", __func__);
    WriteSession backplane{__func__, __LINE__};
    if (!backplane) {
        LOG(Level::Trace, "%s u8bayId:%d Slot:%d", "Error:bpAPIHandler is NULL", u8bayId, u8Slot);
        LOG(Level::Trace, "%s u8SSDSlotNum:%d,BPAPIOpen: Error:%s",
            "<-- unable to Open backplaneApi.", u8Slot, ZentBpApiError(kOpenFailed));
        return 1;
    }

    LOG(Level::Trace, "UnBlink NVMe SSD:u8Slot:%d u8bayId:%d u6NVMeDriveState:%d", u8Slot, u8bayId,
        u6NVMeDriveState);
    const uint32_t result =
        backplane.write({u8bayId, u8Slot, u6NVMeDriveState}, __func__, __LINE__);
    if (!bp_succeeded(result)) {
        LOG(Level::Trace, "%s u8Ret:%d,NVMeSSDUnBlink: Error:%s",
            "<-- unable to write backplaneApi.", static_cast<uint8_t>(result),
            ZentBpApiError(result));
    }
    if (!backplane.close(__func__, __LINE__)) {
        LOG(Level::Trace, "--> Failed to Close to BPAPI @ %d", __LINE__);
    }
    if (!bp_succeeded(result)) {
        return 1;
    }
    LOG(Level::Trace, "<-- Exit %s", __func__);
    return 0;
}

uint32_t UnBlinkAllNVMeSSDS(uint8_t u8EID, uint8_t u8bayId, uint8_t u8Slot,
                            uint16_t u6NVMeDriveState) {
    LOG(Level::Trace, "-->UnBlink NVMe SSD:u8Slot:%d u8bayId:%d", u8Slot, u8bayId);
    LOG(Level::Trace, "UnBlink NVMe SSD:u8Slot:%d u8bayId:%d u6NVMeDriveState:%d", u8Slot, u8bayId,
        u6NVMeDriveState);
    const ZentBpApiHandle handle = session(bpAPIHandler);
    if (handle == nullptr) {
        LOG(Level::Trace, "%s u8bayId:%d Slot:%d", "Error:bpAPIHandler is NULL", u8bayId, u8Slot);
        return 1;
    }

    if (u6NVMeDriveState != RTSHM_NO_DRIVE_STATE) {
        const BpDriveStateWrite record{u8bayId, u8Slot, u6NVMeDriveState};
        const uint32_t result = ZentBpApiWriteExec(handle, BPAPI_WRITE_DRIVE_STATE, &record,
                                                   __FILE_NAME__, __func__, __LINE__);
        if (!bp_succeeded(result)) {
            LOG(Level::Trace, "%s u8Ret:%d,NVMeSSDUnBlink: Error:%s",
                "<-- unable to write backplaneApi.", static_cast<uint8_t>(result),
                ZentBpApiError(result));
            LOG(Level::Trace, "--> Failed to Write to BPAPI @ %d", __LINE__);
            return 1;
        }
    }
    LOG(Level::Trace, "<-- Unblink Sucess for EID:%d", u8EID);
    return 0;
}

uint32_t updateNVMeSSDDriveStatusToBP(uint16_t u16DriveStatus, uint8_t u8SSDSlotNum,
                                      uint8_t u8EID) {
    LOG(Level::Trace, "--> %s Calling BPAPIOpen", __func__);
    WriteSession backplane{__func__, __LINE__};
    if (!backplane) {
        LOG(Level::Trace, "<--NVMeSSDDriveStatus update Done!! u16DriveStatus:%d", u16DriveStatus);
        return 0;
    }

    uint8_t bay = UINT8_MAX;  // an endpoint without a position leaves them so
    uint8_t slot = UINT8_MAX;
    const uint32_t found = RTSHM_readBayIDAndSlotNoFromEID(&bay, &slot, u8EID);
    if (found != 0) {
        LOG(Level::Trace, "%s Slot:%d u8Ret:%d",
            "Failed to Get the BayID for the slot:", u8SSDSlotNum, found);
    } else {
        // Kept: the table goes by the caller's slot, the backplane by the one that was found.
        rtshm_SetNVMeDriveState(bay, u8SSDSlotNum, u16DriveStatus);
        LOG(Level::Trace, "Updating NVMe SSD Status:u16DriveStatus:%d u8SSDSlotNum:%d u8bayId:%d",
            u16DriveStatus, u8SSDSlotNum, bay);
        const uint32_t result = backplane.write({bay, slot, u16DriveStatus}, __func__, __LINE__);
        if (!bp_succeeded(result)) {
            LOG(Level::Trace, "%s u8Ret:%d, Error:%s", "<-- unable to write backplane api info.",
                static_cast<uint8_t>(result), ZentBpApiError(result));
            backplane.leave_open();  // Kept: unlike a failed identify, this leaves the session.
            return 1;
        }
    }
    if (!backplane.close(__func__, __LINE__)) {
        LOG(Level::Trace, "--> Failed to Close to BPAPI @ %d", __LINE__);
    }
    LOG(Level::Trace, "<--NVMeSSDDriveStatus update Done!! u16DriveStatus:%d", u16DriveStatus);
    return 0;
}
