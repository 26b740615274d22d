#include <android/hardware_buffer.h>
#include <android/log.h>

#include <chrono>
#include <cstring>
#include <future>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "android_testing.h"
#include "hardware_buffer_testing.h"
#include "pipeline/BufferMgmt.h"
#include "pipeline/Buffers.h"
#include "pipeline/DynamicBuffer.h"
#include "pipeline/FlatTestBuffer.h"
#include "trevo_host.h"

using namespace std::chrono_literals;
using hidl_uvc_client::BufferMgmt;
using hidl_uvc_client::Buffers;
using hidl_uvc_client::DynamicBuffer;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;
namespace hb = hardware_buffer_standin;

namespace {

class BuffersTest : public ::testing::Test {
protected:
    void SetUp() override {
        trevo_standin::Host::instance().reset();
        hb::clearFaults();
        hb::resetCounters();
        liveBefore = hb::liveBuffers();
    }
    void TearDown() override {
        hb::clearFaults();
        EXPECT_EQ(hb::liveBuffers(), liveBefore);
        EXPECT_EQ(hb::heldLocks(), 0u);
    }

    // Takes a buffer from the pool, fills `length` bytes with `fill` and
    // queues it as the frame source does.
    void queueFrame(Buffers& pool, uint32_t length, uint8_t fill) {
        std::unique_ptr<DynamicBuffer> frame = pool.getBuffer();
        ASSERT_NE(frame, nullptr);
        std::memset(frame->data, fill, std::min(length, frame->capacity));
        frame->length = length;
        pool.sendQ.push(std::move(frame));
    }

    std::unique_ptr<FlatTestBuffer> takeConverted(BufferMgmt& mgmt) {
        std::unique_ptr<FlatTestBuffer> hw;
        mgmt.convertQ.tryPop(hw);
        return hw;
    }

    trevo::CompositorBridge bridge{trevo::BRIDGE_CONTEXT_UVC};
    size_t liveBefore = 0;
};

}  // namespace

TEST_F(BuffersTest, DynamicBufferSizes) {
    DynamicBuffer empty(0);
    EXPECT_EQ(empty.data, nullptr);
    EXPECT_EQ(empty.capacity, 0u);
    EXPECT_EQ(empty.length, 0u);

    DynamicBuffer b(16);
    ASSERT_NE(b.data, nullptr);
    EXPECT_EQ(b.capacity, 16u);
    b.length = 9;
    b.resize(64);
    EXPECT_EQ(b.capacity, 64u);
    EXPECT_EQ(b.length, 9u);  // resize leaves the payload length alone
    b.resize(0);
    EXPECT_EQ(b.data, nullptr);
    EXPECT_EQ(b.capacity, 0u);
}

TEST_F(BuffersTest, EmptyPoolHandsOutNothingAndSendsNothing) {
    Buffers pool(0, 64);
    auto mgmtPtr = std::make_unique<BufferMgmt>(3, 64, &bridge, 0, 0);
    EXPECT_EQ(pool.getBuffer(), nullptr);
    CaptureStdout();
    EXPECT_EQ(pool.sendFrame(mgmtPtr), 0u);
    EXPECT_EQ(GetCapturedStdout(), "no buffers to send\n");
}

TEST_F(BuffersTest, GetBufferNeverWaitsOnAnEmptyFillQueue) {
    Buffers pool(2, 64);
    auto a = pool.getBuffer();
    auto b = pool.getBuffer();
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    auto none = std::async(std::launch::async, [&] { return pool.getBuffer() == nullptr; });
    ASSERT_EQ(none.wait_for(2s), std::future_status::ready);
    EXPECT_TRUE(none.get());
}

