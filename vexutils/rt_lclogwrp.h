/*
 * rt_lclogwrp.h - submissions to the system event log. Any thread may call; no state is kept.
 */
#ifndef VEXUTILS_RT_LCLOGWRP_H
#define VEXUTILS_RT_LCLOGWRP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum {
    RT_SINGLE_PCIESSD_FRU_RESET = 1065, /* single message: the PCIe SSD FRU region was initialised */
};

/* Submits a notification that is a single value. Returns: the result of EVIPCLSubmitSingle, 0 on record. */
int32_t rt_SubMitSingle(uint16_t value);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* VEXUTILS_RT_LCLOGWRP_H */
