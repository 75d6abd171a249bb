#include "notifQue.h"

#include <cstdlib>

#include "tests/support/platform_test.h"

namespace {

class NotifyQueue : public PlatformTest {
  protected:
    void SetUp() override { ASSERT_EQ(InitEvtQ(&queue_), 0); }
    // Queues have no end of their own.
    void TearDown() override {
        while (queue_->head != nullptr) {
            std::free(RemoveMsgFromQueueHead(queue_));
        }
        SMMutexDestroy(queue_->mutex);
        std::free(queue_);
    }

    void* take() {
        void* message = this;
        EXPECT_EQ(removeMsg(queue_, &message), 0);
        return message;
    }

    static std::string with_pointer(const char* format, const void* pointer) {
        char text[80];
        snprintf(text, sizeof(text), format, pointer);
        return text;
    }

    NotifQueue* queue_ = nullptr;
    int messages_[3] = {};
};

TEST_F(NotifyQueue, MessagesComeOutInOrderAndAreCounted) {
    EXPECT_EQ(take(), nullptr);
    for (int round = 0; round < 2; ++round) {
        for (uint32_t i = 0; i < 3; ++i) {
            EXPECT_EQ(AddEvt(queue_, &messages_[i]), 0);
            EXPECT_EQ(queue_->count, i + 1);
        }
        EXPECT_EQ(queue_->tail->prev->msg, &messages_[1]) << "linked both ways";
        EXPECT_EQ(queue_->tail->prev->prev, queue_->head);
        for (uint32_t i = 0; i < 3; ++i) {
            EXPECT_EQ(take(), &messages_[i]);
            EXPECT_EQ(queue_->count, 2 - i);
            EXPECT_TRUE(queue_->head == nullptr || queue_->head->prev == nullptr);
        }
        EXPECT_EQ(queue_->tail, nullptr);
    }
    EXPECT_EQ(AddEvt(queue_, nullptr), 0) << "a null message is one too";
    const int locks = platform.calls(Place::Lock);
    EXPECT_EQ(InsertMsgAtQueueTail(queue_, messages_), 0);
    EXPECT_EQ(queue_->count, 1u) << "only AddEvt counts, and locks";
    EXPECT_EQ(platform.calls(Place::Lock), locks);
}

TEST_F(NotifyQueue, LinesOfAMessagesWay) {
    EXPECT_EQ(platform.messages(4), Lines{with_pointer("InitEvtQ successful %p", queue_)});
    const std::string wait = with_pointer("WAIT for queue mutex %p", queue_->mutex);
    const std::string message = with_pointer("removeMsg:%p", messages_);
    platform.clear_lines();
    AddEvt(queue_, messages_);
    EXPECT_EQ(platform.messages(4),
              (Lines{wait, "Release queue mutex", "AddEvt successful: MsgCount 1"}));
    EXPECT_EQ(platform.messages(2),
              Lines{with_pointer("InsertMsgAtQueueTail address %p Succesfully", queue_->head)});
    platform.clear_lines();
    take();
    EXPECT_EQ(platform.messages(4),
              (Lines{wait, "RemoveMsgFromQueueHead for last msn in Q", "removeMsg successful",
                     "Release queue mutex", message, "removeMsg successful: msgCount 0"}));
    platform.clear_lines();
    take();
    EXPECT_EQ(platform.messages(4)[1], "0 msg. removeMsg successful");
}

TEST_F(NotifyQueue, RefusalsAndFailuresHaveTheirResultAndLine) {
    void* message = messages_;
    EXPECT_EQ(AddEvt(nullptr, messages_), 1);
    EXPECT_EQ(removeMsg(nullptr, &message), -1);
    EXPECT_EQ(removeMsg(queue_, nullptr), -1);
    EXPECT_EQ(InitEvtQ(nullptr), -1);
    EXPECT_EQ(InsertMsgAtQueueTail(nullptr, messages_), -1);
    EXPECT_EQ(RemoveMsgFromQueueHead(nullptr), nullptr);
    EXPECT_TRUE(
        told(2).starts_with("pQueue is NULL\nremoveMsg:Failed . pQueue NULL\n"
                            "<-- err null inputs\n<-- err null inputs\n"));
    platform.fail(Place::Lock, 1, true);
    EXPECT_EQ(AddEvt(queue_, messages_), 1);
    EXPECT_EQ(removeMsg(queue_, &message), 1);
    EXPECT_EQ(told(1), "AddEvt:Failied to lock Mutex\nremoveMsg:Failied to lock Mutex\n");
    EXPECT_EQ(message, messages_);
    platform.no_faults();

    const AllocationScope scope;
    platform.fail(Place::Allocation);
    EXPECT_EQ(AddEvt(queue_, messages_), 0) << "dropped in silence";
    EXPECT_EQ(queue_->count, 0u);
    platform.fail(Place::Allocation);
    NotifQueue* other = queue_;
    EXPECT_EQ(InitEvtQ(&other), -1);
    EXPECT_EQ(other, queue_);
    EXPECT_EQ(told(2), "InsertMsgAtQueueTail Failed\nInitEvtQ Failed\n");
}

}  // namespace
