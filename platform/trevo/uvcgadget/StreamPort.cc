#include "StreamPort.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <android/log.h>

#include "uvc/SettingMessages.h"

namespace uvc_gadget {

namespace {

const char kTag[] = "UvcGadget";

// The events the bridge handles; SETUP comes last because subscribing to it
// is what lets the function connect to the host.
const uint32_t kEvents[] = {UVC_EVENT_CONNECT,   UVC_EVENT_DISCONNECT, UVC_EVENT_STREAMON,
                            UVC_EVENT_STREAMOFF, UVC_EVENT_DATA,       UVC_EVENT_SETUP};

const uvc_event& uvcEvent(const v4l2_event& event) {
    static_assert(sizeof(uvc_event) <= sizeof(event.u.data), "uvc_event fits the event data");
    return *reinterpret_cast<const uvc_event*>(event.u.data);
}

}  // namespace

PortListener::~PortListener() = default;

void StreamPort::LibrarySettings::set(const std::string& name, int32_t value) {
    port_.listener_.setting(makeSetMessage(name, value), port_.streamId(), port_.streamIdx());
}

std::optional<int32_t> StreamPort::LibrarySettings::get(const std::string& name) {
    const std::vector<std::string> replies =
        port_.listener_.setting(makeGetMessage(name), port_.streamId(), port_.streamIdx());
    for (const std::string& reply : replies) {
        if (std::optional<int32_t> value = replyValue(reply, name))
            return value;
    }
    return std::nullopt;
}

StreamPort::StreamPort(GadgetNode node, GadgetFunction function, PortListener& listener)
    : node_(std::move(node)),
      listener_(listener),
      settings_(*this),
      requests_(std::make_unique<RequestHandler>(std::move(function), settings_)),
      committed_(requests_->probeCommit().committedFormat()) {}

StreamPort::~StreamPort() {
    std::lock_guard<std::mutex> guard(mutex_);
    stopStreaming();
    video_.reset();
}

bool StreamPort::open(std::string& error) {
    std::unique_ptr<VideoNode> video = VideoNode::open(node_.videoPath, error);
    return video && open(std::move(video), error);
}

bool StreamPort::open(std::unique_ptr<VideoNode> video, std::string& error) {
    for (uint32_t type : kEvents) {
        const int result = video->subscribe(type);
        if (result != 0) {
            error = node_.videoPath + ": subscribing to UVC event " +
                    std::to_string(type - UVC_EVENT_FIRST) + " failed: " + strerror(-result);
            // Closing the node drops the subscriptions as well; undo them
            // first so that the function is never left half set up.
            video->unsubscribeAll();
            return false;
        }
    }
    std::lock_guard<std::mutex> guard(mutex_);
    video_ = std::move(video);
    return true;
}

trevo::HalUvcConfig StreamPort::configuration() const {
    std::lock_guard<std::mutex> guard(mutex_);
    const StreamFormat& format = streaming_ ? active_ : committed_;
    trevo::HalUvcConfig config;
    config.width = format.width;
    config.height = format.height;
    config.fps = format.fps();
    config.format = format.fourcc;
    config.streaming = streaming_ ? 1 : 0;
    return config;
}

int StreamPort::sendFrame(AHardwareBuffer* buffer, uint32_t size) {
    std::lock_guard<std::mutex> guard(mutex_);
    if (!connected_)
        return reportLoss(-ENOTCONN);
    if (!streaming_ || buffer == nullptr || size == 0) {
        ++dropped_;
        return 0;
    }
    int index = buffers_->take();
    if (index < 0) {
        reclaimBuffers();
        index = buffers_->take();
    }
    if (index < 0) {
        // The host is slower than the library; never wait for it.
        ++dropped_;
        return 0;
    }
    const uint32_t slot = static_cast<uint32_t>(index);
    // A BLOB buffer holds `width` bytes; never read past them.
    AHardwareBuffer_Desc desc = {};
    AHardwareBuffer_describe(buffer, &desc);
    const uint64_t capacity = uint64_t(desc.width) * desc.height;
    void* source = nullptr;
    if (size > capacity || size > buffers_->length(slot) ||
        AHardwareBuffer_lock(buffer, AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN, -1, nullptr, &source) !=
            0) {
        if (dropped_++ == 0)
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "stream %u:%u: frame of %u bytes dropped (buffer holds %zu); "
                                "later drops are only counted",
                                streamId(), streamIdx(), size, buffers_->length(slot));
        buffers_->release(slot);
        return 0;
    }
    memcpy(buffers_->data(slot), source, size);
    AHardwareBuffer_unlock(buffer, nullptr);
    const int result = video_->queueBuffer(slot, size);
    if (result != 0) {
        buffers_->release(slot);
        ++dropped_;
        // The host went away: the function fails every buffer until the
        // stream is stopped. Anything else costs one frame.
        return result == -ENODEV || result == -ESHUTDOWN ? reportLoss(result) : 0;
    }
    ++sent_;
    return 0;
}

