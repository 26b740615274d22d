#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "trevo/CompositorBridge.h"
#include "trevo_host.h"

using namespace std::chrono_literals;
using Events = std::vector<std::string>;

namespace {

// Records every call; stays inside hotplug while `hold` is set.
struct RecordingHandler : trevo::HotPlugHandler {
    void hotplug(trevo::ConnectionStatus status, uint8_t id, uint8_t idx) override {
        record("hotplug " + std::to_string(int(status)), id, idx);
        inside = true;
        while (hold)
            std::this_thread::sleep_for(1ms);
        inside = false;
    }
    void setting(std::string message, uint8_t id, uint8_t idx) override {
        record("setting " + message, id, idx);
    }
    void record(const std::string& what, uint8_t id, uint8_t idx) {
        std::lock_guard<std::mutex> guard(mutex);
        events.push_back(what + " " + std::to_string(id) + ":" + std::to_string(idx));
    }
    Events seen() {
        std::lock_guard<std::mutex> guard(mutex);
        return events;
    }
    bool waitInside() {
        for (int i = 0; i < 5000 && !inside; ++i)
            std::this_thread::sleep_for(1ms);
        return inside;
    }
    std::mutex mutex;
    Events events;
    std::atomic<bool> hold{false}, inside{false};
};

class BridgeHost : public ::testing::Test {
protected:
    void SetUp() override { host.reset(); }
    void TearDown() override { host.reset(); }  // also joins the lanes
    trevo_standin::Host& host = trevo_standin::Host::instance();
};

}  // namespace

TEST_F(BridgeHost, LanesKeepTheirOrderRunConcurrentlyAndAReplacedHandlerIsNotCalledAgain) {
    EXPECT_TRUE(host.waitDelivered(host.hotplug(4, 0, 0), 5s));
    EXPECT_EQ(host.droppedEvents(), 1u);  // no handler yet

    RecordingHandler handler, next;
    auto bridge = std::make_unique<trevo::CompositorBridge>(trevo::BRIDGE_CONTEXT_UVC);
    bridge->registerHotPlugHandler(handler);
    { trevo::CompositorBridge copy(*bridge); }
    EXPECT_TRUE(host.waitForHandler(0ms));  // only the registering bridge's end stops the calls
    handler.hold = true;
    uint64_t blocked = host.hotplug(4, 255, 0);
    ASSERT_TRUE(handler.waitInside());
    host.setting("{}", 1, 3);
    uint64_t last = host.hotplug(1, 2, 5);
    EXPECT_TRUE(host.waitDelivered(host.setting("x", 0, 0, 1), 5s));  // lane 1 goes on
    EXPECT_FALSE(host.waitDelivered(blocked, 20ms));

    // Replacing waits for the running call; the queued ones go to the next.
    auto replacing = std::async(std::launch::async, [&] { bridge->registerHotPlugHandler(next); });
    EXPECT_EQ(replacing.wait_for(30ms), std::future_status::timeout);
    handler.hold = false;
    replacing.get();
    ASSERT_TRUE(host.waitDelivered(last, 5s));
    EXPECT_EQ(handler.seen(), (Events{"hotplug 4 255:0", "setting x 0:0"}));
    EXPECT_EQ(next.seen(), (Events{"setting {} 1:3", "hotplug 1 2:5"}));

    bridge.reset();
    EXPECT_FALSE(host.hasHandler());
}
