// Regions, tables and texts full of anything, against every operation that reads them: a documented
// result each time, nothing left behind, and the sanitizers see that nothing outside is touched.
#include <algorithm>
#include <random>

#include "internal/vexel_state.h"
#include "tests/support/backplane_test.h"
#include "tests/support/cache_test.h"
#include "vexel.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

// Draws what is likely to be handled wrongly: numbers at limits, tables of one byte, texts of
// pieces.
class Draw {
  public:
    explicit Draw(unsigned seed) : engine_(seed) {}

    std::uint32_t below(std::uint32_t end) { return static_cast<std::uint32_t>(engine_() % end); }

    std::uint32_t number() {
        static constexpr std::uint32_t kLimits[] = {
            0,    1,      2,      3,      4,      5,          6,          7,         11,  15,  16,
            17,   20,     21,     31,     32,     35,         36,         49,        50,  60,  99,
            127,  128,    249,    250,    254,    255,        256,        511,       512, 513, 2047,
            2048, 0x7FFF, 0x8000, 0xFFFE, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
        return below(3) != 0 ? kLimits[below(std::size(kLimits))]
                             : static_cast<std::uint32_t>(engine_());
    }
    operator std::uint8_t() { return static_cast<std::uint8_t>(number()); }
    operator std::uint16_t() { return static_cast<std::uint16_t>(number()); }
    operator std::uint32_t() { return number(); }
    operator int() { return static_cast<int>(number()); }

    void fill(void* room, std::size_t size) {
        const bool limits = below(2) != 0;
        const auto constant = static_cast<std::uint8_t>(number());
        const bool same = below(4) == 0;
        std::generate_n(static_cast<std::uint8_t*>(room), size, [&]() -> std::uint8_t {
            return same ? constant : limits ? *this : static_cast<std::uint8_t>(engine_());
        });
    }
    Bytes bytes(std::size_t size) {
        Bytes block(size);
        fill(block.data(), size);
        return block;
    }

    std::string text() {
        static const std::string kPieces[] = {
            "Disk",
            "Bay",
            "Enclosure",
            "Internal",
            "0-",
            "PCIeExtender",
            "Slot",
            "PCIeSSD",
            "SL",
            "Integrated",
            "TAVI-A2",
            ".",
            ":",
            "-",
            " ",
            "%s%n",
            "4294967296",
            "-7",
            "255",
            "3",
            std::string(70, 'x'),
            "\xFF\x80",
            "PCIeSSD.Slot.3-1",
            "Disk.Bay.7:Enclosure.Internal.0-2:PCIeExtender.Slot.3"};
        std::string text;
        for (std::uint32_t pieces = below(9); pieces > 0; --pieces) {
            text += kPieces[below(std::size(kPieces))];
        }
        return text;
    }
    // A text with its terminator, in a block without a byte more.
    Bytes narrow() {
        const std::string drawn = text();
        return {drawn.c_str(), drawn.c_str() + drawn.size() + 1};
    }
    // A text of 16-bit characters without terminator, of 1 to limit bytes.
    Bytes halves(std::uint32_t limit) {
        Bytes block;
        for (const char c : text() + "x") {
            block.insert(block.end(), {static_cast<std::uint8_t>(c), 0});
        }
        block.resize(std::min<std::size_t>(block.size() - below(2), limit));
        return block;
    }

  private:
    std::mt19937 engine_;
};

struct Operation {
    const char* what;
    std::vector<std::uint32_t> results;
    bool holds_cache;
    std::uint32_t (*call)(Draw&);
};

// One output byte each; a result other than 0 leaves it.
template <class Get, class... Arguments>
std::uint32_t get_byte(Get get, Arguments... arguments) {
    const auto output = std::make_unique<std::uint8_t>(0xEE);
    const std::uint32_t result = get(output.get(), arguments...);
    EXPECT_TRUE(result == 0 || *output == 0xEE);
    return result;
}

std::uint32_t read_fru(decltype(get_HBA_FRU_Info)* function, Draw& draw) {
    std::uint8_t* data = nullptr;
    std::uint32_t size = 0;
    const std::uint32_t result = function(&data, &size, draw, draw);
    EXPECT_EQ(data != nullptr, result == 0);
    const Bytes copy(data, data + size);
    vexel_free(data);
    return result;
}

// A text that the library gave away, or none.
std::uint32_t freed(void* text) {
    vexel_free(text);
    return 0;
}

const Operation kOperations[] = {
    {"adapter FQDD", {0}, true, [](Draw& d) { return rtcache_GetAdapterFQDD(d), 0u; }},
    {"battery FQDD", {0}, true, [](Draw& d) { return rtcache_GetBatteryFQDD(d), 0u; }},
    {"enclosure FQDD",
     {0},
     true,
     [](Draw& d) {
         wchar_t* text = nullptr;
         rtcache_GetEnclosureFQDD(d, d, &text);
         return freed(text);
     }},
    {"SSD FQDD", {0}, false, [](Draw& d) { return freed(vexel_GetPCIeSSDFQDD(d)); }},
    {"dump", {0}, true, [](Draw&) { return static_cast<std::uint32_t>(rtcache_PrintCache()); }},
    {"extenders", {0, 3}, false, [](Draw&) { return rtshm_getNVMeExtcard(); }},
    {"extender", {0, 2, 3}, false, [](Draw& d) { return processNVMeExtndrcardInfo(d, d); }},
    {"backplanes", {0}, false, [](Draw&) { return rtshm_getNVMeBPs(); }},
    {"backplane",
     {0, 3},
     false,
     [](Draw& d) {
         NVMeBayEntry bay;
         NVMeSlotEntry slot;
         d.fill(&bay, sizeof(bay));
         d.fill(&slot, sizeof(slot));
         return processNVMeBackplaneInfo(&bay, &slot);
     }},
    {"extender of a slot",
     {0, 2},
     false,
     [](Draw& d) {
         std::uint8_t slot = 0;
         return rtshm_getExtenderSlotFromDriveSlot(d, d, &slot);
     }},
    {"bay and slot of an FQDD",
     {0},
     false,
     [](Draw& d) {
         std::uint8_t bay = 0, slot = 0;
         const bool wide = d.below(2) != 0;
         const Bytes text = wide ? d.halves(255) : d.narrow();
         return getBayIDandSlotFromFqdd(reinterpret_cast<const char*>(text.data()),
                                        static_cast<std::uint8_t>(wide ? text.size() : 0), &bay,
                                        &slot);
     }},
    {"slot and index of an FQDD",
     {0, 1},
     false,
     [](Draw& d) {
         std::uint8_t slot = 0, index = 0;
         std::uint32_t type = 0;
         const bool wide = d.below(2) != 0;
         const Bytes text = wide ? d.halves(4096) : d.narrow();
         return getSlotandSlotIndexfromFQDD(
             text.data(), static_cast<std::uint32_t>(wide ? text.size() : 0), &slot, &index, &type);
     }},
    {"slot of a global slot",
     {0, 3},
     false,
     [](Draw& d) { return get_byte(RTSHM_readSSDSlotNumFromGblSlotNum, int{d}); }},
    {"bay of a global slot",
     {0, 3},
     false,
     [](Draw& d) { return get_byte(RTSHM_readPCIeSSDBayIDInfoFromGblSlotNum, int{d}); }},
    {"bay of a slot",
     {0, 3},
     false,
     [](Draw& d) { return get_byte(RTSHM_readBayIDInfoFromGblSlotNum, unsigned{d}); }},
    {"position of an EID",
     {0, 1, 3},
     true,
     [](Draw& d) {
         std::uint8_t bay = 0, slot = 0;
         return RTSHM_readBayIDAndSlotNoFromEID(&bay, &slot, d);
     }},
    {"position of a VDM EID",
     {0, 3},
     false,
     [](Draw& d) {
         std::uint8_t bay = 0, slot = 0;
         return RTSHM_readBayIDAndSlotNoFromVDMEID(&bay, &slot, d);
     }},
    {"I2C EID of a VDM EID",
     {0},
     false,
     [](Draw& d) { return rtshm_getI2CNVMeSSDEIDfromVDMEID(d) * 0u; }},
    {"HBA FRU", {0, 2, 3}, false, [](Draw& d) { return read_fru(get_HBA_FRU_Info, d); }},
    {"KRON FRU", {0, 2, 3}, false, [](Draw& d) { return read_fru(get_KRON_TAVI_FRU_Info, d); }},
    {"TAVI-A2", {0, 1}, false, [](Draw&) { return is_TAVI_A2_Present(); }},
    {"TAVI revision",
     {0, 1, 2},
     false,
     [](Draw& d) {
         Bytes data = d.bytes(d.below(60));
         const std::string name = d.text();
         std::copy_n(name.begin(), data.size() > 19 ? std::min(name.size(), data.size() - 19) : 0,
                     data.begin() + (data.size() > 19 ? 19 : 0));
         return get_TAVI_Revison(data.data(), static_cast<std::uint32_t>(data.size()));
     }},
    {"TAVI FRU",
     {0, 2, 3},
     false,
     [](Draw& d) {
         std::uint8_t slot = 0, revision = 0;
         return update_TAVI_FRU_Info(d.bytes(15).data(), &slot, &revision);
     }},
    {"blink over IPMI", {0}, false, [](Draw& d) { return BlinkPCIeSSD(d, d); }},
    {"unblink over IPMI", {0}, false, [](Draw& d) { return UnBlinkPCIeSSD(d, d, d); }},
    {"store FRU",
     {0, 2},
     false,
     [](Draw& d) {
         const Bytes image = d.bytes(d.below(700));
         return RTSHM_StoreFRU(d, d, d, d, d, image.data(),
                               static_cast<std::uint32_t>(image.size()));
     }},
    {"store temperature", {0, 2}, false, [](Draw& d) { return RTSHM_StoreFRUTemp(d, d, d, d); }},
    {"clear FRU", {0, 2}, false, [](Draw& d) { return RTSHM_ClearFRU(d, d, d); }},
    {"clear FQDD", {0, 2}, false, [](Draw& d) { return RTSHM_ClearFqdd(d, d, d); }},
    {"store FQDD",
     {0, 2},
     false,
     [](Draw& d) {
         const Bytes text = d.narrow();
         return RTSHM_Add_NVMeSSD_FQDD_toSHM(d, reinterpret_cast<const char*>(text.data()));
     }},
    {"first global slot",
     {0, 2, 3},
     false,
     [](Draw& d) {
         std::uint8_t base = 0;
         return RTSHM_GetPCIeSSDGlobalSlotNumberBase(d, &base);
     }},
    {"presence", {0}, false, [](Draw&) { return get_byte(RTSHM_ReadPCIeSSDPresenceSharedMem); }},
    {"read status",
     {0, 3},
     false,
     [](Draw& d) {
         std::uint16_t status = 0;
         return RTSHM_readPciessdDriveStatusFromShm(&status, d);
     }},
    {"write status", {0, 2}, false, [](Draw& d) { return updatePciessdDriveStatusToShm(d, d); }},
    {"write all status",
     {0},
     false,
     [](Draw& d) { return updatePciessdiBCDDataToShm(d.bytes(128).data()); }},
    {"behind a KRON",
     {0, 1, 3},
     true,
     [](Draw& d) { return get_byte(rtshm_IsDriveBehindKRONfromBPAPIByEID, std::uint8_t{d}); }},
    {"card extenders", {0, 3}, false, [](Draw&) { return rtshm_getPCIessdExtcard(); }},
    {"card extender", {0, 2, 3}, false, [](Draw& d) { return processPciessdExtndrcardInfo(d, d); }},
    {"card backplanes", {0, 3}, false, [](Draw&) { return rtshm_getPCIessdBp(); }},
    {"card backplane",
     {0, 2, 3},
     false,
     [](Draw& d) { return processPciessdBackplaneInfo(d, d, d, d); }},
};

class HostileTables : public BackplaneTest {
  protected:
    void SetUp() override {
        BackplaneTest::SetUp();
        platform.record_lines(false);
        dump_ = path("dump");
        write_file(dump_, "");
        before_ = vexutils::flag_paths.cache_dump;
        vexutils::flag_paths.cache_dump = dump_.c_str();
    }
    void TearDown() override {
        vexutils::flag_paths.cache_dump = before_;
        BackplaneTest::TearDown();
    }

