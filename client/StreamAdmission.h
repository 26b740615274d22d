#pragma once

#include <chrono>
#include <cstdint>

namespace hidl_uvc_client {

// Bounds which stream numbers get a stream handler, and with it two timer
// descriptors (made at once) and, once configured, hardware buffers
// (descriptors on the device too) and a conversion thread. The eight UVC
// streams 0:0 to 1:3 always get one; any other stream number only while
// fewer than kMaxOtherStreams others have one, first come first served. A
// handler lasts until the client ends, and so does its place. Further stream
// numbers get no handler: their stream changes are ignored, so a flood of
// stream numbers can never take the descriptors the UVC streams need.
//
// Refusals are counted; shouldLogRefusal() lets one line through at most
// every kRefusalLogInterval, so a host that floods cannot flood the log.
// Not thread-safe: the client uses it under its registry lock.
class StreamAdmission {
public:
    static constexpr int kMaxOtherStreams = 8;
    static constexpr std::chrono::seconds kRefusalLogInterval{1};

    static bool isUvcStream(uint8_t stream_id, uint8_t stream_idx) {
        return stream_id <= 1 && stream_idx <= 3;
    }

    // True when a stream number that has no handler yet may get one; the
    // caller then makes it. A refusal is counted and takes no place.
    bool admit(uint8_t stream_id, uint8_t stream_idx) {
        if (isUvcStream(stream_id, stream_idx)) {
            return true;
        }
        if (others < kMaxOtherStreams) {
            ++others;
            return true;
        }
        ++refusals;
        return false;
    }

    // After a refusal: true for the first one and then when the last line
    // let through is at least kRefusalLogInterval old.
    bool shouldLogRefusal(std::chrono::steady_clock::time_point now) {
        if (logged && now - lastLog < kRefusalLogInterval) {
            return false;
        }
        logged = true;
        lastLog = now;
        return true;
    }

    // Stream changes refused so far.
    unsigned long refusedCount() const { return refusals; }

private:
    int others = 0;
    unsigned long refusals = 0;
    bool logged = false;
    std::chrono::steady_clock::time_point lastLog;
};

}  // namespace hidl_uvc_client
