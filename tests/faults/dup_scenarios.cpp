#include "rt_dup.h"
#include "tests/faults/scenario.h"
#include "tests/faults/world.h"
#include "vexel.h"

namespace faults {
namespace {

// Copies into a record; 100 more where the copy has a text of the source's.
template <class Result>
int64_t copied(Result (*copy)(const StorageObjectRecord*, StorageObjectRecord*),
               const StorageObjectRecord& source) {
    StorageObjectRecord* record = room_for_record();
    const int64_t result = copy(&source, record);
    const bool shared = record->NAME == source.NAME || record->hdr.FQDD == source.hdr.FQDD;
    rtcache_FreeRMObjects(record, 1);
    return result + (shared ? 100 : 0);
}

int64_t freed(StorageObjectRecord* record) {
    rtcache_FreeRMObjects(record, 1);
    return record != nullptr;
}

}  // namespace

Scenarios dup_scenarios() {
    return {
        {"adapter", {1, {1, 0}}, [] { return freed(DupAdapter(&sources.adapter)); }},
        {"battery", {1, {1, 0}}, [] { return freed(rtraid_DupBattery(&sources.battery)); }},
        {"driver", {1, {1, 0}}, [] { return freed(rtraid_DupDriver(&sources.battery)); }},
        {"foreign config", {1, {1, 0}}, [] { return freed(DupForeign_Config(&sources.foreign)); }},
        {"adapter key",
         {1, {0}},
         [] {
             AdapterKeyRecord* key = rtraid_DupAdapterKey(&sources.key);
             vexel_free(key);
             return key != nullptr;
         }},
        {"card",
         {0},
         [] {
             StorageObjectRecord* record = room_for_record();
             const int32_t result = DupPCIeSSDAdapter(&sources.card, record);
             rtcache_FreeRMObjects(record, 1);
             return result;
         }},
        {"disk", {0}, [] { return copied(rtraid_dupPD, sources.disk); }},
        {"virtual disk", {0}, [] { return copied(rtraid_DupVD, sources.virtual_disk); }},
        {"enclosure", {0}, [] { return copied(rtraid_dupEnclosure, sources.enclosure); }},
        {"parts of an enclosure",
         {0},
         [] {
             return copied(rtraid_dupEMM, sources.enclosure) +
                    copied(rtraid_dupFAN, sources.enclosure) +
                    copied(rtraid_dupPSU, sources.enclosure) +
                    copied(rtraid_dupTEMPPROBE, sources.enclosure);
         }},
        {"SMART pages", {0}, [] { return copied(rtraid_dupSmartPD, sources.smart_pages); }},
        {"SMART block", {0}, [] { return copied(rtraid_dupSmartPD, sources.smart_block); }},
        {"flat SMART", {0}, [] { return copied(rtraid_dupNVMeSmartData, sources.battery); }},
    };
}

}  // namespace faults
