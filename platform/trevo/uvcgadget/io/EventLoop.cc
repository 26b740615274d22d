#include "io/EventLoop.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <android/log.h>

namespace uvc_gadget {

PollSource::~PollSource() = default;

EventLoop::EventLoop(std::vector<PollSource*> sources) : sources_(std::move(sources)) {}

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
    std::vector<pollfd> fds(sources_.size() + 1);
    while (!stopping_) {
        fds[0] = {wake_.get(), POLLIN, 0};
        for (size_t i = 0; i < sources_.size(); ++i)
            fds[i + 1] = {sources_[i]->pollFd(), sources_[i]->pollEvents(), 0};
        const int ready = poll(fds.data(), fds.size(), -1);
        if (ready < 0) {
            if (errno == EINTR)
                continue;
            __android_log_print(ANDROID_LOG_ERROR, "UvcGadget", "poll failed: %s", strerror(errno));
            return;
        }
        for (size_t i = 0; i < sources_.size() && !stopping_; ++i) {
            if (fds[i + 1].revents != 0)
                sources_[i]->onPoll(fds[i + 1].revents);
        }
    }
}

}  // namespace uvc_gadget
