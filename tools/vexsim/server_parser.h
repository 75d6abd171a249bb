// Reads the part of a scenario that describes the server: controllers with what is behind them,
// NVMe drives, extender cards.
#ifndef TOOLS_VEXSIM_SERVER_PARSER_H
#define TOOLS_VEXSIM_SERVER_PARSER_H

#include <vector>

#include "support/json_reader.h"
#include "vexsim/drive_models.h"
#include "vexsim/scenario.h"

namespace vexsim {

inline constexpr size_t kMaxFqdd = 90;  // chosen: longer than any region or log keeps
inline constexpr size_t kMaxNameLength = 100;

// Each throws vextools::InputError.
Controller read_controller(const vextools::JsonReader& object, const DriveModels& models);
std::vector<NvmeDrive> read_nvme_group(const vextools::JsonReader& object,
                                       const DriveModels& models);
SsdCard read_ssd_card(const vextools::JsonReader& object, const DriveModels& models);
ExtenderCard read_extender(const vextools::JsonReader& object);
ThermalSettings read_thermal(const vextools::JsonReader& object);

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_SERVER_PARSER_H
