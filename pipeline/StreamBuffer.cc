#include "pipeline/StreamBuffer.h"

#include <android/log.h>
#include <sys/timerfd.h>

#include <utility>

#include "client/StreamHandler.h"
#include "pipeline/DemoBufferSettings.h"

namespace uvc_client {

StreamBuffer::StreamBuffer(hidl_uvc_client::StreamHandler* owner, unsigned char id,
                           unsigned char idx)
    : handler(owner),
      stream_id(id),
      stream_idx(idx),
      capture(id, idx),
      onTimeout([this] { LoadFrameTimeoutHandler(); }),
      timer(std::make_unique<util::hidl_uvc_client::timer>(onTimeout)) {}

StreamBuffer::~StreamBuffer() = default;

bool StreamBuffer::ensureTimer() {
    if (!timer->registered()) {
        // Not registered, so the loop cannot be dispatching it.
        timer = std::make_unique<util::hidl_uvc_client::timer>(onTimeout);
    }
    return timer->registered();
}

void StreamBuffer::startStream(double period) {
    demo.rearmFileWarning();
    capture.start(DemoBufferSettings::captureDevice(), handler->getConfig());
    timer->set_interval(false, static_cast<float>(period));
}

void StreamBuffer::stopStream() {
    capture.stop();
    if (timer->wakealarm_fd <= 0) {
        __android_log_print(ANDROID_LOG_INFO, nullptr, "no wake alarm fd\n");
        return;
    }
    __android_log_print(ANDROID_LOG_INFO, nullptr, "wakealarm_set_interval: %ld ms\n", 0L);
    struct itimerspec off = {};
    if (timerfd_settime(timer->wakealarm_fd, 0, &off, nullptr) == -1) {
        __android_log_print(ANDROID_LOG_INFO, nullptr,
                            "wakealarm_set_interval: timerfd_settime failed\n");
    }
}

void StreamBuffer::LoadFrameTimeoutHandler() {
    // Held for the whole frame: the configuration read here is the one a
    // stream change applied as a whole, and the pool the buffer comes from
    // cannot be replaced or cleaned up while the buffer is in hand.
    auto guard = handler->frameLock();
    const trevo::HalUvcConfig& config = handler->getConfig();
    if (config.width < 1 || config.height < 1 || config.streaming == 0) {
        return;
    }
    const auto mode = capture.prepare();
    if (mode == capture::CaptureStream::Mode::kWait) {
        return;
    }
    std::unique_ptr<hidl_uvc_client::DynamicBuffer> buffer = handler->getBuffer();
    if (!buffer) {
        return;
    }
    unsigned length = 0;
    if (mode == capture::CaptureStream::Mode::kCamera) {
        length = capture.fill(static_cast<uint8_t*>(buffer->data), buffer->capacity);
    }
    if (length == 0) {
        // Without a camera as always; a camera stream's stand-in frame is
        // the test pattern (compressed for MJPEG), never a recorded file.
        demo.useFrameFiles =
            mode == capture::CaptureStream::Mode::kOff && DemoBufferSettings::mjpegFileMode();
        length = demo.uvc_video_fill_buffer(config, buffer->data, buffer->capacity);
    }
    buffer->length = length;
    handler->sendBuffer(std::move(buffer));
}

}  // namespace uvc_client
