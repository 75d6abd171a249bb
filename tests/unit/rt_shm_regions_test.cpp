#include "internal/vexel_state.h"
#include "rt_shm.h"
#include "tests/support/platform_test.h"

namespace {

class Regions : public PlatformTest {
  protected:
    Bytes& inventory = platform.region(3);
};

TEST_F(Regions, StartMarksSectionsAsNotInventoried) {
    std::ranges::fill(inventory, 0x5A);
    g_IsTapeDrivePresent = TAPE_PRESENT;
    RTSHM_InitPartialSharedMem();
    Bytes expected(23706, 0xFF);
    std::fill_n(expected.begin() + 23678, 28, uint8_t{0x5A});
    EXPECT_EQ(inventory, expected);
    EXPECT_EQ(g_IsTapeDrivePresent, TAPE_PRESENT);
    RTSHM_InitSharedMem();
    std::fill_n(expected.begin() + 23678, 24, uint8_t{0xFF});
    std::fill_n(expected.begin() + 23702, 4, uint8_t{0});
    EXPECT_EQ(inventory, expected);
    EXPECT_EQ(g_IsTapeDrivePresent, TAPE_UNKNOWN);
    EXPECT_EQ(RTSHM_InitTBUSharedMem(1), 0);
    EXPECT_EQ(Bytes(inventory.end() - 4, inventory.end()), (Bytes{1, 0, 0, 0}));
    RTSHM_InitPCIeSSDSharedMem();
    EXPECT_EQ(platform.region(26), Bytes(34132, 0xFF));
    ASSERT_EQ(platform.singles.size(), 1u) << "which tells of the empty region";
    EXPECT_EQ(platform.singles[0][4], 0x29) << "the low byte of 1065";
}

TEST_F(Regions, PollingFlagsComeFromTheRegionAndTheFlagFile) {
    const std::string file = path("pdthermaldisabled");
    vexutils::flag_paths.disk_thermal_disabled = file.c_str();
    std::ranges::copy(Bytes{2, 0, 0, 0x80}, platform.region(55).begin() + 522);
    Bytes flags(4);
    EXPECT_EQ(RTSHM_ReadSharedThermalPolling(flags.data()), 0u);
    EXPECT_EQ(flags, (Bytes{2, 0, 0, 0x80}));
    write_file(file, "");
    EXPECT_EQ(RTSHM_ReadSharedThermalPolling(flags.data()), 0u);
    EXPECT_EQ(flags, (Bytes{3, 0, 0, 0x80}));
    EXPECT_EQ(told(2), file + "\n");
    EXPECT_EQ(RTSHM_ReadSharedThermalPolling(nullptr), 2u);
}

TEST_F(Regions, SplitModeIsAnOpaqueBlock) {
    Bytes buffer(40, 0xEE);
    std::fill_n(platform.region(20).begin() + 285, 40, uint8_t{0x77});
    EXPECT_EQ(RTSHM_readBackplaneSharedMem(buffer.data()), 0u);
    EXPECT_EQ(buffer, Bytes(40, 0x77));
    EXPECT_EQ(RTSHM_readBackplaneSharedMem(nullptr), 2u);
}

TEST_F(Regions, ADumpShowsEveryEntryInOrder) {
    std::iota(inventory.begin(), inventory.end(), uint8_t{0});  // a byte is its offset's low half
    for (const unsigned count : {0u, 724u, 23678u}) {
        std::ranges::copy(Bytes{1, 0, 0, 0}, &inventory[count]);
    }
    std::fill_n(&inventory[5828], 70, uint8_t{'x'});  // an FQDD that is not terminated
    platform.region(55)[522] = 0x03;
    use_log_file();
    RTSHM_DumpSharedMem();
    EXPECT_EQ(
        lines_of("RTSHM_DumpSharedMem"),
        "6 *********** dumping sharedm memory contents ***********|"
        "6 sCEMKronInventory:724 sCEMSASSATAInventory:22954 sCEMKRONBatteryInventory:24 "
        "sCEMKRONDrivePolling:4 CEM_KRON_DRIVE_POLLING_OFFSET:522|"
        "6 controller struct 0 of 1|6 au8PCISlot=4 |6 au32Temp=387323156 |"
        "6 au32BatteryTemp=1465275732 |"
        "6 PCI IDs.=[-1751738988--673786412-387323156-1465275732]|6 au8CardLocation=148 |"
        "6 thermalPDPollDisable=68 |6 PD struct 0 of 1|6 au8DriveBayID=216 |"
        "6 au8DriveOccupiedSlot=215 |6 au8DriveProtocolType=214 |6 au8DriveMediaType=213 |"
        "6 au8DriveFormFactor=212 |6 au8Temp=211 |6 au32NominalRPM=-707472430 |"
        "6 pdShmStatus cecd |6 au16DriveCapacity 52427 |6 au8DriveImpendance 201 |"
        "6 au8ChassisSlot 200 |6 au8EnclosureTyoe 199 |6 refTemp:198 |6 critTemp 197 |6 Fqdd " +
            std::string(70, 'x') +
            " |4 Battery struct 0 of 1|4 au8Slot=130|4 au8State=138|4 vexel_inventory=-1785425006|"
            "6 sCEMTapeInventory.IsTapeDrivePresent -1718052970|"
            "6 sCEMKRONDrivePolling.u8DisableDrivePolling = 1|");
    const std::string file = file_content(path("vexel.log"));
    EXPECT_EQ(std::ranges::count(file, '\n'), 4) << "dump lines stay out of the file";
}

}  // namespace
