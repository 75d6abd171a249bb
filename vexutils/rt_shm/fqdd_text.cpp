#include "rt_shm/fqdd_text.h"

#include <algorithm>

namespace vexutils {

void narrow_by_halves(std::span<char> room, const char* text, std::size_t bytes) {
    const std::size_t characters = std::min(bytes / 2 + bytes % 2, room.size() - 1);
    for (std::size_t i = 0; i < characters; ++i) {
        room[i] = text[2 * i];
    }
}

std::string_view take_field(std::string_view& rest, char separator) {
    rest.remove_prefix(std::min(rest.find_first_not_of(separator), rest.size()));
    const std::string_view field = rest.substr(0, rest.find(separator));
    rest.remove_prefix(std::min(field.size() + 1, rest.size()));
    return field;
}

std::uint8_t leading_number(std::string_view text) {
    unsigned number = 0;
    for (const char digit : text.substr(0, text.find_first_not_of("0123456789"))) {
        number = number * 10 + static_cast<unsigned>(digit - '0');
    }
    return static_cast<std::uint8_t>(number);
}

}  // namespace vexutils
