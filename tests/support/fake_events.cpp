// What the fake platform does with events, friendly names and IPMI requests.
#include <gtest/gtest.h>
#include <platform/evipc.h>
#include <platform/fqdd.h>
#include <platform/ipmi.h>

#include <cstdlib>
#include <cstring>

#include "tests/support/fake_platform.h"

using fake::Place, fake::platform;

// ---- event IPC --------------------------------------------------------------------------------

constexpr int32_t kEventFailure = -7;

// Packs each text with a separator behind it; a list is a text of those.
int32_t EVIPCLBuildMsgArgsBuffer(const char* const* strings, uint8_t count, char* buffer,
                                 uint32_t* size) {
    std::string packed;
    for (unsigned i = 0; i < count; ++i) {
        packed += std::string{strings[i]} + ';';
    }
    if (platform().hit(Place::Call) || packed.size() > *size) {
        return kEventFailure;
    }
    *size = static_cast<uint32_t>(packed.copy(buffer, packed.size()));
    return 0;
}

int32_t EVIPCLCreateTLVList(void** list) {
    *list = nullptr;
    if (platform().hit(Place::Call)) {
        return kEventFailure;
    }
    *list = new std::string;
    ++platform().live_lists;
    return 0;
}

int32_t EVIPCLAddTLVToList(uint32_t type, uint16_t size, const void* value, void* list) {
    if (platform().hit(Place::Call)) {
        return kEventFailure;
    }
    EXPECT_EQ(type, static_cast<uint32_t>(EVIPC_TLV_MESSAGE_ARGUMENTS));
    static_cast<std::string*>(list)->append(static_cast<const char*>(value), size);
    return 0;
}

int32_t EVIPCLFreeTLVList(void* list) {
    if (list != nullptr) {
        delete static_cast<std::string*>(list);
        --platform().live_lists;
    }
    return 0;
}

int32_t EVIPCLSubmitEvent(uint32_t c4, uint32_t c2, uint32_t severity, const char* messageId,
                          uint32_t zero, const char* fqdd, void* list) {
    if (platform().hit(Place::Call)) {
        return kEventFailure;
    }
    const uint32_t numbers[] = {c4, c2, severity, zero};
    std::string text;
    for (const uint32_t number : numbers) {
        text += std::to_string(number) + ' ';
    }
    const std::lock_guard lock{platform().mutex};
    platform().submissions.push_back({text, messageId, fqdd != nullptr ? fqdd : "-",
                                      list != nullptr ? *static_cast<std::string*>(list) : "-"});
    return 0;
}

int32_t EVIPCLSubmitSingle(const void* request, uint32_t two, uint32_t zero, uint16_t value) {
    if (platform().hit(Place::Call)) {
        return kEventFailure;
    }
    const auto* bytes = static_cast<const uint8_t*>(request);
    fake::leaves(request, 16);
    EXPECT_EQ(two, 2u);
    EXPECT_EQ(zero, 0u);
    EXPECT_EQ(value, bytes[4] | bytes[5] << 8);
    const std::lock_guard lock{platform().mutex};
    platform().singles.emplace_back(bytes, bytes + 16);
    return 0;
}

// ---- names and IPMI ---------------------------------------------------------------------------

char* ConvertFQDDToFriendlyName(const char* fqdd) {
    if (platform().hit(Place::Call) || fqdd == std::string{"Unknown"}) {
        return nullptr;
    }
    const std::string name = std::string{"Friendly "} + fqdd;
    auto* copy = static_cast<char*>(std::malloc(name.size() + 1));
    return copy != nullptr ? std::strcpy(copy, name.c_str()) : nullptr;
}

int IPMI_DoIPMICmd(uint8_t netFn, uint8_t cmd, const uint8_t* request, uint32_t requestLength,
                   uint8_t* response, uint32_t* responseLength) {
    EXPECT_NE(response, nullptr);
    EXPECT_EQ(*responseLength, 0u);
    fake::leaves(request, requestLength);
    platform().ipmi_requests.push_back({netFn, cmd});
    auto& bytes = platform().ipmi_requests.back();
    bytes.insert(bytes.end(), request, request + requestLength);
    return platform().hit(Place::Call) ? 0xC1 : platform().ipmi_result;
}
