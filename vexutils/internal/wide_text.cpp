#include "internal/wide_text.h"

#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <cwchar>

namespace vexutils {

namespace {

constexpr std::uint32_t kLastAscii = 0x7F;  // up to here every locale agrees

// wchar_t is signed on some machine models and unsigned on others.
bool is_ascii(wchar_t character) {
    return static_cast<std::uint32_t>(character) <= kLastAscii;
}

// Narrow form of one character in the process's locale; "?" if it has none.
std::size_t narrow_character(char* bytes, wchar_t character) {
    std::mbstate_t state{};
    const std::size_t length = std::wcrtomb(bytes, character, &state);
    if (length == static_cast<std::size_t>(-1)) {
        bytes[0] = '?';
        return 1;
    }
    return length;
}

bool has_narrow_form(wchar_t character) {
    char bytes[MB_LEN_MAX];
    std::mbstate_t state{};
    return is_ascii(character) ||
           std::wcrtomb(bytes, character, &state) != static_cast<std::size_t>(-1);
}

}  // namespace

void narrow(std::span<char> room, const wchar_t* text) {
    std::size_t used = 0;
    for (; text != nullptr && *text != L'\0'; ++text) {
        char bytes[MB_LEN_MAX] = {static_cast<char>(*text)};
        const std::size_t length = is_ascii(*text) ? 1 : narrow_character(bytes, *text);
        if (used + length >= room.size()) {
            break;
        }
        std::memcpy(room.data() + used, bytes, length);
        used += length;
    }
    room[used] = '\0';
}

std::size_t format_wide(std::span<wchar_t> room, const wchar_t* format, ...) {
    std::wmemset(room.data(), L'\0', room.size());
    va_list arguments;
    va_start(arguments, format);
    static_cast<void>(std::vswprintf(room.data(), room.size(), format, arguments));  // cut if long
    va_end(arguments);
    room.back() = L'\0';
    return std::wcslen(room.data());
}

Owned<wchar_t> copy_wide(const wchar_t* text) {
    if (text == nullptr) {
        return nullptr;
    }
    const std::size_t characters = std::wcslen(text) + 1;
    Owned<wchar_t> copy = make_owned<wchar_t>(characters);
    if (copy != nullptr) {
        std::memcpy(copy.get(), text, characters * sizeof(wchar_t));
    }
    return copy;
}

PrintableWide::PrintableWide(const wchar_t* text) : text_(text != nullptr ? text : L"(null)") {
    const wchar_t* first = text_;
    while (*first != L'\0' && has_narrow_form(*first)) {
        ++first;
    }
    if (*first == L'\0') {
        return;
    }
    copy_ = copy_wide(text_);
    if (copy_ == nullptr) {
        text_ = L"?";
        return;
    }
    for (wchar_t* character = copy_.get() + (first - text_); *character != L'\0'; ++character) {
        if (!has_narrow_form(*character)) {
            *character = L'?';
        }
    }
}

}  // namespace vexutils
