#include "vexsim/timeline_parser.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <set>

#include "platform/linux/bpapi_topology.h"
#include "rt_sync.h"
#include "support/codes.h"
#include "support/input_error.h"
#include "vexsim/alert_parser.h"
#include "vexsim/server_parser.h"

namespace vexsim {

using vextools::JsonReader;

namespace {

constexpr size_t kMaxSteps = 1'000'000;  // chosen: a day of a step every tenth of a second
constexpr size_t kMaxNote = 500;
constexpr int64_t kMaxDegrees = 254;

struct StatusBit {
    const char* name;
    uint16_t flag;
    uint32_t phase;
};

constexpr StatusBit kStatusBits[] = {
    {"live", RTSYNC_FLAG_LIVE, 0},
    {"hotplug-hba", RTSYNC_FLAG_BPAPI_HBA, 0},
    {"hotplug-kron", RTSYNC_FLAG_KRON, 0},
    {"hotplug-pciessd", RTSYNC_FLAG_PCIESSD, 0},
    {"hba-reinventory", 0, RTSYNC_PHASE_HBA_REINVENTORY},
    {"inventory", 0, RTSYNC_PHASE_INVENTORY},
    {"reinventory", 0, RTSYNC_PHASE_REINVENTORY},
};

const StatusBit& read_status_bit(const JsonReader& field) {
    std::string expected = "expected one of:";
    const std::string name = field.text(kMaxNameLength);
    for (const StatusBit& bit : kStatusBits) {
        if (name == bit.name) {
            return bit;
        }
        expected += std::string(" ") + bit.name;
    }
    field.fail(expected);
}

// Reads steps against the server that they happen to.
class TimelineReader {
  public:
    TimelineReader(const DriveModels& models, const Scenario& scenario)
        : models_(models), scenario_(scenario), alerts_(scenario) {
        for (const Controller& controller : scenario.controllers) {
            controllers_[controller.fqdd] = true;
            for (const Drive& drive : controller.drives) {
                present_[drive.fqdd] = drive.present;
                controller_of_[drive.fqdd] = controller.fqdd;
            }
        }
        for (const NvmeDrive& drive : scenario.nvme) {
            present_[drive.fqdd] = drive.present;
            nvme_.insert(drive.fqdd);
        }
        for (const SsdCard& card : scenario.cards) {
            controllers_[card.fqdd] = true;
            cards_.insert(card.fqdd);
        }
    }

    // The steps of one element of the timeline: one, or as many as it repeats.
    void read(const JsonReader& element) {
        const int64_t at = read_seconds(element["at"]);
        const Action action = read_action(element);
        const int64_t times = element["times"].integer_or(1, 1, kMaxSteps);
        const int64_t every = times > 1 ? read_seconds(element["every"]) : 0;
        for (int64_t i = 0; i < times; ++i) {
            if (at + i * every > scenario_.duration) {
                element["at"].fail("expected a time within the scenario's duration");
            }
            if (steps_.size() == kMaxSteps) {
                element.fail("expected at most 1000000 steps in all");
            }
            steps_.push_back({{at + i * every, action}, element});
        }
    }

    // By time; a drive can only be pulled where it is and plugged where it is not, and nothing
    // happens to a controller that was dropped.
    std::vector<Step> finish() {
        std::ranges::stable_sort(steps_, {}, [](const Placed& placed) { return placed.step.at; });
        std::vector<Step> steps;
        for (Placed& placed : steps_) {
            check_not_dropped(placed);
            if (const auto* drive = std::get_if<DriveStep>(&placed.step.action)) {
                bool& present = present_[drive->fqdd];
                if (present == drive->plug) {
                    placed.element.fail(present ? "this drive is already plugged in at that time"
                                                : "this drive is already pulled at that time");
                }
                present = drive->plug;
            }
            steps.push_back(std::move(placed.step));
        }
        return steps;
    }

  private:
    struct Placed {
        Step step;
        JsonReader element;
    };

    // Of a step about a device: the controller that it is, or is behind.
    void check_not_dropped(const Placed& placed) {
        std::string device;
        std::visit(
            [&](const auto& step) {
                if constexpr (requires { device = step.fqdd; }) {
                    device = step.fqdd;
                }
            },
            placed.step.action);
        const auto owner = controller_of_.find(device);
        const auto controller =
            controllers_.find(owner == controller_of_.end() ? device : owner->second);
        if (controller == controllers_.end()) {
            return;
        }
        if (!controller->second) {
            placed.element.fail("this controller is already dropped at that time");
        }
        controller->second = !std::holds_alternative<DropStep>(placed.step.action);
    }

