#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "base/BlockingQueue.h"
#include "base/Semaphore.h"

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

long long msSince(Clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start).count();
}

}  // namespace

TEST(SemaphoreTest, ZeroTimeoutOnlyPolls) {
    VOLUT::Semaphore s;
    auto start = Clock::now();
    EXPECT_EQ(s.wait(0), 1);
    EXPECT_LT(msSince(start), 1000);
    EXPECT_EQ(s.notify(), 0);
    EXPECT_EQ(s.wait(0), 0);
    EXPECT_EQ(s.wait(0), 1);
}

TEST(SemaphoreTest, TimedWaitLastsAtLeastTheTimeout) {
    VOLUT::Semaphore s;
    for (unsigned int ms : {1u, 30u, 120u}) {
        auto start = Clock::now();
        EXPECT_EQ(s.wait(ms), 1);
        EXPECT_GE(msSince(start), static_cast<long long>(ms));
        EXPECT_LT(msSince(start), ms + 2000);
    }
}

TEST(SemaphoreTest, NotifyWakesATimedAndAnUntimedWaiter) {
    VOLUT::Semaphore s;
    int timed = -2, untimed = -2;
    std::thread a([&] { timed = s.wait(60000); });
    std::thread b([&] { untimed = s.wait(); });
    auto start = Clock::now();
    s.notify();
    s.notify();
    a.join();
    b.join();
    EXPECT_EQ(timed, 0);
    EXPECT_EQ(untimed, 0);
    EXPECT_LT(msSince(start), 30000);
    EXPECT_EQ(s.wait(0), 1);  // both units taken
}

TEST(BlockingQueueTest, EmptyGetTimesOutAndLeavesOutputAlone) {
    VOLUT::BlockingQueue<std::string> q;
    std::string out = "untouched";
    auto start = Clock::now();
    EXPECT_FALSE(q.get(100, out));
    EXPECT_GE(msSince(start), 100);
    EXPECT_EQ(out, "untouched");
}

TEST(BlockingQueueTest, ItemsComeOutInOrderAcrossThreads) {
    VOLUT::BlockingQueue<int> q;
    constexpr int kItems = 2000;
    std::thread producer([&] {
        for (int i = 0; i < kItems; ++i)
            q.put(i);
    });
    int expected = 0;
    int value = -1;
    while (expected < kItems && q.get(10000, value)) {
        ASSERT_EQ(value, expected);
        ++expected;
    }
    producer.join();
    EXPECT_EQ(expected, kItems);
    EXPECT_EQ(q.size(), 0u);
    EXPECT_FALSE(q.get(0, value));
}
