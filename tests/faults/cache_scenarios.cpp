#include "rt_cache.h"
#include "tests/faults/scenario.h"
#include "tests/faults/world.h"
#include "vexel.h"

namespace faults {
namespace {

int64_t read(uint32_t (*get)(uint32_t, uint8_t*), uint32_t eid) {
    uint8_t byte = 0;
    return get(eid, &byte);
}

}  // namespace

Scenarios cache_scenarios() {
    Scenarios all;
    all.add("start and stop", {0, {0, 1}}, [] {
        stop();
        return start() ? 0 : 1;
    });
    all.add("cache", {0, {0, 1, 3}}, [] { return rtcache_Init(); });
    all.add("end of the cache", {0}, [] { return rtcache_Destroy(); });
    all.add("freed memory", {0, {0, 1, 3}}, [] {
        rtcache_FreeMem();
        rtcache_Destroy();
        return rtcache_Init();
    });
    all.add("lock", {0, {3}}, [] {
        const uint32_t result = rtcache_GetLock();
        if (result == 0) {
            SMMutexUnLock(mutexRtCache);
        }
        return result;
    });
    all.add("ids", {0}, [] { return rtcache_SetID(3, 5) + read(rtcache_GetID, 3u); });
    all.add("endpoint count", {4, {3}}, [] { return rtcache_GetStorageEIDCount(); });
    all.add("endpoints", {0, {3}}, [] {
        StorageEIDAttr attributes;
        StorageEIDTable table;
        return either(
            rtcache_GetStorageEIDs(&table), rtcache_GetStorageEIDStatus(kHba, &attributes),
            rtcache_SetStorageEIDStatus(kHba, 3), read(rtcache_GetStorageEIDType, kHba),
            rtcache_SetStorageEIDType(kHba, RTCACHE_TYPE_HBA), rtcache_SetModularId(kHba, 2),
            rtcache_FreeObjectLevel(kKron, RTCACHE_KEY_DISK));
    });
    all.add("attributes", {0, {}, true}, [] {
        StorageEIDAttr attributes;
        return rtcache_GetStorageEIDStatusNoLock(kHba, &attributes) +
               rtcache_SetStorageEIDStatusNoLock(kHba, 4) +
               read(rtcache_GetStorageEIDTypeNoLock, kHba) +
               read(rtcache_GetModularIdNoLock, kHba) + GetIndexFromEID(kKron);
    });
    all.add("registration", {0, {3, 30, 33}}, [] {
        const uint32_t added =
            rtcache_UpdateCachedObject(RTCACHE_REGISTER, 30, RTCACHE_TYPE_KRON, 0);
        const uint32_t removed = rtcache_UpdateCachedObject(0, 30, RTCACHE_TYPE_KRON, 0);
        return added * 10 + removed;
    });
    all.add("object", {0, {}, true}, [] {
        void* object = nullptr;
        const uint32_t found = rtcache_GetCachedObject(RTCACHE_KEY_DISK, kKron, kDiskKey, &object);
        return found + rtcache_SetCachedObject(RTCACHE_KEY_DISK, kKron, kDiskKey, object);
    });
    all.add("freed records", {0}, [] {
        return (rtcache_FreeRMObjects(
                    static_cast<StorageObjectRecord*>(room(sizeof(StorageObjectRecord))), 1),
                0);
    });
    all.add("names", {7, {6}, true}, [] {
        wchar_t* enclosure = nullptr;
        rtcache_GetEnclosureFQDD(kKron, kEnclosureKey, &enclosure);
        const bool copied = enclosure != nullptr;
        vexel_free(enclosure);
        return copied + 2 * (rtcache_GetAdapterFQDD(kKron) != nullptr) +
               4 * (rtcache_GetBatteryFQDD(kKron) != nullptr);
    });
    all.add("name of an SSD", {1, {0}}, [] {
        char* fqdd = vexel_GetPCIeSSDFQDD(2);
        vexel_free(fqdd);
        return fqdd != nullptr;
    });
    all.add("printed cache", {0, {-1}, true}, [] { return rtcache_PrintCache(); });
    all.add("command status", {0, {}, true}, [] {
        g_rtpil_Controller_Status[0].eid = kNvme;
        uint8_t status;
        return rtmpi2_UpdateControllerCommandStatus(kNvme, RTPIL_COMMAND_FAILED, 1) +
               rtpil_GetControllerCommunicationStatus(kNvme, &status) +
               int64_t{rtpil_SetctrlEnableLoggingStatus(kNvme, 0)} +
               rtpil_GetctrlEnableLoggingStatus(kNvme) + rtpil_IfNVMeSSD_isNotPresent(kNvme);
    });
    return all;
}

}  // namespace faults
