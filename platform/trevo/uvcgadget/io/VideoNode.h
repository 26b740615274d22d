#pragma once

#include <linux/usb/g_uvc.h>
#include <linux/videodev2.h>

#include <cstdint>
#include <memory>
#include <string>

#include "io/UniqueFd.h"

namespace uvc_gadget {

// One open V4L2 output node of a UVC gadget function ("g_uvc" driver): the
// ioctls the bridge makes on it, each returning 0 or a negative errno. The
// node is opened non-blocking, so dequeueing never waits. Not thread-safe:
// its owner serialises the calls. Every ioctl goes through control(), which a
// stand-in without a kernel overrides.
class VideoNode {
public:
    // Opens `path` and checks that it is a UVC gadget's video output node;
    // nullptr with a reason in `error` otherwise.
    static std::unique_ptr<VideoNode> open(const std::string& path, std::string& error);
    virtual ~VideoNode() = default;
    VideoNode(const VideoNode&) = delete;
    VideoNode& operator=(const VideoNode&) = delete;

    int fd() const { return fd_.get(); }
    const std::string& path() const { return path_; }

    int subscribe(uint32_t eventType);
    int unsubscribeAll();
    // -EAGAIN or -ENOENT when no event is pending.
    int dequeueEvent(v4l2_event& event);
    int sendResponse(const uvc_request_data& response);

    // Sets the output format; `format` comes back as the driver chose it.
    int setFormat(v4l2_pix_format& format);
    // Memory-mapped buffers: `count` asked for, returns how many were made.
    int requestBuffers(uint32_t& count);
    int queryBuffer(uint32_t index, v4l2_buffer& buffer);
    int queueBuffer(uint32_t index, uint32_t bytesused);
    // -EAGAIN when no buffer has completed.
    int dequeueBuffer(uint32_t& index);
    int streamOn();
    int streamOff();

protected:
    // `fd` is what buffers are mapped from.
    VideoNode(UniqueFd fd, std::string path);
    // One ioctl, repeated when a signal interrupts it.
    virtual int control(unsigned long request, void* argument);

private:
    UniqueFd fd_;
    std::string path_;
};

}  // namespace uvc_gadget
