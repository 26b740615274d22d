#include "media/JpegEncoder.h"

#include <turbojpeg.h>

#include <cstring>

namespace uvc_host {

JpegEncoder::JpegEncoder() : handle_(tjInitCompress()) {}

JpegEncoder::~JpegEncoder() {
    if (handle_) {
        tjDestroy(handle_);
    }
}

bool JpegEncoder::encodePlanes(const uint8_t* const planes[3], const int strides[3], FrameSize size,
                               int quality, std::vector<uint8_t>* jpeg, std::string* error) {
    if (!handle_) {
        *error = std::string("cannot start the JPEG compressor: ") + tjGetErrorStr();
        return false;
    }
    unsigned char* out = nullptr;
    unsigned long outSize = 0;
    // TurboJPEG 2.x takes non-const pointer arrays; it does not write through them.
    const unsigned char* srcPlanes[3] = {planes[0], planes[1], planes[2]};
    int rc = tjCompressFromYUVPlanes(handle_, srcPlanes, int(size.width), strides, int(size.height),
                                     TJSAMP_420, &out, &outSize, quality, 0);
    if (rc < 0) {
        *error = std::string("JPEG compression failed: ") + tjGetErrorStr2(handle_);
        tjFree(out);
        return false;
    }
    jpeg->assign(out, out + outSize);
    tjFree(out);
    return true;
}

bool JpegEncoder::encodeFrame(const VideoFormat& format, FrameSize size, const uint8_t* data,
                              size_t length, int quality, std::vector<uint8_t>* jpeg,
                              std::string* error) {
    const size_t w = size.width;
    const size_t h = size.height;
    const size_t cw = (w + 1) / 2;
    const size_t ch = (h + 1) / 2;
    std::string name = format.name;
    size_t needed = name == "YUYV" ? w * h * 2 : w * h + 2 * cw * ch;
    if (format.kind != FormatKind::Raw) {
        *error = name + " frames are not raw YUV";
        return false;
    }
    if (length < needed) {
        *error = "frame holds " + std::to_string(length) + " bytes, a " + size.text() + " " + name +
                 " image needs " + std::to_string(needed);
        return false;
    }
    if (name == "YU12") {
        const uint8_t* planes[3] = {data, data + w * h, data + w * h + cw * ch};
        const int strides[3] = {int(w), int(cw), int(cw)};
        return encodePlanes(planes, strides, size, quality, jpeg, error);
    }
    // YUYV and NV12 interleave chroma; TurboJPEG takes planes only.
    std::vector<uint8_t> y(w * h), u(cw * ch), v(cw * ch);
    if (name == "NV12") {
        std::memcpy(y.data(), data, w * h);
        const uint8_t* uv = data + w * h;
        for (size_t i = 0; i < cw * ch; ++i) {
            u[i] = uv[2 * i];
            v[i] = uv[2 * i + 1];
        }
    } else {
        for (size_t row = 0; row < h; ++row) {
            const uint8_t* src = data + row * w * 2;
            for (size_t col = 0; col < w; ++col) {
                y[row * w + col] = src[col * 2];
            }
            if (row % 2 == 0) {
                for (size_t c = 0; c < cw; ++c) {
                    // An odd width ends in a half pair: its chroma bytes
                    // still follow its Y byte.
                    u[(row / 2) * cw + c] = src[c * 4 + 1];
                    v[(row / 2) * cw + c] = c * 4 + 3 < w * 2 ? src[c * 4 + 3] : src[c * 4 + 1];
                }
            }
        }
    }
    const uint8_t* planes[3] = {y.data(), u.data(), v.data()};
    const int strides[3] = {int(w), int(cw), int(cw)};
    return encodePlanes(planes, strides, size, quality, jpeg, error);
}

}  // namespace uvc_host
