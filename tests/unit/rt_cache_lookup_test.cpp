#include <unistd.h>

#include "internal/vexel_state.h"
#include "rt_shm.h"
#include "tests/support/cache_test.h"

namespace {

wchar_t* wide(const wchar_t* text) {
    return const_cast<wchar_t*>(text);
}

// Nodes of one controller's row; the test keeps what the cache would own.
class Lookup : public CacheTest {
  protected:
    static constexpr uint8_t kEid = 9;
    StorageObjectRecord adapter{}, battery{}, record{};
    RtCacheControllerNode controller{};
    RtCacheEnclosureLink link{};
    RtCacheDiskNode node{};
    RtCacheVirtualDiskNode virtual_disk{};

    void SetUp() override {
        CacheTest::SetUp();
        add_endpoint(kEid);
        adapter.hdr.FQDD = wide(L"RAID.Slot.1");
        battery.hdr.FQDD = wide(L"Battery.1");
        record.hdr.FQDD = wide(L"Enclosure.Internal.0-1");
        record.body.enclosure.position = 6;
        controller.adapter = &adapter;
        controller.battery = &battery;
        cache_AllEIDs[kEid] = &controller;
        link.enclType.extEncl.Obj = &record;
        node = {RT_OBJ_ENCLOSURE, &link};
        cache_PDs[GetIndexFromEID(kEid)][7] = &node;
        platform.clear_lines();
    }

    void TearDown() override {
        cache_AllEIDs[kEid] = nullptr;
        cache_PDs[GetIndexFromEID(kEid)][7] = nullptr;
        cache_VDs[GetIndexFromEID(kEid)][2] = nullptr;
        CacheTest::TearDown();
    }

