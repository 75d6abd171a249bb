#include "platform/evipc.h"

#include <syslog.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "event_log.h"
#include "os_support.h"
#include "platform/debug_log.h"
#include "platform/fqdd.h"

using namespace vexplatform;
using nlohmann::ordered_json;

namespace {

constexpr size_t kMaxTlvs = 16;       // chosen: an alert carries one
constexpr size_t kMaxMessageId = 63;  // chosen: registry ids have about 8 characters
constexpr size_t kMaxFqdd = 255;      // chosen: an FQDD of three parts has about 80
constexpr uint32_t kLowestSeverity = 1;
constexpr uint32_t kHighestSeverity = 3;

struct Tlv {
    uint32_t type;
    std::string value;
};

using TlvList = std::vector<Tlv>;

/*
 * Adds the arguments packed in value.
 * Returns: false if value is not a sequence of terminated texts.
 */
bool unpack_arguments(const std::string& value, ordered_json& arguments) {
    if (!value.empty() && value.back() != '\0') {
        return false;
    }
    for (size_t start = 0; start < value.size();) {
        const size_t end = value.find('\0', start);
        arguments.push_back(value.substr(start, end - start));
        start = end + 1;
    }
    return true;
}

std::string to_hex(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
        text += digits;
    }
    return text;
}

/* Adds what the list carries to the record. Returns: false if its arguments are damaged. */
bool add_list(const TlvList& list, ordered_json& record) {
    for (const Tlv& tlv : list) {
        if (tlv.type != EVIPC_TLV_MESSAGE_ARGUMENTS) {
            record["otherTlvs"].push_back({{"type", tlv.type}, {"hex", to_hex(tlv.value)}});
        } else if (!unpack_arguments(tlv.value, record["arguments"])) {
            return false;
        }
    }
    return true;
}

void add_device(const char* fqdd, ordered_json& record) {
    record["fqdd"] = fqdd;
    const std::unique_ptr<char, decltype(&std::free)> name{ConvertFQDDToFriendlyName(fqdd),
                                                           std::free};
    if (name != nullptr) {
        record["friendlyName"] = name.get();
    }
}

/* Syslog priority of an alert's severity; single values are informational. */
int syslog_priority(uint32_t severity) {
    constexpr int kPriorities[] = {LOG_INFO, LOG_INFO, LOG_WARNING, LOG_CRIT};
    return LOG_DAEMON | kPriorities[severity];
}

/* Writes a record. Returns: 0 on record, else a negative errno value. */
int32_t submit(const ordered_json& record, uint32_t severity) {
    // Texts come from devices: bytes that are no UTF-8 become the replacement character.
    const std::string text = record.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    const EventLogSettings settings = event_log_settings();
    const int error = append_event(settings, text.substr(1, text.size() - 2));
    if (error != 0) {
        zentprintf(kLogFailure, kLogModule, "event log %s: not recorded: %s\n",
                   settings.path.c_str(), std::strerror(error));
        return -error;
    }
    if (settings.mirror) {
        syslog(syslog_priority(severity), "%s", text.c_str());
    }
    return 0;
}

/*
 * Runs work that allocates.
 * Returns: its result, or a negative errno value instead of an exception.
 */
template <typename Work>
int32_t guarded(const Work& work) {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        return -ENOMEM;
    } catch (const std::exception& error) {
        zentprintf(kLogFailure, kLogModule, "event log: %s\n", error.what());
        return -EIO;
    }
}

}  // namespace

// Packed arguments are the texts one after the other, each with its terminator.
int32_t EVIPCLBuildMsgArgsBuffer(const char* const* strings, uint8_t count, char* buffer,
                                 uint32_t* size) {
    if (size == nullptr || (count > 0 && (strings == nullptr || buffer == nullptr))) {
        return -EINVAL;
    }
    size_t used = 0;
    for (unsigned i = 0; i < count; ++i) {
        if (strings[i] == nullptr) {
            return -EINVAL;
        }
        const size_t length = std::strlen(strings[i]) + 1;
        if (length > *size - used) {
            return -EMSGSIZE;
        }
        std::memcpy(buffer + used, strings[i], length);
        used += length;
    }
    *size = static_cast<uint32_t>(used);
    return 0;
}

int32_t EVIPCLCreateTLVList(void** list) {
    if (list == nullptr) {
        return -EINVAL;
    }
    *list = new (std::nothrow) TlvList;
    return *list == nullptr ? -ENOMEM : 0;
}

int32_t EVIPCLAddTLVToList(uint32_t type, uint16_t size, const void* value, void* list) {
    if (list == nullptr || (value == nullptr && size > 0)) {
        return -EINVAL;
    }
    auto& tlvs = *static_cast<TlvList*>(list);
    if (tlvs.size() == kMaxTlvs) {
        return -EMSGSIZE;
    }
    return guarded([&] {
        tlvs.push_back({type, std::string(static_cast<const char*>(value), size)});
        return 0;
    });
}

int32_t EVIPCLFreeTLVList(void* list) {
    delete static_cast<TlvList*>(list);
    return 0;
}

int32_t EVIPCLSubmitEvent(uint32_t /*c4*/, uint32_t /*c2*/, uint32_t severity,
                          const char* messageId, uint32_t /*zero*/, const char* fqdd, void* list) {
    if (messageId == nullptr || *messageId == '\0' || severity < kLowestSeverity ||
        severity > kHighestSeverity) {
        return -EINVAL;
    }
    if (strnlen(messageId, kMaxMessageId + 1) > kMaxMessageId ||
        (fqdd != nullptr && strnlen(fqdd, kMaxFqdd + 1) > kMaxFqdd)) {
        return -EMSGSIZE;
    }

    return guarded([&] {
        ordered_json record{{"kind", "alert"}, {"severity", severity}, {"messageId", messageId}};
        record["arguments"] = ordered_json::array();
        if (list != nullptr && !add_list(*static_cast<const TlvList*>(list), record)) {
            return -EINVAL;
        }
        if (fqdd != nullptr) {
            add_device(fqdd, record);
        }
        return submit(record, severity);
    });
}

int32_t EVIPCLSubmitSingle(const void* request, uint32_t /*two*/, uint32_t /*zero*/,
                           uint16_t value) {
    if (request == nullptr) {
        return -EINVAL;
    }
    uint32_t length = 0;
    uint16_t requested = 0;
    std::memcpy(&length, request, sizeof length);
    std::memcpy(&requested, static_cast<const char*>(request) + sizeof length, sizeof requested);
    if (length != EVIPC_SINGLE_REQUEST_SIZE || requested != value) {
        return -EINVAL;
    }
    return guarded([&] { return submit({{"kind", "single"}, {"value", value}}, 0); });
}
