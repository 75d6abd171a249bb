// The server around the daemon: what the backplane service sees, and the regions that other daemons
// write.
#ifndef TOOLS_VEXSIM_SERVER_H
#define TOOLS_VEXSIM_SERVER_H

#include <optional>
#include <string>

#include "vexsim/backplane_witness.h"
#include "vexsim/scenario.h"
#include "vexsim/topology_file.h"

namespace vexsim {

class Server {
  public:
    // folder: of this run alone; the topology file lies there.
    Server(const Scenario& scenario, const std::string& folder);

    // Puts the server in its first state and points the backplane service at it. Before the daemon
    // starts. Throws RuntimeFailure, as everything here.
    void power_on();

    // Watches what the backplane service tells the daemon; between the daemon's start-up and its
    // shutdown.
    void watch_backplane();
    void stop_watching() { witness_.reset(); }

    bool has_topology() const { return topology_.has_value(); }

    // Changes the topology and waits until the library's callbacks have seen it.
    // Returns: true if the snapshot changed.
    bool replace_topology(const vextools::JsonValue& topology);
    bool set_drive(uint8_t bay, uint8_t slot, bool present);

    // The drive state that was written to the backplane last; none: -1.
    int64_t written_state(uint8_t bay, uint8_t slot) const;

    // The platform says that the presence of an NVMe drive changed.
    void count_ssd_presence() const;
    void set_thermal(const ThermalSettings& settings) const;

  private:
    bool publish_topology();
    void publish_extenders() const;
    void publish_ssds() const;
    void publish_frus() const;

    const Scenario& scenario_;
    std::string topology_path_;
    std::optional<TopologyFile> topology_;
    std::optional<BackplaneWitness> witness_;
};

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_SERVER_H
