/*
 * rt_evtq.h - the endpoint event queue: one per process, from the MCTP client's callback thread to VEXEL's worker.
 *
 * Any number of threads may put, one worker is meant to get. Init and Destroy overlap with no other call. The daemon
 * calls Init, SetStatus(RTRAID_EVTQ_READY), then Put and Get; at shutdown SetStatus(RTRAID_EVTQ_NOT_READY) and Destroy.
 * Events put while the queue is not ready wait in it.
 */
#ifndef VEXUTILS_RT_EVTQ_H
#define VEXUTILS_RT_EVTQ_H

#include <assert.h>
#include <platform/sm.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum {
    /* callbackType: what the MCTP client reports. Source: the client's callback types; others are queued too. */
    RTRAID_CALLBACK_POWERON = 1,
    RTRAID_CALLBACK_POWEROFF = 2,
    RTRAID_CALLBACK_LPC_RESET = 3,
    RTRAID_CALLBACK_ENDPOINT_TABLE = 4, /* the only one with more than one byte of payload */
    RTRAID_CALLBACK_INIT_FAILED = 6,
    RTRAID_CALLBACK_MCTPD_STOPPED = 8,
    RTRAID_CALLBACK_WARMBOOT = 11,

    RTRAID_EVTQ_BUILDING = -1, /* status: inside Init */
    RTRAID_EVTQ_NOT_READY = 0, /* status: built, or being shut down; Get does not wait */
    RTRAID_EVTQ_READY = 1,     /* status: Get waits for events */
};

/* One event. Inside the queue, those of other types than RTRAID_CALLBACK_ENDPOINT_TABLE are copies of 9 bytes. */
typedef struct EndpointEvent {
    uint32_t callbackType; /* RTRAID_CALLBACK_... */
    uint32_t bufferSize;   /* bytes of payload that the sender had */
    uint8_t buffer[1];     /* the payload; of a copy only the first byte exists, 0 when bufferSize is 0 */
} EndpointEvent;
static_assert(offsetof(EndpointEvent, buffer) == 8, "record shared with VEXEL");

typedef struct EndpointEventNode {
    EndpointEvent *event;
    struct EndpointEventNode *next;
} EndpointEventNode;

typedef struct EndpointEventQueue {
    SMMutexHandle mutex; /* guards the list */
    SMEventHandle event; /* set while the list may hold something */
    int32_t status;      /* RTRAID_EVTQ_...; one word, read without the mutex */
    EndpointEventNode *head;
} EndpointEventQueue;
static_assert(sizeof(void *) != 4 || sizeof(EndpointEventQueue) == 16, "record shared with VEXEL");

extern EndpointEventQueue *gpRtraid_EventQueue; /* null when there is no queue */

/*
 * Creates the queue, empty and not ready. A queue that exists already is forgotten, not freed.
 * Returns: 0; -1 no memory, mutex or event: there is no queue then. Locks: none.
 */
int32_t rtraid_EventQueue_Init(void);

/*
 * Ends the queue. What is still queued is not freed, neither nodes nor events; a Get that waits is not woken: set the
 * status, put a last event and let the worker return first.
 * Returns: 0, also without a queue. Locks: none.
 */
int32_t rtraid_EventQueue_Destroy(void);

/*
 * Appends an event, whatever the status. Costs a walk along what is queued.
 * pEvent: not null; 8 bytes are read, and the first of the payload if bufferSize is not 0.
 * Owns: an event of type RTRAID_CALLBACK_ENDPOINT_TABLE comes from vexel_alloc and is the queue's when the result is 0;
 *     of any other the queue takes a copy and the caller keeps his.
 * Returns: 0, also when the mutex could not be taken and the event was dropped; -1 no queue, null event or no memory.
 * Locks: takes the queue's mutex.
 */
int32_t rtraid_EventQueue_Put(EndpointEvent *pEvent);

/*
 * Takes the oldest event, waiting for one without limit if the queue is ready.
 * Returns: the event; null without a queue, when it is not ready, when another call was faster, or when the mutex could
 *     not be taken. Owns: the caller, vexel_free. Locks: takes the queue's mutex, not while waiting.
 */
EndpointEvent *rtraid_EventQueue_Get(void);

/* Reads the status. Returns: the status; -1 without a queue. Locks: none. */
int32_t rtraid_EventQueue_GetStatus(void);

/*
 * Sets the status to any value; a Get that waits already goes on waiting.
 * Returns: 0; -1 no queue or no lock, the status unchanged. Locks: takes the queue's mutex.
 */
int32_t rtraid_EventQueue_SetStatus(uint32_t u32Status);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* VEXUTILS_RT_EVTQ_H */
