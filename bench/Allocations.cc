// Heap allocations per frame in steady state, per thread: the event-loop
// thread (frame sources and hand-overs of every stream) and the conversion
// threads (conversion, sink, bridge), for raw and synthesised JPEG frames.

#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

#include "bench.h"
#include "client/HidlUvcClient.h"
#include "client/event_loop_utils.h"
#include "hidl_uvc_client.h"
#include "pipeline/DemoBuffer.h"
#include "trevo_host.h"

namespace uvc_bench {
namespace {

using namespace std::chrono_literals;

void count(const char* what, uint32_t format, bool synthesiseJpeg) {
    auto& host = trevo_standin::Host::instance();
    host.reset();
    host.setCopyFrameBytes(false);
    hidl_uvc_client::setMjpegFileMode(!synthesiseJpeg);
    event_loop_init();
    auto client = std::make_unique<hidl_uvc_client::HidlUvcClient>();
    std::thread loop([] {
        markLoopThread();
        event_loop_run(nullptr);
    });
    trevo::HalUvcConfig c;
    c.width = 640;
    c.height = 480;
    c.fps = 30;
    c.format = format;
    c.streaming = 1;
    for (uint8_t s = 0; s < 8; ++s) {
        host.setConfig(s / 4, s % 4, c);
        host.waitDelivered(host.hotplug(4, s / 4, s % 4), 10s);
    }
    // Long enough for the host's records to reach the window's size.
    std::this_thread::sleep_for(2500ms);
    host.clearFrames();
    size_t before = 0;
    for (uint8_t s = 0; s < 8; ++s)
        before += host.frameCount(s / 4, s % 4);
    startCounting();
    std::this_thread::sleep_for(2s);
    const AllocationCount n = stopCounting();
    size_t frames = 0;
    for (uint8_t s = 0; s < 8; ++s)
        frames += host.frameCount(s / 4, s % 4);
    frames -= before;
    event_loop_utils::stop();
    loop.join();
    client.reset();
    host.reset();
    hidl_uvc_client::setMjpegFileMode(true);
    const double perFrame = frames > 0 ? 1.0 / double(frames) : 0;
    std::fprintf(out(), "%-22s %7zu %12.2f %20.2f (%u threads)\n", what, frames, n.loop * perFrame,
                n.others * perFrame, n.otherThreads);
}

}  // namespace

void allocations() {
    std::fprintf(out(), "\nHeap allocations per frame, 8 streams 640x480 at 30 fps, 2 s\n");
    std::fprintf(out(), "%-22s %7s %12s %20s\n", "frames", "counted", "loop thread", "other threads");
    count("NV12 pattern", uvc_client::DemoBuffer::kFormatNV12, false);
    count("MJPG synthesised", uvc_client::DemoBuffer::kFormatMJPG, true);
}

}  // namespace uvc_bench
