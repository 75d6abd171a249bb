#include <set>

#include "internal/vexel_state.h"
#include "rt_shm.h"
#include "tests/support/platform_test.h"

namespace {

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "|";
    }
    return text;
}

class Regions : public PlatformTest {
  protected:
    Bytes& inventory = platform.region(3);

    void put(ptrdiff_t offset, const Bytes& bytes) {
        std::ranges::copy(bytes, inventory.begin() + offset);
    }
};

TEST_F(Regions, StartAndPartialStartMarkSectionsAsNotInventoried) {
    for (const bool partial : {false, true}) {
        SCOPED_TRACE(partial);
        std::ranges::fill(inventory, 0x5A);
        g_IsTapeDrivePresent = TAPE_PRESENT;
        platform.clear_writes();
        partial ? RTSHM_InitPartialSharedMem() : RTSHM_InitSharedMem();
        Bytes expected(23706, 0xFF);
        std::fill_n(expected.begin() + 23678, partial ? 24 : 0, uint8_t{0x5A});
        std::fill_n(expected.begin() + 23702, 4, uint8_t(partial ? 0x5A : 0));
        EXPECT_EQ(inventory, expected);
        EXPECT_EQ(g_IsTapeDrivePresent, partial ? TAPE_PRESENT : TAPE_UNKNOWN);
        EXPECT_EQ(platform.writes().size(), partial ? 2u : 4u) << "one write a section";
    }
    EXPECT_EQ(RTSHM_InitTBUSharedMem(1), 0);
    EXPECT_EQ(Bytes(inventory.end() - 4, inventory.end()), (Bytes{1, 0, 0, 0}));
    platform.fail(Place::ShmWrite);
    EXPECT_NE(RTSHM_InitTBUSharedMem(2), 0);
}

TEST_F(Regions, ThePcieSsdFruRegionIsFilledAndAnnounced) {
    RTSHM_InitPCIeSSDSharedMem();
    EXPECT_EQ(platform.region(26), Bytes(34132, 0xFF));
    ASSERT_EQ(platform.singles.size(), 1u);
    EXPECT_EQ(platform.singles[0].value, 1065);

    platform.fail(Place::Allocation);
    const AllocationScope counted;
    RTSHM_InitPCIeSSDSharedMem();
    EXPECT_EQ(platform.singles.size() + platform.writes().size(), 2u) << "nothing more";
    EXPECT_TRUE(logged(2, "Failed to allocate memory"));
}

TEST_F(Regions, PollingFlagsComeFromTheRegionAndTheFlagFile) {
    const std::string file = path("pdthermaldisabled");
    vexutils::flag_paths.disk_thermal_disabled = file.c_str();
    std::ranges::copy(Bytes{2, 0, 0, 0x80}, platform.region(55).begin() + 522);
    Bytes flags(4, 0xEE);
    EXPECT_EQ(RTSHM_ReadSharedThermalPolling(nullptr), 2u);
    EXPECT_EQ(RTSHM_ReadSharedThermalPolling(flags.data()), 0u);
    EXPECT_EQ(flags, (Bytes{2, 0, 0, 0x80}));
    EXPECT_TRUE(platform.lines().empty());

    write_file(file, "");
    EXPECT_EQ(RTSHM_ReadSharedThermalPolling(flags.data()), 0u);
    EXPECT_EQ(flags, (Bytes{3, 0, 0, 0x80}));
    EXPECT_EQ(platform.region(55)[522], 0x02) << "only the copy is changed";
    EXPECT_TRUE(logged(2, file));

    platform.fail(Place::ShmRead);
    EXPECT_EQ(RTSHM_ReadSharedThermalPolling(flags.data()), 3u);
}

TEST_F(Regions, SplitModeIsAnOpaqueBlock) {
    std::fill_n(platform.region(20).begin() + 285, 40, uint8_t{0x77});
    Bytes buffer(41, 0xEE);
    Bytes expected(40, 0x77);
    expected.push_back(0xEE);
    EXPECT_EQ(RTSHM_readBackplaneSharedMem(buffer.data()), 0u);
    EXPECT_EQ(buffer, expected);
    EXPECT_TRUE(logged(6, "Successfully Read BackPlane SPLIT mode Shared Memory"));

    platform.fail(Place::ShmRead);
    EXPECT_EQ(RTSHM_readBackplaneSharedMem(buffer.data()), 3u);
    std::fill_n(expected.begin(), 40, uint8_t{0});
    EXPECT_EQ(buffer, expected);
    EXPECT_EQ(RTSHM_readBackplaneSharedMem(nullptr), 2u);
    EXPECT_EQ(joined(platform.messages(2)),
              "Failed to Read BackPlane SPLIT modeShared Memory|"
              "<--SPLIT  RTSHM_readBackplaneSharedMem error|");
}

