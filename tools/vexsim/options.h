// The command line of vexsim.
#ifndef TOOLS_VEXSIM_OPTIONS_H
#define TOOLS_VEXSIM_OPTIONS_H

#include <optional>
#include <string>

#include "vexsim/player.h"

namespace vexsim {

struct Options {
    std::string scenario;  // empty: the shipped one
    PlayOptions play;
    std::optional<uint64_t> seed;
    std::string transcript;
    std::string trace;
    std::string state;
    bool quiet = false;
    bool keep = false;
    bool cleanup = false;
    bool check = false;
};

// Returns: none after --help, --version or a complaint; exit_status then tells how to end.
std::optional<Options> parse_options(int argc, char** argv, int& exit_status);

// The shipped default scenario: in VEX_SCENARIO_DIR if that is set, else beside the program.
// Throws vextools::InputError.
std::string default_scenario();

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_OPTIONS_H
