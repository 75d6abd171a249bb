// Copies that several kinds of storage objects share. Nothing here logs.
#ifndef VEXUTILS_RT_DUP_RT_DUP_PARTS_H
#define VEXUTILS_RT_DUP_RT_DUP_PARTS_H

#include <cstddef>
#include <cstring>

#include "internal/owned.h"
#include "internal/storage_object.h"
#include "rt_dup.h"

namespace vexutils {

// The flat copy, which shares every pointer with the source, and a name of its own.
void copy_flat_and_name(const StorageObjectRecord& source, StorageObjectRecord& copy);

// A new record with its own name and FQDD; null without memory for the record.
Owned<StorageObjectRecord> copy_named(const StorageObjectRecord& source);

// A copy of count elements; null for a null array or without memory. No elements are a block too.
template <class T>
Owned<T> copy_array(const T* source, std::size_t count) {
    if (source == nullptr) {
        return nullptr;
    }
    Owned<T> copy = make_owned<T>(count);
    if (copy != nullptr) {
        std::memcpy(copy.get(), source, count * sizeof(T));
    }
    return copy;
}

}  // namespace vexutils

#endif  // VEXUTILS_RT_DUP_RT_DUP_PARTS_H
