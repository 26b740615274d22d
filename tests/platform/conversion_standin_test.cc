#include <atomic>
#include <chrono>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "conversion_testing.h"
#include "trevo/ConversionFactory.h"

using namespace std::chrono_literals;

namespace {

struct RecordingSink : trevo::FrameReceiver {
    void processBuffer(trevo::GBuffer* frame) const override {
        std::lock_guard<std::mutex> guard(mutex);
        seen.push_back(std::to_string(frame->format) + " " + std::to_string(frame->size));
    }
    void preProcessBuffer(trevo::GBuffer*) const override {}
    mutable std::mutex mutex;
    mutable std::vector<std::string> seen;
};

}  // namespace

TEST(ConversionStandIn, BlobFramesReachEverySinkUntilUnregistered) {
    convfact_standin::clearPlugins();
    convfact_standin::failConversions(0);
    trevo::ConversionFactory factory;
    RecordingSink a;
    RecordingSink b;
    factory.registerFrameSink(&a);
    factory.registerFrameSink(&a);  // once only
    factory.registerFrameSink(&b);
    EXPECT_EQ(factory.frameSinkCount(), 2u);
    trevo::GBuffer frame;
    frame.format = 33;
    frame.size = 7;
    EXPECT_EQ(factory.convert(&frame, 33), 0);
    factory.unregisterFrameSink(&a);
    EXPECT_FALSE(factory.hasFrameSink(&a));
    EXPECT_EQ(factory.convert(&frame, 33), 0);
    convfact_standin::failConversions(1);
    EXPECT_NE(factory.convert(&frame, 33), 0);
    EXPECT_NE(factory.convert(nullptr, 33), 0);
    EXPECT_EQ(a.seen, (std::vector<std::string>{"33 7"}));
    EXPECT_EQ(b.seen, (std::vector<std::string>{"33 7", "33 7"}));
    factory.unregisterFrameSink(&b);
}

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
