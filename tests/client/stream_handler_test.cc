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

long repeatNs(const util::hidl_uvc_client::timer* t) {
    struct itimerspec s = {};
    timerfd_gettime(t->wakealarm_fd, &s);
    return s.it_interval.tv_sec * 1000000000L + s.it_interval.tv_nsec;
}

bool armed(const util::hidl_uvc_client::timer* t) {
    struct itimerspec s = {};
    timerfd_gettime(t->wakealarm_fd, &s);
    return s.it_value.tv_sec != 0 || s.it_value.tv_nsec != 0;
}

// A handler driven directly, without a running loop: its timers only arm.
class StreamHandlerTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        ASSERT_EQ(0, event_loop_init());
    }
    void change(StreamHandler& h, const trevo::HalUvcConfig& c, uint8_t id = 0, uint8_t idx = 0) {
        host.setConfig(id, idx, c);
        h.HandleStreamChanged();
    }
    trevo::CompositorBridge bridge{trevo::BRIDGE_CONTEXT_UVC};
};

TEST_F(StreamHandlerTest, NewHandlerHasDefaultsAndLogsTwoLines) {
    android_standin::LogCapture log;
    StreamHandler h(bridge, 2, 5);
    auto lines = log.withTag("StreamHandler");
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ(ANDROID_LOG_INFO, lines[0].priority);
    EXPECT_EQ("Stream client starting: [2] [5]\n", lines[0].text);
    EXPECT_EQ("Stream client started: [2] [5]\n", lines[1].text);
    EXPECT_EQ(nullptr, h.buffersForTest());
    EXPECT_EQ(nullptr, h.bufferMgmtForTest());
    EXPECT_FALSE(armed(h.wakeTimerForTest()));
    EXPECT_FALSE(armed(h.streamBufferForTest()->timerForTest()));
    EXPECT_FALSE(h.getBuffer());
    EXPECT_EQ(0, h.appliedConfiguration().width);
    EXPECT_EQ(",", h.appliedConfiguration().label);
}

TEST_F(StreamHandlerTest, StreamingChangeMakesBuffersAndArmsBothTimers) {
    StreamHandler h(bridge, 0, 0);
    change(h, streamConfig(1280, 720, 30, DemoBuffer::kFormatYUYV, 1));
    ASSERT_NE(nullptr, h.buffersForTest());
    ASSERT_NE(nullptr, h.bufferMgmtForTest());
    EXPECT_EQ(3686400u, h.buffersForTest()->size);
    EXPECT_EQ(5, h.buffersForTest()->fillQ.size());
    EXPECT_TRUE(armed(h.wakeTimerForTest()));
    EXPECT_EQ(33333337, repeatNs(h.wakeTimerForTest()));
    EXPECT_EQ(33333337, repeatNs(h.streamBufferForTest()->timerForTest()));
    EXPECT_EQ(1280, h.appliedConfiguration().width);
    EXPECT_EQ(std::vector<std::string>{"send test message"}, host.appMessages());
    EXPECT_EQ(1u, host.countCalls("getConfiguration(0:0)"));
}

TEST_F(StreamHandlerTest, StopAndRestartKeepTheBuffersAndFormatChangeRemakesThem) {
    StreamHandler h(bridge, 1, 2);
    change(h, streamConfig(64, 48, 30, DemoBuffer::kFormatYUYV, 1), 1, 2);
    const auto* pool = h.buffersForTest();
    const auto* mgmt = h.bufferMgmtForTest();
    change(h, streamConfig(64, 48, 30, DemoBuffer::kFormatYUYV, 0), 1, 2);
    EXPECT_EQ(pool, h.buffersForTest());
    EXPECT_EQ(mgmt, h.bufferMgmtForTest());
    EXPECT_FALSE(armed(h.wakeTimerForTest()));
    EXPECT_FALSE(armed(h.streamBufferForTest()->timerForTest()));
    change(h, streamConfig(64, 48, 30, DemoBuffer::kFormatYUYV, 1), 1, 2);
    EXPECT_EQ(pool, h.buffersForTest());
    EXPECT_TRUE(armed(h.wakeTimerForTest()));
    change(h, streamConfig(64, 48, 30, DemoBuffer::kFormatNV12, 1), 1, 2);
    EXPECT_NE(pool, h.buffersForTest());
    EXPECT_NE(mgmt, h.bufferMgmtForTest());
    EXPECT_EQ(4u, host.appMessages().size());
}

