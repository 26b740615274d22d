#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "client/timer.h"
#include "pipeline/DemoBuffer.h"
#include "pipeline/capture/CaptureStream.h"

namespace hidl_uvc_client {
class StreamHandler;
}

namespace uvc_client {

// The frame source of a stream: once per frame period (its own wake alarm,
// run by the event loop) it takes a free frame buffer from the stream
// handler, fills it with the camera's newest frame when a camera is
// configured, else (or while the camera is unavailable) has the frame maker
// fill it, and hands it back for sending.
// startStream, stopStream and ensureTimer run on the stream-change path under
// the stream handler's lock; LoadFrameTimeoutHandler on the loop thread.
class StreamBuffer {
public:
    // Makes the wake alarm, registered with the event loop and unarmed; a
    // descriptor that cannot be made or registered is logged by the timer.
    StreamBuffer(hidl_uvc_client::StreamHandler* handler, unsigned char stream_id,
                 unsigned char stream_idx);
    // The timer's destruction disarms, unregisters and closes its descriptor.
    virtual ~StreamBuffer();

    StreamBuffer(const StreamBuffer&) = delete;
    StreamBuffer& operator=(const StreamBuffer&) = delete;

    // Makes the wake alarm anew when its descriptor could not be made or
    // registered before (out of descriptors); such a timer is not in the
    // loop's set, so it can be replaced while the loop runs. True when the
    // wake alarm is registered.
    bool ensureTimer();
    // Attaches to the camera, if one is configured, for the handler's
    // configuration and arms the wake alarm: first frame after 30 ms, then
    // one per `period` s.
    void startStream(double period);
    // Detaches from the camera and disarms the wake alarm; does not wait for
    // an expiry already being handled.
    void stopStream();
    // One frame; the timer's callback (loop thread).
    void LoadFrameTimeoutHandler();

    // Read-only views for tests and tools (loop thread, or while stopped).
    const DemoBuffer& demoForTest() const { return demo; }
    const util::hidl_uvc_client::timer* timerForTest() const { return timer.get(); }
    const capture::CaptureStream& captureForTest() const { return capture; }
    uint32_t streamId() const { return stream_id; }
    uint32_t streamIdx() const { return stream_idx; }

private:
    hidl_uvc_client::StreamHandler* handler;
    DemoBuffer demo;
    uint32_t stream_id;
    uint32_t stream_idx;
    capture::CaptureStream capture;
    std::function<void()> onTimeout;
    std::unique_ptr<util::hidl_uvc_client::timer> timer;  // never null
};

}  // namespace uvc_client
