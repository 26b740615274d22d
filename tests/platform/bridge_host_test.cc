#include <android/hardware_buffer.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "hardware_buffer_testing.h"
#include "trevo/CompositorBridge.h"
#include "trevo_host.h"

using namespace std::chrono_literals;
using trevo_standin::Host;

namespace {

// Records every call; optionally blocks inside hotplug until released.
class RecordingHandler : public trevo::HotPlugHandler {
public:
    ~RecordingHandler() override { bridgeToUnregister.unregisterHotPlugHandler(*this); }

    void hotplug(trevo::ConnectionStatus status, uint8_t id, uint8_t idx) override {
        std::unique_lock<std::mutex> guard(mutex);
        events.push_back("hotplug " + std::to_string(int(status)) + " " + std::to_string(id) + ":" +
                         std::to_string(idx));
        inside = true;
        cond.notify_all();
        cond.wait(guard, [&] { return !blocking; });
        inside = false;
    }
    void setting(std::string message, uint8_t id, uint8_t idx) override {
        std::lock_guard<std::mutex> guard(mutex);
        events.push_back("setting " + message + " " + std::to_string(id) + ":" +
                         std::to_string(idx));
    }

    void block(bool on) {
        std::lock_guard<std::mutex> guard(mutex);
        blocking = on;
        cond.notify_all();
    }
    bool waitInside() {
        std::unique_lock<std::mutex> guard(mutex);
        return cond.wait_for(guard, 5s, [&] { return inside; });
    }
    std::vector<std::string> seen() {
        std::lock_guard<std::mutex> guard(mutex);
        return events;
    }

    trevo::CompositorBridge bridgeToUnregister{trevo::BRIDGE_CONTEXT_UVC};
    std::mutex mutex;
    std::condition_variable cond;
    std::vector<std::string> events;
    bool blocking = false;
    bool inside = false;
};

class BridgeHost : public ::testing::Test {
protected:
    void SetUp() override { Host::instance().reset(); }
    void TearDown() override { Host::instance().reset(); }
    Host& host = Host::instance();
};

AHardwareBuffer* makeBlob(uint32_t bytes, uint8_t fill) {
    AHardwareBuffer_Desc desc = {
        bytes, 1, 1, AHARDWAREBUFFER_FORMAT_BLOB, AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN, 0, 0, 0};
    AHardwareBuffer* buffer = nullptr;
    if (AHardwareBuffer_allocate(&desc, &buffer) != 0)
        return nullptr;
    void* address = nullptr;
    AHardwareBuffer_lock(buffer, AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN, -1, nullptr, &address);
    std::memset(address, fill, bytes);
    AHardwareBuffer_unlock(buffer, nullptr);
    return buffer;
}

}  // namespace

TEST_F(BridgeHost, RecordsCallsAndServesConfigurations) {
    trevo::CompositorBridge bridge(trevo::BRIDGE_CONTEXT_UVC);
    trevo::CompositorBridge copy(bridge);
    EXPECT_EQ(host.liveBridges(), 2u);

    EXPECT_EQ(copy.getConfiguration(1, 2).label, ",");
    trevo::HalUvcConfig config;
    config.width = 1280;
    config.height = 720;
    config.fps = 30;
    config.format = 0x56595559;
    config.streaming = 1;
    host.setConfig(1, 2, config);
    trevo::HalUvcConfig got = copy.getConfiguration(1, 2);
    EXPECT_EQ(got.width, 1280);
    EXPECT_EQ(got.streaming, 1);
    EXPECT_EQ(host.getConfig(1, 2).fps, 30);
    EXPECT_EQ(host.getConfig(0, 0).width, 0);

    bridge.registerProjector(0);
    copy.onAppMessage("send test message");
    bridge.onAppMessage(std::string("{\"a\":1}"));
    std::vector<std::string> expected = {"getConfiguration(1:2)", "getConfiguration(1:2)",
                                         "registerProjector(0)", "onAppMessage", "onAppMessage"};
    EXPECT_EQ(host.calls(), expected);
    EXPECT_EQ(host.appMessages(), (std::vector<std::string>{"send test message", "{\"a\":1}"}));
    EXPECT_TRUE(host.waitForAppMessages(2, 0ms));
    EXPECT_FALSE(host.waitForAppMessages(3, 10ms));
}

