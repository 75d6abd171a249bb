// Regions that other daemons write: the dump of the inventory, the polling flags, the split mode.
#include "fuzz/fuzz_platform.h"
#include "rt_shm.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::reset();
    fuzz::Input input{data, size};
    fuzz::platform().read_fails = input.byte() == 0xFF;
    for (const int region : {3, 20, 55}) {
        auto& bytes = fuzz::platform().regions[region];
        input.take(bytes.data(), bytes.size());
    }
    RTSHM_DumpSharedMem();
    std::uint8_t flags[4];
    std::uint8_t split[SHM_SPLIT_MODE_BYTES];
    RTSHM_ReadSharedThermalPolling(flags);
    RTSHM_readBackplaneSharedMem(split);
    return 0;
}
