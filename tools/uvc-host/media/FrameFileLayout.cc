#include "media/FrameFileLayout.h"

namespace uvc_host {

std::string frameDirectory(const std::string& root, const VideoFormat& format, FrameSize size) {
    std::string dims = std::to_string(size.width) + "_" + std::to_string(size.height);
    return format.kind == FormatKind::Jpeg ? root + "/mjpeg/" + dims : root + "/" + dims;
}

std::string frameFilePath(const std::string& root, const VideoFormat& format, FrameSize size,
                          uint64_t index) {
    std::string name = "frame" + std::to_string(index);
    if (format.kind == FormatKind::Jpeg) {
        name += ".jpg";
    }
    return frameDirectory(root, format, size) + "/" + name;
}

}  // namespace uvc_host
