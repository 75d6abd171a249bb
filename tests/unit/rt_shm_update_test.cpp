#include "rt_shm.h"
#include "rt_sync.h"
#include "tests/support/cache_test.h"

namespace {

constexpr auto kDirect = L"Disk.Direct.0";

// Where readers find things in region 3.
constexpr size_t kControllers = 0, kPciSlot = 4, kTemperature = 20, kBatteryTemperature = 84,
                 kKind = 548, kPolling = 580, kDrives = 724, kBay = 728, kMedia = 1493,
                 kDriveTemperature = 2003, kChassisSlot = 4808, kBatteries = 23678,
                 kComplete = 23698, kTape = 23702;

class Update : public CacheTest {
  protected:
    void SetUp() override {
        CacheTest::SetUp();
        EXPECT_EQ(RTSync_Init(), 0u);
        g_IsTapeDrivePresent = TAPE_UNKNOWN;
    }
    void TearDown() override {
        rtshm_BpApiKronExit();
        RTSync_Destroy();
        CacheTest::TearDown();
    }

    static RtCacheControllerNode& controller(uint8_t eid, uint8_t type, uint16_t device = 0x1234) {
        add_endpoint(eid, type);
        rtcache_SetStorageEIDStatus(eid, 2);  // its inventory is done
        RtCacheControllerNode* node = make_controller();
        node->pciInfo->device = device;
        node->adapter->body.adapter.capability = device;  // for newer ones: bit 4 is a battery
        node->adapter->body.adapter.temperature = 45;
        node->adapter->body.adapter.batteryTemperature = 31;
        return *(cache_AllEIDs[eid] = node);
    }
    static RtCacheDiskNode*& slot(uint8_t eid, uint16_t id) {
        return cache_PDs[GetIndexFromEID(eid)][id];
    }
    static PhysicalDiskBody& disk(uint8_t eid, uint16_t id, const wchar_t* fqdd = kDirect,
                                  uint16_t enclosure = RT_ENCLOSURE_NONE) {
        slot(eid, id) = make_disk(RT_OBJ_PHYSICAL_DISK, fqdd);
        PhysicalDiskBody& added = slot(eid, id)->enclObj->enclType.physicalDisk.Obj->body.pd;
        added.enclosureId = enclosure;
        added.temperature = 38;
        return added;
    }
    static EnclosureBody& enclosure(uint8_t eid, uint16_t key, uint32_t type) {
        slot(eid, key) = make_disk(type, L"");
        return slot(eid, key)->enclObj->enclType.extEncl.Obj->body.enclosure;
    }

    void run(uint32_t kron_total = 0) {
        const CacheLock lock;
        platform.clear_lines();
        EXPECT_EQ(RTSHM_UpdateSharedMem(kron_total), 0u);
    }