TEST_F(BridgeHost, DeliversInOrderPerLaneAndDropsWithoutHandler) {
    uint64_t early = host.hotplug(4, 0, 0);
    EXPECT_TRUE(host.waitDelivered(early, 5s));
    EXPECT_EQ(host.droppedEvents(), 1u);

    RecordingHandler handler;
    trevo::CompositorBridge bridge(trevo::BRIDGE_CONTEXT_UVC);
    bridge.registerHotPlugHandler(handler);
    EXPECT_TRUE(host.waitForHandler(0ms));
    host.hotplug(4, 255, 0);
    host.setting("{}", 1, 3);
    uint64_t last = host.hotplug(1, 2, 5);
    ASSERT_TRUE(host.waitDelivered(last, 5s));
    EXPECT_EQ(handler.seen(),
              (std::vector<std::string>{"hotplug 4 255:0", "setting {} 1:3", "hotplug 1 2:5"}));
    EXPECT_FALSE(host.waitDelivered(0, 0ms));
    EXPECT_FALSE(host.waitDelivered(last + 100, 0ms));
    EXPECT_EQ(host.hotplug(4, 0, 0, 16), 0u);  // no such lane
}

TEST_F(BridgeHost, LanesRunConcurrently) {
    RecordingHandler handler;
    trevo::CompositorBridge bridge(trevo::BRIDGE_CONTEXT_UVC);
    bridge.registerHotPlugHandler(handler);
    handler.block(true);
    uint64_t blocked = host.hotplug(4, 0, 0, 0);
    ASSERT_TRUE(handler.waitInside());
    uint64_t other = host.setting("x", 0, 0, 1);
    EXPECT_TRUE(host.waitDelivered(other, 5s));
    EXPECT_FALSE(host.waitDelivered(blocked, 20ms));
    handler.block(false);
    EXPECT_TRUE(host.waitDelivered(blocked, 5s));
}

TEST_F(BridgeHost, UnregisterWaitsForARunningCallAndStopsLaterOnes) {
    RecordingHandler handler;
    trevo::CompositorBridge bridge(trevo::BRIDGE_CONTEXT_UVC);
    bridge.registerHotPlugHandler(handler);
    handler.block(true);
    host.hotplug(4, 0, 0);
    ASSERT_TRUE(handler.waitInside());
    uint64_t queued = host.hotplug(4, 0, 1);

    std::atomic<bool> returned{false};
    std::thread unregister([&] {
        bridge.unregisterHotPlugHandler(handler);
        returned = true;
    });
    std::this_thread::sleep_for(30ms);
    EXPECT_FALSE(returned.load());
    handler.block(false);
    unregister.join();
    EXPECT_TRUE(returned.load());
    EXPECT_TRUE(host.waitDelivered(queued, 5s));
    EXPECT_EQ(handler.seen().size(), 1u);  // the queued event found no handler
    EXPECT_FALSE(host.hasHandler());
    EXPECT_EQ(host.countCalls("unregisterHotPlugHandler"), 1u);
}

TEST_F(BridgeHost, DestroyingTheRegisteringBridgeUnregistersButACopyDoesNot) {
    RecordingHandler handler;
    auto bridge = std::make_unique<trevo::CompositorBridge>(trevo::BRIDGE_CONTEXT_UVC);
    bridge->registerHotPlugHandler(handler);
    { trevo::CompositorBridge copy(*bridge); }
    EXPECT_TRUE(host.hasHandler());
    bridge.reset();
    EXPECT_FALSE(host.hasHandler());
}

TEST_F(BridgeHost, DestroyedHandlerIsNeverCalled) {
    trevo::CompositorBridge bridge(trevo::BRIDGE_CONTEXT_UVC);
    {
        RecordingHandler handler;
        bridge.registerHotPlugHandler(handler);
    }
    EXPECT_FALSE(host.hasHandler());
    uint64_t ticket = host.hotplug(4, 0, 0);
    EXPECT_TRUE(host.waitDelivered(ticket, 5s));
    EXPECT_EQ(host.droppedEvents(), 1u);
}

