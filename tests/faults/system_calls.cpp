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

std::FILE* __real_fopen64(const char* path, const char* mode);
std::FILE* __wrap_fopen64(const char* path, const char* mode) {
    return call(__real_fopen64, nullptr, EMFILE, path, mode);
}

ssize_t __real_read(int file, void* room, size_t size);
ssize_t __wrap_read(int file, void* room, size_t size) {
    return call(__real_read, -1, EIO, file, room, size);
}

ssize_t __real_write(int file, const void* bytes, size_t size);
ssize_t __wrap_write(int file, const void* bytes, size_t size) {
    return call(__real_write, -1, ENOSPC, file, bytes, size);
}

int __real_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to) {
    return call(__real_rename, -1, EROFS, from, to);
}

int __real_remove(const char* path);
int __wrap_remove(const char* path) {
    return call(__real_remove, -1, EROFS, path);
}

#if __SIZEOF_POINTER__ == 4
time_t __real___time64(time_t* room);
time_t __wrap___time64(time_t* room) {
    return faults::clock_reads != 0 ? faults::clock_reads : __real___time64(room);
}

int __real___stat64_time64(const char* path, struct stat* status);
int __wrap___stat64_time64(const char* path, struct stat* status) {
    return call(__real___stat64_time64, -1, EIO, path, status);
}

int __real___fstat64_time64(int file, struct stat* status);
int __wrap___fstat64_time64(int file, struct stat* status) {
    return call(__real___fstat64_time64, -1, EIO, file, status);
}
#else
time_t __real_time(time_t* room);
time_t __wrap_time(time_t* room) {
    return faults::clock_reads != 0 ? faults::clock_reads : __real_time(room);
}

int __real_stat64(const char* path, struct stat* status);
int __wrap_stat64(const char* path, struct stat* status) {
    return call(__real_stat64, -1, EIO, path, status);
}

int __real_fstat64(int file, struct stat* status);
int __wrap_fstat64(int file, struct stat* status) {
    return call(__real_fstat64, -1, EIO, file, status);
}
#endif

int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*start)(void*), void* argument);
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                          void* (*start)(void*), void* argument) {
    return call(__real_pthread_create, EAGAIN, EAGAIN, thread, attributes, start, argument);
}

int __real_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes);
int __wrap_pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) {
    return call(__real_pthread_mutex_init, ENOMEM, ENOMEM, mutex, attributes);
}

int __real_pthread_mutexattr_init(pthread_mutexattr_t* attributes);
int __wrap_pthread_mutexattr_init(pthread_mutexattr_t* attributes) {
    return call(__real_pthread_mutexattr_init, ENOMEM, ENOMEM, attributes);
}
}
