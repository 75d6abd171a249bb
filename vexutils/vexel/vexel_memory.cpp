#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "internal/log.h"
#include "internal/owned.h"
#include "vexel.h"

using namespace vexutils;

// Most blocks are small, and some C libraries serve those from a list of the thread's own for
// malloc, but not for calloc. Large ones keep calloc, which leaves fresh pages untouched.
void* vexel_alloc(size_t size) {
    constexpr std::size_t kSmall = 1024;
    if (size > kSmall) {
        return std::calloc(1, size);
    }
    void* block = std::malloc(size);
    return block != nullptr ? std::memset(block, 0, size) : nullptr;
}

void vexel_free(void* block) {
    std::free(block);
}

void** vexel_alloc_2darray(size_t rows, size_t columns, size_t elementSize) {
    std::size_t row_bytes = 0;
    std::size_t block_bytes = 0;
    if (__builtin_mul_overflow(columns, elementSize, &row_bytes) ||
        __builtin_mul_overflow(rows, row_bytes, &block_bytes)) {
        return nullptr;
    }
    // Freeing and indexing read row 0, so the table has one even for no rows.
    Owned<void*> table = make_owned<void*>(std::max<std::size_t>(rows, 1));
    if (table == nullptr || rows == 0) {
        return table.release();  // the caller's, see vexel_free_2darray
    }
    Owned<unsigned char> block = make_owned<unsigned char>(std::max<std::size_t>(block_bytes, 1));
    if (block == nullptr) {
        return nullptr;
    }

    for (std::size_t row = 0; row < rows; ++row) {
        table.get()[row] = block.get() + row * row_bytes;
    }
    static_cast<void>(block.release());  // row 0 of the table
    return table.release();
}

void vexel_free_2darray(void** table, size_t) {
    LOG(Level::Trace, "%s", "--> entry ");
    if (table != nullptr) {
        vexel_free(table[0]);
        vexel_free(table);
    }
    LOG(Level::Trace, "%s", "<-- exit ");
}

int memcpy_safe(void* destination, size_t destinationSize, const void* source, size_t count) {
    LOG(Level::Trace, "%s", " entry");
    if (destination != nullptr && source != nullptr && count <= destinationSize) {
        std::memcpy(destination, source, count);
    } else {
        LOG(Level::Trace, "%s", " Invalid arguments");
    }
    LOG(Level::Trace, "%s", " exit");
    return 0;  // Kept: a refused copy looks like a done one.
}
