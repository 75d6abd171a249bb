#include "rt_cache/rt_cache_bitmap.h"

#include <array>
#include <cstring>

namespace vexutils {

namespace {

// "xx " and the "0" that a following zero byte starts with: four bytes are one store.
struct ByteText {
    char characters[4];
};

constexpr std::array<ByteText, 256> make_byte_texts() {
    constexpr char kDigits[] = "0123456789abcdef";
    std::array<ByteText, 256> texts{};
    for (std::size_t i = 0; i < texts.size(); ++i) {
        texts[i] = {{kDigits[i / 16], kDigits[i % 16], ' ', '0'}};
    }
    return texts;
}

constexpr std::array<char, 3 * kMaxBitmapBytes> make_zero_text() {
    std::array<char, 3 * kMaxBitmapBytes> text{};
    for (std::size_t i = 0; i < text.size(); ++i) {
        text[i] = i % 3 == 2 ? ' ' : '0';
    }
    return text;
}

constexpr auto kByteTexts = make_byte_texts();
constexpr auto kZeroText = make_zero_text();

// Bytes that are looked at together.
constexpr std::size_t kStride = 8;
static_assert(kMaxBitmapBytes % kStride == 0);

void put_byte(char* out, std::uint8_t byte) {
    std::memcpy(out, &kByteTexts[byte], sizeof(ByteText));
}

// Unrolled, since a loop costs as much as its bytes.
void put_stride(char* out, const std::uint8_t* bytes) {
#pragma GCC unroll 8
    for (std::size_t i = 0; i < kStride; ++i) {
        put_byte(out + 3 * i, bytes[i]);
    }
}

bool all_zero(const std::uint8_t* bytes) {
    std::uint64_t bits = 0;
    static_assert(sizeof(bits) == kStride);
    std::memcpy(&bits, bytes, sizeof(bits));
    return bits == 0;
}

}  // namespace

// Most bytes of most bitmaps are zero: their text is copied at once, and only strides that hold a
// bit are looked at.
BitmapText::BitmapText(const std::uint8_t* bitmap) {
    const std::size_t used = used_bitmap_bytes();
    std::memcpy(text_, kZeroText.data(), 3 * used);
    for (std::size_t at = 0; at < used; at += kStride) {
        // Same either way: of zeros, the text is there already.
        if (!all_zero(bitmap + at)) {
            put_stride(text_ + 3 * at, bitmap + at);
        }
    }
    text_[3 * used] = '\0';
}

}  // namespace vexutils
