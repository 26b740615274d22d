#include <android/log.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <limits>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "android_testing.h"
#include "client/timer.h"

namespace {

using namespace std::chrono_literals;
using util::hidl_uvc_client::timer;

class TimerTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, event_loop_init()); }
    std::vector<std::string> texts() {
        std::vector<std::string> out;
        for (const auto& r : log.withTag("ConvFactory")) {
            out.push_back(r.text);
        }
        log.clear();
        return out;
    }
    std::atomic<int> calls{0};
    std::function<void()> count = [this] { calls++; };
    android_standin::LogCapture log;
};

// Entries of an epoll set, as the kernel lists them.
int epollEntries(int epfd) {
    std::ifstream info("/proc/self/fdinfo/" + std::to_string(epfd));
    int n = 0;
    for (std::string line; std::getline(info, line);) {
        n += line.rfind("tfd:", 0) == 0;
    }
    return n;
}

// Init makes the epoll instance and nothing else. Every ready descriptor is
// dispatched by the one wait in which it became ready, however many there
// are (null callbacks skipped); the stop descriptor exists only while a
// running loop is being stopped. Only successful registrations count.
TEST(EventLoopTest, InitHoldsNothingAndOneWaitDispatchesEveryReadyDescriptor) {
    const int before = event_loop_utils::registeredCount();
    ASSERT_EQ(0, event_loop_init());
    EXPECT_EQ(0, epollEntries(event_loop_utils::epollDescriptor()));
    EXPECT_EQ(before, event_loop_utils::registeredCount());

    std::atomic<int> calls{0};
    event_loop_handler ready = {[](void* c) {
                                    ++*static_cast<std::atomic<int>*>(c);
                                    event_loop_utils::stop();  // after this wait's dispatch
                                },
                                &calls};
    event_loop_handler nothing = {nullptr, nullptr};
    std::vector<int> fds(300);
    for (size_t i = 0; i < fds.size(); ++i) {
        fds[i] = eventfd(1, EFD_NONBLOCK);  // never drained: ready every wait
        ASSERT_EQ(0, event_loop_register(fds[i], i % 10 ? &ready : &nothing, EPOLLIN, 1));
    }
    EXPECT_EQ(-1, event_loop_register(fds[0], &ready, EPOLLIN, 0));  // already there
    EXPECT_EQ(-1, event_loop_register(-1, &ready, EPOLLIN, 0));
    std::thread loop([] { event_loop_run(nullptr); });
    loop.join();
    EXPECT_EQ(270, calls.load());
    EXPECT_EQ(before + 300, event_loop_utils::registeredCount());
    EXPECT_EQ(300, epollEntries(event_loop_utils::epollDescriptor()));
    for (int fd : fds) {
        EXPECT_EQ(0, event_loop_unregister(fd));
        EXPECT_EQ(-1, event_loop_unregister(fd));
        close(fd);
    }
    EXPECT_EQ(before, event_loop_utils::registeredCount());
    // 1 s + 20,000,000 ns; a wrong split of the milliseconds is EINVAL.
    EXPECT_EQ(0, nsleep(1020));
    EXPECT_EQ(-1, nsleep(-5));
}

TEST_F(TimerTest, ArmsWithThirtyMsFirstExpiryRefusesWhatDoesNotFitAndDisarms) {
    EXPECT_EQ(33333337, timer::intervalNs(1.0f / 30));  // single precision
    EXPECT_EQ(40000000, timer::intervalNs(0.04f));      // multiple of 10: nothing added
    EXPECT_EQ(0, timer::intervalNs(1e-10f));             // truncates to 0: no repetition
    // Too long for a signed 32-bit count, negative, or not a number.
    for (float bad : {2.5f, -0.01f, -1e-10f, std::numeric_limits<float>::quiet_NaN(),
                      std::numeric_limits<float>::infinity()}) {
        EXPECT_EQ(-1, timer::intervalNs(bad)) << bad;
    }
    timer t(count);
    struct itimerspec s = {};
    auto setting = [&] { EXPECT_EQ(0, timerfd_gettime(t.wakealarm_fd, &s)); };
    setting();
    EXPECT_EQ(0, s.it_value.tv_sec + s.it_value.tv_nsec);  // created unarmed
    t.set_interval(false, 1.0f / 30);
    t.set_interval(false, 5.0f);  // refused: the previous setting stays
    setting();
    EXPECT_EQ(0, s.it_interval.tv_sec);
    EXPECT_EQ(33333337, s.it_interval.tv_nsec);
    EXPECT_GT(s.it_value.tv_nsec, 0);
    EXPECT_LE(s.it_value.tv_nsec, 30000000);
    EXPECT_EQ(ANDROID_LOG_INFO, log.records()[0].priority);
    EXPECT_EQ((std::vector<std::string>{"wakealarm_set_interval: 33 ms\n",
                                        "wakealarm_set_interval: invalid interval 5.000000 s\n"}),
              texts());

    t.set_interval(false, 0.002f);
    std::this_thread::sleep_for(45ms);  // 30 ms, then several 2 ms periods
    timer::wakealarm_event(&t);
    EXPECT_EQ(1, calls);  // piled-up expiries: one call
    t.set_interval(true, 123.0f);
    setting();
    EXPECT_EQ(0, s.it_interval.tv_nsec + s.it_value.tv_sec + s.it_value.tv_nsec);
    texts();
    timer::wakealarm_event(&t);  // nothing left to read
    timer::wakealarm_event(nullptr);
    EXPECT_EQ(1, calls);
    EXPECT_EQ(std::vector<std::string>{"wakealarm_event: read wakealarm fd failed\n"}, texts());
}

// Interval 0: one expiry 30 ms after arming and no repetition. A timer of
// 1/30 s on the same loop measures the window: by its sixth expiry about
// 200 ms have passed with the loop dispatching.
TEST_F(TimerTest, ZeroIntervalExpiresOnce) {
    timer once(count);
    std::atomic<int> yardstick{0};
    timer periodic([&yardstick] { yardstick++; });
    once.set_interval(false, 0.0f);
    periodic.set_interval(false, 1.0f / 30);
    std::thread loop([] { event_loop_run(nullptr); });
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (yardstick < 6 && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(5ms);
    }
    event_loop_utils::stop();
    loop.join();
    EXPECT_GE(yardstick, 6);
    EXPECT_EQ(1, calls);
}

TEST_F(TimerTest, DestroyedTimerIsDisarmedUnregisteredAndClosed) {
    const int before = event_loop_utils::registeredCount();
    auto doomed = std::make_unique<timer>([] { ADD_FAILURE() << "destroyed timer called"; });
    const int fd = doomed->wakealarm_fd;
    EXPECT_EQ(before + 1, event_loop_utils::registeredCount());
    doomed->set_interval(false, 0.001f);
    doomed.reset();
    EXPECT_EQ(before, event_loop_utils::registeredCount());
    EXPECT_EQ(-1, fcntl(fd, F_GETFD));
}

}  // namespace
