#include <algorithm>
#include <fstream>
#include <iterator>

#include "rt_shm.h"
#include "support/codes.h"
#include "vexel.h"
#include "vexsim/block.h"
#include "vexsim/cache_lock.h"
#include "vexsim/daemon.h"

namespace vexsim {

namespace {

constexpr RtControllerStatus kFreeEntry{RTCACHE_EID_FREE, RTPIL_COMMUNICATION_GOOD, 0, 0, 0};

// The library's entry of an endpoint, or the first free one for RTCACHE_EID_FREE.
RtControllerStatus& command_status(uint8_t eid) {
    const auto found = std::ranges::find(g_rtpil_Controller_Status, eid, &RtControllerStatus::eid);
    if (found == std::end(g_rtpil_Controller_Status)) {
        throw RuntimeFailure("the table of command results has no entry for endpoint " +
                             std::to_string(eid));
    }
    return *found;
}

uint8_t communication_with(uint8_t eid) {
    uint8_t state = 0;
    rtpil_GetControllerCommunicationStatus(eid, &state);
    return state;
}

// Whether the running job concerns a controller.
bool in_job(const Controller& controller) {
    const std::wstring fqdd(controller.fqdd.begin(), controller.fqdd.end());
    return controller.type == RTCACHE_TYPE_BOOT_CARD
               ? isTAVIFQDDEIDPresent(controller.eid) == 1
               : isFQDDEIDPresent(fqdd.c_str(), controller.eid, 0) == 1;
}

// Whether it concerns a drive behind one that it concerns.
bool in_job(const Controller& controller, const Drive& drive) {
    const std::wstring fqdd(drive.fqdd.begin(), drive.fqdd.end());
    return drive.present && isFQDDEIDPresent(fqdd.c_str(), controller.eid, 0) == 1;
}

}  // namespace

void Daemon::forget_command_results() {
    for (RtControllerStatus& entry : g_rtpil_Controller_Status) {
        entry = kFreeEntry;
    }
}

void Daemon::take_command_results(uint8_t eid) {
    command_status(RTCACHE_EID_FREE).eid = eid;
}

void Daemon::drop_command_results(uint8_t eid) {
    command_status(eid) = kFreeEntry;
}

void Daemon::identify(const IdentifyStep& step, bool over_ipmi) {
    const NvmeDrive& drive = *find_drive(step.fqdd).nvme;
    uint16_t state = 0;
    expect_zero("rtshm_getNVMeDriveState", rtshm_getNVMeDriveState(&state, drive.bay, drive.slot));
    if (step.blink) {
        expect_zero("BlinkNVMeSSD", BlinkNVMeSSD(drive.bay, drive.slot));
    } else {
        expect_zero("UnBlinkNVMeSSD", UnBlinkNVMeSSD(drive.bay, drive.slot, state));
    }
    if (over_ipmi) {
        const uint32_t failed = step.blink ? BlinkPCIeSSD(drive.bay, drive.slot)
                                           : UnBlinkPCIeSSD(drive.bay, drive.slot, state);
        transcript_.line("%s: IPMI controller %s bay %u slot %u", step.fqdd.c_str(),
                         failed == 0 ? "takes" : "refuses", unsigned{drive.bay},
                         unsigned{drive.slot});
    }
}

void Daemon::report_command(const CommandStep& step) {
    const auto controller = std::ranges::find(controllers_, step.fqdd, &Controller::fqdd);
    const uint8_t eid =
        controller != controllers_.end() ? controller->eid : find_drive(step.fqdd).nvme->eid;
    {
        const CacheLock lock;
        const int32_t result =
            rtmpi2_UpdateControllerCommandStatus(eid, step.result, step.recovery);
        // A drive that was pulled has no endpoint, and so no entry.
        if (result != 0) {
            transcript_.line("%s: nobody waits for the command", step.fqdd.c_str());
            return;
        }
    }
    const uint8_t state = communication_with(eid);
    const char* name = vextools::name_of(vextools::kCommunicationStates, state);
    transcript_.line("%s: command %s, %u failed in a row, communication %s", step.fqdd.c_str(),
                     vextools::name_of(vextools::kCommandResults, step.result),
                     unsigned{command_status(eid).failCount}, name != nullptr ? name : "unknown");
}

void Daemon::set_job(const JobStep& step) {
    if (step.controllers.empty()) {
        freeHybridData(&g_hybridJobData);
        transcript_.line("job: ended, nothing is filtered");
        return;
    }
    std::vector<std::wstring> texts;
    std::vector<const wchar_t*> fqdds;
    for (const std::string& fqdd : step.controllers) {
        texts.emplace_back(fqdd.begin(), fqdd.end());
    }
    std::ranges::transform(texts, std::back_inserter(fqdds), &std::wstring::c_str);
    updateNotifFQDD(static_cast<int32_t>(fqdds.size()), fqdds.data());
    for (const Controller& controller : controllers_) {
        if (in_job(controller)) {
            const auto drives = std::ranges::count_if(
                controller.drives, [&](const Drive& drive) { return in_job(controller, drive); });
            transcript_.line("job: concerns %s and %zd drives", controller.fqdd.c_str(), drives);
        }
    }
}

void Daemon::report_fru(const Controller& controller) {
    uint8_t* data = nullptr;
    uint32_t size = 0;
    const FruCard& card = *controller.fru;
    const auto read =
        controller.type == RTCACHE_TYPE_HBA ? &get_HBA_FRU_Info : &get_KRON_TAVI_FRU_Info;
    expect_zero("the look-up of a FRU", read(&data, &size, card.type, card.slot));
    const Block<uint8_t> fru(data);
    const uint32_t revision = get_TAVI_Revison(fru.get(), size);
    transcript_.line("endpoint %u: FRU of %u bytes%s", unsigned{controller.eid}, size,
                     revision == 0   ? ""
                     : revision == 1 ? ", TAVI-A1"
                                     : ", TAVI-A2");
}

// The risers and bays of the backplane service's snapshot and of the PCIe SSD regions become
// objects of the cache; the snapshot's come first, since they say more.
void Daemon::read_topology() {
    // An extender in a slot that the cache has no place for is left out, with those behind it.
    if ((rtshm_getNVMeExtcard() | rtshm_getPCIessdExtcard()) != 0) {
        transcript_.line("extenders: not all have a place in the cache");
    }
    expect_zero("rtshm_getNVMeBPs", rtshm_getNVMeBPs());
    expect_zero("rtshm_getPCIessdBp", rtshm_getPCIessdBp());
    const CacheLock lock;
    for (size_t slot = 0; slot < std::size(cache_Extndrs); ++slot) {
        if (cache_Extndrs[slot] != nullptr) {
            transcript_.line("extender %zu: %ls", slot, cache_Extndrs[slot]->FQDD);
        }
    }
    for (size_t bay = 0; bay < std::size(cache_Bkplanes); ++bay) {
        if (cache_Bkplanes[bay] != nullptr) {
            transcript_.line("backplane %zu: %ls", bay, cache_Bkplanes[bay]->backplane->hdr.FQDD);
        }
    }
}

void Daemon::write_endpoints(const std::string& path) const {
    std::string text = "{\n  \"format\": 1,\n  \"endpoints\": [";
    const char* separator = "\n";
    const auto add = [&](uint8_t eid, const std::string& place) {
        text += separator + std::string("    { \"eid\": ") + std::to_string(eid) +
                ", \"communication\": " + std::to_string(communication_with(eid)) + place + " }";
        separator = ",\n";
    };
    for (const Controller& controller : controllers_) {
        add(controller.eid, "");
    }
    for (const NvmeDrive& drive : nvme_) {
        uint8_t bay = 0;
        uint8_t slot = 0;
        const CacheLock lock;
        if (drive.present && RTSHM_readBayIDAndSlotNoFromEID(&bay, &slot, drive.eid) == 0) {
            add(drive.eid,
                ", \"bay\": " + std::to_string(bay) + ", \"slot\": " + std::to_string(slot));
        }
    }
    std::ofstream file(path, std::ios::binary);
    file << text << "\n  ]\n}\n";
    if (!file.flush()) {
        throw RuntimeFailure(path + ": cannot be written");
    }
}

}  // namespace vexsim
