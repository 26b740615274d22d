#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include <gtest/gtest.h>

#include "android_testing.h"
#include "client/StreamHandler.h"
#include "client_harness.h"
#include "hidl_uvc_client.h"
#include "pipeline/StreamBuffer.h"
#include "pipeline/capture/V4l2Capture.h"
#include "support/FakeCamera.h"

namespace client_test {
namespace {

const char kCamera[] = "/dev/fake-camera";

// A received frame: its size, and the value of all its bytes when they are
// all the same (a camera frame of FakeCamera), else -1 (a test pattern).
struct ReceivedFrameView {
    uint32_t size;
    int value;
};

int uniformValue(const std::vector<uint8_t>& bytes) {
    if (bytes.empty() ||
        std::any_of(bytes.begin(), bytes.end(), [&](uint8_t b) { return b != bytes[0]; })) {
        return -1;
    }
    return bytes[0];
}

class CaptureTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        host.setCopyFrameBytes(true);
    }
    void TearDown() override {
        hidl_uvc_client::setCaptureDevice("");
        HostTest::TearDown();
    }

    // Frames of one stream received so far, in order.
    std::vector<ReceivedFrameView> framesOf(uint8_t id, uint8_t idx) {
        std::vector<ReceivedFrameView> out;
        for (const auto& f : host.frames()) {
            if (f.streamId == id && f.streamIdx == idx) {
                out.push_back({f.size, uniformValue(f.bytes)});
            }
        }
        return out;
    }
    // The stream's log lines containing `text`.
    size_t lines(const std::string& stream, const std::string& text) {
        size_t n = 0;
        for (const auto& r : log.withTag("StreamHandler")) {
            n += r.text.find(stream) != std::string::npos && r.text.find(text) != std::string::npos;
        }
        return n;
    }
    // Waits until the stream's newest frame is (or is not) a camera frame.
    bool waitForCameraFrames(uint8_t id, uint8_t idx, bool camera) {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (std::chrono::steady_clock::now() < deadline) {
            const auto f = framesOf(id, idx);
            if (!f.empty() && (f.back().value >= 0) == camera) {
                return true;
            }
            std::this_thread::sleep_for(10ms);
        }
        return false;
    }

    android_standin::LogCapture log;
};

// Every stream that takes a camera shows the camera's newest frame, never an
// older one than it showed before and never one of its own test patterns
// (the first frame waits for the camera). A camera slower than the stream
// gives repeats, counted. What was chosen is logged once per start, in one
// line: copied for the camera's own format and size, converted otherwise.
TEST_F(CaptureTest, StreamsShareACameraAndShowItsNewestFrame) {
    FakeCamera cam(V4L2_PIX_FMT_YUYV, 64, 32);
    hidl_uvc_client::setCaptureDevice(kCamera);
    ClientHarness h;
    h.change(0, 0, streamConfig(64, 32, 30, DemoBuffer::kFormatYUYV, 1));
    h.change(0, 1, streamConfig(32, 16, 15, DemoBuffer::kFormatNV12, 1));
    EXPECT_EQ(1, cam.openInstances()) << "one camera for both streams";
    for (uint8_t v = 1; v <= 20; ++v) {
        cam.frame(v);
        std::this_thread::sleep_for(100ms);  // 10 fps: slower than both streams
    }
    ASSERT_TRUE(host.waitForFrames(0, 1, 5, 5s));

    int last = 0;
    for (const auto& f : framesOf(0, 0)) {
        ASSERT_EQ(64u * 32 * 2, f.size);
        ASSERT_GE(f.value, last) << "a camera frame, never older than the one before";
        last = f.value;
    }
    EXPECT_GE(last, 10) << "the stream kept up with the camera";
    // NV12 from a uniform YUYV picture: every byte keeps the value.
    for (const auto& f : framesOf(0, 1)) {
        ASSERT_EQ(32u * 16 * 3 / 2, f.size);
        ASSERT_GE(f.value, 1) << "converted and scaled camera frames";
    }
    {
        auto* handler = h.client().handlerForTest("0:0");
        std::lock_guard<std::mutex> still(handler->lockForTest());
        const auto& c = handler->streamBufferForTest()->captureForTest();
        EXPECT_GT(c.repeatsForTest(), 0u);
        EXPECT_LT(c.repeatsForTest(), c.framesForTest());
    }
    EXPECT_EQ(1u, lines("[0] [0]", "camera 64x32 YUYV")) << "one line per start";
    EXPECT_EQ(1u, lines("[0] [0]", "copied"));
    EXPECT_EQ(1u, lines("[0] [1]", "host 32x16 NV12"));

    h.change(0, 0, streamConfig(64, 32, 30, DemoBuffer::kFormatYUYV, 0));
    EXPECT_EQ(1u, lines("[0] [0]", "repeats"));
    h.change(0, 1, streamConfig(32, 16, 15, DemoBuffer::kFormatNV12, 0));
    EXPECT_EQ(0, cam.openInstances()) << "the last stream closes the camera";
}