TEST_F(BuffersTest, SendFrameCopiesIntoAHardwareBufferAndRecyclesTheFrame) {
    Buffers pool(5, 64);
    auto mgmt = std::make_unique<BufferMgmt>(3, 64, &bridge, 0, 0);
    queueFrame(pool, 40, 0xC3);
    EXPECT_EQ(pool.sendFrame(mgmt), 40u);
    EXPECT_EQ(pool.fillQ.size(), 5);
    EXPECT_EQ(pool.sendQ.size(), 0);
    EXPECT_EQ(mgmt->fillQ.size(), 2);
    ASSERT_EQ(mgmt->convertQ.size(), 1);

    std::unique_ptr<FlatTestBuffer> hw = takeConverted(*mgmt);
    EXPECT_EQ(hw->size, 40u);
    const uint8_t* bytes = hb::peekBytes(hw->heldBuffer());
    for (int i = 0; i < 40; ++i)
        ASSERT_EQ(bytes[i], 0xC3) << i;
    EXPECT_EQ(hb::lockDepth(hw->heldBuffer()), 0);
    mgmt->fillQ.push(std::move(hw));

    // An empty frame is still handed over, with size 0.
    queueFrame(pool, 0, 0);
    EXPECT_EQ(pool.sendFrame(mgmt), 0u);
    ASSERT_EQ(mgmt->convertQ.size(), 1);
    EXPECT_EQ(takeConverted(*mgmt)->size, 0u);
}

TEST_F(BuffersTest, SendFrameKeepsOrder) {
    Buffers pool(5, 8);
    auto mgmt = std::make_unique<BufferMgmt>(3, 8, &bridge, 0, 0);
    for (uint8_t i = 1; i <= 3; ++i)
        queueFrame(pool, 8, i);
    for (uint8_t i = 1; i <= 3; ++i) {
        ASSERT_EQ(pool.sendFrame(mgmt), 8u);
        auto hw = takeConverted(*mgmt);
        EXPECT_EQ(hb::peekBytes(hw->heldBuffer())[0], i);
        mgmt->fillQ.push(std::move(hw));
    }
}

TEST_F(BuffersTest, NeverWaitsWhenEveryHardwareBufferAwaitsConversion) {
    Buffers pool(5, 16);
    auto mgmt = std::make_unique<BufferMgmt>(3, 16, &bridge, 0, 0);
    for (int i = 0; i < 4; ++i)
        queueFrame(pool, 16, uint8_t(i));
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(pool.sendFrame(mgmt), 16u);
    ASSERT_EQ(mgmt->fillQ.size(), 0);

    CaptureStdout();
    auto fourth = std::async(std::launch::async, [&] { return pool.sendFrame(mgmt); });
    ASSERT_EQ(fourth.wait_for(2s), std::future_status::ready) << "sendFrame blocked";
    EXPECT_EQ(fourth.get(), 0u);
    EXPECT_EQ(GetCapturedStdout(), "cannot receive fill buffer\n");
    EXPECT_EQ(pool.fillQ.size(), 5);  // the dropped frame's buffer came back

    // Once the conversion thread runs, the buffers drain and sending resumes.
    mgmt->startStream();
    ASSERT_TRUE(trevo_standin::Host::instance().waitForFrames(0, 0, 3, 5s));
    queueFrame(pool, 16, 9);
    unsigned sent = 0;
    for (int i = 0; i < 500 && sent == 0; ++i) {
        if (mgmt->fillQ.size() == 3)
            sent = pool.sendFrame(mgmt);
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(sent, 16u);
    mgmt->stopStream();
}

TEST_F(BuffersTest, OversizedFramesAreDroppedNotWrittenPastTheBuffer) {
    Buffers pool(5, 64);
    auto small = std::make_unique<BufferMgmt>(1, 32, &bridge, 0, 0);
    queueFrame(pool, 64, 0xEE);
    CaptureStdout();
    EXPECT_EQ(pool.sendFrame(small), 0u);
    EXPECT_EQ(GetCapturedStdout(),
              "frame of 64 bytes does not fit the hardware buffer of 32 bytes, dropped\n");
    EXPECT_EQ(small->fillQ.size(), 1);
    EXPECT_EQ(small->convertQ.size(), 0);
    EXPECT_EQ(pool.fillQ.size(), 5);

    // A length beyond the frame's own block is refused as well.
    auto big = std::make_unique<BufferMgmt>(1, 256, &bridge, 0, 0);
    queueFrame(pool, 10, 1);
    std::unique_ptr<DynamicBuffer> frame;
    ASSERT_TRUE(pool.sendQ.tryPop(frame));
    frame->length = 200;
    pool.sendQ.push(std::move(frame));
    CaptureStdout();
    EXPECT_EQ(pool.sendFrame(big), 0u);
    GetCapturedStdout();
    EXPECT_EQ(big->convertQ.size(), 0);
}

TEST_F(BuffersTest, WrongSizedFrameIsResizedAndNotSent) {
    Buffers pool(1, 64);
    auto mgmt = std::make_unique<BufferMgmt>(3, 64, &bridge, 0, 0);
    std::unique_ptr<DynamicBuffer> frame = pool.getBuffer();
    frame->resize(10);
    frame->length = 10;
    pool.sendQ.push(std::move(frame));
    EXPECT_EQ(pool.sendFrame(mgmt), 0u);
    EXPECT_EQ(mgmt->convertQ.size(), 0);
    frame = pool.getBuffer();
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->capacity, 64u);
}

