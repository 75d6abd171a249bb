#include "fuzz/fuzz_platform.h"

#include <platform/debug_log.h>
#include <platform/evipc.h>
#include <platform/fqdd.h>
#include <platform/ipmi.h>
#include <platform/shm.h>
#include <platform/sm.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "internal/vexel_state.h"

namespace fuzz {

Platform& platform() {
    static Platform instance;
    return instance;
}

void reset() {
    Platform& p = platform();
    for (auto& region : p.regions) {
        region.clear();
    }
    p.regions[ZENT_SHM_STORAGE_INVENTORY].resize(ZENT_SHM_STORAGE_INVENTORY_SIZE);
    p.regions[ZENT_SHM_EXTENDER_CARDS].resize(ZENT_SHM_EXTENDER_CARDS_SIZE);
    p.regions[ZENT_SHM_PCIESSD_STATUS].resize(ZENT_SHM_PCIESSD_STATUS_SIZE);
    p.regions[ZENT_SHM_PCIESSD_FRU].resize(ZENT_SHM_PCIESSD_FRU_SIZE);
    p.regions[ZENT_SHM_FRU_TABLE].resize(ZENT_SHM_FRU_TABLE_SIZE);
    p.regions[ZENT_SHM_THERMAL_SETTINGS].resize(ZENT_SHM_THERMAL_SETTINGS_SIZE);
    std::memset(&p.snapshot, 0, sizeof(p.snapshot));
    p.read_fails = false;
    p.system_id = 0;
    p.fru_info.clear();
    p.fru_data.clear();
    vexutils::log_state.file = vexutils::LogFile::Disabled;
}

namespace {

[[noreturn]] void misuse(const char* what) {
    std::fprintf(stderr, "misuse of the platform: %s\n", what);
    std::abort();
}

std::uint8_t* range_of(int region, int offset, int count) {
    if (region < 0 || region >= 64 || offset < 0 || count < 0) {
        return nullptr;
    }
    auto& bytes = platform().regions[region];
    const auto end = static_cast<std::size_t>(offset) + static_cast<std::size_t>(count);
    return end <= bytes.size() ? bytes.data() + offset : nullptr;
}

}  // namespace
}  // namespace fuzz

using fuzz::misuse;
using fuzz::platform;

// Formats like a real sink, so that every argument of every line is read.
int zentprintf(int, int, const char* format, ...) {
    static char text[8192];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    if (length < 0) {
        misuse("a line that cannot be converted");
    }
    return length;
}

struct SMMutexObject {
    bool held = false;
};
SMMutexHandle SMMutexCreate(const char*) {
    return new SMMutexObject;
}
int SMMutexLock(SMMutexHandle mutex, int) {
    if (mutex == nullptr) {
        return 1;
    }
    if (mutex->held) {
        misuse("recursive lock");
    }
    mutex->held = true;
    ++platform().locks_held;
    return 0;
}
int SMMutexUnLock(SMMutexHandle mutex) {
    if (mutex == nullptr || !mutex->held) {
        return 1;
    }
    mutex->held = false;
    --platform().locks_held;
    return 0;
}
int SMMutexDestroy(SMMutexHandle mutex) {
    delete mutex;
    return 0;
}

struct SMEventObject {
    bool set = false;
};
SMEventHandle SMEventCreate(const char*, int) {
    return new SMEventObject;
}
int SMEventSet(SMEventHandle event) {
    event->set = true;
    return 0;
}
int SMEventReset(SMEventHandle event) {
    event->set = false;
    return 0;
}
int SMEventWait(SMEventHandle event, int) {
    return event->set ? 0 : 1;
}
int SMEventDestroy(SMEventHandle event) {
    delete event;
    return 0;
}

int Zent_shm_memread(int region, void* dst, int offset, int count) {
    const std::uint8_t* bytes = fuzz::range_of(region, offset, count);
    if (bytes == nullptr || platform().read_fails) {
        return 1;
    }
    std::memcpy(dst, bytes, static_cast<std::size_t>(count));
    return 0;
}
int Zent_shm_memwrite(int region, const void* src, int offset, int count) {
    std::uint8_t* bytes = fuzz::range_of(region, offset, count);
    if (bytes == nullptr) {
        misuse("write outside a region");
    }
    std::memcpy(bytes, src, static_cast<std::size_t>(count));
    return 0;
}
void* Zent_shm_get_shm(int region) {
    return region >= 0 && region < 64 && !platform().regions[region].empty()
               ? platform().regions[region].data()
               : nullptr;
}
int Zent_shm_get_fruinfo(uint16_t, void* fruInfo, const void*, uint32_t) {
    if (platform().fru_info.size() != 15) {
        return 1;
    }
    std::memcpy(fruInfo, platform().fru_info.data(), 15);
    return 0;
}
int Zent_shm_get_frudata(uint16_t, void* buffer, uint32_t size) {
    if (size > platform().fru_data.size()) {
        return 1;
    }
    std::memcpy(buffer, platform().fru_data.data(), size);
    return 0;
}

struct ZentBpApiObject {
    int unused = 0;
};
ZentBpApiHandle ZentBpApiOpenExec(ZentBpApiCallback callback, uint32_t, const char*, const char*,
                                  uint32_t, uint32_t) {
    if (callback != nullptr) {
        platform().callback = callback;
    }
    return new ZentBpApiObject;
}
uint32_t ZentBpApiReadExec(ZentBpApiHandle, void* buffer5362, const char*, const char*, uint32_t) {
    std::memcpy(buffer5362, &platform().snapshot, sizeof(BpApiInfo));
    return 0;
}
uint32_t ZentBpApiWriteExec(ZentBpApiHandle, uint32_t, const void*, const char*, const char*,
                            uint32_t) {
    return 0;
}
uint32_t ZentBpApiCloseExec(ZentBpApiHandle handle, const char*, const char*, uint32_t) {
    delete handle;
    return 0;
}
const char* ZentBpApiError(uint32_t) {
    return nullptr;
}
uint32_t Zent_get_system_id(void) {
    return platform().system_id;
}

int32_t EVIPCLBuildMsgArgsBuffer(const char* const* strings, uint8_t count, char* buffer,
                                 uint32_t* size) {
    uint32_t used = 0;
    for (unsigned i = 0; i < count; ++i) {
        const std::size_t length = std::strlen(strings[i]) + 1;
        if (length > *size - used) {
            return -1;
        }
        std::memcpy(buffer + used, strings[i], length);
        used += static_cast<uint32_t>(length);
    }
    *size = used;
    return 0;
}
int32_t EVIPCLCreateTLVList(void** list) {
    *list = std::malloc(1);
    return 0;
}
int32_t EVIPCLAddTLVToList(uint32_t, uint16_t, const void*, void*) {
    return 0;
}
int32_t EVIPCLFreeTLVList(void* list) {
    std::free(list);
    return 0;
}
int32_t EVIPCLSubmitEvent(uint32_t, uint32_t, uint32_t, const char*, uint32_t, const char* fqdd,
                          void*) {
    return fqdd != nullptr && std::strlen(fqdd) > 99 ? (misuse("an FQDD of over 99 characters"), -1)
                                                     : 0;
}
int32_t EVIPCLSubmitSingle(const void*, uint32_t, uint32_t, uint16_t) {
    return 0;
}

char* ConvertFQDDToFriendlyName(const char* fqdd) {
    return fqdd[0] == 'x' ? nullptr : strdup(fqdd);
}
int IPMI_DoIPMICmd(uint8_t, uint8_t, const uint8_t*, uint32_t, uint8_t*, uint32_t*) {
    return 0xC1;
}
