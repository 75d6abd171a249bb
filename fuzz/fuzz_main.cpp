// What libFuzzer calls. VEX_FUZZ_TARGET names the target.
#include <algorithm>
#include <cstdlib>

#include "fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const fuzz::Target& chosen = []() -> const fuzz::Target& {
        const char* name = std::getenv("VEX_FUZZ_TARGET");
        const auto& all = fuzz::targets();
        const auto found =
            std::ranges::find(all, std::string{name != nullptr ? name : ""},
                              [](const fuzz::Target* target) { return target->name; });
        if (found == all.end()) {
            std::exit(2);
        }
        return **found;
    }();
    fuzz::run(chosen, data, size);
    return 0;
}
