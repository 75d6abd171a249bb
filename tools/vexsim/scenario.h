// A scenario: the server that is played, and what happens to it over virtual time. Plain data; the
// parser has checked every range, that FQDDs and endpoint ids are unique, and that every step names
// something that exists.
#ifndef TOOLS_VEXSIM_SCENARIO_H
#define TOOLS_VEXSIM_SCENARIO_H

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "support/json_file.h"
#include "vexsim/alert_steps.h"
#include "vexsim/drive_steps.h"

namespace vexsim {

inline constexpr int kNoTemperature = -1;
inline constexpr uint16_t kProtocolNvme = 0x100;  // the one protocol code that the library knows
inline constexpr uint16_t kNoEnclosure = 0xFFFF;

// What a temperature sensor shows: its base, moved by at most jitter at every poll.
struct Temperature {
    int base = kNoTemperature;
    int jitter = 0;
};

// What drives of one model have in common.
struct DriveModel {
    std::string name = "Drive";
    uint16_t protocol = 0;
    uint8_t media = 0;
    uint8_t form_factor = 0;
    uint16_t rpm = 0;
    uint64_t size = 0;  // bytes
    uint64_t state = 1;
    uint8_t hot_spare = 0;
    uint8_t impedance = 0;
    int reference_temperature = 0;
    int critical_temperature = 0;
    Temperature temperature;
};

// A drive behind a controller.
struct Drive {
    std::string fqdd;
    DriveModel model;
    uint16_t key = 0;  // disk number in the controller's row of the cache
    uint8_t slot = 0;
    uint16_t enclosure_key = kNoEnclosure;
    uint8_t enclosure_type = 0;
    std::optional<uint8_t> bay;       // bay of the backplane service's snapshot that holds it
    std::optional<uint16_t> primary;  // of a second path: the disk number of the first
    bool present = true;              // at the start
};

struct Enclosure {
    std::string fqdd;
    std::string name;
    uint16_t key = 0;
    bool backplane = true;  // else an external enclosure
    uint8_t position = 0;
    uint8_t bay = 0;
    uint8_t chassis_slot = 0;
    uint8_t second_id = 0;
    uint8_t type = 0;
    uint8_t slots = 0;
    uint8_t drives = 0;
};

struct VirtualDisk {
    std::string fqdd;
    std::string name;
    uint16_t key = 0;
    uint64_t blocks = 0;
    std::vector<uint32_t> members;  // disk numbers
};

struct Battery {
    std::string fqdd;
    std::string name;
    uint8_t state = 0;
    Temperature temperature;
};

struct PciIdentity {
    uint8_t location_a = 0;
    uint8_t location_b = 0;
    std::array<uint16_t, 4> ids{};  // vendor, device, subsystem vendor, subsystem device
};

// A card's place in the platform's FRU table.
struct FruCard {
    uint8_t type = 0;
    uint8_t slot = 0;
    std::string name;
};

struct Controller {
    std::string fqdd;
    std::string name;
    uint8_t eid = 0;
    uint8_t type = 0;
    uint8_t modular_id = 0;
    uint8_t inventory_state = 0;
    std::optional<PciIdentity> pci;
    Temperature temperature;
    uint32_t capability = 0;
    uint8_t attributes = 0;
    bool drive_polling_disabled = false;
    std::array<uint8_t, 8> value_a{};
    std::array<uint8_t, 8> value_b{};
    std::string driver;  // empty: no driver record
    std::optional<Battery> battery;
    std::vector<Enclosure> enclosures;
    std::vector<Drive> drives;
    std::vector<VirtualDisk> virtual_disks;
    std::optional<FruCard> fru;
    std::vector<std::string> foreign;  // virtual disks that another controller made
};

// An NVMe drive: an endpoint of its own, in a bay of the backplane service's snapshot.
struct NvmeDrive {
    std::string fqdd;
    DriveModel model;
    uint8_t eid = 0;
    uint8_t bay = 0;
    uint8_t slot = 0;
    uint8_t global_slot = 0;  // its place in the PCIe SSD regions
    bool present = true;
};

// An SSD on a card of its own in a PCIe slot.
struct SsdCard {
    std::string fqdd;
    DriveModel model;
    uint8_t eid = 0;
    uint8_t kind = 0;
    uint8_t index = 0;  // its place in the PCIe SSD FRU region, by kind
};

// A row of the table of PCIe extender cards.
struct ExtenderCard {
    uint8_t pcie_slot = 0;
    uint8_t type = 0;
    uint8_t bay = 0;
};

// Drive polling switched off by the thermal daemon.
struct ThermalSettings {
    bool disable_hba = false;
    bool disable_kron = false;
};

// ---- Steps
// ----------------------------------------------------------------------------------------

struct PollStep {};

struct NoteStep {
    std::string text;
};

// Changes what the daemon reads from a device at its next look; what is not named stays.
struct SetStep {
    std::string fqdd;
    std::optional<int> temperature = std::nullopt;
    std::optional<int64_t> state = std::nullopt;
};

// A drive is pulled or plugged in, at the backplane and behind its controller.
struct DriveStep {
    std::string fqdd;
    bool plug = false;
    std::optional<DriveModel> model;  // the drive plugged in is another one
};

// The backplane service's topology is replaced.
struct TopologyStep {
    vextools::JsonValue topology;
    std::string name;
};

struct InventoryStateStep {
    std::string fqdd;
    uint8_t state = 0;
};

// Sets and clears bits of the global status.
struct StatusStep {
    uint16_t set_flags = 0, clear_flags = 0;
    uint32_t set_phase = 0, clear_phase = 0;
};

// The re-inventory of the KRON controllers begins (what was published is forgotten) or ends.
struct ReinventoryStep {
    bool running = false;
};

struct ThermalStep {
    ThermalSettings settings;
};

using Action = std::variant<PollStep, NoteStep, SetStep, DriveStep, TopologyStep,
                            InventoryStateStep, StatusStep, ReinventoryStep, ThermalStep, DropStep,
                            IdentifyStep, CommandStep, JobStep, AlertAction>;

struct Step {
    int64_t at = 0;  // milliseconds of virtual time
    Action action;
};

struct Scenario {
    std::string file;
    std::string name;
    uint64_t seed = 1;
    int64_t duration = 0;    // milliseconds of virtual time
    int64_t poll_every = 0;  // likewise; 0: only the polls of the timeline
    std::optional<uint32_t> expected_kron;
    std::vector<Controller> controllers;
    std::vector<NvmeDrive> nvme;
    std::vector<SsdCard> cards;
    std::vector<ExtenderCard> extenders;
    ThermalSettings thermal;
    std::optional<vextools::JsonValue> topology;
    std::vector<Step> steps;  // by time, polls included
};

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_SCENARIO_H
