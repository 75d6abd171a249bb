// The two threads between which the endpoint event queue lies: the MCTP client's, which calls back
// and puts, and the daemon's worker, which takes.
#ifndef TOOLS_VEXSIM_EVENT_THREADS_H
#define TOOLS_VEXSIM_EVENT_THREADS_H

#include <cstdint>
#include <exception>
#include <functional>
#include <semaphore>
#include <span>
#include <thread>

#include "rt_evtq.h"

namespace vexsim {

class EventThreads {
  public:
    using Handler = std::function<void(const EndpointEvent&)>;

    // handler: runs on the worker's thread. Of an event that is no endpoint table it reads one byte
    // of payload.
    explicit EventThreads(Handler handler) : handler_(std::move(handler)) {}
    ~EventThreads() { stop(); }
    EventThreads(const EventThreads&) = delete;
    EventThreads& operator=(const EventThreads&) = delete;

    // Creates the queue and starts the threads. Throws RuntimeFailure.
    void start();
    // Ends as much as was started.
    void stop();

    // Sends an event through the queue. Returns when the handler is done with it, so that nothing
    // depends on how the threads take turns; throws what the handler threw, or RuntimeFailure.
    void deliver(uint32_t type, std::span<const uint8_t> payload);

  private:
    static void* work(void* self);
    void call_back();
    bool handle(const EndpointEvent& event);

    Handler handler_;
    bool has_queue_ = false;
    bool has_worker_ = false;
    std::thread client_;
    EndpointEvent* reported_ = nullptr;  // what the client reports next, null: nothing any more
    int32_t put_result_ = 0;
    std::exception_ptr failure_;  // of the handler
    std::binary_semaphore called_{0}, put_{0}, handled_{0};
};

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_EVENT_THREADS_H
