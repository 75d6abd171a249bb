// The extender card region and the PCIe SSD status region, as the look-ups read them.
#include "fuzz/fuzz_platform.h"
#include "rt_cache.h"
#include "rt_shm.h"
#include "vexel.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::reset();
    fuzz::Input input{data, size};
    const auto slot = input.number<std::int32_t>();
    fuzz::platform().read_fails = input.byte() == 0xFF;
    // Positions in the NVMe table, so that look-ups get past it.
    for (int bay = 0; bay < NVME_BAYS; ++bay) {
        NVMeSlotEntry& entry = sNVMeSSDBPInfo.slots[NVME_SLOTS * bay + input.byte() % NVME_SLOTS];
        entry.bayId = input.byte();
        entry.bayTechnology = input.byte() % 5;
    }
    for (const int region : {20, 15}) {
        auto& bytes = fuzz::platform().regions[region];
        input.take(bytes.data(), bytes.size());
    }

    std::uint8_t byte = 0;
    RTSHM_readSSDSlotNumFromGblSlotNum(&byte, slot);
    RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum(&byte, slot);
    RTSHM_readBayIDInfoFromGblSlotNum(&byte, static_cast<std::uint32_t>(slot));
    vexel_free(vexel_GetPCIeSSDFQDD(static_cast<std::uint32_t>(slot)));
    rtcache_Init();
    rtshm_getPCIessdExtcard();
    rtshm_getPCIessdBp();
    rtcache_Destroy();
    return 0;
}
