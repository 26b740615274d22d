#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "media/FrameSize.h"
#include "media/VideoFormat.h"

namespace uvc_host {

// TurboJPEG compression of YUV images, 4:2:0 subsampling.
class JpegEncoder {
public:
    JpegEncoder();
    ~JpegEncoder();
    JpegEncoder(const JpegEncoder&) = delete;
    JpegEncoder& operator=(const JpegEncoder&) = delete;

    // Planar 4:2:0 input: a full-size Y plane and chroma planes of
    // ceil(width / 2) x ceil(height / 2), each with its own stride.
    bool encodePlanes(const uint8_t* const planes[3], const int strides[3], FrameSize size,
                      int quality, std::vector<uint8_t>* jpeg, std::string* error);
    // One frame as the stream client fills it (YUYV, YU12 or NV12).
    bool encodeFrame(const VideoFormat& format, FrameSize size, const uint8_t* data, size_t length,
                     int quality, std::vector<uint8_t>* jpeg, std::string* error);

private:
    void* handle_;
};

}  // namespace uvc_host
