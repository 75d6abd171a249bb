// A backplane snapshot through the whole chain: table, hot-plug callback, printed form, drive
// queries, slot look-ups.
#include "fuzz/fuzz_platform.h"
#include "rt_cache.h"
#include "rt_shm.h"
#include "rt_sync.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::reset();
    fuzz::Input input{data, size};
    fuzz::platform().system_id = input.byte() % 2 == 0 ? 215 : 0;
    const std::uint8_t bay = input.byte();
    const std::uint8_t slot = input.byte();
    input.take(&fuzz::platform().snapshot, sizeof(BpApiInfo));

    rtcache_Init();
    RTSync_Init();
    rtshm_BpApiInit();
    NVMeHotPlugCallback(&fuzz::platform().snapshot);
    std::uint8_t byte = 0;
    std::uint16_t word = 0;
    rtshm_getDriveTechFromBpInfo(&byte, bay, slot);
    rtshm_getNVMeDriveState(&word, bay, slot);
    rtshm_SetNVMeDriveState(bay, slot, 5);
    rtshm_IsDriveBehindKRONfromBPAPI(&byte, bay, slot);
    rtshm_IsDriveConnectedRearBP(&byte, bay, slot);
    rtshm_UpdateNVMeSSDSlotToEID(bay, slot, 9);
    RTSHM_readBayIDInfoFromGblSlotNum(&byte, slot);
    rtshm_getNVMeExtcard();
    rtshm_getNVMeBPs();
    rtcache_GetLock();
    RTSHM_UpdateSharedMem(0);
    SMMutexUnLock(mutexRtCache);
    rtshm_BpApiExit();
    rtshm_BpApiKronExit();
    RTSync_Destroy();
    rtcache_Destroy();
    return fuzz::platform().locks_held == 0 ? 0 : -1;
}
