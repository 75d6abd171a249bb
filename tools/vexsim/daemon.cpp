#include "vexsim/daemon.h"

#include <algorithm>
#include <cinttypes>

#include "rt_shm.h"
#include "vexel.h"
#include "vexsim/cache_lock.h"
#include "vexsim/global_status.h"
#include "vexsim/region_io.h"

namespace vexsim {

namespace {

bool is_kron(const Controller& controller) {
    return controller.type == RTCACHE_TYPE_KRON || controller.type == RTCACHE_TYPE_KRON_18;
}

const char* tape_text(uint8_t presence) {
    switch (presence) {
        case TAPE_PRESENT:
            return "present";
        case TAPE_ABSENT:
            return "absent";
        default:
            return "not known yet";
    }
}

}  // namespace

Daemon::Daemon(const Scenario& scenario, uint64_t seed, Transcript& transcript)
    : controllers_(scenario.controllers),
      nvme_(scenario.nvme),
      cards_(scenario.cards),
      has_topology_(scenario.topology.has_value()),
      expected_kron_(scenario.expected_kron.value_or(
          static_cast<uint32_t>(std::ranges::count_if(controllers_, &is_kron)))),
      random_(seed),
      transcript_(transcript),
      alerts_(transcript) {}

void Daemon::start_up() {
    expect_zero("rt_log_init", rt_log_init());
    stage_ = Stage::Log;
    expect_zero("rtcache_Init", rtcache_Init());
    stage_ = Stage::Cache;
    expect_zero("RTSync_Init", RTSync_Init());
    stage_ = Stage::Status;
    expect_zero("rtraid_KRONInventoryThreadHandlerMutexInit",
                rtraid_KRONInventoryThreadHandlerMutexInit());
    stage_ = Stage::Reinventory;
    alerts_.start();
    open_backplane();
    transcript_.line(
        "start-up: trace log, cache, global status, re-inventory flag, event queue, backplane %s",
        has_topology_ ? "sessions" : "(none)");
    RTSHM_InitSharedMem();
    RTSHM_InitPCIeSSDSharedMem();
    transcript_.line("regions: storage inventory and PCIe SSD FRU not yet inventoried");
    forget_command_results();
    take_first_inventory();
    if (has_topology_) {
        read_topology();
    }
}

// A server without backplanes has no service either: the daemon runs without sessions.
void Daemon::open_backplane() {
    const uint32_t main_session = rtshm_BpApiInit();
    const uint32_t kron_session = rtshm_BpApiKronInit();
    if (has_topology_) {
        expect_zero("rtshm_BpApiInit", main_session);
        stage_ = Stage::Backplane;
        expect_zero("rtshm_BpApiKronInit", kron_session);
        stage_ = Stage::BackplaneKron;
    }
}

void Daemon::take_first_inventory() {
    change_global_status([](RTSyncGlobalStatus& s) { s.phase |= RTSYNC_PHASE_INVENTORY; });
    for (const Controller& controller : controllers_) {
        add_controller(controller);
    }
    for (const NvmeDrive& drive : nvme_) {
        if (drive.present) {
            add_nvme(drive);
        }
    }
    for (const SsdCard& card : cards_) {
        add_card(card);
    }
    change_global_status([](RTSyncGlobalStatus& s) {
        s.phase &= ~uint32_t{RTSYNC_PHASE_INVENTORY};
        s.flags |= RTSYNC_FLAG_LIVE;
    });
    transcript_.line("inventory done, live mode");
}

void Daemon::shut_down() {
    if (stage_ == Stage::Off) {
        return;
    }
    alerts_.report_total();
    transcript_.line("shutdown");
    freeHybridData(&g_hybridJobData);
    if (stage_ >= Stage::Backplane) {
        rtshm_BpApiExit();
    }
    if (stage_ >= Stage::BackplaneKron) {
        rtshm_BpApiKronExit();
    }
    alerts_.stop();
    if (stage_ >= Stage::Status) {
        RTSync_Destroy();
    }
    if (stage_ >= Stage::Reinventory) {
        rtraid_KRONInventoryThreadHandlerMutexDestroy();
    }
    if (stage_ >= Stage::Cache) {
        rtcache_Destroy();
    }
    rt_log_Exit();
    stage_ = Stage::Off;
}

void Daemon::poll() {
    ++polls_;
    expect_zero("RTSync_updateGlobalPoll", RTSync_updateGlobalPoll({}));
    {
        const CacheLock lock;
        refresh();
        expect_zero("RTSHM_UpdateSharedMem", RTSHM_UpdateSharedMem(expected_kron_));
    }
    report_inventory();
}

void Daemon::report_inventory() {
    const auto region = read_region<StorageInventoryRegion>(ZENT_SHM_STORAGE_INVENTORY);
    const int32_t controllers = region.controllers.count;
    const int32_t drives = region.drives.count;
    const int32_t batteries = region.batteries.count;
    transcript_.line("poll %" PRIu32 ": %" PRId32 " controllers, %" PRId32 " drives, %" PRId32
                     " batteries, tape %s, inventory %s",
                     polls_, controllers, drives, batteries,
                     tape_text(region.tape.IsTapeDrivePresent),
                     region.batteries.vexel_inventory[0] == 1 ? "complete" : "not complete");
}

void Daemon::answer_hot_plug() {
    constexpr uint16_t kRequests = RTSYNC_FLAG_BPAPI_HBA | RTSYNC_FLAG_KRON | RTSYNC_FLAG_PCIESSD;
    uint16_t requested = 0;
    change_global_status([&](RTSyncGlobalStatus& s) {
        requested = s.flags & kRequests;
        s.flags = static_cast<uint16_t>(s.flags & ~kRequests);
    });
    transcript_.line("hot-plug: the backplane service asks for a new inventory of:%s%s%s",
                     (requested & RTSYNC_FLAG_BPAPI_HBA) != 0 ? " HBA" : "",
                     (requested & RTSYNC_FLAG_KRON) != 0 ? " KRON" : "",
                     (requested & RTSYNC_FLAG_PCIESSD) != 0 ? " PCIeSSD" : "");
    expect_zero("rtshm_BpDataUpdate", rtshm_BpDataUpdate());
}

void Daemon::set_inventory_state(const InventoryStateStep& step) {
    const auto controller = std::ranges::find(controllers_, step.fqdd, &Controller::fqdd);
    expect_zero("rtcache_SetStorageEIDStatus",
                rtcache_SetStorageEIDStatus(controller->eid, step.state));
    transcript_.line("inventory state of %s: %u", step.fqdd.c_str(), unsigned{step.state});
}

void Daemon::change_status(const StatusStep& step) {
    const RTSyncGlobalStatus status = change_global_status([&](RTSyncGlobalStatus& s) {
        s.flags = static_cast<uint16_t>((s.flags | step.set_flags) & ~step.clear_flags);
        s.phase = (s.phase | step.set_phase) & ~step.clear_phase;
    });
    transcript_.line("global status: flags 0x%04x phase 0x%04" PRIx32, unsigned{status.flags},
                     status.phase);
}

void Daemon::set_reinventory(bool running) {
    expect_zero("rtraid_SetKRONInventoryThreadFlag", rtraid_SetKRONInventoryThreadFlag(running));
    change_global_status([&](RTSyncGlobalStatus& s) {
        s.phase = running ? s.phase | RTSYNC_PHASE_REINVENTORY
                          : s.phase & ~uint32_t{RTSYNC_PHASE_REINVENTORY};
    });
    if (running) {
        RTSHM_InitPartialSharedMem();
    }
    transcript_.line("re-inventory %s",
                     running ? "begins, controllers and drives are forgotten" : "ends");
}

}  // namespace vexsim
