#include "rt_lclogwrp.h"

#include <platform/evipc.h>

#include "internal/log.h"

using namespace vexutils;

namespace {

// The codes are the event IPC library's own.
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

}  // namespace

int32_t rt_SubMitSingle(uint16_t value) {
    const SingleRequest request{sizeof(request), value, kSingleRequestCode, {}};
    const std::int32_t result = EVIPCLSubmitSingle(&request, kSingleSender, 0, value);
    LOG(Level::Trace, "EVIPCLSubmitSingle returned = %d", result);
    return result;
}
