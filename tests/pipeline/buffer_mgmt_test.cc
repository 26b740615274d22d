#include <android/log.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "android_testing.h"
#include "hardware_buffer_testing.h"
#include "pipeline/BufferMgmt.h"
#include "pipeline/Buffers.h"
#include "trevo/ConversionFactory.h"
#include "trevo_host.h"

using namespace std::chrono_literals;
using hidl_uvc_client::BufferMgmt;
using hidl_uvc_client::Buffers;
using hidl_uvc_client::DynamicBuffer;
using trevo_standin::Host;
namespace hb = hardware_buffer_standin;

namespace {

class BufferMgmtTest : public ::testing::Test {
protected:
    void SetUp() override {
        Host::instance().reset();
        hb::clearFaults();
        liveBefore = hb::liveBuffers();
        sinksBefore = factory().frameSinkCount();
    }
    void TearDown() override {
        Host::instance().reset();
        EXPECT_EQ(hb::liveBuffers(), liveBefore);
        EXPECT_EQ(hb::heldLocks(), 0u);
        EXPECT_EQ(factory().frameSinkCount(), sinksBefore);
    }
    static trevo::ConversionFactory& factory() { return trevo::ConversionFactory::getInstance(); }

    static void queueFrame(Buffers& pool, uint32_t length, uint8_t fill) {
        std::unique_ptr<DynamicBuffer> frame = pool.getBuffer();
        ASSERT_NE(frame, nullptr);
        std::memset(frame->data, fill, length);
        frame->length = length;
        pool.sendQ.push(std::move(frame));
    }

    // Sends one frame, waiting for a free hardware buffer if need be.
    static unsigned sendOne(Buffers& pool, const std::unique_ptr<BufferMgmt>& mgmt, uint32_t length,
                            uint8_t fill) {
        for (int i = 0; i < 2000 && mgmt->fillQ.size() == 0; ++i)
            std::this_thread::sleep_for(1ms);
        queueFrame(pool, length, fill);
        return pool.sendFrame(mgmt);
    }

    Host& host = Host::instance();
    trevo::CompositorBridge bridge{trevo::BRIDGE_CONTEXT_UVC};
    size_t liveBefore = 0;
    size_t sinksBefore = 0;
};

// A frame the conversion library hands to every sink.
struct BlobFrame {
    explicit BlobFrame(uint8_t id, uint8_t idx, AHardwareBuffer* hw = nullptr) {
        frame.format = 33;
        frame.size = 4;
        frame.stream_id = id;
        frame.stream_idx = idx;
        frame.hardwareBuffer = hw;
    }
    trevo::GBuffer frame;
};

}  // namespace

TEST_F(BufferMgmtTest, ConstructionFillsTheQueueAndRegistersOnce) {
    {
        BufferMgmt mgmt(3, 1024, &bridge, 1, 2);
        EXPECT_EQ(mgmt.fillQ.size(), 3);
        EXPECT_EQ(mgmt.convertQ.size(), 0);
        EXPECT_TRUE(mgmt.isRunning());
        EXPECT_FALSE(mgmt.isThreadStarted());
        EXPECT_EQ(hb::liveBuffers(), liveBefore + 3);
        mgmt.fillQ.forEach(
            [](const std::unique_ptr<FlatTestBuffer>& b) { EXPECT_EQ(b->capacity, 1024u); });
        EXPECT_TRUE(factory().hasFrameSink(&mgmt));
        EXPECT_EQ(factory().frameSinkCount(), sinksBefore + 1);
    }
    // Destruction left the sinks: TearDown checks the count.
}

TEST_F(BufferMgmtTest, FactoryWithoutPluginsMapsOnlyTheBuiltInPairs) {
    const auto& table = factory().converterTable();
    ASSERT_EQ(table.size(), 2u);
    EXPECT_EQ(table.at({17, 20}), factory().builtInConverter());
    EXPECT_EQ(table.at({35, 20}), factory().builtInConverter());
}

TEST_F(BufferMgmtTest, StopWithoutStartOnlyClearsRunning) {
    BufferMgmt mgmt(3, 64, &bridge, 0, 0);
    mgmt.stopStream();
    EXPECT_FALSE(mgmt.isRunning());
    EXPECT_FALSE(mgmt.isThreadStarted());
    EXPECT_EQ(mgmt.fillQ.size(), 3);
    EXPECT_EQ(mgmt.convertQ.size(), 0);
}

