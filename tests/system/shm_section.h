// What publisher and readers of the kill test agree on: two sections of the storage inventory
// region, each filled with the number of its write, so that bytes of two writes in one section
// show.
#ifndef TESTS_SYSTEM_SHM_SECTION_H
#define TESTS_SYSTEM_SHM_SECTION_H

#include <array>
#include <cstdint>
#include <cstring>

struct Section {
    int offset;
    int size;
};

inline constexpr int kSectionRegion = 3;
inline constexpr std::array<Section, 2> kSections{{{0, 724}, {724, 22954}}};

using SectionBytes = std::array<uint8_t, 22956>;

inline uint32_t section_number(const SectionBytes& bytes) {
    uint32_t number;
    memcpy(&number, bytes.data(), sizeof number);
    return number;
}

inline void fill_section(SectionBytes& bytes, uint32_t number) {
    for (size_t at = 0; at < bytes.size(); at += sizeof number) {
        memcpy(&bytes[at], &number, sizeof number);
    }
}

inline bool section_whole(const SectionBytes& bytes, int size) {
    return memcmp(&bytes[0], &bytes[4], static_cast<size_t>(size) - 4) == 0;
}

#endif  // TESTS_SYSTEM_SHM_SECTION_H
