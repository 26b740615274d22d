#include "io/EventLoop.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <android/log.h>

namespace uvc_gadget {

PollSource::~PollSource() = default;

EventLoop::EventLoop(Sources sources, std::function<void()> tick,
                     std::chrono::milliseconds tickInterval)
    : sources_(std::move(sources)), tick_(std::move(tick)), tickInterval_(tickInterval) {}

EventLoop::~EventLoop() {
    stop();
}

bool EventLoop::start(std::string& error) {
    wake_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!wake_.valid()) {
        error = std::string("eventfd: ") + strerror(errno);
        return false;
    }
    stopping_ = false;
    try {
        thread_ = std::thread(&EventLoop::run, this);
    } catch (const std::system_error& e) {
        error = std::string("starting the event thread: ") + e.what();
        wake_.reset();
        return false;
    }
    return true;
}

void EventLoop::stop() {
    if (!thread_.joinable())
        return;
    stopping_ = true;
    const uint64_t one = 1;
    if (write(wake_.get(), &one, sizeof(one)) < 0) {
        // The counter is full only if it was written before; the thread wakes.
    }
    thread_.join();
    wake_.reset();
}

void EventLoop::run() {
    using Clock = std::chrono::steady_clock;
    std::vector<pollfd> fds;
    std::vector<PollSource*> sources;
    Clock::time_point nextTick = Clock::now() + tickInterval_;
    while (!stopping_) {
        sources = sources_();
        fds.resize(sources.size() + 1);
        fds[0] = {wake_.get(), POLLIN, 0};
        for (size_t i = 0; i < sources.size(); ++i)
            fds[i + 1] = {sources[i]->pollFd(), sources[i]->pollEvents(), 0};
        int timeout = -1;
        if (tick_) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(nextTick - Clock::now());
            timeout = static_cast<int>(std::max<int64_t>(0, left.count()));
        }
        const int ready = poll(fds.data(), fds.size(), timeout);
        if (ready < 0) {
            if (errno == EINTR)
                continue;
            __android_log_print(ANDROID_LOG_ERROR, "UvcGadget", "poll failed: %s", strerror(errno));
            return;
        }
        for (size_t i = 0; i < sources.size() && !stopping_; ++i) {
            if (fds[i + 1].revents != 0)
                sources[i]->onPoll(fds[i + 1].revents);
        }
        if (tick_ && !stopping_ && Clock::now() >= nextTick) {
            tick_();
            nextTick = Clock::now() + tickInterval_;
        }
    }
}

}  // namespace uvc_gadget