    Action read_action(const JsonReader& element) {
        using Read = Action (TimelineReader::*)(const JsonReader&) const;
        static constexpr std::pair<const char*, Read> kActions[] = {
            {"poll", &TimelineReader::read_poll},
            {"note", &TimelineReader::read_note},
            {"set", &TimelineReader::read_set},
            {"pull", &TimelineReader::read_pull},
            {"plug", &TimelineReader::read_plug},
            {"topology", &TimelineReader::read_topology},
            {"inventory", &TimelineReader::read_inventory},
            {"status", &TimelineReader::read_status},
            {"reinventory", &TimelineReader::read_reinventory},
            {"thermal", &TimelineReader::read_thermal_step},
            {"drop", &TimelineReader::read_drop},
            {"blink", &TimelineReader::read_blink},
            {"unblink", &TimelineReader::read_unblink},
            {"command", &TimelineReader::read_command},
            {"job", &TimelineReader::read_job},
            {"callback", &TimelineReader::read_callback},
            {"event", &TimelineReader::read_event},
            {"alert", &TimelineReader::read_alert},
            {"purge", &TimelineReader::read_purge},
            {"drain", &TimelineReader::read_drain},
            {"phase", &TimelineReader::read_phase},
            {"reset", &TimelineReader::read_reset},
        };
        element.expect_object({"at",      "every",       "times",   "poll",     "note",
                               "set",     "pull",        "plug",    "topology", "inventory",
                               "status",  "reinventory", "thermal", "drop",     "blink",
                               "unblink", "command",     "job",     "callback", "event",
                               "alert",   "purge",       "drain",   "phase",    "reset"});
        const std::pair<const char*, Read>* found = nullptr;
        for (const auto& action : kActions) {
            if (element[action.first].exists()) {
                if (found != nullptr) {
                    element.fail("expected one action, found \"" + std::string(found->first) +
                                 "\" and \"" + action.first + "\"");
                }
                found = &action;
            }
        }
        if (found == nullptr) {
            element.fail("expected an action such as \"poll\", \"pull\" or \"note\"");
        }
        return (this->*found->second)(element[found->first]);
    }

    Action read_poll(const JsonReader& field) const {
        if (!field.boolean_or(false)) {
            field.fail("expected true");
        }
        return PollStep{};
    }

    Action read_note(const JsonReader& field) const { return NoteStep{field.text(kMaxNote)}; }

    Action read_set(const JsonReader& field) const {
        field.expect_object({"device", "temperature", "state"});
        SetStep set{.fqdd = field["device"].text(kMaxFqdd)};
        const bool is_controller = controllers_.contains(set.fqdd);
        if (!is_controller && !present_.contains(set.fqdd)) {
            field["device"].fail("expected the FQDD of a controller or drive of this scenario");
        }
        if (field["temperature"].exists()) {
            static constexpr vextools::NamedCode kNone[] = {{"none", kNoTemperature}};
            set.temperature = static_cast<int>(field["temperature"].code(kNone, 0, kMaxDegrees));
        }
        if (field["state"].exists()) {
            if (is_controller) {
                field["state"].fail("only a drive has a state, see \"inventory\"");
            }
            set.state = field["state"].code(vextools::kDriveStates, 0, 0xFFFFFFFF);
        }
        return set;
    }

    std::string read_drive(const JsonReader& field) const {
        const std::string fqdd = field.text(kMaxFqdd);
        if (!present_.contains(fqdd)) {
            field.fail("expected the FQDD of a drive of this scenario");
        }
        return fqdd;
    }

    Action read_pull(const JsonReader& field) const {
        return DriveStep{.fqdd = read_drive(field), .plug = false, .model = std::nullopt};
    }

    Action read_plug(const JsonReader& field) const {
        if (field.is_text()) {
            return DriveStep{.fqdd = read_drive(field), .plug = true, .model = std::nullopt};
        }
        field.expect_object({"drive", "use", "with"});
        return DriveStep{.fqdd = read_drive(field["drive"]),
                         .plug = true,
                         .model = field["use"].exists() || field["with"].exists()
                                      ? std::optional(models_.read(field))
                                      : std::nullopt};
    }

    Action read_topology(const JsonReader& field) const {
        return TopologyStep{.topology = load_topology(field), .name = field.text(kMaxNameLength)};
    }

    std::string read_controller_fqdd(const JsonReader& field) const {
        const std::string fqdd = field.text(kMaxFqdd);
        if (!controllers_.contains(fqdd) || cards_.contains(fqdd)) {
            field.fail("expected the FQDD of a controller of this scenario");
        }
        return fqdd;
    }

    Action read_inventory(const JsonReader& field) const {
        field.expect_object({"device", "state"});
        return InventoryStateStep{.fqdd = read_controller_fqdd(field["device"]),
                                  .state = static_cast<uint8_t>(
                                      field["state"].code(vextools::kInventoryStates, 0, 0xFF))};
    }

