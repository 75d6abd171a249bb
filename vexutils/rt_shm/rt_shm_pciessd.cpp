#include <platform/shm.h>

#include <algorithm>
#include <array>
#include <atomic>

#include "internal/log.h"
#include "rt_shm.h"

using namespace vexutils;

namespace {

// The presence counter as RTSHM_ReadPCIeSSDPresenceSharedMem saw it last.
constinit std::atomic<std::uint8_t> presence_seen{0};

int read_status(void* bytes, std::size_t offset, std::size_t count) {
    return Zent_shm_memread(ZENT_SHM_PCIESSD_STATUS, bytes, static_cast<int>(offset),
                            static_cast<int>(count));
}

// Writes into the status block and then raises the change counter, by which readers notice.
int write_status(const void* bytes, std::size_t offset, std::size_t count) {
    constexpr auto kCounter = static_cast<int>(offsetof(PCIeSSDStatusRegion, statusChangeCounter));
    std::uint8_t counter = 0;
    int result = Zent_shm_memwrite(ZENT_SHM_PCIESSD_STATUS, bytes, static_cast<int>(offset),
                                   static_cast<int>(count));
    if (result == 0) {
        result = Zent_shm_memread(ZENT_SHM_PCIESSD_STATUS, &counter, kCounter, sizeof(counter));
    }
    if (result == 0) {
        ++counter;
        result = Zent_shm_memwrite(ZENT_SHM_PCIESSD_STATUS, &counter, kCounter, sizeof(counter));
    }
    return result;
}

constexpr int status_offset(int slot) {
    return static_cast<int>(offsetof(PCIeSSDStatusRegion, status) +
                            offsetof(PCIeSSDStatusEntry, u16DriveStatus)) +
           slot * static_cast<int>(sizeof(PCIeSSDStatusEntry));
}

}  // namespace

uint32_t RTSHM_GetPCIeSSDGlobalSlotNumberBase(uint8_t bayId, uint8_t* base) {
    LOG(Level::Trace, "--> %s u8BayId:%d", __func__, bayId);
    if (base == nullptr || bayId >= NVME_BAYS) {
        LOG(Level::Error, "<-- err null inputs");
        return 2;
    }
    std::array<PCIeSSDPosition, SHM_PCIESSD_SLOTS> positions;
    const int result =
        read_status(positions.data(), offsetof(PCIeSSDStatusRegion, positions), sizeof(positions));
    if (result != 0) {
        LOG(Level::Error, "%s %d", "error, SHM Read", result);
        return 3;
    }
    const auto* first = std::ranges::find_if(
        positions, [bayId](const PCIeSSDPosition& position) { return position.u8BayId == bayId; });
    if (first == positions.end()) {
        LOG(Level::Error, "<-- no slot of u8BayId:%d", bayId);
        return 3;
    }

    *base = static_cast<std::uint8_t>(first - positions.begin());
    LOG(Level::Trace, "<-- %s base:%d", __func__, *base);
    return 0;
}

uint32_t RTSHM_ReadPCIeSSDPresenceSharedMem(uint8_t* changed) {
    LOG(Level::Trace, "--> %s", __func__);
    if (changed == nullptr) {
        LOG(Level::Error, "<-- err null inputs");
        return 2;
    }
    std::uint8_t counter = 0;
    const int result =
        read_status(&counter, offsetof(PCIeSSDStatusRegion, presenceCounter), sizeof(counter));
    if (result != 0) {
        LOG(Level::Error, "%s %d", "error, SHM Read", result);
        return 3;
    }

    const std::uint8_t seen = presence_seen.exchange(counter, std::memory_order_relaxed);
    *changed = counter != seen ? 1 : 0;
    LOG(Level::Trace, "<-- %s old:%d new:%d", __func__, seen, counter);
    return 0;
}

uint32_t RTSHM_readPciessdDriveStatusFromShm(uint16_t* u16DriveStatus, int slot) {
    const auto global_slot = static_cast<std::int16_t>(slot);
    LOG(Level::Trace, " Entry u8Slot:%d ", global_slot);
    if (u16DriveStatus == nullptr) {
        return 0;  // Kept: no output is no error, as with the bay and slot readers.
    }
    const int offset = status_offset(global_slot);
    std::uint16_t status = 0;
    const int result = Zent_shm_memread(ZENT_SHM_PCIESSD_STATUS, &status, offset, sizeof(status));
    if (result != 0) {
        LOG(Level::Error, "%s %d", "error, SHM Read", result);
        return 3;
    }

    *u16DriveStatus = status;
    LOG(Level::Trace, " After Read offset = %d  u16DriveStatus=%d ", offset, status);
    return 0;
}

uint32_t updatePciessdDriveStatusToShm(uint16_t u16DriveStatus, uint8_t u8SSDSlotNum) {
    LOG(Level::Trace, "--> %s u16DriveStatus:%d u8SSDSlotNum:%d", __func__, u16DriveStatus,
        u8SSDSlotNum);
    if (u8SSDSlotNum >= SHM_PCIESSD_SLOTS) {
        LOG(Level::Error, "Invalid index %u", u8SSDSlotNum);
        return 2;
    }

    const auto offset = static_cast<std::size_t>(status_offset(u8SSDSlotNum));
    const int result = write_status(&u16DriveStatus, offset, sizeof(u16DriveStatus));
    if (result != 0) {
        LOG(Level::Error, "%s %d", "error, SHM Write", result);
        return 3;
    }
    LOG(Level::Trace, "<-- %s", __func__);
    return 0;
}

uint32_t updatePciessdiBCDDataToShm(const void* statusBlock128) {
    LOG(Level::Trace, "--> %s", __func__);
    if (statusBlock128 == nullptr) {
        LOG(Level::Error, "<-- err null inputs");
        return 2;
    }

    const int result = write_status(statusBlock128, offsetof(PCIeSSDStatusRegion, status),
                                    sizeof(PCIeSSDStatusRegion::status));
    if (result != 0) {
        LOG(Level::Error, "%s %d", "error, SHM Write", result);
        return 3;
    }
    LOG(Level::Trace, "<-- %s", __func__);
    return 0;
}

uint32_t rtshm_IsDriveBehindKRONfromBPAPIByEID(uint8_t* behind, uint8_t eid) {
    LOG(Level::Trace, "--> %s u8EID:%d", __func__, eid);
    std::uint8_t bay = 0xFF;
    std::uint8_t slot = 0xFF;
    const std::uint32_t result = RTSHM_readBayIDAndSlotNoFromEID(&bay, &slot, eid);
    if (result != 0) {
        LOG(Level::Error, "<-- error, no position of u8EID:%d", eid);
        return result;
    }
    return rtshm_IsDriveBehindKRONfromBPAPI(behind, bay, slot);
}
