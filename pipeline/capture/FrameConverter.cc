#include "pipeline/capture/FrameConverter.h"

#include <libyuv/convert.h>
#include <libyuv/convert_from.h>
#include <libyuv/planar_functions.h>
#include <libyuv/scale.h>
#include <linux/videodev2.h>
#include <turbojpeg.h>

#include <climits>
#include <cstring>
#include <exception>

namespace uvc_client {
namespace capture {

namespace {

enum class Layout { kYuyv, kNv12, kI420, kI422, kI444, kI400 };

// A picture as libyuv takes it, in the captured frame or in scratch memory.
struct Picture {
    Layout layout = Layout::kI420;
    int width = 0;
    int height = 0;
    const uint8_t* plane[3] = {};
    int stride[3] = {};
};

// UVC and JPEG sizes are 16-bit; with frames under 2 GiB every libyuv stride
// and offset fits its int arguments, on 32 bits too.
const uint32_t kMaxSide = 65535;
const uint64_t kMaxBytes = INT_MAX;
const int kJpegQuality = 85;
const int kNoDirectCall = 1;

uint64_t half(uint64_t n) {
    return (n + 1) / 2;
}

// Packed I420 planes at `base`, writable.
struct I420 {
    uint8_t* y;
    uint8_t* u;
    uint8_t* v;
    int width, height;

