#include "rt_shm.h"
#include "tests/faults/scenario.h"
#include "tests/faults/world.h"

namespace faults {

Scenarios backplane_scenarios() {
    Scenarios all;
    all.add("main session", {0, {0, 1}}, [] { return (rtshm_BpApiExit(), rtshm_BpApiInit()); });
    all.add("KRON session", {0, {0, 1}},
            [] { return (rtshm_BpApiKronExit(), rtshm_BpApiKronInit()); });
    all.add("snapshot", {0, {0, 5}}, [] { return rtshm_BpDataUpdate(); });
    all.add("hot plug", {4}, [] {
        static BpApiInfo copy;
        g_bpInfo = &copy;
        NVMeHotPlugCallback(&fake::platform().snapshot);
        BpApiKronCallback(g_bpInfo);
        ZentBpPrintApiInfo(g_bpInfo);
        g_bpInfo = nullptr;
        return copy.driveCnt;
    });
    all.add("raw snapshot", {0, {1}}, [] {
        static uint8_t buffer[BPAPI_INFO_SIZE];
        return ReadNVMeBPInfo(buffer);
    });
    all.add("drive positions", {0, {}, true}, [] {
        uint16_t state = 0;
        uint8_t eid = 0, bay = 9, slot = 9;
        return either(
            read(rtshm_getDriveTechFromBpInfo, 1, 2), read(rtshm_getBusNumFromBpInfo, 1, 2),
            rtshm_getNVMeDriveState(&state, 1, 2), rtshm_SetNVMeDriveState(1, 2, 1),
            rtshm_UpdateNVMeSSDSlotToEID(1, 2, kNvme),
            rtshm_UpdateNVMeSSDSlotToVDMEID(1, 2, kVdmEid),
            rtshm_getI2CNVMeSSDEIDfromSlotAndBayId(1, 2, &eid),
            rtshm_GetNVMeSSDvdmEIDfromSlotandBayID(1, 2, &eid),
            read(rtshm_IsDriveBehindKRONfromBPAPI, 1, 2), read(rtshm_IsDriveConnectedRearBP, 1, 2),
            rtshm_getExtenderSlotFromDriveSlot(1, 2, &slot),
            read(RTSHM_readBayIDInfoFromGblSlotNum, 2),
            RTSHM_readBayIDAndSlotNoFromEID(&bay, &slot, kNvme),
            RTSHM_readBayIDAndSlotNoFromVDMEID(&bay, &slot, kVdmEid),
            read(rtshm_IsDriveBehindKRONfromBPAPIByEID, kNvme),
            rtshm_getI2CNVMeSSDEIDfromVDMEID(kVdmEid) - kNvme,
            sNVMeSSDBPInfo.slots[52].i2cEid - kNvme, sNVMeSSDBPVDMInfo.slots[52].vdmEid - kVdmEid);
    });
    all.add("texts and versions", {0}, [] {
        uint8_t major, minor, bay, slot;
        uint32_t type, text;
        return either(RTSHM_setBpFwVersion(1, 2, 3), RTSHM_getBpFwVersion(1, &major, &minor),
                      RTSHM_ReadBpFwVersion(1, &text),
                      getBayIDandSlotFromFqdd("Disk.Bay.7:Enclosure.Internal.0-2", 0, &bay, &slot),
                      getSlotandSlotIndexfromFQDD("PCIeSSD.Slot.3-1", 0, &bay, &slot, &type));
    });
    all.add("extenders", {0, {0, 3}}, [] { return rtshm_getNVMeExtcard(); });
    all.add("extender", {0, {0, 3}}, [] { return processNVMeExtndrcardInfo(1, 5); });
    all.add("backplanes", {0}, [] { return rtshm_getNVMeBPs(); });
    all.add("backplane", {0, {0, 3}}, [] {
        return processNVMeBackplaneInfo(&sNVMeSSDBPInfo.bays[1], &sNVMeSSDBPInfo.slots[51]);
    });
    all.add("SSD extenders", {0, {0, 3}}, [] { return rtshm_getPCIessdExtcard(); });
    all.add("SSD extender", {0, {0, 3}}, [] { return processPciessdExtndrcardInfo(1, 6); });
    all.add("SSD backplanes", {0, {0, 3}}, [] { return rtshm_getPCIessdBp(); });
    all.add("SSD backplane", {0, {0, 3}}, [] { return processPciessdBackplaneInfo(1, 2, 3, 4); });
    all.add("blink", {0, {0, 1}}, [] { return BlinkNVMeSSD(1, 2); });
    all.add("stop to blink", {0, {0, 1}}, [] { return UnBlinkNVMeSSD(1, 2, 3); });
    all.add("stop all", {0, {1}}, [] { return UnBlinkAllNVMeSSDS(kNvme, 1, 2, 3); });
    all.add("status to the backplane", {0, {0, 1}, true}, [] {
        const fake::Platform& platform = fake::platform();
        const int sessions = platform.open_sessions();
        const uint32_t result = updateNVMeSSDDriveStatusToBP(3, 2, kNvme);
        const bool left = platform.open_sessions() != sessions;
        if (left) {  // a refused write leaves its session open: the last one
            const fake::AllocationPause pause;
            ZentBpApiCloseExec(platform.sessions.rbegin()->first, nullptr, nullptr, 0);
        }
        return left == (result == 1) ? result : 100;
    });
    return all;
}

}  // namespace faults
