#include "io/VideoNode.h"

#include <fcntl.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace uvc_gadget {

namespace {

constexpr uint32_t kOutput = V4L2_BUF_TYPE_VIDEO_OUTPUT;

}  // namespace

VideoNode::VideoNode(UniqueFd fd, std::string path) : fd_(std::move(fd)), path_(std::move(path)) {}

std::unique_ptr<VideoNode> VideoNode::open(const std::string& path, std::string& error) {
    UniqueFd fd(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!fd.valid()) {
        error = path + ": " + strerror(errno);
        return nullptr;
    }
    std::unique_ptr<VideoNode> node(new VideoNode(std::move(fd), path));
    v4l2_capability capability = {};
    if (node->control(VIDIOC_QUERYCAP, &capability) != 0) {
        error = path + ": not a V4L2 device";
        return nullptr;
    }
    const uint32_t caps = (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0
                              ? capability.device_caps
                              : capability.capabilities;
    if (strncmp(reinterpret_cast<const char*>(capability.driver), "g_uvc",
                sizeof(capability.driver)) != 0 ||
        (caps & V4L2_CAP_VIDEO_OUTPUT) == 0 || (caps & V4L2_CAP_STREAMING) == 0) {
        error = path + ": not a UVC gadget output node";
        return nullptr;
    }
    return node;
}

int VideoNode::control(unsigned long request, void* argument) {
    int result;
    do {
        result = ioctl(fd_.get(), request, argument);
    } while (result < 0 && errno == EINTR);
    return result < 0 ? -errno : 0;
}

int VideoNode::subscribe(uint32_t eventType) {
    v4l2_event_subscription subscription = {};
    subscription.type = eventType;
    return control(VIDIOC_SUBSCRIBE_EVENT, &subscription);
}

int VideoNode::unsubscribeAll() {
    v4l2_event_subscription subscription = {};
    subscription.type = V4L2_EVENT_ALL;
    return control(VIDIOC_UNSUBSCRIBE_EVENT, &subscription);
}

int VideoNode::dequeueEvent(v4l2_event& event) {
    event = {};
    return control(VIDIOC_DQEVENT, &event);
}

int VideoNode::sendResponse(const uvc_request_data& response) {
    uvc_request_data copy = response;
    return control(UVCIOC_SEND_RESPONSE, &copy);
}

int VideoNode::setFormat(v4l2_pix_format& format) {
    v4l2_format request = {};
    request.type = kOutput;
    request.fmt.pix = format;
    const int result = control(VIDIOC_S_FMT, &request);
    if (result == 0)
        format = request.fmt.pix;
    return result;
}

int VideoNode::requestBuffers(uint32_t& count) {
    v4l2_requestbuffers request = {};
    request.count = count;
    request.type = kOutput;
    request.memory = V4L2_MEMORY_MMAP;
    const int result = control(VIDIOC_REQBUFS, &request);
    if (result == 0)
        count = request.count;
    return result;
}

int VideoNode::queryBuffer(uint32_t index, v4l2_buffer& buffer) {
    buffer = {};
    buffer.index = index;
    buffer.type = kOutput;
    buffer.memory = V4L2_MEMORY_MMAP;
    return control(VIDIOC_QUERYBUF, &buffer);
}

int VideoNode::queueBuffer(uint32_t index, uint32_t bytesused) {
    v4l2_buffer buffer = {};
    buffer.index = index;
    buffer.type = kOutput;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.bytesused = bytesused;
    buffer.field = V4L2_FIELD_NONE;
    return control(VIDIOC_QBUF, &buffer);
}

int VideoNode::dequeueBuffer(uint32_t& index) {
    v4l2_buffer buffer = {};
    buffer.type = kOutput;
    buffer.memory = V4L2_MEMORY_MMAP;
    const int result = control(VIDIOC_DQBUF, &buffer);
    if (result == 0)
        index = buffer.index;
    return result;
}

int VideoNode::streamOn() {
    int type = kOutput;
    return control(VIDIOC_STREAMON, &type);
}

int VideoNode::streamOff() {
    int type = kOutput;
    return control(VIDIOC_STREAMOFF, &type);
}

}  // namespace uvc_gadget
