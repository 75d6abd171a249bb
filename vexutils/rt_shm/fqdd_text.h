// FQDDs taken apart: fields between separators, the numbers that they begin with.
#ifndef VEXUTILS_RT_SHM_FQDD_TEXT_H
#define VEXUTILS_RT_SHM_FQDD_TEXT_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vexutils {

// Copies the low bytes of 16-bit characters. room: zeroed, its last byte stays.
void narrow_by_halves(std::span<char> room, const char* text, std::size_t bytes);

// Takes the text before the next separator off the rest; separators in front are skipped, so that
// an empty field is the end.
std::string_view take_field(std::string_view& rest, char separator);

// The decimal number that a text begins with, its low 8 bits; 0 if it begins with none.
std::uint8_t leading_number(std::string_view text);

}  // namespace vexutils

#endif  // VEXUTILS_RT_SHM_FQDD_TEXT_H
