// Frame intervals as the host sees them, for 1 to 8 streams at 30 and 60
// fps, beside a bare timerfd loop with as many timers on one epoll thread,
// run at the same time: most of the jitter on a workstation is its
// scheduler, which the bare loop meets alike.

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

#include "bench.h"
#include "client/HidlUvcClient.h"
#include "client/event_loop_utils.h"
#include "pipeline/DemoBuffer.h"
#include "trevo_host.h"

namespace uvc_bench {
namespace {

using namespace std::chrono_literals;
constexpr auto kWindow = 4s;

uint64_t nowNs() {
    timespec ts = {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return uint64_t(ts.tv_sec) * 1000000000ull + uint64_t(ts.tv_nsec);
}

void addIntervals(const std::vector<uint64_t>& times, std::vector<double>& ms) {
    for (size_t i = 1; i < times.size(); ++i)
        ms.push_back((times[i] - times[i - 1]) / 1e6);
}

std::vector<double> bareLoop(int streams, int fps) {
    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    std::vector<int> timers;
    const long period = 1000000000L / fps;
    for (int s = 0; s < streams; ++s) {
        const int fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
        itimerspec spec = {};
        spec.it_value.tv_nsec = 30000000L;  // the library's first expiry
        spec.it_interval.tv_sec = period / 1000000000L;
        spec.it_interval.tv_nsec = period % 1000000000L;
        timerfd_settime(fd, 0, &spec, nullptr);
        epoll_event ev = {};
        ev.events = EPOLLIN;
        ev.data.u32 = uint32_t(s);
        epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &ev);
        timers.push_back(fd);
    }
    std::vector<std::vector<uint64_t>> times(streams);
    const uint64_t warmEnd = nowNs() + 500000000ull;
    const uint64_t end = warmEnd + uint64_t(std::chrono::nanoseconds(kWindow).count());
    epoll_event events[8];
    for (uint64_t now = nowNs(); now < end; now = nowNs()) {
        const int n = epoll_wait(epoll, events, 8, 100);
        for (int i = 0; i < n; ++i) {
            uint64_t expirations = 0;
            if (read(timers[events[i].data.u32], &expirations, sizeof expirations) > 0 &&
                nowNs() >= warmEnd)
                times[events[i].data.u32].push_back(nowNs());
        }
    }
    for (int fd : timers)
        close(fd);
    close(epoll);
    std::vector<double> ms;
    for (const auto& t : times)
        addIntervals(t, ms);
    return ms;
}

// Runs `streams` streams of the library; `bare` runs meanwhile, over the
// same window, so that both meet the same load of the machine.
std::vector<double> library(int streams, int fps, std::vector<double>* bare) {
    auto& host = trevo_standin::Host::instance();
    host.reset();
    host.setCopyFrameBytes(false);
    event_loop_init();
    auto client = std::make_unique<hidl_uvc_client::HidlUvcClient>();
    std::thread loop([] {
        markLoopThread();
        event_loop_run(nullptr);
    });
    for (int s = 0; s < streams; ++s) {
        trevo::HalUvcConfig c;
        c.width = 640;
        c.height = 480;
        c.fps = fps;
        c.format = uvc_client::DemoBuffer::kFormatNV12;
        c.streaming = 1;
        host.setConfig(uint8_t(s / 4), uint8_t(s % 4), c);
        host.waitDelivered(host.hotplug(4, uint8_t(s / 4), uint8_t(s % 4)), 10s);
    }
    std::thread yardstick([&] { *bare = bareLoop(streams, fps); });
    std::this_thread::sleep_for(500ms);
    host.clearFrames();
    std::this_thread::sleep_for(kWindow);
    const auto frames = host.frames();
    yardstick.join();
    event_loop_utils::stop();
    loop.join();
    client.reset();
    host.reset();
    std::vector<double> ms;
    for (int s = 0; s < streams; ++s) {
        std::vector<uint64_t> times;
        for (const auto& f : frames) {
            if (f.streamId == s / 4 && f.streamIdx == s % 4)
                times.push_back(f.monotonicNs);
        }
        addIntervals(times, ms);
    }
    return ms;
}

}  // namespace

void pacing() {
    std::fprintf(out(), "\nFrame interval, 640x480 NV12, %lld s per run (ms; bare: timerfd loop)\n",
                static_cast<long long>(kWindow.count()));
    std::fprintf(out(), "%-12s %8s %8s %8s   %8s %8s %8s   %9s\n", "streams@fps", "p50", "p99", "max",
                "bare p50", "bare p99", "bare max", "p99 added");
    for (int fps : {30, 60}) {
        for (int streams : {1, 2, 4, 8}) {
            std::vector<double> bareMs;
            const Percentiles lib = percentiles(library(streams, fps, &bareMs));
            const Percentiles bare = percentiles(bareMs);
            std::fprintf(out(), "%2d@%-9d %8.2f %8.2f %8.2f   %8.2f %8.2f %8.2f   %+9.2f\n", streams, fps,
                        lib.p50, lib.p99, lib.max, bare.p50, bare.p99, bare.max,
                        lib.p99 - bare.p99);
        }
    }
}

}  // namespace uvc_bench
