#include "rt_shm.h"
#include "tests/faults/scenario.h"
#include "tests/faults/world.h"
#include "vexel.h"

namespace faults {
namespace {

int64_t card(uint32_t (*get)(uint8_t**, uint32_t*, uint8_t, uint8_t), uint8_t type, uint8_t slot) {
    uint8_t* data = nullptr;
    uint32_t size = 77;
    const uint32_t result = get(&data, &size, type, slot);
    const bool whole = (data != nullptr) == (result == 0) && size == (result == 0 ? 60 : 0);
    vexel_free(data);
    return whole ? result : 100;
}

}  // namespace

Scenarios region_scenarios() {
    Scenarios all;
    all.add("inventory to unknown", {TAPE_UNKNOWN}, [] {
        RTSHM_InitSharedMem();
        RTSHM_InitPartialSharedMem();
        RTSHM_InitPCIeSSDSharedMem();
        return g_IsTapeDrivePresent;
    });
    all.add("tape section", {0, {5}}, [] { return RTSHM_InitTBUSharedMem(TAPE_PRESENT); });
    all.add("polling flags", {0, {0, 3}}, [] { return read(RTSHM_ReadSharedThermalPolling); });
    all.add("dump", {0}, [] { return (RTSHM_DumpSharedMem(), 0); });
    all.add("inventory", {0, {}, true}, [] { return RTSHM_UpdateSharedMem(1); });
    all.add("read regions", {0, {3}}, [] {
        uint8_t base;
        uint16_t status;
        return either(read(RTSHM_readBackplaneSharedMem),
                      read(RTSHM_readSSDSlotNumFromGblSlotNum, 2),
                      read(RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum, 2),
                      RTSHM_GetPCIeSSDGlobalSlotNumberBase(1, &base),
                      read(RTSHM_ReadPCIeSSDPresenceSharedMem),
                      RTSHM_readPciessdDriveStatusFromShm(&status, 2));
    });
    all.add("written regions", {0, {3}}, [] {
        static const uint8_t block[128] = {};
        return either(RTSHM_StoreFRU(RTCACHE_TYPE_PCIESSD, 1, 2, 0, 0, block, 4),
                      RTSHM_StoreFRUTemp(RTCACHE_TYPE_NVME, 0, 2, 30),
                      RTSHM_ClearFRU(RTCACHE_TYPE_NVME, 0, 2),
                      RTSHM_ClearFqdd(RTCACHE_TYPE_NVME, 0, 2),
                      RTSHM_Add_NVMeSSD_FQDD_toSHM(2, "Disk.Bay.2"),
                      updatePciessdDriveStatusToShm(3, 2), updatePciessdiBCDDataToShm(block));
    });
    all.add("simulated drives", {0, {0, 3}}, [] { return RTSHM_SimulatePCIeSSD(); });
    all.add("HBA card", {0, {2, 3}}, [] { return card(get_HBA_FRU_Info, 9, 3); });
    all.add("boot card", {0, {2, 3}}, [] { return card(get_KRON_TAVI_FRU_Info, 17, 255); });
    all.add("model of the boot card", {0, {1}}, [] { return is_TAVI_A2_Present(); });
    all.add("slot of the boot card", {0, {2, 3}}, [] {
        const uint8_t entry[15] = {2, 1, 0, 0, 17};
        uint8_t slot, revision;
        return update_TAVI_FRU_Info(entry, &slot, &revision);
    });
    all.add("model by data", {0}, [] {
        const uint8_t data[60] = {};
        return get_TAVI_Revison(data, sizeof(data));
    });
    return all;
}

}  // namespace faults