int StreamPort::reportLoss(int error) {
    return std::exchange(lossReported_, true) ? 0 : error;
}

bool StreamPort::reopen(const std::string& videoPath, GadgetFunction function, std::string& error) {
    node_.videoPath = videoPath;
    auto requests = std::make_unique<RequestHandler>(std::move(function), settings_);
    const StreamFormat format = requests->probeCommit().committedFormat();
    if (!open(error))
        return false;
    requests_ = std::move(requests);
    std::lock_guard<std::mutex> guard(mutex_);
    committed_ = format;
    lost_ = false;
    __android_log_print(ANDROID_LOG_INFO, kTag, "stream %u:%u: %s opened again", streamId(),
                        streamIdx(), videoPath.c_str());
    return true;
}

int StreamPort::pollFd() const {
    // poll() skips negative descriptors: a lost node is closed and no longer
    // watched.
    return lost_ ? -1 : video_->fd();
}

void StreamPort::lose() {
    __android_log_print(ANDROID_LOG_ERROR, kTag,
                        "stream %u:%u: %s is gone (gadget unbound?); it is served again once "
                        "its function has a node",
                        streamId(), streamIdx(), node_.videoPath.c_str());
    bool wasStreaming;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        wasStreaming = streaming_;
        stopStreaming();
        connected_ = false;
        lost_ = true;
        // The function's unbind waits until the node is closed.
        video_.reset();
    }
    if (wasStreaming)
        listener_.hotplug(trevo::CONNECTION_STATUS_STREAM_CHANGED, streamId(), streamIdx());
}

short StreamPort::pollEvents() const {
    // Asking an output queue for POLLOUT before it has buffers would start
    // the driver's write() emulation; only a streaming node is asked.
    return streaming_ ? POLLPRI | POLLOUT : POLLPRI;
}

void StreamPort::onPoll(short revents) {
    if ((revents & POLLPRI) != 0) {
        v4l2_event event;
        int result;
        while ((result = video_->dequeueEvent(event)) == 0)
            handleEvent(event);
        if (result == -ENODEV) {
            lose();
            return;
        }
    }
    if ((revents & POLLHUP) != 0) {
        lose();
        return;
    }
    if ((revents & POLLOUT) != 0) {
        std::lock_guard<std::mutex> guard(mutex_);
        reclaimBuffers();
    }
    if ((revents & POLLERR) != 0 && streaming_) {
        // The queue stopped under the stream (an error or a lost host): end
        // the stream rather than poll a failed queue in a loop.
        __android_log_print(ANDROID_LOG_ERROR, kTag, "stream %u:%u: output queue failed",
                            streamId(), streamIdx());
        {
            std::lock_guard<std::mutex> guard(mutex_);
            stopStreaming();
        }
        listener_.hotplug(trevo::CONNECTION_STATUS_STREAM_CHANGED, streamId(), streamIdx());
    }
}