    // The first byte of each, in decimal.
    std::string at(std::initializer_list<size_t> offsets) {
        std::string text;
        for (const size_t offset : offsets) {
            text += (text.empty() ? "" : " ") + std::to_string(platform.region(3)[offset]);
        }
        return text;
    }
};

TEST_F(Update, PublishesASmallServerByteByByte) {
    RtCacheControllerNode& kron = controller(8, RTCACHE_TYPE_KRON);
    *kron.pciInfo = {0x0B, 0x01, 0x1111, 0x1234, 0x2222, 0x3333};
    AdapterBody& adapter = kron.adapter->body.adapter;
    std::iota(adapter.ctrlValueA, adapter.ctrlValueA + 8, uint8_t{1});
    std::iota(adapter.ctrlValueB, adapter.ctrlValueB + 8, uint8_t{0x11});
    adapter.ctrlAttr = 0x5C;
    adapter.thermalPDPollDisable = 1;
    kron.battery->body.battery.state = 3;
    EnclosureBody& backplane = enclosure(8, 100, RT_OBJ_BACKPLANE);
    backplane.bayId = 2;
    backplane.enclosureType = 9;
    PhysicalDiskBody& pd = disk(8, 5, L"Disk.Bay.7:Enclosure.Internal.0-2", 100);
    pd.protocol = 0x0204;
    pd.nominalRPM = 10000;
    pd.size = 1200000000000;
    pd.state = 0x1234ABCD;
    pd.slot = 4;
    pd.media = 0x02;
    pd.formFactor = 3;
    pd.refTemp = 60;
    pd.critTemp = 70;
    pd.impedance = 7;
    // Only the last is the controller's and has the drive: first id, second id, RAID, controller's.
    for (const auto& [first, second, raid, known] : Rows<uint8_t, uint8_t, uint8_t, uint8_t>{
             {2, 6, 1, 0}, {1, 0, 1, 0}, {2, 0, 3, 0}, {4, 0, 2, 2}, {3, 0, 2, 2}}) {
        BpApiBay& bay = platform.snapshot.bays[platform.snapshot.bayCnt++];
        bay.bayId = first;
        bay.secondId = second;
        bay.raidManagement = raid;
        bay.secondary = known != 0;
        bay.controllerBay = known;
    }
    for (const Bytes& drive : {Bytes{0, 0, 2, 9, 4}, {0, 0, 4, 8, 5}, {0, 0, 3, 7, 4}}) {
        std::ranges::copy(drive, platform.snapshot.drives + 18 * platform.snapshot.driveCnt++);
    }
    controller(9, RTCACHE_TYPE_HBA, 0x97).adapter->body.adapter.temperature = RT_TEMPERATURE_NONE;
    rtcache_SetModularId(9, 1);
    disk(9, 0, (L"Tape." + std::wstring(80, L'\u00e4')).c_str()).protocol = 0x100;
    disk(8, 6).protocol = 0x100;  // behind a KRON such a drive is left out
    disk(8, 7).multipath = 1;     // and this one, whose primary path is 0
    run(1);

    Bytes image(23706, 0xFF);
    const std::string cut = "Tape." + std::string(64, '?');  // 69 characters
    const auto text = [](const std::string& narrow) {
        Bytes bytes(narrow.begin(), narrow.end());
        bytes.resize(70);
        return bytes;
    };
    // clang-format off
    const std::pair<ptrdiff_t, Bytes> parts[] = {
        {0, {2, 0, 0, 0, 0x85}}, {20, {45, 0, 0, 0}}, {84, {31, 0, 0, 0}},
        {148, {0x11, 0x11, 0, 0, 0, 0, 0, 0}}, {212, {0x34, 0x12, 0, 0, 0x97, 0, 0, 0}},
        {276, {0x22, 0x22, 0, 0, 0, 0, 0, 0}}, {340, {0x33, 0x33, 0, 0, 0, 0, 0, 0}},
        {404, {0, 1}}, {420, {1, 2, 3, 4, 5, 6, 7, 8}}, {548, {0, 1}}, {564, {0x5C, 0}},
        {580, {1, 0}}, {596, {0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18}},
        {724, {2, 0, 0, 0, 2, 0}}, {983, {7, 0}}, {1238, {4, 0}}, {1493, {1, 2}}, {1748, {3, 0}},
        {2003, {38, 38}}, {2258, {0x10, 0x27, 0, 0, 0, 0, 0, 0}}, {3533, {0xCD, 0xAB, 1, 0}},
        {4043, {0x5D, 0x04, 0, 0}}, {4553, {7, 0}}, {4808, {2, 0}}, {5063, {9, 0}},
        {5318, {60, 0}}, {5573, {70, 0}}, {5828, text("Disk.Bay.7:Enclosure.Internal.0-2")},
        {5898, text(cut)},
        {23678, {1, 0, 0, 0, 0x85}}, {23690, {3}}, {23698, {1, 0, 0, 0, 1, 0, 0, 0}}};
    // clang-format on
    for (const auto& [offset, bytes] : parts) {
        std::ranges::copy(bytes, image.begin() + offset);
    }
    EXPECT_EQ(platform.region(3), image);
}

TEST_F(Update, TypeInventoryStateAndPollingFlagsDecideWhatIsTold) {
    const char* const left_out = "0 255 255 255 255 255 255 255";
    // controllers, complete; temperatures of controller, battery and drive; polling, kind, PCI slot
    for (const auto& [what, type, device, state, phase, flags, published] :
         Rows<const char*, uint8_t, uint16_t, uint8_t, uint32_t, uint8_t, const char*>{
             {"KRON", 1, 1, 2, 0, 1, "1 1 45 31 38 0 0 0"},
             {"KRON, not polled", 1, 1, 2, 0, 2, "1 1 255 255 255 0 0 0"},
             {"KRON, partial", 1, 1, 3, 0, 0, left_out},
             {"KRON, without battery", 1, 0x2199, 2, 0, 0, "1 1 45 255 38 0 0 0"},
             {"KRON, not integrated", 1, 0x2212, 2, 0, 0, "1 1 45 31 255 254 0 0"},
             {"KRON 18, partial", 18, 0x10, 3, 0, 0, "1 1 45 31 38 0 0 0"},
             {"KRON 18, without battery", 18, 0xFFEF, 2, 0, 0, "1 1 45 255 38 0 0 0"},
             {"HBA, not polled", 10, 1, 0, 0, 1, "1 255 45 255 255 1 1 255"},
             {"HBA, always polled", 10, 0x1FD3, 0, 0, 3, "1 255 45 255 38 0 1 255"},
             {"HBA, inventoried again", 10, 1, 2, RTSYNC_PHASE_HBA_REINVENTORY, 0, left_out},
             {"controller 12, not polled", 12, 1, 0, 0, 2, "1 255 255 255 255 1 2 255"},
             {"boot card, not polled", 17, 1, 0, 0, 2, "1 255 45 255 255 1 4 255"},
             {"NVMe", 7, 1, 2, 0, 0, left_out}}) {
        grtsync_Status.phase = phase;
        controller(8, type, device);
        rtcache_SetStorageEIDStatus(8, state);
        disk(8, 0);
        platform.region(55)[522] = flags;
        run(1);
        EXPECT_EQ(at({kControllers, kComplete, kTemperature, kBatteryTemperature, kDriveTemperature,
                      kPolling, kKind, kPciSlot}),
                  published);
        rtcache_Init();
    }
}

TEST_F(Update, WhatIsIncompleteIsLeftOut) {
    add_endpoint(7);  // nothing is known of it yet
    rtcache_SetStorageEIDStatus(7, 2);
    vexel_free(std::exchange(controller(8, RTCACHE_TYPE_KRON).pciInfo, nullptr));
    controller(9, RTCACHE_TYPE_BOOT_CARD);
    slot(9, 0) = make(RtCacheDiskNode{RT_OBJ_PHYSICAL_DISK, nullptr});
    slot(9, 1) = make(RtCacheDiskNode{RT_OBJ_ENCLOSURE, nullptr});
    slot(9, 2) = make(RtCacheDiskNode{RT_OBJ_ENCLOSURE, make(RtCacheEnclosureLink{})});
    disk(9, 3, kDirect, 1);
    disk(9, 4, kDirect, 2);
    controller(10, RTCACHE_TYPE_HBA);
    grtsync_Status.phase = RTSYNC_PHASE_HBA_REINVENTORY;
    run();
    EXPECT_EQ(at({kControllers, kKind, kDrives, kBay, kBay + 1, kComplete, kTape}),
              "1 4 2 0 0 255 0");
    EXPECT_TRUE(logged(2, "FQDD is not either TAVI or ROR"));
    std::wcscpy(cache_AllEIDs[9]->adapter->hdr.FQDD, L"ROR.Slot.1");
    run();
    EXPECT_FALSE(logged(2, "FQDD is not either TAVI or ROR"));
}

TEST_F(Update, AnEndpointThatLeavesMeanwhileHasNoDrives) {
    controller(8, RTCACHE_TYPE_KRON);
    disk(8, 0);
    platform.on_line = [this] {
        if (platform.lines().back().message.starts_with("UpdateSHM:")) {
            cache_StorageEIDInfo.storageEID[0] = RTCACHE_EID_FREE;
        }
    };
    run();
    platform.on_line = nullptr;
    EXPECT_EQ(at({kControllers, kDrives}), "1 0");
}

TEST_F(Update, NothingIsEnteredBeyondTheRegion) {
    for (uint8_t eid = 1; eid <= 17; ++eid) {
        controller(eid, RTCACHE_TYPE_KRON);
    }
    for (uint16_t id = 0; id < 256; ++id) {
        disk(16, id);
    }
    run(16);  // the seventeenth is not counted either
    EXPECT_EQ(at({kControllers, kDrives, kBatteries, kBatteries + 4, kComplete}), "16 255 8 0 1");
    rtcache_Init();
    controller(254, RTCACHE_TYPE_KRON);
    disk(254, 2046);
    disk(254, 2047);
    run();
    EXPECT_EQ(at({kDrives}), "1") << "the last slot is not looked at";
}

TEST_F(Update, WaitsForATapeDriveBeforeItIsCalledAbsent) {
    controller(9, RTCACHE_TYPE_HBA);
    disk(9, 0, L"Tape.1");
    run();  // the count starts afresh
    vexutils::free_disk(slot(9, 0));
    disk(9, 1);
    run();
    EXPECT_EQ(at({kTape}), "2") << "a known answer changes at once";
    g_IsTapeDrivePresent = TAPE_UNKNOWN;
    for (int i = 1; i <= 122; ++i) {
        run();
        ASSERT_EQ(at({kTape}), i <= 121 ? "0" : "2") << i;
    }
}

TEST_F(Update, DrivesArePlacedByEnclosureOrFqdd) {
    // drives, bay, chassis slot, media
    for (const auto& [what, type, fqdd, key, enclosure_type, external, published] :
         Rows<const char*, uint8_t, const wchar_t*, uint16_t, uint32_t, uint8_t, const char*>{
             {"direct", 1, kDirect, 0xFFFF, 2, 0, "1 0 0 0"},
             {"neither, left out", 1, L"Disk.Bay.0", 0xFFFF, 2, 0, "0 255 255 255"},
             {"tape behind KRON", 18, L"Tape.1", 0xFFFF, 2, 0, "1 0 0 2"},
             {"tape of an HBA", 10, L"Tape.1", 9, 2, 1, "1 3 4 2"},
             {"in an enclosure", 1, L"Tape.1", 9, 2, 1, "1 3 4 0"},
             {"backplane", 18, L"", 9, 240, 0, "1 3 3 0"},
             {"backplane of an HBA", 10, L"", 9, 240, 0, "1 0 0 0"},
             {"a disk", 1, L"", 0, 2, 1, "1 0 0 0"}}) {
        controller(8, type);
        EnclosureBody& place = enclosure(8, 9, enclosure_type);
        place.bayId = 3;
        place.chassisSlot = 4;
        place.externalFlag = external;
        disk(8, 0, fqdd, key);
        run();
        EXPECT_EQ(at({kDrives, kBay, kChassisSlot, kMedia}), published);
        rtcache_Init();
    }
}

}  // namespace