TEST_F(BuffersTest, FailedLockReturnsTheHardwareBufferUnsent) {
    Buffers pool(5, 64);
    auto mgmt = std::make_unique<BufferMgmt>(3, 64, &bridge, 0, 0);
    queueFrame(pool, 64, 1);
    hb::failLocks(1);
    CaptureStdout();
    EXPECT_EQ(pool.sendFrame(mgmt), 0u);
    EXPECT_EQ(GetCapturedStdout(), "Cannot lock the hardware buffer\n");
    EXPECT_EQ(mgmt->fillQ.size(), 3);
    EXPECT_EQ(mgmt->convertQ.size(), 0);
    EXPECT_EQ(pool.fillQ.size(), 5);
}

TEST_F(BuffersTest, MissingBufferManagementDropsTheFrame) {
    Buffers pool(2, 8);
    std::unique_ptr<BufferMgmt> none;
    queueFrame(pool, 8, 1);
    CaptureStdout();
    EXPECT_EQ(pool.sendFrame(none), 0u);
    EXPECT_EQ(GetCapturedStdout(), "cannot receive fill buffer\n");
    EXPECT_EQ(pool.fillQ.size(), 2);
}

TEST_F(BuffersTest, CleanupWithNothingPendingAddsAWakeUpBuffer) {
    Buffers pool(2, 64);
    CaptureStdout();
    pool.cleanup();
    EXPECT_EQ(GetCapturedStdout(),
              "no buffers to send, create a buffer to unblock thread waiting on the fillQ if "
              "any\n");
    EXPECT_EQ(pool.state, Buffers::kCleanedUp);
    EXPECT_EQ(pool.fillQ.size(), 3);
    int fourByteBuffers = 0;
    pool.fillQ.forEach([&](const std::unique_ptr<DynamicBuffer>& b) {
        if (b->capacity == 4)
            ++fourByteBuffers;
    });
    EXPECT_EQ(fourByteBuffers, 1);

    // Turned off for good.
    EXPECT_EQ(pool.getBuffer(), nullptr);
    auto mgmt = std::make_unique<BufferMgmt>(3, 64, &bridge, 0, 0);
    EXPECT_EQ(pool.sendFrame(mgmt), 0u);
    EXPECT_EQ(mgmt->convertQ.size(), 0);
}

TEST_F(BuffersTest, CleanupDiscardsPendingFramesButKeepsOne) {
    Buffers pool(5, 64);
    for (int i = 0; i < 3; ++i)
        queueFrame(pool, 64, uint8_t(i));
    ASSERT_EQ(pool.fillQ.size(), 2);
    CaptureStdout();
    pool.cleanup();
    EXPECT_EQ(GetCapturedStdout(), "");
    EXPECT_EQ(pool.sendQ.size(), 0);
    EXPECT_EQ(pool.fillQ.size(), 3);

    // A frame queued after cleanup is discarded by sendFrame.
    auto frame = std::make_unique<DynamicBuffer>(64);
    pool.sendQ.push(std::move(frame));
    auto mgmt = std::make_unique<BufferMgmt>(3, 64, &bridge, 0, 0);
    EXPECT_EQ(pool.sendFrame(mgmt), 0u);
    EXPECT_EQ(pool.sendQ.size(), 0);
}

