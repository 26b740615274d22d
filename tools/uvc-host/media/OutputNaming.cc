#include "media/OutputNaming.h"

namespace uvc_host {

std::string perStreamPath(const std::string& path, const StreamKey& key) {
    std::string tag = "-" + std::to_string(int(key.id)) + "_" + std::to_string(int(key.idx));
    size_t slash = path.rfind('/');
    size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    size_t dot = path.rfind('.');
    // A leading dot belongs to the name (".video"), not to an extension.
    if (dot == std::string::npos || dot <= nameStart) {
        return path + tag;
    }
    return path.substr(0, dot) + tag + path.substr(dot);
}

std::string shellQuote(const std::string& text) {
    bool safe = !text.empty();
    for (char c : text) {
        bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                  c == '/' || c == '.' || c == '_' || c == '-' || c == '+' || c == ':' || c == ',';
        safe = safe && ok;
    }
    if (safe) {
        return text;
    }
    std::string out = "'";
    for (char c : text) {
        if (c == '\'') {
            out += "'\\''";
        } else {
            out += c;
        }
    }
    return out + "'";
}

std::string playCommand(const VideoFormat& format, FrameSize size, unsigned fps,
                        const std::string& path) {
    std::string rate = std::to_string(fps);
    if (format.kind == FormatKind::Raw) {
        return "ffplay -f rawvideo -pixel_format " + std::string(format.ffmpegName) +
               " -video_size " + size.text() + " -framerate " + rate + " " + shellQuote(path);
    }
    return "ffplay -f " + std::string(format.ffmpegName) + " -framerate " + rate + " " +
           shellQuote(path);
}

}  // namespace uvc_host
