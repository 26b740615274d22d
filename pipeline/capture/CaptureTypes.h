#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace uvc_client {
namespace capture {

// Pixel formats are V4L2 fourccs (V4L2_PIX_FMT_YUYV, _YUV420, _NV12,
// _MJPEG), which are also the UVC stream formats the host asks for.

// One frame size a camera offers in one format, with its frame rates as
// V4L2 frame intervals (seconds = numerator / denominator). An empty list
// means the camera named no rate (stepwise or continuous intervals are
// listed by their end points).
struct CaptureMode {
    uint32_t fourcc = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    struct Interval {
        uint32_t numerator = 0;
        uint32_t denominator = 0;
    };
    std::vector<Interval> intervals;
};

// What a stream needs: the host's format, size and rate.
struct CaptureTarget {
    uint32_t fourcc = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t fps = 0;
};

// A captured frame as the camera delivered it, borrowed: `bytesPerLine` is
// the stride of the first plane (0 for MJPEG), `bytes` the payload length.
struct CapturedFrame {
    uint32_t fourcc = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t bytesPerLine = 0;
    const uint8_t* data = nullptr;
    size_t bytes = 0;
};

}  // namespace capture
}  // namespace uvc_client
