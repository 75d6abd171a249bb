#include "platform/sm.h"

#include <pthread.h>

#include <cerrno>
#include <ctime>
#include <new>

#if defined(__SANITIZE_THREAD__)
#define VEX_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define VEX_THREAD_SANITIZER 1
#endif
#endif
#ifdef VEX_THREAD_SANITIZER
#include <sanitizer/tsan_interface.h>
#endif

struct SMMutexObject {
    pthread_mutex_t mutex;
};

struct SMEventObject {
    pthread_mutex_t mutex; /* guards set */
    pthread_cond_t changed;
    bool manual_reset;
    bool set;
};

namespace {

// Scoped, since a wait may end by cancellation of its thread.
class EventGuard {
  public:
    explicit EventGuard(SMEventHandle event) : event_{event} { pthread_mutex_lock(&event_->mutex); }
    ~EventGuard() { pthread_mutex_unlock(&event_->mutex); }
    EventGuard(const EventGuard&) = delete;
    EventGuard& operator=(const EventGuard&) = delete;

  private:
    SMEventHandle event_;
};

timespec monotonic_deadline(int timeout_ms) {
    constexpr long kNanosecondsPerSecond = 1'000'000'000;
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += timeout_ms / 1000;
    deadline.tv_nsec += timeout_ms % 1000 * 1'000'000L;
    if (deadline.tv_nsec >= kNanosecondsPerSecond) {
        deadline.tv_nsec -= kNanosecondsPerSecond;
        ++deadline.tv_sec;
    }
    return deadline;
}

bool valid_timeout(int timeout_ms) {
    return timeout_ms >= 0 || timeout_ms == SM_WAIT_FOREVER;
}

int lock_until(pthread_mutex_t* mutex, const timespec& deadline) {
#ifdef VEX_THREAD_SANITIZER
    // The sanitizers of gcc 12 and clang 14 do not know pthread_mutex_clocklock.
    __tsan_mutex_pre_lock(mutex, __tsan_mutex_try_lock);
    const int result = pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &deadline);
    const unsigned failed = result == 0 ? 0 : __tsan_mutex_try_lock_failed;
    __tsan_mutex_post_lock(mutex, __tsan_mutex_try_lock | failed, 0);
    return result;
#else
    return pthread_mutex_clocklock(mutex, CLOCK_MONOTONIC, &deadline);
#endif
}

int init_error_checking(pthread_mutex_t* mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    const int result = pthread_mutex_init(mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    return result;
}

int init_monotonic(pthread_cond_t* condition) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    const int result = pthread_cond_init(condition, &attributes);
    pthread_condattr_destroy(&attributes);
    return result;
}

}  // namespace

SMMutexHandle SMMutexCreate(const char* /*name*/) {
    auto* object = new (std::nothrow) SMMutexObject;
    if (object == nullptr || init_error_checking(&object->mutex) != 0) {
        delete object;
        return nullptr;
    }
    return object;
}

int SMMutexLock(SMMutexHandle mutex, int timeoutMs) {
    if (mutex == nullptr || !valid_timeout(timeoutMs)) {
        return EINVAL;
    }
    if (timeoutMs == SM_WAIT_FOREVER) {
        return pthread_mutex_lock(&mutex->mutex);
    }
    return lock_until(&mutex->mutex, monotonic_deadline(timeoutMs));
}

int SMMutexUnLock(SMMutexHandle mutex) {
    return mutex == nullptr ? EINVAL : pthread_mutex_unlock(&mutex->mutex);
}

int SMMutexDestroy(SMMutexHandle mutex) {
    if (mutex == nullptr) {
        return EINVAL;
    }
    const int result = pthread_mutex_destroy(&mutex->mutex);
    if (result == 0) {
        delete mutex;
    }
    return result;
}

SMEventHandle SMEventCreate(const char* /*name*/, int manualReset) {
    auto* object = new (std::nothrow) SMEventObject{};
    if (object == nullptr || init_error_checking(&object->mutex) != 0) {
        delete object;
        return nullptr;
    }
    if (init_monotonic(&object->changed) != 0) {
        pthread_mutex_destroy(&object->mutex);
        delete object;
        return nullptr;
    }
    object->manual_reset = manualReset != 0;
    return object;
}

int SMEventSet(SMEventHandle event) {
    if (event == nullptr) {
        return EINVAL;
    }
    const EventGuard guard{event};
    event->set = true;
    return event->manual_reset ? pthread_cond_broadcast(&event->changed)
                               : pthread_cond_signal(&event->changed);
}

int SMEventReset(SMEventHandle event) {
    if (event == nullptr) {
        return EINVAL;
    }
    const EventGuard guard{event};
    event->set = false;
    return 0;
}

int SMEventWait(SMEventHandle event, int timeoutMs) {
    if (event == nullptr || !valid_timeout(timeoutMs)) {
        return EINVAL;
    }
    const bool forever = timeoutMs == SM_WAIT_FOREVER;
    const timespec deadline = monotonic_deadline(forever ? 0 : timeoutMs);
    const EventGuard guard{event};
    int result = 0;
    while (!event->set && result == 0) {
        result = forever ? pthread_cond_wait(&event->changed, &event->mutex)
                         : pthread_cond_timedwait(&event->changed, &event->mutex, &deadline);
    }
    if (!event->set) {
        return result;
    }
    event->set = event->manual_reset;
    return 0;
}

int SMEventDestroy(SMEventHandle event) {
    if (event == nullptr) {
        return EINVAL;
    }
    pthread_cond_destroy(&event->changed);
    pthread_mutex_destroy(&event->mutex);
    delete event;
    return 0;
}
