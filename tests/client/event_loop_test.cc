#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include <android/log.h>

#include "android_testing.h"
#include "client/event_loop_utils.h"
#include "fd_exhaustion.h"

namespace {

using namespace std::chrono_literals;

// Runs event_loop_run on its own thread; the destructor stops and joins it.
class LoopThread {
public:
    LoopThread()
        : thread_([this] {
              event_loop_run(nullptr);
              returned_ = true;
          }) {}
    ~LoopThread() {
        event_loop_utils::stop();
        thread_.join();
    }
    bool returned() const { return returned_; }

private:
    std::atomic<bool> returned_{false};
    std::thread thread_;
};

bool eventually(const std::function<bool()>& cond, std::chrono::milliseconds limit = 2000ms) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < end) {
        if (cond()) {
            return true;
        }
        std::this_thread::sleep_for(2ms);
    }
    return cond();
}

// The epoll mask registered for `fd`, read from the kernel's fdinfo of the
// loop's epoll descriptor; 0 when not found.
unsigned long registeredMask(int fd) {
    for (int epfd = 0; epfd < 4096; ++epfd) {
        std::ifstream info("/proc/self/fdinfo/" + std::to_string(epfd));
        std::string line;
        while (std::getline(info, line)) {
            if (line.rfind("tfd:", 0) != 0) {
                continue;
            }
            int tfd = -1;
            unsigned long mask = 0;
            if (std::sscanf(line.c_str(), "tfd: %d events: %lx", &tfd, &mask) == 2 && tfd == fd) {
                return mask;
            }
        }
    }
    return 0;
}

struct Counter {
    std::atomic<int> calls{0};
    static void hit(void* self) { static_cast<Counter*>(self)->calls++; }
};

class EventLoopTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(0, event_loop_init()); }
};

TEST_F(EventLoopTest, RegistrationMaskAndCount) {
    int a = eventfd(0, EFD_NONBLOCK);
    int b = eventfd(0, EFD_NONBLOCK);
    int c = eventfd(0, EFD_NONBLOCK);
    event_loop_handler h = {nullptr, nullptr};
    const int before = event_loop_utils::registeredCount();
    EXPECT_EQ(0, event_loop_register(a, &h, EPOLLIN, 1));
    EXPECT_EQ(0, event_loop_register(b, &h, EPOLLIN, 0));
    EXPECT_EQ(0, event_loop_register(c, &h, EPOLLIN, 2));
    EXPECT_EQ(before + 3, event_loop_utils::registeredCount());
    EXPECT_EQ(static_cast<uint32_t>(EPOLLIN | EPOLLWAKEUP),
              event_loop_utils::epollMask(EPOLLIN, 1));
    EXPECT_EQ(static_cast<uint32_t>(EPOLLIN), event_loop_utils::epollMask(EPOLLIN, 0));
    EXPECT_EQ(static_cast<uint32_t>(EPOLLIN), event_loop_utils::epollMask(EPOLLIN, 2));
    // The kernel adds error and hang-up, and may drop EPOLLWAKEUP.
    const unsigned long ignore = EPOLLERR | EPOLLHUP | EPOLLWAKEUP;
    EXPECT_EQ(static_cast<unsigned long>(EPOLLIN), registeredMask(a) & ~ignore);
    EXPECT_EQ(static_cast<unsigned long>(EPOLLIN), registeredMask(b) & ~ignore);
    EXPECT_EQ(0ul, registeredMask(b) & EPOLLWAKEUP);
    EXPECT_EQ(0ul, registeredMask(c) & EPOLLWAKEUP);

    {
        android_standin::LogCapture log;
        // Adding twice and a bad descriptor fail without counting.
        EXPECT_EQ(-1, event_loop_register(a, &h, EPOLLIN, 0));
        EXPECT_EQ(-1, event_loop_register(-1, &h, EPOLLIN, 0));
        EXPECT_EQ(before + 3, event_loop_utils::registeredCount());
        EXPECT_EQ(-1, event_loop_unregister(-1));
        auto records = log.withTag("event_loop_utils");
        ASSERT_EQ(3u, records.size());
        EXPECT_EQ(ANDROID_LOG_ERROR, records[0].priority);
        EXPECT_EQ("epoll_ctl add failed; errno=17\n", records[0].text);
        EXPECT_EQ("epoll_ctl del failed; errno=9\n", records[2].text);
    }
    for (int fd : {a, b, c}) {
        EXPECT_EQ(0, event_loop_unregister(fd));
        close(fd);
    }
    EXPECT_EQ(before, event_loop_utils::registeredCount());
}