TEST_F(BridgeHost, ResetDiscardsQueuedEventsAndJoinsLanes) {
    RecordingHandler handler;
    trevo::CompositorBridge bridge(trevo::BRIDGE_CONTEXT_UVC);
    bridge.registerHotPlugHandler(handler);
    handler.block(true);
    host.hotplug(4, 0, 0);
    ASSERT_TRUE(handler.waitInside());
    std::vector<uint64_t> queued;
    for (int i = 0; i < 50; ++i)
        queued.push_back(host.setting("m", 0, 0));
    auto done = std::async(std::launch::async, [&] { host.reset(); });
    std::this_thread::sleep_for(20ms);
    handler.block(false);
    ASSERT_EQ(done.wait_for(5s), std::future_status::ready);
    for (uint64_t t : queued)
        EXPECT_FALSE(host.waitDelivered(t, 0ms));
    EXPECT_EQ(handler.seen().size(), 1u);
    EXPECT_TRUE(host.calls().empty());
    // Lanes start again on demand.
    bridge.registerHotPlugHandler(handler);
    EXPECT_TRUE(host.waitDelivered(host.hotplug(4, 0, 0), 5s));
}

TEST_F(BridgeHost, ResetFromInsideADeliveryDoesNotHang) {
    struct Resetter : trevo::HotPlugHandler {
        void hotplug(trevo::ConnectionStatus, uint8_t, uint8_t) override {
            Host::instance().reset();
            done = true;
        }
        void setting(std::string, uint8_t, uint8_t) override {}
        std::atomic<bool> done{false};
    } resetter;
    trevo::CompositorBridge bridge(trevo::BRIDGE_CONTEXT_UVC);
    bridge.registerHotPlugHandler(resetter);
    host.hotplug(4, 0, 0);
    for (int i = 0; i < 500 && !resetter.done; ++i)
        std::this_thread::sleep_for(2ms);
    EXPECT_TRUE(resetter.done.load());
    EXPECT_FALSE(host.hasHandler());
}

TEST_F(BridgeHost, ReceivesFramesAndReportsLostConnections) {
    trevo::CompositorBridge bridge(trevo::BRIDGE_CONTEXT_UVC);
    AHardwareBuffer* buffer = makeBlob(16, 0xAB);
    ASSERT_NE(buffer, nullptr);
    std::atomic<int> heard{0};
    host.setFrameListener([&](const trevo_standin::ReceivedFrame& f) {
        EXPECT_EQ(f.streamIdx, f.streamId == 1 ? 2 : 0);
        ++heard;
    });

    EXPECT_EQ(bridge.sendFrameBuffer(0, buffer, 10, 1, 2, 0), 0);
    ASSERT_TRUE(host.waitForFrames(1, 2, 1, 0ms));
    trevo_standin::ReceivedFrame frame = host.frames().at(0);
    EXPECT_EQ(frame.streamId, 1);
    EXPECT_EQ(frame.streamIdx, 2);
    EXPECT_EQ(frame.width, 16u);
    EXPECT_EQ(frame.height, 1u);
    EXPECT_EQ(frame.format, uint32_t(AHARDWAREBUFFER_FORMAT_BLOB));
    EXPECT_EQ(frame.bytes, std::vector<uint8_t>(10, 0xAB));
    EXPECT_GT(frame.monotonicNs, 0u);
    EXPECT_EQ(hardware_buffer_standin::lockDepth(buffer), 0);

    // A size beyond the buffer is recorded but never read past the buffer.
    EXPECT_EQ(bridge.sendFrameBuffer(0, buffer, 100, 1, 2, 0), 0);
    EXPECT_EQ(host.frames().at(1).bytes.size(), 16u);

    host.setCopyFrameBytes(false);
    EXPECT_EQ(bridge.sendFrameBuffer(0, buffer, 10, 1, 2, 0), 0);
    EXPECT_TRUE(host.frames().at(2).bytes.empty());

    host.failSends(2);
    EXPECT_NE(bridge.sendFrameBuffer(0, buffer, 10, 1, 2, 0), 0);
    EXPECT_NE(bridge.sendFrameBuffer(0, buffer, 10, 1, 2, 0), 0);
    EXPECT_EQ(bridge.sendFrameBuffer(0, buffer, 10, 0, 0, 0), 0);
    EXPECT_EQ(host.rejectedSends(), 2u);
    EXPECT_EQ(host.frameCount(1, 2), 3u);
    EXPECT_EQ(host.frameCount(0, 0), 1u);
    EXPECT_EQ(heard.load(), 4);
    EXPECT_NE(bridge.sendFrameBuffer(0, nullptr, 10, 0, 0, 0), 0);

    host.clearFrames();
    EXPECT_TRUE(host.frames().empty());
    AHardwareBuffer_release(buffer);
}
