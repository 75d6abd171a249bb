// Memory of the library that frees itself.
#ifndef TOOLS_VEXSIM_BLOCK_H
#define TOOLS_VEXSIM_BLOCK_H

#include <memory>

#include "vexel.h"

namespace vexsim {

struct FreeBlock {
    void operator()(void* block) const { vexel_free(block); }
};
template <typename T>
using Block = std::unique_ptr<T, FreeBlock>;

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_BLOCK_H
