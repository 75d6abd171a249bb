#include <platform/shm.h>

#include <array>
#include <cstring>
#include <optional>

#include "internal/log.h"
#include "rt_cache.h"
#include "rt_shm.h"

using namespace vexutils;

namespace {

// One of the three groups of the FRU region: records of one shape, texts of one length.
struct FruGroup {
    std::size_t records, record_count;
    std::size_t fqdds, fqdd_count, fqdd_bytes;
};
constexpr FruGroup kDrives{offsetof(PCIeSSDFruRegion, drives), SHM_FRU_DRIVES,
                           offsetof(PCIeSSDFruRegion, driveFqdds), SHM_FRU_DRIVES,
                           SHM_FRU_DRIVE_FQDD_BYTES};
constexpr FruGroup kCards{offsetof(PCIeSSDFruRegion, cards), SHM_FRU_CARDS,
                          offsetof(PCIeSSDFruRegion, cardFqdds), SHM_FRU_CARD_FQDDS,
                          SHM_FRU_CARD_FQDD_BYTES};
constexpr FruGroup kKind2Cards{offsetof(PCIeSSDFruRegion, kind2Cards), SHM_FRU_KIND_2_CARDS,
                               offsetof(PCIeSSDFruRegion, kind2Fqdds), SHM_FRU_KIND_2_CARDS,
                               SHM_FRU_CARD_FQDD_BYTES};

// Where a device's record and text lie in the region; none where its group has no such index.
struct FruPlace {
    std::optional<std::size_t> record;
    std::optional<std::size_t> fqdd;
    std::size_t fqdd_bytes = 0;
};

FruPlace find_place(std::uint8_t eid_type, std::uint8_t card_kind, std::size_t index) {
    if (eid_type != RTCACHE_TYPE_NVME && eid_type != RTCACHE_TYPE_PCIESSD) {
        return {};
    }
    const FruGroup& cards = card_kind == SHM_FRU_KIND_2 ? kKind2Cards : kCards;
    const FruGroup& group = eid_type == RTCACHE_TYPE_NVME ? kDrives : cards;
    FruPlace place{{}, {}, group.fqdd_bytes};
    if (index < group.record_count) {
        place.record = group.records + index * sizeof(PCIeSSDFruRecord);
    }
    if (index < group.fqdd_count) {
        place.fqdd = group.fqdds + index * group.fqdd_bytes;
    }
    return place;
}

int write_fru(const void* bytes, std::size_t offset, std::size_t count) {
    return Zent_shm_memwrite(ZENT_SHM_PCIESSD_FRU, bytes, static_cast<int>(offset),
                             static_cast<int>(count));
}

int announce_update() {
    const std::uint8_t updated = SHM_FRU_UPDATED;
    return write_fru(&updated, offsetof(PCIeSSDFruRegion, update), sizeof(updated));
}

// The image first and the presence last: who sees the presence sees the whole record. The
// temperature has a writer of its own, and a drive's size code is nobody's.
int write_record(std::size_t record, const PCIeSSDFruRecord& content, bool is_card) {
    struct Range {
        std::size_t first, count;
    };
    const std::array ranges{Range{offsetof(PCIeSSDFruRecord, image), SHM_FRU_IMAGE_BYTES},
                            Range{offsetof(PCIeSSDFruRecord, bayIdOrKind), 1},
                            Range{offsetof(PCIeSSDFruRecord, slotOrIndex), 1},
                            Range{offsetof(PCIeSSDFruRecord, sizeCode), is_card ? 1u : 0u},
                            Range{offsetof(PCIeSSDFruRecord, presence), 1}};
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(&content);
    for (const Range& range : ranges) {
        if (range.count == 0) {
            continue;
        }
        const int result = write_fru(bytes + range.first, record + range.first, range.count);
        if (result != 0) {
            return result;
        }
    }
    return announce_update();
}

int clear_record(std::size_t record) {
    std::array<std::uint8_t, sizeof(PCIeSSDFruRecord)> absent;
    absent.fill(0xFF);
    const int result = write_fru(absent.data(), record, absent.size());
    return result != 0 ? result : announce_update();
}

int clear_fqdd(std::size_t fqdd, std::size_t bytes) {
    std::array<std::uint8_t, SHM_FRU_DRIVE_FQDD_BYTES> absent;  // the longer of both kinds
    absent.fill(0xFF);
    return write_fru(absent.data(), fqdd, bytes);
}

// Returns the operation's result for that of its writes.
std::uint32_t ended(const char* function, int result) {
    if (result != 0) {
        LOG_AS(function, Level::Error, "%s %d", "error, SHM Write", result);
        return 3;
    }
    LOG_AS(function, Level::Trace, "<-- %s", function);
    return 0;
}

}  // namespace

