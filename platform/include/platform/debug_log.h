/*
 * debug_log.h - the platform's levelled debug log.
 *
 * The library sends every trace line here, whatever its own log file does. An implementer promises: callable from any
 * thread and before main(); never calls back into the library; may block only as long as its sink does; leaves errno
 * alone or not as it likes (the library saves it).
 */
#ifndef PLATFORM_DEBUG_LOG_H
#define PLATFORM_DEBUG_LOG_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/*
 * Writes one message, if the sink's own filter lets its level pass.
 * level: 1 fatal and lock errors, 2 rejected input and failed look-ups, 3 warnings, 4 routine trace, 5 detailed cache
 *     trace, 6 verbose dumps. A message above the configured level is dropped before it is formatted.
 * module: the sender; the library always passes 15.
 * format: printf format that carries its own newline. "%ls" and "%S" take wchar_t text. Null: nothing is written.
 * A message may be cut, but not below 1000 bytes, and may end early at wide text that the locale cannot convert; its
 * newline is kept in both cases.
 * Returns: 0 or any other value; the library ignores it.
 */
int zentprintf(int level, int module, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* PLATFORM_DEBUG_LOG_H */
