#pragma once

// Test hooks of the compositor-bridge stand-in. Every trevo::CompositorBridge
// object of the process talks to the one Host, which plays the USB host and
// the UVC gadget. Product code never includes this header.
//
// Delivery: hotplug() and setting() queue an event on a host thread ("lane")
// and return a ticket at once; each lane is one thread and delivers its events
// in order to the registered HotPlugHandler. An event that finds no handler
// registered is dropped (it still counts as delivered). Events on different
// lanes may run concurrently.
//
// Shutdown: reset() and process exit discard undelivered events (their
// tickets never count as delivered), wait for running deliveries and join the
// lanes; a later hotplug()/setting() starts lanes afresh. A handler that was
// replaced, or whose registering bridge object was destroyed, is never called
// afterwards; destroying a handler that is still registered stops nothing
// (see HotPlugHandler).

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "trevo/HalUvcConfig.h"

namespace trevo_standin {

struct ReceivedFrame {
    uint8_t streamId, streamIdx;
    uint32_t width, height, format;  // as described by the hardware buffer handed over
    uint32_t size;                   // payload bytes
    std::vector<uint8_t> bytes;      // copy of the payload (empty when copying is off)
    uint64_t monotonicNs;            // CLOCK_MONOTONIC when sendFrameBuffer was called
};

class Host {
public:
    static Host& instance();

    // Forgets configurations, records, faults, host delays, the frame listener and the
    // registered handler; shuts the lanes down (see above). Copy mode back on.
    void reset();

    void setConfig(uint8_t id, uint8_t idx, const trevo::HalUvcConfig& c);
    // Default-constructed when never set.
    trevo::HalUvcConfig getConfig(uint8_t id, uint8_t idx) const;

    // Delivered asynchronously on host thread `lane` (0..15); returns a ticket.
    uint64_t hotplug(int status, uint8_t id, uint8_t idx, int lane = 0);
    uint64_t setting(const std::string& json, uint8_t id, uint8_t idx, int lane = 0);
    // True once the event's handler call has returned (or it was dropped for
    // want of a handler); false on time-out, for discarded or unknown tickets.
    bool waitDelivered(uint64_t ticket, std::chrono::milliseconds timeout);
    // Until a HotPlugHandler is registered.
    bool waitForHandler(std::chrono::milliseconds timeout);
    bool hasHandler() const;
    // Events that found no handler.
    size_t droppedEvents() const;

    // Calls made through the bridge, in order: "registerHotPlugHandler",
    // "registerProjector(<n>)",
    // "getConfiguration(<id>:<idx>)", "onAppMessage". Frames are not listed
    // here (see frames()).
    std::vector<std::string> calls() const;
    size_t countCalls(const std::string& call) const;
    // Texts given to onAppMessage (both overloads), in order.
    std::vector<std::string> appMessages() const;
    bool waitForAppMessages(size_t n, std::chrono::milliseconds timeout);
    // Waits until calls() holds at least `n` entries equal to `call`.
    bool waitForCalls(const std::string& call, size_t n, std::chrono::milliseconds timeout);

    // Frames accepted by sendFrameBuffer, in order of arrival. Each stream
    // records apart (no lock shared by the streams' frame paths) and copies
    // a frame's bytes once; records dropped by clearFrames() are reused, so
    // a host that clears now and then allocates nothing per frame.
    std::vector<ReceivedFrame> frames() const;
    size_t frameCount(uint8_t id, uint8_t idx) const;
    bool waitForFrames(uint8_t id, uint8_t idx, size_t n, std::chrono::milliseconds timeout);
    void clearFrames();
    void setCopyFrameBytes(bool on);  // default on
    // Called on the sending thread for every accepted frame, after it was
    // recorded, with that stream's records locked; must not call back into
    // the bridge. Empty function: none.
    void setFrameListener(std::function<void(const ReceivedFrame&)> f);
    // Makes every sendFrameBuffer of stream id:idx take `delay` longer (after
    // the frame was recorded), as a host that reads slowly would; 0 ends it.
    void setHostDelay(uint8_t id, uint8_t idx, std::chrono::milliseconds delay);
    // The next n sendFrameBuffer calls report a lost gadget connection; such
    // frames are not recorded in frames().
    void failSends(int n);
    size_t rejectedSends() const;

    // Bridge objects currently alive (copies included).
    size_t liveBridges() const;

    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

private:
    Host();
    ~Host();
};

}  // namespace trevo_standin