    // Everything that the operations read, drawn anew.
    void draw_world(Draw& draw) {
        EXPECT_EQ(rtcache_Init(), 0u);
        for (const std::uint8_t eid : {std::uint8_t{20}, std::uint8_t{21}, std::uint8_t{254}}) {
            rtcache_UpdateCachedObject(RTCACHE_REGISTER, eid, draw.below(20), 0);
        }
        const CacheLock lock;
        for (int i = 0; i < 8; ++i) {
            store(draw, RTCACHE_KEY_CONTROLLER, static_cast<std::uint8_t>(draw.below(255)));
            store(draw, RTCACHE_KEY_DISK, 20);
        }
        for (const int region : {15, 20, 26, 49}) {
            draw.fill(platform.region(region).data(), platform.region(region).size());
        }
        platform.frus.clear();
        for (int i = 0; i < 6; ++i) {
            fake::Platform::Fru fru;
            draw.fill(fru.info.data(), fru.info.size());
            fru.data = draw.bytes(draw.below(2) != 0 ? draw.below(100) : 0x10000);
            platform.frus[draw] = fru;
        }
        draw.fill(&sNVMeSSDBPInfo, sizeof(sNVMeSSDBPInfo));
        draw.fill(&sNVMeSSDBPVDMInfo, sizeof(sNVMeSSDBPVDMInfo));
    }

