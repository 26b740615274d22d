#include <android/log.h>

#include <atomic>
#include <future>

#include "android_testing.h"
#include "frame_path_fixture.h"

using namespace std::chrono_literals;
namespace hb = hardware_buffer_standin;

namespace {

class BufferMgmtTest : public FramePathTest {
protected:
    // Stops the thread, failing instead of hanging when the join does not end.
    static void stopWithin5s(BufferMgmt& mgmt) {
        auto stopped = std::async(std::launch::async, [&] { mgmt.stopStream(); });
        ASSERT_EQ(stopped.wait_for(5s), std::future_status::ready) << "join hung";
        EXPECT_FALSE(mgmt.isThreadStarted());
    }
    // A stopped BufferMgmt holds exactly its hardware buffers: none lost and
    // no empty wake-up handle left in a queue; when idle, all of them free.
    static void expectHolds(const BufferMgmt& mgmt, int count, bool idle = true) {
        int handles = 0;
        auto visit = [&](const std::unique_ptr<FlatTestBuffer>& b) { handles += b != nullptr; };
        mgmt.fillQ.forEach(visit);
        mgmt.convertQ.forEach(visit);
        EXPECT_EQ(handles, count);
        EXPECT_EQ(mgmt.fillQ.size() + mgmt.convertQ.size(), count);
        if (idle) {
            EXPECT_EQ(mgmt.convertQ.size(), 0);
        }
    }
};

}  // namespace

TEST_F(BufferMgmtTest, StopWakesTheThreadLeavesNoWakeUpAndRestartWorks) {
    Buffers pool(5, 64);
    auto mgmt = makeMgmt(3, 64);
    EXPECT_EQ(factorySinks().count(mgmt.get()), 1u);
    EXPECT_EQ(factorySinks().size(), sinksBefore + 1);  // TearDown: and left again
    mgmt->stopStream();  // never started: neither hangs nor loses a buffer
    expectHolds(*mgmt, 3);

    for (int round = 0; round < 5; ++round) {
        mgmt->startStream();
        mgmt->startStream();  // a second start keeps the one thread
        ASSERT_EQ(sendOne(pool, mgmt, 64, uint8_t(round)), 64u);
        ASSERT_TRUE(host.waitForFrames(0, 0, size_t(round + 1), 5s));
        stopWithin5s(*mgmt);
        expectHolds(*mgmt, 3);
    }
    EXPECT_EQ(host.frameCount(0, 0), 5u);  // no stale frame sent twice
    // The thread may end before it reads the stop's wake-up handle.
    for (int round = 0; round < 200 && !HasFailure(); ++round) {
        mgmt->startStream();
        mgmt->stopStream();
        expectHolds(*mgmt, 3);
    }
    // Without any hardware buffer, the stop must not wait for one.
    auto bare = makeMgmt(0, 64);
    bare->startStream();
    stopWithin5s(*bare);
    EXPECT_EQ(bare->convertQ.size(), 0);
}

TEST_F(BufferMgmtTest, PendingFramesSurviveAStopAndGoOutAfterRestart) {
    Buffers pool(5, 64);
    auto mgmt = makeMgmt(3, 64);
    for (uint8_t i = 0; i < 2; ++i)
        ASSERT_EQ(sendOne(pool, mgmt, 64, i), 64u);
    mgmt->startStream();
    mgmt->stopStream();
    // A frame caught in flight by the stop is dropped; queued ones wait.
    const size_t sent = host.frameCount(0, 0);
    const size_t pending = size_t(mgmt->convertQ.size());
    EXPECT_LE(sent + pending, 2u);
    expectHolds(*mgmt, 3, false);
    mgmt->startStream();
    ASSERT_TRUE(host.waitForFrames(0, 0, sent + pending, 5s));
    mgmt->stopStream();
    EXPECT_EQ(host.frameCount(0, 0), sent + pending);
    expectHolds(*mgmt, 3);
}

