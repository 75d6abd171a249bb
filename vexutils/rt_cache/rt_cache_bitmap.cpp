#include "rt_cache/rt_cache_bitmap.h"

#include <array>
#include <bit>
#include <cstring>

namespace vexutils {

namespace {

// Byte i of a word is its bits 8i to 8i + 7.
using Word = std::size_t;
static_assert(std::endian::native == std::endian::little);
static_assert(kMaxBitmapBytes % sizeof(Word) == 0);

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

}  // namespace

// Most bytes of most bitmaps are zero: their text is copied at once, and only words that hold a
// bit are looked at, once if it is the only one, else by byte, unrolled since a loop costs as much
// as its bytes.
BitmapText::BitmapText(const std::uint8_t* bitmap) {
    std::memcpy(text_, kZeroText.data(), kZeroText.size());
    for (std::size_t at = 0; at < kMaxBitmapBytes; at += sizeof(Word)) {
        Word word = 0;
        std::memcpy(&word, bitmap + at, sizeof(word));
        const auto put = [&](std::size_t i) {
            std::memcpy(text_ + 3 * (at + i), &kByteTexts[word >> 8 * i & 0xFF], sizeof(ByteText));
        };
        if (std::has_single_bit(word)) {
            put(static_cast<std::size_t>(std::countr_zero(word)) / 8);
        } else if (word != 0) {
#pragma GCC unroll 8
            for (std::size_t i = 0; i < sizeof(Word); ++i) {
                put(i);
            }
        }
    }
    text_[3 * used_bitmap_bytes()] = '\0';
}

}  // namespace vexutils
