#include <regex>

#include "tests/support/cache_test.h"

namespace {

enum Variant { NoCounts, Full, SevenPages };

// A record of each kind with every pointer of the kind set, by default to what is not on the heap:
// if any of it is freed, the address sanitizer ends the test.
struct Source {
    Source() {
        for (StorageObjectRecord& member : members) {
            member.NAME = member.hdr.FQDD = wide_text;
            member.hdr.VERSION = 1;
            member.body.vd.memberCount = 3;
            member.body.vd.targetID = ids;
        }
    }

    void point_at(uintptr_t sentinel) {
        wide = reinterpret_cast<wchar_t*>(sentinel);
        text = reinterpret_cast<char*>(sentinel);
        words = reinterpret_cast<uint32_t*>(sentinel);
        entries = reinterpret_cast<AdapterCapabilityEntry*>(sentinel);
        records = reinterpret_cast<StorageObjectRecord*>(sentinel);
    }

    StorageObjectRecord record(uint32_t type, Variant variant) const {
        StorageObjectRecord made{};
        const bool full = variant != NoCounts;
        made.objType = type;
        made.NAME = made.hdr.FQDD = wide;
        made.hdr.VERSION = full;
        auto& body = made.body;
        if (type == RT_OBJ_ADAPTER) {
            body.adapter.text112 = wide;
            body.adapter.capabilityMask = full ? 7 : 0;
            body.adapter.capabilities = entries;
            for (AdapterTextEntry& entry : body.adapter.entries) {
                entry.text = wide;
            }
        } else if (type == RT_OBJ_PHYSICAL_DISK) {
            body.pd.keyId = body.pd.text417 = body.pd.text426 = text;
            body.pd.text430 = body.pd.text434 = text;
            body.pd.wordCount = full ? 3 : 0;
            body.pd.words = words;
        } else if (type == RT_OBJ_VIRTUAL_DISK) {
            body.vd.memberCount = full ? 3 : 0;
            body.vd.targetID = words;
        } else if (type == RT_OBJ_SMART_DATA) {
            body.smart.nvmeBlock = reinterpret_cast<uint8_t*>(text);
            body.smart.flags = variant == Full ? RT_SMART_FLAG_NVME : 0;
            body.smart.pageSelector = full ? RT_SMART_SELECT_7_PAGES : RT_SMART_SELECT_5_PAGES;
            for (SmartPageSlot& slot : body.smart.pages) {
                slot.page = text;
                slot.length = 40;
            }
        } else if (type == RT_OBJ_FOREIGN_CONFIG) {
            body.foreign.virtualDiskCount = full ? 2 : 0;
            body.foreign.virtualDisks = records;
            body.foreign.physicalDiskCount = variant == Full ? 0 : 2;
            body.foreign.physicalDisks = records;
        }
        return made;
    }

