#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "link/StreamKey.h"
#include "media/FrameSize.h"

namespace uvc_host {

// One frame as the USB host side received it. `data` is null when frame
// bytes are not copied; it stays valid only during the call.
struct FrameEvent {
    StreamKey key;
    uint64_t monotonicNs = 0;
    uint32_t size = 0;
    const uint8_t* data = nullptr;
};

// A stream configuration as the host sets it.
struct LinkConfig {
    FrameSize size;
    uint32_t fps = 0;
    uint32_t fourcc = 0;
    bool streaming = true;
};

// What a setting never written reads as (a written -255 reads the same).
constexpr int64_t kSettingNotSet = -255;

// One row of the library's table of camera settings. The library does not
// hold writes to the range; a setting never written reads kSettingNotSet.
struct SettingInfo {
    std::string name;
    int min = 0;
    int max = 0;
    int step = 0;
    int defaultValue = 0;
};

// What the library's frame source accepts, from its own limits.
struct SourceLimits {
    uint32_t maxFps = 0;
    // Each frame buffer holds 4 bytes per pixel whatever the format; a
    // configuration needing more than this is not started.
    uint64_t maxBufferBytes = 0;
    // Recorded frame files are read up to this many bytes; longer ones are cut.
    uint64_t maxFrameFileBytes = 0;
};

// How the library is to be set up before it starts.
struct LinkSettings {
    std::string framesRoot;       // empty: the library's default
    bool synthesiseJpeg = false;  // MJPG from the test pattern instead of files
    std::string captureDevice;    // camera behind the streams; empty: none
    bool copyFrameBytes = true;   // off when only sizes and times are needed
    bool verbose = false;         // every library log line, not only warnings and errors
};

// The tool's view of the stream client and the USB host in front of it: the
// library running in this process, driven through the bridge's host side.
// Tests substitute their own.
class UvcLink {
public:
    virtual ~UvcLink() = default;

    // Called on whatever thread hands a frame over; set before start().
    virtual void setFrameSink(std::function<void(const FrameEvent&)> sink) = 0;
    // Starts the library; true once it listens to the bridge.
    virtual bool start(std::string* error) = 0;
    // Ends the library and waits until it is gone; no frame arrives after.
    virtual void stop() = 0;

    virtual void configure(StreamKey key, const LinkConfig& config) = 0;
    // True when the event was delivered (and handled) within the timeout.
    // id 255 stands for all streams.
    virtual bool hotplug(int status, uint8_t id, uint8_t idx,
                         std::chrono::milliseconds timeout) = 0;
    virtual bool control(const std::string& message, StreamKey key,
                         std::chrono::milliseconds timeout) = 0;
    // Every message the library sent to the host so far, in order.
    virtual std::vector<std::string> replies() const = 0;
    // How often the library registered projector 0 again after losing the
    // gadget connection (all streams together).
    virtual uint64_t recoveries() const = 0;
    // The next n frame hand-overs report a lost connection.
    virtual void failSends(int n) = 0;
    // The host of `key` takes `delay` per received frame from now on (0: none).
    virtual void setHostDelay(StreamKey key, std::chrono::milliseconds delay) = 0;
    // The library's settings table, in name order; usable before start().
    virtual std::vector<SettingInfo> settings() const = 0;
    // Usable before start().
    virtual SourceLimits sourceLimits() const = 0;
    // Frames of `key` the library dropped so far because the host still held
    // every buffer, as its warnings report them. It warns at most once a
    // second with the count since the last warning, so the drops of the last
    // second may be missing.
    virtual uint64_t hostBusyDrops(StreamKey key) const = 0;
};

using UvcLinkFactory = std::function<std::unique_ptr<UvcLink>(const LinkSettings&)>;

}  // namespace uvc_host
