#include "media/WriteQueue.h"

#include <algorithm>
#include <cstring>

namespace uvc_host {

WriteQueue::WriteQueue(size_t outputs, size_t depth, Write write)
    : depth_(std::max<size_t>(1, depth)),
      write_(std::move(write)),
      ring_(std::max<size_t>(1, outputs) * depth_),
      queued_(outputs),
      notWritten_(outputs),
      failed_(outputs) {
    thread_ = std::thread([this] { run(); });
}

WriteQueue::~WriteQueue() {
    finish();
}

size_t WriteQueue::depthFor(uint64_t frameBytes, size_t outputs, uint64_t budgetBytes,
                            size_t maxDepth) {
    uint64_t share = budgetBytes / std::max<uint64_t>(1, frameBytes) / std::max<size_t>(1, outputs);
    return size_t(std::min<uint64_t>(std::max<size_t>(2, maxDepth), std::max<uint64_t>(2, share)));
}

bool WriteQueue::push(size_t output, const uint8_t* data, size_t size) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (finishing_ || output >= queued_.size() || failed_[output]) {
        return false;
    }
    if (queued_[output] >= depth_) {
        ++notWritten_[output];
        return false;
    }
    // Every output holds at most depth_ slots, so the ring is never full
    // here and this slot is not the writer's.
    Slot& slot = ring_[(head_ + count_) % ring_.size()];
    if (slot.bytes.size() < size) {
        slot.bytes.resize(size);
    }
    if (size > 0) {
        std::memcpy(slot.bytes.data(), data, size);
    }
    slot.output = output;
    slot.size = size;
    ++count_;
    ++queued_[output];
    wake_.notify_one();
    return true;
}

void WriteQueue::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return count_ > 0 || finishing_; });
        if (count_ == 0) {
            return;
        }
        Slot& slot = ring_[head_];
        bool ok = true;
        if (!failed_[slot.output]) {
            lock.unlock();
            ok = write_(slot.output, slot.bytes.data(), slot.size);
            lock.lock();
        }
        if (!ok) {
            failed_[slot.output] = true;
        }
        --queued_[slot.output];
        head_ = (head_ + 1) % ring_.size();
        --count_;
    }
}

void WriteQueue::finish() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        finishing_ = true;
    }
    wake_.notify_one();
    if (thread_.joinable()) {
        thread_.join();
    }
}

uint64_t WriteQueue::notWritten(size_t output) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return output < notWritten_.size() ? notWritten_[output] : 0;
}

}  // namespace uvc_host
