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

std::atomic<int> epoll_fd{-1};
// Written by registering threads, read by the loop thread.
std::atomic<int> registered_count{0};
// Returns of epoll_wait, for event_loop_utils::wakeUps(); wraps around.
std::atomic<unsigned> wake_ups{0};

// Clean ending for tools and tests. Nothing exists until stop() asks for it:
// then an eventfd is registered like any other descriptor (and counted), so
// that a running wait wakes; the loop removes and closes it when it returns.
std::atomic<bool> stop_requested{false};
std::mutex stop_mutex;  // guards loop_running and the stop descriptor's registration
bool loop_running = false;
std::atomic<int> stop_fd{-1};

void drain_stop_fd(void*) {
    uint64_t count;
    ssize_t r = read(stop_fd.load(), &count, sizeof(count));
    (void)r;  // nothing to read is fine: another wait drained it
}

event_loop_handler stop_record = {drain_stop_fd, nullptr};

// Wakes a running loop through the stop descriptor, registering it first.
// Without a running loop the flag alone is enough: the loop reads it before
// its first wait.
void wake_for_stop() {
    std::lock_guard<std::mutex> guard(stop_mutex);
    if (!loop_running) {
        return;
    }
    if (stop_fd.load() < 0) {
        const int fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
        if (fd < 0) {
            return;  // the loop still sees the flag at its next wake
        }
        stop_fd.store(fd);
        if (event_loop_register(fd, &stop_record, EPOLLIN, 0) != 0) {
            stop_fd.store(-1);
            close(fd);
            return;
        }
    }
    const uint64_t one = 1;
    ssize_t r = write(stop_fd.load(), &one, sizeof(one));
    (void)r;  // a saturated counter still wakes the wait
}

void set_loop_running(bool running) {
    std::lock_guard<std::mutex> guard(stop_mutex);
    loop_running = running;
    const int fd = stop_fd.load();
    if (!running && fd >= 0) {
        event_loop_unregister(fd);
        close(fd);
        stop_fd.store(-1);
    }
}

void sleep_33ms() {
    struct timespec ts = {0, 33000000};
    nanosleep(&ts, nullptr);
}

enum class WaitResult { kContinue, kFailed };

// One wait and its dispatch. The event array is a stack block of this call,
// released when it returns, with room for every registered descriptor. The
// library registers two timers per stream handler, and those handlers are
// bounded (StreamAdmission), so the block stays small.
WaitResult wait_once(int n, int timeout) {
    epoll_event* events =
        n > 0 ? static_cast<epoll_event*>(alloca(sizeof(epoll_event) * n)) : nullptr;
    const int ready = epoll_wait(epoll_fd.load(), events, n, timeout);
    wake_ups.fetch_add(1, std::memory_order_relaxed);
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
    const int fd = epoll_create(40);
    epoll_fd.store(fd);
    if (fd == -1) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "epoll_create failed; errno=%d\n", errno);
        return -1;
    }
    stop_requested.store(false);
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
    // stop() sets its flag before it looks at loop_running, the loop sets
    // loop_running before it looks at the flag: one of the two sees the other.
    set_loop_running(true);
    for (;;) {
        if (stop_requested.exchange(false)) {
            break;
        }
        // The array size and the wait's maximum come from this one reading.
        const int n = registered_count.load();
        const int timeout = timeout_provider != nullptr ? timeout_provider() : -1;
        if (wait_once(n, timeout) == WaitResult::kFailed) {
            break;
        }
    }
    set_loop_running(false);
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
    wake_for_stop();
}

uint32_t epollMask(uint32_t events, int wakeup) {
    return wakeup == 1 ? events | EPOLLWAKEUP : events;
}

int registeredCount() {
    return registered_count.load();
}

int epollDescriptor() {
    return epoll_fd.load();
}

unsigned wakeUps() {
    return wake_ups.load(std::memory_order_relaxed);
}

}  // namespace event_loop_utils
