#pragma once

// Shared pieces of the client tests: stream configurations, an event loop on
// its own thread, and a client driven by the bridge stand-in's host.

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "client/HidlUvcClient.h"
#include "client/event_loop_utils.h"
#include "pipeline/DemoBuffer.h"
#include "trevo/HalUvcConfig.h"
#include "trevo_host.h"

namespace client_test {

using namespace std::chrono_literals;

inline trevo::HalUvcConfig streamConfig(int w, int h, int fps, uint32_t format, int streaming) {
    trevo::HalUvcConfig c;
    c.width = w;
    c.height = h;
    c.fps = fps;
    c.format = format;
    c.streaming = streaming;
    return c;
}

// Set on the thread that runs the event loop; the allocation test counts
// only what happens there.
inline thread_local bool onLoopThread = false;

// event_loop_run on its own thread; the destructor stops and joins it.
class LoopThread {
public:
    LoopThread()
        : thread_([] {
              onLoopThread = true;
              event_loop_run(nullptr);
          }) {}
    ~LoopThread() {
        event_loop_utils::stop();
        thread_.join();
    }
    LoopThread(const LoopThread&) = delete;
    LoopThread& operator=(const LoopThread&) = delete;

private:
    std::thread thread_;
};

// A client as init() would run it: loop initialised, client constructed,
// loop running. Destruction ends the loop first and then the client, so no
// timer is destroyed while the loop runs.
class ClientHarness {
public:
    ClientHarness() {
        EXPECT_EQ(0, event_loop_init());
        client_ = std::make_unique<hidl_uvc_client::HidlUvcClient>();
        loop_ = std::make_unique<LoopThread>();
    }
    ~ClientHarness() {
        loop_.reset();
        client_.reset();
    }
    hidl_uvc_client::HidlUvcClient& client() { return *client_; }

    // Sets the stream's configuration at the host and delivers a stream
    // change for it on `lane`; waits until the client has handled it.
    void change(uint8_t id, uint8_t idx, const trevo::HalUvcConfig& c, int lane = 0) {
        auto& host = trevo_standin::Host::instance();
        host.setConfig(id, idx, c);
        ASSERT_TRUE(host.waitDelivered(host.hotplug(4, id, idx, lane), 10s));
    }

private:
    std::unique_ptr<hidl_uvc_client::HidlUvcClient> client_;
    std::unique_ptr<LoopThread> loop_;
};

// Resets the host before and after each test.
class HostTest : public ::testing::Test {
protected:
    void SetUp() override { trevo_standin::Host::instance().reset(); }
    void TearDown() override { trevo_standin::Host::instance().reset(); }
    trevo_standin::Host& host = trevo_standin::Host::instance();
};

}  // namespace client_test
