#include <fcntl.h>
#include <sys/resource.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>

#include "android_testing.h"
#include "client/ClientEntry.h"
#include "client_harness.h"
#include "hidl_uvc_client.h"

namespace client_test {
namespace {

using hidl_uvc_client::HidlUvcClient;

TEST_F(HostTest, ClientRegistersFollowsStreamChangesAndSerialisesSettings) {
    ASSERT_EQ(0, event_loop_init());
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
    auto lines = log.withTag("HidlUvcClient");
    ASSERT_EQ(6u, lines.size());
    EXPECT_EQ("Got hotplug message with status: -1", lines[5].text);
    EXPECT_EQ((std::vector<std::string>{"0:0", "2:5"}), client.streamKeysForTest());
    calls = host.calls();  // one handler for 2:5, told twice
    EXPECT_EQ(2, std::count(calls.begin(), calls.end(), "getConfiguration(2:5)"));

    // Camera messages from several lanes reach the camera handler one at a time.
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
    EXPECT_EQ(0u, out.find("Got hotplug message with status: 4 | stream_id [2] | stream_idx [5]\n"
                           "\nhotplug\n"));
    EXPECT_NE(std::string::npos,
              out.find("Got setting message with: stream_id [7] | stream_idx [3]\n"));
    EXPECT_NE(std::string::npos, out.find("\ncam setting\n"));
    EXPECT_EQ(22u, host.appMessages().size());  // 2 stream changes, 1 reply per "get"
    EXPECT_EQ((std::vector<std::string>{"0:0", "2:5"}), client.streamKeysForTest());
}

// Started, stream 0:0's handler only, no stream configured: the loop waits
// on 0:0's two unarmed timers and never wakes. A bare 10 ms timer, read on
// this thread, measures the window: 20 expiries, at least 200 ms.
TEST_F(HostTest, AnIdleLibraryDoesNotWake) {
    ClientHarness h;
    const unsigned before = event_loop_utils::wakeUps();
    const int bare = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    ASSERT_GE(bare, 0);
    const struct itimerspec every10ms = {{0, 10000000}, {0, 10000000}};
    ASSERT_EQ(0, timerfd_settime(bare, 0, &every10ms, nullptr));
    uint64_t expiries = 0;
    for (uint64_t n; expiries < 20 && read(bare, &n, sizeof(n)) == sizeof(n);) {
        expiries += n;
    }
    close(bare);
    EXPECT_GE(expiries, 20u);
    EXPECT_EQ(0u, event_loop_utils::wakeUps() - before);
}

TEST_F(HostTest, EarlyStreamChangeRacesTheFirstHandler) {
    ASSERT_EQ(0, event_loop_init());
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

TEST_F(HostTest, InitRunsUntilStoppedAndRefusesASecondClient) {
    int rc = -5;
    std::thread worker([&] { rc = hidl_uvc_client::init(false); });
    ASSERT_TRUE(host.waitForHandler(5s));
    testing::internal::CaptureStdout();
    EXPECT_EQ(-1, hidl_uvc_client::init(true));
    EXPECT_EQ("hidl_uvc_client: a client is already running, init ignored\n",
              testing::internal::GetCapturedStdout());
    hidl_uvc_client::stop();
    worker.join();
    EXPECT_EQ(0, rc);
    EXPECT_FALSE(host.hasHandler());
    EXPECT_EQ(0, event_loop_utils::registeredCount());

    EXPECT_EQ(0, hidl_uvc_client::init(true));  // detached: runs until stopped
    ASSERT_TRUE(host.waitForHandler(5s));
    hidl_uvc_client::stop();
    const auto end = std::chrono::steady_clock::now() + 5s;
    while (hidl_uvc_client::clientRunning() && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(5ms);
    }
    EXPECT_FALSE(hidl_uvc_client::clientRunning());
    EXPECT_FALSE(host.hasHandler());
}

// The loop starts with one descriptor left, for its epoll instance; with
// none left, init fails and no client runs.
[[noreturn]] void initWithOneDescriptorThenNone() {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    const struct rlimit few = {64, 64};
    check(setrlimit(RLIMIT_NOFILE, &few) == 0, "setrlimit");
    int last = -1;
    for (int fd; (fd = dup(STDERR_FILENO)) >= 0;) {
        last = fd;
    }
    close(last);
    check(event_loop_init() == 0, "no loop with one descriptor left");
    const int rc = hidl_uvc_client::init(false);
    std::fflush(stdout);
    check(rc == 0 && !hidl_uvc_client::clientRunning(), "a client without a descriptor");
    _exit(0);
}

TEST(InitDeathTest, TheLoopNeedsOneDescriptorAndWithoutItThereIsNoClient) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(initWithOneDescriptorThenNone(), testing::ExitedWithCode(0),
                "Initialization event loop failed, exiting\n");
}

// Death-test children: output to /dev/null, at most `n` descriptors.
void quietWithDescriptors(rlim_t n) {
    dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO);
    const struct rlimit limit = {n, n};
    check(setrlimit(RLIMIT_NOFILE, &limit) == 0, "setrlimit");
}

// Under 1,024 descriptors, 2,000 other stream numbers arrive before the UVC
// streams are set up; 50 of them have a stream to run and come twice. Every
// handler holds two timer descriptors, so without the bound on handlers the
// flood would leave none for the UVC streams, which then all start at one
// change, each with frames of its own size.
[[noreturn]] void floodThenStream() {
    quietWithDescriptors(1024);
    auto& host = trevo_standin::Host::instance();
    android_standin::LogCapture log;
    const auto start = std::chrono::steady_clock::now();
    ClientHarness h;
    std::vector<uint64_t> tickets;
    for (int i = 0; i < 2000 + 50; ++i) {
        const int n = i < 2000 ? i : (i - 2000) * 40;
        const uint8_t id = 2 + n / 250, idx = n % 250;
        if (i < 2000 && n % 40 == 0) {
            host.setConfig(id, idx, streamConfig(16, 8, 30, DemoBuffer::kFormatYUYV, 1));
        }
        tickets.push_back(host.hotplug(4, id, idx, i % 4));
    }
    for (uint64_t t : tickets) {
        check(host.waitDelivered(t, 30s), "a change of the flood is stuck");
    }
    const auto width = [](int s) { return 16 + 16 * s; };
    for (uint8_t s = 0; s < 8; ++s) {
        host.setConfig(s / 4, s % 4, streamConfig(width(s), 8, 30, DemoBuffer::kFormatYUYV, 1));
    }
    check(host.waitDelivered(host.hotplug(4, 255, 7), 10s), "the UVC streams' change is stuck");
    for (uint8_t s = 0; s < 8; ++s) {
        check(host.waitForFrames(s / 4, s % 4, 3, 5s), "a UVC stream without frames");
    }
    for (const auto& f : host.frames()) {
        check(f.streamId > 1 || f.size == width(f.streamId * 4 + f.streamIdx) * 2u * 8,
              "a UVC stream carried another's frames");
    }
    // The eight UVC keys and eight others (which ones depends on how the
    // lanes interleaved).
    check(h.client().streamKeysForTest().size() == 16, "not 8 + 8 handlers");
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    size_t lines = 0;
    for (const auto& r : log.withTag("HidlUvcClient")) {
        lines += r.text.find(": ignored, 8 stream numbers besides 0:0 to 1:3 already have a "
                             "handler (") != std::string::npos;
    }
    check(lines >= 1 && lines <= 1 + seconds, "ignored changes not logged once a second");
    _exit(0);
}

TEST(StreamLimitDeathTest, AFloodOfStreamNumbersLeavesTheUvcStreamsTheirDescriptors) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(floodThenStream(), testing::ExitedWithCode(0), "");
}

