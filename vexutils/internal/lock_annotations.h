// What a lock guards and what a function expects of it, for clang, which checks it on every path
// (-Wthread-safety). Other compilers see nothing. For what public headers declare, which stay plain
// C, internal/lock_contract.h says the same.
#ifndef VEXUTILS_INTERNAL_LOCK_ANNOTATIONS_H
#define VEXUTILS_INTERNAL_LOCK_ANNOTATIONS_H

#ifdef __clang__
#define VEX_LOCK_ATTRIBUTE(...) __attribute__((__VA_ARGS__))
#else
#define VEX_LOCK_ATTRIBUTE(...)
#endif

// Of types: a lock; an object that holds one while it lives.
#define VEX_LOCK VEX_LOCK_ATTRIBUTE(capability("mutex"))
#define VEX_SCOPED_LOCK VEX_LOCK_ATTRIBUTE(scoped_lockable)

// Of data: used only with the lock held.
#define VEX_GUARDED_BY(lock) VEX_LOCK_ATTRIBUTE(guarded_by(lock))

// Of locks: taken, when both are, before the others.
#define VEX_OUTSIDE(...) VEX_LOCK_ATTRIBUTE(acquired_before(__VA_ARGS__))

// Of functions: the caller holds the lock; does not hold it, since the function takes it.
#define VEX_REQUIRES(...) VEX_LOCK_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define VEX_TAKES(...) VEX_LOCK_ATTRIBUTE(locks_excluded(__VA_ARGS__))

// Of functions: leaves the lock held; leaves it held with this result; gives it back.
#define VEX_ACQUIRES(...) VEX_LOCK_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define VEX_ACQUIRES_IF(result, ...) VEX_LOCK_ATTRIBUTE(try_acquire_capability(result, __VA_ARGS__))
#define VEX_RELEASES(...) VEX_LOCK_ATTRIBUTE(release_capability(__VA_ARGS__))

// Of functions that are not checked. Each says why.
#define VEX_UNCHECKED VEX_LOCK_ATTRIBUTE(no_thread_safety_analysis)

#endif  // VEXUTILS_INTERNAL_LOCK_ANNOTATIONS_H
