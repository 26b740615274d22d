#pragma once

#include <atomic>
#include <chrono>
#include <functional>
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

// The bridge's event thread: one poll() over the current sources and a
// wake-up eventfd. Before every wait it asks `sources` for the sources to
// watch (borrowed: each must live until the loop has stopped); with a `tick`
// it also calls that about once per `tickInterval`, on the loop thread.
// start() and stop() are called from one controlling thread, never from the
// loop thread.
class EventLoop {
public:
    using Sources = std::function<std::vector<PollSource*>()>;
    EventLoop(Sources sources, std::function<void()> tick = {},
              std::chrono::milliseconds tickInterval = std::chrono::seconds(1));
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

    Sources sources_;
    std::function<void()> tick_;
    std::chrono::milliseconds tickInterval_;
    UniqueFd wake_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace uvc_gadget
