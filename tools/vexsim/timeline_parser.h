// Reads the timeline of a scenario.
#ifndef TOOLS_VEXSIM_TIMELINE_PARSER_H
#define TOOLS_VEXSIM_TIMELINE_PARSER_H

#include "support/json_reader.h"
#include "vexsim/drive_models.h"
#include "vexsim/scenario.h"

namespace vexsim {

inline constexpr int64_t kMillisecondsPerSecond = 1000;
inline constexpr double kMaxSeconds = 1e8;  // chosen: three years

// Milliseconds of a field in seconds.
int64_t read_seconds(const vextools::JsonReader& field);

// The topology file that a field names, beside the scenario's own file.
vextools::JsonValue load_topology(const vextools::JsonReader& field);

// Fills scenario.steps with the timeline, by time; steps of one moment keep the file's order.
// scenario: its server and its times are complete. Throws vextools::InputError.
void read_timeline(const vextools::JsonReader& timeline, const DriveModels& models,
                   Scenario& scenario);

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_TIMELINE_PARSER_H
