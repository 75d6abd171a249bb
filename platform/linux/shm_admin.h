/*
 * shm_admin.h - what the tools of the Linux platform need of its shared memory beyond the contract.
 * Any thread may call.
 */
#ifndef PLATFORM_LINUX_SHM_ADMIN_H
#define PLATFORM_LINUX_SHM_ADMIN_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/*
 * Tells how often a region was written, which also tells cheaply whether it changed.
 * region: a region of platform/shm.h. generation: not null; 0 if nobody wrote the region since its
 * object was made; else a number that every write changes. Returns: 0, or an errno value (EINVAL
 * unknown region or bad namespace, EACCES no permission, EPROTO foreign object): *generation
 * unchanged.
 */
int vexplatform_shm_generation(int region, uint32_t* generation);

/*
 * Removes every region of the namespace. Processes that use them go on: they read zeros until
 * somebody writes again, and their next write makes a new object. Returns: 0 none is left, or the
 * errno value of the first one that could not be removed.
 */
int vexplatform_shm_remove_all(void);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* PLATFORM_LINUX_SHM_ADMIN_H */
