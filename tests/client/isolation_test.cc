#include <android/log.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include "android_testing.h"
#include "client_harness.h"

namespace client_test {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kTimed = false;  // sanitizers cost more than the frame period leaves
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kTimed = false;
#else
constexpr bool kTimed = true;
#endif
#else
constexpr bool kTimed = true;
#endif

// Frame intervals of the seven streams besides 0:0, and of 0:0 alone.
struct Pace {
    std::vector<double> intervalsMs;
    double frames = 0, seconds = 0;  // intervals and their span, all seven
    double slowedFrames = 0, slowedSeconds = 0;

    double fps() const { return seconds > 0 ? frames / seconds : 0; }
    double slowedFps() const { return slowedSeconds > 0 ? slowedFrames / slowedSeconds : 0; }
    double p99Ms() {
        std::sort(intervalsMs.begin(), intervalsMs.end());
        return intervalsMs.empty() ? 0 : intervalsMs[intervalsMs.size() * 99 / 100];
    }
};

// Adds one window's frames: rates from arrival times, not from a count, so
// that the window's edges do not round.
void measure(trevo_standin::Host& host, std::chrono::milliseconds window, Pace& pace) {
    host.clearFrames();
    std::this_thread::sleep_for(window);
    const auto frames = host.frames();
    for (uint8_t id = 0; id < 2; ++id) {
        for (uint8_t idx = 0; idx < 4; ++idx) {
            std::vector<uint64_t> times;
            for (const auto& f : frames) {
                if (f.streamId == id && f.streamIdx == idx)
                    times.push_back(f.monotonicNs);
            }
            if (times.size() < 2)
                continue;
            const double span = (times.back() - times.front()) / 1e9;
            if (id == 0 && idx == 0) {
                pace.slowedFrames += times.size() - 1;
                pace.slowedSeconds += span;
                continue;
            }
            pace.frames += times.size() - 1;
            pace.seconds += span;
            for (size_t i = 1; i < times.size(); ++i)
                pace.intervalsMs.push_back((times[i] - times[i - 1]) / 1e6);
        }
    }
}

class IsolationTest : public HostTest {};

// One stream's host takes longer than a frame period per frame: that stream
// loses frames, says so at most once a second, and the seven others keep
// the pace they had before, measured in this run on this machine.
TEST_F(IsolationTest, ASlowHostCostsOnlyItsOwnStreamFrames) {
    ClientHarness h;
    host.setCopyFrameBytes(false);
    for (uint8_t id = 0; id < 2; ++id) {
        for (uint8_t idx = 0; idx < 4; ++idx)
            h.change(id, idx, streamConfig(640, 480, 30, uvc_client::DemoBuffer::kFormatNV12, 1));
    }
    android_standin::LogCapture log;
    const auto began = std::chrono::steady_clock::now();
    // Turns of one second each, with and without the slow host, so that
    // the load of the machine (shared, busy) falls on both alike. A second
    // attempt only when the first found a difference: a coupling shows in
    // every attempt (half the rate, p99 beyond 60 ms), the machine's
    // hiccups seldom twice.
    Pace before, slowed;
    for (int attempt = 0; attempt < (kTimed ? 2 : 1); ++attempt) {
        before = Pace();
        slowed = Pace();
        std::this_thread::sleep_for(300ms);
        for (int turn = 0; turn < (kTimed ? 5 : 2); ++turn) {
            host.setHostDelay(0, 0, 0ms);
            std::this_thread::sleep_for(100ms);  // frames converting at the switch
            measure(host, 1s, before);
            host.setHostDelay(0, 0, 40ms);
            std::this_thread::sleep_for(100ms);
            measure(host, 1s, slowed);
        }
        std::printf("7 streams: %.2f -> %.2f fps, p99 %.2f -> %.2f ms; 0:0 %.2f -> %.2f fps\n",
                    before.fps(), slowed.fps(), before.p99Ms(), slowed.p99Ms(),
                    before.slowedFps(), slowed.slowedFps());
        if (slowed.fps() >= before.fps() * 0.99 && std::abs(slowed.fps() - 30) <= 0.3 &&
            slowed.p99Ms() <= before.p99Ms() + 2)
            break;
    }
    const auto elapsed = std::chrono::steady_clock::now() - began;

    size_t warnings = 0;
    for (const auto& r : log.withTag("ConvFactory")) {
        if (r.text.rfind("Stream [0] [0]: host busy, ", 0) == 0) {
            EXPECT_EQ(ANDROID_LOG_WARN, r.priority);
            ++warnings;
        }
    }
    EXPECT_GE(warnings, 1u);
    EXPECT_LE(warnings, size_t(1 + std::chrono::duration_cast<std::chrono::seconds>(elapsed).count()));

    // A stream change of the slow stream still completes (change() asserts it).
    h.change(0, 0, streamConfig(640, 480, 30, uvc_client::DemoBuffer::kFormatNV12, 0));
    h.change(0, 0, streamConfig(320, 240, 30, uvc_client::DemoBuffer::kFormatNV12, 1));
    ASSERT_TRUE(host.waitForFrames(0, 0, host.frameCount(0, 0) + 2, 5s));

    EXPECT_GT(slowed.fps(), 0.0);
    if (!kTimed)
        return;
    EXPECT_LT(slowed.slowedFps(), 26.0);
    EXPECT_NEAR(30.0, slowed.fps(), 0.3);
    EXPECT_GE(slowed.fps(), before.fps() * 0.99);
    EXPECT_LE(slowed.p99Ms(), before.p99Ms() + 2.0);
}

}  // namespace
}  // namespace client_test