    wchar_t wide_text[8] = L"Name";
    char block[512] = "text";
    uint32_t ids[3] = {1, 2, 3};
    AdapterCapabilityEntry capabilities[3] = {};
    StorageObjectRecord members[2] = {};
    wchar_t* wide = wide_text;
    char* text = block;
    uint32_t* words = ids;
    AdapterCapabilityEntry* entries = capabilities;
    StorageObjectRecord* records = members;
};

StorageObjectRecord* new_record() {
    return static_cast<StorageObjectRecord*>(vexel_alloc(sizeof(StorageObjectRecord)));
}

template <auto Dup>
StorageObjectRecord* filled(const StorageObjectRecord* source) {
    StorageObjectRecord* copy = new_record();
    if (copy != nullptr) {
        Dup(source, copy);
    }
    return copy;
}

const struct {
    const char* what;
    uint32_t type;
    StorageObjectRecord* (*copy)(const StorageObjectRecord*);
    const char* line;  // of a full record, between entry and exit
} kKinds[] = {{"adapter", RT_OBJ_ADAPTER, DupAdapter, nullptr},
              {"battery", RT_OBJ_BATTERY, rtraid_DupBattery, nullptr},
              {"enclosure", RT_OBJ_ENCLOSURE, filled<rtraid_dupEnclosure>, "OBJTYPE is ENCLOSURE"},
              {"disk", RT_OBJ_PHYSICAL_DISK, filled<rtraid_dupPD>, "OBJTYPE is PHYSICALDISK"},
              {"virtual disk", RT_OBJ_VIRTUAL_DISK, filled<rtraid_DupVD>, "OBJTYPE is LOGICALDISK"},
              {"driver", RT_OBJ_DRIVER, rtraid_DupDriver, nullptr},
              {"EMM", RT_OBJ_EMM, filled<rtraid_dupEMM>, nullptr},
              {"fan", RT_OBJ_FAN, filled<rtraid_dupFAN>, nullptr},
              {"PSU", RT_OBJ_PSU, filled<rtraid_dupPSU>, nullptr},
              {"probe", RT_OBJ_TEMPERATURE_PROBE, filled<rtraid_dupTEMPPROBE>, nullptr},
              {"SMART data", RT_OBJ_SMART_DATA, filled<rtraid_dupSmartPD>, "Freeing rawData"},
              {"foreign", RT_OBJ_FOREIGN_CONFIG, DupForeign_Config, "Memory freed FOREIGN_CONFIG"},
              {"backplane", RT_OBJ_BACKPLANE, filled<rtraid_dupEnclosure>, nullptr},
              {"unknown", 99, rtraid_DupBattery, nullptr}};

class CacheTeardown : public CacheTest {
  protected:
    // Objects as VEXEL stores them, each a deep copy. The caller holds the lock.
    template <class T>
    static T* make(const T& value) {
        auto* made = static_cast<T*>(vexel_alloc(sizeof(T)));
        *made = value;
        return made;
    }
    StorageObjectRecord* copy_of(uint32_t type) {
        const StorageObjectRecord record = source_.record(type, Full);
        return std::ranges::find(kKinds, type, [](const auto& kind) { return kind.type; })
            ->copy(&record);
    }
    RtCacheControllerNode* make_controller(uint32_t type = RT_OBJ_ADAPTER) {
        return make(RtCacheControllerNode{type, copy_of(RT_OBJ_ADAPTER), copy_of(RT_OBJ_BATTERY),
                                          copy_of(RT_OBJ_DRIVER), vexel_alloc(292),
                                          copy_of(RT_OBJ_FOREIGN_CONFIG), make(RtCachePciInfo{}),
                                          vexel_alloc(16), 0});
    }
    RtCacheDiskNode* make_disk(uint32_t type = RT_OBJ_PHYSICAL_DISK) {
        return make(RtCacheDiskNode{type, make(RtCacheEnclosureLink{{{copy_of(type)}}})});
    }
    RtCacheVirtualDiskNode* make_virtual_disk() {
        return make(RtCacheVirtualDiskNode{RT_OBJ_VIRTUAL_DISK, copy_of(RT_OBJ_VIRTUAL_DISK)});
    }
    BpStatusInfo* make_backplane() {
        StorageObjectRecord* record = copy_of(RT_OBJ_BACKPLANE);
        record->hdr.VERSION = 0;  // its FQDD is its own all the same
        return make(BpStatusInfo{0, 0, 0, 0, 0, record});
    }
    static ExtenderCardInfo* make_extender() {
        return make(ExtenderCardInfo{static_cast<wchar_t*>(vexel_alloc(8)),
                                     static_cast<wchar_t*>(vexel_alloc(8)), 0});
    }

