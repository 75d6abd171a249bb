#include "rt_shm.h"

#include <cstdio>
#include <cstring>

#include "internal/log.h"
#include "rt_shm/nvme_table.h"

using namespace vexutils;

namespace {

constexpr uint32_t kRefused = 2;

// The table seen as entries of 16 bytes from its very start, with a version at bytes 10 and 11.
constexpr std::size_t kEntryBytes = sizeof(NVMeBayEntry);
constexpr std::size_t kMajorOffset = 10;
constexpr std::size_t kLastEntry = (sizeof(NVMeBackplaneTable) - kMajorOffset - 2) / kEntryBytes;
static_assert(offsetof(NVMeBackplaneTable, bays) + offsetof(NVMeBayEntry, firmwareMajor) ==
              kMajorOffset);

}  // namespace

uint32_t RTSHM_setBpFwVersion(unsigned bay, unsigned major, unsigned minor) {
    LOG(Level::Trace, "--> %s bay %d", __func__, bay);
    uint32_t result = kRefused;
    if (bay < NVME_BAYS) {
        NVMeBayEntry& entry = sNVMeSSDBPInfo.bays[bay];
        store(entry.firmwareMajor, static_cast<uint8_t>(major));
        store(entry.firmwareMinor, static_cast<uint8_t>(minor));
        LOG(Level::Trace, "Fw Version:   %x.%x", static_cast<uint8_t>(major),
            static_cast<uint8_t>(minor));
        result = 0;
    }
    LOG(Level::Trace, "<-- %s ret=%d", __func__, result);
    return result;
}

uint32_t RTSHM_getBpFwVersion(unsigned bay, uint8_t* major, uint8_t* minor) {
    LOG(Level::Trace, "--> %s bay %d", __func__, bay);
    uint32_t result = kRefused;
    if (bay < NVME_BAYS && major != nullptr && minor != nullptr) {
        *major = load(sNVMeSSDBPInfo.bays[bay].firmwareMajor);
        *minor = load(sNVMeSSDBPInfo.bays[bay].firmwareMinor);
        LOG(Level::Trace, "Fw Version:   %x.%x", *major, *minor);
        result = 0;
    }
    LOG(Level::Trace, "<-- %s ret=%d", __func__, result);
    return result;
}

uint32_t RTSHM_ReadBpFwVersion(unsigned bay, uint32_t* output) {
    LOG(Level::Trace, "--> %s bay %d", __func__, bay);
    // Kept: a bay above 4 reads what lies there, as long as it lies in the table.
    if (output == nullptr || bay > kLastEntry) {
        LOG(Level::Error, "<-- %d error", __LINE__);
        return kRefused;
    }

    const auto* version =
        reinterpret_cast<const uint8_t*>(&sNVMeSSDBPInfo) + kEntryBytes * bay + kMajorOffset;
    char text[sizeof("ff.ff")]{};
    static_cast<void>(
        std::snprintf(text, sizeof(text), "%x.%02x", load(version[0]), load(version[1])));
    std::memcpy(output, text, sizeof(*output));  // Kept: four characters, no terminator.
    LOG(Level::Trace, "bpFwRev:%.4s tmpBuf=%s", text, text);
    LOG(Level::Trace, "<-- %s ret=%d", __func__, 0);
    return 0;
}
