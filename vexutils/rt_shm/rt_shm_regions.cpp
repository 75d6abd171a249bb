#include "rt_shm.h"

#include <platform/shm.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "internal/log.h"
#include "internal/owned.h"
#include "internal/vexel_state.h"
#include "rt_lclogwrp.h"

using namespace vexutils;

uint8_t g_IsTapeDrivePresent = TAPE_UNKNOWN;

namespace {

constexpr std::uint8_t kAbsent = 0xFF;

// What a section holds before the first inventory. Constant, since start-up must not depend on
// memory and 23 KB do not fit a worker thread's stack.
constexpr auto kNotInventoried = [] {
    std::array<std::uint8_t, sizeof(sCEMSASSATAInventory)> bytes{};
    bytes.fill(kAbsent);
    return bytes;
}();

void write_inventory(const void* section, int offset, std::size_t size) {
    Zent_shm_memwrite(ZENT_SHM_STORAGE_INVENTORY, section, offset, static_cast<int>(size));
}

void forget_controllers_and_drives() {
    write_inventory(kNotInventoried.data(), SHM_CONTROLLER_OFFSET, sizeof(sCEMKronInventory));
    write_inventory(kNotInventoried.data(), SHM_DRIVE_OFFSET, sizeof(sCEMSASSATAInventory));
}

// A section that cannot be read stays as it is.
void read_section(int region, void* section, int offset, std::size_t size) {
    Zent_shm_memread(region, section, offset, static_cast<int>(size));
}

void read_inventory(StorageInventoryRegion& image) {
    constexpr int kRegion = ZENT_SHM_STORAGE_INVENTORY;
    read_section(kRegion, &image.controllers, SHM_CONTROLLER_OFFSET, sizeof(image.controllers));
    read_section(kRegion, &image.drives, SHM_DRIVE_OFFSET, sizeof(image.drives));
    read_section(kRegion, &image.batteries, SHM_BATTERY_OFFSET, sizeof(image.batteries));
    read_section(kRegion, &image.tape, SHM_TAPE_OFFSET, sizeof(image.tape));
}

// A dump line's format, and the source line of the statement that writes it.
struct DumpFormat {
    // cppcheck-suppress noExplicitConstructor ; statements pass a text alone
    DumpFormat(const char* format, unsigned line = __builtin_LINE()) : text(format), place(line) {}
    const char* text;
    unsigned place;
};

// Dump lines go to the debug log alone: a full inventory has thousands, and the log file keeps 1000
// lines of everything.
template <class... Args>
void dump(DumpFormat format, Args... args) {
    const ErrnoKeeper keeper;
    zentprintf(static_cast<int>(Level::Verbose), kLogModule, format.text, __FILE_NAME__,
               "RTSHM_DumpSharedMem", format.place, args...);
}

void dump_controller(const sCEMKronInventory& section, int i) {
    dump("%s:%s:%u:controller struct %d of %d\n", i, std::int32_t{section.count});
    dump("%s:%s:%u:au8PCISlot=%d \n", section.au8PCISlot[i]);
    dump("%s:%s:%u:au32Temp=%d \n", section.au32Temp[i]);
    dump("%s:%s:%u:au32BatteryTemp=%d \n", section.au32BatteryTemp[i]);
    dump("%s:%s:%u:PCI IDs.=[%d-%d-%d-%d]\n", section.au32PCIIDs[0][i], section.au32PCIIDs[1][i],
         section.au32PCIIDs[2][i], section.au32PCIIDs[3][i]);
    dump("%s:%s:%u:au8CardLocation=%d \n", section.au8CardLocation[i]);
    dump("%s:%s:%u:thermalPDPollDisable=%d \n", section.thermalPDPollDisable[i]);
}

void dump_drive(const sCEMSASSATAInventory& section, int i) {
    dump("%s:%s:%u:PD struct %d of %d\n", i, std::int32_t{section.count});
    dump("%s:%s:%u:au8DriveBayID=%d \n", section.au8DriveBayID[i]);
    dump("%s:%s:%u:au8DriveOccupiedSlot=%d \n", section.au8DriveOccupiedSlot[i]);
    dump("%s:%s:%u:au8DriveProtocolType=%d \n", section.au8DriveProtocolType[i]);
    dump("%s:%s:%u:au8DriveMediaType=%d \n", section.au8DriveMediaType[i]);
    dump("%s:%s:%u:au8DriveFormFactor=%d \n", section.au8DriveFormFactor[i]);
    dump("%s:%s:%u:au8Temp=%d \n", section.au8Temp[i]);
    dump("%s:%s:%u:au32NominalRPM=%d \n", section.au32NominalRPM[i]);
    dump("%s:%s:%u:pdShmStatus %x \n", section.pdShmStatus[i]);
    dump("%s:%s:%u:au16DriveCapacity %d \n", section.au16DriveCapacity[i]);
    dump("%s:%s:%u:au8DriveImpendance %d \n", section.au8DriveImpendance[i]);
    dump("%s:%s:%u:au8ChassisSlot %d \n", section.au8ChassisSlot[i]);
    dump("%s:%s:%u:au8EnclosureTyoe %d \n", section.au8EnclosureTyoe[i]);
    dump("%s:%s:%u:refTemp:%d \n", section.refTemp[i]);
    dump("%s:%s:%u:critTemp %d \n", section.critTemp[i]);
    char fqdd[SHM_FQDD_BYTES + 1] = {};  // what others wrote need not be terminated
    std::memcpy(fqdd, section.Fqdd[i], SHM_FQDD_BYTES);
    dump("%s:%s:%u:Fqdd %s \n", fqdd);
}

std::int32_t word(const void* bytes) {
    std::int32_t value;
    std::memcpy(&value, bytes, sizeof(value));
    return value;
}

}  // namespace

