// The backplane snapshot as the library reads it: counts cut to the records there is room for,
// records by value.
#ifndef VEXUTILS_RT_SHM_SNAPSHOT_H
#define VEXUTILS_RT_SHM_SNAPSHOT_H

#include <platform/bpapi.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vexutils {

// A count that the snapshot gives for its records.
struct RecordCount {
    const char* name;
    unsigned given;
    unsigned room;  // records that fit the snapshot

    constexpr bool is_cut() const { return given > room; }
    constexpr unsigned kept() const { return std::min(given, room); }
};

inline RecordCount bay_count(const BpApiInfo& info) {
    return {"bayCnt", info.bayCnt, BPAPI_MAX_BAYS};
}
inline RecordCount drive_count(const BpApiInfo& info) {
    return {"driveCnt", info.driveCnt, BPAPI_MAX_DRIVES};
}
inline RecordCount printed_drive_count(const BpApiInfo& info) {
    return {"printDriveCnt", info.printDriveCnt, BPAPI_MAX_DRIVES};
}
inline RecordCount riser_count(const BpApiInfo& info) {
    return {"riserCnt", info.riserCnt, BPAPI_MAX_RISERS};
}
inline RecordCount downstream_count(const BpApiBay& bay) {
    return {"downstreamCount", bay.downstreamCount, BPAPI_MAX_DOWNSTREAM};
}

// index: below drive_count(info).kept() or printed_drive_count(info).kept().
inline BpApiDrive drive_record(const BpApiInfo& info, unsigned index) {
    const std::size_t offset = std::size_t{BPAPI_DRIVE_STRIDE} * index;
    BpApiDrive drive;
    std::memcpy(&drive, &info.drives[offset], sizeof(drive));
    return drive;
}

// Technology of a bay or of a drive.
constexpr bool is_nvme(unsigned technology) {
    return technology == BPAPI_TECHNOLOGY_NVME_A || technology == BPAPI_TECHNOLOGY_NVME_B;
}

// The service's results carry their meaning in the low byte.
constexpr bool bp_succeeded(std::uint32_t result) {
    return (result & 0xFF) == 0;
}

}  // namespace vexutils

#endif  // VEXUTILS_RT_SHM_SNAPSHOT_H
