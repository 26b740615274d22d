#pragma once

// A stream's frame rate judged against what this machine allows right now:
// a bare epoll loop with one timerfd at the stream's rate runs on a thread
// of its own beside the stream, as the library's loop does, and counts its
// wake-ups. A busy machine delays both alike (piled-up expiries make one
// wake-up, as they make one frame), so a stream that keeps up with the bare
// loop keeps its rate, however loaded the machine is.
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "client_harness.h"
#include "trevo_host.h"

namespace client_test {

// Under sanitizers (dear frame path, cheap bare loop) a stream need only keep
// flowing.
constexpr double kPaceShare = kSanitized ? 0.3 : 0.8;

class BareTimerLoop {
public:
    explicit BareTimerLoop(int fps)
        : epoll_(epoll_create1(EPOLL_CLOEXEC)), timer_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC)) {
        epoll_event event = {};
        event.events = EPOLLIN;
        epoll_ctl(epoll_, EPOLL_CTL_ADD, timer_, &event);
        const long period = 1000000000L / fps;
        itimerspec spec = {{period / 1000000000L, period % 1000000000L},
                           {period / 1000000000L, period % 1000000000L}};
        timerfd_settime(timer_, 0, &spec, nullptr);
        thread_ = std::thread([this] {
            while (!stop_) {
                epoll_event ready = {};
                if (epoll_wait(epoll_, &ready, 1, 50) == 1) {
                    uint64_t expiries = 0;
                    if (read(timer_, &expiries, sizeof expiries) == sizeof expiries)
                        ++wakeups_;
                }
            }
        });
    }
    ~BareTimerLoop() {
        stop_ = true;
        thread_.join();
        close(timer_);
        close(epoll_);
    }
    BareTimerLoop(const BareTimerLoop&) = delete;
    BareTimerLoop& operator=(const BareTimerLoop&) = delete;

    size_t wakeups() const { return wakeups_.load(); }

private:
    const int epoll_;
    const int timer_;
    std::atomic<bool> stop_{false};
    std::atomic<size_t> wakeups_{0};
    std::thread thread_;
};

// Frames of one stream over a window, beside a bare loop at its rate.
struct StreamPace {
    size_t frames = 0, bare = 0;
    double allowed = 0;  // frames the period allows in the window
};

inline StreamPace measurePace(trevo_standin::Host& host, uint8_t id, uint8_t idx, int fps,
                        std::chrono::milliseconds window = std::chrono::milliseconds(1500)) {
    host.clearFrames();
    BareTimerLoop bare(fps);
    const auto start = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(window);
    StreamPace pace;
    pace.frames = host.frameCount(id, idx);
    pace.bare = bare.wakeups();
    pace.allowed = fps * std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return pace;
}

// Never more frames than the period allows (no machine makes a stream
// faster), and at least 80 % of the bare loop's wake-ups (kPaceShare).
inline void expectKeepsPace(const StreamPace& p) {
    EXPECT_LE(double(p.frames), p.allowed * 1.1 + 1) << "faster than its period: " << p.frames
                                                     << " frames, " << p.allowed << " allowed";
    EXPECT_GE(double(p.frames), kPaceShare * double(p.bare) - 1)
        << p.frames << " frames where a bare loop woke " << p.bare << " times";
}

}  // namespace client_test