    I420(uint8_t* base, int w, int h)
        : y(base), u(base + size_t(w) * h), v(u + half(w) * half(h)), width(w), height(h) {}
    int chromaStride() const { return int(half(width)); }
};

// The picture of a raw frame in place; false when the frame is shorter than
// its layout or its stride is shorter than a row.
bool rawPicture(const CapturedFrame& frame, Picture& picture) {
    const uint64_t w = frame.width, h = frame.height;
    const uint64_t row = frame.fourcc == V4L2_PIX_FMT_YUYV ? 4 * half(w) : w;
    const uint64_t stride = frame.bytesPerLine != 0 ? frame.bytesPerLine : row;
    uint64_t chroma = 0;  // one chroma plane's stride
    switch (frame.fourcc) {
        case V4L2_PIX_FMT_YUYV:
            picture.layout = Layout::kYuyv;
            break;
        case V4L2_PIX_FMT_YUV420:
            picture.layout = Layout::kI420;
            chroma = half(stride);
            break;
        case V4L2_PIX_FMT_NV12:
            picture.layout = Layout::kNv12;
            chroma = 2 * half(stride);
            break;
        default:
            return false;
    }
    const uint64_t planes = picture.layout == Layout::kI420 ? 2 : 1;
    const uint64_t bytes = stride * h + planes * chroma * half(h);
    if (stride < row || bytes > frame.bytes || bytes > kMaxBytes) {
        return false;
    }
    picture.width = int(w);
    picture.height = int(h);
    picture.plane[0] = frame.data;
    picture.stride[0] = int(stride);
    for (uint64_t i = 1; i <= planes; ++i) {
        picture.plane[i] = frame.data + stride * h + (i - 1) * chroma * half(h);
        picture.stride[i] = int(chroma);
    }
    return true;
}

Picture pictureOf(const I420& planes) {
    Picture picture;
    picture.width = planes.width;
    picture.height = planes.height;
    picture.plane[0] = planes.y;
    picture.plane[1] = planes.u;
    picture.plane[2] = planes.v;
    picture.stride[0] = planes.width;
    picture.stride[1] = picture.stride[2] = planes.chromaStride();
    return picture;
}

// Grows scratch memory only when a larger size comes: once the sizes of a
// stream settle, frames allocate nothing. Null for 0 bytes, which is how
// frameBytes says a picture is too large.
uint8_t* scratch(std::vector<uint8_t>& memory, uint64_t bytes) {
    if (bytes == 0) {
        return nullptr;
    }
    if (memory.size() < bytes) {
        memory.resize(size_t(bytes));
    }
    return memory.data();
}

int toI420(const Picture& s, const I420& d) {
    const int cs = d.chromaStride();
    switch (s.layout) {
        case Layout::kYuyv:
            return libyuv::YUY2ToI420(s.plane[0], s.stride[0], d.y, d.width, d.u, cs, d.v, cs,
                                      s.width, s.height);
        case Layout::kNv12:
            return libyuv::NV12ToI420(s.plane[0], s.stride[0], s.plane[1], s.stride[1], d.y,
                                      d.width, d.u, cs, d.v, cs, s.width, s.height);
        case Layout::kI420:
            return libyuv::I420Copy(s.plane[0], s.stride[0], s.plane[1], s.stride[1], s.plane[2],
                                    s.stride[2], d.y, d.width, d.u, cs, d.v, cs, s.width, s.height);
        case Layout::kI422:
            return libyuv::I422ToI420(s.plane[0], s.stride[0], s.plane[1], s.stride[1], s.plane[2],
                                      s.stride[2], d.y, d.width, d.u, cs, d.v, cs, s.width,
                                      s.height);
        case Layout::kI444:
            return libyuv::I444ToI420(s.plane[0], s.stride[0], s.plane[1], s.stride[1], s.plane[2],
                                      s.stride[2], d.y, d.width, d.u, cs, d.v, cs, s.width,
                                      s.height);
        case Layout::kI400:
            return libyuv::I400ToI420(s.plane[0], s.stride[0], d.y, d.width, d.u, cs, d.v, cs,
                                      s.width, s.height);
    }
    return -1;
}

// Writes `s` (at the target's size) packed as `fourcc` with the one libyuv
// call that does it: 0, -1 on failure, kNoDirectCall when there is no such
// call and `s` has to become I420 first.
int writeDirect(const Picture& s, uint32_t fourcc, uint8_t* out) {
    const int w = s.width, h = s.height;
    if (fourcc == V4L2_PIX_FMT_YUV420) {
        return toI420(s, I420(out, w, h));
    }
    if (fourcc == V4L2_PIX_FMT_NV12) {
        uint8_t* uv = out + size_t(w) * h;
        const int uvStride = int(2 * half(w));
        switch (s.layout) {
            case Layout::kYuyv:
                return libyuv::YUY2ToNV12(s.plane[0], s.stride[0], out, w, uv, uvStride, w, h);
            case Layout::kNv12:
                return libyuv::NV12Copy(s.plane[0], s.stride[0], s.plane[1], s.stride[1], out, w,
                                        uv, uvStride, w, h);
            case Layout::kI420:
                return libyuv::I420ToNV12(s.plane[0], s.stride[0], s.plane[1], s.stride[1],
                                          s.plane[2], s.stride[2], out, w, uv, uvStride, w, h);
            case Layout::kI444:
                return libyuv::I444ToNV12(s.plane[0], s.stride[0], s.plane[1], s.stride[1],
                                          s.plane[2], s.stride[2], out, w, uv, uvStride, w, h);
            default:
                return kNoDirectCall;
        }
    }
    const int row = int(4 * half(w));
    switch (s.layout) {
        case Layout::kYuyv:
            libyuv::CopyPlane(s.plane[0], s.stride[0], out, row, row, h);
            return 0;
        case Layout::kI420:
            return libyuv::I420ToYUY2(s.plane[0], s.stride[0], s.plane[1], s.stride[1], s.plane[2],
                                      s.stride[2], out, row, w, h);
        case Layout::kI422:
            return libyuv::I422ToYUY2(s.plane[0], s.stride[0], s.plane[1], s.stride[1], s.plane[2],
                                      s.stride[2], out, row, w, h);
        default:
            return kNoDirectCall;
    }
}

// The JPEG of `frame` decoded into `memory` at its own size and subsampling.
bool decode(tjhandle decompressor, const CapturedFrame& frame, std::vector<uint8_t>& memory,
            Picture& picture) {
    int width = 0, height = 0, subsamp = 0, colorspace = 0;
    if (tjDecompressHeader3(decompressor, frame.data, frame.bytes, &width, &height, &subsamp,
                            &colorspace) != 0 ||
        width <= 0 || height <= 0 || uint32_t(width) > frame.width ||
        uint32_t(height) > frame.height) {
        return false;
    }
    switch (subsamp) {
        case TJSAMP_420:
            picture.layout = Layout::kI420;
            break;
        case TJSAMP_422:
            picture.layout = Layout::kI422;
            break;
        case TJSAMP_444:
            picture.layout = Layout::kI444;
            break;
        case TJSAMP_GRAY:
            picture.layout = Layout::kI400;
            break;
        default:
            return false;
    }
    const int planes = subsamp == TJSAMP_GRAY ? 1 : 3;
    uint64_t offset[3] = {};
    uint64_t bytes = 0;
    for (int i = 0; i < planes; ++i) {
        offset[i] = bytes;
        picture.stride[i] = tjPlaneWidth(i, width, subsamp);
        bytes += uint64_t(picture.stride[i]) * tjPlaneHeight(i, height, subsamp);
    }
    if (bytes > kMaxBytes) {
        return false;
    }
    uint8_t* base = scratch(memory, bytes);
    unsigned char* dst[3] = {};
    for (int i = 0; i < planes; ++i) {
        dst[i] = base + offset[i];
        picture.plane[i] = dst[i];
    }
    picture.width = width;
    picture.height = height;
    return tjDecompressToYUVPlanes(decompressor, frame.data, frame.bytes, dst, width,
                                   picture.stride, height, 0) == 0;
}

// `source` as I420 at width x height: itself when it already is; else made
// in scratch memory, the last step written to `into` when given. A picture
// without planes when libyuv refused.
Picture i420At(const Picture& source, int width, int height, uint8_t* into,
               std::vector<uint8_t>& sourceI420, std::vector<uint8_t>& scaled) {
    const bool scale = source.width != width || source.height != height;
    Picture picture = source;
    if (picture.layout != Layout::kI420) {
        uint8_t* base =
            !scale && into != nullptr
                ? into
                : scratch(sourceI420, frameBytes(V4L2_PIX_FMT_YUV420, source.width, source.height));
        if (base == nullptr) {
            return Picture{};
        }
        const I420 planes(base, source.width, source.height);
        if (toI420(source, planes) != 0) {
            return Picture{};
        }
        picture = pictureOf(planes);
    }
    if (!scale) {
        return picture;
    }
    uint8_t* base =
        into != nullptr ? into : scratch(scaled, frameBytes(V4L2_PIX_FMT_YUV420, width, height));
    if (base == nullptr) {
        return Picture{};
    }
    const I420 planes(base, width, height);
    const int cs = planes.chromaStride();
    if (libyuv::I420Scale(picture.plane[0], picture.stride[0], picture.plane[1], picture.stride[1],
                          picture.plane[2], picture.stride[2], picture.width, picture.height,
                          planes.y, width, planes.u, cs, planes.v, cs, width, height,
                          libyuv::kFilterBox) != 0) {
        return Picture{};
    }
    return pictureOf(planes);
}

bool sizeFits(uint32_t width, uint32_t height) {
    return width != 0 && height != 0 && width <= kMaxSide && height <= kMaxSide;
}

}  // namespace

uint64_t frameBytes(uint32_t fourcc, uint32_t width, uint32_t height) {
    const uint64_t w = width, h = height;
    uint64_t bytes = 0;
    if (fourcc == V4L2_PIX_FMT_YUYV) {
        bytes = 4 * half(w) * h;
    } else if (fourcc == V4L2_PIX_FMT_YUV420 || fourcc == V4L2_PIX_FMT_NV12) {
        bytes = w * h + 2 * half(w) * half(h);
    }
    return bytes <= kMaxBytes ? bytes : 0;
}

FrameConverter::FrameConverter() = default;
FrameConverter::~FrameConverter() = default;

unsigned FrameConverter::convert(const CapturedFrame& frame, const CaptureTarget& target,
                                 uint8_t* out, unsigned capacity) {
    // Scratch memory is the only thing that can throw (std::bad_alloc); a
    // frame that cannot be made is a dropped frame, never an exception in the
    // frame path.
    try {
        return convertFrame(frame, target, out, capacity);
    } catch (const std::exception&) {
        return 0;
    }
}

unsigned FrameConverter::convertFrame(const CapturedFrame& frame, const CaptureTarget& target,
                                      uint8_t* out, unsigned capacity) {
    if (frame.data == nullptr || out == nullptr || !sizeFits(frame.width, frame.height) ||
        !sizeFits(target.width, target.height)) {
        return 0;
    }
    const bool toJpeg = target.fourcc == V4L2_PIX_FMT_MJPEG;
    const uint64_t length = frameBytes(target.fourcc, target.width, target.height);
    if (!toJpeg && (length == 0 || length > capacity)) {
        return 0;
    }
    Picture source;
    if (frame.fourcc == V4L2_PIX_FMT_MJPEG) {
        if (toJpeg && frame.width == target.width && frame.height == target.height) {
            const bool jpeg = frame.bytes >= 2 && frame.data[0] == 0xFF && frame.data[1] == 0xD8;
            if (!jpeg || frame.bytes > capacity) {
                return 0;
            }
            std::memcpy(out, frame.data, frame.bytes);
            return unsigned(frame.bytes);
        }
        if (!decompressor) {
            decompressor.reset(tjInitDecompress());
        }
        if (!decompressor || !decode(decompressor.get(), frame, decoded, source)) {
            return 0;
        }
    } else if (!rawPicture(frame, source)) {
        return 0;
    }
    const int w = int(target.width), h = int(target.height);
    if (toJpeg) {
        Picture i420 = i420At(source, w, h, nullptr, sourceI420, scaled);
        return i420.plane[0] == nullptr ? 0
                                        : compress(i420.plane, i420.stride, w, h, out, capacity);
    }
    if (source.width == w && source.height == h) {
        const int done = writeDirect(source, target.fourcc, out);
        if (done != kNoDirectCall) {
            return done == 0 ? unsigned(length) : 0;
        }
    }
    // A YU12 target is I420 already: the last step writes it in place.
    uint8_t* into = target.fourcc == V4L2_PIX_FMT_YUV420 ? out : nullptr;
    const Picture i420 = i420At(source, w, h, into, sourceI420, scaled);
    if (i420.plane[0] == nullptr) {
        return 0;
    }
    if (i420.plane[0] == out) {
        return unsigned(length);
    }
    return writeDirect(i420, target.fourcc, out) == 0 ? unsigned(length) : 0;
}

unsigned FrameConverter::compress(const uint8_t** planes, const int* strides, int width, int height,
                                  uint8_t* out, unsigned capacity) {
    if (!compressor) {
        compressor.reset(tjInitCompress());
        if (!compressor) {
            return 0;
        }
    }
    // TJFLAG_NOREALLOC takes the block to hold the worst case of this size.
    const unsigned long worst = tjBufSize(width, height, TJSAMP_420);
    if (worst == static_cast<unsigned long>(-1) || worst > INT_MAX) {
        return 0;
    }
    if (worst > jpegCapacity) {
        jpegBlock.reset(tjAlloc(int(worst)));
        jpegCapacity = jpegBlock ? worst : 0;
        if (!jpegBlock) {
            return 0;
        }
    }
    unsigned char* jpeg = jpegBlock.get();
    unsigned long jpegSize = jpegCapacity;
    if (tjCompressFromYUVPlanes(compressor.get(), planes, width, strides, height, TJSAMP_420, &jpeg,
                                &jpegSize, kJpegQuality, TJFLAG_NOREALLOC) != 0 ||
        jpegSize > capacity) {
        return 0;
    }
    std::memcpy(out, jpeg, jpegSize);
    return unsigned(jpegSize);
}

}  // namespace capture
}  // namespace uvc_client
