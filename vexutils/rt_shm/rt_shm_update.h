// One run of RTSHM_UpdateSharedMem. Its steps log under that function's name, whichever function
// writes the line.
#ifndef VEXUTILS_RT_SHM_RT_SHM_UPDATE_H
#define VEXUTILS_RT_SHM_RT_SHM_UPDATE_H

#include <platform/bpapi.h>

#include <cstdint>

#include "internal/lock_annotations.h"
#include "rt_cache.h"
#include "rt_shm.h"

namespace vexutils {

inline constexpr char kUpdate[] = "RTSHM_UpdateSharedMem";

// What a run has gathered so far.
struct UpdateRun {
    StorageInventoryRegion image;
    const BpApiInfo* backplanes;  // null: not readable
    bool hba_polling_disabled;
    bool kron_polling_disabled;
    bool hba_reinventory;  // as the last HBA found it
    std::uint8_t tape;     // TAPE_PRESENT or TAPE_ABSENT
    std::uint32_t kron_count;
};

struct UpdateController {
    std::uint8_t eid;
    std::uint8_t type;
    const RtCacheControllerNode* node;  // with adapter and PCI information
    RtCachePciInfo pci;

    bool is_kron() const { return type == RTCACHE_TYPE_KRON || type == RTCACHE_TYPE_KRON_18; }
    bool is_hba() const { return type == RTCACHE_TYPE_HBA; }
};

// Whether the temperatures of the drives behind a controller are to be left unread.
bool drive_polling_disabled(const UpdateRun& run, const UpdateController& controller);

// Adds the drives behind a controller to the image, as far as they fit.
void enter_drives(UpdateRun& run, const UpdateController& controller) VEX_REQUIRES(mutexRtCache);

}  // namespace vexutils

#endif  // VEXUTILS_RT_SHM_RT_SHM_UPDATE_H