uint32_t RTSHM_StoreFRU(uint8_t eidType, uint8_t cardKind, uint8_t index, uint8_t bayId,
                        uint8_t slot, const uint8_t* fru, uint32_t fruSize) {
    LOG(Level::Trace, "--> %s u8EIDType:%d u8CardKind:%d u8Index:%d u32FruSize:%u", __func__,
        eidType, cardKind, index, fruSize);
    if (fru == nullptr || fruSize == 0 || fruSize > SHM_FRU_IMAGE_BYTES) {
        LOG(Level::Error, "<-- err null inputs");
        return 2;
    }
    const FruPlace place = find_place(eidType, cardKind, index);
    if (!place.record) {
        LOG(Level::Error, "Invalid index %u", index);
        return 2;
    }

    const bool is_card = eidType != RTCACHE_TYPE_NVME;
    PCIeSSDFruRecord content{};
    content.bayIdOrKind = is_card ? cardKind : bayId;
    content.slotOrIndex = is_card ? index : slot;
    content.presence = SHM_FRU_PRESENT;
    content.sizeCode = fruSize == SHM_FRU_SMALL_IMAGE_BYTES ? 0 : 1;
    std::memcpy(content.image, fru, fruSize);
    const int result = write_record(*place.record, content, is_card);
    return ended(__func__, result);
}

uint32_t RTSHM_StoreFRUTemp(uint8_t eidType, uint8_t cardKind, uint8_t index, uint8_t temperature) {
    LOG(Level::Trace, "--> %s u8EIDType:%d u8CardKind:%d u8Index:%d u8Temp:%d", __func__, eidType,
        cardKind, index, temperature);
    const FruPlace place = find_place(eidType, cardKind, index);
    if (!place.record) {
        LOG(Level::Error, "Invalid index %u", index);
        return 2;
    }

    const int result = write_fru(
        &temperature, *place.record + offsetof(PCIeSSDFruRecord, temperature), sizeof(temperature));
    return ended(__func__, result);
}

uint32_t RTSHM_ClearFRU(uint8_t eidType, uint8_t cardKind, uint8_t index) {
    LOG(Level::Trace, "--> %s u8EIDType:%d u8CardKind:%d u8Index:%d", __func__, eidType, cardKind,
        index);
    const FruPlace place = find_place(eidType, cardKind, index);
    if (!place.record) {
        LOG(Level::Error, "Invalid index %u", index);
        return 2;
    }

    const int result = clear_record(*place.record);
    return ended(__func__, result);
}

uint32_t RTSHM_ClearFqdd(uint8_t eidType, uint8_t cardKind, uint8_t index) {
    LOG(Level::Trace, "--> %s u8EIDType:%d u8CardKind:%d u8Index:%d", __func__, eidType, cardKind,
        index);
    const FruPlace place = find_place(eidType, cardKind, index);
    if (!place.fqdd) {
        LOG(Level::Error, "Invalid index %u", index);
        return 2;
    }

    const int result = clear_fqdd(*place.fqdd, place.fqdd_bytes);
    return ended(__func__, result);
}

uint32_t RTSHM_Add_NVMeSSD_FQDD_toSHM(uint8_t index, const char* fqdd) {
    LOG(Level::Trace, "--> %s u8Index:%d FQDD:%.59s", __func__, index, fqdd);
    const FruPlace place = find_place(RTCACHE_TYPE_NVME, 0, index);
    if (fqdd == nullptr) {
        LOG(Level::Error, "<-- err null inputs");
        return 2;
    }
    if (!place.fqdd) {
        LOG(Level::Error, "Invalid index %u", index);
        return 2;
    }

    char text[SHM_FRU_DRIVE_FQDD_BYTES] = {};
    std::memcpy(text, fqdd, strnlen(fqdd, sizeof(text) - 1));
    const int result = write_fru(text, *place.fqdd, sizeof(text));
    return ended(__func__, result);
}
