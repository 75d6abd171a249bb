/*
 * shm_layout.h - the bytes of one region's shared-memory object, the same for every word size.
 *
 * A control block, then two copies of the region, each from a multiple of 64 bytes on. The lowest
 * bit of the generation says which copy is current; a write fills the other one and then stores the
 * next generation. An object of size 0, or one whose magic is still 0, is being made and holds
 * nothing yet.
 */
#ifndef PLATFORM_LINUX_SHM_LAYOUT_H
#define PLATFORM_LINUX_SHM_LAYOUT_H

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace vexplatform {

using ShmWord = std::atomic<uint32_t>;
static_assert(sizeof(ShmWord) == 4 && ShmWord::is_always_lock_free);

struct ShmControl {
    ShmWord magic;            // kShmMagic; stored last when the object is made
    uint32_t layout_version;  // kShmLayoutVersion
    uint32_t region_size;     // bytes of the region
    ShmWord generation;       // number of the last write; 0 nobody wrote yet
};
static_assert(sizeof(ShmControl) == 16, "shared by 32-bit and 64-bit processes");
static_assert(offsetof(ShmControl, generation) == 12, "shared by 32-bit and 64-bit processes");

inline constexpr uint32_t kShmMagic = 0x52584556;  // "VEXR" in memory
inline constexpr uint32_t kShmLayoutVersion = 1;
inline constexpr size_t kShmAlignment = 64;  // Chosen: a cache line.

constexpr size_t shm_copy_size(size_t region_size) {
    return (region_size + kShmAlignment - 1) / kShmAlignment * kShmAlignment;
}

// Where the copy lies that is current in a generation.
constexpr size_t shm_copy_offset(size_t region_size, uint32_t generation) {
    return kShmAlignment + generation % 2 * shm_copy_size(region_size);
}

constexpr size_t shm_object_size(size_t region_size) {
    return kShmAlignment + 2 * shm_copy_size(region_size);
}

}  // namespace vexplatform

#endif /* PLATFORM_LINUX_SHM_LAYOUT_H */
