#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "client/event_loop_utils.h"

namespace {

using namespace std::chrono_literals;

struct Counter {
    std::atomic<int> calls{0};
    static void hit(void* self) { static_cast<Counter*>(self)->calls++; }
};

// Runs the loop until `done` holds (or 2 s pass), then stops it; returns how
// long the stop took to end the loop.
std::chrono::steady_clock::duration runUntil(const std::function<bool()>& done) {
    std::thread loop([] { event_loop_run(nullptr); });
    const auto limit = std::chrono::steady_clock::now() + 2s;
    while (!done() && std::chrono::steady_clock::now() < limit) {
        std::this_thread::sleep_for(2ms);
    }
    const auto stopAt = std::chrono::steady_clock::now();
    event_loop_utils::stop();
    loop.join();
    return std::chrono::steady_clock::now() - stopAt;
}

TEST(EventLoop, RegistrationCountsOnlySuccessesAndAddsWakeupForExactlyOne) {
    ASSERT_EQ(0, event_loop_init());
    EXPECT_EQ(static_cast<uint32_t>(EPOLLIN | EPOLLWAKEUP),
              event_loop_utils::epollMask(EPOLLIN, 1));
    EXPECT_EQ(static_cast<uint32_t>(EPOLLIN), event_loop_utils::epollMask(EPOLLIN, 2));
    int fd = eventfd(0, EFD_NONBLOCK);
    event_loop_handler h = {nullptr, nullptr};
    const int before = event_loop_utils::registeredCount();
    EXPECT_EQ(0, event_loop_register(fd, &h, EPOLLIN, 1));
    EXPECT_EQ(-1, event_loop_register(fd, &h, EPOLLIN, 0));  // already there
    EXPECT_EQ(-1, event_loop_register(-1, &h, EPOLLIN, 0));
    EXPECT_EQ(before + 1, event_loop_utils::registeredCount());
    EXPECT_EQ(0, event_loop_unregister(fd));
    EXPECT_EQ(-1, event_loop_unregister(fd));
    EXPECT_EQ(before, event_loop_utils::registeredCount());
    close(fd);
}

TEST(EventLoop, CallsReadyAndHungUpDescriptorsSkipsNullCallbacksAndStops) {
    ASSERT_EQ(0, event_loop_init());
    int ready = eventfd(1, EFD_NONBLOCK);  // never drained: ready every wait
    int pipeFds[2];
    ASSERT_EQ(0, pipe(pipeFds));
    close(pipeFds[1]);  // the read end reports hang-up
    Counter readyCount, hangUpCount;
    event_loop_handler counting = {&Counter::hit, &readyCount};
    event_loop_handler hungUp = {&Counter::hit, &hangUpCount};
    event_loop_handler nothing = {nullptr, &readyCount};
    int silent = eventfd(1, EFD_NONBLOCK);
    ASSERT_EQ(0, event_loop_register(silent, &nothing, EPOLLIN, 0));
    ASSERT_EQ(0, event_loop_register(ready, &counting, EPOLLIN, 0));
    ASSERT_EQ(0, event_loop_register(pipeFds[0], &hungUp, EPOLLIN, 0));
    runUntil([&] { return readyCount.calls >= 3 && hangUpCount.calls >= 3; });
    EXPECT_GE(readyCount.calls, 3);
    EXPECT_GE(hangUpCount.calls, 3);
    for (int fd : {ready, silent, pipeFds[0]}) {
        event_loop_unregister(fd);
        close(fd);
    }
}

TEST(EventLoop, StopEndsAnIdleLoopWithOrWithoutRegistrations) {
    ASSERT_EQ(0, event_loop_init());
    ASSERT_EQ(0, event_loop_utils::registeredCount());
    // Nothing registered: the loop idles in 33 ms steps and calls nothing.
    EXPECT_LT(runUntil([] { return false; }), 500ms);
    int idle = eventfd(0, EFD_NONBLOCK);
    event_loop_handler h = {nullptr, nullptr};
    ASSERT_EQ(0, event_loop_register(idle, &h, EPOLLIN, 0));
    // An unbounded wait is woken by the stop.
    auto start = std::chrono::steady_clock::now();
    EXPECT_LT(runUntil([&] { return std::chrono::steady_clock::now() - start > 50ms; }), 500ms);
    event_loop_unregister(idle);
    close(idle);
}

TEST(EventLoop, NsleepSplitsSecondsAndRejectsNegativeTimes) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, nsleep(1020));  // 1 s + 20,000,000 ns; a wrong split is EINVAL
    EXPECT_GE(std::chrono::steady_clock::now() - start, 1020ms);
    EXPECT_EQ(-1, nsleep(-5));
}

}  // namespace
