// The two queues, one message through each.
#include <platform/sm.h>

#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>

#include "bench/bench_support.h"
#include "notifQue.h"
#include "rt_evtq.h"
#include "vexel.h"

#ifdef VEX_PEER_GLIB
#include <glib.h>
#endif

namespace bench {

namespace {

// A deque, a mutex and a condition variable: what one would write first.
class DequeQueue {
  public:
    void put(void* message) {
        const std::lock_guard lock{mutex_};
        messages_.push_back(message);
        changed_.notify_one();
    }
    void* get() {
        std::unique_lock lock{mutex_};
        changed_.wait(lock, [this] { return !messages_.empty(); });
        void* message = messages_.front();
        messages_.pop_front();
        return message;
    }

  private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<void*> messages_;
};

DequeQueue deque_queue;
SMMutexHandle floor_mutex;
SMEventHandle floor_event;
int message;

// Leaves so many events in the endpoint queue.
void queue_up(int backlog) {
    static int queued = 0;
    log_file(false);
    if (gpRtraid_EventQueue == nullptr) {
        must(rtraid_EventQueue_Init() == 0, "rtraid_EventQueue_Init");
    }
    rtraid_EventQueue_SetStatus(1);
    EndpointEvent event{};
    event.callbackType = 1;
    for (; queued > backlog; --queued) {
        vexel_free(rtraid_EventQueue_Get());
    }
    for (; queued < backlog; ++queued) {
        rtraid_EventQueue_Put(&event);
    }
}

void register_endpoint_queue(int backlog) {
    add_owing_lines(
        "endpoint_queue_" + std::to_string(backlog), [backlog] { queue_up(backlog - 1); },
        [] {
            EndpointEvent event{};
            event.callbackType = 1;
            rtraid_EventQueue_Put(&event);
            vexel_free(rtraid_EventQueue_Get());
        },
        [] {
            void* node = vexel_alloc(2 * sizeof(void*));
            void* event = vexel_alloc(9);
            keep(node);
            keep(event);
            for (int i = 0; i < 2; ++i) {
                SMMutexLock(floor_mutex, -1);
                SMMutexUnLock(floor_mutex);
            }
            SMEventSet(floor_event);
            SMEventWait(floor_event, -1);
            SMEventReset(floor_event);
            vexel_free(node);
            vexel_free(event);
        });
}

}  // namespace

void register_queue_cases() {
    floor_mutex = SMMutexCreate(nullptr);
    floor_event = SMEventCreate(nullptr, 1);
    for (const int backlog : {1, 100, 1000, 10000}) {
        register_endpoint_queue(backlog);
    }
    add(
        "endpoint_queue_1/peer_deque", [] {},
        [] {
            deque_queue.put(&message);
            keep(deque_queue.get());
        });

    static NotifQueue* queue;
    add_owing_lines(
        "notification_queue",
        [] {
            if (queue == nullptr) {
                must(InitEvtQ(&queue) == 0, "InitEvtQ");
            }
        },
        [] {
            void* out = nullptr;
            AddEvt(queue, &message);
            removeMsg(queue, &out);
            keep(out);
        },
        [] {
            void* node = std::malloc(3 * sizeof(void*));
            keep(node);
            for (int i = 0; i < 2; ++i) {
                SMMutexLock(floor_mutex, -1);
                SMMutexUnLock(floor_mutex);
            }
            std::free(node);
        });
#ifdef VEX_PEER_GLIB
    static GAsyncQueue* glib_queue = g_async_queue_new();
    add(
        "notification_queue/peer_GAsyncQueue", [] {},
        [] {
            g_async_queue_push(glib_queue, &message);
            keep(g_async_queue_try_pop(glib_queue));
        });
    add(
        "endpoint_queue_1/peer_GAsyncQueue", [] {},
        [] {
            g_async_queue_push(glib_queue, &message);
            keep(g_async_queue_pop(glib_queue));
        });
#endif
}

}  // namespace bench
