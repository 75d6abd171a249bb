#include "platform/shm.h"

#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string_view>

#include "shm_admin.h"
#include "shm_object.h"

namespace vexplatform {
namespace {

struct RegionSize {
    int region;
    size_t size;
};

constexpr std::array kRegions{
    RegionSize{ZENT_SHM_STORAGE_INVENTORY, ZENT_SHM_STORAGE_INVENTORY_SIZE},
    RegionSize{ZENT_SHM_EXTENDER_CARDS, ZENT_SHM_EXTENDER_CARDS_SIZE},
    RegionSize{ZENT_SHM_PCIESSD_STATUS, ZENT_SHM_PCIESSD_STATUS_SIZE},
    RegionSize{ZENT_SHM_PCIESSD_FRU, ZENT_SHM_PCIESSD_FRU_SIZE},
    RegionSize{ZENT_SHM_FRU_TABLE, ZENT_SHM_FRU_TABLE_SIZE},
    RegionSize{ZENT_SHM_THERMAL_SETTINGS, ZENT_SHM_THERMAL_SETTINGS_SIZE},
};

constexpr size_t kMaxNamespace = 64;  // Chosen: no need for more, and a name's limit is 255.
using ObjectName = std::array<char, kMaxNamespace + 16>;

using Bytes = std::unique_ptr<uint8_t[]>;

// What this process has open of one region. Reading and writing are opened apart: a reader needs no
// write permission, and a record lock of one is not hidden from the other.
struct Access {
    std::shared_ptr<ShmObject> reading;  // guarded by guard
    std::unique_ptr<ShmObject> writing;  // changed with writer and guard held
    std::mutex writer;                   // held by the thread that writes, for the whole write
};

struct Process {
    std::mutex guard;  // held for moments only, never while waiting for another process
    std::array<Access, kRegions.size()> regions;
};

// Never destroyed: threads may still read while the process ends.
union Immortal {
    constexpr Immortal() : process{} {}
    ~Immortal() {}
    Process process;
};
constinit Immortal immortal;

Access& access_of(size_t index) {
    return immortal.process.regions.at(index);
}

// A child shares its parent's open files, and with them the record locks: it must not keep the one
// of a parent that is killed in a write. It opens its own. Its other threads are gone, also those
// that held a writer mutex.
void lock_before_fork() {
    immortal.process.guard.lock();
}
void unlock_in_parent() {
    immortal.process.guard.unlock();
}
void start_afresh_in_child() {
    for (Access& access : immortal.process.regions) {
        access.reading.reset();
        access.writing.reset();
        new (&access.writer) std::mutex;
    }
    immortal.process.guard.unlock();
}

void watch_forks() {
    static constinit std::once_flag once;
    std::call_once(
        once, [] { pthread_atfork(lock_before_fork, unlock_in_parent, start_afresh_in_child); });
}

std::optional<size_t> index_of(int region) {
    const auto* entry = std::ranges::find(kRegions, region, &RegionSize::region);
    if (entry == kRegions.end()) {
        return std::nullopt;
    }
    return static_cast<size_t>(entry - kRegions.begin());
}

// Index of the region, if the range lies in it.
std::optional<size_t> index_of_range(int region, int offset, int count) {
    const auto index = index_of(region);
    if (!index || offset < 0 || count < 0) {
        return std::nullopt;
    }
    const size_t size = kRegions.at(*index).size;
    const auto start = static_cast<size_t>(offset);
    if (start > size || static_cast<size_t>(count) > size - start) {
        return std::nullopt;
    }
    return index;
}

bool valid_namespace(std::string_view name) {
    constexpr std::string_view allowed =
        "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
    return name.size() <= kMaxNamespace && name.find_first_not_of(allowed) == name.npos;
}

// Name of the region's object. False with errno: the namespace has a name that it must not have.
bool name_object(size_t index, ObjectName& name) {
    const char* configured = getenv("VEX_SHM_NAMESPACE");
    const std::string_view space =
        configured != nullptr && configured[0] != '\0' ? configured : "vex";
    if (!valid_namespace(space)) {
        errno = EINVAL;
        return false;
    }
    snprintf(name.data(), name.size(), "/%.*s.%d", static_cast<int>(space.size()), space.data(),
             kRegions.at(index).region);
    return true;
}

// The region's object as it is now. Null with errno; ENOENT means that nobody wrote the region yet.
std::shared_ptr<ShmObject> object_to_read(size_t index) {
    watch_forks();
    const std::lock_guard lock{immortal.process.guard};
    std::shared_ptr<ShmObject>& reading = access_of(index).reading;
    if (reading == nullptr || reading->removed()) {
        ObjectName name;
        reading = name_object(index, name)
                      ? ShmObject::open_to_read(name.data(), kRegions.at(index).size)
                      : nullptr;
    }
    return reading;
}

// Caller holds the region's writer mutex.
bool open_to_write(size_t index) {
    ObjectName name;
    if (!name_object(index, name)) {
        return false;
    }
    const std::lock_guard lock{immortal.process.guard};
    std::unique_ptr<ShmObject>& writing = access_of(index).writing;
    writing = ShmObject::open_to_write(name.data(), kRegions.at(index).size);
    return writing != nullptr;
}

int read_range(size_t index, void* dst, size_t offset, size_t count) {
    const std::shared_ptr<ShmObject> object = object_to_read(index);
    if (object == nullptr) {
        if (errno != ENOENT) {
            return errno;
        }
        memset(dst, 0, count);
        return 0;
    }
    // Attempts that fail leave anything in their destination, which must not be the caller's.
    const Bytes bytes{new (std::nothrow) uint8_t[count + 1]};
    if (bytes == nullptr) {
        return ENOMEM;
    }
    const int error = object->read(bytes.get(), offset, count);
    if (error == 0) {
        memcpy(dst, bytes.get(), count);
    }
    return error;
}

int write_range(size_t index, const void* src, size_t offset, size_t count) {
    constexpr int kReopenings = 100;  // Chosen: far more than anyone removes regions in a row.
    watch_forks();
    Access& access = access_of(index);
    const std::lock_guard lock{access.writer};
    for (int attempt = 0; attempt < kReopenings; ++attempt) {
        if (access.writing == nullptr && !open_to_write(index)) {
            return errno;
        }
        const int error = access.writing->write(src, offset, count);
        if (error != ESTALE) {
            return error;
        }
        const std::lock_guard guard{immortal.process.guard};
        access.writing.reset();
    }
    return ESTALE;
}

// The FRU table and what lies behind it, all from one write.
class FruTable {
  public:
    bool read() {
        return bytes_ != nullptr &&
               Zent_shm_memread(ZENT_SHM_FRU_TABLE, bytes_.get(), 0, ZENT_SHM_FRU_TABLE_SIZE) == 0;
    }

