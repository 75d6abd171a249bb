// Builds the cached nodes of a scenario's devices, the way the daemon does after it has read a
// device: each record is a deep copy of one that is freed right away, every block comes from
// vexel_alloc, and the cache owns the node once it is stored.
#ifndef TOOLS_VEXSIM_OBJECT_BUILDER_H
#define TOOLS_VEXSIM_OBJECT_BUILDER_H

#include <cstdint>
#include <string>

#include "rt_cache.h"
#include "vexsim/scenario.h"

namespace vexsim {

// What a sensor shows now; kNoTemperature none.
using Degrees = int;

// As records and regions hold it.
inline uint8_t degrees_byte(Degrees degrees) {
    return static_cast<uint8_t>(degrees == kNoTemperature ? RT_TEMPERATURE_NONE_U8 : degrees);
}

// Each throws std::bad_alloc without memory.
RtCacheControllerNode* build_controller(const Controller& controller, Degrees temperature,
                                        Degrees battery_temperature);
RtCacheControllerNode* build_ssd_controller(const std::string& name, const std::string& fqdd,
                                            Degrees temperature);
RtCacheDiskNode* build_drive(const Drive& drive, Degrees temperature);
RtCacheDiskNode* build_nvme_disk(const NvmeDrive& drive, Degrees temperature);
RtCacheDiskNode* build_enclosure(const Enclosure& enclosure);
RtCacheVirtualDiskNode* build_virtual_disk(const VirtualDisk& disk);

// Frees a drive's node that the cache has given back; null is allowed.
void free_disk_node(RtCacheDiskNode* node);

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_OBJECT_BUILDER_H
