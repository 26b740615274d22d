#pragma once

#include <cstdint>
#include <string>

namespace uvc_host {

// How the frames of a format are stored when written out.
enum class FormatKind { Raw, Jpeg, H264 };

// One of the frame formats the stream client knows, with what a viewer needs
// to play it.
struct VideoFormat {
    const char* name;  // four-character code as text, e.g. "YUYV"
    uint32_t fourcc;   // first character in the lowest byte
    FormatKind kind;
    const char* ffmpegName;  // -pixel_format for raw, -f for the others
    const char* layout;      // for people: how a frame is laid out
    const char* source;      // for people: where the library's frames come from

    // Bytes of one frame of a raw format (0 for compressed formats).
    uint64_t rawFrameBytes(uint32_t width, uint32_t height) const;
};

// nullptr when the name (exact, upper case) is not a known format.
const VideoFormat* findFormat(const std::string& name);
const VideoFormat* findFormat(uint32_t fourcc);
// "YUYV|YU12|NV12|MJPG|H264|S264", for help and error texts.
std::string formatNames();
// Every format, in the order above.
const VideoFormat* formatsBegin();
const VideoFormat* formatsEnd();

}  // namespace uvc_host
