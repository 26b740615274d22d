#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "pipeline/JpegHandles.h"
#include "pipeline/capture/CaptureTypes.h"

namespace uvc_client {
namespace capture {

// Bytes of a frame of `fourcc` at this size as FrameConverter writes it
// (packed, no padding); 0 for MJPEG (any length), other formats, a zero size
// or a frame over 2 GiB. For odd sizes the chroma rounds up, as V4L2 and
// decoders size it: a YUYV row holds whole pixel pairs (4 * ((w + 1) / 2)
// bytes), 4:2:0 chroma is (w + 1) / 2 x (h + 1) / 2. For even sizes that is
// the pattern source's length (rows of w * 2 or w * 3 / 2 bytes); for odd
// ones a few bytes more.
uint64_t frameBytes(uint32_t fourcc, uint32_t width, uint32_t height);

// Turns captured frames into the stream's format and size: the step between
// the capture device's buffers and the stream's frame. Raw frames are read
// in place with `bytesPerLine` as the stride of Y (or of YUYV; 0 means
// packed), the planes one after the other (V4L2's single-plane layout: YU12
// chroma rows of half the stride rounded up, NV12's of the stride rounded up
// to even). An MJPEG frame of the target's size goes on as it came (it must
// start like a JPEG); any other is decoded (4:2:0, 4:2:2, 4:4:4 or grey; a
// JPEG warning counts as corrupt) and must not be larger than the frame's
// width and height say, so that a corrupt header cannot make it allocate
// more than the camera's size needs. Raw targets are made with libyuv,
// scaling with a box filter; MJPEG targets are encoded 4:2:0 at quality 85.
//
// Keeps its TurboJPEG handles and scratch planes across frames: once sizes
// settle it allocates nothing per frame itself (TurboJPEG still takes its
// working memory per JPEG). One thread uses it.
class FrameConverter {
public:
    FrameConverter();
    ~FrameConverter();
    FrameConverter(const FrameConverter&) = delete;
    FrameConverter& operator=(const FrameConverter&) = delete;

    // Writes the frame for `target` into `out` (at most `capacity` bytes) and
    // returns its length; 0 when it cannot (corrupt JPEG, short frame, bytes
    // that do not fit, unsupported pair), never writing past `capacity` and
    // never reading past frame.bytes. Throws nothing.
    unsigned convert(const CapturedFrame& frame, const CaptureTarget& target, uint8_t* out,
                     unsigned capacity);

private:
    JpegHandle decompressor;
    JpegHandle compressor;
    // Holds the largest JPEG of the last target size, so that TurboJPEG never
    // grows it and a JPEG is copied out only when it fits whole.
    JpegBlock jpegBlock;
    unsigned long jpegCapacity = 0;
    std::vector<uint8_t> decoded;     // a JPEG's planes at its own size
    std::vector<uint8_t> sourceI420;  // the captured picture as I420, before scaling
    std::vector<uint8_t> scaled;      // I420 at the target's size, when not written in place

    unsigned convertFrame(const CapturedFrame& frame, const CaptureTarget& target, uint8_t* out,
                          unsigned capacity);
    unsigned compress(const uint8_t** planes, const int* strides, int width, int height,
                      uint8_t* out, unsigned capacity);
};

}  // namespace capture
}  // namespace uvc_client
