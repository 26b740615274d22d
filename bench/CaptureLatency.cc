// Capture to hand-over: how long a camera frame waits before the stream
// hands it to the bridge, against one of the stream's frame periods. The
// camera (scripted) runs at 25 fps and the stream at 30, so the camera's
// frames meet every phase of the stream's ticks (two clocks of the same
// rate would hold one phase, whatever it happens to be): a frame waits for
// the stream's next tick, half a period on average and less than one.

#include <linux/videodev2.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "bench.h"
#include "client/HidlUvcClient.h"
#include "client/event_loop_utils.h"
#include "hidl_uvc_client.h"
#include "tests/support/FakeCamera.h"
#include "trevo_host.h"

namespace uvc_bench {
namespace {

using namespace std::chrono_literals;
const int kCameraFps = 25;
const int kFps = 30;
const int kFrames = 200;  // marked 1..200, so no mark repeats within a run

uint64_t nowNs() {
    return uint64_t(std::chrono::duration_cast<std::chrono::nanoseconds>(
                        std::chrono::steady_clock::now().time_since_epoch())
                        .count());
}

// Latencies (ms) of every camera frame's first hand-over, camera 1280x720
// YUYV, stream 1280x720 in `format`.
std::vector<double> run(uint32_t format) {
    auto& host = trevo_standin::Host::instance();
    host.reset();
    host.setCopyFrameBytes(true);
    client_test::FakeCamera camera(V4L2_PIX_FMT_YUYV, 1280, 720);
    hidl_uvc_client::setCaptureDevice("/dev/bench-camera");
    std::mutex lock;
    std::vector<std::pair<int, uint64_t>> handedOver;  // mark, time
    host.setFrameListener([&](const trevo_standin::ReceivedFrame& f) {
        if (!f.bytes.empty()) {
            std::lock_guard<std::mutex> g(lock);
            handedOver.emplace_back(f.bytes[0], f.monotonicNs);
        }
    });
    event_loop_init();
    auto client = std::make_unique<hidl_uvc_client::HidlUvcClient>();
    std::thread loop([] { event_loop_run(nullptr); });
    trevo::HalUvcConfig c;
    c.width = 1280;
    c.height = 720;
    c.fps = kFps;
    c.format = format;
    c.streaming = 1;
    host.setConfig(0, 0, c);
    host.waitDelivered(host.hotplug(4, 0, 0), 10s);

    std::vector<uint64_t> ready(kFrames + 1, 0);
    const auto period = std::chrono::nanoseconds(1000000000 / kCameraFps);
    auto next = std::chrono::steady_clock::now();
    for (int mark = 1; mark <= kFrames; ++mark) {
        std::this_thread::sleep_until(next += period);
        ready[mark] = nowNs();
        camera.frame(uint8_t(mark));
    }
    std::this_thread::sleep_for(200ms);
    c.streaming = 0;
    host.setConfig(0, 0, c);
    host.waitDelivered(host.hotplug(4, 0, 0), 10s);
    event_loop_utils::stop();
    loop.join();
    client.reset();
    host.reset();
    hidl_uvc_client::setCaptureDevice("");

    std::vector<double> ms;
    int last = 0;
    std::lock_guard<std::mutex> g(lock);
    for (const auto& h : handedOver) {
        // An NV12 frame starts with the Y plane, which keeps the mark too.
        if (h.first != last && h.first >= 1 && h.first <= kFrames && ready[h.first] != 0) {
            ms.push_back(double(h.second - ready[h.first]) / 1e6);
        }
        last = h.first;
    }
    return ms;
}

}  // namespace

void captureLatency() {
    std::fprintf(out(),
                 "\nCapture to hand-over, camera 1280x720 YUYV at %d fps, stream at %d fps, %d "
                 "frames (ms)\n",
                 kCameraFps, kFps, kFrames);
    std::fprintf(out(), "%-26s %8s %8s %8s %8s   %s\n", "stream", "frames", "p50", "p99", "max",
                 "one frame period");
    const struct {
        const char* name;
        uint32_t format;
    } rows[] = {{"1280x720 YUYV (copied)", V4L2_PIX_FMT_YUYV},
                {"1280x720 NV12 (converted)", V4L2_PIX_FMT_NV12}};
    for (const auto& r : rows) {
        const auto ms = run(r.format);
        const Percentiles p = percentiles(ms);
        std::fprintf(out(), "%-26s %8zu %8.2f %8.2f %8.2f   %.2f\n", r.name, ms.size(), p.p50,
                     p.p99, p.max, 1000.0 / kFps);
    }
}

}  // namespace uvc_bench
