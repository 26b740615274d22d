#pragma once

#include <cstdint>
#include <list>

#include "base/AutoLock.h"
#include "base/Mutex.h"
#include "base/Semaphore.h"

namespace VOLUT {

// Unbounded FIFO whose reader waits on a semaphore outside the list lock, so
// writers only ever block on the short list lock.
template <typename T>
class BlockingQueue {
public:
    BlockingQueue() = default;
    virtual ~BlockingQueue() = default;
    BlockingQueue(const BlockingQueue&) = delete;
    BlockingQueue& operator=(const BlockingQueue&) = delete;

    void put(const T& item) {
        AutoLock lock(mutex_);
        ++count_;
        items_.push_back(item);
        semaphore_.notify();
    }

    // Takes the oldest item into `out`; false (and `out` untouched) when
    // nothing came within `timeoutMs`.
    bool get(unsigned int timeoutMs, T& out) {
        if (semaphore_.wait(timeoutMs) != 0) {
            return false;
        }
        AutoLock lock(mutex_);
        if (items_.empty()) {
            return false;
        }
        --count_;
        out = items_.front();
        items_.pop_front();
        return true;
    }

    uint32_t size() {
        AutoLock lock(mutex_);
        return count_;
    }

private:
    std::list<T> items_;
    Mutex mutex_;
    Semaphore semaphore_;
    uint32_t count_ = 0;
};

}  // namespace VOLUT
