#include <unistd.h>

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
    }

    static void drop(StorageObjectRecord*& record) {
        rtcache_FreeRMObjects(std::exchange(record, nullptr), 1);
    }

    // What the enclosure look-up gives.
    static std::string enclosure(uint32_t key) {
        wchar_t* fqdd = nullptr;
        const unsigned position = rtcache_GetEnclosureFQDD(kEid, key, &fqdd);
        vexel_free(fqdd);
        return std::to_string(position) + (fqdd != nullptr ? " copied" : " none");
    }
};

TEST_F(Lookup, AdaptersAndBatteriesAreNamedByTheirNode) {
    EXPECT_STREQ(rtcache_GetAdapterFQDD(kEid), L"RAID.Slot.1-1");
    EXPECT_EQ(rtcache_GetBatteryFQDD(kEid), controller.battery->hdr.FQDD);
    controller.objType = RT_NODE_PCIESSD_ADAPTER;
    EXPECT_STREQ(rtcache_GetAdapterFQDD(kEid), L"RAID.Slot.1-1");
    EXPECT_EQ(rtcache_GetBatteryFQDD(kEid), nullptr);
    controller.objType = RT_OBJ_FAN;
    EXPECT_EQ(rtcache_GetAdapterFQDD(kEid), nullptr);
    controller.objType = RT_OBJ_ADAPTER;
    drop(controller.adapter);
    EXPECT_EQ(rtcache_GetAdapterFQDD(kEid), nullptr);
    drop(controller.battery);
    EXPECT_EQ(rtcache_GetBatteryFQDD(kEid), nullptr);
    EXPECT_EQ(rtcache_GetAdapterFQDD(8), nullptr);
}

TEST_F(Lookup, EnclosuresAreCopiedAndPlaced) {
    EXPECT_EQ(enclosure(7), "6 copied");
    node.objType = RT_OBJ_BACKPLANE;
    EXPECT_EQ(enclosure(7), "6 copied");
    EXPECT_EQ(enclosure(0x10007), "0 none") << "a key beyond 16 bits reaches no slot";
    vexel_free(std::exchange(record.hdr.FQDD, nullptr));
    EXPECT_EQ(enclosure(7), "6 none");
    drop(node.enclObj->enclType.extEncl.Obj);
    EXPECT_EQ(enclosure(7), "0 none");
    vexel_free(std::exchange(node.enclObj, nullptr));
    EXPECT_EQ(enclosure(7), "0 none");
    node.objType = RT_OBJ_PHYSICAL_DISK;
    EXPECT_EQ(enclosure(7), "0 none");
    EXPECT_EQ(rtcache_GetEnclosureFQDD(kEid, 7, nullptr), 0);
}

TEST_F(Lookup, PcieSsdsAreNamedByTheirExtender) {
    sNVMeSSDBPInfo.slots[50 * 2 + 3].bayId = 2;
    sNVMeSSDBPInfo.slots[50 * 2 + 3].bayTechnology = 4;
    platform.region(20)[15 + 4 * 3] = 11;
    auto& extenders = platform.region(15);
    std::ranges::copy(Bytes{0,  0, 3, 0,                // count
                            21, 2, 0, 0, 200, 0, 0, 0,  // no extender of SSDs
                            22, 3, 0, 0, 204, 0, 0, 0,  // of another bay
                            23, 3, 0, 0, 208, 0, 0, 0},
                      extenders.begin());
    extenders[200] = extenders[208] = 2;
    extenders[204] = 1;
    for (const auto& [count, extender] :
         Rows<uint8_t, const char*>{{3, "23"}, {2, "255"}, {0, "255"}}) {
        extenders[2] = count;
        char* fqdd = vexel_GetPCIeSSDFQDD(3);
        EXPECT_EQ(fqdd,
                  std::string{"Disk.Bay.11:Enclosure.Internal.0-2:PCIeExtender.Slot."} + extender);
        vexel_free(fqdd);
        std::copy_n(extenders.begin() + 20, count == 2 ? 8 : 0, extenders.begin() + 4);
    }
    EXPECT_EQ(vexel_GetPCIeSSDFQDD(SHM_PCIESSD_SLOTS), nullptr) << "one beyond the region's table";
    sNVMeSSDBPInfo = {};
    EXPECT_EQ(vexel_GetPCIeSSDFQDD(3), nullptr);
}

TEST_F(Lookup, TheDumpFillsAFileThatExists) {
    const std::string file = path("dump");
    vexutils::flag_paths.cache_dump = file.c_str();
    write_file(path("target"), std::string(10000, 'x'));
    ASSERT_EQ(symlink(path("target").c_str(), file.c_str()), 0);
    EXPECT_EQ(rtcache_PrintCache(), -1) << "a link";
    std::filesystem::rename(path("target"), file);

    max_adapters = 2;
    RtCacheVirtualDiskNode* disk = make_virtual_disk();
    for (StorageObjectRecord* named : {&record, controller.adapter, disk->Obj}) {
        named->hdr.FQDD[4] = L'\u4e2d';
    }
    const RtCacheEnclosureLink no_record{};
    RtCacheDiskNode* const nodes[] = {
        make(RtCacheDiskNode{}), make(RtCacheDiskNode{RT_OBJ_ENCLOSURE, make(no_record)}),
        make_disk(RT_OBJ_FAN), make_disk(RT_OBJ_BACKPLANE), make_disk()};
    std::ranges::copy(nodes, cache_PDs[GetIndexFromEID(kEid)] + 8);
    cache_VDs[GetIndexFromEID(kEid)][2] = make(RtCacheVirtualDiskNode{});
    cache_VDs[GetIndexFromEID(kEid)][3] = disk;
    EXPECT_EQ(rtcache_PrintCache(), 0);
    EXPECT_EQ(file_content(file),
              " >>>> Controllers >>>>\nEID=9 RAID?Slot.1-1\n"
              " >>>> PDs >>>>\nIndex=0 DeviceID=7 Encl?sure.Internal.0-1\n"
              "Index=0 DeviceID=11 Disk.Bay.1\nIndex=0 DeviceID=12 Disk.Bay.1\n"
              " >>>> VDs >>>>\nIndex=0 TargetID=2 (null)\nIndex=0 TargetID=3 RAID?Slot.1-1\n"
              " >>>> PDs >>>>\n >>>> VDs >>>>\n");
}

}  // namespace
