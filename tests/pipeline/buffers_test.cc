#include <android/log.h>
#include <cstdio>

#include <future>

#include "android_testing.h"
#include "frame_path_fixture.h"
#include "pipeline/FlatTestBuffer.h"

using namespace std::chrono_literals;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;
namespace hb = hardware_buffer_standin;
using BuffersTest = FramePathTest;

TEST_F(BuffersTest, HardwareBuffersResizeAndReportPlatformFailures) {
    android_standin::LogCapture log;
    FlatTestBuffer hw(0);
    hb::failAllocations(1, -12);
    CaptureStdout();
    EXPECT_EQ(hw.reinit(64), 0);
    FlatBuffer flat;
    EXPECT_EQ(hw.lockBuffer(&flat), nullptr);
    EXPECT_EQ(GetCapturedStdout(),
              "Cannot allocate buffer: [-12]\nCannot lock the hardware buffer\n");
    EXPECT_EQ(hw.capacity, 0u);
    EXPECT_EQ(hw.reinit(64), 0);  // a later reinit allocates again
    const size_t allocations = hb::allocateCalls();
    EXPECT_EQ(hw.reinit(64), 0);  // the same size keeps the buffer
    EXPECT_EQ(hb::allocateCalls(), allocations);
    ASSERT_NE(hw.lockBuffer(&flat), nullptr);
    EXPECT_EQ(flat.hardwareBuffer, hw.heldBuffer());
    hb::failUnlocks(1);
    hw.unlock();
    hw.unlock();  // the failed unlock left the lock held
    EXPECT_EQ(hw.reinit(128), 0);
    EXPECT_EQ(liveBuffers(), liveBefore + 1);  // the old one was released
    std::string logged;                        // priority, tag, text
    for (const auto& r : log.records())
        logged += std::to_string(r.priority) + "|" + r.tag + "|" + r.text + "\n";
    EXPECT_EQ(logged,
              "6||Cannot allocate buffer: [-12]\n\n6||unlock: Failed to AHardwareBuffer_unlock\n");
}

TEST_F(BuffersTest, AnEmptyPoolNeverWaitsAndSendsNothing) {
    Buffers empty(0, 64);
    EXPECT_EQ(empty.getBuffer(), nullptr);
    CaptureStdout();
    EXPECT_EQ(empty.sendFrame(makeMgmt(3, 64)), 0u);
    EXPECT_EQ(GetCapturedStdout(), "no buffers to send\n");
}

TEST_F(BuffersTest, SendFrameCopiesInOrderAndNeverWaitsForAHardwareBuffer) {
    Buffers pool(5, 8);
    auto mgmt = makeMgmt(3, 8);
    for (uint8_t i = 1; i <= 4; ++i)
        queueFrame(pool, 8 - i, i);
    for (uint8_t i = 1; i <= 3; ++i)
        ASSERT_EQ(pool.sendFrame(mgmt), 8u - i);
    uint8_t i = 1;
    mgmt->convertQ.forEach([&](const std::unique_ptr<FlatTestBuffer>& hw) {
        const uint8_t* bytes = hb::peekBytes(hw->heldBuffer());
        EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + hw->size), std::vector<uint8_t>(8 - i, i));
        EXPECT_EQ(hb::lockDepth(hw->heldBuffer()), 0);
        ++i;
    });
    // Every hardware buffer awaits conversion: the fourth frame is dropped,
    // and so is the fifth while another thread holds the conversion lock;
    // one warning covers both (at most one a second).
    android_standin::LogCapture log;
    const auto dropping = std::chrono::steady_clock::now();
    auto fourth = std::async(std::launch::async, [&] { return pool.sendFrame(mgmt); });
    ASSERT_EQ(fourth.wait_for(2s), std::future_status::ready) << "sendFrame blocked";
    EXPECT_EQ(fourth.get(), 0u);
    mgmt->fillQ.push(std::make_unique<FlatTestBuffer>(8));
    queueFrame(pool, 8, 5);
    {
        std::promise<void> locked, release;
        std::thread converting([&] {
            std::lock_guard<std::recursive_mutex> guard(mgmt->lock);
            locked.set_value();
            release.get_future().wait();
        });
        locked.get_future().wait();
        auto fifth = std::async(std::launch::async, [&] { return pool.sendFrame(mgmt); });
        const bool ready = fifth.wait_for(2s) == std::future_status::ready;
        release.set_value();
        converting.join();
        ASSERT_TRUE(ready) << "sendFrame waited for the lock";
        EXPECT_EQ(fifth.get(), 0u);
    }
    // A second one only where a busy machine kept the drops a second apart.
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(
        std::chrono::steady_clock::now() - dropping);
    const auto warnings = log.records();
    ASSERT_GE(warnings.size(), 1u);
    EXPECT_LE(warnings.size(), size_t(1 + seconds.count()));
    for (const auto& w : warnings)
        EXPECT_EQ(w.text, "Stream [0] [0]: host busy, 1 frame(s) dropped\n");
    EXPECT_EQ(pool.fillQ.size(), 5);  // every frame buffer came back
    EXPECT_EQ(pool.sendQ.size(), 0);
    std::unique_ptr<FlatTestBuffer> extra;
    ASSERT_TRUE(mgmt->fillQ.tryPop(extra));

    // Once the conversion thread runs they drain, and sending resumes. A
    // library that delivers later needs a free buffer to copy each frame
    // into, and with all three queued it may find none for one of them.
    mgmt->startStream();
    // Converted (all three home), delivered, and any copies sent (home again).
    for (int i = 0; i < 5000 && !idle(*mgmt); ++i)
        std::this_thread::sleep_for(1ms);
    convfact_standin::waitForDeliveries();
    for (int i = 0; i < 5000 && !idle(*mgmt); ++i)
        std::this_thread::sleep_for(1ms);
    const size_t drained = host.frameCount(0, 0);
    if (convfact_standin::delivery() == convfact_standin::Delivery::OnCallingThread) {
        EXPECT_EQ(drained, 3u);
    } else {
        EXPECT_GE(drained, 1u);
    }
    EXPECT_EQ(sendOne(pool, mgmt, 0, 0), 0u);  // an empty frame goes out too
    ASSERT_TRUE(host.waitForFrames(0, 0, drained + 1, 5s));
    EXPECT_EQ(host.frames().at(drained).size, 0u);
    // Stopping tells the drops the once-a-second limit held back: the log
    // adds up to every frame that did not reach the host.
    mgmt->stopStream();
    unsigned told = 0;
    for (const auto& r : log.records()) {
        unsigned n = 0;
        if (std::sscanf(r.text.c_str(), "Stream [0] [0]: host busy, %u frame(s) dropped", &n) == 1)
            told += n;
    }
    EXPECT_EQ(told, 5u - drained);
}

