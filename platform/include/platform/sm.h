/*
 * sm.h - mutexes and events of the platform's support library.
 *
 * Handles are opaque pointers; null means "not created". Mutexes are error-checking: a second lock by the owner and an
 * unlock by anybody else give an error instead of a hang. All functions may be called from any thread; a null handle is
 * refused with a non-zero result. Names are labels for diagnostics and may be null: nothing is shared by name.
 */
#ifndef PLATFORM_SM_H
#define PLATFORM_SM_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

typedef struct SMMutexObject *SMMutexHandle;
typedef struct SMEventObject *SMEventHandle;

enum {
    SM_WAIT_FOREVER = -1, /* time-out of a lock or wait without limit */
};

/* Creates an unlocked mutex. Returns: its handle, null if there is no memory. Owns: the caller, SMMutexDestroy. */
SMMutexHandle SMMutexCreate(const char *name);

/*
 * Takes the mutex.
 * timeoutMs: milliseconds to wait at most, measured on the monotonic clock; 0 tries once; SM_WAIT_FOREVER without limit;
 *     other negative values are refused.
 * Returns: 0 taken; any other value not taken (null handle, time-out, already held by this thread).
 */
int SMMutexLock(SMMutexHandle mutex, int timeoutMs);

/* Releases the mutex. Returns: 0 released; any other value (null handle, not the owner): nothing changed. */
int SMMutexUnLock(SMMutexHandle mutex);

/* Ends the mutex, which nobody may hold or wait for. Returns: 0; any other value for a null handle or a held mutex. */
int SMMutexDestroy(SMMutexHandle mutex);

/*
 * Creates an event that is not set.
 * manualReset: 1 stays set until SMEventReset; 0 one successful wait resets it.
 * Returns: its handle, null if there is no memory. Owns: the caller, SMEventDestroy.
 */
SMEventHandle SMEventCreate(const char *name, int manualReset);

/* Sets the event and wakes its waiters (one for an event that resets itself). Returns: 0; other for a null handle. */
int SMEventSet(SMEventHandle event);

/* Resets the event. Returns: 0; other for a null handle. */
int SMEventReset(SMEventHandle event);

/*
 * Waits until the event is set. timeoutMs: as in SMMutexLock.
 * Returns: 0 the event was set; any other value time-out, null handle or refused time-out.
 */
int SMEventWait(SMEventHandle event, int timeoutMs);

/* Ends the event, for which nobody may wait. Returns: 0; other for a null handle. */
int SMEventDestroy(SMEventHandle event);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* PLATFORM_SM_H */
