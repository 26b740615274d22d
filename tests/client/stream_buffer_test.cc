#include <android/log.h>
#include <sys/timerfd.h>

#include <future>

#include "android_testing.h"
#include "client/StreamBuffer.h"
#include "client/StreamHandler.h"
#include "client_harness.h"

namespace client_test {
namespace {

using hidl_uvc_client::StreamHandler;
using uvc_client::DemoBuffer;
using uvc_client::StreamBuffer;

// The handler's own frame source, driven by direct calls (no loop running).
class StreamBufferTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        ASSERT_EQ(0, event_loop_init());
        handler = std::make_unique<StreamHandler>(bridge, 0, 0);
    }
    void change(const trevo::HalUvcConfig& c) {
        host.setConfig(0, 0, c);
        handler->HandleStreamChanged();
    }
    StreamBuffer& source() { return *handler->streamBufferForTest(); }
    trevo::CompositorBridge bridge{trevo::BRIDGE_CONTEXT_UVC};
    std::unique_ptr<StreamHandler> handler;
};

TEST_F(StreamBufferTest, UnusableConfigurationTakesNoBuffer) {
    change(streamConfig(16, 8, 30, DemoBuffer::kFormatYUYV, 0));  // not streaming
    source().LoadFrameTimeoutHandler();
    EXPECT_EQ(5, handler->buffersForTest()->fillQ.size());
    EXPECT_EQ(0, handler->buffersForTest()->sendQ.size());
    change(streamConfig(0, 8, 30, DemoBuffer::kFormatYUYV, 1));  // cleaned pool
    source().LoadFrameTimeoutHandler();
    EXPECT_EQ(0, handler->buffersForTest()->sendQ.size());
}

TEST_F(StreamBufferTest, QueuesOneFrameOfTheMadeLengthPerExpiry) {
    change(streamConfig(16, 8, 30, DemoBuffer::kFormatYU12, 1));
    auto* pool = handler->buffersForTest();
    for (int i = 0; i < 5; ++i) {
        source().LoadFrameTimeoutHandler();
    }
    EXPECT_EQ(0, pool->fillQ.size());
    EXPECT_EQ(5, pool->sendQ.size());
    // Pool empty: the expiry does nothing.
    source().LoadFrameTimeoutHandler();
    EXPECT_EQ(5, pool->sendQ.size());
    EXPECT_EQ(5 * 8 % 256, source().demoForTest().yu12Value);
    std::unique_ptr<hidl_uvc_client::DynamicBuffer> frame;
    pool->sendQ.pop(frame);
    EXPECT_EQ(16u * 3 / 2 * 8, frame->length);
    EXPECT_EQ(0, frame->data[0]);
    EXPECT_EQ(7, frame->data[frame->length - 1]);
    handler->sendBuffer(std::move(frame));
    // Unsupported format: still queued, with length 0.
    change(streamConfig(16, 8, 30, 0x30303030, 1));
    testing::internal::CaptureStdout();
    source().LoadFrameTimeoutHandler();
    testing::internal::GetCapturedStdout();
    handler->buffersForTest()->sendQ.pop(frame);
    EXPECT_EQ(0u, frame->length);
    handler->sendBuffer(std::move(frame));
}

TEST_F(StreamBufferTest, StartArmsAndStopDisarmsWithUntaggedLines) {
    const auto* t = source().timerForTest();
    source().startStream(1.0 / 30);
    struct itimerspec s = {};
    timerfd_gettime(t->wakealarm_fd, &s);
    EXPECT_EQ(33333337, s.it_interval.tv_nsec);
    EXPECT_GT(s.it_value.tv_nsec, 0);
    android_standin::LogCapture log;
    source().stopStream();
    timerfd_gettime(t->wakealarm_fd, &s);
    EXPECT_EQ(0, s.it_interval.tv_nsec + s.it_value.tv_nsec);
    auto lines = log.withTag("");
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(ANDROID_LOG_INFO, lines[0].priority);
    EXPECT_EQ("wakealarm_set_interval: 0 ms\n", lines[0].text);
}

TEST_F(StreamBufferTest, StreamChangeWaitsForTheFrameInHand) {
    change(streamConfig(16, 8, 30, DemoBuffer::kFormatYUYV, 1));
    std::future<void> changed;
    {
        auto inHand = handler->frameLock();
        host.setConfig(0, 0, streamConfig(32, 8, 30, DemoBuffer::kFormatYUYV, 1));
        changed = std::async(std::launch::async, [&] { handler->HandleStreamChanged(); });
        EXPECT_EQ(std::future_status::timeout, changed.wait_for(50ms));
        // The configuration seen by the frame is still the applied one.
        EXPECT_EQ(16, handler->getConfig().width);
    }
    EXPECT_EQ(std::future_status::ready, changed.wait_for(5s));
    EXPECT_EQ(32, handler->appliedConfiguration().width);
}

}  // namespace
}  // namespace client_test
