#pragma once

#include <chrono>
#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "conversion_testing.h"
#include "hardware_buffer_testing.h"
#include "pipeline/BufferMgmt.h"
#include "pipeline/Buffers.h"
#include "trevo/ConversionFactory.h"
#include "trevo_host.h"

// The conversion factory's registered sinks, read under its mutex.
std::set<trevo::FrameReceiver*> factorySinks();

// Pools and buffer managements against the bridge host; every test must give
// back each hardware buffer, lock and factory sink it took.
class FramePathTest : public ::testing::Test {
protected:
    using BufferMgmt = hidl_uvc_client::BufferMgmt;
    using Buffers = hidl_uvc_client::Buffers;
    using DynamicBuffer = hidl_uvc_client::DynamicBuffer;

    void SetUp() override {
        host.reset();
        hardware_buffer_standin::clearFaults();
        hardware_buffer_standin::resetCounters();
        liveBefore = liveBuffers();
        sinksBefore = factorySinks().size();
    }
    void TearDown() override {
        convfact_standin::waitForDeliveries();
        host.reset();
        hardware_buffer_standin::clearFaults();
        EXPECT_EQ(liveBuffers(), liveBefore);
        EXPECT_EQ(hardware_buffer_standin::heldLocks(), 0u);
        EXPECT_EQ(factorySinks().size(), sinksBefore);
    }

    // Hardware buffers of the stream client: the conversion library keeps
    // output buffers of its own when it delivers later.
    static size_t liveBuffers() {
        return hardware_buffer_standin::liveBuffers() - convfact_standin::libraryBuffers();
    }

    std::unique_ptr<BufferMgmt> makeMgmt(unsigned count, unsigned size, uint8_t id = 0,
                                         uint8_t idx = 0) {
        auto mgmt = std::make_unique<BufferMgmt>(count, size, &bridge, id, idx);
        buffersMade[mgmt.get()] = count;
        return mgmt;
    }

    static void queueFrame(Buffers& pool, uint32_t length, uint8_t fill) {
        std::unique_ptr<DynamicBuffer> frame = pool.getBuffer();
        ASSERT_NE(frame, nullptr);
        std::memset(frame->data, fill, length);
        frame->length = length;
        pool.sendQ.push(std::move(frame));
    }

    // Sends one frame once every hardware buffer is back (a hand-over during a
    // conversion drops its frame, and so does a later delivery that finds
    // none free to copy into) and the conversion thread is idle.
    unsigned sendOne(Buffers& pool, const std::unique_ptr<BufferMgmt>& mgmt, uint32_t length,
                     uint8_t fill) {
        convfact_standin::waitForDeliveries();
        for (int i = 0; i < 2000 && !idle(*mgmt); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        queueFrame(pool, length, fill);
        // The thread may have taken a buffer from convertQ just before the
        // idle check; holding its (recursive) lock over the hand-over keeps a
        // conversion it starts now from making the hand-over drop the frame.
        std::lock_guard<std::recursive_mutex> guard(mgmt->lock);
        return pool.sendFrame(mgmt);
    }

    bool idle(BufferMgmt& mgmt) {
        std::unique_lock<std::recursive_mutex> guard(mgmt.lock, std::try_to_lock);
        const int home = int(buffersMade[&mgmt]) - mgmt.missingBuffers();
        return guard.owns_lock() && mgmt.fillQ.size() >= std::max(home, 1) &&
               mgmt.convertQ.size() == 0;
    }

    trevo_standin::Host& host = trevo_standin::Host::instance();
    trevo::CompositorBridge bridge{trevo::BRIDGE_CONTEXT_UVC};
    std::map<const BufferMgmt*, unsigned> buffersMade;
    size_t liveBefore = 0;
    size_t sinksBefore = 0;
};
