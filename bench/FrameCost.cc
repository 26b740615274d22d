// CPU per frame of the library's frame path (fill, hand-over copy into a
// hardware buffer, conversion, sink, bridge) against its memory floor: one
// fill and one copy of the same bytes, through as many buffers.

#include <time.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <android/hardware_buffer.h>

#include "bench.h"
#include "pipeline/BufferMgmt.h"
#include "pipeline/Buffers.h"
#include "pipeline/DemoBuffer.h"
#include "trevo/CompositorBridge.h"
#include "trevo_host.h"

namespace uvc_bench {
namespace {

double cpuNs() {
    timespec ts = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return ts.tv_sec * 1e9 + ts.tv_nsec;
}

template <class F>
double perFrameMs(int frames, F&& run) {
    const double start = cpuNs();
    run(frames);
    return (cpuNs() - start) / frames / 1e6;
}

bool idle(hidl_uvc_client::BufferMgmt& mgmt) {
    std::unique_lock<std::recursive_mutex> guard(mgmt.lock, std::try_to_lock);
    return guard.owns_lock() && mgmt.fillQ.size() == 3;
}

double libraryMs(trevo::CompositorBridge& bridge, const trevo::HalUvcConfig& config, int frames) {
    auto& host = trevo_standin::Host::instance();
    const unsigned size = config.width * config.height * 4;
    hidl_uvc_client::Buffers pool(5, size);
    auto mgmt = std::make_unique<hidl_uvc_client::BufferMgmt>(3, size, &bridge, 0, 0);
    mgmt->startStream();
    uvc_client::DemoBuffer demo;
    size_t sent = 0;
    auto run = [&](int n) {
        for (int i = 0; i < n; ++i) {
            auto frame = pool.getBuffer();
            frame->length = demo.uvc_video_fill_buffer(config, frame->data, frame->capacity);
            pool.sendQ.push(std::move(frame));
            pool.sendFrame(mgmt);
            host.waitForFrames(0, 0, ++sent, std::chrono::seconds(5));
            while (!idle(*mgmt))
                std::this_thread::yield();
        }
    };
    run(8);  // every buffer touched once: their first page faults are not the path's
    const double ms = perFrameMs(frames, run);
    mgmt->stopStream();
    host.clearFrames();
    return ms;
}

double floorMs(unsigned length, int frames) {
    std::vector<std::vector<uint8_t>> sources(5, std::vector<uint8_t>(length));
    std::vector<std::vector<uint8_t>> targets(3, std::vector<uint8_t>(length));
    uint8_t value = 0;
    unsigned k = 0;
    auto run = [&](int n) {
        for (int i = 0; i < n; ++i, ++k) {
            std::memset(sources[k % 5].data(), value++, length);
            std::memcpy(targets[k % 3].data(), sources[k % 5].data(), length);
        }
    };
    run(8);  // as the library's
    return perFrameMs(frames, run);
}

// The floor plus what handing each frame to another thread costs at least:
// the conversion runs on its own thread, so every frame wakes it once.
double handOffFloorMs(unsigned length, int frames) {
    std::mutex mutex;
    std::condition_variable changed;
    int posted = 0, taken = 0;
    bool stop = false;
    std::thread other([&] {
        std::unique_lock<std::mutex> guard(mutex);
        for (;;) {
            changed.wait(guard, [&] { return stop || posted > taken; });
            if (stop)
                return;
            ++taken;
            changed.notify_all();
        }
    });
    const double wake = perFrameMs(frames, [&](int n) {
        for (int i = 0; i < n; ++i) {
            std::unique_lock<std::mutex> guard(mutex);
            ++posted;
            changed.notify_all();
            changed.wait(guard, [&] { return taken == posted; });
        }
    });
    {
        std::lock_guard<std::mutex> guard(mutex);
        stop = true;
    }
    changed.notify_all();
    other.join();
    return wake + floorMs(length, frames);
}

// The bridge stand-in receiving, copying and recording one frame, as
// uvc-host --output has it do.
double hostMs(trevo::CompositorBridge& bridge, unsigned length, int frames) {
    auto& host = trevo_standin::Host::instance();
    AHardwareBuffer_Desc desc = {};
    desc.width = length;
    desc.height = 1;
    desc.layers = 1;
    desc.format = AHARDWAREBUFFER_FORMAT_BLOB;
    desc.usage = AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN;
    AHardwareBuffer* buffer = nullptr;
    if (AHardwareBuffer_allocate(&desc, &buffer) != 0)
        return 0;
    host.setCopyFrameBytes(true);
    size_t heard = 0;
    host.setFrameListener([&heard](const trevo_standin::ReceivedFrame& f) { heard += f.size; });
    auto run = [&](int n) {
        for (int i = 0; i < n; ++i) {
            if (i % 10 == 0)
                host.clearFrames();  // as uvc-host does, now and then
            bridge.sendFrameBuffer(0, buffer, length, 0, 0, 0);
        }
    };
    run(10);  // the records grow to their working size
    const double ms = perFrameMs(frames, run);
    host.setFrameListener(nullptr);
    host.setCopyFrameBytes(false);
    host.clearFrames();
    AHardwareBuffer_release(buffer);
    return ms;
}

}  // namespace

void frameCost() {
    auto& host = trevo_standin::Host::instance();
    host.reset();
    host.setCopyFrameBytes(false);  // the host's own cost is measured apart
    trevo::CompositorBridge bridge(trevo::BRIDGE_CONTEXT_UVC);
    std::fprintf(out(), "\nCPU per frame, YUYV test pattern (best of 5 rounds)\n");
    std::fprintf(out(), "%-10s %9s %9s %7s %11s %7s %9s %8s\n", "size", "library", "floor",
                 "ratio", "floor+wake", "ratio", "host", "host/lib");
    const struct {
        int w, h, frames;
    } sizes[] = {{640, 480, 300}, {1280, 720, 150}, {1920, 1080, 80}, {3840, 2160, 20}};
    for (const auto& s : sizes) {
        trevo::HalUvcConfig config;
        config.width = s.w;
        config.height = s.h;
        config.fps = 30;
        config.format = uvc_client::DemoBuffer::kFormatYUYV;
        config.streaming = 1;
        const unsigned length = unsigned(s.w) * s.h * 2;
        // The best of 5 rounds, taken in turns: the machine is shared, other
        // work only adds, and its load (caches, memory bus) changes by the
        // second, so each measure meets it alike.
        double lib = 1e30, floor = 1e30, woken = 1e30, hostCost = 1e30;
        for (int round = 0; round < 5; ++round) {
            lib = std::min(lib, libraryMs(bridge, config, s.frames));
            floor = std::min(floor, floorMs(length, s.frames));
            woken = std::min(woken, handOffFloorMs(length, s.frames));
            hostCost = std::min(hostCost, hostMs(bridge, length, s.frames));
        }
        std::fprintf(out(), "%4dx%-5d %7.3fms %7.3fms %6.2fx %9.3fms %6.2fx %7.3fms %7.2fx\n", s.w,
                     s.h, lib, floor, lib / floor, woken, lib / woken, hostCost, hostCost / lib);
    }
    host.reset();
}

}  // namespace uvc_bench
