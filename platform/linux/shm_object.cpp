#include "shm_object.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace vexplatform {
namespace {

constexpr mode_t kMode = 0644;

// Bytes of the object that record locks are taken on.
constexpr off_t kWriterByte = 0;  // held by the writer
constexpr off_t kPauseByte = 1;   // held for reading by readers that ask writers to pause

// A reader whose copy takes longer than the writers' pace asks them to pause. A writer waits a
// limited time, so that a reader that was stopped, or is hostile, delays it and no more.
constexpr int kQuickAttempts = 32;
constexpr int kPausedAttempts = 32;
constexpr int kPauseMilliseconds = 20;

int record_lock(int fd, int command, short type, off_t byte) {
    struct flock lock {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = byte;
    lock.l_len = 1;
    int result;
    do {
        result = fcntl(fd, command, &lock);
    } while (result != 0 && errno == EINTR);
    return result;
}

// Released explicitly: closing the descriptor would not do while a forked child still has it.
class RecordLock {
  public:
    RecordLock(int fd, int command, short type, off_t byte)
        : fd_{fd}, byte_{byte}, locked_{record_lock(fd, command, type, byte) == 0} {}
    ~RecordLock() {
        if (locked_) {
            record_lock(fd_, F_OFD_SETLK, F_UNLCK, byte_);
        }
    }
    RecordLock(const RecordLock&) = delete;
    RecordLock& operator=(const RecordLock&) = delete;
    explicit operator bool() const { return locked_; }

  private:
    int fd_;
    off_t byte_;
    bool locked_;
};

// The words are atomic, since a reader may copy while a writer that it will notice later overwrites
// them.
void load_range(const ShmWord* words, uint8_t* dst, size_t offset, size_t count) {
    while (count > 0) {
        const uint32_t word = words[offset / sizeof word].load(std::memory_order_relaxed);
        const size_t skip = offset % sizeof word;
        const size_t part = std::min(sizeof word - skip, count);
        if (part == sizeof word) {
            memcpy(dst, &word, sizeof word);
        } else {
            memcpy(dst, reinterpret_cast<const uint8_t*>(&word) + skip, part);
        }
        dst += part;
        offset += part;
        count -= part;
    }
}

void store_range(ShmWord* words, const uint8_t* src, size_t offset, size_t count) {
    while (count > 0) {
        uint32_t word = words[offset / sizeof word].load(std::memory_order_relaxed);
        const size_t skip = offset % sizeof word;
        const size_t part = std::min(sizeof word - skip, count);
        if (part == sizeof word) {
            memcpy(&word, src, sizeof word);
        } else {
            memcpy(reinterpret_cast<uint8_t*>(&word) + skip, src, part);
        }
        words[offset / sizeof word].store(word, std::memory_order_relaxed);
        src += part;
        offset += part;
        count -= part;
    }
}

void copy_words(ShmWord* dst, const ShmWord* src, size_t bytes) {
    for (size_t word = 0; word < bytes / sizeof(ShmWord); ++word) {
        dst[word].store(src[word].load(std::memory_order_relaxed), std::memory_order_relaxed);
    }
}

// The lowest bit alternates for ever and 0 stays the mark of a region that nobody wrote.
uint32_t next_generation(uint32_t generation) {
    return generation == UINT32_MAX ? 2 : generation + 1;
}

// Whole and zero-filled, or untouched. The memory is reserved: a full /dev/shm is an error here and
// not a SIGBUS later.
int reserve(int fd, size_t size) {
    int result;
    do {
        result = fallocate(fd, 0, 0, static_cast<off_t>(size));
    } while (result != 0 && errno == EINTR);
    if (result != 0 && errno == EOPNOTSUPP) {
        result = ftruncate(fd, static_cast<off_t>(size));
    }
    return result == 0 ? 0 : errno;
}

}  // namespace

std::unique_ptr<ShmObject> ShmObject::open_to_read(const char* name, size_t region_size) {
    const int fd = shm_open(name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC, 0);
    if (fd < 0) {
        return nullptr;
    }
    std::unique_ptr<ShmObject> object{new ShmObject{fd, region_size}};
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        return nullptr;
    }
    if (S_ISREG(status.st_mode) && status.st_size == 0) {
        errno = ENOENT;
        return nullptr;
    }
    if (!S_ISREG(status.st_mode) ||
        status.st_size != static_cast<off_t>(shm_object_size(region_size))) {
        errno = EPROTO;
        return nullptr;
    }
    if (!object->map(PROT_READ)) {
        return nullptr;
    }
    if (!object->made_by_us()) {
        errno = object->control().magic.load(std::memory_order_acquire) == 0 ? ENOENT : EPROTO;
        return nullptr;
    }
    return object;
}

