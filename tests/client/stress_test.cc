#include <random>

#include "client/StreamHandler.h"
#include "client_harness.h"
#include "hidl_uvc_client.h"

namespace client_test {
namespace {

using uvc_client::DemoBuffer;

class StressTest : public HostTest {};

// Random stream changes over all eight streams from several host lanes
// while the streams run: every change must be handled in bounded time, and
// afterwards every stream still works and has all of its buffers back.
TEST_F(StressTest, RandomStreamChangesFromSeveralLanes) {
    hidl_uvc_client::setMjpegFileMode(false);  // MJPG streams compress frames
    const int kChanges = 400;
    const int kLanes = 4;
    std::mt19937 rng(20261123);
    const std::vector<std::pair<int, int>> sizes = {{32, 16}, {48, 16}, {64, 32}, {16, 8}, {0, 0}};
    const std::vector<uint32_t> formats = {DemoBuffer::kFormatYUYV, DemoBuffer::kFormatNV12,
                                           DemoBuffer::kFormatYU12, DemoBuffer::kFormatMJPG,
                                           DemoBuffer::kFormatH264};
    const std::vector<int> rates = {30, 60, 120, 0};

    host.setCopyFrameBytes(false);
    ClientHarness h;
    std::vector<uint64_t> tickets;
    for (int i = 0; i < kChanges; ++i) {
        const uint8_t id = rng() % 2;
        const uint8_t idx = rng() % 4;
        const auto size = sizes[rng() % sizes.size()];
        host.setConfig(id, idx,
                       streamConfig(size.first, size.second, rates[rng() % rates.size()],
                                    formats[rng() % formats.size()], rng() % 4 != 0));
        const bool all = rng() % 25 == 0;
        tickets.push_back(host.hotplug(4, all ? 255 : id, idx, static_cast<int>(rng() % kLanes)));
        if (i % 20 == 0) {
            std::this_thread::sleep_for(15ms);  // let frames flow in between
        }
    }
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    for (uint64_t t : tickets) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        ASSERT_TRUE(host.waitDelivered(t, std::max(left, 1ms))) << "stream change stuck";
    }

    std::this_thread::sleep_for(100ms);
    EXPECT_GT(host.frames().size(), 0u) << "no stream ran during the changes";

    // Every stream streams again, then stops with all buffers home.
    host.clearFrames();
    for (uint8_t id = 0; id < 2; ++id) {
        for (uint8_t idx = 0; idx < 4; ++idx) {
            h.change(id, idx, streamConfig(32, 16, 60, DemoBuffer::kFormatYUYV, 1), idx % kLanes);
        }
    }
    for (uint8_t id = 0; id < 2; ++id) {
        for (uint8_t idx = 0; idx < 4; ++idx) {
            EXPECT_TRUE(host.waitForFrames(id, idx, 3, 10s)) << int(id) << ":" << int(idx);
            h.change(id, idx, streamConfig(32, 16, 60, DemoBuffer::kFormatYUYV, 0));
        }
    }
    hidl_uvc_client::setMjpegFileMode(true);
    for (const auto& key : h.client().streamKeysForTest()) {
        auto* handler = h.client().handlerForTest(key);
        std::lock_guard<std::mutex> quiet(handler->lockForTest());
        auto* pool = handler->buffersForTest();
        auto* mgmt = handler->bufferMgmtForTest();
        ASSERT_NE(nullptr, pool) << key;
        ASSERT_NE(nullptr, mgmt) << key;
        EXPECT_EQ(0, pool->state.load()) << key;
        EXPECT_EQ(5, pool->fillQ.size() + pool->sendQ.size()) << key;
        EXPECT_EQ(3, hardwareBuffers(*mgmt)) << key;
    }
}

}  // namespace
}  // namespace client_test
