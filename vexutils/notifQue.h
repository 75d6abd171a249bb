/*
 * notifQue.h - queues of messages between the daemon's threads: first in, first out, with a count.
 *
 * Any number of queues, any thread on each. Nothing waits for a message: removeMsg finds one or gives null. A queue lives
 * as long as the process. Messages are opaque pointers, never looked into and never freed.
 */
#ifndef VEXUTILS_NOTIFQUE_H
#define VEXUTILS_NOTIFQUE_H

#include <platform/sm.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

typedef struct NotifNode {
    void *msg;
    struct NotifNode *next;
    struct NotifNode *prev;
} NotifNode;

typedef struct NotifQueue {
    uint32_t count;      /* messages queued; kept by AddEvt and removeMsg */
    SMMutexHandle mutex; /* guards the record */
    NotifNode *head;     /* oldest, null when empty */
    NotifNode *tail;     /* newest, null when empty */
} NotifQueue;

/*
 * Creates an empty queue in *ppQueue, for the life of the process. Without a mutex it is made all the same, and every
 * lock of it fails.
 * Returns: 0; -1 no memory or a null argument, *ppQueue unchanged. Locks: none.
 */
int32_t InitEvtQ(NotifQueue **ppQueue);

/*
 * Appends a message. pMsg: may be null.
 * Returns: 0, also when there was no memory and the message was dropped; 1 pQueue is null; else what the lock failed with
 * (-1 without a mutex).
 * Locks: takes the queue's mutex.
 */
int32_t AddEvt(NotifQueue *pQueue, void *pMsg);

/*
 * Takes the oldest message: *ppMsg, or null when the queue is empty.
 * Returns: 0; -1 a null argument; else what the lock failed with. *ppMsg changes with 0 only.
 * Locks: takes the queue's mutex.
 */
int32_t removeMsg(NotifQueue *pQueue, void **ppMsg);

/*
 * Links a new node behind the last one; the count stays. pMsg: may be null. Returns: 0; -1 pQueue is null or no memory.
 * Locks: the caller holds the queue's mutex.
 */
int32_t InsertMsgAtQueueTail(NotifQueue *pQueue, void *pMsg);

/*
 * Unlinks the first node; the count stays. Returns: the node; null if there is none or pQueue is null. Owns: the caller,
 * free.
 * Locks: the caller holds the queue's mutex.
 */
NotifNode *RemoveMsgFromQueueHead(NotifQueue *pQueue);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif /* VEXUTILS_NOTIFQUE_H */