    const uint8_t* at(size_t offset) const { return &bytes_[offset]; }

    std::optional<ZentFruInfo> find(uint16_t fru_id) const {
        for (size_t entry = 0; entry < entries(); ++entry) {
            const auto card = record_at<ZentFruTableEntry>(entry_offset(entry));
            if (card.fruId == fru_id) {
                return behind_table(card.infoOffset, sizeof(ZentFruInfo))
                           ? std::optional{record_at<ZentFruInfo>(card.infoOffset)}
                           : std::nullopt;
            }
        }
        return std::nullopt;
    }

    // Whether size bytes from offset lie in the region and are no part of the table.
    bool behind_table(size_t offset, size_t size) const {
        return offset >= entry_offset(entries()) && offset <= ZENT_SHM_FRU_TABLE_SIZE &&
               size <= ZENT_SHM_FRU_TABLE_SIZE - offset;
    }

  private:
    static size_t entry_offset(size_t entry) {
        return ZENT_SHM_FRU_ENTRIES + entry * sizeof(ZentFruTableEntry);
    }

    // Number of entries, of those that fit if the table names more.
    size_t entries() const {
        constexpr size_t size = ZENT_SHM_FRU_TABLE_SIZE;
        constexpr size_t fit = (size - ZENT_SHM_FRU_ENTRIES) / sizeof(ZentFruTableEntry);
        return std::min<size_t>(record_at<uint16_t>(ZENT_SHM_FRU_COUNT), fit);
    }

    template <typename Record>
    Record record_at(size_t offset) const {
        Record record;
        memcpy(&record, at(offset), sizeof record);
        return record;
    }

    Bytes bytes_{new (std::nothrow) uint8_t[ZENT_SHM_FRU_TABLE_SIZE]};
};

thread_local std::array<Bytes, kRegions.size()> views;

}  // namespace
}  // namespace vexplatform

using namespace vexplatform;

int Zent_shm_memread(int region, void* dst, int offset, int count) {
    const auto index = index_of_range(region, offset, count);
    if (!index || dst == nullptr) {
        return EINVAL;
    }
    return read_range(*index, dst, static_cast<size_t>(offset), static_cast<size_t>(count));
}

int Zent_shm_memwrite(int region, const void* src, int offset, int count) {
    const auto index = index_of_range(region, offset, count);
    if (!index || src == nullptr) {
        return EINVAL;
    }
    return write_range(*index, src, static_cast<size_t>(offset), static_cast<size_t>(count));
}

void* Zent_shm_get_shm(int region) {
    const auto index = index_of(region);
    if (!index) {
        return nullptr;
    }
    Bytes& view = views.at(*index);
    const size_t size = kRegions.at(*index).size;
    if (view == nullptr) {
        view.reset(new (std::nothrow) uint8_t[size]);
    }
    return view != nullptr && read_range(*index, view.get(), 0, size) == 0 ? view.get() : nullptr;
}

int Zent_shm_get_fruinfo(uint16_t fruId, void* fruInfo, const void* tableEntry, uint32_t /*zero*/) {
    if (fruInfo == nullptr || tableEntry == nullptr) {
        return EINVAL;
    }
    uint16_t entry_id = 0;
    memcpy(&entry_id, tableEntry, sizeof entry_id);
    if (entry_id != fruId) {
        return EINVAL;
    }
    FruTable table;
    if (!table.read()) {
        return EIO;
    }
    const auto info = table.find(fruId);
    if (!info) {
        return ENOENT;
    }
    memcpy(fruInfo, &*info, sizeof *info);
    return 0;
}

int Zent_shm_get_frudata(uint16_t fruId, void* buffer, uint32_t size) {
    if (buffer == nullptr) {
        return EINVAL;
    }
    FruTable table;
    if (!table.read()) {
        return EIO;
    }
    const auto info = table.find(fruId);
    if (!info || size > info->size || !table.behind_table(info->offset, size)) {
        return ENOENT;
    }
    memcpy(buffer, table.at(info->offset), size);
    return 0;
}

int vexplatform_shm_generation(int region, uint32_t* generation) {
    const auto index = index_of(region);
    if (!index || generation == nullptr) {
        return EINVAL;
    }
    const auto object = object_to_read(*index);
    if (object == nullptr && errno != ENOENT) {
        return errno;
    }
    *generation = object != nullptr ? object->generation() : 0;
    return 0;
}

int vexplatform_shm_remove_all(void) {
    int error = 0;
    for (size_t index = 0; index < kRegions.size(); ++index) {
        ObjectName name;
        const bool removed =
            name_object(index, name) && (shm_unlink(name.data()) == 0 || errno == ENOENT);
        if (!removed && error == 0) {
            error = errno;
        }
    }
    return error;
}