    const Source source_;
};

// The copy of every kind, whole and with each of its allocations failed, is freed to the last block
// and nothing of its source with it.
TEST_F(CacheTeardown, RecordsGiveBackExactlyWhatTheirCopyAllocated) {
    const long blocks = fake::live_blocks();
    for (const auto& kind : kKinds) {
        for (const Variant variant : {NoCounts, Full, SevenPages}) {
            SCOPED_TRACE(std::string{kind.what} + " " + std::to_string(variant));
            const StorageObjectRecord record = source_.record(kind.type, variant);
            bool failed = true;
            for (int n = 1; failed; ++n) {
                platform.fail(Place::Allocation, n);
                StorageObjectRecord* copy = nullptr;
                {
                    const AllocationScope scope;
                    copy = kind.copy(&record);
                }
                failed = platform.fault_fired(Place::Allocation);
                platform.clear_lines();
                rtcache_FreeRMObjects(copy, 1);
                ASSERT_EQ(fake::live_blocks(), blocks) << n;
            }
            const Lines lines = logged_lines();
            EXPECT_EQ(lines.front().rfind("4 --> enter with obj addr:0x", 0), 0u);
            EXPECT_EQ(lines.back(), "4 <-- exit");
            EXPECT_EQ(lines.size(), kind.type == RT_OBJ_SMART_DATA ? 4u
                                    : kind.line != nullptr         ? 3u
                                                                   : 2u);
            if (variant == Full && kind.line != nullptr) {
                EXPECT_EQ(lines[lines.size() - 2], std::string{"4 "} + kind.line);
            }
        }
    }
}

TEST_F(CacheTeardown, FieldsThatWereNeverSetAreNotFreed) {
    Source unset;
    for (const uintptr_t sentinel : {uintptr_t{0xFFFFFFFF}, uintptr_t{0xFFFFFFFE}, UINTPTR_MAX,
                                     UINTPTR_MAX - 1, uintptr_t{0}}) {
        unset.point_at(sentinel);
        for (const auto& kind : kKinds) {
            for (const Variant variant : {NoCounts, Full, SevenPages}) {
                auto* records =
                    static_cast<StorageObjectRecord*>(vexel_alloc(2 * sizeof(StorageObjectRecord)));
                records[0] = records[1] = unset.record(kind.type, variant);
                rtcache_FreeRMObjects(records, 2);
            }
        }
    }
    platform.clear_lines();
    rtcache_FreeRMObjects(nullptr, 5);
    EXPECT_EQ(logged_lines(), Lines{});
}

TEST_F(CacheTeardown, FreesInOrderAndPciessdControllersLast) {
    add_endpoint(8, RTCACHE_TYPE_KRON);
    add_endpoint(9, RTCACHE_TYPE_NVME);
    add_endpoint(10, RTCACHE_TYPE_PCIESSD);
    cache_AllEIDs[8] = make_controller();
    cache_AllEIDs[9] = make_controller(RT_NODE_PCIESSD_ADAPTER);
    cache_AllEIDs[10] = make_controller();
    cache_AllEIDs[11] = make_controller();
    cache_AllEIDs[12] = cache_AllEIDs[11];   // one node under two EIDs,
    cache_AllEIDs[200] = cache_AllEIDs[10];  // and under two of different fates
    cache_PDs[0][7] = make_disk();
    cache_PDs[107][2047] = make_disk(RT_OBJ_ENCLOSURE);
    cache_PDs[0][6] = make(RtCacheDiskNode{RT_OBJ_PHYSICAL_DISK, nullptr});
    cache_VDs[0][3] = make_virtual_disk();
    cache_Extndrs[16] = make_extender();
    cache_Bkplanes[5] = make_backplane();
    cache_Bkplanes[0] = make(BpStatusInfo{});
    cache_CMDsCount[254] = vexel_alloc(4);
    {
        const CacheLock lock;
        rtcache_CopyCachedEvent(8, 0, 1, 1, make_event_data("CTL1"));
        rtcache_CopyCachedEvent(8, RT_OBJ_PHYSICAL_DISK, 3, 5, make_event_data("PDR3"));
    }
    gRTCache_EventCount = 7;
    max_adapters = 50;  // the teardown walks what there is
    platform.clear_lines();
    rtcache_FreeMem();
    Lines lines = logged_lines("rtcache_FreeMem");
    for (std::string& line : lines) {  // addresses and source lines differ
        line = std::regex_replace(line, std::regex{"0x\\w+|(EID=\\d+) \\d+$"}, "$1");
    }
    const Lines expected{"5 FreeingMemory EID=8",
                         "4 Adapter/battery EID=8",
                         "5 FreeingMemory EID=9",
                         "4 It is a PCIeSSD EID, continue",
                         "5 FreeingMemory EID=10",
                         "4 It is a PCIeSSD EID, continue",
                         "5 FreeingMemory EID=11",
                         "1 <-- error get Storage EID Failrtcache_FreeMem",
                         "4 Adapter/battery EID=11",
                         "5 FreeingMemory EID=200",
                         "1 <-- error get Storage EID Failrtcache_FreeMem",
                         "4 Adapter/battery EID=200",
                         "4 EID=8 physical device=6",
                         "4 EID=8 physical device=7",
                         "4 EID=8 logical device=3",
                         "4 EID=255 physical device=2047",
                         "4 Freeing PCIeSSD extenders",
                         "4 Freeing PCIeSSD BPs",
                         "4 Freeing Enclosure FQDD",
                         "4 Freeing Enclosure NAME",
                         "4 Freeing Enclosure FQDD",
                         "4 Freeing Enclosure NAME",
                         "4 Freeing cache_CMDsCount: at u32Iter:254"};
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(gRTCache_EventCount, 0u);
    EXPECT_EQ(cache_PDs, nullptr);
    EXPECT_EQ(cache_StorageEIDInfo.eidInfo, nullptr);
    EXPECT_EQ(cache_AllEIDs[9], nullptr);
    EXPECT_EQ(GetIndexFromEID(8), 255u);  // the lock is still there, the arrays are not
}

TEST_F(CacheTeardown, ALevelOfAnEndpointIsFreedAlone) {
    add_endpoint(8);
    add_endpoint(9);
    for (const uint32_t eid : {8u, 9u}) {
        cache_AllEIDs[eid] = make_controller();
        cache_PDs[eid - 8][4] = make_disk();
        cache_VDs[eid - 8][4] = make_virtual_disk();
    }
    const std::string name = "rtcache_FreeObjectLevel";
    for (const auto& [what, row_eid, level, result, line] :
         Rows<const char*, uint32_t, uint32_t, uint32_t, std::string>{
             {"disks", 8, 3, 0, "4 <-- exit"},
             {"no disks left", 8, 3, 0, "4 <-- exit"},
             {"virtual disks", 8, 4, 0, "4 <-- exit"},
             {"controller", 8, 2, 0, "4 <-- exit"},
             {"no controller left", 8, 2, 0, "4 <-- exit"},
             {"disks of nobody", 40, 3, 1, "5 <-- " + name + " error s32Temp 255"},
             {"free marker", 255, 2, 2, "2 <-- err null inputs" + name},
             {"EID in the low byte only", 256 + 9, 3, 2, "2 <-- err null inputs" + name},
             {"no level", 9, 255, 2, "2 <-- err null inputs" + name},
             {"positions are no objects", 9, 1, 2, "2 <-- err wrong keytype" + name + " 1"},
             {"backplanes belong to nobody", 9, 5, 2, "2 <-- err wrong keytype" + name + " 5"}}) {
        platform.clear_lines();
        EXPECT_EQ(rtcache_FreeObjectLevel(row_eid, level), result);
        EXPECT_EQ(logged_lines().back(), line);
    }
    platform.fail(Place::Lock);
    EXPECT_EQ(rtcache_FreeObjectLevel(9, 3), 3u);
    EXPECT_EQ(cache_AllEIDs[8], nullptr);
    EXPECT_EQ(cache_PDs[0][4], nullptr);
    EXPECT_EQ(cache_VDs[0][4], nullptr);
    EXPECT_NE(cache_AllEIDs[9], nullptr);
    EXPECT_NE(cache_PDs[1][4], nullptr);
    EXPECT_NE(cache_VDs[1][4], nullptr);
}

// Thousands of random objects, events and endpoints, ended in whatever state they are in.
TEST_F(CacheTeardown, RandomCachesLeaveNothing) {
    std::mt19937 random{20};
    const auto below = [&](uint32_t bound) { return static_cast<uint32_t>(random() % bound); };
    const auto fill = [](auto*& slot, auto make_object) {
        if (slot == nullptr) {
            slot = make_object();
        }
    };
    platform.record_lines(false);
    for (int round = 0; round < 4; ++round) {
        for (int step = 0; step < 3000; ++step) {
            const uint32_t eid = below(60), key = below(2048), row = below(108);
            if (below(10) == 0) {
                add_endpoint(eid, below(20));
                rtcache_UpdateCachedObject(0, below(120), 0, 0);
            }
            const CacheLock lock;
            fill(cache_PDs[row][key], [&] { return make_disk(below(2) ? 3 : RT_OBJ_BACKPLANE); });
            fill(cache_VDs[row][key % 254], [&] { return make_virtual_disk(); });
            fill(cache_AllEIDs[eid], [&] {  // a third of the nodes under several EIDs
                return below(3) ? make_controller(3 * below(2)) : cache_AllEIDs[below(60)];
            });
            fill(cache_Extndrs[key % 17], make_extender);
            fill(cache_Bkplanes[key % 6], [&] { return make_backplane(); });
            fill(cache_CMDsCount[eid], [] { return vexel_alloc(4); });
            if (const uint32_t at = GetIndexFromEID(eid); at != 255) {
                rtcache_CopyCachedEvent(eid, 0, 1, key, make_event_data("CTL1"));
                rtcache_SetDelayedCachedEvent(eid, 0, 1, key);
                fill(cache_Events_PD_ChObj[at].eventData[key],
                     [] { return make_event_data("PDR3"); });
            }
        }
        for (int i = 0; i < 20; ++i) {
            rtcache_FreeObjectLevel(below(60), 2 + below(3));
            const Drained drained{below(60)};
        }
        if (round == 0) {
            rtcache_FreeMem();
        } else if (round == 1) {
            platform.fail(Place::Lock);
            rtcache_Destroy();
            platform.no_faults();
        } else if (round == 2) {
            rtcache_Destroy();
        }
        ASSERT_EQ(rtcache_Init(), 0u);
    }
}

TEST_F(CacheTeardown, ThousandsOfLivesDoNotGrow) {
    platform.record_lines(false);
    max_adapters = max_physicaldevices = max_logicaldevices = 1;
    rtcache_Init();
    const long blocks = fake::live_blocks();
    for (int life = 0; life < 10000; ++life) {
        cache_PDs[0][0] = make(RtCacheDiskNode{});
        rtcache_Destroy();
        ASSERT_EQ(rtcache_Init(), 0u);
    }
    EXPECT_EQ(fake::live_blocks(), blocks);
    EXPECT_EQ(platform.live_mutexes, 2);
}

}  // namespace
