#pragma once

#include <cstdint>
#include <string>

#include "pipeline/capture/CaptureTypes.h"
#include "pipeline/capture/FrameConverter.h"
#include "trevo/HalUvcConfig.h"

namespace uvc_client {
namespace capture {

class CaptureSource;

// One stream's share of a camera: attaches to the configured camera while
// the stream runs and turns the camera's newest frame into the stream's
// format and size at each of the stream's ticks. A camera slower than the
// stream gives the same frame again (counted); a camera that is unavailable
// gives nothing, and the stream makes its test pattern instead.
// start and stop run under the stream handler's lock on a bridge thread,
// prepare and fill on the loop thread under the same lock.
class CaptureStream {
public:
    CaptureStream(uint8_t stream_id, uint8_t stream_idx);
    ~CaptureStream();
    CaptureStream(const CaptureStream&) = delete;
    CaptureStream& operator=(const CaptureStream&) = delete;

    // Takes frames from `device` (empty: none) for `config` when a camera
    // can give the host's format (YUYV, YU12, NV12, MJPEG); logs what was
    // chosen in one line. False when the stream keeps its own frames.
    bool start(const std::string& device, const trevo::HalUvcConfig& config);
    // Detaches; says how many frames were repeats, if any.
    void stop();

    enum class Mode {
        kOff,       // no camera for this stream: its own frames as always
        kWait,      // the camera is starting: no frame this tick
        kCamera,    // fill() has a camera frame
        kFallback,  // the camera is unavailable: the test pattern
    };
    Mode prepare();
    // The newest camera frame in the stream's format; 0 when it could not be
    // converted into `capacity` bytes.
    unsigned fill(uint8_t* out, unsigned capacity);

    uint64_t framesForTest() const { return frames; }
    uint64_t repeatsForTest() const { return repeats; }

private:
    friend class CaptureSource;

    const uint8_t stream_id;
    const uint8_t stream_idx;
    CaptureSource* source = nullptr;  // not owned; sources live for the process
    CaptureTarget target;
    FrameConverter converter;
    uint64_t lastSequence = 0;
    uint64_t frames = 0;
    uint64_t repeats = 0;
    bool warned = false;     // the fallback was announced; cleared by a camera frame
    bool announced = false;  // the chosen mode was logged for this start
};

}  // namespace capture
}  // namespace uvc_client
