// Reads scenario files; docs/scenarios.md describes them.
#ifndef TOOLS_VEXSIM_SCENARIO_PARSER_H
#define TOOLS_VEXSIM_SCENARIO_PARSER_H

#include <string>

#include "vexsim/scenario.h"

namespace vexsim {

// Reads a scenario and the topology file it names. Throws vextools::InputError.
Scenario load_scenario(const std::string& path);

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_SCENARIO_PARSER_H
