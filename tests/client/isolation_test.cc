// One stream's slow host must cost that stream only: the others keep their
// pace, and stream changes keep completing. The conversion library calls the
// sinks of all streams under one mutex (run both ways, see ConversionDelivery),
// so any wait for the host inside a sink would stall every stream.
#include <android/log.h>

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

#include "TestEmulator.h"
#include "android_testing.h"
#include "client_harness.h"
#include "hidl_uvc_client.h"
#include "pace_yardstick.h"

namespace client_test {
namespace {

// Sanitizers cost more than the frame period leaves.
constexpr bool kTimed = !kSanitized;

using Key = std::pair<uint8_t, uint8_t>;

// Frame intervals of the watched streams, and the rate of the slowed one.
struct Pace {
    std::vector<double> intervalsMs;
    double frames = 0, seconds = 0;
    double slowedFrames = 0, slowedSeconds = 0;

    void add(const Pace& other) {
        intervalsMs.insert(intervalsMs.end(), other.intervalsMs.begin(), other.intervalsMs.end());
        frames += other.frames;
        seconds += other.seconds;
        slowedFrames += other.slowedFrames;
        slowedSeconds += other.slowedSeconds;
    }
    double fps() const { return seconds > 0 ? frames / seconds : 0; }
    double slowedFps() const { return slowedSeconds > 0 ? slowedFrames / slowedSeconds : 0; }
    double p99Ms() {
        std::sort(intervalsMs.begin(), intervalsMs.end());
        return intervalsMs.empty() ? 0 : intervalsMs[intervalsMs.size() * 99 / 100];
    }
};

// Adds one window's frames: rates from arrival times, not from a count, so
// that the window's edges do not round.
void measure(trevo_standin::Host& host, std::chrono::milliseconds window, Key slowed,
             const std::vector<Key>& watched, Pace& pace) {
    host.clearFrames();
    std::this_thread::sleep_for(window);
    const auto frames = host.frames();
    auto add = [&](Key key, bool isSlowed) {
        std::vector<uint64_t> times;
        for (const auto& f : frames) {
            if (f.streamId == key.first && f.streamIdx == key.second)
                times.push_back(f.monotonicNs);
        }
        if (times.size() < 2)
            return;
        const double span = (times.back() - times.front()) / 1e9;
        (isSlowed ? pace.slowedFrames : pace.frames) += times.size() - 1;
        (isSlowed ? pace.slowedSeconds : pace.seconds) += span;
        for (size_t i = 1; !isSlowed && i < times.size(); ++i)
            pace.intervalsMs.push_back((times[i] - times[i - 1]) / 1e6);
    };
    add(slowed, true);
    for (Key key : watched)
        add(key, false);
}

class IsolationTest : public HostTest {
protected:
    void TearDown() override {
        hidl_uvc_client::setMjpegFileMode(true);
        HostTest::TearDown();
    }

