#include <cstring>

#include "platform/shm.h"
#include "rt_shm.h"
#include "vexsim/cache_lock.h"
#include "vexsim/daemon.h"
#include "vexsim/fru_image.h"
#include "vexsim/object_builder.h"
#include "vexsim/region_io.h"

namespace vexsim {

namespace {

constexpr uint8_t kInventoryDone = 2;
constexpr uint16_t kStatusPresent = 1;

void store_fru(uint8_t type, uint8_t kind, uint8_t index, const NvmeDrive* drive,
               const std::string& name) {
    const std::vector<uint8_t> image = fru_image(name);
    expect_zero("RTSHM_StoreFRU",
                RTSHM_StoreFRU(type, kind, index, drive != nullptr ? drive->bay : 0,
                               drive != nullptr ? drive->slot : 0, image.data(),
                               static_cast<uint32_t>(image.size())));
}

// The library has no operation for the FQDD of a card: the daemon writes it itself.
void publish_fqdd(const SsdCard& card) {
    std::array<char, SHM_FRU_CARD_FQDD_BYTES> text{};
    std::strncpy(text.data(), card.fqdd.c_str(), text.size() - 1);
    const size_t texts = card.kind == SHM_FRU_KIND_2 ? offsetof(PCIeSSDFruRegion, kind2Fqdds)
                                                     : offsetof(PCIeSSDFruRegion, cardFqdds);
    write_region(ZENT_SHM_PCIESSD_FRU, text, static_cast<int>(texts + card.index * text.size()));
}

}  // namespace

void Daemon::publish_ssd(const NvmeDrive& drive) const {
    store_fru(RTCACHE_TYPE_NVME, 0, drive.global_slot, &drive, drive.model.name);
    publish_temperature(drive, drive.model.temperature.base);
    expect_zero("RTSHM_Add_NVMeSSD_FQDD_toSHM",
                RTSHM_Add_NVMeSSD_FQDD_toSHM(drive.global_slot, drive.fqdd.c_str()));
    expect_zero("updatePciessdDriveStatusToShm",
                updatePciessdDriveStatusToShm(kStatusPresent, drive.global_slot));
}

void Daemon::publish_temperature(const NvmeDrive& drive, int temperature) const {
    expect_zero("RTSHM_StoreFRUTemp", RTSHM_StoreFRUTemp(RTCACHE_TYPE_NVME, 0, drive.global_slot,
                                                         degrees_byte(temperature)));
}

void Daemon::withdraw_ssd(const NvmeDrive& drive) const {
    expect_zero("RTSHM_ClearFRU", RTSHM_ClearFRU(RTCACHE_TYPE_NVME, 0, drive.global_slot));
    expect_zero("RTSHM_ClearFqdd", RTSHM_ClearFqdd(RTCACHE_TYPE_NVME, 0, drive.global_slot));
    expect_zero("updatePciessdDriveStatusToShm",
                updatePciessdDriveStatusToShm(0, drive.global_slot));
}

void Daemon::note_ssd_presence(const NvmeDrive& drive) {
    uint8_t changed = 0;
    uint8_t base = 0;
    expect_zero("RTSHM_ReadPCIeSSDPresenceSharedMem", RTSHM_ReadPCIeSSDPresenceSharedMem(&changed));
    expect_zero("RTSHM_GetPCIeSSDGlobalSlotNumberBase",
                RTSHM_GetPCIeSSDGlobalSlotNumberBase(drive.bay, &base));
    transcript_.line("PCIe SSD presence %s: bay %u, from global slot %u",
                     changed != 0 ? "changed" : "is as it was", unsigned{drive.bay},
                     unsigned{base});
}

void Daemon::add_card(const SsdCard& card) {
    register_endpoint(card.eid, RTCACHE_TYPE_PCIESSD, 0, kInventoryDone);
    {
        const CacheLock lock;
        store_object(RTCACHE_KEY_CONTROLLER, card.eid, card.eid,
                     build_ssd_controller(card.model.name, card.fqdd, card.model.temperature.base));
    }
    store_fru(RTCACHE_TYPE_PCIESSD, card.kind, card.index, nullptr, card.model.name);
    publish_temperature(card, card.model.temperature.base);
    publish_fqdd(card);
    uint8_t slot = 0;
    uint8_t index = 0;
    uint32_t slot_type = 0;
    if (getSlotandSlotIndexfromFQDD(card.fqdd.c_str(), 0, &slot, &index, &slot_type) == 0) {
        transcript_.line("endpoint %u: SSD card %s in slot %u", unsigned{card.eid},
                         card.fqdd.c_str(), unsigned{slot});
    } else {
        transcript_.line("endpoint %u: SSD card %s", unsigned{card.eid}, card.fqdd.c_str());
    }
}

void Daemon::drop_card(const SsdCard& card) {
    drop_endpoint(card.eid, RTCACHE_TYPE_PCIESSD);
    expect_zero("RTSHM_ClearFRU", RTSHM_ClearFRU(RTCACHE_TYPE_PCIESSD, card.kind, card.index));
    expect_zero("RTSHM_ClearFqdd", RTSHM_ClearFqdd(RTCACHE_TYPE_PCIESSD, card.kind, card.index));
    transcript_.line("endpoint %u: dropped", unsigned{card.eid});
}

void Daemon::publish_temperature(const SsdCard& card, int temperature) const {
    expect_zero("RTSHM_StoreFRUTemp", RTSHM_StoreFRUTemp(RTCACHE_TYPE_PCIESSD, card.kind,
                                                         card.index, degrees_byte(temperature)));
}

}  // namespace vexsim
