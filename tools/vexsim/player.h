// Plays a scenario: the server is switched on, the daemon starts, steps happen at their virtual
// times, the daemon ends.
#ifndef TOOLS_VEXSIM_PLAYER_H
#define TOOLS_VEXSIM_PLAYER_H

#include <cstdint>
#include <string>

#include "vexsim/daemon.h"
#include "vexsim/scenario.h"
#include "vexsim/server.h"
#include "vexsim/transcript.h"

namespace vexsim {

struct PlayOptions {
    double speed = 0;  // virtual seconds in a real one; 0 as fast as possible
    uint64_t seed = 1;
    int hold_seconds = 0;    // real time between the last step and the shutdown
    std::string after_poll;  // shell command, run after each poll
    std::string folder;      // of this run
    std::string state;       // folder for what vexinspect is told beside the regions
};

class Player {
  public:
    Player(const Scenario& scenario, const PlayOptions& options, Transcript& transcript);

    // Throws RuntimeFailure; the daemon is shut down in any case.
    // Returns: true at the scenario's end, false if a signal asked to stop earlier.
    bool play();

  private:
    bool play_steps();
    void act(const PollStep& step);
    void act(const NoteStep& step);
    void act(const SetStep& step) { daemon_.set(step); }
    void act(const DriveStep& step);
    void act(const TopologyStep& step);
    void act(const InventoryStateStep& step) { daemon_.set_inventory_state(step); }
    void act(const StatusStep& step) { daemon_.change_status(step); }
    void act(const ReinventoryStep& step) { daemon_.set_reinventory(step.running); }
    void act(const ThermalStep& step);
    void act(const AlertAction& step) { daemon_.alerts().play(step); }
    void act(const DropStep& step) { daemon_.drop(step.fqdd); }
    void act(const IdentifyStep& step);
    void act(const CommandStep& step) { daemon_.report_command(step); }
    void act(const JobStep& step) { daemon_.set_job(step); }
    void write_endpoints() const { daemon_.write_endpoints(options_.state + "/endpoints.json"); }
    bool wait_until(int64_t at);
    void report_progress(size_t done);

    const Scenario& scenario_;
    const PlayOptions& options_;
    Transcript& transcript_;
    Server server_;
    Daemon daemon_;
    int64_t started_at_ = 0;  // real milliseconds
    int64_t reported_at_ = 0;
    unsigned polls_ = 0;
};

// From now on SIGINT, SIGTERM and SIGHUP ask the player to stop.
void stop_on_signals();

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_PLAYER_H
