#include <cstdlib>

#include "vexel.h"

void* vexel_alloc(size_t size) {
    return std::calloc(1, size);
}

void vexel_free(void* block) {
    std::free(block);
}
