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
    all.add("split mode", {0, {3}}, [] { return read(RTSHM_readBackplaneSharedMem); });
    all.add("dump", {0}, [] { return (RTSHM_DumpSharedMem(), 0); });
    all.add("inventory", {0, {}, true}, [] { return RTSHM_UpdateSharedMem(1); });
    all.add("slot of a global slot", {0, {3}},
            [] { return read(RTSHM_readSSDSlotNumFromGblSlotNum, 2); });
    all.add("bay of a global slot", {0, {3}},
            [] { return read(RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum, 2); });
    all.add("FRU", {0, {3}}, [] {
        const uint8_t fru[4] = {1, 2, 3, 4};
        return RTSHM_StoreFRU(RTCACHE_TYPE_PCIESSD, 1, 2, 0, 0, fru, 4);
    });
    all.add("FRU temperature", {2}, [] { return RTSHM_StoreFRUTemp(kNvme, 0, 2, 30); });
    all.add("drive temperature", {0, {3}},
            [] { return RTSHM_StoreFRUTemp(RTCACHE_TYPE_NVME, 0, 2, 30); });
    all.add("cleared FRU", {0, {3}}, [] { return RTSHM_ClearFRU(RTCACHE_TYPE_NVME, 0, 2); });
    all.add("cleared FQDD", {0, {3}}, [] { return RTSHM_ClearFqdd(RTCACHE_TYPE_NVME, 0, 2); });
    all.add("FQDD of a drive", {0, {3}},
            [] { return RTSHM_Add_NVMeSSD_FQDD_toSHM(2, "Disk.Bay.2"); });
    all.add("base of a bay", {0, {3}}, [] {
        uint8_t base;
        return RTSHM_GetPCIeSSDGlobalSlotNumberBase(1, &base);
    });
    all.add("presence", {0, {3}}, [] { return read(RTSHM_ReadPCIeSSDPresenceSharedMem); });
    all.add("drive status", {0, {3}}, [] {
        uint16_t status;
        return RTSHM_readPciessdDriveStatusFromShm(&status, 2);
    });
    all.add("written status", {0, {3}}, [] { return updatePciessdDriveStatusToShm(3, 2); });
    all.add("status block", {0, {3}}, [] {
        static const uint8_t block[128] = {};
        return updatePciessdiBCDDataToShm(block);
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
