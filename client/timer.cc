#include "client/timer.h"

#include <android/log.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <exception>
#include <utility>

namespace util {
namespace hidl_uvc_client {

namespace {

const char kTag[] = "ConvFactory";
const long kNsPerSecond = 1000000000L;

}  // namespace

timer::timer(std::function<void()> cb)
    : wakealarm_fd(-1),
      event{&timer::wakealarm_event, this},
      initial_delay_ms(30),
      callback(std::move(cb)),
      registered_(false) {
    initialize_wakealarm();
}

timer::~timer() {
    if (wakealarm_fd < 0) {
        return;
    }
    struct itimerspec off = {};
    timerfd_settime(wakealarm_fd, 0, &off, nullptr);
    if (registered_) {
        event_loop_unregister(wakealarm_fd);
    }
    close(wakealarm_fd);
}

int timer::initialize_wakealarm() {
    // No close-on-exec, as the descriptor has always been created.
    wakealarm_fd = timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK);
    if (wakealarm_fd == -1) {
        const int e = errno;
        __android_log_print(ANDROID_LOG_INFO, kTag,
                            "initialize_sub_wakealarm: timerfd_create failed. error: %s(%d)\n",
                            strerror(e), e);
        return -1;
    }
    if (event_loop_register(wakealarm_fd, &event, EPOLLIN, 1) != 0) {
        __android_log_print(ANDROID_LOG_INFO, kTag,
                            "initialize_sub_wakealarm: Registration of wakealarmevent failed\n");
        return -2;
    }
    registered_ = true;
    return 0;
}

int timer::intervalNs(float interval_s) {
    if (!std::isfinite(interval_s) || interval_s < 0.0f) {
        return -1;
    }
    // Single precision on purpose: 1/30 s gives 33,333,336 here, 33,333,337 below.
    const float ns = interval_s * 1000000000.0f;
    // Below 1 ns the count truncates to 0, which timerfd reads as "no
    // repetition": the timer then expires once, initial_delay_ms after arming.
    if (ns >= 2147483647.0f) {
        return -1;
    }
    int period = static_cast<int>(ns);
    if (period % 10 != 0) {
        period += 1;
    }
    return period;
}

void timer::set_interval(bool disarm, float interval_s) {
    if (wakealarm_fd < 1) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "no wake alarm fd\n");
        return;
    }
    int32_t period = 0;
    if (!disarm) {
        period = intervalNs(interval_s);
        if (period < 0) {
            // Longer than the 32-bit nanosecond count allows, negative or not a
            // number: keep whatever setting the timer had.
            __android_log_print(ANDROID_LOG_INFO, kTag,
                                "wakealarm_set_interval: invalid interval %f s\n",
                                static_cast<double>(interval_s));
            return;
        }
    }
    __android_log_print(ANDROID_LOG_INFO, kTag, "wakealarm_set_interval: %ld ms\n",
                        static_cast<long>(period / 1000000));
    struct itimerspec setting = {};
    setting.it_interval.tv_sec = period / kNsPerSecond;
    setting.it_interval.tv_nsec = period % kNsPerSecond;
    setting.it_value.tv_sec = 0;
    setting.it_value.tv_nsec = disarm ? 0 : static_cast<long>(initial_delay_ms) * 1000000L;
    if (timerfd_settime(wakealarm_fd, 0, &setting, nullptr) == -1) {
        __android_log_print(ANDROID_LOG_INFO, kTag,
                            "wakealarm_set_interval: timerfd_settime failed\n");
    }
}

void timer::wakealarm_event(void* context) {
    if (context == nullptr) {
        return;
    }
    auto* self = static_cast<timer*>(context);
    uint64_t expirations = 0;
    if (read(self->wakealarm_fd, &expirations, sizeof(expirations)) !=
        static_cast<ssize_t>(sizeof(expirations))) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "wakealarm_event: read wakealarm fd failed\n");
        return;
    }
    // Expiries that piled up while the loop was busy lead to one call. An
    // exception (memory can run out anywhere) gives up this expiry only; the
    // loop thread and the other timers go on.
    try {
        self->callback();
    } catch (const std::exception& e) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "wakealarm_event: timer callback failed: %s",
                            e.what());
    } catch (...) {
        __android_log_print(ANDROID_LOG_ERROR, kTag,
                            "wakealarm_event: timer callback failed: unknown exception");
    }
}

}  // namespace hidl_uvc_client
}  // namespace util