    // Turns of one second each, with and without the slow host, so that the
    // load of the machine (shared, busy) falls on both alike; the watched
    // streams must keep the rate (within 1 %) and interval p99 (within 2 ms)
    // of the unslowed turns. The unslowed turns also say how much the
    // machine itself moves these figures from turn to turn: on a busy
    // machine the bounds widen by that much (a coupling costs a fifth of the
    // rate and a whole frame period of p99, far beyond). A second attempt
    // only when the first found a difference: a coupling shows in every
    // attempt, the machine's hiccups seldom twice.
    void expectIsolated(Key slowed, const std::vector<Key>& watched) {
        android_standin::LogCapture log;
        const auto began = std::chrono::steady_clock::now();
        Pace before, during;
        double fpsNoise = 0, p99Noise = 0;
        auto isolated = [&] {
            return during.fps() >= before.fps() * 0.99 - fpsNoise &&
                   during.p99Ms() <= before.p99Ms() + 2 + p99Noise;
        };
        for (int attempt = 0; attempt < (kTimed ? 2 : 1); ++attempt) {
            std::vector<Pace> turns;
            during = Pace();
            std::this_thread::sleep_for(300ms);
            for (int turn = 0; turn < (kTimed ? 4 : 2); ++turn) {
                host.setHostDelay(slowed.first, slowed.second, 0ms);
                std::this_thread::sleep_for(150ms);  // frames in flight at the switch
                turns.emplace_back();
                measure(host, 1s, slowed, watched, turns.back());
                host.setHostDelay(slowed.first, slowed.second, 40ms);
                std::this_thread::sleep_for(150ms);
                measure(host, 1s, slowed, watched, during);
            }
            before = Pace();
            double fpsLow = 1e9, fpsHigh = 0, p99Low = 1e9, p99High = 0;
            for (Pace& turn : turns) {
                before.add(turn);
                fpsLow = std::min(fpsLow, turn.fps());
                fpsHigh = std::max(fpsHigh, turn.fps());
                p99Low = std::min(p99Low, turn.p99Ms());
                p99High = std::max(p99High, turn.p99Ms());
            }
            fpsNoise = fpsHigh - fpsLow;
            p99Noise = p99High - p99Low;
            std::printf("%zu streams: %.2f -> %.2f fps, p99 %.2f -> %.2f ms (turn to turn: %.2f "
                        "fps, %.2f ms); slowed %.2f -> %.2f fps\n",
                        watched.size(), before.fps(), during.fps(), before.p99Ms(), during.p99Ms(),
                        fpsNoise, p99Noise, before.slowedFps(), during.slowedFps());
            if (isolated())
                break;
        }
        host.setHostDelay(slowed.first, slowed.second, 0ms);
        const auto elapsed = std::chrono::steady_clock::now() - began;

        char prefix[64];
        std::snprintf(prefix, sizeof prefix, "Stream [%u] [%u]: host busy, ", slowed.first,
                      slowed.second);
        size_t warnings = 0;
        for (const auto& r : log.withTag("ConvFactory")) {
            if (r.text.rfind(prefix, 0) == 0) {
                EXPECT_EQ(ANDROID_LOG_WARN, r.priority);
                ++warnings;
            }
        }
        // The slow host holds the stream back only where the stream ran
        // faster than that host takes frames; a machine too busy (or a
        // sanitizer too slow) for that leaves it nothing to drop. The other
        // streams during the slowed turns tell what the machine could run
        // then: 26.4 fps unslowed, but 23.6 beside the slowed turns, once
        // left the slowed stream nothing to drop.
        if (std::min(before.slowedFps(), during.fps()) > 1000.0 / 40 * 1.05) {
            EXPECT_GE(warnings, 1u);
        }
        EXPECT_LE(warnings,
                  size_t(1 + std::chrono::duration_cast<std::chrono::seconds>(elapsed).count()));
        EXPECT_GT(during.fps(), 0.0);
        if (!kTimed)
            return;
        // A host that takes 40 ms cannot take 30 frames a second.
        EXPECT_LT(during.slowedFps(), 26.0);
        EXPECT_GE(during.fps(), before.fps() * 0.99 - fpsNoise);
        EXPECT_LE(during.p99Ms(), before.p99Ms() + 2.0 + p99Noise);
    }
};

std::vector<Key> allStreams() {
    std::vector<Key> keys;
    for (uint8_t id = 0; id < 2; ++id) {
        for (uint8_t idx = 0; idx < 4; ++idx)
            keys.emplace_back(id, idx);
    }
    return keys;
}

TEST_F(IsolationTest, ASlowHostCostsOnlyItsOwnStreamFrames) {
    ClientHarness h;
    host.setCopyFrameBytes(false);
    for (Key key : allStreams())
        h.change(key.first, key.second, streamConfig(640, 480, 30, DemoBuffer::kFormatNV12, 1));
    std::vector<Key> others = allStreams();
    others.erase(others.begin());
    expectIsolated({0, 0}, others);

    // Compressed frames take long to make; two streams are what two cores
    // carry, and more than an emulated processor does.
    if (!uvc_test::kEmulator.empty())
        return;
    for (Key key : others)
        h.change(key.first, key.second, streamConfig(640, 480, 30, DemoBuffer::kFormatNV12, 0));
    hidl_uvc_client::setMjpegFileMode(false);
    h.change(0, 0, streamConfig(1280, 720, 30, DemoBuffer::kFormatMJPG, 1));
    h.change(1, 0, streamConfig(1280, 720, 30, DemoBuffer::kFormatMJPG, 1));
    expectIsolated({0, 0}, {{1, 0}});
}

// Starting or stopping a stream registers or removes a sink under the mutex
// that every delivery holds: it must still come through while seven other
// streams deliver to slow hosts. The same changes with quick hosts are the
// yardstick; the bound is 100 ms or twice that, whichever is longer.
TEST_F(IsolationTest, StreamChangesCompleteWhileTheOtherHostsAreSlow) {
    ClientHarness h;
    host.setCopyFrameBytes(false);
    std::vector<Key> others = allStreams();
    others.pop_back();
    for (Key key : others)
        h.change(key.first, key.second, streamConfig(640, 480, 30, DemoBuffer::kFormatNV12, 1));
    auto slowestChange = [&] {
        std::chrono::steady_clock::duration slowest{};
        for (int round = 0; round < 5; ++round) {
            for (int streaming : {1, 0}) {
                const auto start = std::chrono::steady_clock::now();
                h.change(1, 3, streamConfig(640 - 32 * round, 480, 30, DemoBuffer::kFormatNV12,
                                            streaming));
                slowest = std::max(slowest, std::chrono::steady_clock::now() - start);
            }
        }
        return slowest;
    };
    const auto quick = slowestChange();
    for (Key key : others)
        host.setHostDelay(key.first, key.second, 40ms);
    std::this_thread::sleep_for(200ms);  // every slowed stream has frames waiting
    const auto slowed = slowestChange();
    for (Key key : others)
        host.setHostDelay(key.first, key.second, 0ms);
    const auto ms = [](auto d) { return std::chrono::duration<double, std::milli>(d).count(); };
    std::printf("slowest stream change: %.1f ms with quick hosts, %.1f ms with slow ones\n",
                ms(quick), ms(slowed));
    EXPECT_LE(slowed, std::max<std::chrono::steady_clock::duration>(100ms, 2 * quick));
}

}  // namespace
}  // namespace client_test