  private:
    static wchar_t* wide(Draw& draw) {
        const std::string text = draw.text();
        auto* copy = static_cast<wchar_t*>(vexel_alloc((text.size() + 1) * sizeof(wchar_t)));
        std::copy(text.begin(), text.end(), copy);
        return copy;
    }
    static StorageObjectRecord* record(Draw& draw, std::uint32_t type) {
        auto* made = static_cast<StorageObjectRecord*>(vexel_alloc(sizeof(StorageObjectRecord)));
        made->objType = type;
        made->hdr.VERSION = 1;
        made->hdr.FQDD = draw.below(4) != 0 ? wide(draw) : nullptr;
        return made;
    }
    // A node with or without what it may point to, where no other is.
    static void store(Draw& draw, std::uint32_t key_type, std::uint8_t eid) {
        const auto key =
            static_cast<std::uint16_t>(key_type == RTCACHE_KEY_DISK ? draw.below(2048) : eid);
        void* held = nullptr;
        if (rtcache_GetCachedObject(key_type, eid, key, &held) != 0 || held != nullptr) {
            return;
        }
        const bool whole = draw.below(4) != 0;
        if (key_type == RTCACHE_KEY_CONTROLLER) {
            auto* node =
                static_cast<RtCacheControllerNode*>(vexel_alloc(sizeof(RtCacheControllerNode)));
            node->objType = draw.below(2) != 0 ? RT_OBJ_ADAPTER : RT_NODE_PCIESSD_ADAPTER;
            node->adapter = whole ? record(draw, RT_OBJ_ADAPTER) : nullptr;
            node->battery = draw.below(2) != 0 ? record(draw, RT_OBJ_BATTERY) : nullptr;
            held = node;
        } else {
            auto* node = static_cast<RtCacheDiskNode*>(vexel_alloc(sizeof(RtCacheDiskNode)));
            static constexpr std::uint32_t kTypes[] = {RT_OBJ_PHYSICAL_DISK, RT_OBJ_ENCLOSURE,
                                                       RT_OBJ_BACKPLANE};
            node->objType = kTypes[draw.below(3)];
            if (whole) {
                node->enclObj =
                    static_cast<RtCacheEnclosureLink*>(vexel_alloc(sizeof(RtCacheEnclosureLink)));
                node->enclObj->enclType.extEncl.Obj =
                    draw.below(4) != 0 ? record(draw, node->objType) : nullptr;
            }
            held = node;
        }
        EXPECT_EQ(rtcache_SetCachedObject(key_type, eid, key, held), 0u);
    }

    std::string dump_;
    const char* before_ = nullptr;
};

TEST_F(HostileTables, EveryLookUpEndsWithADocumentedResult) {
    constexpr unsigned kWorlds = 24;
    constexpr unsigned kCalls = 8;
    for (unsigned seed = 1; seed <= kWorlds; ++seed) {
        Draw draw(seed);
        draw_world(draw);
        for (unsigned i = 0; i < kCalls * std::size(kOperations); ++i) {
            const Operation& operation = kOperations[i % std::size(kOperations)];
            std::uint32_t result = 0;
            if (operation.holds_cache) {
                const CacheLock lock;
                result = operation.call(draw);
            } else {
                result = operation.call(draw);
            }
            ASSERT_NE(std::ranges::find(operation.results, result), operation.results.end())
                << operation.what << " gave " << result << ", seed " << seed;
            ASSERT_EQ(platform.locks_held(), 0) << operation.what << ", seed " << seed;
        }
        for (const fake::IpmiRequest& request : platform.ipmi_requests) {
            ASSERT_EQ(request.bytes.size(), 20u);
        }
        platform.ipmi_requests.clear();
        platform.clear_writes();
    }
}

}  // namespace
