#pragma once

#include <cstdint>

namespace uvc_gadget {

// The function's isochronous streaming endpoint as a high-speed host sees
// it, and what it carries. Each service interval the function sends one
// request of at most maxPacket x mult bytes, a payload header (up to
// kHeaderBytes) included, and a frame always starts a request of its own:
// a frame of F bytes takes ceil(F / (maxPacket x mult - kHeaderBytes))
// services. Plain values; thread-compatible.
struct StreamingEndpoint {
    // The largest payload header the function writes (PTS and SCR).
    static constexpr uint32_t kHeaderBytes = 12;

    uint32_t maxPacket = 1024;  // wMaxPacketSize, bits 10..0
    uint32_t mult = 1;          // packets per service, 1..3
    uint32_t interval = 1;      // bInterval: a service every 2^(interval-1) microframes

    // The endpoint the kernel's function declares for its configfs
    // attributes streaming_maxpacket and streaming_interval: up to 1024
    // bytes one packet, up to 2048 two, else three equal packets; an
    // endpoint of more than one packet per microframe serves every
    // microframe. Out-of-range values are clamped as the function does.
    static StreamingEndpoint fromAttributes(uint32_t streamingMaxPacket,
                                            uint32_t streamingInterval);

    // Bytes per service, header included: what probe and commit answer as
    // dwMaxPayloadTransferSize.
    uint32_t bytesPerService() const { return maxPacket * mult; }
    // Frame bytes the endpoint carries per second.
    uint64_t payloadPerSecond() const;
    // Bandwidth a frame of `frameBytes` every `frameInterval` (100 ns units)
    // takes, in whole services, as payload bytes per second: fits when it is
    // at most payloadPerSecond(). UINT64_MAX when no payload fits a service.
    uint64_t payloadNeeded(uint32_t frameBytes, uint32_t frameInterval) const;
    bool carries(uint32_t frameBytes, uint32_t frameInterval) const {
        return payloadNeeded(frameBytes, frameInterval) <= payloadPerSecond();
    }
};

}  // namespace uvc_gadget
