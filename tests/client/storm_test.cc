// A storm of random stream changes from several host threads while all eight
// streams run and camera-control messages arrive. Afterwards every stream,
// set to a known configuration, runs at its rate, and every stream has all
// of its frame buffers and hardware buffers back.
//
// The seed is printed with any failure; UVC_STORM_SEED=<n> repeats a run.
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "android_testing.h"
#include "client/StreamHandler.h"
#include "client_harness.h"
#include "hidl_uvc_client.h"
#include "pace_yardstick.h"

namespace client_test {
namespace {

constexpr int kChangers = 4;             // threads posting stream changes
constexpr int kChangesPerChanger = 260;  // > 1,000 changes in all
constexpr int kControlMessages = 150;
constexpr int kControlLane = 8;  // changers use lanes 0..kChangers-1

// Sizes include 0 (no stream) and frames too small for a compressed JPEG.
constexpr int kSizes[][2] = {{32, 16}, {64, 32}, {48, 16}, {16, 8}, {0, 0}, {0, 16}, {64, 0}};
constexpr int kRates[] = {5, 15, 30, 60, 120, 0};
constexpr uint32_t kFormats[] = {DemoBuffer::kFormatYUYV, DemoBuffer::kFormatNV12,
                                 DemoBuffer::kFormatYU12, DemoBuffer::kFormatMJPG,
                                 DemoBuffer::kFormatH264, DemoBuffer::kFormatS264};

uint32_t stormSeed() {
    const char* fixed = std::getenv("UVC_STORM_SEED");
    return fixed ? static_cast<uint32_t>(std::strtoul(fixed, nullptr, 10)) : std::random_device{}();
}

// Two small H.264 frame files for every size of the storm.
std::string makeFrameFiles() {
    char tmpl[] = "/tmp/storm_frames_XXXXXX";
    const std::string root = mkdtemp(tmpl);
    for (const auto& size : kSizes) {
        const std::string dir =
            root + "/" + std::to_string(size[0]) + "_" + std::to_string(size[1]);
        EXPECT_EQ(0, std::system(("mkdir -p " + dir).c_str()));
        std::ofstream(dir + "/frame0") << "frame zero";
        std::ofstream(dir + "/frame1") << "frame one";
    }
    return root;
}

class StormTest : public HostTest {
protected:
    void TearDown() override {
        hidl_uvc_client::setMjpegFileMode(true);
        hidl_uvc_client::setFrameFilesRoot("/data/h264_frames");
        HostTest::TearDown();
    }
};

TEST_F(StormTest, RandomChangesFromSeveralThreadsLeaveEveryStreamWhole) {
    const uint32_t seed = stormSeed();
    SCOPED_TRACE("storm seed " + std::to_string(seed) + " (UVC_STORM_SEED repeats it)");
    const std::string root = makeFrameFiles();
    hidl_uvc_client::setFrameFilesRoot(root);
    hidl_uvc_client::setMjpegFileMode(false);  // MJPG streams compress frames too
    host.setCopyFrameBytes(false);
    ClientHarness h;
    for (uint8_t s = 0; s < 8; ++s) {
        host.setConfig(s / 4, s % 4, streamConfig(32, 16, 30, DemoBuffer::kFormatYUYV, 1));
    }
    ASSERT_TRUE(host.waitDelivered(host.hotplug(4, 255, 0), 10s));

    std::atomic<size_t> gets{0};
    std::vector<std::vector<uint64_t>> tickets(kChangers + 1);
    std::vector<std::thread> threads;
    {
        android_standin::LogCapture quiet;  // thousands of lines, none of them checked
        testing::internal::CaptureStdout();
        const auto start = std::chrono::steady_clock::now();
        for (int t = 0; t < kChangers; ++t) {
            threads.emplace_back([&, t] {
                std::mt19937 rng(seed + t);
                auto pick = [&rng](size_t n) { return static_cast<size_t>(rng() % n); };
                for (int i = 0; i < kChangesPerChanger; ++i) {
                    const uint8_t id = pick(2), idx = pick(4);
                    const auto* size = kSizes[pick(std::size(kSizes))];
                    host.setConfig(id, idx,
                                   streamConfig(size[0], size[1], kRates[pick(std::size(kRates))],
                                                kFormats[pick(std::size(kFormats))], pick(4) != 0));
                    // Now and then one change for all streams (255, any index).
                    tickets[t].push_back(host.hotplug(4, pick(30) == 0 ? 255 : id, idx, t));
                    // About 50 ms between two changes of one stream, more than
                    // the 30 ms to a restarted stream's first frame: frames flow.
                    std::this_thread::sleep_for(std::chrono::milliseconds(pick(50)));
                }
            });
        }
        threads.emplace_back([&] {
            std::mt19937 rng(seed + kChangers);
            const char* names[] = {"brightness", "gain", "hue", "pan", "tile", "nothing"};
            for (int i = 0; i < kControlMessages; ++i) {
                const std::string name = names[rng() % std::size(names)];
                const bool get = rng() % 2 == 0;
                gets += get ? 1 : 0;
                const std::string value =
                    get ? "\"get\"" : "\"" + std::to_string(rng() % 100) + "\"";
                tickets[kChangers].push_back(host.setting(
                    R"({"msg_type":"uvc_report","content":{")" + name + R"(":)" + value + "}}",
                    rng() % 2, rng() % 4, kControlLane + static_cast<int>(rng() % 2)));
                std::this_thread::sleep_for(std::chrono::milliseconds(rng() % 80));
            }
        });
        for (auto& t : threads) {
            t.join();
        }
        const auto posted = std::chrono::steady_clock::now();
        bool delivered = true;
        for (const auto& lane : tickets) {
            for (uint64_t t : lane) {
                delivered = delivered && host.waitDelivered(t, 30s);
            }
        }
        testing::internal::GetCapturedStdout();
        ASSERT_TRUE(delivered) << "an event is stuck";
        // Events are delivered while they are posted; a library that handles
        // them slower than the storm posts them leaves a backlog longer than
        // the storm itself. Posting is measured on the same busy machine.
        using ms = std::chrono::milliseconds;
        EXPECT_LT(std::chrono::duration_cast<ms>(std::chrono::steady_clock::now() - posted).count(),
                  std::chrono::duration_cast<ms>(posted - start).count())
            << "the library fell behind the storm (ms to drain vs ms to post)";
    }
    EXPECT_GT(host.frames().size(), 0u) << "no stream ran during the storm";
    const auto messages = host.appMessages();
    EXPECT_EQ(gets.load(), static_cast<size_t>(std::count_if(
                               messages.begin(), messages.end(),
                               [](const std::string& m) { return m != "send test message"; })))
        << "one reply per get";

    // A known configuration: every stream runs at its own rate.
    auto rate = [](uint8_t s) { return 15 * (1 + s % 3); };
    for (uint8_t s = 0; s < 8; ++s) {
        h.change(s / 4, s % 4, streamConfig(64, 32, rate(s), DemoBuffer::kFormatYUYV, 1), s % 4);
    }
    // Frames of the storm may still be on their way (a busy machine delays
    // the conversion library's own delivery); each stream sends its frames in
    // order, so once two of the known size have arrived, none of the storm's
    // can follow.
    host.clearFrames();
    for (uint8_t s = 0; s < 8; ++s) {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        auto known = [&] {
            const auto f = host.frames();
            return std::count_if(f.begin(), f.end(), [&](const auto& r) {
                return r.streamId == s / 4 && r.streamIdx == s % 4 && r.size == 64u * 2 * 32;
            });
        };
        while (known() < 2 && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(10ms);
        }
        ASSERT_GE(known(), 2) << "stream " << s / 4 << ":" << s % 4;
    }
    {
        host.clearFrames();
        const BareTimerLoop bare[3] = {BareTimerLoop(15), BareTimerLoop(30), BareTimerLoop(45)};
        const auto start = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(2s);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        for (uint8_t s = 0; s < 8; ++s) {
            SCOPED_TRACE("stream " + std::to_string(s / 4) + ":" + std::to_string(s % 4));
            StreamPace pace;
            pace.frames = host.frameCount(s / 4, s % 4);
            pace.bare = bare[s % 3].wakeups();
            pace.allowed = rate(s) * seconds;
            expectKeepsPace(pace);
        }
    }
    const auto frames = host.frames();
    for (const auto& f : frames) {
        ASSERT_EQ(64u * 2 * 32, f.size);
    }

    // Stopped with the same setup, each stream keeps its buffers: all back home.
    for (uint8_t s = 0; s < 8; ++s) {
        h.change(s / 4, s % 4, streamConfig(64, 32, rate(s), DemoBuffer::kFormatYUYV, 0), s % 4);
    }
    expectEveryPoolWhole(h);
    EXPECT_EQ(0, std::system(("rm -rf " + root).c_str()));
}

}  // namespace
}  // namespace client_test
