// A session of the simulator's own at the backplane service. It is opened after the library's, and
// the service calls its sessions in that order on one thread: what has reached the witness has been
// handled by the library.
#ifndef TOOLS_VEXSIM_BACKPLANE_WITNESS_H
#define TOOLS_VEXSIM_BACKPLANE_WITNESS_H

#include <chrono>
#include <optional>

#include "platform/bpapi.h"

namespace vexsim {

// One at a time, since the service's callback carries no context.
class BackplaneWitness {
  public:
    // Throws std::runtime_error without a session.
    BackplaneWitness();
    ~BackplaneWitness();
    BackplaneWitness(const BackplaneWitness&) = delete;
    BackplaneWitness& operator=(const BackplaneWitness&) = delete;

    // The service's snapshot now. Throws std::runtime_error.
    BpApiInfo read() const;

    // Waits until callbacks have brought this snapshot. Returns: false after the time-out.
    bool wait_for(const BpApiInfo& snapshot, std::chrono::milliseconds time_out) const;

  private:
    ZentBpApiHandle session_;
};

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_BACKPLANE_WITNESS_H
