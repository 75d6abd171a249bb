/*
 * bpapi_topology.h - the backplane topology as a JSON file (docs/backplane.md) and as the snapshot
 * that sessions read.
 */
#ifndef PLATFORM_LINUX_BPAPI_TOPOLOGY_H
#define PLATFORM_LINUX_BPAPI_TOPOLOGY_H

#include <cstdint>
#include <string>

#include "platform/bpapi.h"

namespace vexplatform {

struct Topology {
    uint32_t system_id = 0;
    BpApiInfo info = {};
};

/* Throws: JsonError naming line, field and what was expected. */
Topology parse_topology(const std::string& text);

/* Drive record d of a snapshot that this platform made. */
BpApiDrive drive_of(const BpApiInfo& info, unsigned d);

/* Does the snapshot have this bay, and the bay this slot? */
bool has_bay(const BpApiInfo& info, uint8_t bay_id);
bool has_slot(const BpApiInfo& info, uint8_t bay_id, uint8_t slot);

/* Is a drive present there? */
bool has_drive(const BpApiInfo& info, uint8_t bay_id, uint8_t slot);

}  // namespace vexplatform

#endif /* PLATFORM_LINUX_BPAPI_TOPOLOGY_H */
