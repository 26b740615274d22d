#pragma once

#include <cstdint>

namespace trevo {

// Status of a hot-plug event. Values other than those named here may arrive
// and are to be treated as informational.
enum ConnectionStatus : int32_t {
    CONNECTION_STATUS_DISCONNECTED = 0,
    CONNECTION_STATUS_CONNECTED = 1,
    CONNECTION_STATUS_SUSPENDED = 2,
    CONNECTION_STATUS_RESUMED = 3,
    // The configuration of the named stream changed (stream id 255: of all).
    CONNECTION_STATUS_STREAM_CHANGED = 4,
};

// Stream id of a hot-plug event that concerns every stream.
constexpr uint8_t kAllStreams = 255;

}  // namespace trevo
