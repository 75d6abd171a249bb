// The topology file that feeds the backplane service: written whole, changed drive by drive.
#ifndef TOOLS_VEXSIM_TOPOLOGY_FILE_H
#define TOOLS_VEXSIM_TOPOLOGY_FILE_H

#include <cstdint>
#include <string>

#include "platform/bpapi.h"
#include "support/json_file.h"

namespace vexsim {

class TopologyFile {
  public:
    TopologyFile(std::string path, vextools::JsonValue topology);

    // Replaces the file in one step, so that the service never reads half of it.
    // Throws std::runtime_error.
    void write() const;

    void replace(vextools::JsonValue topology) { topology_ = std::move(topology); }

    // Marks the drive that sits at the controller's slot of a bay as present or pulled; a plugged
    // drive gets a fresh record if the file has none.
    // Returns: false if the file has no such bay.
    bool set_present(uint8_t bay, uint8_t slot, bool present);

  private:
    std::string path_;
    vextools::JsonValue topology_;
};

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_TOPOLOGY_FILE_H
