#include "uvc/StreamingEndpoint.h"

#include <algorithm>

namespace uvc_gadget {

namespace {

constexpr uint64_t kMicroframesPerSecond = 8000;
constexpr uint64_t kIntervalUnitsPerSecond = 10000000;  // 100 ns units

}  // namespace

StreamingEndpoint StreamingEndpoint::fromAttributes(uint32_t streamingMaxPacket,
                                                    uint32_t streamingInterval) {
    const uint32_t bytes = std::clamp<uint32_t>(streamingMaxPacket, 1, 3072);
    StreamingEndpoint e;
    e.mult = bytes <= 1024 ? 1 : bytes <= 2048 ? 2 : 3;
    e.maxPacket = bytes / e.mult;
    e.interval = e.mult > 1 ? 1 : std::clamp<uint32_t>(streamingInterval, 1, 16);
    return e;
}

uint64_t StreamingEndpoint::payloadPerSecond() const {
    const uint32_t bytes = bytesPerService();
    if (bytes <= kHeaderBytes)
        return 0;
    return (bytes - kHeaderBytes) * kMicroframesPerSecond >> (interval - 1);
}

uint64_t StreamingEndpoint::payloadNeeded(uint32_t frameBytes, uint32_t frameInterval) const {
    const uint32_t bytes = bytesPerService();
    if (bytes <= kHeaderBytes || frameInterval == 0)
        return UINT64_MAX;
    const uint64_t payload = bytes - kHeaderBytes;
    const uint64_t services = (frameBytes + payload - 1) / payload;
    // Rounded up, so that a frame just too large for its interval never
    // reads as fitting.
    return (services * payload * kIntervalUnitsPerSecond + frameInterval - 1) / frameInterval;
}

}  // namespace uvc_gadget
