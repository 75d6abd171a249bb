/*
 * shm_object.h - one region's shared-memory object, mapped into this process: whole reads, whole
 * writes.
 *
 * Any number of threads may read through one object; writes through one object exclude each other
 * outside, since the record lock that keeps other processes out does not tell threads apart.
 */
#ifndef PLATFORM_LINUX_SHM_OBJECT_H
#define PLATFORM_LINUX_SHM_OBJECT_H

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include "shm_layout.h"

namespace vexplatform {

class ShmObject {
  public:
    // Opens a region's object. Null with errno: ENOENT nobody wrote the region yet, EPROTO the
    // object is not ours.
    static std::unique_ptr<ShmObject> open_to_read(const char* name, size_t region_size);

    // The same to write, making the object if there is none. EPERM: it belongs to somebody else.
    static std::unique_ptr<ShmObject> open_to_write(const char* name, size_t region_size);

    ~ShmObject();
    ShmObject(const ShmObject&) = delete;
    ShmObject& operator=(const ShmObject&) = delete;

    // Whether the object's name was removed or given to another object.
    bool removed() const;

    uint32_t generation() const;

    // Copies a range of one write. Returns: 0, or EAGAIN after writers outran every attempt, dst
    // holding anything.
    int read(void* dst, size_t offset, size_t count);

    // Changes a range as one write. Returns: 0; ESTALE the object was removed; else errno of the
    // failure, nothing changed.
    int write(const void* src, size_t offset, size_t count);

  private:
    ShmObject(int fd, size_t region_size) : fd_{fd}, region_size_{region_size} {}

    bool map(int protection);
    bool made_by_us() const;
    int complete(const struct stat& status);
    bool try_read(void* dst, size_t offset, size_t count) const;
    void let_readers_finish() const;
    ShmControl& control() const { return *static_cast<ShmControl*>(base_); }
    ShmWord* copy(uint32_t generation) const;

    int fd_;
    size_t region_size_;
    void* base_ = nullptr;
    std::mutex pausing_;  // held by the thread that asks writers to pause
};

}  // namespace vexplatform

#endif /* PLATFORM_LINUX_SHM_OBJECT_H */
