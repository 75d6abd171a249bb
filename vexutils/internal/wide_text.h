// Wide text (4-byte characters): copies, bounded formatting, narrowing. Nothing here logs or calls
// setlocale; what has no narrow form in the process's locale becomes "?".
#ifndef VEXUTILS_INTERNAL_WIDE_TEXT_H
#define VEXUTILS_INTERNAL_WIDE_TEXT_H

#include <cstddef>
#include <span>

#include "internal/owned.h"

namespace vexutils {

// Writes text to room as narrow characters, whole ones only, cut to fit and always terminated; null
// reads as empty. room: at least 1 byte.
void narrow(std::span<char> room, const wchar_t* text);

// Writes a printf format to room, cut to fit and always terminated (the C library leaves a full
// buffer without a terminator). Returns the length written. room: at least 1 character.
std::size_t format_wide(std::span<wchar_t> room, const wchar_t* format, ...);

// A vexel_alloc copy of text; null for null or without memory.
Owned<wchar_t> copy_wide(const wchar_t* text);

// Wide text that every sink can convert: the text itself where it can, else a copy with "?" in
// place of what cannot be.
class PrintableWide {
  public:
    explicit PrintableWide(const wchar_t* text);
    const wchar_t* get() const { return copy_ ? copy_.get() : text_; }

  private:
    const wchar_t* text_;
    Owned<wchar_t> copy_;
};

}  // namespace vexutils

#endif  // VEXUTILS_INTERNAL_WIDE_TEXT_H
