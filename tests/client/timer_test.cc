#include <android/log.h>
#include <fcntl.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <atomic>
#include <limits>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "android_testing.h"
#include "client/event_loop_utils.h"
#include "client/timer.h"

namespace {

using namespace std::chrono_literals;
using util::hidl_uvc_client::timer;

std::vector<std::string> texts(const android_standin::LogCapture& log) {
    std::vector<std::string> out;
    for (const auto& r : log.withTag("ConvFactory")) {
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

TEST(TimerArithmetic, FrameRatePeriodsInSinglePrecision) {
    EXPECT_EQ(33333337, timer::intervalNs(1.0f / 30));
    EXPECT_EQ(40000000, timer::intervalNs(0.04f));  // multiple of 10: nothing added
    EXPECT_EQ(16666669, timer::intervalNs(1.0f / 60));
    EXPECT_EQ(66666673, timer::intervalNs(1.0f / 15));
    // What does not fit a signed 32-bit nanosecond count is refused.
    for (float bad : {2.5f, -0.01f, std::numeric_limits<float>::quiet_NaN(),
                      std::numeric_limits<float>::infinity()}) {
        EXPECT_EQ(-1, timer::intervalNs(bad));
    }
}

TEST_F(TimerTest, RegisteredUnarmedThenArmsWithThirtyMsFirstExpiryAndDisarms) {
    const int before = event_loop_utils::registeredCount();
    timer t(count());
    EXPECT_EQ(before + 1, event_loop_utils::registeredCount());
    EXPECT_EQ(0, settingOf(t).it_value.tv_nsec);
    android_standin::LogCapture log;
    t.set_interval(false, 1.0f / 30);
    auto s = settingOf(t);
    EXPECT_EQ(0, s.it_interval.tv_sec);
    EXPECT_EQ(33333337, s.it_interval.tv_nsec);
    EXPECT_GT(s.it_value.tv_nsec, 0);
    EXPECT_LE(s.it_value.tv_nsec, 30000000);
    t.set_interval(false, 5.0f);  // refused: the previous setting stays
    EXPECT_EQ(33333337, settingOf(t).it_interval.tv_nsec);
    t.set_interval(true, 123.0f);
    s = settingOf(t);
    EXPECT_EQ(0, s.it_interval.tv_nsec + s.it_value.tv_sec + s.it_value.tv_nsec);
    EXPECT_EQ((std::vector<std::string>{"wakealarm_set_interval: 33 ms\n",
                                        "wakealarm_set_interval: invalid interval 5.000000 s\n",
                                        "wakealarm_set_interval: 0 ms\n"}),
              texts(log));
    EXPECT_EQ(ANDROID_LOG_INFO, log.records()[0].priority);
}

TEST_F(TimerTest, PiledUpExpiriesGiveOneCallbackAndAFailedReadNone) {
    timer t(count());
    t.set_interval(false, 0.002f);
    std::this_thread::sleep_for(45ms);  // 30 ms, then several 2 ms periods
    android_standin::LogCapture log;
    timer::wakealarm_event(&t);
    EXPECT_EQ(1, calls);
    t.set_interval(true, 0.0f);
    log.clear();
    timer::wakealarm_event(&t);  // nothing left to read
    timer::wakealarm_event(nullptr);
    EXPECT_EQ(1, calls);
    EXPECT_EQ(std::vector<std::string>{"wakealarm_event: read wakealarm fd failed\n"}, texts(log));
}

TEST_F(TimerTest, DestroyedTimerIsUnregisteredAndClosedBeforeTheLoopRunsOn) {
    const int before = event_loop_utils::registeredCount();
    auto doomed = std::make_unique<timer>([] { ADD_FAILURE() << "destroyed timer called"; });
    const int fd = doomed->wakealarm_fd;
    doomed->set_interval(false, 0.001f);
    doomed.reset();
    EXPECT_EQ(before, event_loop_utils::registeredCount());
    EXPECT_EQ(-1, fcntl(fd, F_GETFD));
    // The loop runs past the doomed timer's first expiry; reaching its freed
    // record would be reported by the sanitizers.
    timer alive(count());
    alive.set_interval(false, 0.005f);
    std::thread loop([] { event_loop_run(nullptr); });
    std::this_thread::sleep_for(80ms);
    event_loop_utils::stop();
    loop.join();
    EXPECT_GT(calls, 0);
}

}  // namespace
