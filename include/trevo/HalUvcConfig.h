#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "trevo/HalCameraState.h"

namespace trevo {

// A UVC stream's configuration as the compositor reports it. Copied and moved
// freely; only the first five fields have a meaning for the stream client.
struct HalUvcConfig {
    int32_t width = 0;      // pixels; 0 while no stream is configured
    int32_t height = 0;     // lines; 0 while no stream is configured
    int32_t fps = 0;        // frames per second
    uint32_t format = 0;    // FourCC, first character in the lowest byte
    int32_t streaming = 0;  // non-zero while the host streams
    uint8_t reserved[12] = {};
    uint8_t flags = 0;
    std::string label = ",";
    std::vector<HalCameraState> cameraStates;
};

}  // namespace trevo
