#include "rt_lclogwrp.h"

#include <platform/evipc.h>
#include <platform/fqdd.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "internal/log.h"
#include "internal/owned.h"

using namespace vexutils;

namespace {

// The codes are the event IPC library's own.
constexpr std::uint32_t kSender = 4;
constexpr std::uint32_t kSenderClass = 1;  // Kept: alerts with a device carry 2.
constexpr std::uint8_t kSingleRequestCode = 2;
constexpr std::uint32_t kSingleSender = 2;

#pragma pack(push, 1)
struct SingleRequest {
    std::uint32_t length;
    std::uint16_t value;
    std::uint8_t code;
    std::uint8_t rsvd7[9];
};
#pragma pack(pop)
static_assert(sizeof(SingleRequest) == EVIPC_SINGLE_REQUEST_SIZE);

constexpr std::size_t kMaxFqddLength = 0xFFFE;  // lengths are counted in 16 bits

}  // namespace

int32_t rt_Buildmsgstring(uint32_t, const wchar_t* fqdd, char* buffer, uint32_t size) {
    if (fqdd == nullptr || buffer == nullptr) {
        LOG(Level::Error, "err1:fqdd or msgstr is NULL");
        return -1;
    }
    const std::size_t length = std::wcslen(fqdd);
    if (length > kMaxFqddLength) {
        LOG(Level::Error, "err3:failed to convert fqdd to multibytes");
        return -1;
    }
    const auto narrow_fqdd = make_owned<char>(length + 1);
    if (narrow_fqdd == nullptr) {
        LOG(Level::Error, "err2:failed to get memory");
        return -1;
    }
    if (std::wcstombs(narrow_fqdd.get(), fqdd, length) != length) {
        LOG(Level::Error, "err3:failed to convert fqdd to multibytes");
        return -1;
    }
    LOG(Level::Error, "FQDD string to be passed to ConvertFQDDToFriendlyName() : %s",
        narrow_fqdd.get());
    const Owned<char> name{ConvertFQDDToFriendlyName(narrow_fqdd.get())};
    if (name == nullptr) {
        LOG(Level::Error, "err5 failed to get friendlyName");
        return -1;
    }
    const std::size_t name_length = std::strlen(name.get());
    if (name_length >= size) {
        // Kept: the words are the reverse of what happened.
        LOG(Level::Error, "err4:bufSize is > the friendlyfqdd name len");
        return -1;
    }

    std::memset(buffer, 0, size);
    std::memcpy(buffer, name.get(), name_length);
    return 0;
}

int32_t rt_JWLOGCMNSubmitEvent_nonRaid(uint32_t, uint32_t, uint32_t severity,
                                       const char* messageId) {
    LOG(Level::Trace, "--> entry");
    if (messageId == nullptr || messageId[0] == '\0') {
        LOG(Level::Error, "<-- exit, msgid is not valid");
        return -1;
    }
    const std::int32_t result =
        EVIPCLSubmitEvent(kSender, kSenderClass, severity, messageId, 0, nullptr, nullptr);
    if (result != 0) {
        LOG(Level::Error, "Error: call to EVIPCLSubmitEvent() failed with return code:%d", result);
        return -1;
    }
    LOG(Level::Trace, "<-- exit");
    return 0;
}

int32_t rt_SubMitSingle(uint16_t value) {
    const SingleRequest request{sizeof(request), value, kSingleRequestCode, {}};
    const std::int32_t result = EVIPCLSubmitSingle(&request, kSingleSender, 0, value);
    LOG(Level::Trace, "EVIPCLSubmitSingle returned = %d", result);
    return result;
}
