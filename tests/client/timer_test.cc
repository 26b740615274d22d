#include <fcntl.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include <android/log.h>

#include "android_testing.h"
#include "client/event_loop_utils.h"
#include "client/timer.h"
#include "fd_exhaustion.h"

namespace {

using namespace std::chrono_literals;
using util::hidl_uvc_client::timer;

std::vector<std::string> texts(const android_standin::LogCapture& log) {
    std::vector<std::string> out;
    for (const auto& r : log.withTag("ConvFactory")) {
        EXPECT_EQ(ANDROID_LOG_INFO, r.priority);
        out.push_back(r.text);
    }
    return out;
}

struct itimerspec settingOf(const timer& t) {
    struct itimerspec now = {};
    EXPECT_EQ(0, timerfd_gettime(t.wakealarm_fd, &now));
    return now;
}

class TimerTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, event_loop_init()); }
    std::atomic<int> calls{0};
    std::function<void()> count() {
        return [this] { calls++; };
    }
};

TEST(TimerArithmetic, FrameRatePeriods) {
    EXPECT_EQ(33333337, timer::intervalNs(1.0f / 30));
    EXPECT_EQ(40000000, timer::intervalNs(1.0f / 25));
    EXPECT_EQ(40000000, timer::intervalNs(0.04f));
    EXPECT_EQ(16666669, timer::intervalNs(1.0f / 60));
    EXPECT_EQ(66666673, timer::intervalNs(1.0f / 15));
    EXPECT_EQ(0, timer::intervalNs(0.0f));
    // What does not fit a signed 32-bit nanosecond count is refused.
    EXPECT_EQ(-1, timer::intervalNs(2.5f));
    EXPECT_EQ(-1, timer::intervalNs(-0.01f));
    EXPECT_EQ(-1, timer::intervalNs(std::numeric_limits<float>::quiet_NaN()));
    EXPECT_EQ(-1, timer::intervalNs(std::numeric_limits<float>::infinity()));
}

TEST_F(TimerTest, NewTimerIsRegisteredAndUnarmed) {
    const int before = event_loop_utils::registeredCount();
    timer t(count());
    EXPECT_GT(t.wakealarm_fd, 0);
    EXPECT_EQ(30, t.initial_delay_ms);
    EXPECT_EQ(&t, t.event.context);
    EXPECT_EQ(before + 1, event_loop_utils::registeredCount());
    auto s = settingOf(t);
    EXPECT_EQ(0, s.it_value.tv_sec);
    EXPECT_EQ(0, s.it_value.tv_nsec);
}

TEST_F(TimerTest, ArmsWithThirtyMsFirstExpiryAndDisarms) {
    timer t(count());
    android_standin::LogCapture log;
    t.set_interval(false, 1.0f / 30);
    auto s = settingOf(t);
    EXPECT_EQ(0, s.it_interval.tv_sec);
    EXPECT_EQ(33333337, s.it_interval.tv_nsec);
    EXPECT_EQ(0, s.it_value.tv_sec);
    EXPECT_GT(s.it_value.tv_nsec, 0);
    EXPECT_LE(s.it_value.tv_nsec, 30000000);

    t.set_interval(false, 0.0f);  // one expiry, no repetition
    s = settingOf(t);
    EXPECT_EQ(0, s.it_interval.tv_nsec);
    EXPECT_GT(s.it_value.tv_nsec, 0);

    t.set_interval(false, 5.0f);  // refused: the previous setting stays
    EXPECT_GT(settingOf(t).it_value.tv_nsec, 0);

    t.set_interval(true, 123.0f);
    s = settingOf(t);
    EXPECT_EQ(
        0, s.it_interval.tv_sec + s.it_interval.tv_nsec + s.it_value.tv_sec + s.it_value.tv_nsec);
    auto lines = texts(log);
    ASSERT_EQ(4u, lines.size());
    EXPECT_EQ("wakealarm_set_interval: 33 ms\n", lines[0]);
    EXPECT_EQ("wakealarm_set_interval: 0 ms\n", lines[1]);
    EXPECT_EQ("wakealarm_set_interval: invalid interval 5.000000 s\n", lines[2]);
    EXPECT_EQ("wakealarm_set_interval: 0 ms\n", lines[3]);
}

