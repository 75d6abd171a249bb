/*
 * fqdd.h - friendly names of devices. Any thread may call.
 */
#ifndef PLATFORM_FQDD_H
#define PLATFORM_FQDD_H

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/*
 * Turns an FQDD such as "Disk.Bay.7:Enclosure.Internal.0-2:PCIeExtender.Slot.3" into a name for people.
 * fqdd: narrow text, may be null; any bytes, of any length, are safe.
 * Returns: a new text from the C heap, of at most 255 characters; null if the FQDD has no friendly form or there is no
 * memory.
 * Owns: the caller, vexel_free (that is, free).
 */
char *ConvertFQDDToFriendlyName(const char *fqdd);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* PLATFORM_FQDD_H */
