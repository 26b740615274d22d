#include <gtest/gtest.h>

#include <poll.h>
#include <sys/mman.h>

#include <cerrno>
#include <deque>

#include "GadgetTestSupport.h"
#include "StreamPort.h"

using namespace uvc_gadget;

namespace {

constexpr size_t kBufferBytes = 64 * 1024;  // a multiple of any page size

// A gadget node without a kernel: hands out the events a test queues, maps
// its buffers from memory and fails STREAMON or QBUF as told.
class StandInNode : public VideoNode {
public:
    StandInNode() : VideoNode(UniqueFd(memfd_create("buffers", MFD_CLOEXEC)), "/dev/video9") {
        EXPECT_EQ(ftruncate(fd(), off_t(kBufferBytes * StreamPort::kBufferCount)), 0);
    }

    std::deque<uint32_t> events;
    int streamOnResult = 0, queueResult = 0, queued = 0;

protected:
    int control(unsigned long request, void* argument) override {
        auto* buffer = static_cast<v4l2_buffer*>(argument);
        switch (request) {
            case VIDIOC_DQEVENT:
                if (events.empty())
                    return -ENOENT;
                static_cast<v4l2_event*>(argument)->type = events.front();
                events.pop_front();
                return 0;
            case VIDIOC_QUERYBUF:
                buffer->length = kBufferBytes;
                buffer->m.offset = buffer->index * kBufferBytes;
                return 0;
            case VIDIOC_STREAMON:
                return streamOnResult;
            case VIDIOC_QBUF:
                queued += queueResult == 0;
                return queueResult;
            case VIDIOC_DQBUF:
                return -EAGAIN;
            default:
                return 0;
        }
    }
};

// A port on a stand-in node; records what the library reads back at each
// hotplug.
struct Port : testing::Test, PortListener {
    StandInNode* node = new StandInNode;
    StreamPort port{GadgetNode{"/dev/video9", "/cfg/uvc.0", 0, 0}, gadget_test::twoFormats(),
                    *this};
    std::vector<int32_t> streamingAtHotplug;
    AHardwareBuffer* frame = nullptr;

    void SetUp() override {
        std::string error;
        ASSERT_TRUE(port.open(std::unique_ptr<VideoNode>(node), error)) << error;
        const AHardwareBuffer_Desc desc = {4096, 1, 1, AHARDWAREBUFFER_FORMAT_BLOB,
                                           AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN, 0, 0, 0};
        ASSERT_EQ(AHardwareBuffer_allocate(&desc, &frame), 0);
    }
    void TearDown() override { AHardwareBuffer_release(frame); }

    void hotplug(trevo::ConnectionStatus, uint8_t, uint8_t) override {
        streamingAtHotplug.push_back(port.configuration().streaming);
    }
    std::vector<std::string> setting(const std::string&, uint8_t, uint8_t) override { return {}; }

    void event(uint32_t type) {
        node->events.push_back(type);
        port.onPoll(POLLPRI);
    }
    int send() { return port.sendFrame(frame, 4096); }
};

}  // namespace

// A restart whose STREAMON fails has already stopped the running stream: the
// library hears that the stream stopped.
TEST_F(Port, AFailedRestartReportsTheStreamStopped) {
    event(UVC_EVENT_STREAMON);
    node->streamOnResult = -ENODEV;
    event(UVC_EVENT_STREAMON);
    EXPECT_EQ(streamingAtHotplug, (std::vector<int32_t>{1, 0}));
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(node->queued, 0);
}

// Queueing fails with ENODEV or ESHUTDOWN once the host went away, until the
// stream is stopped: the library hears of it once, not for every frame, and
// again only after the host came back.
TEST_F(Port, AVanishedHostIsReportedOnceUntilItReturns) {
    for (int gone : {-ENODEV, -ESHUTDOWN}) {
        SCOPED_TRACE(gone);
        node->queueResult = 0;
        event(UVC_EVENT_STREAMON);
        EXPECT_EQ(send(), 0);
        node->queueResult = gone;
        EXPECT_EQ(send(), gone);
        EXPECT_EQ(send(), 0);
        event(UVC_EVENT_DISCONNECT);
        EXPECT_EQ(send(), 0);
        event(UVC_EVENT_CONNECT);
    }
    EXPECT_EQ(node->queued, 2);
}
