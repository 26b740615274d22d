#include <android/log.h>

#include <algorithm>

#include "android_testing.h"
#include "client/ClientEntry.h"
#include "client_harness.h"
#include "fd_exhaustion.h"
#include "hidl_uvc_client.h"

namespace client_test {
namespace {

using hidl_uvc_client::HidlUvcClient;
using hidl_uvc_client::StreamHandler;
using uvc_client::DemoBuffer;

class ClientTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        ASSERT_EQ(0, event_loop_init());
    }
};

TEST_F(ClientTest, ConstructionRegistersThenMakesStreamZero) {
    HidlUvcClient client;
    auto calls = host.calls();
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ("registerHotPlugHandler", calls[0]);
    EXPECT_EQ("registerProjector(0)", calls[1]);
    EXPECT_EQ(std::vector<std::string>{"0:0"}, client.streamKeysForTest());
    EXPECT_EQ(0u, host.countCalls("getConfiguration(0:0)"));  // no stream change yet
    EXPECT_EQ("1:3", HidlUvcClient::streamKey(1, 3));
    EXPECT_EQ("255:10", HidlUvcClient::streamKey(255, 10));
}

TEST_F(ClientTest, StreamChangesCreateHandlersOnceAndOtherStatusesChangeNothing) {
    HidlUvcClient client;
    testing::internal::CaptureStdout();
    android_standin::LogCapture log;
    ASSERT_TRUE(host.waitDelivered(host.hotplug(4, 2, 5), 5s));
    StreamHandler* first = client.handlerForTest("2:5");
    ASSERT_NE(nullptr, first);
    ASSERT_TRUE(host.waitDelivered(host.hotplug(4, 2, 5), 5s));
    EXPECT_EQ(first, client.handlerForTest("2:5"));
    EXPECT_EQ(2u, host.countCalls("getConfiguration(2:5)"));
    for (int status : {0, 1, 2, 3, 5, -1}) {
        ASSERT_TRUE(host.waitDelivered(host.hotplug(status, 3, 3), 5s));
    }
    EXPECT_EQ((std::vector<std::string>{"0:0", "2:5"}), client.streamKeysForTest());
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos,
              out.find("Got hotplug message with status: 4 | stream_id [2] | stream_idx [5]\n"
                       "\nhotplug\n"));
    EXPECT_NE(std::string::npos, out.find("Got hotplug message with status: -1 | stream_id [3]"));
    auto lines = log.withTag("HidlUvcClient");
    ASSERT_EQ(8u, lines.size());
    EXPECT_EQ(ANDROID_LOG_INFO, lines[0].priority);
    EXPECT_EQ("Got hotplug message with status: 4", lines[0].text);
}

TEST_F(ClientTest, AllStreamsInOrder) {
    HidlUvcClient client;
    ASSERT_TRUE(host.waitDelivered(host.hotplug(4, 255, 9), 5s));
    EXPECT_EQ((std::vector<std::string>{"0:0", "0:1", "0:2", "0:3", "1:0", "1:1", "1:2", "1:3"}),
              client.streamKeysForTest());
    std::vector<std::string> order;
    for (const auto& c : host.calls()) {
        if (c.rfind("getConfiguration", 0) == 0) {
            order.push_back(c);
        }
    }
    EXPECT_EQ((std::vector<std::string>{"getConfiguration(0:0)", "getConfiguration(0:1)",
                                        "getConfiguration(0:2)", "getConfiguration(0:3)",
                                        "getConfiguration(1:0)", "getConfiguration(1:1)",
                                        "getConfiguration(1:2)", "getConfiguration(1:3)"}),
              order);
}

TEST_F(ClientTest, SettingGoesToTheCameraHandlerWhateverTheStream) {
    HidlUvcClient client;
    testing::internal::CaptureStdout();
    android_standin::LogCapture log;
    const std::string msg = R"({"msg_type":"uvc_report","content":{"brightness":"get"}})";
    ASSERT_TRUE(host.waitDelivered(host.setting(msg, 7, 3), 5s));
    EXPECT_TRUE(host.waitForAppMessages(1, 5s));  // the reply to "get"
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(std::string::npos,
              out.find("Got setting message with: stream_id [7] | stream_idx [3]\n"));
    EXPECT_NE(std::string::npos, out.find("\ncam setting\n"));
    auto lines = log.withTag("HidlUvcClient");
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("Got setting message\n", lines[0].text);
    EXPECT_EQ(std::vector<std::string>{"0:0"}, client.streamKeysForTest());
}

