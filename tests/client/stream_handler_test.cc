#include <android/log.h>
#include <sys/timerfd.h>

#include <future>

#include "android_testing.h"
#include "pipeline/StreamBuffer.h"
#include "client/StreamHandler.h"
#include "client/timer.h"
#include "client_harness.h"

namespace client_test {
namespace {

using hidl_uvc_client::StreamHandler;

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
        ASSERT_EQ(0, loopInit);
    }
    void change(int w, int h, int fps, uint32_t format, int streaming) {
        host.setConfig(0, 0, streamConfig(w, h, fps, format, streaming));
        handler.HandleStreamChanged();
    }
    long handOverPeriod() { return period(handler.wakeTimerForTest()); }
    long framePeriod() { return period(handler.streamBufferForTest()->timerForTest()); }
    // The loop first: the handler registers its timers as it is made.
    const int loopInit = event_loop_init();
    const int registeredBefore = event_loop_utils::registeredCount();
    trevo::CompositorBridge bridge{trevo::BRIDGE_CONTEXT_UVC};
    StreamHandler handler{bridge, 0, 0};
};

TEST_F(StreamHandlerTest, TimersAreRegisteredAtOnceAndBuffersKeptAcrossStopAndRestart) {
    // Before any stream change both timers are in the loop's set (unarmed:
    // AnIdleLibraryDoesNotWake).
    EXPECT_EQ(registeredBefore + 2, event_loop_utils::registeredCount());
    EXPECT_FALSE(handler.getBuffer());
    testing::internal::CaptureStdout();
    handler.sendBuffer(std::make_unique<hidl_uvc_client::DynamicBuffer>(16));
    EXPECT_EQ("Stream [0] [0]: no frame pool, frame dropped\n",
              testing::internal::GetCapturedStdout());
    change(1280, 720, 30, DemoBuffer::kFormatYUYV, 1);
    auto* pool = handler.buffersForTest();
    EXPECT_EQ(33333337, framePeriod());
    change(1280, 720, 30, DemoBuffer::kFormatYUYV, 0);
    EXPECT_EQ(-1, handOverPeriod());
    EXPECT_EQ(-1, framePeriod());
    change(1280, 720, 30, DemoBuffer::kFormatYUYV, 1);
    EXPECT_EQ(pool, handler.buffersForTest());
    EXPECT_EQ(33333337, handOverPeriod());
    change(1280, 720, 30, DemoBuffer::kFormatNV12, 1);
    EXPECT_NE(pool, handler.buffersForTest());
    EXPECT_EQ(std::vector<std::string>(4, "send test message"), host.appMessages());
}

TEST_F(StreamHandlerTest, UnusableSetupsStartNothingAndTheEarlierSetupWorksAgain) {
    android_standin::LogCapture log;
    const int refusedRates[] = {0, -5, 241, 100000000, 2147483647};
    for (int fps : refusedRates) {
        change(64, 48, 30, DemoBuffer::kFormatYUYV, 1);
        change(64, 48, fps, DemoBuffer::kFormatYUYV, 1);
        EXPECT_EQ(-1, framePeriod()) << fps;
        EXPECT_EQ(-1, handOverPeriod()) << fps;
    }
    change(64, 48, 240, DemoBuffer::kFormatYUYV, 1);  // the highest rate streamed
    EXPECT_EQ(4166668, handOverPeriod());
    change(40000, 40000, 30, DemoBuffer::kFormatYUYV, 1);
    EXPECT_EQ(-1, handOverPeriod());
    auto lines = log.withTag("StreamHandler");
    ASSERT_EQ(6u, lines.size());
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(ANDROID_LOG_WARN, lines[i].priority);
        EXPECT_EQ("Stream [0] [0]: frame rate " + std::to_string(refusedRates[i]) +
                      " cannot be streamed, not started\n",
                  lines[i].text);
    }
    EXPECT_EQ("Stream [0] [0]: frame 40000x40000 is too large, not started\n", lines[5].text);

    change(64, 48, 30, DemoBuffer::kFormatYUYV, 1);
    change(0, 48, 30, DemoBuffer::kFormatYUYV, 1);  // size 0 cleans the pool
    EXPECT_FALSE(handler.getBuffer());
    EXPECT_EQ(-1, handOverPeriod());
    EXPECT_EQ(64, handler.appliedConfiguration().width);  // unchanged
    change(64, 48, 30, DemoBuffer::kFormatYUYV, 1);       // exactly back: a working pool again
    EXPECT_EQ(33333337, handOverPeriod());
    EXPECT_TRUE(handler.getBuffer());
}

TEST_F(StreamHandlerTest, FrameSourceFillsFreeBuffersAndHandOverNeedsStreaming) {
    auto& source = *handler.streamBufferForTest();
    change(16, 8, 30, DemoBuffer::kFormatYU12, 0);
    source.LoadFrameTimeoutHandler();  // not streaming: no buffer taken
    EXPECT_EQ(5, handler.buffersForTest()->fillQ.size());
    change(16, 8, 30, DemoBuffer::kFormatYU12, 1);
    for (int i = 0; i < 6; ++i) {  // the sixth finds the pool empty
        source.LoadFrameTimeoutHandler();
    }
    auto* pool = handler.buffersForTest();
    EXPECT_EQ(5, pool->sendQ.size());
    int frame = 0;
    pool->sendQ.forEach([&frame](const auto& f) {
        EXPECT_EQ(16u * 3 / 2 * 8, f->length);
        EXPECT_EQ(8 * frame++ + 7, f->data[f->length - 1]);  // 8 rows a frame
    });

    // The hand-over timer does nothing (not even wait for the lock) while
    // the host is not streaming; sendData hands over regardless.
    change(16, 8, 30, DemoBuffer::kFormatYU12, 0);
    {
        std::unique_lock<std::mutex> held(handler.lockForTest());
        auto done = std::async(std::launch::async, [&] { handler.AutoUpdateTimeoutHandler(); });
        EXPECT_EQ(std::future_status::ready, done.wait_for(2s));
    }
    EXPECT_EQ(5, pool->sendQ.size());
    handler.sendData();
    EXPECT_EQ(4, pool->sendQ.size());
    EXPECT_GE(handler.bufferMgmtForTest()->convertQ.size(), 1);
    EXPECT_EQ(3, hardwareBuffers(*handler.bufferMgmtForTest()));
}

TEST_F(StreamHandlerTest, StreamChangeWaitsForTheFrameInHand) {
    change(16, 8, 30, DemoBuffer::kFormatYUYV, 1);
    std::future<void> changed;
    {
        auto inHand = handler.frameLock();
        host.setConfig(0, 0, streamConfig(32, 8, 30, DemoBuffer::kFormatYUYV, 1));
        changed = std::async(std::launch::async, [&] { handler.HandleStreamChanged(); });
        EXPECT_EQ(std::future_status::timeout, changed.wait_for(50ms));
        EXPECT_EQ(16, handler.getConfig().width);  // the frame's view stays whole
    }
    EXPECT_EQ(std::future_status::ready, changed.wait_for(5s));
    EXPECT_EQ(32, handler.appliedConfiguration().width);
}

}  // namespace
}  // namespace client_test