TEST_F(EventLoopTest, DispatchesReadyDescriptorsAndSkipsNullCallbacks) {
    int ready = eventfd(1, EFD_NONBLOCK);
    int silent = eventfd(1, EFD_NONBLOCK);
    Counter counter;
    event_loop_handler counting = {&Counter::hit, &counter};
    event_loop_handler nothing = {nullptr, &counter};
    ASSERT_EQ(0, event_loop_register(silent, &nothing, EPOLLIN, 0));
    ASSERT_EQ(0, event_loop_register(ready, &counting, EPOLLIN, 0));
    {
        LoopThread loop;
        // Level-triggered and never drained: called on every iteration.
        EXPECT_TRUE(eventually([&] { return counter.calls >= 3; }));
    }
    event_loop_unregister(ready);
    event_loop_unregister(silent);
    close(ready);
    close(silent);
}

TEST_F(EventLoopTest, HangUpStillCallsTheCallback) {
    int fds[2];
    ASSERT_EQ(0, pipe(fds));
    close(fds[1]);
    Counter counter;
    event_loop_handler h = {&Counter::hit, &counter};
    ASSERT_EQ(0, event_loop_register(fds[0], &h, EPOLLIN, 0));
    {
        LoopThread loop;
        EXPECT_TRUE(eventually([&] { return counter.calls >= 3; }));
    }
    event_loop_unregister(fds[0]);
    close(fds[0]);
}

TEST_F(EventLoopTest, IdlesWithNothingRegisteredUntilStopped) {
    ASSERT_EQ(0, event_loop_utils::registeredCount());
    auto start = std::chrono::steady_clock::now();
    {
        LoopThread loop;
        std::this_thread::sleep_for(120ms);
        EXPECT_FALSE(loop.returned());
        start = std::chrono::steady_clock::now();
    }
    // Ends within one 33 ms pause after the stop.
    EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);
}

TEST_F(EventLoopTest, StopWakesAnUnboundedWait) {
    int idle = eventfd(0, EFD_NONBLOCK);
    event_loop_handler h = {nullptr, nullptr};
    ASSERT_EQ(0, event_loop_register(idle, &h, EPOLLIN, 0));
    auto start = std::chrono::steady_clock::now();
    {
        LoopThread loop;
        std::this_thread::sleep_for(50ms);
        EXPECT_FALSE(loop.returned());
        start = std::chrono::steady_clock::now();
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);
    event_loop_unregister(idle);
    close(idle);
}

TEST_F(EventLoopTest, TimeoutProviderIsAskedBeforeEveryWait) {
    static std::atomic<int> asked{0};
    asked = 0;
    int idle = eventfd(0, EFD_NONBLOCK);
    event_loop_handler h = {nullptr, nullptr};
    ASSERT_EQ(0, event_loop_register(idle, &h, EPOLLIN, 0));
    std::thread t([] { event_loop_run([] { return ++asked, 5; }); });
    EXPECT_TRUE(eventually([] { return asked >= 5; }));
    event_loop_utils::stop();
    t.join();
    event_loop_unregister(idle);
    close(idle);
}

TEST_F(EventLoopTest, InitFailsWithoutDescriptors) {
    android_standin::LogCapture log;
    {
        FdExhaustion exhausted;
        EXPECT_EQ(-1, event_loop_init());
    }
    auto records = log.withTag("event_loop_utils");
    ASSERT_EQ(1u, records.size());
    EXPECT_EQ("epoll_create failed; errno=24\n", records[0].text);
}

TEST(NsleepTest, SplitsSecondsAndRejectsNegativeTimes) {
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, nsleep(1020));  // 1 s + 20,000,000 ns; a wrong split is EINVAL
    EXPECT_GE(std::chrono::steady_clock::now() - start, 1020ms);
    start = std::chrono::steady_clock::now();
    EXPECT_EQ(0, nsleep(30));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 30ms);
    EXPECT_EQ(-1, nsleep(-5));
}

}  // namespace
