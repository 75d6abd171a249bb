#include <set>

#include "rt_shm.h"
#include "rt_sync.h"
#include "tests/support/cache_test.h"

namespace {

constexpr uint8_t kDone = 2;
constexpr auto kDirect = L"Disk.Direct.0";

// Where readers find things in region 3.
constexpr size_t kControllers = 0, kPciSlot = 4, kTemperature = 20, kBatteryTemperature = 84,
                 kPolling = 580, kDrives = 724, kBay = 728, kSlot = 983, kMedia = 1493,
                 kDriveTemperature = 2003, kChassisSlot = 4808, kBatteries = 23678,
                 kComplete = 23698, kTape = 23702;

class Update : public CacheTest {
  protected:
    void SetUp() override {
        CacheTest::SetUp();
        ASSERT_EQ(RTSync_Init(), 0u);
        g_IsTapeDrivePresent = TAPE_UNKNOWN;
    }

    void TearDown() override {
        rtshm_BpApiKronExit();
        RTSync_Destroy();
        CacheTest::TearDown();
    }

    static RtCacheControllerNode& controller(uint8_t eid, uint8_t type, uint16_t device = 0x1234,
                                             const wchar_t* fqdd = L"RAID.1") {
        add_endpoint(eid, type);
        rtcache_SetStorageEIDStatus(eid, kDone);
        RtCacheControllerNode* node = make_controller(RT_OBJ_ADAPTER, fqdd);
        node->pciInfo->device = device;
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

    void snapshot_drive(uint8_t index, uint8_t bay, uint8_t slot, uint8_t controller_slot) {
        BpApiDrive added{};
        added.bayId = bay;
        added.slot = slot;
        added.controllerSlot = controller_slot;
        platform.add_drive(index, added);
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
    backplane.secondId = 6;
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
    pd.enclosureType = 1;
    pd.impedance = 7;
    platform.snapshot.bayCnt = 1;
    platform.snapshot.driveCnt = 1;
    platform.snapshot.bays[0].bayId = 2;
    platform.snapshot.bays[0].secondId = 6;
    platform.snapshot.bays[0].raidManagement = 1;
    snapshot_drive(0, 2, 7, 4);
    controller(9, RTCACHE_TYPE_HBA, 0x97).adapter->body.adapter.temperature = RT_TEMPERATURE_NONE;
    rtcache_SetModularId(9, 1);
    disk(9, 0, L"Tape.1").state = 0x0100;
    run(1);

    Bytes image(23706, 0xFF);
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
        {2003, {38, 38}}, {2258, {0x10, 0x27, 0, 0, 0, 0, 0, 0}}, {3533, {0xCD, 0xAB, 1, 1}},
        {4043, {0x5D, 0x04, 0, 0}}, {4553, {7, 0}}, {4808, {2, 0}}, {5063, {9, 0}},
        {5318, {60, 0}}, {5573, {70, 0}}, {5828, text("Disk.Bay.7:Enclosure.Internal.0-2")},
        {5898, text("Tape.1")},
        {23678, {1, 0, 0, 0, 0x85}}, {23690, {3}}, {23698, {1, 0, 0, 0, 1, 0, 0, 0}}};
    // clang-format on
    for (const auto& [offset, bytes] : parts) {
        std::ranges::copy(bytes, image.begin() + offset);
    }
    EXPECT_EQ(platform.region(3), image);

    EXPECT_EQ(lines_of("RTSHM_UpdateSharedMem"),
              "4 ControllerStruct 724 PDStruct 22954 BatteryStruct 24|4 kronTotalCount = 1|"
              "2 DisableHBADrivePolling:0 DisableKRONDrivePolling0 |"
              "4 --> Reading BPAPI to Update SharedMem  RTSHM_UpdateSharedMem|"
              "4  Read Status 0 BP_API_Read Success |"
              "4 UpdateSHM: ctrlId=8 u8Type=1 bInventoryFailed=2 |"
              "4 Endpoint detected with u8Type=1 lclKronCount=1|"
              "4 shm:Updating temperature[0]: 38|4 pdShmStatus abcd Slot 4|"
              "4 Drive Capacity : 1117 & Impedance : 7|4 enclosure is internal BACKPLANE|"
              "4  Bay Id: 2 u8BayNo: 0 bay->raidMgmt:1 u8BayCount:1|"
              "4 Primary BP BpAPI_Bay:2 bay->isPrimary:0 dsBayCnt:0|"
              "4 BpAPI_Bay:2 Kron_Bay:2 Bp_slot:7 Kron_Slot:4|"
              "4 --> Fqdd populated in shared memory:Disk.Bay.7:Enclosure.Internal.0-2|"
              "4  Not of type PHYSICALDISK, so continue|"
              "4 UpdateSHM: ctrlId=9 u8Type=10 bInventoryFailed=2 |"
              "4 shm:Updating temperature[1]: 38|4 pdShmStatus 101 Slot 0|"
              "4 Drive Capacity : 0 & Impedance : 0|4 PDStruct.au8DriveMediaType[1]:2|"
              "4 --> Fqdd populated in shared memory:Tape.1|"
              "4 Before lclKronCnt[1] kronTotalCnt[1] vexel_inventory[255] lclHBAInvFlag[0]|"
              "4 After : lclKronCount 1 kronTotalCount 1 vexel_inventory 1 lclHBAInvFlag 0|"
              "4 --> Setting tape drive presense:1 wait count 120:0|"
              "4 --> Writing to tape drive section 1|");
}

TEST_F(Update, EndpointsArePublishedByTypeAndInventoryState) {
    // count, complete
    for (const auto& [what, type, state, published, line] :
         Rows<const char*, uint8_t, uint8_t, const char*, const char*>{
             {"KRON", 1, 2, "1 1", nullptr},
             {"KRON, partial", 1, 3, "0 255",
              "KRON re-inventory is in progress for KRON ctrlId:[7]"},
             {"KRON 18, partial", 18, 3, "1 1",
              "Ignoring the partial inventory case for KRON ctrlId:[7]"},
             {"KRON 18, started", 18, 1, "0 255", nullptr},
             {"HBA, any state", 10, 0, "1 255", nullptr},
             {"controller 12", 12, 0, "1 255", nullptr},
             {"boot card", 17, 0, "1 255", "TAVI-B1 Temperature = 45"},
             {"NVMe", 7, 2, "0 255", "Not KRON or HBA or TAVI, ignoring"}}) {
        controller(7, type);
        rtcache_SetStorageEIDStatus(7, state);
        run(1);
        EXPECT_EQ(at({kControllers, kComplete}), published);
        EXPECT_TRUE(line == nullptr || logged(4, line));
        rtcache_Init();
    }
    vexel_free(std::exchange(controller(3, 1).pciInfo, nullptr));
    rtcache_FreeRMObjects(std::exchange(controller(4, 1).adapter, nullptr), 1);
    run();
    EXPECT_EQ(at({kControllers}), "0");
    EXPECT_EQ(platform.count_logged(2, " contiue2"), 1);
}

TEST_F(Update, HbasStayOutWhileTheyAreInventoriedAgain) {
    controller(9, RTCACHE_TYPE_HBA);
    disk(9, 0);
    grtsync_Status.phase = RTSYNC_PHASE_HBA_REINVENTORY;
    run();
    EXPECT_EQ(at({kControllers, kComplete}), "0 255");
    EXPECT_TRUE(logged(4, "HBA re-inventory is in progress for at least one HBA. SKiP HBA id 9"));
    platform.fail(Place::Lock, 2, true);  // the first is the cache's
    run();
    EXPECT_EQ(at({kControllers, kTape}), "1 0") << "an unreadable status keeps none out";
    EXPECT_EQ(platform.count_logged(2, " GlobalStatus failed!!"), 2);
}

TEST_F(Update, DeviceIdsDecideOnBatteryAndDrives) {
    const std::set<unsigned> no_battery{0x1F3C, 0x1F3D, 0x1F44, 0x1F45, 0x1F46, 0x1F4B,
                                        0x1F4C, 0x1F4E, 0x1F50, 0x1F51, 0x1F52, 0x1F53,
                                        0x2172, 0x2173, 0x2174, 0x2177, 0x2199};
    const std::set<unsigned> external{0x1F2D, 0x1F41, 0x1F46, 0x1FC9,
                                      0x1FE2, 0x200D, 0x213A, 0x2212};
    const RtCacheControllerNode& kron = controller(8, RTCACHE_TYPE_KRON);
    disk(8, 0);
    for (unsigned device = 0x1F2C; device <= 0x2213; ++device) {
        kron.pciInfo->device = static_cast<uint16_t>(device);
        run();
        const std::string battery = no_battery.contains(device) ? "255" : "31";
        ASSERT_EQ(at({kBatteryTemperature, kPolling, kDrives, kBatteries}),
                  battery + (external.contains(device) ? " 254 0 0" : " 0 1 1"))
            << device;
    }
    rtcache_Init();
    AdapterBody& newer = controller(8, RTCACHE_TYPE_KRON_18, 0x1F3C).adapter->body.adapter;
    newer.capability = 0x10;
    run();
    EXPECT_EQ(at({kBatteryTemperature}), "31");
    newer.capability = 0xFFFFFFEF;
    run();
    EXPECT_EQ(at({kBatteryTemperature}), "255");
    EXPECT_TRUE(logged(4, "Battery Unsupported for index 0"));
}

TEST_F(Update, DisabledPollingHidesTemperatures) {
    // temperatures of controller, battery and drive, polling, PCI slot
    for (const auto& [what, type, device, flags, published] :
         Rows<const char*, uint8_t, uint16_t, uint8_t, const char*>{
             {"KRON", 1, 1, 2, "255 255 255 0 0"},
             {"KRON, the HBA's bit", 1, 1, 1, "45 31 38 0 0"},
             {"HBA", 10, 1, 1, "45 255 255 1 255"},
             {"HBA, the KRON's bit", 10, 1, 2, "45 255 38 0 255"},
             {"HBA that is always polled", 10, 0x1FD3, 1, "45 255 38 0 255"},
             {"boot card", 17, 1, 2, "45 255 255 1 255"},
             {"boot card, the HBA's bit", 17, 1, 1, "45 255 38 0 255"},
             {"controller 12", 12, 1, 2, "255 255 255 1 255"}}) {
        controller(8, type, device);
        disk(8, 0);
        platform.region(55)[522] = flags;
        run();
        EXPECT_EQ(at({kTemperature, kBatteryTemperature, kDriveTemperature, kPolling, kPciSlot}),
                  published);
        rtcache_Init();
    }
}

TEST_F(Update, NothingIsEnteredBeyondTheRegion) {
    for (uint8_t eid = 1; eid <= 17; ++eid) {
        controller(eid, RTCACHE_TYPE_KRON);
    }
    rtcache_SetModularId(2, 5);
    for (uint16_t id = 0; id < 256; ++id) {
        disk(16, id);
    }
    run(16);  // the seventeenth is not counted either
    EXPECT_EQ(at({kControllers, kDrives, kBatteries, kComplete}), "16 255 8 1");
    EXPECT_EQ(platform.count_logged(4, "IS A MODULAR CONTROLLER"), 1);
    rtcache_Init();

    controller(254, RTCACHE_TYPE_KRON);
    disk(254, 2046);
    disk(254, 2047);
    run();
    EXPECT_EQ(at({kDrives}), "1") << "the last slot is not looked at";
    max_physicaldevices = 1;
    run();
    EXPECT_EQ(at({kDrives}), "0");
}

TEST_F(Update, WaitsForATapeDriveBeforeItIsCalledAbsent) {
    controller(9, RTCACHE_TYPE_HBA);
    disk(9, 0, L"Tape.1");
    run();
    EXPECT_EQ(g_IsTapeDrivePresent, TAPE_PRESENT);  // and the count starts afresh
    RTSHM_InitSharedMem();
    vexutils::free_disk(slot(9, 0));
    run();
    EXPECT_EQ(g_IsTapeDrivePresent, TAPE_UNKNOWN) << "no drives, no answer";
    disk(9, 0);
    for (int i = 1; i <= 121; ++i) {
        run();
        ASSERT_EQ(at({kTape}), "0");
        ASSERT_TRUE(logged(4, "--> Tape drive wait count 120:" + std::to_string(i)));
    }
    run();
    EXPECT_EQ(at({kTape}), "2");
    EXPECT_EQ(g_IsTapeDrivePresent, TAPE_ABSENT);
    disk(9, 1, L"Tape.1");
    run();
    EXPECT_EQ(at({kTape}), "1");
    vexutils::free_disk(slot(9, 1));
    run();
    EXPECT_EQ(at({kTape}), "2") << "a known answer changes at once";
}

TEST_F(Update, DrivesArePlacedByEnclosureOrFqdd) {
    const char* const none = "0 255 255 255";
    const char* const failed = "2 Failed to get the enclosure object";
    // drives, bay, chassis slot, media
    for (const auto& [what, type, fqdd, key, enclosure_type, external, published, line] :
         Rows<const char*, uint8_t, const wchar_t*, uint16_t, uint32_t, uint8_t, const char*,
              const char*>{
             {"direct", 1, kDirect, 0xFFFF, 2, 0, "1 0 0 0", "4 u16EnclDeviceID is not proper"},
             {"neither", 1, L"Disk.Bay.0", 0xFFFF, 2, 0, none,
              "4 Disk attached to an enclosure, so continue"},
             {"no FQDD", 1, nullptr, 0xFFFF, 2, 0, none, nullptr},
             {"tape behind KRON", 18, L"Tape.1", 0xFFFF, 2, 0, "1 0 0 2", nullptr},
             {"tape of an HBA", 10, L"Tape.1", 9, 2, 1, "1 3 4 2",
              "4 PDStruct.au8DriveMediaType[0]:2"},
             {"tape in an enclosure", 1, L"Tape.1", 9, 2, 1, "1 3 4 0", nullptr},
             {"external", 1, L"", 9, 2, 1, "1 3 4 0", "4 enclosure is not of type BACKPLANE"},
             {"not flagged", 1, L"", 9, 2, 0, "1 0 0 0", nullptr},
             {"backplane", 18, L"", 9, 240, 0, "1 3 3 0", "4 enclosure is internal BACKPLANE"},
             {"backplane of an HBA", 10, L"", 9, 240, 0, "1 0 0 0", nullptr},
             {"no node", 1, L"", 8, 2, 1, "1 0 0 0", failed},
             {"a disk", 1, L"", 0, 2, 1, "1 0 0 0", failed},
             {"beyond", 1, L"", 0xFFFE, 2, 1, "1 0 0 0", failed}}) {
        controller(8, type);
        EnclosureBody& place = enclosure(8, 9, enclosure_type);
        place.bayId = 3;
        place.chassisSlot = 4;
        place.externalFlag = external;
        disk(8, 0, fqdd, key);
        run();
        EXPECT_EQ(at({kDrives, kBay, kChassisSlot, kMedia}), published);
        EXPECT_TRUE(line == nullptr || logged(line[0] - '0', line + 2));
        rtcache_Init();
    }
}

TEST_F(Update, BackplaneSlotsComeFromTheBayThatMatches) {
    controller(8, RTCACHE_TYPE_KRON);
    EnclosureBody& backplane = enclosure(8, 100, RT_OBJ_BACKPLANE);
    backplane.bayId = 2;
    backplane.secondId = 6;
    disk(8, 0, L"", 100).slot = 4;
    BpApiInfo& info = platform.snapshot;
    info.bayCnt = 7;      // more than there is room for
    info.driveCnt = 255;  // likewise
    snapshot_drive(10, 3, 8, 4);
    snapshot_drive(20, 2, 7, 5);
    snapshot_drive(249, 2, 9, 4);
    BpApiBay& bay = info.bays[5];
    // id, managed, controller's bay, second id, secondary
    for (const auto& [what, matched, found] : Rows<const char*, Bytes, const char*>{
             {"primary with another second id", {2, 1, 2, 5, 0}, "4"},
             {"secondary by its controller bay", {3, 1, 2, 0, 1}, "8"},
             {"secondary of another bay", {2, 1, 3, 6, 1}, "4"},
             {"not managed", {2, 0, 2, 6, 0}, "4"},
             {"not managed either", {2, 3, 2, 6, 0}, "4"},
             {"primary", {2, 2, 0, 6, 0}, "9"}}) {
        bay.bayId = matched[0];
        bay.raidManagement = matched[1];
        bay.controllerBay = matched[2];
        bay.secondId = matched[3];
        bay.secondary = matched[4];
        run();
        EXPECT_EQ(at({kSlot}), found);
    }
    EXPECT_TRUE(logged(3, "driveCnt:255 limited to 250"));

    for (const auto& [line, place, found] : Rows<const char*, Place, const char*>{
             {"4  Read Status 7 BP_API_Read Failure ", Place::BpRead, "4"},
             {"2 <-- error:malloc to BP_Info is Failed!!", Place::Allocation, "4"},
             {"2 <-- error:bpAPIKronHandler is NULL!!", Place::BpOpen, "4"},
             {"2 Unable to read Thermal flag from  Shared memeory", Place::ShmRead, "9"}}) {
        rtshm_BpApiKronExit();
        platform.fail(place);
        const AllocationScope counted;
        run();
        EXPECT_EQ(at({kSlot}), found);
        EXPECT_TRUE(logged(line[0] - '0', line + 2));
    }
}

TEST_F(Update, AnUpdateThatStopsAtAnyWriteIsRepairedByTheNextStart) {
    controller(8, RTCACHE_TYPE_KRON);
    disk(8, 0);
    controller(9, RTCACHE_TYPE_HBA);
    disk(9, 0, L"Tape.1");
    run(1);
    const Bytes whole = platform.region(3);
    for (int write = 1;; ++write) {
        SCOPED_TRACE(write);
        std::ranges::fill(platform.region(3), 0xEE);
        platform.fail(Place::ShmWrite, write, true);
        run(1);
        if (!platform.fault_fired(Place::ShmWrite)) {
            EXPECT_GT(write, 4) << "one of each section at least";
            break;
        }
        ASSERT_NE(platform.region(3), whole);
        platform.no_faults();
        RTSHM_InitSharedMem();
        run(1);
        ASSERT_EQ(platform.region(3), whole);
    }
}

TEST_F(Update, SomeDrivesAreLeftOut) {
    controller(8, RTCACHE_TYPE_KRON);
    disk(8, 0).multipath = 1;  // its primary path is 0
    disk(8, 1).multipath = 1;
    disk(8, 2).protocol = 0x100;
    slot(8, 3) = make(RtCacheDiskNode{RT_OBJ_PHYSICAL_DISK, nullptr});
    slot(8, 4) = make(RtCacheDiskNode{RT_OBJ_PHYSICAL_DISK, make(RtCacheEnclosureLink{})});
    controller(17, RTCACHE_TYPE_BOOT_CARD, 1, L"TAVI.1");
    disk(17, 0).protocol = 0x100;
    controller(18, RTCACHE_TYPE_BOOT_CARD, 1, L"ROR.1");
    controller(19, RTCACHE_TYPE_BOOT_CARD, 1, nullptr);
    controller(20, RTCACHE_TYPE_HBA);
    const std::wstring long_fqdd = L"Disk.Direct." + std::wstring(80, L'\u00e4');
    disk(20, 0, long_fqdd.c_str()).protocol = 0x100;
    run();
    EXPECT_EQ(at({kDrives}), "2");
    const auto* fqdd = reinterpret_cast<const char*>(&platform.region(3)[5828]);
    EXPECT_EQ(std::string(fqdd + 70), "Disk.Direct." + std::string(57, '?')) << "69 characters";
    for (const char* line : {" pPDCache->enclObj is NULL, so continue",
                             " pPDCache->enclObj->enclType.physicalDisk.Obj is NULL, so continue",
                             "FQDD is not either TAVI or ROR"}) {
        EXPECT_EQ(platform.count_logged(2, line), 1) << line;
    }
    EXPECT_TRUE(logged(4, " drive:0x1 is in multipath but not primary"));
    EXPECT_EQ(at({548, 549, 550, 551}), "0 3 4 4") << "KRON, TAVI, ROR, unknown";
}

}  // namespace
