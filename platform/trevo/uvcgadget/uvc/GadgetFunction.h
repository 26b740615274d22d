#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "uvc/StreamingEndpoint.h"

namespace uvc_gadget {

// FourCC as the library numbers formats: first character in the lowest byte.
constexpr uint32_t fourcc(char a, char b, char c, char d) {
    return uint32_t(uint8_t(a)) | uint32_t(uint8_t(b)) << 8 | uint32_t(uint8_t(c)) << 16 |
           uint32_t(uint8_t(d)) << 24;
}

// One frame descriptor of a format: a size and the frame intervals it offers.
struct FrameDesc {
    uint8_t index = 0;  // bFrameIndex, 1-based
    uint16_t width = 0;
    uint16_t height = 0;
    std::vector<uint32_t> intervals;  // 100 ns units, ascending, never empty
    uint32_t defaultInterval = 0;     // one of `intervals`
    uint32_t maxFrameSize = 0;        // bytes of the largest frame

    // The declared interval nearest to `wanted` (the shorter one of two
    // equally near).
    uint32_t nearestInterval(uint32_t wanted) const;
};

// One format descriptor of the streaming interface.
struct FormatDesc {
    uint8_t index = 0;  // bFormatIndex, 1-based
    uint32_t fourcc = 0;
    bool compressed = false;
    uint8_t defaultFrameIndex = 1;
    std::vector<FrameDesc> frames;  // ascending bFrameIndex

    const FrameDesc* frame(uint8_t frameIndex) const;
};

// What the host was told about one UVC function: its interfaces, the
// entities that carry camera controls, and the formats it may stream.
struct GadgetFunction {
    uint16_t uvcVersion = 0x0110;  // bcdUVC of the control header
    uint8_t controlInterface = 0;
    uint8_t streamingInterface = 1;
    uint8_t cameraTerminalId = 1;
    uint8_t processingUnitId = 2;
    // The extension unit with kExtensionGuid; 0 when the function declares
    // none (6.1's function cannot).
    uint8_t extensionUnitId = 0;
    // The streaming endpoint: its bytes per service are what probe answers
    // as dwMaxPayloadTransferSize, so that the host picks the one alternate
    // setting the function has.
    StreamingEndpoint endpoint;
    std::vector<FormatDesc> formats;  // ascending bFormatIndex

    const FormatDesc* format(uint8_t formatIndex) const;
};

// Where a bridge learns its function's declaration. The gadget's own source
// is configfs (ConfigfsFunction); tests hand over a table.
class FunctionSource {
public:
    virtual ~FunctionSource();
    // Fills `function`; false with a reason in `error` when it cannot (no
    // format, unreadable directory).
    virtual bool load(GadgetFunction& function, std::string& error) = 0;
};

}  // namespace uvc_gadget
