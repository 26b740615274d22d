#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "pipeline/capture/CaptureTypes.h"

namespace uvc_client {
namespace capture {

// A camera that streams into a few buffers of its own: V4l2Capture on a
// device, a scripted one in tests. Every call returns at once (the
// descriptor is non-blocking), so all of them may run on the loop thread.
// Not thread-safe: CaptureSource serialises its use.
class CaptureDevice {
public:
    virtual ~CaptureDevice() = default;

    // Readable when a frame is ready (and on error or hang-up); for the loop.
    virtual int fd() const = 0;
    // The YUYV, YU12, NV12 and MJPEG modes the camera offers.
    virtual std::vector<CaptureMode> modes() = 0;
    // Asks for `mode` (at its first interval, if any), maps the buffers and
    // starts streaming; false with the reason in `why`, everything undone.
    // The camera may settle on another size or format: see newest().
    virtual bool start(const CaptureMode& mode, std::string& why) = 0;

    enum class Dequeue {
        kNone,   // nothing new
        kFrame,  // newest() is a new frame
        kGone,   // the camera failed or went away (`why`); only destruction is left
    };
    // Takes every frame that is ready, keeps the newest and gives the older
    // ones back at once, so that latency never piles up.
    virtual Dequeue dequeue(std::string& why) = 0;
    // The frame kept by the last dequeue that found one (data null before);
    // valid until the next dequeue or the device's destruction.
    virtual CapturedFrame newest() const = 0;
};

// Opens the camera at `path`; null with the reason in `why`.
using CaptureOpener =
    std::function<std::unique_ptr<CaptureDevice>(const std::string& path, std::string& why)>;

}  // namespace capture
}  // namespace uvc_client
