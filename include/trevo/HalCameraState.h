#pragma once

#include <cstdint>
#include <string>

namespace trevo {

// One named camera state reported with a stream configuration.
struct HalCameraState {
    std::string name;
    int32_t value = 0;
};

}  // namespace trevo