// A camera that is missing, offers nothing convertible, is unplugged or
// stalls: the stream sends its test pattern with one warning, tries the
// camera about once a second (not at every tick) and takes it back when it
// returns. A stream without the camera notices nothing.
TEST_F(CaptureTest, ACameraThatFailsGivesThePatternWithOneWarningUntilItReturns) {
    FakeCamera cam;
    ClientHarness h;
    h.change(1, 0, streamConfig(64, 32, 30, DemoBuffer::kFormatYUYV, 1));  // no camera
    cam.setPresent(false);
    hidl_uvc_client::setCaptureDevice(kCamera);

    std::atomic<bool> producing{true};
    std::thread producer([&] {
        for (uint8_t v = 1; producing; v = v % 200 + 1) {
            cam.frame(v);
            std::this_thread::sleep_for(30ms);
        }
    });
    struct Phase {
        const char* name;
        std::function<void()> act;
        bool camera;
        const char* warning;  // expected once in this phase
    };
    const Phase phases[] = {
        {"missing at start",
         [&] { h.change(0, 0, streamConfig(64, 32, 30, DemoBuffer::kFormatYUYV, 1)); }, false,
         "No such file"},
        {"offering nothing convertible",
         [&] {
             cam.offer(V4L2_PIX_FMT_GREY);
             cam.setPresent(true);
         },
         false, nullptr},
        {"plugged in", [&] { cam.offer(V4L2_PIX_FMT_YUYV); }, true, nullptr},
        {"unplugged", [&] { cam.unplug(); }, false, "No such device"},
        {"back", [&] { cam.setPresent(true); }, true, nullptr},
        {"stalled", [&] { producing = false; }, false, "stalled"},
    };
    for (const auto& p : phases) {
        SCOPED_TRACE(p.name);
        log.clear();
        const size_t quiet = host.frameCount(1, 0);
        const int opens = cam.opens();
        const auto start = std::chrono::steady_clock::now();
        p.act();
        ASSERT_TRUE(waitForCameraFrames(0, 0, p.camera));
        host.waitForFrames(0, 0, host.frameCount(0, 0) + 30, 5s);  // a second in this state
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        EXPECT_LE(cam.opens() - opens, seconds + 2) << "tried about once a second";
        EXPECT_EQ(p.warning ? 1u : 0u, lines("[0] [0]", "unavailable"));
        if (p.warning) {
            EXPECT_EQ(1u, lines("[0] [0]", p.warning));
        }
        EXPECT_EQ(p.camera ? 1u : 0u, lines("[0] [0]", "back")) << "taken back, said once";
        EXPECT_GT(host.frameCount(1, 0), quiet + 10) << "the other stream went on";
        EXPECT_EQ(0u, lines("[1] [0]", "camera"));
    }
    producing = false;
    producer.join();
    h.change(0, 0, streamConfig(64, 32, 30, DemoBuffer::kFormatYUYV, 0));
    EXPECT_EQ(0, cam.openInstances());
}

// Stream changes from several threads while the camera comes and goes: in the
// end every pool is whole (5 frame buffers, 3 hardware buffers), no camera is
// open and no stream is still counted as its user.
TEST_F(CaptureTest, AStormWhileTheCameraComesAndGoesLeavesNothingBehind) {
    FakeCamera cam;
    hidl_uvc_client::setCaptureDevice(kCamera);
    host.setCopyFrameBytes(false);
    ClientHarness h;
    std::atomic<bool> storming{true};
    std::thread camera([&] {
        std::mt19937 rng(7);
        for (uint8_t v = 0; storming; ++v) {
            switch (rng() % 20) {
                case 0:
                    cam.unplug();
                    break;
                case 1:
                    cam.setPresent(true);
                    break;
                default:
                    cam.frame(v);
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(rng() % 40));
        }
    });
    const uint32_t formats[] = {DemoBuffer::kFormatYUYV, DemoBuffer::kFormatNV12,
                                DemoBuffer::kFormatMJPG, DemoBuffer::kFormatH264};
    std::vector<std::thread> changers;
    for (int t = 0; t < 2; ++t) {
        changers.emplace_back([&, t] {
            std::mt19937 rng(t);
            for (int i = 0; i < 120; ++i) {
                const uint8_t idx = static_cast<uint8_t>(rng() % 4);
                const int scale = 1 + static_cast<int>(rng() % 2);
                h.change(0, idx,
                         streamConfig(64 / scale, 32 / scale, 15 * scale, formats[rng() % 4],
                                      rng() % 4 != 0),
                         t);
                std::this_thread::sleep_for(std::chrono::milliseconds(rng() % 40));
            }
        });
    }
    for (auto& t : changers) {
        t.join();
    }
    storming = false;
    camera.join();
    for (uint8_t idx = 0; idx < 4; ++idx) {
        h.change(0, idx, streamConfig(64, 32, 15, DemoBuffer::kFormatYUYV, 0));
    }
    EXPECT_EQ(0, cam.openInstances()) << "a camera left open";
    EXPECT_EQ(0, uvc_client::capture::CaptureSource::forPath(kCamera).users());
    expectEveryPoolWhole(h);
}

// What is not a camera is refused with its reason, and nothing stays open.
TEST(V4l2CaptureTest, ThingsThatAreNotCamerasAreRefusedWithTheirReason) {
    const std::string file = ::testing::TempDir() + "not-a-camera";
    std::ofstream(file) << "x";
    const struct {
        std::string path;
        const char* reason;
    } cases[] = {
        {"/nonexistent/video0", "No such file"},
        {file, "not a device"},
        {"/dev/null", "VIDIOC_QUERYCAP"},
    };
    const auto openDescriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = openDescriptors();
    for (const auto& c : cases) {
        std::string why;
        EXPECT_EQ(nullptr, uvc_client::capture::V4l2Capture::open(c.path, why)) << c.path;
        EXPECT_NE(std::string::npos, why.find(c.reason)) << c.path << ": " << why;
    }
    EXPECT_EQ(before, openDescriptors());
    unlink(file.c_str());
}

}  // namespace
}  // namespace client_test
