#pragma once

#include <cstdint>
#include <string>

namespace uvc_host {

struct FrameSize {
    uint32_t width = 0;
    uint32_t height = 0;

    std::string text() const;  // "1280x720"
    // "WxH" with both sides from 1 to kMaxSide; the client allocates
    // width * height * 4 bytes per buffer, which must stay within 32 bits.
    static bool parse(const std::string& text, FrameSize* out);
    static constexpr uint32_t kMaxSide = 8192;
};

}  // namespace uvc_host
