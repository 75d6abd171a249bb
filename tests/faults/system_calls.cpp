// What the library calls of the C library, made to fail like any call to the platform. The names
// are those behind the headers for files over 2 GiB and, in 32 bits, for 64-bit times.
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <type_traits>

#include "tests/faults/world.h"
#include "tests/support/fake_platform.h"

time_t faults::clock_reads;

#pragma GCC diagnostic ignored "-Wmissing-declarations"

namespace {

template <class Result, class... Parameters>
Result call(Result (*real)(Parameters...), std::type_identity_t<Result> failure, int error,
            std::type_identity_t<Parameters>... arguments) {
    if (fake::system_call_fails()) {
        errno = error;
        return failure;
    }
    return real(arguments...);
}

}  // namespace

extern "C" {

int __real_open64(const char* path, int flags, ...);
int __wrap_open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(arguments, unsigned) : 0;
    va_end(arguments);
    if (fake::system_call_fails()) {
        errno = EMFILE;
        return -1;
    }
    return __real_open64(path, flags, mode);
}

// What a call gives, its name, its failure with its error, its parameters and their names.
#define WRAP(Result, name, failure, error, parameters, ...)      \
    Result __real_##name parameters;                             \
    Result __wrap_##name parameters {                            \
        return call(__real_##name, failure, error, __VA_ARGS__); \
    }

WRAP(std::FILE*, fopen64, nullptr, EMFILE, (const char* path, const char* mode), path, mode)
WRAP(ssize_t, read, -1, EIO, (int file, void* room, size_t size), file, room, size)
WRAP(ssize_t, write, -1, ENOSPC, (int file, const void* bytes, size_t size), file, bytes, size)
WRAP(int, rename, -1, EROFS, (const char* from, const char* to), from, to)
WRAP(int, remove, -1, EROFS, (const char* path), path)
WRAP(int, pthread_create, EAGAIN, EAGAIN,
     (pthread_t * thread, const pthread_attr_t* attributes, void* (*start)(void*), void* argument),
     thread, attributes, start, argument)
WRAP(int, pthread_mutex_init, ENOMEM, ENOMEM,
     (pthread_mutex_t * mutex, const pthread_mutexattr_t* attributes), mutex, attributes)
WRAP(int, pthread_mutexattr_init, ENOMEM, ENOMEM, (pthread_mutexattr_t * attributes), attributes)

#if __SIZEOF_POINTER__ == 4
#define TIME __time64
WRAP(int, __stat64_time64, -1, EIO, (const char* path, struct stat* status), path, status)
WRAP(int, __fstat64_time64, -1, EIO, (int file, struct stat* status), file, status)
#else
#define TIME time
WRAP(int, stat64, -1, EIO, (const char* path, struct stat* status), path, status)
WRAP(int, fstat64, -1, EIO, (int file, struct stat* status), file, status)
#endif

#define JOIN(left, right) left##right
#define NAME(prefix, function) JOIN(prefix, function)
time_t NAME(__real_, TIME)(time_t* room);
time_t NAME(__wrap_, TIME)(time_t* room) {
    return faults::clock_reads != 0 ? faults::clock_reads : NAME(__real_, TIME)(room);
}
}
