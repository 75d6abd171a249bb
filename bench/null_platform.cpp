// The platform contract at no cost: what a case measures is the library. Mutexes and events are
// real.
#include <platform/bpapi.h>
#include <platform/debug_log.h>
#include <platform/evipc.h>
#include <platform/fqdd.h>
#include <platform/ipmi.h>
#include <platform/shm.h>
#include <platform/sm.h>

#include <condition_variable>
#include <cstring>
#include <mutex>

namespace {
unsigned char region_bytes[66000];
}  // namespace

int zentprintf(int, int, const char*, ...) {
    return 0;
}

struct SMMutexObject {
    std::mutex mutex;
};
SMMutexHandle SMMutexCreate(const char*) {
    return new SMMutexObject;
}
int SMMutexLock(SMMutexHandle mutex, int) {
    mutex->mutex.lock();
    return 0;
}
int SMMutexUnLock(SMMutexHandle mutex) {
    mutex->mutex.unlock();
    return 0;
}
int SMMutexDestroy(SMMutexHandle mutex) {
    delete mutex;
    return 0;
}

struct SMEventObject {
    std::mutex mutex;
    std::condition_variable changed;
    bool set = false;
};
SMEventHandle SMEventCreate(const char*, int) {
    return new SMEventObject;
}
int SMEventSet(SMEventHandle event) {
    const std::lock_guard lock{event->mutex};
    event->set = true;
    event->changed.notify_one();
    return 0;
}
int SMEventReset(SMEventHandle event) {
    const std::lock_guard lock{event->mutex};
    event->set = false;
    return 0;
}
int SMEventWait(SMEventHandle event, int) {
    std::unique_lock lock{event->mutex};
    event->changed.wait(lock, [event] { return event->set; });
    return 0;
}
int SMEventDestroy(SMEventHandle event) {
    delete event;
    return 0;
}

int Zent_shm_memread(int, void* dst, int offset, int count) {
    std::memcpy(dst, region_bytes + offset, static_cast<std::size_t>(count));
    return 0;
}
int Zent_shm_memwrite(int, const void* src, int offset, int count) {
    std::memcpy(region_bytes + offset, src, static_cast<std::size_t>(count));
    return 0;
}
void* Zent_shm_get_shm(int) {
    return region_bytes;
}
int Zent_shm_get_fruinfo(uint16_t, void*, const void*, uint32_t) {
    return 1;
}
int Zent_shm_get_frudata(uint16_t, void*, uint32_t) {
    return 1;
}

ZentBpApiHandle ZentBpApiOpenExec(ZentBpApiCallback, uint32_t, const char*, const char*, uint32_t,
                                  uint32_t) {
    return nullptr;
}
uint32_t ZentBpApiReadExec(ZentBpApiHandle, void*, const char*, const char*, uint32_t) {
    return 1;
}
uint32_t ZentBpApiWriteExec(ZentBpApiHandle, uint32_t, const void*, const char*, const char*,
                            uint32_t) {
    return 1;
}
uint32_t ZentBpApiCloseExec(ZentBpApiHandle, const char*, const char*, uint32_t) {
    return 1;
}
const char* ZentBpApiError(uint32_t) {
    return "none";
}
uint32_t Zent_get_system_id(void) {
    return 0;
}

int32_t EVIPCLBuildMsgArgsBuffer(const char* const*, uint8_t, char*, uint32_t*) {
    return -1;
}
int32_t EVIPCLCreateTLVList(void**) {
    return -1;
}
int32_t EVIPCLAddTLVToList(uint32_t, uint16_t, const void*, void*) {
    return -1;
}
int32_t EVIPCLFreeTLVList(void*) {
    return 0;
}
int32_t EVIPCLSubmitEvent(uint32_t, uint32_t, uint32_t, const char*, uint32_t, const char*, void*) {
    return -1;
}
int32_t EVIPCLSubmitSingle(const void*, uint32_t, uint32_t, uint16_t) {
    return -1;
}
char* ConvertFQDDToFriendlyName(const char*) {
    return nullptr;
}
int IPMI_DoIPMICmd(uint8_t, uint8_t, const uint8_t*, uint32_t, uint8_t*, uint32_t*) {
    return 0xFF;
}
