#include "client/StreamHandler.h"

#include <android/log.h>

#include <cstdio>
#include <utility>

#include "client/timer.h"
#include "pipeline/StreamBuffer.h"

namespace hidl_uvc_client {

namespace {

const char kTag[] = "StreamHandler";
const unsigned kFrameBufferCount = 5;
const unsigned kHardwareBufferCount = 3;
// Four bytes per pixel whatever the format; larger frames are refused.
const uint64_t kMaxFrameBytes = 0x7FFFFFFF;
// How often a streaming handler tries again to make hardware buffers that
// could not be made.
const std::chrono::seconds kRepairInterval(1);

bool sameSetup(const trevo::HalUvcConfig& a, const trevo::HalUvcConfig& b) {
    return a.width == b.width && a.height == b.height && a.fps == b.fps && a.format == b.format;
}

}  // namespace

StreamHandler::StreamHandler(const trevo::CompositorBridge& b, uint8_t id, uint8_t idx)
    : bridge(b), stream_id(id), stream_idx(idx) {
    __android_log_print(ANDROID_LOG_INFO, kTag, "Stream client starting: [%u] [%u]\n", stream_id,
                        stream_idx);
    autoUpdateHandler = [this] { AutoUpdateTimeoutHandler(); };
    fillDataTest = std::make_unique<FillDataTest>();
    streamBuffer = std::make_unique<uvc_client::StreamBuffer>(this, stream_id, stream_idx);
    wakeTimer = std::make_unique<util::hidl_uvc_client::timer>(autoUpdateHandler);
    __android_log_print(ANDROID_LOG_INFO, kTag, "Stream client started: [%u] [%u]\n", stream_id,
                        stream_idx);
}

StreamHandler::~StreamHandler() {
    // The conversion thread must be joined before buffer management goes.
    std::lock_guard<std::mutex> guard(lock);
    stopAll();
}

void StreamHandler::HandleStreamChanged() {
    std::lock_guard<std::mutex> guard(lock);
    config = bridge.getConfiguration(stream_id, stream_idx);
    streaming.store(config.streaming);
    bridge.onAppMessage("send test message");
    HandleConfigChange();
}

void StreamHandler::stopAll() {
    streamBuffer->stopStream();
    if (bufferMgmt) {
        bufferMgmt->stopStream();
    }
    wakeTimer->set_interval(true, 0.0f);
}

bool StreamHandler::ensureTimers() {
    // A timer that never got registered is not in the loop's set, so it can
    // be replaced while the loop runs; a registered one is kept for good.
    if (!streamBuffer->ensureTimer()) {
        return false;
    }
    if (!wakeTimer->registered()) {
        wakeTimer = std::make_unique<util::hidl_uvc_client::timer>(autoUpdateHandler);
    }
    return wakeTimer->registered();
}

void StreamHandler::HandleConfigChange() {
    stopAll();

    // A pool turned off by an earlier size-0 change hands out nothing, so a
    // return to the setup it was made for needs new buffers as well.
    const bool poolCleaned = buffers && buffers->state != 0;
    if (!sameSetup(config, appliedConfig) || poolCleaned) {
        const uint64_t bytes =
            config.width > 0 && config.height > 0
                ? static_cast<uint64_t>(config.width) * static_cast<uint64_t>(config.height) * 4
                : 0;
        if (bytes == 0 || bytes > kMaxFrameBytes) {
            if (bytes != 0) {
                __android_log_print(ANDROID_LOG_WARN, kTag,
                                    "Stream [%u] [%u]: frame %dx%d is too large, not started\n",
                                    stream_id, stream_idx, config.width, config.height);
            }
            if (buffers) {
                buffers->cleanup();
            }
            return;
        }
        const auto size = static_cast<unsigned>(bytes);
        // Each replacement exists before the object it replaces is destroyed.
        auto newMgmt = std::make_unique<BufferMgmt>(kHardwareBufferCount, size, &bridge, stream_id,
                                                    stream_idx);
        bufferMgmt = std::move(newMgmt);
        auto newBuffers = std::make_unique<Buffers>(kFrameBufferCount, size);
        buffers = std::move(newBuffers);
        lastRepair = std::chrono::steady_clock::now();
    } else if (bufferMgmt && bufferMgmt->missingBuffers() > 0) {
        // The same setup again, but some hardware buffers could not be made
        // last time: this is the host's way of asking for the stream anew.
        lastRepair = std::chrono::steady_clock::now();
        bufferMgmt->repair();
    }

    if (config.streaming != 0) {
        if (config.width <= 0 || config.height <= 0) {
            if (buffers) {
                buffers->cleanup();
            }
            return;
        }
        if (config.fps <= 0 || config.fps > kMaxFrameRate) {
            // No period exists for this rate, or one so short that the loop
            // would do nothing but make frames; the stream stays stopped
            // until the host sends a usable rate.
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "Stream [%u] [%u]: frame rate %d cannot be streamed, not started\n",
                                stream_id, stream_idx, config.fps);
        } else if (!ensureTimers()) {
            // Out of descriptors now and when the handler was made (the
            // timer said why); the next stream change tries again.
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "Stream [%u] [%u]: no timer descriptor, not started\n", stream_id,
                                stream_idx);
        } else {
            const double period = 1.0 / config.fps;
            streamBuffer->startStream(period);
            if (bufferMgmt) {
                bufferMgmt->startStream();
            }
            wakeTimer->set_interval(false, static_cast<float>(period));
        }
    }
    appliedConfig = config;
}

void StreamHandler::AutoUpdateTimeoutHandler() {
    if (streaming.load() == 0) {
        return;
    }
    std::lock_guard<std::mutex> guard(lock);
    handOver();
}

void StreamHandler::sendData() {
    std::lock_guard<std::mutex> guard(lock);
    handOver();
}

void StreamHandler::handOver() {
    if (!fillDataTest || !bufferMgmt || !buffers) {
        return;
    }
    if (bufferMgmt->missingBuffers() > 0) {
        // Allocation may work again without a stream change (memory freed
        // elsewhere); try now and then, not on every frame.
        const auto now = std::chrono::steady_clock::now();
        if (now - lastRepair >= kRepairInterval) {
            lastRepair = now;
            bufferMgmt->tryRepair();  // the loop thread never waits for a conversion
        }
    }
    buffers->sendFrame(bufferMgmt);
}

std::unique_lock<std::mutex> StreamHandler::frameLock() {
    return std::unique_lock<std::mutex>(lock);
}

const trevo::HalUvcConfig& StreamHandler::getConfig() {
    return config;
}

std::unique_ptr<DynamicBuffer> StreamHandler::getBuffer() {
    if (!buffers || buffers->state != 0) {
        return nullptr;
    }
    return buffers->getBuffer();
}

void StreamHandler::sendBuffer(std::unique_ptr<DynamicBuffer> buffer) {
    if (!buffer) {
        return;
    }
    if (!buffers) {
        // Only buffers of a pool come here; without one there is nowhere to
        // queue it, so it is released.
        std::printf("Stream [%u] [%u]: no frame pool, frame dropped\n", stream_id, stream_idx);
        return;
    }
    buffers->sendQ.push(std::move(buffer));
}

trevo::HalUvcConfig StreamHandler::appliedConfiguration() {
    std::lock_guard<std::mutex> guard(lock);
    return appliedConfig;
}

}  // namespace hidl_uvc_client
