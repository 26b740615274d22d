#pragma once

#include <atomic>
#include <cstdint>

namespace hidl_uvc_client {

// Bounds the streams that hold resources: two timer descriptors, hardware
// buffers (descriptors on the device too) and a conversion thread each. The
// eight UVC streams 0:0 to 1:3 are always admitted; any other stream number
// only while fewer than kMaxOtherStreams others have been, first come first
// served. An admission lasts as long as its handler, that is until the
// client ends. The client keeps a handler for every stream number the bridge
// names; only these admitted ones ever hold resources, so a flood of stream
// numbers can never take the descriptors the UVC streams need.
// Thread-safe.
class StreamAdmission {
public:
    static constexpr int kMaxOtherStreams = 8;

    static bool isUvcStream(uint8_t stream_id, uint8_t stream_idx) {
        return stream_id <= 1 && stream_idx <= 3;
    }

    // True when the stream may hold resources. Each handler asks until it is
    // admitted once and remembers that; a refusal takes no slot.
    bool admit(uint8_t stream_id, uint8_t stream_idx) {
        if (isUvcStream(stream_id, stream_idx)) {
            return true;
        }
        int n = others.load();
        while (n < kMaxOtherStreams) {
            if (others.compare_exchange_weak(n, n + 1)) {
                return true;
            }
        }
        return false;
    }

private:
    std::atomic<int> others{0};
};

}  // namespace hidl_uvc_client
