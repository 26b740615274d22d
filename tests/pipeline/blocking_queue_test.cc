#include <atomic>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

#include "pipeline/BlockingQueue.h"

namespace {

// Counts live instances: ownership mistakes show up as leaks or double frees.
struct Tracked {
    explicit Tracked(int v) : value(v) { ++live; }
    ~Tracked() { --live; }
    int value;
    static std::atomic<int> live;
};
std::atomic<int> Tracked::live{0};

using Queue = util::BlockingQueue<std::unique_ptr<Tracked>>;

}  // namespace

TEST(BlockingQueue, KeepsOrderAcrossThreadsAndOwnsWhatItHolds) {
    {
        Queue q;
        std::unique_ptr<Tracked> out;
        EXPECT_FALSE(q.tryPop(out));
        std::thread consumer([&] {  // mostly waits in pop
            std::unique_ptr<Tracked> item;
            for (int i = 0; i < 1000; ++i) {
                q.pop(item);
                EXPECT_EQ(item->value, i);
            }
        });
        for (int i = 0; i < 1000; ++i)
            q.push(std::make_unique<Tracked>(i));
        consumer.join();
        for (int i = 0; i < 100; ++i)
            q.push(std::make_unique<Tracked>(i));
        EXPECT_EQ(Tracked::live, 100);
    }
    EXPECT_EQ(Tracked::live, 0);  // destroying the queue destroyed the rest
}
