#include "rt_lclogwrp.h"

#include <platform/evipc.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <span>

#include "internal/log.h"
#include "internal/owned.h"
#include "internal/wide_text.h"
#include "rt_lclogwrp/filter.h"
#include "rt_sync.h"

namespace vexutils {
namespace {

constexpr char kSubmit[] = "rt_JWLOGCMNSubmitEvent";

// The codes are the event IPC library's own.
constexpr std::uint32_t kSender = 4;
constexpr std::uint32_t kSenderClass = 2;

constexpr std::uint32_t kMaxSeverity = 3;
constexpr std::uint32_t kArgumentBytes = 200;
constexpr std::size_t kFqddBytes = 101;
constexpr std::size_t kFqddUsed = 100;  // with the terminator

struct FreeTlvList {
    void operator()(void* list) const { EVIPCLFreeTLVList(list); }
};
using TlvList = std::unique_ptr<void, FreeTlvList>;

// What the inventory rules tell the log about an alert.
void log_inventory_rule(const char* id, RtRule rule) {
    LOG_AS(kSubmit, Level::Trace, "JW logging request in inventory phase:[%s]", id);
    if (rule == RT_RULE_INVENTORY) {
        LOG_AS(kSubmit, Level::Trace, "No logging JW alert in invenotry phase, suppress it");
        return;
    }
    if (rule != RT_RULE_NONRAID_DEVICE && rule != RT_RULE_RAID_DEVICE &&
        rule != RT_RULE_OTHER_DEVICE) {
        return;
    }
    LOG_AS(kSubmit, Level::Trace, "JWL check for non-RAID components BEFORE: %d", 1);
    if (rule == RT_RULE_RAID_DEVICE) {
        LOG_AS(kSubmit, Level::Trace, "No logging JW alert in KronReinventory, suppress it");
        return;
    }
    LOG_AS(kSubmit, Level::Trace, "%s",
           rule == RT_RULE_NONRAID_DEVICE ? "Non RAID JWL" : "NON KRON and NON-HBA JWL");
    LOG_AS(kSubmit, Level::Trace, "JWL check for non-RAID components AFTER: %d", 0);
}

// Packs the arguments for the submission. Returns: false if the alert ends here.
bool pack_arguments(std::span<const char* const> args, bool refused, TlvList& list) {
    const char* texts[RT_MESSAGE_ARGUMENTS] = {};
    const auto count = static_cast<std::uint8_t>(args.size());
    LOG_AS(kSubmit, Level::Trace, "count received:%d", count);
    for (unsigned i = 0; i < count; ++i) {
        texts[i] = args[i] != nullptr ? args[i] : "";
        LOG_AS(kSubmit, Level::Trace, "length of [%d] argument string received:%d", i,
               static_cast<int>(std::strlen(texts[i])));
        LOG_AS(kSubmit, Level::Trace, "count [%d], string:'%s'", i, texts[i]);
    }
    // One byte more than the event IPC library is told of: for a terminator, which the log needs.
    const auto buffer = make_owned<char>(kArgumentBytes + 1);
    if (buffer == nullptr) {
        LOG_AS(kSubmit, Level::Error, "Error: vexel_alloc failed, msgArgsBuf is NULL");
        return false;
    }
    LOG_AS(kSubmit, Level::Error, " Past event mode %d", refused);
    if (refused) {
        LOG_AS(kSubmit, Level::Error, "Error: EVIPCLSubmitEvent() failed with return code:%d", -1);
        return false;
    }

    std::uint32_t size = kArgumentBytes;
    std::int32_t result = EVIPCLBuildMsgArgsBuffer(texts, count, buffer.get(), &size);
    if (result != 0) {
        LOG_AS(kSubmit, Level::Error, "Error: EVIPCLBuildMsgArgsBuffer failed [%d]", result);
        return false;
    }
    size = std::min(size, kArgumentBytes);
    buffer.get()[size] = '\0';
    LOG_AS(kSubmit, Level::Trace, "msgArgsBuf:'%s'", buffer.get());
    void* created = nullptr;
    result = EVIPCLCreateTLVList(&created);
    if (result != 0) {
        LOG_AS(kSubmit, Level::Error, "Error: EVJWLWRAPCreateTLVList failed [%d]", result);
        return false;
    }
    list.reset(created);
    result = EVIPCLAddTLVToList(EVIPC_TLV_MESSAGE_ARGUMENTS, static_cast<std::uint16_t>(size),
                                buffer.get(), list.get());
    if (result != 0) {
        LOG_AS(kSubmit, Level::Error, "Error: EVIPCLAddTLVToList failed [%d]", result);
        LOG_AS(kSubmit, Level::Error, "Error: EVIPCLSubmitEvent() failed with return code:%d", -1);
        return false;
    }
    return true;
}

}  // namespace
}  // namespace vexutils

using namespace vexutils;

int32_t rt_JWLOGCMNSubmitEvent(uint32_t severity, const char* messageId, const wchar_t* fqdd,
                               const char* const* args, uint8_t count) {
    LOG(Level::Trace, "--> entry");
    if (count > RT_MESSAGE_ARGUMENTS || (count != 0 && args == nullptr) || messageId == nullptr ||
        severity == 0 || severity > kMaxSeverity || fqdd == nullptr) {
        LOG(Level::Error, "Error: Inappropriate severity level received:%d", severity);
        LOG(Level::Error, "Error: Number of strings input count:%d", count);
        LOG(Level::Error, "Error: args string pointer address:%p", static_cast<const void*>(args));
        LOG(Level::Error, "Error: MessageID pointer received:%p FQDD %p",
            static_cast<const void*>(messageId), static_cast<const void*>(fqdd));
        return 2;
    }
    SystemState state;  // without the lock no rule applies
    if (RTSync_LockGlobalStatus() == 0) {
        RTSyncGlobalStatus status{};
        const std::uint32_t result = RTSync_GetGlobalStatus(&status);
        RTSync_UnLockGlobalStatus();
        if (result != 0) {
            LOG(Level::Error, "<-- return, RTSync_GetGlobalStatus failed!!");
            return -1;
        }
        state = system_state(status.flags, status.phase);
    }

    const Decision decision = decide({messageId, fqdd, count}, state);
    if (state.inventory) {
        log_inventory_rule(messageId, decision.inventory_rule);
    }
    if (decision.verdict == RT_VERDICT_SUPPRESSED) {
        return 0;
    }
    if (!state.live) {
        LOG(Level::Trace, "We are in past event processing after kron reset:[%s]", messageId);
    }
    TlvList list;
    if (count != 0 &&
        !pack_arguments({args, count}, decision.verdict == RT_VERDICT_REFUSED, list)) {
        return -1;
    }
    const auto narrow_fqdd = make_owned<char>(kFqddBytes);
    if (narrow_fqdd != nullptr) {
        narrow({narrow_fqdd.get(), kFqddUsed}, fqdd);
    } else {
        LOG(Level::Error, "fqdd pointer allocated as NULL.");
    }
    const std::int32_t result = EVIPCLSubmitEvent(kSender, kSenderClass, severity, messageId, 0,
                                                  narrow_fqdd.get(), list.get());
    if (result != 0) {
        LOG(Level::Error, "Error: call to EVIPCLSubmitEvent() failed with return code:%d", result);
        return -1;
    }
    return 0;
}
