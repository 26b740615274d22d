#pragma once

#include <linux/videodev2.h>

#include <memory>
#include <string>
#include <vector>

#include "base/UniqueFd.h"
#include "pipeline/capture/CaptureDevice.h"

namespace uvc_client {
namespace capture {

// A V4L2 single-planar capture device with memory-mapped buffers, opened
// non-blocking so that no call waits for the camera. The buffers are mapped
// once per start and unmapped, with streaming off, on destruction.
class V4l2Capture : public CaptureDevice {
public:
    // Null with the reason when `path` cannot be opened or is no streaming
    // capture device.
    static std::unique_ptr<CaptureDevice> open(const std::string& path, std::string& why);
    ~V4l2Capture() override;

    V4l2Capture(const V4l2Capture&) = delete;
    V4l2Capture& operator=(const V4l2Capture&) = delete;

    int fd() const override { return fd_.get(); }
    std::vector<CaptureMode> modes() override;
    bool start(const CaptureMode& mode, std::string& why) override;
    Dequeue dequeue(std::string& why) override;
    CapturedFrame newest() const override;

private:
    explicit V4l2Capture(VOLUT::UniqueFd fd);
    void stop();
    bool queue(uint32_t index, std::string& why);

    struct Mapping {
        void* data = nullptr;
        size_t length = 0;
    };
    VOLUT::UniqueFd fd_;
    std::vector<Mapping> mappings;
    bool streaming = false;
    v4l2_pix_format format = {};
    int held = -1;  // buffer index kept as the newest frame
    size_t heldBytes = 0;
};

}  // namespace capture
}  // namespace uvc_client
