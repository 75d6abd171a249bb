// The global status, read or changed under its lock.
#ifndef TOOLS_VEXSIM_GLOBAL_STATUS_H
#define TOOLS_VEXSIM_GLOBAL_STATUS_H

#include "rt_sync.h"
#include "vexsim/runtime_failure.h"

namespace vexsim {

// Reads the global status, lets change alter it and writes it back. Returns: what was written.
template <typename Change>
RTSyncGlobalStatus change_global_status(const Change& change) {
    expect_zero("RTSync_LockGlobalStatus", RTSync_LockGlobalStatus());
    RTSyncGlobalStatus status{};
    const uint32_t got = RTSync_GetGlobalStatus(&status);
    change(status);
    const uint32_t set = got == 0 ? RTSync_SetGlobalStatus(status) : got;
    expect_zero("RTSync_UnLockGlobalStatus", RTSync_UnLockGlobalStatus());
    expect_zero("RTSync_SetGlobalStatus", set);
    return status;
}

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_GLOBAL_STATUS_H
