#include "vexsim/server.h"

#include <cstdlib>
#include <cstring>
#include <vector>

#include "rt_shm_layout.h"
#include "support/backplane_state.h"
#include "vexsim/fru_image.h"
#include "vexsim/region_io.h"

namespace vexsim {

namespace {

constexpr uint8_t kNoPosition = 0xFF;
// Chosen: a loaded machine under emulation needs a tenth of it.
constexpr std::chrono::milliseconds kCallbackTimeOut{20'000};
constexpr uint16_t kFirstFruId = 0x0101;

}  // namespace

Server::Server(const Scenario& scenario, const std::string& folder)
    : scenario_(scenario), topology_path_(folder + "/topology.json") {}

void Server::power_on() {
    if (scenario_.topology) {
        topology_.emplace(topology_path_, *scenario_.topology);
        topology_->write();
        setenv("VEX_BACKPLANE", ("file:" + topology_path_).c_str(), 1);
    }
    publish_extenders();
    publish_ssds();
    publish_frus();
    set_thermal(scenario_.thermal);
}

void Server::watch_backplane() {
    if (has_topology()) {
        witness_.emplace();
    }
}

bool Server::replace_topology(const vextools::JsonValue& topology) {
    if (!topology_) {
        throw RuntimeFailure("the scenario has no topology that could be replaced");
    }
    topology_->replace(topology);
    return publish_topology();
}

bool Server::set_drive(uint8_t bay, uint8_t slot, bool present) {
    return topology_ && topology_->set_present(bay, slot, present) && publish_topology();
}

bool Server::publish_topology() {
    const BpApiInfo before = witness_->read();
    topology_->write();
    const BpApiInfo after = witness_->read();
    if (std::memcmp(&before, &after, sizeof(before)) == 0) {
        return false;
    }
    if (!witness_->wait_for(after, kCallbackTimeOut)) {
        throw RuntimeFailure("the backplane service did not report a change of the topology");
    }
    return true;
}

void Server::publish_extenders() const {
    ExtenderCardTable table{};
    table.count = static_cast<uint16_t>(scenario_.extenders.size());
    uint16_t offset = sizeof(table);
    for (size_t i = 0; i < scenario_.extenders.size(); ++i) {
        const ExtenderCard& card = scenario_.extenders[i];
        table.entries[i].pcieSlot = card.pcie_slot;
        table.entries[i].type = card.type;
        table.entries[i].recordOffset = offset;
        ExtenderCardRecord record{};
        record.bayId = card.bay;
        write_region(ZENT_SHM_EXTENDER_CARDS, record, offset);
        offset = static_cast<uint16_t>(offset + sizeof(record));
    }
    write_region(ZENT_SHM_EXTENDER_CARDS, table);
}

void Server::publish_ssds() const {
    PCIeSSDStatusRegion region{};
    for (PCIeSSDPosition& position : region.positions) {
        position.u8BayId = kNoPosition;
        position.u8SlotNumInBay = kNoPosition;
    }
    for (const NvmeDrive& drive : scenario_.nvme) {
        region.positions[drive.global_slot].u8BayId = drive.bay;
        region.positions[drive.global_slot].u8SlotNumInBay = drive.slot;
    }
    write_region(ZENT_SHM_PCIESSD_STATUS, region);
}

void Server::publish_frus() const {
    std::vector<FruCard> cards;
    for (const Controller& controller : scenario_.controllers) {
        if (controller.fru) {
            cards.push_back(*controller.fru);
        }
    }
    std::vector<uint8_t> table(ZENT_SHM_FRU_ENTRIES + cards.size() * sizeof(ZentFruTableEntry));
    table[ZENT_SHM_FRU_COUNT] = static_cast<uint8_t>(cards.size());
    for (size_t i = 0; i < cards.size(); ++i) {
        const std::vector<uint8_t> data = fru_image(cards[i].name);
        ZentFruTableEntry entry{};
        entry.fruId = static_cast<uint16_t>(kFirstFruId + i);
        entry.cardType = cards[i].type;
        entry.infoOffset = static_cast<uint32_t>(table.size());
        std::memcpy(&table[ZENT_SHM_FRU_ENTRIES + i * sizeof(entry)], &entry, sizeof(entry));
        ZentFruInfo info{};
        info.device_presence = 1;
        info.device_id = entry.fruId;
        info.slotNumber = cards[i].slot;
        info.device_type = cards[i].type;
        info.size = static_cast<uint16_t>(data.size());
        info.offset = static_cast<uint32_t>(table.size() + sizeof(info));
        const auto* bytes = reinterpret_cast<const uint8_t*>(&info);
        table.insert(table.end(), bytes, bytes + sizeof(info));
        table.insert(table.end(), data.begin(), data.end());
    }
    expect_zero("Zent_shm_memwrite", Zent_shm_memwrite(ZENT_SHM_FRU_TABLE, table.data(), 0,
                                                       static_cast<int>(table.size())));
}

int64_t Server::written_state(uint8_t bay, uint8_t slot) const {
    const char* set = std::getenv("VEX_BACKPLANE_STATE");
    const auto states = vextools::read_drive_states(
        set != nullptr && *set != '\0' ? set : topology_path_ + ".state");
    const auto found = states.find({bay, slot});
    return found == states.end() ? -1 : found->second;
}

void Server::count_ssd_presence() const {
    auto region = read_region<PCIeSSDStatusRegion>(ZENT_SHM_PCIESSD_STATUS);
    ++region.presenceCounter;
    write_region(ZENT_SHM_PCIESSD_STATUS, region);
}

void Server::set_thermal(const ThermalSettings& settings) const {
    uint32_t flags = 0;
    if (settings.disable_hba) {
        flags |= SHM_POLLING_DISABLE_HBA;
    }
    if (settings.disable_kron) {
        flags |= SHM_POLLING_DISABLE_KRON;
    }
    write_region(ZENT_SHM_THERMAL_SETTINGS, flags, CEM_KRON_DRIVE_POLLING_OFFSET);
}

}  // namespace vexsim