TEST_F(TimerTest, PiledUpExpiriesGiveOneCallback) {
    timer t(count());
    t.set_interval(false, 0.002f);
    std::this_thread::sleep_for(45ms);  // 30 ms, then several 2 ms periods
    android_standin::LogCapture log;
    timer::wakealarm_event(&t);
    EXPECT_EQ(1, calls);
    // Nothing left to read: logged, callback not called.
    t.set_interval(true, 0.0f);
    timer::wakealarm_event(&t);
    EXPECT_EQ(1, calls);
    timer::wakealarm_event(nullptr);
    EXPECT_EQ(1, calls);
    auto lines = texts(log);
    ASSERT_EQ(2u, lines.size());
    EXPECT_EQ("wakealarm_event: read wakealarm fd failed\n", lines[1]);
}

TEST_F(TimerTest, RunsThroughTheEventLoop) {
    timer t(count());
    std::thread loop([] { event_loop_run(nullptr); });
    t.set_interval(false, 0.005f);
    const auto end = std::chrono::steady_clock::now() + 2s;
    while (calls < 5 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(5ms);
    }
    t.set_interval(true, 0.0f);
    event_loop_utils::stop();
    loop.join();
    EXPECT_GE(calls, 5);
}

TEST_F(TimerTest, DestroyedTimerIsDisarmedUnregisteredAndClosed) {
    const int before = event_loop_utils::registeredCount();
    auto doomed = std::make_unique<timer>([] { FAIL() << "destroyed timer was called"; });
    const int fd = doomed->wakealarm_fd;
    doomed->set_interval(false, 0.001f);
    doomed.reset();
    EXPECT_EQ(before, event_loop_utils::registeredCount());
    EXPECT_EQ(-1, fcntl(fd, F_GETFD));
    // A loop running past the first expiry must not reach the freed record
    // (the sanitizers would report it).
    timer alive(count());
    alive.set_interval(false, 0.005f);
    std::thread loop([] { event_loop_run(nullptr); });
    std::this_thread::sleep_for(80ms);
    event_loop_utils::stop();
    loop.join();
    EXPECT_GT(calls, 0);
}

TEST_F(TimerTest, DescriptorZeroCountsAsMissing) {
    const int saved = dup(0);
    close(0);
    {
        timer t(count());
        ASSERT_EQ(0, t.wakealarm_fd);
        android_standin::LogCapture log;
        t.set_interval(false, 0.01f);
        EXPECT_EQ(std::vector<std::string>{"no wake alarm fd\n"}, texts(log));
    }
    dup2(saved, 0);
    close(saved);
}

TEST_F(TimerTest, CreationAndRegistrationFailures) {
    android_standin::LogCapture log;
    {
        FdExhaustion exhausted;
        timer t(count());
        EXPECT_EQ(-1, t.wakealarm_fd);
        t.set_interval(false, 0.01f);
        // The loop's own descriptor cannot be made either: registrations fail.
        EXPECT_EQ(-1, event_loop_init());
    }
    timer unregistered(count());
    EXPECT_GT(unregistered.wakealarm_fd, 0);
    auto lines = texts(log);
    ASSERT_EQ(3u, lines.size());
    EXPECT_EQ("initialize_sub_wakealarm: timerfd_create failed. error: Too many open files(24)\n",
              lines[0]);
    EXPECT_EQ("no wake alarm fd\n", lines[1]);
    EXPECT_EQ("initialize_sub_wakealarm: Registration of wakealarmevent failed\n", lines[2]);
}

}  // namespace
