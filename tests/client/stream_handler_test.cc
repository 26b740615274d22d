#include <android/log.h>
#include <sys/timerfd.h>

#include <future>

#include "android_testing.h"
#include "client/StreamBuffer.h"
#include "client/StreamHandler.h"
#include "client/timer.h"
#include "client_harness.h"

namespace client_test {
namespace {

using hidl_uvc_client::StreamHandler;
using uvc_client::DemoBuffer;

// Repeat interval in ns; -1 when disarmed.
long period(const util::hidl_uvc_client::timer* t) {
    struct itimerspec s = {};
    timerfd_gettime(t->wakealarm_fd, &s);
    return s.it_value.tv_nsec == 0 && s.it_value.tv_sec == 0 ? -1 : s.it_interval.tv_nsec;
}

// A handler driven by direct calls, without a running loop: its timers only
// arm, and the frame source runs when the test calls it.
class StreamHandlerTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        ASSERT_EQ(0, event_loop_init());
    }
    void change(StreamHandler& h, const trevo::HalUvcConfig& c) {
        host.setConfig(0, 0, c);
        h.HandleStreamChanged();
    }
    long handOverPeriod(StreamHandler& h) { return period(h.wakeTimerForTest()); }
    long framePeriod(StreamHandler& h) { return period(h.streamBufferForTest()->timerForTest()); }
    trevo::CompositorBridge bridge{trevo::BRIDGE_CONTEXT_UVC};
};

TEST_F(StreamHandlerTest, BuffersAreMadeForANewSetupAndKeptAcrossStopAndRestart) {
    android_standin::LogCapture log;
    StreamHandler h(bridge, 0, 0);
    EXPECT_EQ(2u, log.withTag("StreamHandler").size());
    EXPECT_FALSE(h.getBuffer());
    EXPECT_EQ(-1, handOverPeriod(h));

    change(h, streamConfig(1280, 720, 30, DemoBuffer::kFormatYUYV, 1));
    auto* pool = h.buffersForTest();
    auto* mgmt = h.bufferMgmtForTest();
    ASSERT_TRUE(pool && mgmt);
    EXPECT_EQ(3686400u, pool->size);
    EXPECT_EQ(5, pool->fillQ.size());
    EXPECT_EQ(3, hardwareBuffers(*mgmt));
    EXPECT_EQ(33333337, handOverPeriod(h));
    EXPECT_EQ(33333337, framePeriod(h));

    change(h, streamConfig(1280, 720, 30, DemoBuffer::kFormatYUYV, 0));
    EXPECT_EQ(pool, h.buffersForTest());
    EXPECT_EQ(-1, handOverPeriod(h));
    EXPECT_EQ(-1, framePeriod(h));
    change(h, streamConfig(1280, 720, 30, DemoBuffer::kFormatYUYV, 1));
    EXPECT_EQ(pool, h.buffersForTest());
    EXPECT_EQ(mgmt, h.bufferMgmtForTest());
    change(h, streamConfig(1280, 720, 30, DemoBuffer::kFormatNV12, 1));
    EXPECT_NE(pool, h.buffersForTest());
    EXPECT_NE(mgmt, h.bufferMgmtForTest());
    EXPECT_EQ(std::vector<std::string>(4, "send test message"), host.appMessages());
}

TEST_F(StreamHandlerTest, SizeZeroCleansThePoolAndTheEarlierSetupWorksAgain) {
    StreamHandler h(bridge, 0, 0);
    change(h, streamConfig(64, 48, 30, DemoBuffer::kFormatYUYV, 1));
    change(h, streamConfig(0, 48, 30, DemoBuffer::kFormatYUYV, 1));
    EXPECT_EQ(2, h.buffersForTest()->state.load());
    EXPECT_FALSE(h.getBuffer());
    EXPECT_EQ(-1, handOverPeriod(h));
    EXPECT_EQ(64, h.appliedConfiguration().width);  // unchanged
    // Back to exactly the applied setup: a working pool again.
    change(h, streamConfig(64, 48, 30, DemoBuffer::kFormatYUYV, 1));
    EXPECT_EQ(0, h.buffersForTest()->state.load());
    EXPECT_EQ(33333337, handOverPeriod(h));
    auto b = h.getBuffer();
    ASSERT_TRUE(b);
    h.sendBuffer(std::move(b));
}