TEST_F(StreamHandlerTest, SizeZeroCleansThePoolAndTheEarlierSetupWorksAgain) {
    StreamHandler h(bridge, 0, 0);
    change(h, streamConfig(64, 48, 30, DemoBuffer::kFormatYUYV, 1));
    const auto* pool = h.buffersForTest();
    change(h, streamConfig(0, 48, 30, DemoBuffer::kFormatYUYV, 1));
    EXPECT_EQ(pool, h.buffersForTest());
    EXPECT_EQ(2, h.buffersForTest()->state.load());
    EXPECT_FALSE(h.getBuffer());
    EXPECT_FALSE(armed(h.wakeTimerForTest()));
    EXPECT_EQ(64, h.appliedConfiguration().width);  // unchanged

    // Back to exactly the applied setup: a working pool, and streaming.
    change(h, streamConfig(64, 48, 30, DemoBuffer::kFormatYUYV, 1));
    ASSERT_NE(nullptr, h.buffersForTest());
    EXPECT_EQ(0, h.buffersForTest()->state.load());
    EXPECT_TRUE(armed(h.wakeTimerForTest()));
    auto b = h.getBuffer();
    ASSERT_TRUE(b);
    EXPECT_EQ(64u * 48 * 4, b->capacity);
    h.sendBuffer(std::move(b));
}

TEST_F(StreamHandlerTest, UnusableFrameRateOrSizeStartsNothingAndSaysWhy) {
    StreamHandler h(bridge, 0, 1);
    android_standin::LogCapture log;
    change(h, streamConfig(64, 48, 0, DemoBuffer::kFormatYUYV, 1), 0, 1);
    EXPECT_FALSE(armed(h.wakeTimerForTest()));
    EXPECT_FALSE(armed(h.streamBufferForTest()->timerForTest()));
    EXPECT_NE(nullptr, h.buffersForTest());
    change(h, streamConfig(64, 48, -30, DemoBuffer::kFormatYUYV, 1), 0, 1);
    EXPECT_FALSE(armed(h.wakeTimerForTest()));
    change(h, streamConfig(40000, 40000, 30, DemoBuffer::kFormatYUYV, 1), 0, 1);
    EXPECT_FALSE(armed(h.wakeTimerForTest()));
    EXPECT_EQ(2, h.buffersForTest()->state.load());
    auto lines = log.withTag("StreamHandler");
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ(ANDROID_LOG_WARN, lines[0].priority);
    EXPECT_EQ("Stream [0] [1]: frame rate 0 cannot be streamed, not started\n", lines[0].text);
    EXPECT_EQ("Stream [0] [1]: frame rate -30 cannot be streamed, not started\n", lines[1].text);
    EXPECT_EQ("Stream [0] [1]: frame 40000x40000 is too large, not started\n", lines[2].text);
    // A usable rate later starts the stream.
    change(h, streamConfig(64, 48, 25, DemoBuffer::kFormatYUYV, 1), 0, 1);
    EXPECT_EQ(40000000, repeatNs(h.wakeTimerForTest()));
}

TEST_F(StreamHandlerTest, HandOverNeedsStreamingButSendDataDoesNot) {
    StreamHandler h(bridge, 0, 0);
    change(h, streamConfig(16, 8, 30, DemoBuffer::kFormatYUYV, 0));
    auto b = h.getBuffer();
    ASSERT_TRUE(b);
    b->length = 16;
    h.sendBuffer(std::move(b));
    EXPECT_EQ(1, h.buffersForTest()->sendQ.size());
    {
        // The timer callback must not even wait for the lock while the host
        // is not streaming.
        std::unique_lock<std::mutex> held(h.lockForTest());
        auto done = std::async(std::launch::async, [&] { h.AutoUpdateTimeoutHandler(); });
        EXPECT_EQ(std::future_status::ready, done.wait_for(2s));
    }
    EXPECT_EQ(1, h.buffersForTest()->sendQ.size());
    h.sendData();
    EXPECT_EQ(0, h.buffersForTest()->sendQ.size());
    EXPECT_EQ(5, h.buffersForTest()->fillQ.size());
    EXPECT_EQ(1, h.bufferMgmtForTest()->convertQ.size());
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
