#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "trevo/ConversionFactory.h"

using namespace std::chrono_literals;

TEST(ConversionStandIn, UnregisterWaitsForARunningDelivery) {
    struct SlowSink : trevo::FrameReceiver {
        void processBuffer(trevo::GBuffer*) const override {
            entered = true;
            while (!release)
                std::this_thread::sleep_for(1ms);
            finished = true;
        }
        void preProcessBuffer(trevo::GBuffer*) const override {}
        mutable std::atomic<bool> entered{false}, release{false}, finished{false};
    } sink;
    trevo::ConversionFactory factory;
    factory.registerFrameSink(&sink);
    trevo::GBuffer frame;
    frame.format = 33;
    auto converting = std::async(std::launch::async, [&] { return factory.convert(&frame, 33); });
    while (!sink.entered)
        std::this_thread::sleep_for(1ms);
    auto removing = std::async(std::launch::async, [&] { factory.unregisterFrameSink(&sink); });
    EXPECT_EQ(removing.wait_for(30ms), std::future_status::timeout);
    sink.release = true;
    removing.get();
    EXPECT_TRUE(sink.finished.load());
    EXPECT_EQ(converting.get(), 0);
}