void RTSHM_InitSharedMem(void) {
    g_IsTapeDrivePresent = TAPE_UNKNOWN;
    forget_controllers_and_drives();
    write_inventory(kNotInventoried.data(), SHM_BATTERY_OFFSET, sizeof(sCEMKRONBatteryInventory));
    const sCEMTapeInventory tape{};
    write_inventory(&tape, SHM_TAPE_OFFSET, sizeof(tape));
}

int RTSHM_InitTBUSharedMem(uint8_t present) {
    const sCEMTapeInventory tape{present, {}};
    return Zent_shm_memwrite(ZENT_SHM_STORAGE_INVENTORY, &tape, SHM_TAPE_OFFSET, sizeof(tape));
}

void RTSHM_InitPartialSharedMem(void) {
    forget_controllers_and_drives();
}

void RTSHM_InitPCIeSSDSharedMem(void) {
    constexpr int kSize = ZENT_SHM_PCIESSD_FRU_SIZE;
    const auto image = make_owned<std::uint8_t>(kSize);
    if (image == nullptr) {
        LOG(Level::Error, "Failed to allocate memory");
        return;
    }

    std::memset(image.get(), kAbsent, kSize);
    Zent_shm_memwrite(ZENT_SHM_PCIESSD_FRU, image.get(), 0, kSize);
    rt_SubMitSingle(RT_SINGLE_PCIESSD_FRU_RESET);
}

uint32_t RTSHM_ReadSharedThermalPolling(uint8_t* flags) {
    if (flags == nullptr) {
        return 2;
    }
    if (Zent_shm_memread(ZENT_SHM_THERMAL_SETTINGS, flags, CEM_KRON_DRIVE_POLLING_OFFSET,
                         SHM_POLLING_FLAGS_BYTES) != 0) {
        return 3;
    }

    if (file_exists(flag_paths.disk_thermal_disabled)) {
        flags[0] |= SHM_POLLING_DISABLE_HBA;
        LOG(Level::Error, "%s", flag_paths.disk_thermal_disabled);
    }
    return 0;
}

uint32_t RTSHM_readBackplaneSharedMem(uint8_t* buffer) {
    if (buffer == nullptr) {
        LOG(Level::Error, "<--SPLIT  %s error", __func__);
        return 2;
    }
    std::memset(buffer, 0, SHM_SPLIT_MODE_BYTES);
    if (Zent_shm_memread(ZENT_SHM_PCIESSD_STATUS, buffer, SHM_SPLIT_MODE_OFFSET,
                         SHM_SPLIT_MODE_BYTES) != 0) {
        LOG(Level::Error, "Failed to Read BackPlane SPLIT modeShared Memory");
        return 3;
    }

    LOG(Level::Verbose, "Successfully Read BackPlane SPLIT mode Shared Memory");
    return 0;
}

void RTSHM_DumpSharedMem(void) {
    const auto image = make_owned<StorageInventoryRegion>();
    if (image == nullptr) {
        LOG(Level::Error, "Failed to allocate memory");
        return;
    }
    read_inventory(*image);
    std::uint8_t polling[SHM_POLLING_FLAGS_BYTES] = {};
    read_section(ZENT_SHM_THERMAL_SETTINGS, polling, CEM_KRON_DRIVE_POLLING_OFFSET,
                 sizeof(polling));
    const std::int32_t controllers = image->controllers.count;
    const std::int32_t drives = image->drives.count;
    const std::int32_t batteries = image->batteries.count;
    if (controllers > SHM_CONTROLLERS || drives > SHM_DRIVES || batteries > SHM_BATTERIES) {
        LOG(Level::Warning, "counts beyond the region: controllers %d drives %d batteries %d",
            controllers, drives, batteries);
    }

    dump("%s:%s:%u:*********** dumping sharedm memory contents ***********\n");
    dump(
        "%s:%s:%u:sCEMKronInventory:%d sCEMSASSATAInventory:%d sCEMKRONBatteryInventory:%d "
        "sCEMKRONDrivePolling:%d CEM_KRON_DRIVE_POLLING_OFFSET:%d\n",
        static_cast<int>(sizeof(image->controllers)), static_cast<int>(sizeof(image->drives)),
        static_cast<int>(sizeof(image->batteries)), static_cast<int>(sizeof(polling)),
        int{CEM_KRON_DRIVE_POLLING_OFFSET});
    for (int i = 0; i < std::min<int>(controllers, SHM_CONTROLLERS); ++i) {
        dump_controller(image->controllers, i);
    }
    for (int i = 0; i < std::min<int>(drives, SHM_DRIVES); ++i) {
        dump_drive(image->drives, i);
    }
    for (int i = 0; i < std::min<int>(batteries, SHM_BATTERIES); ++i) {
        LOG(Level::Trace, "Battery struct %d of %d", i, batteries);
        LOG(Level::Trace, "au8Slot=%d", image->batteries.au8Slot[i]);
        LOG(Level::Trace, "au8State=%d", image->batteries.au8State[i]);
        LOG(Level::Trace, "vexel_inventory=%d", word(image->batteries.vexel_inventory));
    }
    dump("%s:%s:%u:sCEMTapeInventory.IsTapeDrivePresent %d\n", word(&image->tape));
    dump("%s:%s:%u:sCEMKRONDrivePolling.u8DisableDrivePolling = %d\n",
         polling[0] & SHM_POLLING_DISABLE_HBA);
}