    // What the enclosure look-up gives, and its lines.
    std::string enclosure(uint32_t key) {
        platform.clear_lines();
        wchar_t* fqdd = wide(L"");
        const unsigned position = rtcache_GetEnclosureFQDD(kEid, key, &fqdd);
        std::string text = std::to_string(position) + (fqdd != nullptr ? " copied" : " none");
        vexel_free(fqdd);
        for (const std::string& line : logged_lines()) {
            text += "|" + line;
        }
        return text;
    }
};

TEST_F(Lookup, AdaptersAndBatteriesAreNamedByTheirNode) {
    EXPECT_STREQ(rtcache_GetAdapterFQDD(kEid), L"RAID.Slot.1");
    EXPECT_STREQ(rtcache_GetBatteryFQDD(kEid), L"Battery.1");
    controller.objType = RT_NODE_PCIESSD_ADAPTER;
    EXPECT_STREQ(rtcache_GetAdapterFQDD(kEid), L"RAID.Slot.1");
    EXPECT_TRUE(platform.lines().empty());

    EXPECT_EQ(rtcache_GetBatteryFQDD(kEid), nullptr);
    controller.adapter = nullptr;
    EXPECT_EQ(rtcache_GetAdapterFQDD(kEid), nullptr);
    EXPECT_EQ(logged_lines(), (Lines{"2 <-- error4", "2 <-- error4"}));
    controller.objType = RT_OBJ_ADAPTER;
    controller.battery = nullptr;
    EXPECT_EQ(rtcache_GetAdapterFQDD(kEid), nullptr);
    EXPECT_EQ(rtcache_GetBatteryFQDD(kEid), nullptr);
    EXPECT_EQ(logged_lines(), (Lines{"2 <-- error3", "2 <-- error3"}));
    EXPECT_EQ(rtcache_GetAdapterFQDD(8), nullptr);
    EXPECT_EQ(logged_lines(), Lines{"2 <-- error2"});
    EXPECT_EQ(rtcache_GetBatteryFQDD(255), nullptr);
    EXPECT_EQ(logged_lines().back(), "2 <-- error1");
}

TEST_F(Lookup, EnclosuresAreCopiedAndPlaced) {
    const std::string start = "|4 Fetching FQDD of enclosure with EID:9 and EnclId:7";
    const std::string end = "|2 <--Failed to fetch the FQDD of enclosure with EID:9 and EnclId:7";
    EXPECT_EQ(enclosure(7), "6 copied" + start + "|4 Requesting enclosure FQDD is EXTERNAL" +
                                "|4 ENCL FQDD:Enclosure.Internal.0-1|4 <--ENCL Position:6");
    node.objType = RT_OBJ_BACKPLANE;
    EXPECT_EQ(enclosure(7), "6 copied" + start + "|4 Requesting enclosure FQDD is BACKPLANE" +
                                "|4 ENCL FQDD:Enclosure.Internal.0-1\n|4 <--ENCL Position:6");
    record.hdr.FQDD = nullptr;
    EXPECT_EQ(enclosure(7), "6 none" + start + "|4 Requesting enclosure FQDD is BACKPLANE" +
                                "|4 <--ENCL Position:6");
    link.enclType.extEncl.Obj = nullptr;
    EXPECT_EQ(enclosure(7), "0 none" + start + "|4 Requesting enclosure FQDD is BACKPLANE" +
                                "|2 <--pPdCache->enclObj->enclType.backPlane.Obj is NULL" + end);
    node.enclObj = nullptr;
    EXPECT_EQ(enclosure(7), "0 none" + start + "|2 <--pPdCache->enclObj is NULL" + end);
    node.objType = RT_OBJ_PHYSICAL_DISK;
    EXPECT_EQ(enclosure(7), "0 none" + start + "|2 <--pPdCache->objType is not ENCLOSURE" + end);
    EXPECT_EQ(enclosure(0x10007), "0 none" + start + "|2 <--pPdCache is NULL" + end)
        << "a key beyond 16 bits reaches no slot";
    EXPECT_EQ(rtcache_GetEnclosureFQDD(kEid, 7, nullptr), 0);
}

TEST_F(Lookup, PcieSsdsAreNamedByTheirExtender) {
    sNVMeSSDBPInfo.slots[50 * 2 + 3].bayId = 2;
    sNVMeSSDBPInfo.slots[50 * 2 + 3].bayTechnology = 4;
    platform.region(20)[15 + 4 * 3] = 11;
    auto& extenders = platform.region(15);
    std::ranges::copy(Bytes{0,  0, 3, 0,                    // count
                            21, 2, 0, 0, 200,  0,    0, 0,  // no extender of SSDs
                            22, 3, 0, 0, 204,  0,    0, 0,  // of another bay
                            23, 3, 0, 0, 0xFF, 0xFF, 0, 0},
                      extenders.begin());
    extenders[200] = extenders[0xFFFF] = 2;
    extenders[204] = 1;
    const auto name = [] {
        char* fqdd = vexel_GetPCIeSSDFQDD(3);
        const std::string text = fqdd != nullptr ? fqdd : "none";
        vexel_free(fqdd);
        return text;
    };
    EXPECT_EQ(name(), "Disk.Bay.11:Enclosure.Internal.0-2:PCIeExtender.Slot.23");
    extenders[2] = 2;
    EXPECT_EQ(name(), "Disk.Bay.11:Enclosure.Internal.0-2:PCIeExtender.Slot.255");
    extenders[2] = extenders[3] = 0xFF;
    extenders[0xFFFF] = 1;
    EXPECT_EQ(name(), "Disk.Bay.11:Enclosure.Internal.0-2:PCIeExtender.Slot.255");
    EXPECT_TRUE(logged(3, "extender entries:65535 limited to 16"));

    for (const auto& [place, nth, line] : Rows<Place, int, const char*>{
             {Place::ShmRead, 1, "Failed while getting slot"},
             {Place::Allocation, 1, "Failed to allocate memory"},
             {Place::ShmRead, 2, "error, SHM read"},
             {Place::ShmRead, 3, "error, SHM read"},
             {Place::Allocation, 2, "vexel_GetPCIeSSDFQDD Failed while constructing FQDD"}}) {
        platform.clear_lines();
        platform.fail(place, nth);
        const AllocationScope counted;
        EXPECT_EQ(name(), "none");
        EXPECT_TRUE(logged(2, line)) << line;
    }
    platform.clear_lines();
    EXPECT_EQ(vexel_GetPCIeSSDFQDD(SHM_PCIESSD_SLOTS), nullptr) << "one beyond the region's table";
    EXPECT_TRUE(logged(2, "Failed while getting slot"));
    sNVMeSSDBPInfo = {};
    EXPECT_EQ(name(), "none");
    EXPECT_TRUE(logged(2, "Failed while getting bayID"));
}

TEST_F(Lookup, TheDumpFillsAFileThatExists) {
    const std::string file = path("dump");
    vexutils::flag_paths.cache_dump = file.c_str();
    EXPECT_EQ(rtcache_PrintCache(), -1);
    EXPECT_NE(access(file.c_str(), F_OK), 0);
    ASSERT_EQ(symlink(path("target").c_str(), file.c_str()), 0);
    write_file(path("target"), "kept");
    EXPECT_EQ(rtcache_PrintCache(), -1) << "a link";
    EXPECT_EQ(file_content(path("target")), "kept");
    unlink(file.c_str());

    write_file(file, std::string(10000, 'x'));
    max_adapters = 2;
    record.hdr.FQDD = wide(L"Disk.\u4e2d");
    virtual_disk = {RT_OBJ_VIRTUAL_DISK, nullptr};
    cache_VDs[GetIndexFromEID(kEid)][2] = &virtual_disk;
    EXPECT_EQ(rtcache_PrintCache(), 0);
    EXPECT_EQ(file_content(file),
              " >>>> Controllers >>>>\nEID=9 RAID.Slot.1\n"
              " >>>> PDs >>>>\nIndex=0 DeviceID=7 Disk.?\n"
              " >>>> VDs >>>>\nIndex=0 TargetID=2 (null)\n"
              " >>>> PDs >>>>\n >>>> VDs >>>>\n");
}

}  // namespace
