#include "client/event_loop_utils.h"

#include <alloca.h>
#include <android/log.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <mutex>

namespace {

const char kTag[] = "event_loop_utils";

// Upper bound of one wait's event array, so that the stack block stays small
// whatever the number of registrations; further ready events come next time.
const int kMaxEventsPerWait = 256;

std::atomic<int> epoll_fd{-1};
// Written by registering threads, read by the loop thread.
std::atomic<int> registered_count{0};

// Clean ending for tools and tests: an eventfd in every epoll set wakes the
// wait, the flag tells the loop to return. It is not counted in
// registered_count, so the loop behaves as documented when nothing else is
// registered.
std::atomic<bool> stop_requested{false};
std::mutex stop_fd_mutex;
std::atomic<int> stop_fd{-1};

// Made on first need; retried later if descriptors ran out at that moment.
int ensure_stop_fd() {
    std::lock_guard<std::mutex> guard(stop_fd_mutex);
    if (stop_fd.load() < 0) {
        stop_fd.store(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    }
    return stop_fd.load();
}

void drain_stop_fd(void*) {
    uint64_t count;
    ssize_t r = read(stop_fd.load(), &count, sizeof(count));
    (void)r;  // nothing to read is fine: another wait drained it
}

event_loop_handler stop_record = {drain_stop_fd, nullptr};

void sleep_33ms() {
    struct timespec ts = {0, 33000000};
    nanosleep(&ts, nullptr);
}

enum class WaitResult { kContinue, kFailed };

// One wait and its dispatch. The event array is a stack block of this call,
// released when it returns.
WaitResult wait_once(int n, int timeout) {
    const int slots = n < kMaxEventsPerWait ? n : kMaxEventsPerWait;
    epoll_event* events =
        slots > 0 ? static_cast<epoll_event*>(alloca(sizeof(epoll_event) * slots)) : nullptr;
    const int ready = epoll_wait(epoll_fd.load(), events, slots, timeout);
    if (ready == -1) {
        const int e = errno;
        if (e == EINTR || n == 0) {
            sleep_33ms();
            return WaitResult::kContinue;
        }
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "epoll_mainloop: epoll_wait failed: [%d] [%s]\n", e, strerror(e));
        return WaitResult::kFailed;
    }
    for (int i = 0; i < ready; ++i) {
        // Readiness, error and hang-up all lead to the same call.
        auto* handler = static_cast<event_loop_handler*>(events[i].data.ptr);
        if (handler != nullptr && handler->callback != nullptr) {
            handler->callback(handler->context);
        }
    }
    return WaitResult::kContinue;
}

}  // namespace

extern "C" {

int event_loop_init(void) {
    const int wake_fd = ensure_stop_fd();
    const int fd = epoll_create(40);
    epoll_fd.store(fd);
    if (fd == -1) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "epoll_create failed; errno=%d\n", errno);
        return -1;
    }
    stop_requested.store(false);
    if (wake_fd >= 0) {
        drain_stop_fd(nullptr);
        epoll_event ev = {};
        ev.events = EPOLLIN;
        ev.data.ptr = &stop_record;
        epoll_ctl(fd, EPOLL_CTL_ADD, wake_fd, &ev);
    }
    return 0;
}

int event_loop_register(int fd, event_loop_handler* handler, uint32_t events, int wakeup) {
    epoll_event ev = {};
    ev.events = event_loop_utils::epollMask(events, wakeup);
    ev.data.ptr = handler;
    if (epoll_ctl(epoll_fd.load(), EPOLL_CTL_ADD, fd, &ev) == -1) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "epoll_ctl add failed; errno=%d\n", errno);
        return -1;
    }
    registered_count.fetch_add(1);
    return 0;
}

int event_loop_unregister(int fd) {
    if (epoll_ctl(epoll_fd.load(), EPOLL_CTL_DEL, fd, nullptr) == -1) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "epoll_ctl del failed; errno=%d\n", errno);
        return -1;
    }
    registered_count.fetch_sub(1);
    return 0;
}

void event_loop_run(int (*timeout_provider)(void)) {
    for (;;) {
        if (stop_requested.exchange(false)) {
            return;
        }
        // The array size and the wait's maximum come from this one reading.
        const int n = registered_count.load();
        const int timeout = timeout_provider != nullptr ? timeout_provider() : -1;
        if (wait_once(n, timeout) == WaitResult::kFailed) {
            return;
        }
    }
}

int nsleep(int ms) {
    struct timespec ts;
    struct timespec remaining;
    if (ms >= 1000) {
        ts.tv_sec = ms / 1000;
        ts.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    } else {
        ts.tv_sec = 0;
        ts.tv_nsec = static_cast<long>(ms) * 1000000L;
    }
    return nanosleep(&ts, &remaining);
}

}  // extern "C"

namespace event_loop_utils {

void stop() {
    stop_requested.store(true);
    const int wake_fd = ensure_stop_fd();
    if (wake_fd >= 0) {
        const uint64_t one = 1;
        ssize_t r = write(wake_fd, &one, sizeof(one));
        (void)r;  // a saturated counter still wakes the wait
    }
}

uint32_t epollMask(uint32_t events, int wakeup) {
    return wakeup == 1 ? events | EPOLLWAKEUP : events;
}

int registeredCount() {
    return registered_count.load();
}

}  // namespace event_loop_utils
