#include <unistd.h>

#include "internal/vexel_state.h"
#include "rt_shm.h"
#include "tests/support/cache_test.h"

namespace {

class Lookup : public CacheTest {
  protected:
    static constexpr uint8_t kEid = 9;
    RtCacheControllerNode& controller = *make_controller();
    RtCacheDiskNode& node = *make_disk(RT_OBJ_ENCLOSURE, L"Enclosure.Internal.0-1");
    StorageObjectRecord& record = *node.enclObj->enclType.extEncl.Obj;

    void SetUp() override {
        CacheTest::SetUp();
        add_endpoint(kEid);
        record.body.enclosure.position = 6;
        cache_AllEIDs[kEid] = &controller;
        cache_PDs[GetIndexFromEID(kEid)][7] = &node;
        platform.clear_lines();
    }

    static void name(StorageObjectRecord& record, const wchar_t* fqdd) {
        vexel_free(std::exchange(record.hdr.FQDD, make_text(fqdd)));
    }
    static void drop(StorageObjectRecord*& record) {
        rtcache_FreeRMObjects(std::exchange(record, nullptr), 1);
    }

    // What the enclosure look-up gives, and its lines.
    std::string enclosure(uint32_t key) {
        platform.clear_lines();
        wchar_t before[] = L"";
        wchar_t* fqdd = before;
        const unsigned position = rtcache_GetEnclosureFQDD(kEid, key, &fqdd);
        std::string text = std::to_string(position) + (fqdd != nullptr ? " copied" : " none");
        vexel_free(fqdd);
        return text + "|" + lines_of("rtcache_GetEnclosureFQDD");
    }
};

TEST_F(Lookup, AdaptersAndBatteriesAreNamedByTheirNode) {
    EXPECT_STREQ(rtcache_GetAdapterFQDD(kEid), L"RAID.Slot.1-1");
    name(*controller.battery, L"Battery.1");
    EXPECT_STREQ(rtcache_GetBatteryFQDD(kEid), L"Battery.1");
    controller.objType = RT_NODE_PCIESSD_ADAPTER;
    EXPECT_STREQ(rtcache_GetAdapterFQDD(kEid), L"RAID.Slot.1-1");
    EXPECT_TRUE(platform.lines().empty());

    EXPECT_EQ(rtcache_GetBatteryFQDD(kEid), nullptr);
    drop(controller.adapter);
    EXPECT_EQ(rtcache_GetAdapterFQDD(kEid), nullptr);
    EXPECT_EQ(told(2), "<-- error4\n<-- error4\n");
    controller.objType = RT_OBJ_ADAPTER;
    drop(controller.battery);
    EXPECT_EQ(rtcache_GetAdapterFQDD(kEid), nullptr);
    EXPECT_EQ(rtcache_GetBatteryFQDD(kEid), nullptr);
    EXPECT_EQ(told(2), "<-- error3\n<-- error3\n");
    EXPECT_EQ(rtcache_GetAdapterFQDD(8), nullptr);
    EXPECT_EQ(told(2), "<-- error2\n");
    EXPECT_EQ(rtcache_GetBatteryFQDD(255), nullptr);
    EXPECT_TRUE(logged(2, "<-- error1"));
}

TEST_F(Lookup, EnclosuresAreCopiedAndPlaced) {
    const std::string start = "|4 Fetching FQDD of enclosure with EID:9 and EnclId:7|";
    const std::string end = "2 <--Failed to fetch the FQDD of enclosure with EID:9 and EnclId:7|";
    EXPECT_EQ(enclosure(7), "6 copied" + start + "4 Requesting enclosure FQDD is EXTERNAL|" +
                                "4 ENCL FQDD:Enclosure.Internal.0-1|4 <--ENCL Position:6|");
    node.objType = RT_OBJ_BACKPLANE;
    EXPECT_EQ(enclosure(7), "6 copied" + start + "4 Requesting enclosure FQDD is BACKPLANE|" +
                                "4 ENCL FQDD:Enclosure.Internal.0-1\n|4 <--ENCL Position:6|");
    name(record, nullptr);
    EXPECT_EQ(enclosure(7), "6 none" + start + "4 Requesting enclosure FQDD is BACKPLANE|" +
                                "4 <--ENCL Position:6|");
    drop(node.enclObj->enclType.extEncl.Obj);
    EXPECT_EQ(enclosure(7), "0 none" + start + "4 Requesting enclosure FQDD is BACKPLANE|" +
                                "2 <--pPdCache->enclObj->enclType.backPlane.Obj is NULL|" + end);
    vexel_free(std::exchange(node.enclObj, nullptr));
    EXPECT_EQ(enclosure(7), "0 none" + start + "2 <--pPdCache->enclObj is NULL|" + end);
    node.objType = RT_OBJ_PHYSICAL_DISK;
    EXPECT_EQ(enclosure(7), "0 none" + start + "2 <--pPdCache->objType is not ENCLOSURE|" + end);
    EXPECT_EQ(enclosure(0x10007), "0 none" + start + "2 <--pPdCache is NULL|" + end)
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
    cache_PDs[GetIndexFromEID(kEid)][8] = make(RtCacheDiskNode{});
    name(record, L"Disk.\u4e2d");
    cache_VDs[GetIndexFromEID(kEid)][2] =
        make(RtCacheVirtualDiskNode{RT_OBJ_VIRTUAL_DISK, nullptr});
    EXPECT_EQ(rtcache_PrintCache(), 0);
    EXPECT_EQ(file_content(file),
              " >>>> Controllers >>>>\nEID=9 RAID.Slot.1-1\n"
              " >>>> PDs >>>>\nIndex=0 DeviceID=7 Disk.?\n"
              " >>>> VDs >>>>\nIndex=0 TargetID=2 (null)\n"
              " >>>> PDs >>>>\n >>>> VDs >>>>\n");
}

}  // namespace
