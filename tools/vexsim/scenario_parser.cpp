#include "vexsim/scenario_parser.h"

#include <algorithm>
#include <set>

#include "rt_cache.h"
#include "rt_shm_layout.h"
#include "support/json_reader.h"
#include "vexsim/server_parser.h"
#include "vexsim/timeline_parser.h"

namespace vexsim {

using vextools::JsonReader;

namespace {

constexpr int64_t kFormatVersion = 1;
constexpr size_t kMaxExtenders = 16;  // rows of the table that holds them

// Remembers what has been seen and refuses what comes twice.
template <typename Value>
class Unique {
  public:
    explicit Unique(const char* what) : what_(what) {}
    void add(const JsonReader& where, const Value& value) {
        if (!seen_.insert(value).second) {
            where.fail(std::string("expected ") + what_ + " that nothing else has");
        }
    }

  private:
    const char* what_;
    std::set<Value> seen_;
};

struct UniqueChecks {
    Unique<std::string> fqdds{"an FQDD"};
    Unique<int> eids{"an endpoint id"};
    Unique<int> global_slots{"a global slot"};
    Unique<int> positions{"a bay and slot"};
    Unique<int> cards{"an index"};
};

void read_controllers(const JsonReader& list, const DriveModels& models, UniqueChecks& unique,
                      Scenario& scenario) {
    for (const JsonReader& object : list.items()) {
        const Controller controller = read_controller(object, models);
        unique.fqdds.add(object["fqdd"], controller.fqdd);
        unique.eids.add(object["eid"], controller.eid);
        for (const Enclosure& enclosure : controller.enclosures) {
            unique.fqdds.add(object["enclosures"], enclosure.fqdd);
        }
        for (const Drive& drive : controller.drives) {
            unique.fqdds.add(object["drives"].exists() ? object["drives"] : object["enclosures"],
                             drive.fqdd);
        }
        scenario.controllers.push_back(controller);
    }
}

void read_nvme(const JsonReader& list, const DriveModels& models, UniqueChecks& unique,
               Scenario& scenario) {
    for (const JsonReader& object : list.items()) {
        for (const NvmeDrive& drive : read_nvme_group(object, models)) {
            unique.fqdds.add(object["fqdd"], drive.fqdd);
            unique.eids.add(object["firstEid"], drive.eid);
            unique.global_slots.add(object["firstGlobalSlot"], drive.global_slot);
            unique.positions.add(object["slots"], drive.bay * 50 + drive.slot);
            scenario.nvme.push_back(drive);
        }
    }
}

// The polls that come by themselves stand before the timeline's steps of the same moment.
void add_polls(Scenario& scenario) {
    std::vector<Step> polls;
    for (int64_t at = 0; scenario.poll_every > 0 && at <= scenario.duration;
         at += scenario.poll_every) {
        polls.push_back({at, PollStep{}});
    }
    scenario.steps.insert(scenario.steps.begin(), polls.begin(), polls.end());
    std::ranges::stable_sort(scenario.steps, {}, &Step::at);
}

void read_times(const JsonReader& root, Scenario& scenario) {
    scenario.duration = root["duration"].exists() ? read_seconds(root["duration"]) : 0;
    scenario.poll_every = root["pollEvery"].exists() ? read_seconds(root["pollEvery"]) : 0;
    constexpr int64_t kMaxPolls = 1'000'000;
    if (scenario.poll_every > 0 && scenario.duration / scenario.poll_every > kMaxPolls) {
        root["pollEvery"].fail("expected at most 1000000 polls in the scenario's duration");
    }
}

Scenario read_scenario(const JsonReader& root) {
    root.expect_object({"vexsim", "name", "description", "seed", "duration", "pollEvery",
                        "expectedKron", "topology", "templates", "controllers", "nvme", "ssdCards",
                        "extenders", "thermal", "timeline"});
    root["vexsim"].integer(kFormatVersion, kFormatVersion);
    Scenario scenario;
    scenario.file = root.file();
    scenario.name = root["name"].text(kMaxNameLength);
    scenario.seed = static_cast<uint64_t>(root["seed"].integer_or(1, 0, INT64_MAX));
    read_times(root, scenario);
    if (root["expectedKron"].exists()) {
        scenario.expected_kron =
            static_cast<uint32_t>(root["expectedKron"].integer(0, RTCACHE_EID_SLOTS));
    }
    if (root["topology"].exists()) {
        scenario.topology = load_topology(root["topology"]);
    }
    const DriveModels models(root["templates"]);
    UniqueChecks unique;
    read_controllers(root["controllers"], models, unique, scenario);
    read_nvme(root["nvme"], models, unique, scenario);
    for (const JsonReader& object : root["ssdCards"].items()) {
        const SsdCard card = read_ssd_card(object, models);
        unique.fqdds.add(object["slot"], card.fqdd);
        unique.eids.add(object["eid"], card.eid);
        unique.cards.add(object["index"],
                         (card.kind == SHM_FRU_KIND_2 ? SHM_FRU_CARDS : 0) + card.index);
        scenario.cards.push_back(card);
    }
    for (const JsonReader& object : root["extenders"].items()) {
        scenario.extenders.push_back(read_extender(object));
    }
    if (scenario.extenders.size() > kMaxExtenders) {
        root["extenders"].fail("expected at most 16 extender cards");
    }
    scenario.thermal = read_thermal(root["thermal"]);
    read_timeline(root["timeline"], models, scenario);
    add_polls(scenario);
    return scenario;
}

}  // namespace

Scenario load_scenario(const std::string& path) {
    auto document = std::make_shared<const vextools::JsonValue>(vextools::load_json(path));
    return read_scenario(JsonReader(path, document));
}

}  // namespace vexsim
