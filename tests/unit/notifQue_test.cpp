#include "notifQue.h"

#include <cstdlib>
#include <regex>

#include "tests/support/platform_test.h"

namespace {

class NotifyQueue : public PlatformTest {
  protected:
    void SetUp() override { ASSERT_EQ(InitEvtQ(&queue_), 0); }
    // Queues have no end of their own.
    void TearDown() override {
        SMMutexDestroy(queue_->mutex);
        std::free(queue_);
    }

    // The lines since the last call, "P" for pointers.
    std::string lines() {
        return std::regex_replace(lines_of("notifQue.cpp"), std::regex{"0x\\w+"}, "P");
    }

    NotifQueue* queue_ = nullptr;
    void* message_ = nullptr;
    int messages_[3] = {};
};

TEST_F(NotifyQueue, MessagesComeOutInOrder) {
    EXPECT_EQ(lines(), "4 InitEvtQ successful P|");
    for (int& message : messages_) {
        EXPECT_EQ(AddEvt(queue_, &message), 0);
        EXPECT_EQ(lines(),
                  "4 WAIT for queue mutex P|2 InsertMsgAtQueueTail address P Succesfully|"
                  "4 Release queue mutex|4 AddEvt successful: MsgCount " +
                      std::to_string(queue_->count) + "|");
    }
    EXPECT_EQ(queue_->tail->prev->prev, queue_->head) << "linked both ways";
    for (uint32_t i = 0; i < 3; ++i) {
        EXPECT_EQ(queue_->count, 3 - i);
        lines();
        EXPECT_EQ(removeMsg(queue_, &message_), 0);
        EXPECT_EQ(message_, &messages_[i]);
    }
    EXPECT_EQ(lines(),
              "4 WAIT for queue mutex P|4 RemoveMsgFromQueueHead for last msn in Q|"
              "4 removeMsg successful|4 Release queue mutex|4 removeMsg:P|"
              "4 removeMsg successful: msgCount 0|");
    EXPECT_EQ(removeMsg(queue_, &message_), 0);
    EXPECT_TRUE(logged(4, "0 msg. removeMsg successful"));
    EXPECT_EQ(message_, nullptr);
}

TEST_F(NotifyQueue, Refusals) {
    EXPECT_EQ(InitEvtQ(nullptr), -1);
    EXPECT_EQ(AddEvt(nullptr, messages_), 1);
    EXPECT_EQ(removeMsg(nullptr, &message_), -1);
    EXPECT_EQ(removeMsg(queue_, nullptr), -1);
    EXPECT_EQ(InsertMsgAtQueueTail(nullptr, messages_), -1);
    EXPECT_EQ(RemoveMsgFromQueueHead(nullptr), nullptr);
    const AllocationScope scope;
    platform.fail(Place::Allocation);
    EXPECT_EQ(AddEvt(queue_, messages_), 0) << "dropped in silence";
    EXPECT_EQ(queue_->count, 0u);
}

}  // namespace
