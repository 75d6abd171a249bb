// Regions, tables and texts full of anything, against every operation that reads them: a documented
// result each time, nothing left behind, and the sanitizers see that nothing outside is touched.
#include <optional>
#include <tuple>

#include "internal/vexel_state.h"
#include "tests/support/backplane_test.h"
#include "tests/support/cache_test.h"

namespace {

// Draws what is likely to be handled wrongly: numbers at limits, tables of one byte, texts of
// pieces.
class Draw {
  public:
    explicit Draw(unsigned seed) : engine_(seed) {}

    uint32_t below(uint32_t end) { return static_cast<uint32_t>(engine_() % end); }

    uint32_t number() {
        static constexpr uint32_t kLimits[] = {
            0,    1,      2,      3,      4,      5,          6,          7,         11,  15,  16,
            17,   20,     21,     31,     32,     35,         36,         49,        50,  60,  99,
            127,  128,    249,    250,    254,    255,        256,        511,       512, 513, 2047,
            2048, 0x7FFF, 0x8000, 0xFFFE, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
        return below(3) != 0 ? kLimits[below(std::size(kLimits))]
                             : static_cast<uint32_t>(engine_());
    }
    // Any value of a type; of a pointer, one element of its own, or a text.
    template <class T>
    T any() {
        if constexpr (std::is_same_v<T, const char*>) {
            pool_.push_back(narrow());
            return reinterpret_cast<const char*>(pool_.back().data());
        } else if constexpr (std::is_pointer_v<T>) {
            pool_.push_back(bytes(sizeof(*T{})));
            return static_cast<T>(static_cast<void*>(pool_.back().data()));
        } else {
            return static_cast<T>(number());
        }
    }
    void forget() { pool_.clear(); }

    void fill(void* room, size_t size) {
        const bool limits = below(2) != 0;
        const auto constant = static_cast<uint8_t>(number());
        const bool same = below(4) == 0;
        std::generate_n(static_cast<uint8_t*>(room), size, [&]() -> uint8_t {
            return same     ? constant
                   : limits ? static_cast<uint8_t>(number())
                            : static_cast<uint8_t>(engine_());
        });
    }
    Bytes bytes(size_t size) {
        Bytes block(size);
        fill(block.data(), size);
        return block;
    }

    std::string text() {
        static const std::vector<std::string> kPieces = words(
            "Disk Bay Enclosure Internal 0- PCIeExtender Slot PCIeSSD SL Integrated TAVI-A2 "
            ". : - %s%n 4294967296 -7 255 3 \xFF\x80 PCIeSSD.Slot.3-1 " +
            std::string(70, 'x') + " Disk.Bay.7:Enclosure.Internal.0-2:PCIeExtender.Slot.3");
        std::string text;
        for (uint32_t pieces = below(9); pieces > 0; --pieces) {
            text += kPieces[below(static_cast<uint32_t>(kPieces.size()))];
            text += below(8) == 0 ? " " : "";
        }
        return text;
    }
    // A text with its terminator, in a block without a byte more.
    Bytes narrow() {
        const std::string drawn = text();
        return {drawn.c_str(), drawn.c_str() + drawn.size() + 1};
    }
    // A text of 16-bit characters without terminator, of 1 to limit bytes.
    Bytes halves(uint32_t limit) {
        Bytes block;
        for (const char c : text() + "x") {
            block.insert(block.end(), {static_cast<uint8_t>(c), 0});
        }
        block.resize(std::min<size_t>(block.size() - below(2), limit));
        return block;
    }

  private:
    std::mt19937 engine_;
    std::vector<Bytes> pool_;  // what pointers lead to
};

const char* doing;  // for messages

// Calls a function with anything. What it gives back that is no result counts as 0.
template <auto function>
uint32_t any(Draw& draw) {
    doing = __PRETTY_FUNCTION__;
    return []<class Result, class... Types>(Result (*call)(Types...), Draw& d) -> uint32_t {
        const std::tuple<Types...> arguments{d.any<Types>()...};
        if constexpr (std::is_same_v<Result, uint32_t>) {
            return std::apply(call, arguments);
        } else if constexpr (std::is_same_v<Result, char*>) {
            vexel_free(std::apply(call, arguments));
        } else {
            std::apply(call, arguments);
        }
        return 0;
    }(function, draw);
}

template <auto function>
uint32_t read_fru(Draw& draw) {
    doing = __PRETTY_FUNCTION__;
    uint8_t* data = nullptr;
    uint32_t size = 0;
    const uint32_t result = function(&data, &size, draw.any<uint8_t>(), draw.any<uint8_t>());
    EXPECT_EQ(data != nullptr, result == 0);
    const Bytes copy(data, data + size);
    vexel_free(data);
    return result;
}

uint32_t enclosure_fqdd(Draw& draw) {
    doing = __func__;
    wchar_t* text = nullptr;
    rtcache_GetEnclosureFQDD(draw.number(), draw.number(), &text);
    vexel_free(text);
    return 0;
}

uint32_t tavi_revision(Draw& draw) {
    doing = __func__;
    Bytes data = draw.bytes(19);
    const std::string name = draw.text();
    data.insert(data.end(), name.begin(), name.end());
    data.resize(draw.below(60));
    return get_TAVI_Revison(data.data(), static_cast<uint32_t>(data.size()));
}

uint32_t tavi_fru(Draw& draw) {
    doing = __func__;
    return update_TAVI_FRU_Info(draw.bytes(15).data(), draw.any<uint8_t*>(), draw.any<uint8_t*>());
}

uint32_t store_fru(Draw& draw) {
    doing = __func__;
    const Bytes image = draw.bytes(draw.below(700));
    return RTSHM_StoreFRU(draw.any<uint8_t>(), draw.any<uint8_t>(), draw.any<uint8_t>(), 1, 2,
                          image.data(), static_cast<uint32_t>(image.size()));
}

// The two readers of an FQDD, which may come in 16-bit characters.
template <auto function, uint32_t limit, class Length, class... Outputs>
uint32_t take_fqdd_apart(Draw& draw) {
    doing = __PRETTY_FUNCTION__;
    const bool wide = draw.below(2) != 0;
    const Bytes text = wide ? draw.halves(limit) : draw.narrow();
    return function(reinterpret_cast<const char*>(text.data()),
                    static_cast<Length>(wide ? text.size() : 0), draw.any<Outputs>()...);
}

uint32_t status_block(Draw& draw) {
    doing = __func__;
    return updatePciessdiBCDDataToShm(draw.bytes(128).data());
}

uint32_t snapshot(Draw& draw) {
    doing = __func__;
    draw.fill(&fake::platform().snapshot, sizeof(BpApiInfo));
    NVMeHotPlugCallback(&fake::platform().snapshot);
    return rtshm_BpApiInit() + rtshm_BpDataUpdate();
}

uint32_t simulation(Draw& draw) {
    doing = __func__;
    for (const char* file : {vexutils::flag_paths.ssd_status, vexutils::flag_paths.ssd_fru}) {
        const Bytes bytes = draw.bytes(draw.below(5000));
        write_file(file, {bytes.begin(), bytes.end()});
    }
    return RTSHM_SimulatePCIeSSD();
}

// The results that it may have, and the call.
struct Operation {
    const char* results;
    uint32_t (*call)(Draw&);
};
const Operation kUnderTheCacheLock[] = {
    {"0", any<rtcache_GetAdapterFQDD>},
    {"0", any<rtcache_GetBatteryFQDD>},
    {"0", enclosure_fqdd},
    {"0", any<rtcache_PrintCache>},
    {"013", any<RTSHM_readBayIDAndSlotNoFromEID>},
    {"013", any<rtshm_IsDriveBehindKRONfromBPAPIByEID>},
    {"0", any<RTSHM_UpdateSharedMem>},
};
const Operation kOperations[] = {
    {"0", any<vexel_GetPCIeSSDFQDD>},
    {"03", any<rtshm_getNVMeExtcard>},
    {"023", any<processNVMeExtndrcardInfo>},
    {"0", any<rtshm_getNVMeBPs>},
    {"03", any<processNVMeBackplaneInfo>},
    {"02", any<rtshm_getExtenderSlotFromDriveSlot>},
    {"0", take_fqdd_apart<getBayIDandSlotFromFqdd, 255, uint8_t, uint8_t*, uint8_t*>},
    {"01",
     take_fqdd_apart<getSlotandSlotIndexfromFQDD, 4096, uint32_t, uint8_t*, uint8_t*, uint32_t*>},
    {"03", any<RTSHM_readSSDSlotNumFromGblSlotNum>},
    {"03", any<RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum>},
    {"03", any<RTSHM_readBayIDInfoFromGblSlotNum>},
    {"03", any<RTSHM_readBayIDAndSlotNoFromVDMEID>},
    {"0", any<rtshm_getI2CNVMeSSDEIDfromVDMEID>},
    {"023", read_fru<get_HBA_FRU_Info>},
    {"023", read_fru<get_KRON_TAVI_FRU_Info>},
    {"01", any<is_TAVI_A2_Present>},
    {"012", tavi_revision},
    {"023", tavi_fru},
    {"0", any<BlinkPCIeSSD>},
    {"0", any<UnBlinkPCIeSSD>},
    {"02", store_fru},
    {"02", any<RTSHM_StoreFRUTemp>},
    {"02", any<RTSHM_ClearFRU>},
    {"02", any<RTSHM_ClearFqdd>},
    {"02", any<RTSHM_Add_NVMeSSD_FQDD_toSHM>},
    {"023", any<RTSHM_GetPCIeSSDGlobalSlotNumberBase>},
    {"0", any<RTSHM_ReadPCIeSSDPresenceSharedMem>},
    {"03", any<RTSHM_readPciessdDriveStatusFromShm>},
    {"02", any<updatePciessdDriveStatusToShm>},
    {"0", status_block},
    {"03", any<rtshm_getPCIessdExtcard>},
    {"023", any<processPciessdExtndrcardInfo>},
    {"03", any<rtshm_getPCIessdBp>},
    {"023", any<processPciessdBackplaneInfo>},
    {"0", snapshot},
    {"0", simulation},
};

class HostileTables : public BackplaneTest {
  protected:
    void SetUp() override {
        BackplaneTest::SetUp();
        platform.record_lines(false);
        write_file(dump_, "");
        vexutils::flag_paths.cache_dump = dump_.c_str();
        vexutils::flag_paths.ssd_status = status_.c_str();
        vexutils::flag_paths.ssd_fru = fru_.c_str();
    }