    Action read_drop(const JsonReader& field) const {
        const std::string fqdd = field.text(kMaxFqdd);
        return DropStep{cards_.contains(fqdd) ? fqdd : read_controller_fqdd(field)};
    }

    std::string read_nvme(const JsonReader& field) const {
        const std::string fqdd = field.text(kMaxFqdd);
        if (!nvme_.contains(fqdd)) {
            field.fail("expected the FQDD of an NVMe drive of this scenario");
        }
        return fqdd;
    }

    Action read_blink(const JsonReader& field) const {
        return IdentifyStep{.fqdd = read_nvme(field), .blink = true};
    }

    Action read_unblink(const JsonReader& field) const {
        return IdentifyStep{.fqdd = read_nvme(field), .blink = false};
    }

    Action read_command(const JsonReader& field) const {
        field.expect_object({"device", "result", "recovery"});
        const JsonReader device = field["device"];
        return CommandStep{
            .fqdd = nvme_.contains(device.text(kMaxFqdd)) ? device.text(kMaxFqdd)
                                                          : read_controller_fqdd(device),
            .result = static_cast<uint32_t>(field["result"].code(vextools::kCommandResults, 0, 0)),
            .recovery = static_cast<uint8_t>(field["recovery"].integer_or(0, 0, 0xFF))};
    }

    Action read_job(const JsonReader& field) const {
        JobStep job;
        if (field.is_text()) {
            static constexpr vextools::NamedCode kEnd[] = {{"end", 0}};
            field.code(kEnd, 0, 0);
            return job;
        }
        for (const JsonReader& item : field.items()) {
            job.controllers.push_back(read_controller_fqdd(item));
        }
        if (job.controllers.empty()) {
            field.fail("expected FQDDs of controllers, or \"end\"");
        }
        return job;
    }

    Action read_status(const JsonReader& field) const {
        field.expect_object({"set", "clear"});
        StatusStep step;
        for (const JsonReader& item : field["set"].items()) {
            step.set_flags |= read_status_bit(item).flag;
            step.set_phase |= read_status_bit(item).phase;
        }
        for (const JsonReader& item : field["clear"].items()) {
            step.clear_flags |= read_status_bit(item).flag;
            step.clear_phase |= read_status_bit(item).phase;
        }
        return step;
    }

    Action read_reinventory(const JsonReader& field) const {
        static constexpr vextools::NamedCode kStates[] = {{"begin", 1}, {"end", 0}};
        return ReinventoryStep{.running = field.code(kStates, 0, 1) == 1};
    }

    Action read_thermal_step(const JsonReader& field) const {
        return ThermalStep{read_thermal(field)};
    }

    Action read_callback(const JsonReader& field) const { return alerts_.read_callback(field); }
    Action read_event(const JsonReader& field) const { return alerts_.read_event(field); }
    Action read_alert(const JsonReader& field) const { return alerts_.read_alert(field); }
    Action read_purge(const JsonReader& field) const { return alerts_.read_purge(field); }
    Action read_drain(const JsonReader& field) const { return alerts_.read_drain(field); }
    Action read_phase(const JsonReader& field) const { return alerts_.read_phase(field); }
    Action read_reset(const JsonReader& field) const { return alerts_.read_reset(field); }

    const DriveModels& models_;
    const Scenario& scenario_;
    const AlertParser alerts_;
    std::map<std::string, bool> controllers_;  // and SSD cards; false: dropped
    std::set<std::string> cards_;
    std::map<std::string, bool> present_;  // drives
    std::map<std::string, std::string> controller_of_;
    std::set<std::string> nvme_;
    std::vector<Placed> steps_;
};

}  // namespace

int64_t read_seconds(const JsonReader& field) {
    return std::llround(field.number(0, kMaxSeconds) * kMillisecondsPerSecond);
}

vextools::JsonValue load_topology(const JsonReader& field) {
    const std::filesystem::path folder = std::filesystem::path(field.file()).parent_path();
    const std::string path = (folder / field.text(kMaxNameLength)).string();
    // The backplane service would complain too, but not before the regions are published.
    try {
        vexplatform::parse_topology(vextools::read_text_file(path));
    } catch (const vexplatform::JsonError& error) {
        throw vextools::InputError(path, error);
    }
    return vextools::load_json(path);
}

void read_timeline(const JsonReader& timeline, const DriveModels& models, Scenario& scenario) {
    TimelineReader reader(models, scenario);
    for (const JsonReader& element : timeline.items()) {
        reader.read(element);
    }
    scenario.steps = reader.finish();
}

}  // namespace vexsim