std::unique_ptr<ShmObject> ShmObject::open_to_write(const char* name, size_t region_size) {
    const int fd = shm_open(name, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, kMode);
    if (fd < 0) {
        return nullptr;
    }
    std::unique_ptr<ShmObject> object{new ShmObject{fd, region_size}};
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        return nullptr;
    }
    // What another user laid under the name, or another name of some other file, is not ours to
    // write.
    if (!S_ISREG(status.st_mode) || status.st_uid != geteuid() || status.st_nlink > 1) {
        errno = EPERM;
        return nullptr;
    }
    // The process's file mode mask must not keep readers out.
    if ((status.st_mode & ALLPERMS) != kMode && fchmod(fd, kMode) != 0) {
        return nullptr;
    }
    if (!object->map(PROT_READ | PROT_WRITE)) {
        return nullptr;
    }
    return object;
}

ShmObject::~ShmObject() {
    const int saved = errno;
    if (base_ != nullptr) {
        munmap(base_, shm_object_size(region_size_));
    }
    close(fd_);
    errno = saved;
}

bool ShmObject::map(int protection) {
    void* base = mmap(nullptr, shm_object_size(region_size_), protection, MAP_SHARED, fd_, 0);
    if (base == MAP_FAILED) {
        return false;
    }
    base_ = base;
    return true;
}

bool ShmObject::made_by_us() const {
    return control().magic.load(std::memory_order_acquire) == kShmMagic &&
           control().layout_version == kShmLayoutVersion && control().region_size == region_size_;
}

bool ShmObject::removed() const {
    struct stat status {};
    return fstat(fd_, &status) != 0 || status.st_nlink == 0;
}

uint32_t ShmObject::generation() const {
    return control().generation.load(std::memory_order_acquire);
}

ShmWord* ShmObject::copy(uint32_t generation) const {
    return static_cast<ShmWord*>(base_) +
           shm_copy_offset(region_size_, generation) / sizeof(ShmWord);
}

bool ShmObject::try_read(void* dst, size_t offset, size_t count) const {
    const uint32_t before = generation();
    load_range(copy(before), static_cast<uint8_t*>(dst), offset, count);
    // If a word came from a later write, this fence and the writer's first make its generation
    // visible below.
    std::atomic_thread_fence(std::memory_order_acquire);
    return control().generation.load(std::memory_order_relaxed) == before;
}

int ShmObject::read(void* dst, size_t offset, size_t count) {
    for (int attempt = 0; attempt < kQuickAttempts; ++attempt) {
        if (try_read(dst, offset, count)) {
            return 0;
        }
    }
    const std::lock_guard one_thread{pausing_};
    const RecordLock pause{fd_, F_OFD_SETLK, F_RDLCK, kPauseByte};
    for (int attempt = 0; attempt < kPausedAttempts; ++attempt) {
        if (try_read(dst, offset, count)) {
            return 0;
        }
    }
    return EAGAIN;
}

void ShmObject::let_readers_finish() const {
    for (int waited = 0; waited < kPauseMilliseconds; ++waited) {
        struct flock lock {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        lock.l_start = kPauseByte;
        lock.l_len = 1;
        if (fcntl(fd_, F_OFD_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) {
            return;
        }
        const timespec millisecond{0, 1'000'000};
        nanosleep(&millisecond, nullptr);
    }
}

// Makes an object that was just created, or that its maker left half-way. Caller holds the writer's
// record lock.
int ShmObject::complete(const struct stat& status) {
    const auto size = static_cast<off_t>(shm_object_size(region_size_));
    if (status.st_size == 0) {
        const int error = reserve(fd_, shm_object_size(region_size_));
        if (error != 0) {
            return error;
        }
    } else if (status.st_size != size) {
        return EPROTO;
    }
    if (control().magic.load(std::memory_order_relaxed) == 0) {
        control().layout_version = kShmLayoutVersion;
        control().region_size = static_cast<uint32_t>(region_size_);
        control().magic.store(kShmMagic, std::memory_order_release);
    }
    return made_by_us() ? 0 : EPROTO;
}

int ShmObject::write(const void* src, size_t offset, size_t count) {
    const RecordLock lock{fd_, F_OFD_SETLKW, F_WRLCK, kWriterByte};
    struct stat status {};
    if (!lock || fstat(fd_, &status) != 0) {
        return errno;
    }
    if (status.st_nlink == 0) {
        return ESTALE;
    }
    const int error = complete(status);
    if (error != 0) {
        return error;
    }
    let_readers_finish();

    const uint32_t current = generation();
    const uint32_t next = next_generation(current);
    // Whoever sees a word stored below also sees that the generation had moved past the copy's own.
    std::atomic_thread_fence(std::memory_order_release);
    copy_words(copy(next), copy(current), shm_copy_size(region_size_));
    store_range(copy(next), static_cast<const uint8_t*>(src), offset, count);
    control().generation.store(next, std::memory_order_release);
    return 0;
}

}  // namespace vexplatform
