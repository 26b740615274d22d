#pragma once

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "client/HidlUvcClient.h"
#include "client/StreamHandler.h"
#include "client/event_loop_utils.h"
#include "pipeline/DemoBuffer.h"
#include "trevo/HalUvcConfig.h"
#include "trevo_host.h"

// Sanitizers bring their own allocators, abort where an allocation fails,
// and make the library's frame path many times dearer.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define UVC_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define UVC_TEST_SANITIZED 1
#endif
#endif
#ifndef UVC_TEST_SANITIZED
#define UVC_TEST_SANITIZED 0
#endif

namespace client_test {

using namespace std::chrono_literals;
constexpr bool kSanitized = UVC_TEST_SANITIZED;
using uvc_client::DemoBuffer;

inline trevo::HalUvcConfig streamConfig(int w, int h, int fps, uint32_t format, int streaming) {
    trevo::HalUvcConfig c;
    c.width = w;
    c.height = h;
    c.fps = fps;
    c.format = format;
    c.streaming = streaming;
    return c;
}

// Set on the thread that runs the event loop (the allocation test counts
// what happens there).
inline thread_local bool onLoopThread = false;

// Loop initialised, client constructed, loop running on its own thread;
// destruction ends the loop before the client, as init() does.
class ClientHarness {
public:
    ClientHarness() {
        EXPECT_EQ(0, event_loop_init());
        client_ = std::make_unique<hidl_uvc_client::HidlUvcClient>();
        loop_ = std::thread([] {
            onLoopThread = true;
            event_loop_run(nullptr);
        });
    }
    ~ClientHarness() {
        event_loop_utils::stop();
        loop_.join();
    }
    hidl_uvc_client::HidlUvcClient& client() { return *client_; }
    // Sets the host's configuration and reports the change on `lane`;
    // returns once the client has handled it.
    void change(uint8_t id, uint8_t idx, const trevo::HalUvcConfig& c, int lane = 0) {
        auto& host = trevo_standin::Host::instance();
        host.setConfig(id, idx, c);
        ASSERT_TRUE(host.waitDelivered(host.hotplug(4, id, idx, lane), 10s));
    }

private:
    std::unique_ptr<hidl_uvc_client::HidlUvcClient> client_;
    std::thread loop_;
};

// Hardware buffers held by a buffer management (its queues may also hold an
// empty wake-up handle left by a stop, which is not a buffer).
inline int hardwareBuffers(hidl_uvc_client::BufferMgmt& mgmt) {
    int n = 0;
    auto count = [&n](const auto& b) { n += b ? 1 : 0; };
    mgmt.fillQ.forEach(count);
    mgmt.convertQ.forEach(count);
    return n;
}

// Every stream's pool is on and at home: 5 frame buffers of its size and 3
// hardware buffers, none out on the frame path.
inline void expectEveryPoolWhole(ClientHarness& h) {
    for (const auto& key : h.client().streamKeysForTest()) {
        auto* handler = h.client().handlerForTest(key);
        std::lock_guard<std::mutex> still(handler->lockForTest());
        auto* pool = handler->buffersForTest();
        auto* mgmt = handler->bufferMgmtForTest();
        ASSERT_TRUE(pool && mgmt) << key;
        EXPECT_EQ(0, pool->state.load()) << key;
        int frameBuffers = 0;
        auto count = [&](const auto& b) { frameBuffers += b && b->capacity == pool->size; };
        pool->fillQ.forEach(count);
        pool->sendQ.forEach(count);
        EXPECT_EQ(5, frameBuffers) << key;
        EXPECT_EQ(3, hardwareBuffers(*mgmt)) << key;
    }
}

// Ends a death-test child with a reason when a step did not hold.
inline void check(bool held, const char* why) {
    if (!held) {
        std::fprintf(stderr, "FAILED: %s\n", why);
        std::fflush(stderr);
        _exit(1);
    }
}

class HostTest : public ::testing::Test {
protected:
    void SetUp() override { host.reset(); }
    void TearDown() override { host.reset(); }
    trevo_standin::Host& host = trevo_standin::Host::instance();
};

}  // namespace client_test