TEST_F(BuffersTest, UnsendableFramesAreDroppedAndEverythingComesBack) {
    const struct {
        const char* what;
        unsigned hwSize;
        uint32_t capacity, length;
        int lockFaults;
        const char* printed;
    } cases[] = {
        {"no buffer management", 0, 64, 8, 0, "cannot receive fill buffer\n"},
        {"larger than the hardware buffer", 32, 64, 64, 0,
         "frame of 64 bytes does not fit the hardware buffer of 32 bytes, dropped\n"},
        {"length beyond the frame's block", 256, 64, 200, 0,
         "frame claims 200 bytes but its buffer holds 64, dropped\n"},
        {"failed lock", 64, 64, 64, 1, "Cannot lock the hardware buffer\n"},
        {"frame of the wrong capacity", 64, 10, 10, 0, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        Buffers pool(2, 64);
        std::unique_ptr<BufferMgmt> mgmt;
        if (c.hwSize > 0)
            mgmt = makeMgmt(1, c.hwSize);
        std::unique_ptr<DynamicBuffer> frame = pool.getBuffer();
        std::memset(frame->data, 0xEE, 64);
        frame->resize(c.capacity);
        frame->length = c.length;
        pool.sendQ.push(std::move(frame));
        hb::failLocks(c.lockFaults);
        CaptureStdout();
        EXPECT_EQ(pool.sendFrame(mgmt), 0u);
        const std::string printed = GetCapturedStdout();
        EXPECT_EQ(printed, c.printed);
        EXPECT_EQ(pool.fillQ.size(), 2);
        pool.fillQ.forEach(
            [](const std::unique_ptr<DynamicBuffer>& b) { EXPECT_EQ(b->capacity, 64u); });
        if (mgmt) {
            EXPECT_EQ(mgmt->fillQ.size(), 1);  // nothing waits for conversion
            EXPECT_EQ(mgmt->convertQ.size(), 0);
        }
    }
}

TEST_F(BuffersTest, CleanupKeepsOneBufferAndTurnsThePoolOff) {
    const struct {
        int pending;
        const char* printed;
    } cases[] = {
        {0, "no buffers to send, create a buffer to unblock thread waiting on the fillQ if any\n"},
        {3, ""},
    };
    auto mgmt = makeMgmt(3, 64);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.pending);
        Buffers pool(c.pending ? 5 : 2, 64);
        for (int i = 0; i < c.pending; ++i)
            queueFrame(pool, 64, uint8_t(i));
        CaptureStdout();
        pool.cleanup();
        EXPECT_EQ(GetCapturedStdout(), c.printed);
        EXPECT_EQ(pool.state, Buffers::kCleanedUp);
        EXPECT_EQ(pool.sendQ.size(), 0);
        EXPECT_EQ(pool.fillQ.size(), 3);
        int wakeUps = 0;
        pool.fillQ.forEach(
            [&](const std::unique_ptr<DynamicBuffer>& b) { wakeUps += b->capacity == 4; });
        EXPECT_EQ(wakeUps, c.pending ? 0 : 1);

        // Off for good, though fillQ is not empty (a waiting pop has woken).
        EXPECT_EQ(pool.getBuffer(), nullptr);
        pool.sendQ.push(std::make_unique<DynamicBuffer>(64));
        EXPECT_EQ(pool.sendFrame(mgmt), 0u);
        EXPECT_EQ(pool.sendQ.size(), 0);
        EXPECT_EQ(mgmt->convertQ.size(), 0);
    }
}
