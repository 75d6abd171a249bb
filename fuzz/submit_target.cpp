// Alerts with arbitrary texts in every phase, message strings, and the rules alone.
#include <cwchar>
#include <string>

#include "fuzz/fuzz_platform.h"
#include "rt_lclogwrp.h"
#include "rt_sync.h"

namespace {

std::string text(fuzz::Input& input) {
    std::string result(input.byte() % 64, '\0');
    input.take(result.data(), result.size());
    return result.c_str();  // up to the first zero
}

std::wstring wide(fuzz::Input& input) {
    static constexpr const wchar_t* kParts[] = {L"RAID.", L"NonRAID", L"Slot.3-1", L":Disk.Bay.7"};
    std::wstring result;
    for (int parts = input.byte() % 40; parts > 0; --parts) {
        const std::uint8_t byte = input.byte();
        result += byte < 128 ? std::wstring{kParts[byte % 4]}
                             : std::wstring(1, static_cast<wchar_t>(byte * 257));
    }
    return result.c_str();
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::reset();
    fuzz::Input input{data, size};
    RTSync_Init();
    RTSyncGlobalStatus status{};
    status.flags = input.number<std::uint16_t>();
    status.phase = input.number<std::uint16_t>();
    RTSync_LockGlobalStatus();
    RTSync_SetGlobalStatus(status);
    RTSync_UnLockGlobalStatus();
    while (!input.empty()) {
        std::string texts[5];
        const char* args[5];
        for (int i = 0; i < 5; ++i) {
            texts[i] = text(input);
            args[i] = input.byte() == 0 ? nullptr : texts[i].c_str();
        }
        const std::string id = input.byte() % 2 == 0 ? "PDR3" + text(input) : text(input);
        const std::wstring fqdd = wide(input);
        rt_JWLOGCMNSubmitEvent(input.byte() % 5, id.c_str(), fqdd.c_str(), args, input.byte() % 7);
        char message[40];
        rt_Buildmsgstring(0, fqdd.c_str(), message, input.byte() % 41);
        rt_JWLOGCMNSubmitEvent_nonRaid(0, 0, 1, id.c_str());
    }
    RTSync_Destroy();
    return fuzz::platform().locks_held == 0 ? 0 : -1;
}
