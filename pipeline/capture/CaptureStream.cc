#include "pipeline/capture/CaptureStream.h"

#include <android/log.h>
#include <linux/videodev2.h>

#include "pipeline/capture/CaptureSource.h"

namespace uvc_client {
namespace capture {

namespace {

const char kTag[] = "StreamHandler";

bool fromCamera(uint32_t format) {
    return format == V4L2_PIX_FMT_YUYV || format == V4L2_PIX_FMT_YUV420 ||
           format == V4L2_PIX_FMT_NV12 || format == V4L2_PIX_FMT_MJPEG;
}

}  // namespace

CaptureStream::CaptureStream(uint8_t id, uint8_t idx) : stream_id(id), stream_idx(idx) {}

CaptureStream::~CaptureStream() {
    stop();
}

bool CaptureStream::start(const std::string& device, const trevo::HalUvcConfig& config) {
    stop();
    if (device.empty() || config.width <= 0 || config.height <= 0 || config.fps <= 0) {
        return false;
    }
    const auto format = static_cast<uint32_t>(config.format);
    if (!fromCamera(format)) {
        // H.264 comes from its recorded files, camera or not.
        __android_log_print(ANDROID_LOG_INFO, kTag,
                            "Stream [%u] [%u]: format %.4s is not made from the camera\n",
                            stream_id, stream_idx, reinterpret_cast<const char*>(&format));
        return false;
    }
    target = {format, static_cast<uint32_t>(config.width), static_cast<uint32_t>(config.height),
              static_cast<uint32_t>(config.fps)};
    frames = 0;
    repeats = 0;
    lastSequence = 0;
    warned = false;
    announced = false;
    source = &CaptureSource::forPath(device);
    source->attach(*this);
    return true;
}

void CaptureStream::stop() {
    if (source == nullptr) {
        return;
    }
    source->detach(*this);
    source = nullptr;
    if (repeats > 0) {
        __android_log_print(ANDROID_LOG_INFO, kTag,
                            "Stream [%u] [%u]: camera slower than the stream: %llu of %llu frames "
                            "were repeats\n",
                            stream_id, stream_idx, static_cast<unsigned long long>(repeats),
                            static_cast<unsigned long long>(frames));
    }
}

CaptureStream::Mode CaptureStream::prepare() {
    return source == nullptr ? Mode::kOff : source->prepare(*this);
}

unsigned CaptureStream::fill(uint8_t* out, unsigned capacity) {
    return source == nullptr ? 0 : source->fill(*this, out, capacity);
}

}  // namespace capture
}  // namespace uvc_client