TEST_F(ClientTest, SettingsFromSeveralLanesAreHandledOneAtATime) {
    HidlUvcClient client;
    testing::internal::CaptureStdout();
    std::vector<uint64_t> tickets;
    for (int i = 0; i < 40; ++i) {
        const std::string msg =
            i % 2
                ? R"({"msg_type":"uvc_report","content":{"brightness":"get"}})"
                : R"({"msg_type":"uvc_report","content":{"brightness":)" + std::to_string(i) + "}}";
        tickets.push_back(host.setting(msg, 0, 0, i % 4));
    }
    for (uint64_t t : tickets) {
        EXPECT_TRUE(host.waitDelivered(t, 5s));
    }
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(20u, host.appMessages().size());
}

TEST_F(ClientTest, EarlyStreamChangeRacesTheFirstHandler) {
    host.setConfig(0, 0, streamConfig(16, 8, 30, DemoBuffer::kFormatYUYV, 0));
    for (int round = 0; round < 10; ++round) {
        std::vector<uint64_t> tickets;
        for (int lane = 0; lane < 3; ++lane) {
            tickets.push_back(host.hotplug(4, 0, 0, lane));
        }
        HidlUvcClient client;  // events arrive while it registers and inserts 0:0
        for (uint64_t t : tickets) {
            EXPECT_TRUE(host.waitDelivered(t, 5s));
        }
        EXPECT_EQ(std::vector<std::string>{"0:0"}, client.streamKeysForTest());
    }
}

TEST_F(ClientTest, DestroyedClientIsUnregistered) {
    {
        HidlUvcClient client;
        EXPECT_TRUE(host.hasHandler());
    }
    EXPECT_FALSE(host.hasHandler());
    EXPECT_EQ(0, event_loop_utils::registeredCount());
}

class EntryTest : public HostTest {};

TEST_F(EntryTest, InitRunsUntilStoppedAndRefusesASecondClient) {
    int rc = -5;
    std::thread worker([&] { rc = hidl_uvc_client::init(false); });
    ASSERT_TRUE(host.waitForHandler(5s));
    EXPECT_TRUE(hidl_uvc_client::clientRunning());
    testing::internal::CaptureStdout();
    EXPECT_EQ(-1, hidl_uvc_client::init(true));
    EXPECT_EQ("hidl_uvc_client: a client is already running, init ignored\n",
              testing::internal::GetCapturedStdout());

    host.setConfig(0, 0, streamConfig(64, 48, 30, DemoBuffer::kFormatYUYV, 1));
    ASSERT_TRUE(host.waitDelivered(host.hotplug(4, 0, 0), 5s));
    EXPECT_TRUE(host.waitForFrames(0, 0, 3, 5s));
    hidl_uvc_client::stop();
    worker.join();
    EXPECT_EQ(0, rc);
    EXPECT_FALSE(host.hasHandler());
    EXPECT_FALSE(hidl_uvc_client::clientRunning());
    EXPECT_EQ(0, event_loop_utils::registeredCount());
}

TEST_F(EntryTest, DetachedClientRunsOnItsOwnThread) {
    EXPECT_EQ(0, hidl_uvc_client::init(true));
    ASSERT_TRUE(host.waitForHandler(5s));
    hidl_uvc_client::stop();
    const auto end = std::chrono::steady_clock::now() + 5s;
    while (hidl_uvc_client::clientRunning() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(5ms);
    }
    EXPECT_FALSE(hidl_uvc_client::clientRunning());
    EXPECT_FALSE(host.hasHandler());
}

TEST_F(EntryTest, LoopThatCannotStartEndsInitAtOnce) {
    testing::internal::CaptureStdout();
    int rc = -5;
    {
        FdExhaustion exhausted;
        rc = hidl_uvc_client::init(false);
    }
    EXPECT_EQ(0, rc);
    EXPECT_EQ("Initialization event loop failed, exiting\n",
              testing::internal::GetCapturedStdout());
    EXPECT_FALSE(host.hasHandler());
    EXPECT_FALSE(hidl_uvc_client::clientRunning());
}

}  // namespace
}  // namespace client_test
