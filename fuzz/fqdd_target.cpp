// Texts that are taken apart: FQDDs in both widths, and the job filter, which interprets what it is
// given.
#include <cwchar>
#include <string>
#include <vector>

#include "fuzz/fuzz_platform.h"
#include "rt_shm.h"
#include "rt_sync.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::reset();
    fuzz::Input input{data, size};
    const std::uint8_t length = input.byte();
    std::vector<char> bytes(256);
    static constexpr const char* kStarts[] = {"", "PCIeSSD.", "Disk.Bay.7:Enclosure.Internal.0-2:"};
    const std::string start = kStarts[input.byte() % 3];
    std::memcpy(bytes.data(), start.data(), start.size());
    input.take(bytes.data() + start.size(), 255 - start.size());
    std::uint8_t bay = 0, slot = 0;
    std::uint32_t type = 0;
    getBayIDandSlotFromFqdd(bytes.data(), length, &bay, &slot);
    getBayIDandSlotFromFqdd(bytes.data(), 0, &bay, &slot);
    getSlotandSlotIndexfromFQDD(bytes.data(), length, &slot, &bay, &type);
    getSlotandSlotIndexfromFQDD(bytes.data(), 0, &slot, &bay, &type);

    std::vector<std::wstring> texts;
    std::vector<const wchar_t*> fqdds;
    for (int i = input.byte() % 8; i > 0; --i) {
        std::wstring text;
        for (int n = input.byte() % 90; n > 0; --n) {
            const std::uint8_t byte = input.byte();
            text += byte < 16 ? L'%' : static_cast<wchar_t>(byte);
        }
        texts.emplace_back(text.c_str());
    }
    for (const std::wstring& text : texts) {
        fqdds.push_back(text.c_str());
    }
    updateNotifFQDD(static_cast<std::int32_t>(fqdds.size()), fqdds.data());
    for (const wchar_t* fqdd : fqdds) {
        isFQDDEIDPresent(fqdd, bay, 0);
        isFQDDEIDPresent(fqdd, slot, 1);
    }
    isTAVIFQDDEIDPresent(slot);
    freeHybridData(&g_hybridJobData);
    return 0;
}
