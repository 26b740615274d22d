#pragma once

#include <android/hardware_buffer.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "io/EventLoop.h"
#include "io/NodeDiscovery.h"
#include "io/OutputBuffers.h"
#include "io/VideoNode.h"
#include "trevo/ConnectionStatus.h"
#include "trevo/HalUvcConfig.h"
#include "uvc/GadgetFunction.h"
#include "uvc/RequestHandler.h"

namespace uvc_gadget {

// What a stream port tells the rest of the bridge, on the event thread.
class PortListener {
public:
    virtual ~PortListener();
    virtual void hotplug(trevo::ConnectionStatus status, uint8_t streamId, uint8_t streamIdx) = 0;
    // Hands a camera-control message to the library; returns the messages
    // the library sent back (onAppMessage) while it handled it.
    virtual std::vector<std::string> setting(const std::string& message, uint8_t streamId,
                                             uint8_t streamIdx) = 0;
};

// One UVC gadget function seen as one of the library's streams: its video
// node, the host's control requests and the output buffers that carry the
// library's frames to the host.
//
// The event thread (onPoll) handles the gadget's events: CONNECT and
// DISCONNECT, SETUP and DATA (answered through RequestHandler), STREAMON
// (sets the committed format, maps kBufferCount buffers, starts the node) and
// STREAMOFF; a change of streaming tells the listener with status 4, after
// the port's own lock is released. Finished output buffers are taken back
// when the node reports them (POLLOUT) or when sendFrame finds none free.
// A node that disappears (the gadget unbound from its controller) ends the
// stream and is closed; the bridge opens the function's node again when it
// is back (reopen).
// configuration() and sendFrame() are thread-safe; sendFrame holds the lock
// for one copy, so the event thread waits at most that long.
class StreamPort : public PollSource {
public:
    static constexpr uint32_t kBufferCount = 4;

    StreamPort(GadgetNode node, GadgetFunction function, PortListener& listener);
    // Stops a running stream and closes the node, which disconnects the
    // function from the host.
    ~StreamPort() override;
    StreamPort(const StreamPort&) = delete;
    StreamPort& operator=(const StreamPort&) = delete;

    // Opens the node and subscribes to the UVC events, SETUP last: once that
    // succeeds the gadget connects to the host. False with a reason otherwise,
    // nothing left subscribed or open.
    bool open(std::string& error);
    // The same with a node already open (a stand-in, in tests).
    bool open(std::unique_ptr<VideoNode> video, std::string& error);

    uint8_t streamId() const { return node_.streamId; }
    uint8_t streamIdx() const { return node_.streamIdx; }
    const std::string& functionDir() const { return node_.functionDir; }

    // Event thread only: whether the node vanished (see lose()), and opening
    // the function's node again once it is back, with the function's
    // declaration as it is now. False with a reason when the node cannot be
    // opened; the port stays lost.
    bool lost() const { return lost_; }
    bool reopen(const std::string& videoPath, GadgetFunction function, std::string& error);

    // The running stream's format while the host streams, else the last
    // committed one (the function's default before any commit).
    trevo::HalUvcConfig configuration() const;
    // Copies `size` bytes of the frame in `buffer` into a free output buffer
    // and queues it. 0 when queued or dropped (not streaming, no free buffer,
    // frame larger than the buffer, any other failure to queue). When the
    // host is gone, a negative errno once (-ENOTCONN when it disconnected,
    // -ENODEV or -ESHUTDOWN when queueing found it gone), then 0 until it
    // connects or starts a stream again: the library takes every failure
    // for a lost connection.
    int sendFrame(AHardwareBuffer* buffer, uint32_t size);

    int pollFd() const override;
    short pollEvents() const override;
    void onPoll(short revents) override;

private:
    // The library's settings, reached through the listener.
    class LibrarySettings : public SettingChannel {
    public:
        explicit LibrarySettings(StreamPort& port) : port_(port) {}
        void set(const std::string& name, int32_t value) override;
        std::optional<int32_t> get(const std::string& name) override;

    private:
        StreamPort& port_;
    };

    void handleEvent(const v4l2_event& event);
    // With mutex_ held.
    bool startStreaming(std::string& error);
    void stopStreaming();
    void reclaimBuffers();
    // `error` when the host's loss was not reported yet, else 0.
    int reportLoss(int error);
    // The node went away (its gadget was unbound): stops the stream and
    // closes the node, which would otherwise poll as ready forever and keep
    // the unbind waiting.
    void lose();

    GadgetNode node_;  // videoPath changes on the event thread only
    PortListener& listener_;
    LibrarySettings settings_;
    std::unique_ptr<RequestHandler> requests_;  // event thread only

    mutable std::mutex mutex_;
    std::unique_ptr<VideoNode> video_;  // null once lost
    std::unique_ptr<OutputBuffers> buffers_;
    bool connected_ = false;
    bool streaming_ = false;
    bool lossReported_ = false;  // cleared when the host connects or streams
    bool lost_ = false;  // written under mutex_ on the event thread, read there
    StreamFormat committed_;
    StreamFormat active_;
    uint64_t sent_ = 0;
    uint64_t dropped_ = 0;
};

}  // namespace uvc_gadget
