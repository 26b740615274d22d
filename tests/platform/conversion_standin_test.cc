#include <android/hardware_buffer.h>

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

class RecordingSink : public trevo::FrameReceiver {
public:
    void processBuffer(trevo::GBuffer* frame) const override {
        std::lock_guard<std::mutex> guard(mutex);
        log.push_back("process " + std::to_string(frame->format) + " " +
                      std::to_string(frame->size));
    }
    void preProcessBuffer(trevo::GBuffer*) const override {
        std::lock_guard<std::mutex> guard(mutex);
        log.push_back("pre");
    }
    std::vector<std::string> seen() const {
        std::lock_guard<std::mutex> guard(mutex);
        return log;
    }
    mutable std::mutex mutex;
    mutable std::vector<std::string> log;
};

// A plug-in converter that claims the given pairs and forwards as output.
class FakeConverter : public trevo::ConverterInterface {
public:
    FakeConverter(trevo::ConverterCbInterface* cb, std::vector<std::pair<int, int>> pairs)
        : cb_(cb), pairs_(std::move(pairs)) {}
    std::vector<std::pair<int, int>> supportedFormats() const override { return pairs_; }
    int convert(trevo::GBuffer* frame, int outFormat) override {
        trevo::GBuffer out;
        out.format = static_cast<uint32_t>(outFormat);
        out.size = frame->size * 2;
        cb_->onFrameConverted(&out);
        return 0;
    }

private:
    trevo::ConverterCbInterface* cb_;
    std::vector<std::pair<int, int>> pairs_;
};

class ConversionStandIn : public ::testing::Test {
protected:
    void SetUp() override {
        convfact_standin::clearPlugins();
        convfact_standin::resetCounters();
        convfact_standin::failConversions(0);
    }
    void TearDown() override { convfact_standin::clearPlugins(); }
};

}  // namespace

TEST_F(ConversionStandIn, TableWithoutPluginsHoldsOnlyTheBuiltInConverter) {
    trevo::ConversionFactory factory;
    const auto& table = factory.converterTable();
    ASSERT_EQ(table.size(), 2u);
    EXPECT_EQ(table.at({17, 20}), factory.builtInConverter());
    EXPECT_EQ(table.at({35, 20}), factory.builtInConverter());
    EXPECT_EQ(factory.frameSinkCount(), 0u);
}

TEST_F(ConversionStandIn, PluginsReplaceBuiltInPairsAndLaterNamesWin) {
    std::vector<trevo::ConverterInterface*> made(2, nullptr);
    convfact_standin::addPlugin("b_second", [&](trevo::ConverterCbInterface* cb) {
        auto c = std::make_shared<FakeConverter>(cb, std::vector<std::pair<int, int>>{{1, 2}});
        made[1] = c.get();
        return c;
    });
    convfact_standin::addPlugin("a_first", [&](trevo::ConverterCbInterface* cb) {
        auto c =
            std::make_shared<FakeConverter>(cb, std::vector<std::pair<int, int>>{{17, 20}, {1, 2}});
        made[0] = c.get();
        return c;
    });
    trevo::ConversionFactory factory;
    const auto& table = factory.converterTable();
    EXPECT_EQ(table.size(), 3u);
    EXPECT_EQ(table.at({17, 20}), made[0]);
    EXPECT_EQ(table.at({35, 20}), factory.builtInConverter());
    EXPECT_EQ(table.at({1, 2}), made[1]);

    RecordingSink sink;
    factory.registerFrameSink(&sink);
    trevo::GBuffer frame;
    frame.format = 1;
    frame.size = 5;
    EXPECT_EQ(factory.convert(&frame, 2), 0);
    EXPECT_EQ(sink.seen(), (std::vector<std::string>{"pre", "process 2 10"}));
    factory.unregisterFrameSink(&sink);
}

TEST_F(ConversionStandIn, BlobFramesReachEverySinkUntilUnregistered) {
    trevo::ConversionFactory factory;
    RecordingSink a;
    RecordingSink b;
    factory.registerFrameSink(&a);
    factory.registerFrameSink(&a);
    factory.registerFrameSink(&b);
    EXPECT_EQ(factory.frameSinkCount(), 2u);

    trevo::GBuffer frame;
    frame.format = 33;
    frame.size = 7;
    EXPECT_EQ(factory.convert(&frame, 33), 0);
    EXPECT_EQ(a.seen(), (std::vector<std::string>{"pre", "process 33 7"}));
    EXPECT_EQ(b.seen().size(), 2u);
    EXPECT_EQ(convfact_standin::deliveredFrames(), 2u);

    factory.unregisterFrameSink(&a);
    EXPECT_FALSE(factory.hasFrameSink(&a));
    EXPECT_EQ(factory.convert(&frame, 33), 0);
    EXPECT_EQ(a.seen().size(), 2u);
    EXPECT_EQ(b.seen().size(), 4u);

    // The built-in converter relabels 4:2:0 input as YUY2.
    frame.format = 17;
    EXPECT_EQ(factory.convert(&frame, 20), 0);
    EXPECT_EQ(b.seen().back(), "process 20 7");

    // No route, injected failure, no frame.
    EXPECT_NE(factory.convert(&frame, 99), 0);
    convfact_standin::failConversions(1);
    frame.format = 33;
    EXPECT_NE(factory.convert(&frame, 33), 0);
    EXPECT_NE(factory.convert(nullptr, 33), 0);
    EXPECT_EQ(b.seen().size(), 6u);
    EXPECT_EQ(convfact_standin::convertCalls(), 6u);
    factory.unregisterFrameSink(&b);
}

TEST_F(ConversionStandIn, UnregisterWaitsForARunningDelivery) {
    struct SlowSink : trevo::FrameReceiver {
        void processBuffer(trevo::GBuffer*) const override {
            entered = true;
            while (!release)
                std::this_thread::sleep_for(1ms);
            finished = true;
        }
        void preProcessBuffer(trevo::GBuffer*) const override {}
        mutable std::atomic<bool> entered{false};
        mutable std::atomic<bool> release{false};
        mutable std::atomic<bool> finished{false};
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

TEST_F(ConversionStandIn, GBufferSetUpReadsTheHardwareBuffer) {
    AHardwareBuffer_Desc desc = {
        4096, 1, 1, AHARDWAREBUFFER_FORMAT_BLOB, AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN, 0, 0, 0};
    AHardwareBuffer* buffer = nullptr;
    ASSERT_EQ(AHardwareBuffer_allocate(&desc, &buffer), 0);
    {
        trevo::GBuffer frame(buffer);
        EXPECT_EQ(frame.width, 4096u);
        EXPECT_EQ(frame.height, 1u);
        EXPECT_EQ(frame.layers, 1u);
        EXPECT_EQ(frame.stride, frame.stride2);
        EXPECT_EQ(frame.format, 33u);
        EXPECT_EQ(frame.size, 4096u);
        EXPECT_EQ(frame.hardwareBuffer, buffer);
    }
    trevo::GBuffer none(nullptr);
    EXPECT_EQ(none.width, 0u);
    AHardwareBuffer_release(buffer);
}
