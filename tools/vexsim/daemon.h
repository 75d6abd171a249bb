// The storage monitoring daemon, as far as the library sees it: it starts the library, registers
// endpoints, stores what it reads from them, publishes after each poll, and ends the library again.
#ifndef TOOLS_VEXSIM_DAEMON_H
#define TOOLS_VEXSIM_DAEMON_H

#include <string>
#include <vector>

#include "rt_cache.h"
#include "rt_sync.h"
#include "vexsim/alert_flow.h"
#include "vexsim/random.h"
#include "vexsim/scenario.h"
#include "vexsim/transcript.h"

namespace vexsim {

// Where a drive of the scenario is; one of the two is set.
struct DriveRef {
    Controller* controller = nullptr;
    Drive* drive = nullptr;
    NvmeDrive* nvme = nullptr;
};

// Throws RuntimeFailure wherever the library refuses what it should do.
class Daemon {
  public:
    Daemon(const Scenario& scenario, uint64_t seed, Transcript& transcript);

    // In the order that the library expects; the first inventory follows.
    void start_up();
    // Ends as much as was started.
    void shut_down();

    // Reads every device again and publishes.
    void poll();

    // Takes up what the backplane service asked for through the global status.
    void answer_hot_plug();

    void set(const SetStep& step);
    void remove_drive(const std::string& fqdd);
    void insert_drive(const std::string& fqdd, const std::optional<DriveModel>& model);
    // Forgets a controller's endpoint with all that is cached of it.
    void drop(const std::string& fqdd);  // a controller or an SSD card
    // Looks after a change of an NVMe drive's presence.
    void note_ssd_presence(const NvmeDrive& drive);
    void set_inventory_state(const InventoryStateStep& step);
    void change_status(const StatusStep& step);
    void set_reinventory(bool running);

    // Switches a drive's light at the backplane and, if asked to, over IPMI.
    void identify(const IdentifyStep& step, bool over_ipmi);
    void report_command(const CommandStep& step);
    void set_job(const JobStep& step);

    // Writes which endpoints there are, and where, for vexinspect. Throws RuntimeFailure.
    void write_endpoints(const std::string& path) const;

    // Events and alerts, between start-up and shutdown.
    AlertFlow& alerts() { return alerts_; }

    // A drive by its FQDD, which the scenario's parser has checked.
    DriveRef find_drive(const std::string& fqdd);

  private:
    void open_backplane();
    void take_first_inventory();
    void register_endpoint(uint8_t eid, uint8_t type, uint8_t modular_id, uint8_t state);
    void add_controller(const Controller& controller);
    void add_nvme(const NvmeDrive& drive);
    void remove_nvme(const NvmeDrive& drive);
    void drop_endpoint(uint8_t eid, uint8_t type);
    static void forget_command_results();
    static void take_command_results(uint8_t eid);
    static void drop_command_results(uint8_t eid);
    void report_fru(const Controller& controller);
    void read_topology();
    void add_card(const SsdCard& card);
    void publish_ssd(const NvmeDrive& drive) const;
    void withdraw_ssd(const NvmeDrive& drive) const;
    void drop_card(const SsdCard& card);
    void publish_temperature(const NvmeDrive& drive, int temperature) const;
    void publish_temperature(const SsdCard& card, int temperature) const;
    void refresh();
    void refresh_controller(const Controller& controller);
    void refresh_drive(const Controller& controller, const Drive& drive);
    void report_inventory();
    int read_sensor(const Temperature& temperature);

    // How far the start-up got.
    enum class Stage { Off, Log, Cache, Status, Reinventory, Backplane, BackplaneKron };

    std::vector<Controller> controllers_;  // as they are now
    std::vector<NvmeDrive> nvme_;
    std::vector<SsdCard> cards_;
    bool has_topology_;
    uint32_t expected_kron_;
    Random random_;
    Transcript& transcript_;
    AlertFlow alerts_;
    Stage stage_ = Stage::Off;
    uint32_t polls_ = 0;
};

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_DAEMON_H