TEST_F(StreamHandlerTest, UnusableRateOrSizeStartsNothingAndSaysWhy) {
    StreamHandler h(bridge, 0, 0);
    android_standin::LogCapture log;
    change(h, streamConfig(64, 48, 0, DemoBuffer::kFormatYUYV, 1));
    EXPECT_EQ(-1, handOverPeriod(h));
    EXPECT_EQ(-1, framePeriod(h));
    change(h, streamConfig(40000, 40000, 30, DemoBuffer::kFormatYUYV, 1));
    EXPECT_EQ(-1, handOverPeriod(h));
    auto lines = log.withTag("StreamHandler");
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(ANDROID_LOG_WARN, lines[0].priority);
    EXPECT_EQ("Stream [0] [0]: frame rate 0 cannot be streamed, not started\n", lines[0].text);
    EXPECT_EQ("Stream [0] [0]: frame 40000x40000 is too large, not started\n", lines[1].text);
    change(h, streamConfig(64, 48, 25, DemoBuffer::kFormatYUYV, 1));
    EXPECT_EQ(40000000, handOverPeriod(h));
}

TEST_F(StreamHandlerTest, FrameSourceFillsFreeBuffersAndHandOverNeedsStreaming) {
    StreamHandler h(bridge, 0, 0);
    auto& source = *h.streamBufferForTest();
    change(h, streamConfig(16, 8, 30, DemoBuffer::kFormatYU12, 0));
    source.LoadFrameTimeoutHandler();  // not streaming: no buffer taken
    EXPECT_EQ(5, h.buffersForTest()->fillQ.size());
    change(h, streamConfig(16, 8, 30, DemoBuffer::kFormatYU12, 1));
    for (int i = 0; i < 6; ++i) {  // the sixth finds the pool empty
        source.LoadFrameTimeoutHandler();
    }
    auto* pool = h.buffersForTest();
    EXPECT_EQ(5, pool->sendQ.size());
    std::unique_ptr<hidl_uvc_client::DynamicBuffer> frame;
    pool->sendQ.pop(frame);
    EXPECT_EQ(16u * 3 / 2 * 8, frame->length);
    EXPECT_EQ(7, frame->data[frame->length - 1]);
    h.sendBuffer(std::move(frame));

    // The hand-over timer does nothing (not even wait for the lock) while
    // the host is not streaming; sendData hands over regardless.
    change(h, streamConfig(16, 8, 30, DemoBuffer::kFormatYU12, 0));
    {
        std::unique_lock<std::mutex> held(h.lockForTest());
        auto done = std::async(std::launch::async, [&] { h.AutoUpdateTimeoutHandler(); });
        EXPECT_EQ(std::future_status::ready, done.wait_for(2s));
    }
    EXPECT_EQ(5, pool->sendQ.size());
    h.sendData();
    EXPECT_EQ(4, pool->sendQ.size());
    auto* mgmt = h.bufferMgmtForTest();
    EXPECT_GE(mgmt->convertQ.size(), 1);
    EXPECT_EQ(3, hardwareBuffers(*mgmt));
}

TEST_F(StreamHandlerTest, StreamChangeWaitsForTheFrameInHand) {
    StreamHandler h(bridge, 0, 0);
    change(h, streamConfig(16, 8, 30, DemoBuffer::kFormatYUYV, 1));
    std::future<void> changed;
    {
        auto inHand = h.frameLock();
        host.setConfig(0, 0, streamConfig(32, 8, 30, DemoBuffer::kFormatYUYV, 1));
        changed = std::async(std::launch::async, [&] { h.HandleStreamChanged(); });
        EXPECT_EQ(std::future_status::timeout, changed.wait_for(50ms));
        EXPECT_EQ(16, h.getConfig().width);  // the frame's view stays whole
    }
    EXPECT_EQ(std::future_status::ready, changed.wait_for(5s));
    EXPECT_EQ(32, h.appliedConfiguration().width);
}

TEST_F(StreamHandlerTest, FrameWithoutPoolIsReleased) {
    StreamHandler h(bridge, 0, 0);
    testing::internal::CaptureStdout();
    h.sendBuffer(std::make_unique<hidl_uvc_client::DynamicBuffer>(16));
    EXPECT_EQ("Stream [0] [0]: no frame pool, frame dropped\n",
              testing::internal::GetCapturedStdout());
}

}  // namespace
}  // namespace client_test
