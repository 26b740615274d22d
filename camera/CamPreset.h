#pragma once

#include <string>

namespace uvc_client {

// Preset handling of the camera. Presets are not stored or recalled on this
// device; a request is only reported.
class CamPreset {
public:
    static CamPreset& Instance();

    // Prints the requested operation and preset number.
    void preset(const std::string& op, int id);

private:
    CamPreset() = default;
};

}  // namespace uvc_client
