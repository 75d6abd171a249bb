// Events on their way through the library: the queue, the cache where they are recorded or held
// back, the drain, the rules, the system event log.
#ifndef TOOLS_VEXSIM_ALERT_FLOW_H
#define TOOLS_VEXSIM_ALERT_FLOW_H

#include <array>
#include <functional>
#include <map>
#include <set>
#include <tuple>
#include <vector>

#include "rt_cache.h"
#include "rt_lclogwrp.h"
#include "vexsim/alert_steps.h"
#include "vexsim/event_threads.h"
#include "vexsim/transcript.h"

namespace vexsim {

// Throws RuntimeFailure wherever the library refuses what it should do.
class AlertFlow {
  public:
    explicit AlertFlow(Transcript& transcript);

    // The cache and the global status are there from start to stop.
    void start() { threads_.start(); }
    void stop() { threads_.stop(); }

    // Returns when the worker is done with the step.
    void play(const AlertAction& action);

    // Works off what an endpoint that goes has still in the cache: its row may get another one.
    void settle(uint8_t eid);

    // One line on what became of the alerts; none if there were none.
    void report_total();

  private:
    // What an event is about; the records of the delayed cache have no room for more.
    using EventKey = std::tuple<uint8_t, uint32_t, uint32_t, uint32_t>;

    void act(const CallbackStep& step);
    void act(const EventStep& step);
    void act(const AlertStep& step);
    void act(const PurgeStep& step);
    void act(const DrainStep& step);
    void act(const PhaseStep& step);
    void act(const ResetStep& step);
    void hand_over(uint8_t eid, std::function<void(uint8_t)> work);

    // On the worker's thread.
    void take(const EndpointEvent& event);
    void answer(const EndpointEvent& event);
    void compare_endpoints(const EndpointEvent& event);
    void record(const EventStep& step);
    void purge(uint8_t eid, int32_t command);
    void drain(uint8_t eid);
    void work_off(uint8_t eid, const RtCacheEventNode& event);
    void submit(const AlertStep& alert);

    Transcript& transcript_;
    EventThreads threads_;
    std::function<void(uint8_t)> work_;  // what the worker finds at the endpoint that it is told of
    std::map<EventKey, std::vector<AlertStep>> aside_;  // alerts of events that are held back
    std::set<uint8_t> resetting_;                       // controllers that report past events
    std::array<unsigned, RT_VERDICT_BAD_ARGUMENTS> totals_{};
};

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_ALERT_FLOW_H
