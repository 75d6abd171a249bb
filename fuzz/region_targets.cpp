// Regions, FRU data and tables that others write, against every operation that reads them: a
// documented result each time.
#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <span>
#include <string>
#include <tuple>

#include "fuzz/fuzz.h"
#include "internal/vexel_state.h"
#include "rt_cache.h"
#include "rt_shm.h"
#include "rt_sync.h"
#include "vexel.h"

namespace {

using fuzz::Bytes;
using fuzz::Input;

struct Operation {
    std::string what;
    std::vector<uint32_t> results;
    uint32_t (*call)(Input&);
    bool holds_cache = false;
};

void expect_results(std::span<const Operation> operations, Input& arguments) {
    for (const Operation& operation : operations) {
        if (operation.holds_cache) {
            EXPECT_EQ(rtcache_GetLock(), 0u);
        }
        const uint32_t result = [&] {
            const fuzz::Failures failures;
            return operation.call(arguments);
        }();
        fuzz::tell(operation.what.c_str(), result);
        arguments.tell_kept();
        if (operation.holds_cache) {
            SMMutexUnLock(mutexRtCache);
        }
        EXPECT_NE(std::ranges::find(operation.results, result), operation.results.end())
            << operation.what << " gave " << result;
        EXPECT_EQ(fake::platform().locks_held, 0) << operation.what;
    }
}

uint32_t result_of(uint32_t result) {
    return result;
}

// What is no result is told, and counts as 0.
template <class Answer>
uint32_t result_of(Answer answer) {
    if constexpr (std::is_pointer_v<Answer>) {
        using Character = std::remove_pointer_t<Answer>;
        const size_t length = answer != nullptr
                                  ? std::char_traits<std::remove_const_t<Character>>::length(answer)
                                  : 0;
        fuzz::tell("text", answer, length * sizeof(Character));
        if constexpr (!std::is_const_v<Character>) {
            vexel_free(answer);
        }
    } else {
        fuzz::tell("value", static_cast<uint64_t>(answer));
    }
    return 0;
}

// Calls a function with anything.
template <auto function>
uint32_t any(Input& input) {
    return []<class Result, class... Types>(Result (*call)(Types...), Input& in) -> uint32_t {
        const std::tuple<Types...> arguments{in.any<Types>()...};
        if constexpr (std::is_void_v<Result>) {
            std::apply(call, arguments);
            return 0;
        } else {
            return result_of(std::apply(call, arguments));
        }
    }(function, input);
}

// The last word of "... [auto function = name]", as compilers spell a template's own name.
std::string name_in(std::string_view spelled) {
    const size_t end = spelled.find_last_not_of("])");
    return std::string{spelled.substr(0, end + 1).substr(spelled.find_last_of(" &(", end) + 1)};
}

template <auto function>
Operation of(std::vector<uint32_t> results, bool holds_cache = false) {
    return {name_in(__PRETTY_FUNCTION__), std::move(results), any<function>, holds_cache};
}

// ---- FRU table ----------------------------------------------------------------------------------

template <auto function>
uint32_t read_fru(Input& input) {
    uint8_t* data = nullptr;
    uint32_t size = 0;
    const auto slot = input.any<uint8_t>(), length = input.any<uint8_t>();
    const uint32_t result = function(&data, &size, slot, length);
    EXPECT_EQ(data != nullptr, result == 0);
    fuzz::tell("FRU data", data, size);
    const uint32_t revision = get_TAVI_Revison(data, size);
    EXPECT_LE(revision, 2u);
    fuzz::tell("revision", revision);
    fuzz::tell("of nothing", get_TAVI_Revison(nullptr, input.number()));
    vexel_free(data);
    return result;
}

const Operation kFruOperations[] = {
    {"get_HBA_FRU_Info", {0, 2, 3}, read_fru<get_HBA_FRU_Info>},
    {"get_KRON_TAVI_FRU_Info", {0, 2, 3}, read_fru<get_KRON_TAVI_FRU_Info>},
    of<is_TAVI_A2_Present>({0, 1}),
    {"update_TAVI_FRU_Info",
     {0, 2, 3},
     [](Input& input) {
         uint8_t* entry = input.keep(input.bytes(15 + input.shift)) + input.shift;
         std::copy_n(fake::platform().region(49).data() + 9, 15, entry);
         auto *slot = input.any<uint8_t*>(), *card = input.any<uint8_t*>();
         return update_TAVI_FRU_Info(entry, slot, card);
     }},
};

// Information and data of two cards, then the table.
void run_fru(Input& arguments, Input& format) {
    fake::Platform& platform = fake::platform();
    for (int i = 0; i < 2; ++i) {
        fake::State::Fru& fru = platform.frus[format.any<uint16_t>()];
        format.take(fru.info.data(), fru.info.size());
        fru.data = format.bytes(std::min<size_t>(64, format.left()));
        fru.data.resize(arguments.number() % 0x10000);
    }
    uint8_t* table = platform.region(49).data();
    format.fill(table, format.left() < 1000 ? 1000 : 65668);
    if (table[7] != 0xFF) {  // thousands of entries take a hundred times as long
        table[6] &= 0x0F;
        table[7] = 0;
    }
    expect_results(kFruOperations, arguments);
}
const fuzz::Target fru_target{"fru", run_fru};

// ---- Slot maps, tables and the FQDDs of the cache -----------------------------------------------

uint32_t enclosure_fqdd(Input& input) {
    wchar_t* text = nullptr;
    const uint32_t eid = input.number(), enclosure = input.number();
    result_of(rtcache_GetEnclosureFQDD(eid, enclosure, &text));
    return result_of(text);
}

const Operation kSlotOperations[] = {
    of<rtcache_GetAdapterFQDD>({0}, true),
    of<rtcache_GetBatteryFQDD>({0}, true),
    {"rtcache_GetEnclosureFQDD", {0}, enclosure_fqdd, true},
    of<vexel_GetPCIeSSDFQDD>({0}),
    of<rtcache_PrintCache>({0}, true),
    of<rtshm_getNVMeExtcard>({0, 3}),
    of<processNVMeExtndrcardInfo>({0, 2, 3}),
    of<rtshm_getNVMeBPs>({0}),
    of<processNVMeBackplaneInfo>({0, 2, 3}),
    of<rtshm_getExtenderSlotFromDriveSlot>({0, 2, 3}),
    of<RTSHM_readSSDSlotNumFromGblSlotNum>({0, 3}),
    of<RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum>({0, 3}),
    of<RTSHM_readBayIDInfoFromGblSlotNum>({0, 3}),
    of<RTSHM_readBayIDAndSlotNoFromEID>({0, 1, 3}, true),
    of<RTSHM_readBayIDAndSlotNoFromVDMEID>({0, 3}),
    of<rtshm_getI2CNVMeSSDEIDfromVDMEID>({0}),
    of<BlinkPCIeSSD>({0, 1}),
    of<UnBlinkPCIeSSD>({0, 1}),
    of<rtshm_IsDriveBehindKRONfromBPAPIByEID>({0, 1, 3}, true),
    of<rtshm_getPCIessdExtcard>({0, 3}),
    of<processPciessdExtndrcardInfo>({0, 2, 3}),
    of<rtshm_getPCIessdBp>({0, 3}),
    of<processPciessdBackplaneInfo>({0, 2, 3}),
};

template <class T>
T* made() {
    return static_cast<T*>(vexel_alloc(sizeof(T)));
}

constexpr size_t kPlainBytes = 44;  // of each kind's body: no pointers among them

// None, or one with or without an FQDD.
StorageObjectRecord* record(Input& input, uint32_t type) {
    if (input.below(4) == 0) {
        return nullptr;
    }
    auto* record = made<StorageObjectRecord>();
    record->objType = type;
    record->hdr.VERSION = 1;
    input.take(&record->body, kPlainBytes);
    if (input.below(4) != 0) {
        const std::wstring text = fuzz::widened(input.text());
        record->hdr.FQDD = static_cast<wchar_t*>(vexel_alloc((text.size() + 1) * sizeof(wchar_t)));
        std::copy(text.begin(), text.end(), record->hdr.FQDD);
    }
    return record;
}

// Endpoints with a controller and a few disks each, one time in two. Returns whether there are any.
bool fill_cache(Input& input) {
    if (input.below(2) == 0) {
        return false;
    }
    for (const uint8_t eid : std::initializer_list<uint8_t>{20, 21, 254}) {
        rtcache_UpdateCachedObject(RTCACHE_REGISTER, eid, input.below(20), 0);
        rtcache_SetStorageEIDStatus(eid, input.below(4));
        auto* controller = made<RtCacheControllerNode>();
        controller->objType = input.below(2) != 0 ? RT_OBJ_ADAPTER : RT_NODE_PCIESSD_ADAPTER;
        controller->adapter = record(input, RT_OBJ_ADAPTER);
        controller->battery = record(input, RT_OBJ_BATTERY);
        controller->pciInfo = made<RtCachePciInfo>();
        input.take(controller->pciInfo, sizeof(RtCachePciInfo));
        EXPECT_EQ(rtcache_GetLock(), 0u);
        EXPECT_EQ(rtcache_SetCachedObject(RTCACHE_KEY_CONTROLLER, eid, eid, controller), 0u);
        static constexpr uint32_t kTypes[] = {RT_OBJ_PHYSICAL_DISK, RT_OBJ_ENCLOSURE,
                                              RT_OBJ_BACKPLANE};
        for (const uint16_t key : std::initializer_list<uint16_t>{0, 3, 63}) {
            auto* disk = made<RtCacheDiskNode>();
            disk->objType = kTypes[input.below(3)];
            disk->enclObj = made<RtCacheEnclosureLink>();
            disk->enclObj->enclType.extEncl.Obj = record(input, disk->objType);
            EXPECT_EQ(rtcache_SetCachedObject(RTCACHE_KEY_DISK, eid, key, disk), 0u);
        }
        SMMutexUnLock(mutexRtCache);
    }
    EXPECT_EQ(rtcache_GetLock(), 0u);
    const auto slot = static_cast<uint16_t>(input.below(32));
    void* card = nullptr;
    if (rtcache_GetCachedObject(RTCACHE_KEY_EXTENDER, 0, slot, &card) == 0 && card == nullptr) {
        EXPECT_EQ(rtcache_SetCachedObject(RTCACHE_KEY_EXTENDER, 0, slot, made<ExtenderCardInfo>()),
                  0u);
    }
    SMMutexUnLock(mutexRtCache);
    return true;
}

// Region 20, the table of region 15 with records behind it, both NVMe tables.
void run_slots(Input& arguments, Input& format) {
    format.fill(fake::platform().region(20).data(), 325);
    format.fill(fake::platform().region(15).data(), 260);
    format.fill(&sNVMeSSDBPInfo, sizeof(sNVMeSSDBPInfo));
    format.fill(&sNVMeSSDBPVDMInfo, sizeof(sNVMeSSDBPVDMInfo));
    const bool endpoints = fill_cache(arguments);
    expect_results(kSlotOperations, arguments);
    if (endpoints) {
        rtcache_Destroy();
    }
}
const fuzz::Target slots_target{"slots", run_slots};

// ---- Storage, PCIe SSDs, polling ----------------------------------------------------------------

template <auto function, size_t size>
uint32_t on_block(Input& input) {
    return function(input.keep(input.bytes(size)));
}

const Operation kRegionOperations[] = {
    of<RTSHM_DumpSharedMem>({0}),
    {"polling flags", {0, 3}, on_block<RTSHM_ReadSharedThermalPolling, 4>},
    {"split mode", {0, 3}, on_block<RTSHM_readBackplaneSharedMem, 40>},
    {"RTSHM_StoreFRU",
     {0, 2, 3},
     [](Input& input) {
         const uint32_t size = input.below(700);
         const auto type = input.any<uint8_t>(), card = input.any<uint8_t>(),
                    index = input.any<uint8_t>();
         return RTSHM_StoreFRU(type, card, index, 1, 2, input.keep(input.bytes(size)), size);
     }},
    of<RTSHM_StoreFRUTemp>({0, 2, 3}),
    of<RTSHM_ClearFRU>({0, 2, 3}),
    of<RTSHM_ClearFqdd>({0, 2, 3}),
    of<RTSHM_Add_NVMeSSD_FQDD_toSHM>({0, 2, 3}),
    of<RTSHM_GetPCIeSSDGlobalSlotNumberBase>({0, 2, 3}),
    of<RTSHM_ReadPCIeSSDPresenceSharedMem>({0, 2, 3}),
    of<RTSHM_readPciessdDriveStatusFromShm>({0, 3}),
    of<updatePciessdDriveStatusToShm>({0, 2, 3}),
    {"status of all slots", {0, 3}, on_block<updatePciessdiBCDDataToShm, 128>},
};

void run_regions(Input& arguments, Input& format) {
    uint8_t changed;  // nothing is seen of the input before
    RTSHM_ReadPCIeSSDPresenceSharedMem(&changed);
    for (const int region : {20, 55, 3, 26}) {
        std::vector<uint8_t>& bytes = fake::platform().region(region);
        format.fill(bytes.data(), std::min(bytes.size(), format.left()));
    }
    expect_results(kRegionOperations, arguments);
}
const fuzz::Target regions_target{"regions", run_regions};

// ---- Backplane snapshot -------------------------------------------------------------------------

const Operation kSnapshotOperations[] = {
    of<rtshm_BpApiInit>({0, 1}),
    of<rtshm_getNVMeExtcard>({0, 3}),
    of<rtshm_getNVMeBPs>({0}),
    {"NVMeHotPlugCallback",
     {0},
     [](Input& input) {
         Bytes copy(sizeof(BpApiInfo) + input.shift);
         std::copy_n(reinterpret_cast<const uint8_t*>(&fake::platform().snapshot),
                     sizeof(BpApiInfo), copy.data() + input.shift);
         NVMeHotPlugCallback(reinterpret_cast<const BpApiInfo*>(copy.data() + input.shift));
         return 0u;
     }},
    of<rtshm_getDriveTechFromBpInfo>({0, 1}),
    of<rtshm_getNVMeDriveState>({0, 1}),
    of<rtshm_SetNVMeDriveState>({0, 1}),
    of<rtshm_IsDriveBehindKRONfromBPAPI>({0, 1}),
    of<rtshm_IsDriveConnectedRearBP>({0, 1}),
    of<rtshm_UpdateNVMeSSDSlotToEID>({0, 1}),
    of<rtshm_GetNVMeSSDvdmEIDfromSlotandBayID>({0, 1}),
    of<RTSHM_getBpFwVersion>({0, 2}),
};
const Operation kUpdate[] = {of<RTSHM_UpdateSharedMem>({0}, true)};

void run_snapshot(Input& arguments, Input& format) {
    fake::platform().system_id = arguments.below(2) == 0 ? 215 : 0;
    format.fill(&fake::platform().snapshot, sizeof(BpApiInfo));
    EXPECT_EQ(RTSync_Init(), 0u);
    const bool endpoints = fill_cache(arguments);
    expect_results(kSnapshotOperations, arguments);
    if (endpoints) {
        expect_results(kUpdate, arguments);
        rtcache_Destroy();
    }
    rtshm_BpApiExit();
    rtshm_BpApiKronExit();
    RTSync_Destroy();
}
const fuzz::Target snapshot_target{"snapshot", run_snapshot};

}  // namespace
