#include "media/VideoFormat.h"

#include <cstring>

namespace uvc_host {

namespace {

constexpr uint32_t fourcc(const char (&c)[5]) {
    return uint32_t(uint8_t(c[0])) | uint32_t(uint8_t(c[1])) << 8 | uint32_t(uint8_t(c[2])) << 16 |
           uint32_t(uint8_t(c[3])) << 24;
}

const VideoFormat kFormats[] = {
    {"YUYV", fourcc("YUYV"), FormatKind::Raw, "yuyv422"},
    {"YU12", fourcc("YU12"), FormatKind::Raw, "yuv420p"},
    {"NV12", fourcc("NV12"), FormatKind::Raw, "nv12"},
    {"MJPG", fourcc("MJPG"), FormatKind::Jpeg, "mjpeg"},
    {"H264", fourcc("H264"), FormatKind::H264, "h264"},
    {"S264", fourcc("S264"), FormatKind::H264, "h264"},
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
