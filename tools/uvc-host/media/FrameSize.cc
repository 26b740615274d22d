#include "media/FrameSize.h"

#include "cli/NumberText.h"

namespace uvc_host {

std::string FrameSize::text() const {
    return std::to_string(width) + "x" + std::to_string(height);
}

bool FrameSize::parse(const std::string& text, FrameSize* out) {
    size_t x = text.find('x');
    if (x == std::string::npos) {
        return false;
    }
    uint64_t w = 0;
    uint64_t h = 0;
    if (!parseUnsigned(text.substr(0, x), kMaxSide, &w) ||
        !parseUnsigned(text.substr(x + 1), kMaxSide, &h) || w == 0 || h == 0) {
        return false;
    }
    out->width = uint32_t(w);
    out->height = uint32_t(h);
    return true;
}

}  // namespace uvc_host
