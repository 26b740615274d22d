#include "media/VideoFormat.h"

#include <cstring>
#include <iterator>

namespace uvc_host {

namespace {

constexpr uint32_t fourcc(const char (&c)[5]) {
    return uint32_t(uint8_t(c[0])) | uint32_t(uint8_t(c[1])) << 8 | uint32_t(uint8_t(c[2])) << 16 |
           uint32_t(uint8_t(c[3])) << 24;
}

const char kPattern[] = "a test pattern (rows of rising values)";
const char kH264Files[] = "frame files DIR/W_H/frameN, one access unit each";

const VideoFormat kFormats[] = {
    {"YUYV", fourcc("YUYV"), FormatKind::Raw, "yuyv422", "4:2:2 packed, 2 bytes per pixel",
     kPattern},
    {"YU12", fourcc("YU12"), FormatKind::Raw, "yuv420p", "4:2:0 planar, 1.5 bytes per pixel",
     kPattern},
    {"NV12", fourcc("NV12"), FormatKind::Raw, "nv12", "4:2:0 semi-planar, 1.5 bytes per pixel",
     kPattern},
    {"MJPG", fourcc("MJPG"), FormatKind::Jpeg, "mjpeg", "one JPEG image per frame",
     "frame files DIR/mjpeg/W_H/frameN.jpg, or the pattern (--jpeg)"},
    {"H264", fourcc("H264"), FormatKind::H264, "h264", "H.264 Annex B", kH264Files},
    {"S264", fourcc("S264"), FormatKind::H264, "h264", "H.264 Annex B", kH264Files},
};

}  // namespace

uint64_t VideoFormat::rawFrameBytes(uint32_t width, uint32_t height) const {
    if (kind != FormatKind::Raw) {
        return 0;
    }
    // The client fills YUYV rows of width * 2 bytes and 4:2:0 rows of
    // (width * 3) / 2 bytes; a frame is height such rows.
    uint64_t row = std::strcmp(name, "YUYV") == 0 ? uint64_t(width) * 2 : uint64_t(width) * 3 / 2;
    return row * height;
}

const VideoFormat* findFormat(const std::string& name) {
    for (const VideoFormat& f : kFormats) {
        if (name == f.name) {
            return &f;
        }
    }
    return nullptr;
}

const VideoFormat* findFormat(uint32_t code) {
    for (const VideoFormat& f : kFormats) {
        if (code == f.fourcc) {
            return &f;
        }
    }
    return nullptr;
}

const VideoFormat* formatsBegin() {
    return std::begin(kFormats);
}

const VideoFormat* formatsEnd() {
    return std::end(kFormats);
}

std::string formatNames() {
    std::string out;
    for (const VideoFormat& f : kFormats) {
        if (!out.empty()) {
            out += '|';
        }
        out += f.name;
    }
    return out;
}

}  // namespace uvc_host