TEST_F(BufferMgmtTest, StreamsSendOnlyTheirOwnFramesAndRecoverALostConnection) {
    // The factory hands every frame to every sink; these streams share an id
    // or an idx with another. The first frame meets a lost connection.
    android_standin::LogCapture log;
    const uint8_t ids[3][2] = {{1, 2}, {1, 3}, {0, 3}};
    Buffers pools[3] = {{5, 4096}, {5, 4096}, {5, 4096}};
    std::unique_ptr<BufferMgmt> mgmts[3];
    for (int s = 0; s < 3; ++s) {
        mgmts[s] = makeMgmt(3, 4096, ids[s][0], ids[s][1]);
        mgmts[s]->startStream();
    }
    host.failSends(1);
    ASSERT_EQ(sendOne(pools[0], mgmts[0], 64, 0xFF), 64u);
    ASSERT_TRUE(host.waitForCalls("registerProjector(0)", 1, 5s));
    auto length = [](int s, int i) { return 1000u * (s + 1) + i; };
    for (uint8_t i = 0; i < 6; ++i) {
        for (int s = 0; s < 3; ++s)
            ASSERT_EQ(sendOne(pools[s], mgmts[s], length(s, i), 16 * s + i), length(s, i));
    }
    for (int s = 0; s < 3; ++s)
        ASSERT_TRUE(host.waitForFrames(ids[s][0], ids[s][1], 6, 5s));
    for (int s = 1; s < 3; ++s) {
        stopWithin5s(*mgmts[s]);
        expectHolds(*mgmts[s], 3);
    }
    mgmts[0].reset();  // destroying a running one must neither hang nor terminate
    auto frames = host.frames();
    ASSERT_EQ(frames.size(), 18u);  // the lost frame is not resent
    int next[3] = {0, 0, 0};
    for (const auto& f : frames) {
        const int s = f.streamId == 0 ? 2 : f.streamIdx - 2;
        const int i = next[s]++;  // in order per stream
        EXPECT_EQ(f.size, length(s, i));
        EXPECT_EQ(f.width, 4096u);
        EXPECT_EQ(f.format, 33u);
        EXPECT_EQ(f.bytes, std::vector<uint8_t>(f.size, uint8_t(16 * s + i)));
    }
    EXPECT_EQ(host.rejectedSends(), 1u);
    EXPECT_EQ(host.countCalls("registerProjector(0)"), 1u);
    auto warnings = log.withTag("ConvFactory");
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_EQ(warnings[0].priority, ANDROID_LOG_WARN);
    EXPECT_EQ(warnings[0].text, "BUG: socket connection dropped to uvc_gadget. Trying to recover.");
}

TEST_F(BufferMgmtTest, ADestroyedSinkIsNeverCalled) {
    // Frames of 0:0 go to every sink while buffer managements of another
    // stream come and go, as on a reconfiguration.
    Buffers pool(5, 64);
    auto live = makeMgmt(3, 64);
    live->startStream();
    std::atomic<bool> done{false};
    std::thread churn([&] {
        while (!done) {
            auto passing = std::make_unique<BufferMgmt>(1, 64, &bridge, 0, 1);
            BufferMgmt* raw = passing.get();
            passing.reset();
            EXPECT_EQ(factorySinks().count(raw), 0u);
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

TEST_F(BufferMgmtTest, BuffersThatCouldNotBeMadeStayOutOfCirculationUntilRepaired) {
    android_standin::LogCapture log;
    testing::internal::CaptureStdout();
    hb::failAllocations(2);
    auto mgmt = makeMgmt(3, 64, 1, 2);
    EXPECT_EQ(mgmt->missingBuffers(), 2);
    auto full = [](const std::unique_ptr<FlatTestBuffer>& b) {
        EXPECT_TRUE(b && b->capacity == 64 && b->heldBuffer() != nullptr);
    };
    mgmt->fillQ.forEach(full);  // only the buffer that exists circulates
    EXPECT_EQ(mgmt->fillQ.size(), 1);
    hb::failAllocations(1);
    EXPECT_EQ(mgmt->repair(), 1);
    EXPECT_EQ(mgmt->repair(), 0);
    EXPECT_EQ(mgmt->repair(), 0);  // nothing left to make
    mgmt->fillQ.forEach(full);
    expectHolds(*mgmt, 3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Cannot allocate buffer: [-12]\nCannot allocate buffer: [-12]\n"
              "Cannot allocate buffer: [-12]\n");
    auto lines = log.withTag("ConvFactory");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].priority, ANDROID_LOG_WARN);
    EXPECT_EQ(lines[0].text,
              "Stream [1] [2]: 2 of 3 hardware buffers could not be made, trying again\n");
    EXPECT_EQ(lines[1].text, "Stream [1] [2]: hardware buffers complete\n");
}

TEST_F(BufferMgmtTest, FailedLockInTheConversionThreadSendsNothingAndKeepsTheBuffer) {
    Buffers pool(5, 64);
    auto mgmt = makeMgmt(1, 64);
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
