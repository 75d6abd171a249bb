// Scoped hold of a platform mutex, waiting without limit. A null handle is a lock failure.
#ifndef VEXUTILS_INTERNAL_MUTEX_GUARD_H
#define VEXUTILS_INTERNAL_MUTEX_GUARD_H

#include <platform/sm.h>

#include "internal/lock_annotations.h"

namespace vexutils {

class [[nodiscard]] VEX_SCOPED_LOCK MutexGuard {
  public:
    explicit MutexGuard(SMMutexHandle mutex) VEX_ACQUIRES(mutex)
        : mutex_(mutex),
          // Same either way: the platform refuses a null handle too.
          error_(mutex != nullptr ? SMMutexLock(mutex, SM_WAIT_FOREVER) : kNoMutex) {}
    ~MutexGuard() VEX_RELEASES() { unlock(); }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

    explicit operator bool() const { return error_ == 0; }
    int error() const { return error_; }  // what SMMutexLock returned

    // Gives the lock back early; the destructor then does nothing. Unchecked: what it does depends
    // on whether the lock was taken.
    void unlock() VEX_RELEASES() VEX_UNCHECKED {
        if (error_ == 0) {
            SMMutexUnLock(mutex_);
            error_ = kReleased;
        }
    }

  private:
    static constexpr int kNoMutex = -1;
    static constexpr int kReleased = -2;
    SMMutexHandle mutex_;
    int error_;
};

}  // namespace vexutils

#endif  // VEXUTILS_INTERNAL_MUTEX_GUARD_H
