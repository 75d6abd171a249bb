// Bitmaps of changed disks: disk k is bit (k mod 8) of byte (k div 8).
#ifndef VEXUTILS_RT_CACHE_RT_CACHE_BITMAP_H
#define VEXUTILS_RT_CACHE_RT_CACHE_BITMAP_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "rt_cache/rt_cache_state.h"

namespace vexutils {

inline constexpr std::size_t kMaxBitmapBytes = kMaxDisks / 8;

// Bytes of every bitmap that the effective number of disks uses.
inline std::size_t used_bitmap_bytes() VEX_REQUIRES(mutexRtCache) {
    return (disk_limit() + 7) / 8;
}

// disk: below 8 × the bitmap's size.
inline void set_disk_bit(std::span<std::uint8_t> bitmap, std::uint32_t disk) {
    std::uint8_t& byte = bitmap[disk / 8];
    byte = static_cast<std::uint8_t>(byte | 1U << disk % 8);
}

// The used bytes of a bitmap, each as two hexadecimal digits and a blank. Every event logs one, so
// it is made without a formatter, and small enough for a worker thread's stack.
class BitmapText {
  public:
    explicit BitmapText(const std::uint8_t* bitmap) VEX_REQUIRES(mutexRtCache);
    const char* get() const { return text_; }

  private:
    char text_[3 * kMaxBitmapBytes + 1];
};
inline constexpr std::size_t kMaxBitmapText = 2560;  // what a log line has room for
static_assert(sizeof(BitmapText) <= kMaxBitmapText);

}  // namespace vexutils

#endif  // VEXUTILS_RT_CACHE_RT_CACHE_BITMAP_H