    // Everything that the operations read, drawn anew.
    void draw_world(Draw& draw) {
        EXPECT_EQ(rtcache_Init(), 0u);
        for (const uint8_t eid : std::initializer_list<uint8_t>{20, 21, 254}) {
            rtcache_UpdateCachedObject(RTCACHE_REGISTER, eid, draw.below(20), 0);
            const CacheLock lock;
            store_nodes(draw, eid);
        }
        for (const int region : {15, 20, 26, 49}) {
            draw.fill(platform.region(region).data(), platform.region(region).size());
        }
        platform.frus.clear();
        for (int i = 0; i < 6; ++i) {
            fake::Platform::Fru fru;
            draw.fill(fru.info.data(), fru.info.size());
            fru.data = draw.bytes(draw.below(2) != 0 ? draw.below(100) : 0x10000);
            platform.frus[draw.any<uint16_t>()] = fru;
        }
        draw.fill(&sNVMeSSDBPInfo, sizeof(sNVMeSSDBPInfo));
        draw.fill(&sNVMeSSDBPVDMInfo, sizeof(sNVMeSSDBPVDMInfo));
    }

  private:
    template <class T>
    static T* made() {
        return static_cast<T*>(vexel_alloc(sizeof(T)));
    }
    // None, or one with or without an FQDD.
    static StorageObjectRecord* record(Draw& draw, uint32_t type) {
        if (draw.below(4) == 0) {
            return nullptr;
        }
        auto* record = made<StorageObjectRecord>();
        record->objType = type;
        record->hdr.VERSION = 1;
        if (draw.below(4) != 0) {
            const std::string text = draw.text();
            auto* copy = static_cast<wchar_t*>(vexel_alloc((text.size() + 1) * sizeof(wchar_t)));
            std::copy(text.begin(), text.end(), copy);
            record->hdr.FQDD = copy;
        }
        return record;
    }
    static void store(uint32_t key_type, uint8_t eid, uint16_t key, void* node) {
        EXPECT_EQ(rtcache_SetCachedObject(key_type, eid, key, node), 0u);
    }
    static void store_nodes(Draw& draw, uint8_t eid) {
        auto* controller = made<RtCacheControllerNode>();
        controller->objType = draw.below(2) != 0 ? RT_OBJ_ADAPTER : RT_NODE_PCIESSD_ADAPTER;
        controller->adapter = record(draw, RT_OBJ_ADAPTER);
        controller->battery = record(draw, RT_OBJ_BATTERY);
        store(RTCACHE_KEY_CONTROLLER, eid, eid, controller);
        static constexpr uint32_t kTypes[] = {RT_OBJ_PHYSICAL_DISK, RT_OBJ_ENCLOSURE,
                                              RT_OBJ_BACKPLANE};
        for (const uint16_t key : std::initializer_list<uint16_t>{0, 1, 3, 6, 255, 2047}) {
            auto* disk = made<RtCacheDiskNode>();
            disk->objType = kTypes[draw.below(3)];
            if (draw.below(4) != 0) {
                disk->enclObj = made<RtCacheEnclosureLink>();
                disk->enclObj->enclType.extEncl.Obj = record(draw, disk->objType);
            }
            store(RTCACHE_KEY_DISK, eid, key, disk);
        }
    }

    const std::string dump_ = path("dump"), status_ = path("status"), fru_ = path("fru");
};

TEST_F(HostileTables, EveryLookUpEndsWithADocumentedResult) {
    constexpr unsigned kWorlds = 24;
    constexpr unsigned kCalls = 8;
    for (unsigned seed = 1; seed <= kWorlds; ++seed) {
        Draw draw(seed);
        draw_world(draw);
        const auto call = [&](const Operation& operation) {
            const uint32_t result = operation.call(draw);
            draw.forget();
            EXPECT_NE(std::string{operation.results}.find(std::to_string(result)),
                      std::string::npos)
                << doing << " gave " << result << ", seed " << seed;
        };
        for (unsigned i = 0; i < kCalls && !HasFailure(); ++i) {
            std::ranges::for_each(kOperations, call);
            EXPECT_EQ(platform.locks_held, 0) << "seed " << seed;
            const CacheLock lock;
            std::ranges::for_each(kUnderTheCacheLock, call);
        }
        for (const fake::IpmiRequest& request : platform.ipmi_requests) {
            ASSERT_EQ(request.bytes.size(), 20u);
        }
        platform.ipmi_requests.clear();
        platform.clear_writes();
    }
}

}  // namespace
