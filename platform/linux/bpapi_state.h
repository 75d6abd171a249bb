/*
 * bpapi_state.h - the drive states written to the backplane, in a file that other processes read
 * (docs/backplane.md).
 */
#ifndef PLATFORM_LINUX_BPAPI_STATE_H
#define PLATFORM_LINUX_BPAPI_STATE_H

#include <functional>
#include <string>

#include "platform/bpapi.h"

namespace vexplatform {

/*
 * Records a write: replaces the state of its bay and slot, or adds it.
 * Returns: 0 once the file has it, else an errno value and the file is as before.
 */
int store_drive_state(const std::string& path, const BpDriveStateWrite& write);

/*
 * Takes the states of slots out of the file for which gone is true; no file is no failure.
 * Returns: as above.
 */
int drop_drive_states(const std::string& path,
                      const std::function<bool(uint8_t bay, uint8_t slot)>& gone);

}  // namespace vexplatform

#endif /* PLATFORM_LINUX_BPAPI_STATE_H */
