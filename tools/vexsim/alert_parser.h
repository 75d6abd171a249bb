// Reads the steps of a timeline that are about events and alerts.
#ifndef TOOLS_VEXSIM_ALERT_PARSER_H
#define TOOLS_VEXSIM_ALERT_PARSER_H

#include <map>
#include <string>

#include "support/json_reader.h"
#include "vexsim/scenario.h"

namespace vexsim {

// All of them throw vextools::InputError.
class AlertParser {
  public:
    // scenario: its server is complete.
    explicit AlertParser(const Scenario& scenario);

    AlertAction read_callback(const vextools::JsonReader& field) const;
    AlertAction read_event(const vextools::JsonReader& field) const;
    AlertAction read_alert(const vextools::JsonReader& field) const;
    AlertAction read_purge(const vextools::JsonReader& field) const;
    AlertAction read_drain(const vextools::JsonReader& field) const;
    AlertAction read_phase(const vextools::JsonReader& field) const;
    AlertAction read_reset(const vextools::JsonReader& field) const;

  private:
    void add(const std::string& fqdd, uint8_t eid, uint32_t type, uint32_t key);
    void add_controller(const Controller& controller);
    const CachedDevice& device(const vextools::JsonReader& field) const;

    std::map<std::string, CachedDevice> devices_;
};

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_ALERT_PARSER_H
