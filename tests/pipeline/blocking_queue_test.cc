#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "pipeline/BlockingQueue.h"

using namespace std::chrono_literals;

namespace {

// Counts live instances so that ownership mistakes show up as leaks or
// double destruction.
struct Tracked {
    explicit Tracked(int v) : value(v) { ++live; }
    ~Tracked() { --live; }
    int value;
    static std::atomic<int> live;
};
std::atomic<int> Tracked::live{0};

using Queue = util::BlockingQueue<std::unique_ptr<Tracked>>;

}  // namespace

TEST(BlockingQueue, KeepsOrderAndOwnsWhatItHolds) {
    {
        Queue q;
        for (int i = 0; i < 100; ++i) {
            auto item = std::make_unique<Tracked>(i);
            q.push(std::move(item));
            EXPECT_EQ(item, nullptr);  // the caller's handle is emptied
        }
        EXPECT_EQ(q.size(), 100);
        std::unique_ptr<Tracked> out = std::make_unique<Tracked>(-1);
        EXPECT_EQ(Tracked::live, 101);
        q.pop(out);  // whatever `out` held is destroyed
        EXPECT_EQ(out->value, 0);
        EXPECT_EQ(Tracked::live, 100);
        for (int i = 1; i < 50; ++i) {
            ASSERT_TRUE(q.tryPop(out));
            EXPECT_EQ(out->value, i);
        }
        int next = 50;
        q.forEach([&](const std::unique_ptr<Tracked>& t) { EXPECT_EQ(t->value, next++); });
        EXPECT_EQ(next, 100);
    }
    EXPECT_EQ(Tracked::live, 0);  // destroying the queue destroyed the rest
}

TEST(BlockingQueue, PopWaitsForAPushAndTryPopNeverWaits) {
    Queue q;
    std::unique_ptr<Tracked> out;
    EXPECT_FALSE(q.tryPop(out));
    EXPECT_EQ(q.size(), 0);

    auto popped = std::async(std::launch::async, [&] {
        std::unique_ptr<Tracked> item;
        q.pop(item);
        return item->value;
    });
    EXPECT_EQ(popped.wait_for(30ms), std::future_status::timeout);
    q.push(std::make_unique<Tracked>(7));
    ASSERT_EQ(popped.wait_for(5s), std::future_status::ready);
    EXPECT_EQ(popped.get(), 7);
}

TEST(BlockingQueue, ManyProducersAndConsumersLoseNothing) {
    Queue q;
    constexpr int kPerThread = 2000;
    std::atomic<long> sum{0};
    std::vector<std::thread> threads;
    for (int p = 0; p < 2; ++p) {
        threads.emplace_back([&, p] {
            for (int i = 0; i < kPerThread; ++i)
                q.push(std::make_unique<Tracked>(p * kPerThread + i));
        });
    }
    for (int c = 0; c < 2; ++c) {
        threads.emplace_back([&] {
            for (int i = 0; i < kPerThread; ++i) {
                std::unique_ptr<Tracked> item;
                q.pop(item);
                sum += item->value;
            }
        });
    }
    for (auto& t : threads)
        t.join();
    const long n = 2 * kPerThread;
    EXPECT_EQ(sum.load(), n * (n - 1) / 2);
    EXPECT_EQ(q.size(), 0);
    EXPECT_EQ(Tracked::live, 0);
}
