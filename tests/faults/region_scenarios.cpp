// Backplane sessions, drives, regions, cards, alerts.
#include "tests/faults/scenario.h"

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

void region_scenarios(Scenarios& all) {
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
        return either({read(rtshm_getDriveTechFromBpInfo, 1, 2),
                       read(rtshm_getBusNumFromBpInfo, 1, 2), rtshm_getNVMeDriveState(&state, 1, 2),
                       rtshm_SetNVMeDriveState(1, 2, 1), rtshm_UpdateNVMeSSDSlotToEID(1, 2, kNvme),
                       rtshm_UpdateNVMeSSDSlotToVDMEID(1, 2, kVdmEid),
                       rtshm_getI2CNVMeSSDEIDfromSlotAndBayId(1, 2, &eid),
                       rtshm_GetNVMeSSDvdmEIDfromSlotandBayID(1, 2, &eid),
                       read(rtshm_IsDriveBehindKRONfromBPAPI, 1, 2),
                       read(rtshm_IsDriveConnectedRearBP, 1, 2),
                       rtshm_getExtenderSlotFromDriveSlot(1, 2, &slot),
                       read(RTSHM_readBayIDInfoFromGblSlotNum, 2),
                       RTSHM_readBayIDAndSlotNoFromEID(&bay, &slot, kNvme),
                       RTSHM_readBayIDAndSlotNoFromVDMEID(&bay, &slot, kVdmEid),
                       read(rtshm_IsDriveBehindKRONfromBPAPIByEID, kNvme),
                       rtshm_getI2CNVMeSSDEIDfromVDMEID(kVdmEid) - kNvme,
                       sNVMeSSDBPInfo.slots[52].i2cEid - kNvme,
                       sNVMeSSDBPVDMInfo.slots[52].vdmEid - kVdmEid});
    });
    all.add("texts and versions", {0}, [] {
        uint8_t major, minor, bay, slot;
        uint32_t type, text;
        return either({RTSHM_setBpFwVersion(1, 2, 3), RTSHM_getBpFwVersion(1, &major, &minor),
                       RTSHM_ReadBpFwVersion(1, &text),
                       getBayIDandSlotFromFqdd("Disk.Bay.7:Enclosure.Internal.0-2", 0, &bay, &slot),
                       getSlotandSlotIndexfromFQDD("PCIeSSD.Slot.3-1", 0, &bay, &slot, &type)});
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
        return either({read(RTSHM_readBackplaneSharedMem),
                       read(RTSHM_readSSDSlotNumFromGblSlotNum, 2),
                       read(RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum, 2),
                       RTSHM_GetPCIeSSDGlobalSlotNumberBase(1, &base),
                       read(RTSHM_ReadPCIeSSDPresenceSharedMem),
                       RTSHM_readPciessdDriveStatusFromShm(&status, 2)});
    });
    all.add("written regions", {0, {3}}, [] {
        static const uint8_t block[128] = {};
        return either({RTSHM_StoreFRU(RTCACHE_TYPE_PCIESSD, 1, 2, 0, 0, block, 4),
                       RTSHM_StoreFRUTemp(RTCACHE_TYPE_NVME, 0, 2, 30),
                       RTSHM_ClearFRU(RTCACHE_TYPE_NVME, 0, 2),
                       RTSHM_ClearFqdd(RTCACHE_TYPE_NVME, 0, 2),
                       RTSHM_Add_NVMeSSD_FQDD_toSHM(2, "Disk.Bay.2"),
                       updatePciessdDriveStatusToShm(3, 2), updatePciessdiBCDDataToShm(block)});
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

    all.add("alert", {0, {0, -1}}, [] {
        const char* const arguments[] = {"a", nullptr, "c"};
        return rt_JWLOGCMNSubmitEvent(1, "CTL140", L"RAID.Slot.1-1", arguments, 3);
    });
    all.add("alert without device", {0, {-1}},
            [] { return rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 1, "CTL140"); });
    all.add("single", {0, {-7}}, [] { return rt_SubMitSingle(5); });
    all.add("message text", {0, {-1}}, [] {
        char text[40] = "before";
        const int32_t result = rt_Buildmsgstring(0, L"RAID.Slot.1-1", text, sizeof(text));
        return (text[0] == 'F') == (result == 0) ? result : 100;
    });
    all.add("explanation", {0}, [] {
        RtRule rule;
        const RtVerdict verdict = rt_ExplainSubmission("PDR3", L"RAID.Slot.1-1", 0, 0, 0, &rule);
        return verdict + (rt_RuleText(rule) == nullptr);
    });
    all.add("alerts in each phase", {0, {0, -1}}, [] {
        const char* const arguments[] = {"a"};
        int64_t results = 0;
        for (const uint32_t phase : {0u, 0x20u, 0x120u}) {
            for (const wchar_t* fqdd : {L"RAID.1", L"NonRAID.1", L"Fan.1"}) {
                grtsync_Status.phase = phase;
                grtsync_Status.flags = RTSYNC_FLAG_LIVE;
                results |= rt_JWLOGCMNSubmitEvent(1, "PDR8", fqdd, arguments, 1);
            }
        }
        return results;
    });
    all.add("refused alerts", {12222222999}, [] {
        const char* const arguments[6] = {};
        char text[4];
        return digits({rt_JWLOGCMNSubmitEvent(0, "PDR3", L"", arguments, 1),
                       rt_JWLOGCMNSubmitEvent(4, "PDR3", L"", arguments, 1),
                       rt_JWLOGCMNSubmitEvent(1, nullptr, L"", arguments, 1),
                       rt_JWLOGCMNSubmitEvent(1, "PDR3", nullptr, arguments, 1),
                       rt_JWLOGCMNSubmitEvent(1, "PDR3", L"", nullptr, 1),
                       rt_JWLOGCMNSubmitEvent(1, "PDR3", L"", arguments, 6), 2,
                       rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 1, ""),
                       rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 1, nullptr),
                       rt_Buildmsgstring(0, nullptr, text, sizeof(text))});
    });
    all.add("refused drive positions", {11111111111111233}, [] {
        uint8_t byte;
        uint16_t state;
        return digits(
            {rtshm_getDriveTechFromBpInfo(nullptr, 1, 2), read(rtshm_getDriveTechFromBpInfo, 5, 0),
             rtshm_getBusNumFromBpInfo(nullptr, 1, 2), read(rtshm_getBusNumFromBpInfo, 4, 50),
             rtshm_getNVMeDriveState(nullptr, 1, 2), rtshm_getNVMeDriveState(&state, 5, 0),
             rtshm_SetNVMeDriveState(4, 50, 1), rtshm_UpdateNVMeSSDSlotToEID(5, 0, 1),
             rtshm_UpdateNVMeSSDSlotToVDMEID(5, 0, 1),
             rtshm_getI2CNVMeSSDEIDfromSlotAndBayId(5, 0, &byte),
             rtshm_GetNVMeSSDvdmEIDfromSlotandBayID(5, 0, &byte),
             read(rtshm_IsDriveBehindKRONfromBPAPI, 5, 0),
             read(rtshm_IsDriveConnectedRearBP, 0, 36),
             rtshm_getExtenderSlotFromDriveSlot(4, 35, nullptr),
             RTSHM_readBayIDAndSlotNoFromEID(nullptr, &byte, kNvme),
             RTSHM_readBayIDAndSlotNoFromVDMEID(&byte, nullptr, kVdmEid)});
    });
    all.add("refused regions", {12222232222222222}, [] {
        uint8_t byte;
        uint16_t status;
        return digits(
            {RTSHM_ReadSharedThermalPolling(nullptr), RTSHM_readBackplaneSharedMem(nullptr),
             RTSHM_GetPCIeSSDGlobalSlotNumberBase(5, &byte),
             RTSHM_GetPCIeSSDGlobalSlotNumberBase(1, nullptr),
             RTSHM_ReadPCIeSSDPresenceSharedMem(nullptr),
             RTSHM_readPciessdDriveStatusFromShm(&status, -37),
             RTSHM_StoreFRU(RTCACHE_TYPE_NVME, 0, 36, 0, 0, &byte, 1),
             RTSHM_StoreFRU(RTCACHE_TYPE_NVME, 0, 1, 0, 0, &byte, 513),
             RTSHM_StoreFRU(RTCACHE_TYPE_NVME, 0, 1, 0, 0, nullptr, 1),
             RTSHM_StoreFRUTemp(1, 0, 0, 30), RTSHM_ClearFRU(1, 0, 0), RTSHM_ClearFqdd(1, 0, 0),
             RTSHM_Add_NVMeSSD_FQDD_toSHM(36, "D"), RTSHM_Add_NVMeSSD_FQDD_toSHM(0, nullptr),
             updatePciessdDriveStatusToShm(3, 32), updatePciessdiBCDDataToShm(nullptr)});
    });
    all.add("refused texts and cards", {15513330222221}, [] {
        uint8_t byte, *data;
        uint32_t number;
        return digits({getBayIDandSlotFromFqdd(nullptr, 0, &byte, &byte),
                       getSlotandSlotIndexfromFQDD(nullptr, 0, nullptr, nullptr, nullptr),
                       getSlotandSlotIndexfromFQDD("Disk.Slot.3-1", 0, &byte, &byte, &number),
                       get_HBA_FRU_Info(nullptr, &number, 4, 3),
                       get_HBA_FRU_Info(&data, nullptr, 4, 3),
                       update_TAVI_FRU_Info(nullptr, &byte, &byte), get_TAVI_Revison(nullptr, 100),
                       processNVMeBackplaneInfo(nullptr, nullptr),
                       RTSHM_ReadBpFwVersion(4, nullptr), RTSHM_ReadBpFwVersion(259, &number),
                       RTSHM_setBpFwVersion(5, 1, 1), RTSHM_getBpFwVersion(5, &byte, &byte),
                       rtshm_IsDriveBehindKRONfromBPAPIByEID(nullptr, kNvme)});
    });
    all.add("missing outputs", {15555533332233200}, [] {
        static const uint8_t entry[20] = {2, 1, 0, 0, 17};
        uint8_t byte, *data;
        uint32_t number;
        return digits({getSlotandSlotIndexfromFQDD("x", 0, nullptr, &byte, &number),
                       getSlotandSlotIndexfromFQDD("x", 0, &byte, nullptr, &number),
                       getSlotandSlotIndexfromFQDD("x", 0, &byte, &byte, nullptr),
                       getBayIDandSlotFromFqdd("x", 0, nullptr, &byte),
                       getBayIDandSlotFromFqdd("x", 0, &byte, nullptr),
                       update_TAVI_FRU_Info(entry, nullptr, &byte),
                       update_TAVI_FRU_Info(entry, &byte, nullptr),
                       get_KRON_TAVI_FRU_Info(nullptr, &number, 17, 5),
                       get_KRON_TAVI_FRU_Info(&data, nullptr, 17, 5),
                       RTSHM_getBpFwVersion(1, nullptr, &byte),
                       RTSHM_getBpFwVersion(1, &byte, nullptr),
                       RTSHM_readBayIDAndSlotNoFromEID(&byte, nullptr, kNvme),
                       RTSHM_readBayIDAndSlotNoFromVDMEID(nullptr, &byte, kVdmEid),
                       processNVMeBackplaneInfo(&sNVMeSSDBPInfo.bays[0], nullptr),
                       get_TAVI_Revison(entry, 19), get_TAVI_Revison(entry, 20)});
    });
}

}  // namespace faults
