// Records of shared-memory regions, written and read whole.
#ifndef TOOLS_VEXSIM_REGION_IO_H
#define TOOLS_VEXSIM_REGION_IO_H

#include <platform/shm.h>

#include "vexsim/runtime_failure.h"

namespace vexsim {

template <typename Record>
Record read_region(int region, int offset = 0) {
    Record record{};
    expect_zero("Zent_shm_memread", Zent_shm_memread(region, &record, offset, sizeof(record)));
    return record;
}

template <typename Record>
void write_region(int region, const Record& record, int offset = 0) {
    expect_zero("Zent_shm_memwrite", Zent_shm_memwrite(region, &record, offset, sizeof(record)));
}

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_REGION_IO_H
