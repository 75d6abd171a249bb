// Unlocked access to the NVMe tables, the drive states and the session handles. The backplane
// service's thread writes while VEXEL's threads read, so each field is loaded and stored by itself,
// atomically and in no order with others. Fields have at most 4 bytes: every processor does that
// without a lock.
#ifndef VEXUTILS_RT_SHM_NVME_TABLE_H
#define VEXUTILS_RT_SHM_NVME_TABLE_H

#include <cstdint>
#include <optional>
#include <type_traits>

#include "rt_shm.h"

namespace vexutils {

template <class T>
T load(const T& field) {
    static_assert(sizeof(T) <= 4 && __atomic_always_lock_free(sizeof(T), nullptr));
    return __atomic_load_n(&field, __ATOMIC_RELAXED);
}

template <class T>
void store(T& field, std::type_identity_t<T> value) {
    static_assert(sizeof(T) <= 4 && __atomic_always_lock_free(sizeof(T), nullptr));
    __atomic_store_n(&field, value, __ATOMIC_RELAXED);
}

inline constexpr unsigned kDrivePositions = NVME_BAYS * NVME_SLOTS;

// Index of a drive position in the tables' slots and in the drive states; none if there is no such
// position.
constexpr std::optional<unsigned> position_index(unsigned bay, unsigned slot) {
    if (bay >= NVME_BAYS || slot >= NVME_SLOTS) {
        return std::nullopt;
    }
    return NVME_SLOTS * bay + slot;
}

// As position_index, for the positions that are cabled: only they have an extender or can sit
// behind a KRON controller or on the rear backplane.
constexpr std::optional<unsigned> cabled_index(unsigned bay, unsigned slot) {
    return slot < NVME_CABLED_SLOTS ? position_index(bay, slot) : std::nullopt;
}

// State of every drive position, by position_index.
using DriveStates = std::uint16_t[kDrivePositions];
extern constinit DriveStates latest_drive_states;  // as the service reported them last
extern constinit DriveStates acted_drive_states;   // as the library acted upon them last

// A session handle as the thread that opened it published it; null closed.
inline ZentBpApiHandle session(const ZentBpApiHandle& handle) {
    return __atomic_load_n(&handle, __ATOMIC_ACQUIRE);
}

}  // namespace vexutils

#endif  // VEXUTILS_RT_SHM_NVME_TABLE_H