// Stream 1:0's handler is made while no descriptor is left: its timers have
// none and its first stream change starts nothing, saying why. Once
// descriptors are free again, the next stream change makes the timers and
// the stream runs.
[[noreturn]] void timersMadeAgainAfterExhaustion() {
    quietWithDescriptors(256);
    auto& host = trevo_standin::Host::instance();
    android_standin::LogCapture log;
    ClientHarness h;
    std::vector<int> fillers;
    for (int fd; (fd = dup(STDERR_FILENO)) >= 0;) {
        fillers.push_back(fd);
    }
    host.setConfig(1, 0, streamConfig(32, 16, 30, DemoBuffer::kFormatYUYV, 1));
    check(host.waitDelivered(host.hotplug(4, 1, 0), 10s), "the first change is stuck");
    for (int fd : fillers) {
        close(fd);
    }
    const auto records = log.records();
    auto said = [&records](const std::string& text) {
        return std::any_of(records.begin(), records.end(),
                           [&text](const auto& r) { return r.text == text; });
    };
    check(said("Stream [1] [0]: no timer descriptor, not started\n") &&
              said("no wake alarm fd\n") && host.frameCount(1, 0) == 0,
          "started without timers, or without saying why not");
    check(host.waitDelivered(host.hotplug(4, 1, 0), 10s), "the second change is stuck");
    check(host.waitForFrames(1, 0, 3, 5s), "no frames once descriptors were free");
    _exit(0);
}

TEST(StreamLimitDeathTest, TimersMissingForWantOfDescriptorsAreMadeAtTheNextStart) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(timersMadeAgainAfterExhaustion(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace client_test
