#include "notifQue.h"

#include <cstdlib>

#include "internal/log.h"
#include "internal/mutex_guard.h"

using namespace vexutils;

namespace {

uint32_t& count_of(NotifQueue& queue) VEX_REQUIRES(queue.mutex) {
    return queue.count;
}

}  // namespace

int32_t InitEvtQ(NotifQueue** ppQueue) {
    if (ppQueue == nullptr) {
        LOG(Level::Error, "%s", "<-- err null inputs");
        return -1;
    }
    auto* queue = static_cast<NotifQueue*>(std::calloc(1, sizeof(NotifQueue)));
    if (queue == nullptr) {
        LOG(Level::Error, "%s", "InitEvtQ Failed");
        return -1;
    }

    // Kept: a mutex that could not be created shows when it is to be taken.
    queue->mutex = SMMutexCreate(nullptr);
    *ppQueue = queue;  // the caller's, for the life of the process
    LOG(Level::Trace, "InitEvtQ successful %p", static_cast<void*>(queue));
    return 0;
}

int32_t InsertMsgAtQueueTail(NotifQueue* pQueue, void* pMsg) {
    auto* node =
        pQueue != nullptr ? static_cast<NotifNode*>(std::calloc(1, sizeof(NotifNode))) : nullptr;
    if (node == nullptr) {
        LOG(Level::Error, "%s", "InsertMsgAtQueueTail Failed");
        return -1;
    }

    node->msg = pMsg;
    LOG(Level::Error, "InsertMsgAtQueueTail address %p Succesfully", static_cast<void*>(node));
    if (pQueue->head != nullptr) {
        node->prev = pQueue->tail;
        pQueue->tail->next = node;
    } else {
        pQueue->head = node;
    }
    pQueue->tail = node;
    return 0;
}

NotifNode* RemoveMsgFromQueueHead(NotifQueue* pQueue) {
    if (pQueue == nullptr) {
        return nullptr;
    }
    NotifNode* node = pQueue->head;
    if (pQueue->tail == node) {
        pQueue->tail = nullptr;
        LOG(Level::Trace, "%s", "RemoveMsgFromQueueHead for last msn in Q");
    }
    if (node != nullptr) {
        pQueue->head = node->next;
        if (pQueue->head != nullptr) {
            pQueue->head->prev = nullptr;
        }
    }
    return node;
}

int32_t AddEvt(NotifQueue* pQueue, void* pMsg) {
    if (pQueue == nullptr) {
        LOG(Level::Error, "%s", "pQueue is NULL");
        return 1;
    }
    LOG(Level::Trace, "WAIT for queue mutex %p", static_cast<void*>(pQueue->mutex));
    MutexGuard lock{pQueue->mutex};
    if (!lock) {
        LOG(Level::Fatal, "%s", "AddEvt:Failied to lock Mutex");
        return lock.error();
    }

    if (InsertMsgAtQueueTail(pQueue, pMsg) == 0) {
        ++count_of(*pQueue);
    }
    const uint32_t count = count_of(*pQueue);
    LOG(Level::Trace, "%s", "Release queue mutex");
    lock.unlock();
    LOG(Level::Trace, "AddEvt successful: MsgCount %d", static_cast<int>(count));
    return 0;  // Kept: a message that found no memory is not reported.
}

int32_t removeMsg(NotifQueue* pQueue, void** ppMsg) {
    if (pQueue == nullptr) {
        LOG(Level::Error, "%s", "removeMsg:Failed . pQueue NULL");
        return -1;
    }
    if (ppMsg == nullptr) {
        LOG(Level::Error, "%s", "<-- err null inputs");
        return -1;
    }
    LOG(Level::Trace, "WAIT for queue mutex %p", static_cast<void*>(pQueue->mutex));
    MutexGuard lock{pQueue->mutex};
    if (!lock) {
        LOG(Level::Fatal, "%s", "removeMsg:Failied to lock Mutex");
        return lock.error();
    }

    NotifNode* node = nullptr;
    if (count_of(*pQueue) != 0) {
        node = RemoveMsgFromQueueHead(pQueue);
        --count_of(*pQueue);
        LOG(Level::Trace, "%s", "removeMsg successful");
    } else {
        LOG(Level::Trace, "%s", "0 msg. removeMsg successful");
    }
    const uint32_t count = count_of(*pQueue);
    LOG(Level::Trace, "%s", "Release queue mutex");
    lock.unlock();

    *ppMsg = node != nullptr ? node->msg : nullptr;
    std::free(node);
    LOG(Level::Trace, "removeMsg:%p", *ppMsg);
    LOG(Level::Trace, "removeMsg successful: msgCount %d", static_cast<int>(count));
    return 0;
}