TEST_F(BufferMgmtTest, FramesReachTheBridgeWithTheirStreamAndBytes) {
    Buffers pool(5, 4096);
    auto mgmt = std::make_unique<BufferMgmt>(3, 4096, &bridge, 1, 3);
    mgmt->startStream();
    EXPECT_TRUE(mgmt->isThreadStarted());
    for (uint8_t i = 0; i < 6; ++i)
        ASSERT_EQ(sendOne(pool, mgmt, 1000 + i, i), 1000u + i);
    ASSERT_TRUE(host.waitForFrames(1, 3, 6, 5s));
    auto frames = host.frames();
    ASSERT_EQ(frames.size(), 6u);
    for (uint8_t i = 0; i < 6; ++i) {
        EXPECT_EQ(frames[i].streamId, 1);
        EXPECT_EQ(frames[i].streamIdx, 3);
        EXPECT_EQ(frames[i].size, 1000u + i);
        EXPECT_EQ(frames[i].width, 4096u);
        EXPECT_EQ(frames[i].format, 33u);
        EXPECT_EQ(frames[i].bytes, std::vector<uint8_t>(1000 + i, i));
    }
    mgmt->stopStream();
    EXPECT_FALSE(mgmt->isThreadStarted());
    EXPECT_EQ(mgmt->fillQ.size(), 3);
    EXPECT_EQ(mgmt->convertQ.size(), 0);
}

TEST_F(BufferMgmtTest, StopWakesAnIdleThreadAndRestartWorks) {
    Buffers pool(5, 64);
    auto mgmt = std::make_unique<BufferMgmt>(3, 64, &bridge, 0, 0);
    for (int round = 0; round < 5; ++round) {
        mgmt->startStream();
        mgmt->startStream();  // a second start keeps the one thread
        ASSERT_EQ(sendOne(pool, mgmt, 64, uint8_t(round)), 64u);
        ASSERT_TRUE(host.waitForFrames(0, 0, size_t(round + 1), 5s));
        auto stopped = std::async(std::launch::async, [&] { mgmt->stopStream(); });
        ASSERT_EQ(stopped.wait_for(5s), std::future_status::ready) << "join hung";
        EXPECT_FALSE(mgmt->isThreadStarted());
        EXPECT_EQ(mgmt->fillQ.size(), 3);
        EXPECT_EQ(mgmt->convertQ.size(), 0);
    }
    EXPECT_EQ(host.frameCount(0, 0), 5u);  // no stale frame sent twice
}

TEST_F(BufferMgmtTest, StopJoinsEvenWithoutAnyHardwareBuffer) {
    auto mgmt = std::make_unique<BufferMgmt>(0, 64, &bridge, 0, 0);
    mgmt->startStream();
    auto stopped = std::async(std::launch::async, [&] { mgmt->stopStream(); });
    ASSERT_EQ(stopped.wait_for(5s), std::future_status::ready);
    EXPECT_EQ(mgmt->convertQ.size(), 0);
}

TEST_F(BufferMgmtTest, PendingFramesSurviveAStopAndGoOutAfterRestart) {
    Buffers pool(5, 64);
    auto mgmt = std::make_unique<BufferMgmt>(3, 64, &bridge, 0, 0);
    for (uint8_t i = 0; i < 2; ++i)
        ASSERT_EQ(sendOne(pool, mgmt, 64, i), 64u);
    mgmt->startStream();
    mgmt->stopStream();
    // A frame caught in flight by the stop is dropped; queued ones wait.
    const size_t sent = host.frameCount(0, 0);
    const size_t pending = size_t(mgmt->convertQ.size());
    EXPECT_LE(sent + pending, 2u);
    EXPECT_EQ(mgmt->fillQ.size() + mgmt->convertQ.size(), 3);
    mgmt->startStream();
    ASSERT_TRUE(host.waitForFrames(0, 0, sent + pending, 5s));
    mgmt->stopStream();
    EXPECT_EQ(host.frameCount(0, 0), sent + pending);
    EXPECT_EQ(mgmt->fillQ.size(), 3);
}

TEST_F(BufferMgmtTest, DestructionStopsARunningThread) {
    Buffers pool(5, 64);
    auto mgmt = std::make_unique<BufferMgmt>(3, 64, &bridge, 0, 0);
    mgmt->startStream();
    ASSERT_EQ(sendOne(pool, mgmt, 64, 1), 64u);
    ASSERT_TRUE(host.waitForFrames(0, 0, 1, 5s));
    mgmt.reset();  // must neither hang nor terminate on a joinable thread
}

TEST_F(BufferMgmtTest, ProcessBufferForwardsOnlyItsOwnStream) {
    BufferMgmt mgmt(1, 64, &bridge, 2, 1);
    FlatTestBuffer hw(64);
    BlobFrame other(2, 0, hw.heldBuffer());
    mgmt.processBuffer(&other.frame);
    BlobFrame otherId(3, 1, hw.heldBuffer());
    mgmt.processBuffer(&otherId.frame);
    BlobFrame noBuffer(2, 1);
    mgmt.processBuffer(&noBuffer.frame);
    mgmt.processBuffer(nullptr);
    mgmt.preProcessBuffer(&other.frame);
    EXPECT_TRUE(host.frames().empty());

    BlobFrame mine(2, 1, hw.heldBuffer());
    mgmt.processBuffer(&mine.frame);
    ASSERT_EQ(host.frameCount(2, 1), 1u);
    EXPECT_EQ(host.frames()[0].size, 4u);
}

