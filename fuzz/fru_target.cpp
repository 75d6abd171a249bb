// The FRU table, the information records and the data of cards, all from outside.
#include "fuzz/fuzz_platform.h"
#include "rt_shm.h"
#include "vexel.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::reset();
    fuzz::Input input{data, size};
    const std::uint8_t type = input.byte();
    const std::uint8_t slot = input.byte();
    if (input.byte() % 8 != 0) {
        fuzz::platform().fru_info.resize(15);
        input.take(fuzz::platform().fru_info.data(), 15);
    }
    fuzz::platform().fru_data.resize(input.number<std::uint16_t>());
    input.take(fuzz::platform().fru_data.data(),
               fuzz::platform().fru_data.size() < 64 ? fuzz::platform().fru_data.size() : 64);
    auto& table = fuzz::platform().regions[49];
    input.take(table.data(), table.size());

    std::uint8_t* fru = nullptr;
    std::uint32_t bytes = 0;
    if (get_HBA_FRU_Info(&fru, &bytes, type, slot) == 0) {
        get_TAVI_Revison(fru, bytes);
    }
    vexel_free(fru);
    fru = nullptr;
    get_KRON_TAVI_FRU_Info(&fru, &bytes, type, slot);
    vexel_free(fru);
    is_TAVI_A2_Present();
    std::uint8_t slot_number = 0;
    std::uint8_t revision = 0;
    update_TAVI_FRU_Info(table.data() + 9, &slot_number, &revision);
    return 0;
}
