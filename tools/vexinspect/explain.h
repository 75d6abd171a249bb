// Why an alert reaches the system event log, or does not.
#ifndef TOOLS_VEXINSPECT_EXPLAIN_H
#define TOOLS_VEXINSPECT_EXPLAIN_H

#include <string>

namespace vexinspect {

struct ExplainOptions {
    std::string message_id;
    std::string fqdd;
    std::string phase = "live";  // a name, or the number of the global status
    std::string flags;           // likewise a number, empty: what goes with the phase
    unsigned arguments = 0;
};

// The library's verdict and the rule that decides it. Throws std::invalid_argument for a phase or
// flags that are none.
std::string explain(const ExplainOptions& options);

}  // namespace vexinspect

#endif  // TOOLS_VEXINSPECT_EXPLAIN_H
