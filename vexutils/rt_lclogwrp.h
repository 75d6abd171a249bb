/*
 * rt_lclogwrp.h - submissions to the system event log. Any thread may call; no state is kept.
 */
#ifndef VEXUTILS_RT_LCLOGWRP_H
#define VEXUTILS_RT_LCLOGWRP_H

#include <stdint.h>
#include <wchar.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum {
    RT_SINGLE_PCIESSD_FRU_RESET = 1065, /* single message: the PCIe SSD FRU region was initialised */
    RT_MESSAGE_ARGUMENTS = 5,           /* arguments that an alert can have */
};

/* What becomes of an alert. */
typedef enum RtVerdict {
    RT_VERDICT_SUBMITTED = 0,
    RT_VERDICT_SUPPRESSED,    /* dropped, reported as done */
    RT_VERDICT_REFUSED,       /* dropped, reported as failed */
    RT_VERDICT_BAD_ARGUMENTS, /* no message id, no FQDD or too many arguments */
} RtVerdict;

/* Why. Message ids are compared with the listed ones over the length of these: "PDR3" covers "PDR30". */
typedef enum RtRule {
    RT_RULE_NONE = 0,         /* neither inventory nor replay of past events */
    RT_RULE_CONTROLLER_START, /* on the controller start list */
    RT_RULE_INVENTORY_PASS,   /* on the list of what passes during inventory */
    RT_RULE_PAST_EVENT_PASS,  /* on the list of what passes in the replay of past events */
    RT_RULE_UPDATE,           /* on the update list */
    RT_RULE_CTL97,            /* "CTL97" in the replay of past events */
    RT_RULE_ENC28_NONRAID,    /* "ENC28" of a device with "NonRAID" in its FQDD */
    RT_RULE_ENC28,            /* "ENC28" of any other device */
    RT_RULE_INVENTORY,        /* inventory runs, and the id is not listed */
    RT_RULE_NONRAID_DEVICE,   /* re-inventory of controllers, but "NonRAID" in the FQDD */
    RT_RULE_RAID_DEVICE,      /* re-inventory of controllers, and "RAID." in the FQDD */
    RT_RULE_OTHER_DEVICE,     /* re-inventory of controllers, but neither in the FQDD */
    RT_RULE_PAST_EVENT,       /* replay of past events, and the id is not listed */
    RT_RULE_NO_ARGUMENTS,     /* would be refused, but alerts without arguments are not looked at */
} RtRule;

/*
 * Submits an alert, unless it is one of those that start-up, inventory and controller resets cause in masses.
 * severity: 1 to 3. messageId: registry id such as "CTL140", not null. fqdd: the device, not null; its first 99 characters
 *     are submitted. args: count texts, a null text counts as empty; may be null without arguments. count: at most
 *     RT_MESSAGE_ARGUMENTS.
 * Returns: 0 submitted, or suppressed by the inventory rules; 2 bad argument; -1 not submitted: refused in the replay of
 * past events, global status not readable, no memory, or the event IPC library failed.
 * Locks: takes rtsync_mutex; without it the alert is submitted without rules.
 */
int32_t rt_JWLOGCMNSubmitEvent(uint32_t severity, const char *messageId, const wchar_t *fqdd, const char *const *args,
                               uint8_t count);

/*
 * Says what rt_JWLOGCMNSubmitEvent would decide on an alert, without submitting or logging anything.
 * messageId, fqdd, count: as there. flags, phase: global status to assume, RTSYNC_FLAG_LIVE and RTSYNC_PHASE_... of
 *     rt_sync.h. rule: may be null; receives the rule that decides, RT_RULE_NONE for bad arguments.
 * Returns: the verdict. Locks: none.
 */
RtVerdict rt_ExplainSubmission(const char *messageId, const wchar_t *fqdd, uint8_t count, uint16_t flags, uint32_t phase,
                               RtRule *rule);

/* Words for a rule, for people. Returns: static text, never null. */
const char *rt_RuleText(RtRule rule);

/*
 * Turns a device's FQDD into its friendly name, for use in message texts.
 * u32Unused: not read. fqdd: up to 65534 characters, each with a one-byte form. buffer: size bytes; all are written on
 *     success, the name terminated; unchanged on failure.
 * Returns: 0; -1 null argument, no memory, an FQDD without narrow form or friendly name, or the name does not fit.
 */
int32_t rt_Buildmsgstring(uint32_t u32Unused, const wchar_t *fqdd, char *buffer, uint32_t size);

/*
 * Submits an alert without device and arguments. No rule applies, the global status is not read.
 * u32Unused, u32Unused2: not read. severity: 1 to 3, not tested here. messageId: not empty.
 * Returns: 0 submitted; -1 null or empty id, or the event IPC library failed.
 */
int32_t rt_JWLOGCMNSubmitEvent_nonRaid(uint32_t u32Unused, uint32_t u32Unused2, uint32_t severity, const char *messageId);

/*
 * Submits a notification that is a single value. value: RT_SINGLE_PCIESSD_FRU_RESET, or another of the event IPC library's.
 * Returns: the result of EVIPCLSubmitSingle, 0 on record.
 */
int32_t rt_SubMitSingle(uint16_t value);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* VEXUTILS_RT_LCLOGWRP_H */