TEST_F(BufferMgmtTest, TwoStreamsEachSendOnlyTheirOwnFrames) {
    Buffers poolA(5, 64);
    Buffers poolB(5, 64);
    auto a = std::make_unique<BufferMgmt>(3, 64, &bridge, 0, 0);
    auto b = std::make_unique<BufferMgmt>(3, 64, &bridge, 0, 1);
    a->startStream();
    b->startStream();
    for (uint8_t i = 0; i < 10; ++i) {
        ASSERT_EQ(sendOne(poolA, a, 64, 0xA0), 64u);
        ASSERT_EQ(sendOne(poolB, b, 64, 0xB0), 64u);
    }
    ASSERT_TRUE(host.waitForFrames(0, 0, 10, 5s));
    ASSERT_TRUE(host.waitForFrames(0, 1, 10, 5s));
    a->stopStream();
    b->stopStream();
    EXPECT_EQ(host.frames().size(), 20u);
    for (const auto& f : host.frames()) {
        EXPECT_EQ(f.bytes.at(0), f.streamIdx == 0 ? 0xA0 : 0xB0);
    }
}

TEST_F(BufferMgmtTest, LostConnectionLogsOnceAndRegistersProjectorAgain) {
    android_standin::LogCapture log;
    Buffers pool(5, 64);
    auto mgmt = std::make_unique<BufferMgmt>(3, 64, &bridge, 0, 0);
    mgmt->startStream();
    host.failSends(1);
    ASSERT_EQ(sendOne(pool, mgmt, 64, 1), 64u);
    ASSERT_TRUE(host.waitForCalls("registerProjector(0)", 1, 5s));
    ASSERT_EQ(sendOne(pool, mgmt, 64, 2), 64u);
    ASSERT_TRUE(host.waitForFrames(0, 0, 1, 5s));
    mgmt->stopStream();

    EXPECT_EQ(host.rejectedSends(), 1u);
    EXPECT_EQ(host.countCalls("registerProjector(0)"), 1u);
    EXPECT_EQ(host.frames().at(0).bytes.at(0), 2);  // the lost frame is not resent
    auto warnings = log.withTag("ConvFactory");
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0].priority, ANDROID_LOG_WARN);
    EXPECT_EQ(warnings[0].text, "BUG: socket connection dropped to uvc_gadget. Trying to recover.");
}

TEST_F(BufferMgmtTest, ADestroyedSinkIsNeverCalled) {
    // Frames of stream 0:0 flow (delivered to every sink) while buffer
    // managements of other streams come and go, as on a reconfiguration.
    Buffers pool(5, 64);
    auto live = std::make_unique<BufferMgmt>(3, 64, &bridge, 0, 0);
    live->startStream();
    std::atomic<bool> done{false};
    std::thread churn([&] {
        while (!done) {
            auto passing = std::make_unique<BufferMgmt>(1, 64, &bridge, 0, 1);
            EXPECT_TRUE(factory().hasFrameSink(passing.get()));
            BufferMgmt* raw = passing.get();
            passing.reset();
            EXPECT_FALSE(factory().hasFrameSink(raw));
        }
    });
    for (int i = 0; i < 50; ++i)
        ASSERT_EQ(sendOne(pool, live, 64, 1), 64u);
    ASSERT_TRUE(host.waitForFrames(0, 0, 50, 10s));
    done = true;
    churn.join();
    live->stopStream();
    EXPECT_EQ(host.frameCount(0, 1), 0u);
}

TEST_F(BufferMgmtTest, FailedLockInTheConversionThreadSendsNothingAndKeepsTheBuffer) {
    Buffers pool(5, 64);
    auto mgmt = std::make_unique<BufferMgmt>(1, 64, &bridge, 0, 0);
    ASSERT_EQ(sendOne(pool, mgmt, 64, 1), 64u);
    hb::failLocks(1);
    testing::internal::CaptureStdout();
    mgmt->startStream();
    for (int i = 0; i < 2000 && mgmt->fillQ.size() == 0; ++i)
        std::this_thread::sleep_for(1ms);
    mgmt->stopStream();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Cannot lock the hardware buffer\n");
    EXPECT_EQ(mgmt->fillQ.size(), 1);
    EXPECT_TRUE(host.frames().empty());  // a GBuffer without a hardware buffer goes nowhere
}
