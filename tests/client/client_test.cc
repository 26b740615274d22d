#include <android/log.h>

#include "android_testing.h"
#include "client/ClientEntry.h"
#include "client_harness.h"
#include "hidl_uvc_client.h"

namespace client_test {
namespace {

using hidl_uvc_client::HidlUvcClient;
using uvc_client::DemoBuffer;

class ClientTest : public HostTest {
protected:
    void SetUp() override {
        HostTest::SetUp();
        ASSERT_EQ(0, event_loop_init());
    }
    std::vector<std::string> configReads() {
        std::vector<std::string> out;
        for (const auto& c : host.calls()) {
            if (c.rfind("getConfiguration", 0) == 0) {
                out.push_back(c.substr(17, c.size() - 18));
            }
        }
        return out;
    }
};

TEST_F(ClientTest, RegistersThenFollowsStreamChangesOnly) {
    HidlUvcClient client;
    auto calls = host.calls();
    ASSERT_GE(calls.size(), 2u);
    EXPECT_EQ("registerHotPlugHandler", calls[0]);
    EXPECT_EQ("registerProjector(0)", calls[1]);
    EXPECT_EQ(std::vector<std::string>{"0:0"}, client.streamKeysForTest());

    testing::internal::CaptureStdout();
    android_standin::LogCapture log;
    for (int status : {4, 4, 0, 1, 3, -1}) {
        ASSERT_TRUE(host.waitDelivered(host.hotplug(status, 2, 5), 5s));
    }
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ((std::vector<std::string>{"0:0", "2:5"}), client.streamKeysForTest());
    EXPECT_EQ((std::vector<std::string>{"2:5", "2:5"}), configReads());  // one handler, twice
    EXPECT_EQ(0u, out.find("Got hotplug message with status: 4 | stream_id [2] | stream_idx [5]\n"
                           "\nhotplug\n"));
    auto lines = log.withTag("HidlUvcClient");
    ASSERT_EQ(6u, lines.size());
    EXPECT_EQ("Got hotplug message with status: -1", lines[5].text);

    ASSERT_TRUE(host.waitDelivered(host.hotplug(4, 255, 9), 5s));
    EXPECT_EQ(
        (std::vector<std::string>{"0:0", "0:1", "0:2", "0:3", "1:0", "1:1", "1:2", "1:3", "2:5"}),
        client.streamKeysForTest());
    EXPECT_EQ((std::vector<std::string>{"2:5", "2:5", "0:0", "0:1", "0:2", "0:3", "1:0", "1:1",
                                        "1:2", "1:3"}),
              configReads());
}

TEST_F(ClientTest, SettingsFromSeveralLanesReachTheCameraHandlerOneAtATime) {
    HidlUvcClient client;
    testing::internal::CaptureStdout();
    std::vector<uint64_t> tickets;
    for (int i = 0; i < 40; ++i) {
        const std::string value = i % 2 ? "\"get\"" : std::to_string(i);
        tickets.push_back(host.setting(
            R"({"msg_type":"uvc_report","content":{"brightness":)" + value + "}}", 7, 3, i % 4));
    }
    for (uint64_t t : tickets) {
        EXPECT_TRUE(host.waitDelivered(t, 5s));
    }
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(20u, host.appMessages().size());  // one reply per "get"
    EXPECT_NE(std::string::npos,
              out.find("Got setting message with: stream_id [7] | stream_idx [3]\n"));
    EXPECT_NE(std::string::npos, out.find("\ncam setting\n"));
    EXPECT_EQ(std::vector<std::string>{"0:0"}, client.streamKeysForTest());
}

TEST_F(ClientTest, EarlyStreamChangeRacesTheFirstHandler) {
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

class EntryTest : public HostTest {};

TEST_F(EntryTest, InitRunsUntilStoppedAndRefusesASecondClient) {
    int rc = -5;
    std::thread worker([&] { rc = hidl_uvc_client::init(false); });
    ASSERT_TRUE(host.waitForHandler(5s));
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
    EXPECT_EQ(0, event_loop_utils::registeredCount());

    // Detached: runs on its own thread until stopped.
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

}  // namespace
}  // namespace client_test