void StreamPort::handleEvent(const v4l2_event& event) {
    const uvc_event& uvc = uvcEvent(event);
    switch (event.type) {
        case UVC_EVENT_CONNECT: {
            __android_log_print(ANDROID_LOG_INFO, kTag, "stream %u:%u: host connected (speed %d)",
                                streamId(), streamIdx(), static_cast<int>(uvc.speed));
            std::lock_guard<std::mutex> guard(mutex_);
            connected_ = true;
            lossReported_ = false;
            break;
        }
        case UVC_EVENT_DISCONNECT: {
            __android_log_print(ANDROID_LOG_INFO, kTag, "stream %u:%u: host disconnected",
                                streamId(), streamIdx());
            bool wasStreaming;
            {
                std::lock_guard<std::mutex> guard(mutex_);
                wasStreaming = streaming_;
                stopStreaming();
                connected_ = false;
            }
            if (wasStreaming)
                listener_.hotplug(trevo::CONNECTION_STATUS_STREAM_CHANGED, streamId(), streamIdx());
            break;
        }
        case UVC_EVENT_STREAMON: {
            std::string error;
            bool wasStreaming, started;
            {
                std::lock_guard<std::mutex> guard(mutex_);
                // A host may stream without a CONNECT seen first (bridge started
                // late); streaming proves the connection.
                connected_ = true;
                wasStreaming = streaming_;
                started = startStreaming(error);
            }
            if (!started)
                __android_log_print(ANDROID_LOG_ERROR, kTag, "stream %u:%u: not started: %s",
                                    streamId(), streamIdx(), error.c_str());
            // A failed restart has stopped the stream that ran.
            if (started || wasStreaming)
                listener_.hotplug(trevo::CONNECTION_STATUS_STREAM_CHANGED, streamId(),
                                  streamIdx());
            break;
        }
        case UVC_EVENT_STREAMOFF: {
            {
                std::lock_guard<std::mutex> guard(mutex_);
                stopStreaming();
            }
            listener_.hotplug(trevo::CONNECTION_STATUS_STREAM_CHANGED, streamId(), streamIdx());
            break;
        }
        case UVC_EVENT_SETUP: {
            const int result = video_->sendResponse(requests_->setup(uvc.req));
            if (result != 0)
                __android_log_print(ANDROID_LOG_WARN, kTag, "stream %u:%u: response failed: %s",
                                    streamId(), streamIdx(), strerror(-result));
            break;
        }
        case UVC_EVENT_DATA:
            if (requests_->data(uvc.data)) {
                const StreamFormat format = requests_->probeCommit().committedFormat();
                __android_log_print(ANDROID_LOG_INFO, kTag,
                                    "stream %u:%u: committed %.4s %ux%u at %d fps", streamId(),
                                    streamIdx(), reinterpret_cast<const char*>(&format.fourcc),
                                    format.width, format.height, format.fps());
                std::lock_guard<std::mutex> guard(mutex_);
                committed_ = format;
            }
            break;
        default:
            break;
    }
}

bool StreamPort::startStreaming(std::string& error) {
    stopStreaming();
    if (committed_.width == 0) {
        error = "no format committed";
        return false;
    }
    v4l2_pix_format pix = {};
    pix.width = committed_.width;
    pix.height = committed_.height;
    pix.pixelformat = committed_.fourcc;
    pix.field = V4L2_FIELD_NONE;
    pix.sizeimage = committed_.maxFrameSize;
    int result = video_->setFormat(pix);
    if (result != 0) {
        error = std::string("setting the format failed: ") + strerror(-result);
        return false;
    }
    std::unique_ptr<OutputBuffers> buffers = OutputBuffers::allocate(*video_, kBufferCount, error);
    if (!buffers)
        return false;
    result = video_->streamOn();
    if (result != 0) {
        error = std::string("starting the node failed: ") + strerror(-result);
        return false;  // `buffers` unmaps and releases on the way out
    }
    buffers_ = std::move(buffers);
    streaming_ = true;
    lossReported_ = false;
    active_ = committed_;
    sent_ = 0;
    dropped_ = 0;
    __android_log_print(ANDROID_LOG_INFO, kTag,
                        "stream %u:%u: streaming %ux%u, %zu buffers of %zu bytes", streamId(),
                        streamIdx(), active_.width, active_.height, buffers_->count(),
                        buffers_->length(0));
    return true;
}

void StreamPort::stopStreaming() {
    if (!streaming_)
        return;
    streaming_ = false;
    video_->streamOff();
    buffers_.reset();
    __android_log_print(ANDROID_LOG_INFO, kTag,
                        "stream %u:%u: stopped after %llu frames sent, %llu dropped", streamId(),
                        streamIdx(), static_cast<unsigned long long>(sent_),
                        static_cast<unsigned long long>(dropped_));
}

void StreamPort::reclaimBuffers() {
    if (!buffers_)
        return;
    uint32_t index = 0;
    while (video_->dequeueBuffer(index) == 0)
        buffers_->release(index);
}

}  // namespace uvc_gadget
