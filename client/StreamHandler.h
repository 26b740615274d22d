#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "pipeline/BufferMgmt.h"
#include "pipeline/Buffers.h"
#include "pipeline/DynamicBuffer.h"
#include "pipeline/FillDataTest.h"
#include "trevo/CompositorBridge.h"
#include "trevo/HalUvcConfig.h"
#include "uvc_export.h"

namespace uvc_client {
class StreamBuffer;
}

namespace util {
namespace hidl_uvc_client {
class timer;
}
}  // namespace util

namespace hidl_uvc_client {

// One UVC stream: follows the stream's configuration, owns its buffers and
// starts or stops its frame source, buffer management and hand-over timer.
// Its two timers (frame source and hand-over) are made by the constructor,
// registered with the event loop and unarmed; buffers follow the first
// stream change with a usable setup. Stream changes run on bridge threads,
// the timer callbacks on the loop thread; `lock` serialises the two.
// Which stream numbers get a handler at all is the client's bound
// (StreamAdmission).
class StreamHandler {
public:
    // Highest frame rate streamed (high-speed UVC modes go up to 240 fps); a
    // higher one is refused like a rate of 0.
    static constexpr int32_t kMaxFrameRate = 240;

    // Logs its two lines and makes both timers; a timer whose descriptor
    // cannot be made or registered is logged by the timer and made again
    // when the stream is next started.
    StreamHandler(const trevo::CompositorBridge& bridge, uint8_t stream_id, uint8_t stream_idx);
    // Stops whatever still runs (frame source, conversion thread, timer).
    virtual ~StreamHandler();

    StreamHandler(const StreamHandler&) = delete;
    StreamHandler& operator=(const StreamHandler&) = delete;

    // Reads the configuration from the bridge and applies it. Bridge thread.
    void HandleStreamChanged();
    // Applies `config`; `lock` must be held.
    void HandleConfigChange();
    // Hand-over timer callback (loop thread): moves the oldest filled frame
    // into buffer management while the host streams.
    void AutoUpdateTimeoutHandler();
    // The same hand-over, whether or not the host streams.
    UVC_EXPORT void sendData();

    // Frame-source access. The frame source holds frameLock() while it uses
    // them, so that a stream change can neither change the configuration nor
    // replace the pool under it.
    std::unique_lock<std::mutex> frameLock();
    const trevo::HalUvcConfig& getConfig();
    std::unique_ptr<DynamicBuffer> getBuffer();
    void sendBuffer(std::unique_ptr<DynamicBuffer> buffer);

    // Read-only views for tests and tools; take `lock`.
    trevo::HalUvcConfig appliedConfiguration();
    Buffers* buffersForTest() { return buffers.get(); }
    BufferMgmt* bufferMgmtForTest() { return bufferMgmt.get(); }
    const util::hidl_uvc_client::timer* wakeTimerForTest() const { return wakeTimer.get(); }
    uvc_client::StreamBuffer* streamBufferForTest() { return streamBuffer.get(); }
    std::mutex& lockForTest() { return lock; }

private:
    void stopAll();
    void handOver();
    // Makes again the timers whose descriptors could not be made or
    // registered before; false when one still has no registered descriptor.
    bool ensureTimers();

    trevo::CompositorBridge bridge;
    uint8_t stream_id;
    uint8_t stream_idx;
    std::mutex lock;
    trevo::HalUvcConfig config;
    trevo::HalUvcConfig appliedConfig;
    std::unique_ptr<Buffers> buffers;
    std::unique_ptr<BufferMgmt> bufferMgmt;
    std::unique_ptr<FillDataTest> fillDataTest;
    std::unique_ptr<uvc_client::StreamBuffer> streamBuffer;
    std::function<void()> autoUpdateHandler;
    std::unique_ptr<util::hidl_uvc_client::timer> wakeTimer;  // never null
    // Last attempt to make missing hardware buffers; guarded by `lock`.
    std::chrono::steady_clock::time_point lastRepair;
    // Mirrors config.streaming for the lock-free look of the timer callback.
    std::atomic<int32_t> streaming{0};
};

}  // namespace hidl_uvc_client