TEST_F(Regions, ADumpShowsEveryEntryInOrder) {
    put(0, {1, 0, 0, 0, 0x85});
    const std::pair<ptrdiff_t, uint8_t> bytes[] = {
        {20, 45},   {148, 10},  {212, 11},  {276, 12},   {340, 13},  {404, 2},
        {580, 254}, {724, 1},   {728, 3},   {983, 1},    {1238, 2},  {1493, 3},
        {1748, 4},  {2003, 5},  {4044, 1},  {4553, 15},  {4808, 16}, {5063, 17},
        {5318, 18}, {5573, 19}, {23678, 1}, {23682, 7},  {23690, 9}, {23698, 1},
        {23702, 2}, {2258, 16}, {2259, 39}, {3533, 205}, {3534, 171}};
    for (const auto& [offset, value] : bytes) {
        put(offset, {value});
    }
    put(84, Bytes(4, 0xFF));
    put(5828, Bytes(70, 'x'));  // an FQDD that is not terminated
    platform.region(55)[522] = 0x03;
    use_log_file();
    RTSHM_DumpSharedMem();

    EXPECT_EQ(joined(platform.messages(6)),
              "*********** dumping sharedm memory contents ***********|"
              "sCEMKronInventory:724 sCEMSASSATAInventory:22954 sCEMKRONBatteryInventory:24 "
              "sCEMKRONDrivePolling:4 CEM_KRON_DRIVE_POLLING_OFFSET:522|"
              "controller struct 0 of 1|au8PCISlot=133 |au32Temp=45 |au32BatteryTemp=-1 |"
              "PCI IDs.=[10-11-12-13]|au8CardLocation=2 |thermalPDPollDisable=254 |"
              "PD struct 0 of 1|au8DriveBayID=3 |au8DriveOccupiedSlot=1 |"
              "au8DriveProtocolType=2 |au8DriveMediaType=3 |au8DriveFormFactor=4 |au8Temp=5 |"
              "au32NominalRPM=10000 |pdShmStatus abcd |au16DriveCapacity 256 |"
              "au8DriveImpendance 15 |au8ChassisSlot 16 |au8EnclosureTyoe 17 |refTemp:18 |"
              "critTemp 19 |Fqdd " +
                  std::string(70, 'x') +
                  " |sCEMTapeInventory.IsTapeDrivePresent 2|"
                  "sCEMKRONDrivePolling.u8DisableDrivePolling = 1|");
    EXPECT_EQ(joined(platform.messages(4)),
              "Battery struct 0 of 1|au8Slot=7|au8State=9|vexel_inventory=1|");
    std::set<std::string> places;
    for (const fake::LogLine& line : platform.lines()) {
        EXPECT_TRUE(line.text.starts_with("rt_shm_regions.cpp:RTSHM_DumpSharedMem:")) << line.text;
        places.insert(line.text.substr(0, line.text.find(line.message)));
    }
    EXPECT_EQ(places.size(), platform.lines().size()) << "each statement names its own line";
    const std::string file = file_content(path("vexel.log"));
    EXPECT_EQ(std::ranges::count(file, '\n'), 4) << "dump lines stay out of the file";
}

TEST_F(Regions, ADumpIsBoundedByTheRegion) {
    for (const auto& [what, count, verbose, batteries] : Rows<const char*, Bytes, size_t, size_t>{
             {"not inventoried", {0xFF, 0xFF, 0xFF, 0xFF}, 4, 0},
             {"all that fits of everything", {8, 0, 0, 0}, 4 + 8 * 7 + 8 * 16, 8 * 4},
             {"beyond the arrays", {0, 1, 0, 0}, 4 + 16 * 7 + 255 * 16, 8 * 4}}) {
        platform.clear_lines();
        for (const ptrdiff_t offset : {0, 724, 23678}) {
            put(offset, count);
        }
        RTSHM_DumpSharedMem();
        EXPECT_EQ(platform.messages(6).size(), verbose);
        EXPECT_EQ(platform.messages(4).size(), batteries);
        EXPECT_EQ(platform.messages(3).size(), verbose > 1000 ? 1u : 0u) << "the clamp";
    }
    platform.clear_lines();
    platform.fail(Place::ShmRead, 1, true);
    RTSHM_DumpSharedMem();
    EXPECT_EQ(platform.messages(6).size(), 4u) << "an unreadable region dumps as empty";
}

}  // namespace
