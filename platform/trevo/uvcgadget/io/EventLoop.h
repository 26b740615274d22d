#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "io/UniqueFd.h"

namespace uvc_gadget {

// Something the event loop polls: asked for its descriptor and events before
// every wait, called on the loop thread when they are ready.
class PollSource {
public:
    virtual ~PollSource();
    virtual int pollFd() const = 0;
    virtual short pollEvents() const = 0;
    virtual void onPoll(short revents) = 0;
};

// The bridge's event thread: one poll() over a fixed set of sources and a
// wake-up eventfd. Sources are borrowed and must outlive the loop. start()
// and stop() are called from one controlling thread, never from the loop
// thread.
class EventLoop {
public:
    explicit EventLoop(std::vector<PollSource*> sources);
    // Stops the thread if it still runs.
    ~EventLoop();
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;

    // False with a reason when the wake-up descriptor or the thread cannot be
    // made.
    bool start(std::string& error);
    // Wakes the thread and waits for it to end; no callback runs afterwards.
    void stop();
    bool onLoopThread() const { return std::this_thread::get_id() == thread_.get_id(); }

private:
    void run();

    std::vector<PollSource*> sources_;
    UniqueFd wake_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace uvc_gadget
