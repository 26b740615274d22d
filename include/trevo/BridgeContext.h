#pragma once

#include <cstdint>

namespace trevo {

// Which compositor service a bridge object connects to.
enum BridgeContext : int32_t {
    BRIDGE_CONTEXT_DEFAULT = 0,
    BRIDGE_CONTEXT_UVC = 1,  // the UVC gadget's projector side
};

}  // namespace trevo