TEST_F(BuffersTest, CleanupWakesAThreadWaitingOnTheFillQueue) {
    Buffers pool(0, 64);
    auto waiter = std::async(std::launch::async, [&] {
        std::unique_ptr<DynamicBuffer> b;
        pool.fillQ.pop(b);
        return pool.state.load();
    });
    std::this_thread::sleep_for(10ms);
    CaptureStdout();
    pool.cleanup();
    GetCapturedStdout();
    ASSERT_EQ(waiter.wait_for(5s), std::future_status::ready);
    EXPECT_NE(waiter.get(), Buffers::kActive);
}

TEST_F(BuffersTest, FlatTestBufferHoldsOneBlobBuffer) {
    {
        FlatTestBuffer none(0);
        EXPECT_EQ(none.capacity, 0u);
        EXPECT_EQ(none.heldBuffer(), nullptr);
        EXPECT_EQ(hb::liveBuffers(), liveBefore);
        EXPECT_EQ(none.lockBuffer(nullptr), nullptr);

        FlatTestBuffer b(128);
        EXPECT_EQ(b.size, 0u);
        EXPECT_EQ(b.capacity, 128u);
        AHardwareBuffer_Desc desc = {};
        AHardwareBuffer_describe(b.heldBuffer(), &desc);
        EXPECT_EQ(desc.width, 128u);
        EXPECT_EQ(desc.height, 1u);
        EXPECT_EQ(desc.layers, 1u);
        EXPECT_EQ(desc.format, 33u);
        EXPECT_EQ(desc.usage, 3u);
        EXPECT_EQ(hb::allocateCalls(), 1u);

        EXPECT_EQ(b.reinit(128), 0);
        EXPECT_EQ(hb::allocateCalls(), 1u);  // same size: kept
        AHardwareBuffer* before = b.heldBuffer();
        EXPECT_EQ(b.reinit(256), 0);
        EXPECT_EQ(b.capacity, 256u);
        EXPECT_EQ(hb::allocateCalls(), 2u);
        EXPECT_EQ(hb::liveBuffers(), liveBefore + 1);  // the old one was released
        (void)before;

        size_t locksBefore = hb::lockCalls();
        EXPECT_EQ(b.lockBuffer(nullptr), nullptr);
        EXPECT_EQ(hb::lockCalls(), locksBefore);

        FlatBuffer flat;
        void* address = b.lockBuffer(&flat);
        ASSERT_NE(address, nullptr);
        EXPECT_EQ(flat.hardwareBuffer, b.heldBuffer());
        b.unlock();
        EXPECT_EQ(hb::heldLocks(), 0u);
    }
    EXPECT_EQ(hb::liveBuffers(), liveBefore);
}

TEST_F(BuffersTest, FlatTestBufferReportsPlatformFailures) {
    android_standin::LogCapture log;
    hb::failAllocations(1, -12);
    CaptureStdout();
    FlatTestBuffer b(64);
    EXPECT_EQ(GetCapturedStdout(), "Cannot allocate buffer: [-12]\n");
    EXPECT_EQ(b.capacity, 0u);
    EXPECT_EQ(b.heldBuffer(), nullptr);
    auto records = log.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(records[0].tag, "");
    EXPECT_EQ(records[0].text, "Cannot allocate buffer: [-12]\n");

    // Without a hardware buffer nothing can be locked.
    FlatBuffer flat;
    CaptureStdout();
    EXPECT_EQ(b.lockBuffer(&flat), nullptr);
    EXPECT_EQ(GetCapturedStdout(), "Cannot lock the hardware buffer\n");
    EXPECT_EQ(flat.hardwareBuffer, nullptr);

    EXPECT_EQ(b.reinit(64), 0);  // a later reinit allocates again
    EXPECT_EQ(b.capacity, 64u);
    log.clear();
    ASSERT_NE(b.lockBuffer(&flat), nullptr);
    hb::failUnlocks(1);
    b.unlock();
    records = log.records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(records[0].text, "unlock: Failed to AHardwareBuffer_unlock");
    b.unlock();  // the failed unlock left the lock held
}
