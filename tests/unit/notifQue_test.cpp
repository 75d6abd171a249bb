#include "notifQue.h"

#include <cstdlib>

#include "tests/support/platform_test.h"

namespace {

class NotifyQueue : public PlatformTest {};

TEST_F(NotifyQueue, MessagesComeOutInOrder) {
    NotifQueue* queue = nullptr;
    void* message = nullptr;
    int messages[3] = {};
    ASSERT_EQ(InitEvtQ(&queue), 0);
    for (int& each : messages) {
        EXPECT_EQ(AddEvt(queue, &each), 0);
    }
    EXPECT_EQ(queue->tail->prev->prev, queue->head) << "linked both ways";
    for (uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(queue->count, 3 - i);
        EXPECT_EQ(removeMsg(queue, &message), 0);
        EXPECT_EQ(message, &messages[i]);
        EXPECT_EQ(queue->tail == nullptr, i == 2);
    }
    EXPECT_EQ(removeMsg(queue, &message), 0);
    EXPECT_EQ(message, nullptr);

    EXPECT_EQ(InitEvtQ(nullptr), -1);
    EXPECT_EQ(AddEvt(nullptr, messages), 1);
    EXPECT_EQ(removeMsg(nullptr, &message), -1);
    EXPECT_EQ(removeMsg(queue, nullptr), -1);
    EXPECT_EQ(InsertMsgAtQueueTail(nullptr, messages), -1);
    EXPECT_EQ(RemoveMsgFromQueueHead(nullptr), nullptr);
    {
        const AllocationScope scope;
        platform.fail(Place::Allocation);
        EXPECT_EQ(AddEvt(queue, messages), 0) << "dropped in silence";
    }
    EXPECT_EQ(queue->count, 0u);
    SMMutexDestroy(queue->mutex);  // queues have no end of their own
    std::free(queue);
}

}  // namespace
