#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <utility>

#include "pipeline/RecyclingAllocator.h"

namespace util {

// Unbounded FIFO of move-only handles whose pop() waits for an element. The
// queue owns what it holds. Its deque recycles its chunks, so a queue that
// keeps cycling a few elements does not touch the heap.
template <typename T>
class BlockingQueue {
public:
    BlockingQueue() = default;
    BlockingQueue(const BlockingQueue&) = delete;
    BlockingQueue& operator=(const BlockingQueue&) = delete;

    void push(T&& item) {
        {
            std::lock_guard<std::mutex> guard(mutex);
            items.push_back(std::move(item));
        }
        ready.notify_one();
    }

    // Waits (without time-out) until an element is there; `out` receives it.
    void pop(T& out) {
        std::unique_lock<std::mutex> guard(mutex);
        ready.wait(guard, [this] { return !items.empty(); });
        out = std::move(items.front());
        items.pop_front();
    }

    // Takes the front element if there is one; never waits.
    bool tryPop(T& out) {
        std::lock_guard<std::mutex> guard(mutex);
        if (items.empty())
            return false;
        out = std::move(items.front());
        items.pop_front();
        return true;
    }

    int32_t size() const {
        std::lock_guard<std::mutex> guard(mutex);
        return static_cast<int32_t>(items.size());
    }

    // Calls `visit` on each element, front first, under the queue's mutex.
    template <typename F>
    void forEach(F&& visit) const {
        std::lock_guard<std::mutex> guard(mutex);
        for (const T& item : items)
            visit(item);
    }

private:
    std::deque<T, RecyclingAllocator<T>> items;
    mutable std::mutex mutex;
    std::condition_variable ready;
};

}  // namespace util
