// Memory of vexel_alloc that frees itself, until release() hands it over.
#ifndef VEXUTILS_INTERNAL_OWNED_H
#define VEXUTILS_INTERNAL_OWNED_H

#include <cstddef>
#include <memory>

#include "vexel.h"

namespace vexutils {

struct VexelFree {
    void operator()(void* block) const { vexel_free(block); }
};

template <class T>
using Owned = std::unique_ptr<T, VexelFree>;

// count zeroed elements of T, which must be plain data; null without memory or when the size
// overflows.
template <class T>
Owned<T> make_owned(std::size_t count = 1) {
    std::size_t size = 0;
    // NOLINTNEXTLINE(bugprone-sizeof-expression): T may be a pointer
    if (__builtin_mul_overflow(count, sizeof(T), &size)) {
        return nullptr;
    }
    return Owned<T>{static_cast<T*>(vexel_alloc(size))};
}

}  // namespace vexutils

#endif  // VEXUTILS_INTERNAL_OWNED_H
