#include "FrameRecorder.h"

#include <android/hardware_buffer.h>

#include <algorithm>
#include <cerrno>
#include <thread>

namespace trevo_standin {

FrameRecorder::FrameRecorder() : byKey_(new std::atomic<Stream*>[kStreamKeys]()) {}

FrameRecorder::Stream* FrameRecorder::stream(uint8_t id, uint8_t idx) const {
    return byKey_[size_t(id) << 8 | idx].load(std::memory_order_acquire);
}

FrameRecorder::Stream& FrameRecorder::makeStream(uint8_t id, uint8_t idx) {
    if (Stream* s = stream(id, idx))
        return *s;
    std::lock_guard<std::mutex> guard(mutex_);
    std::atomic<Stream*>& slot = byKey_[size_t(id) << 8 | idx];
    if (Stream* s = slot.load(std::memory_order_acquire))
        return *s;
    owned_.push_back(std::make_unique<Stream>());
    Stream* s = owned_.back().get();
    s->listener = listener_;
    slot.store(s, std::memory_order_release);
    return *s;
}

std::vector<FrameRecorder::Stream*> FrameRecorder::allStreams() const {
    std::lock_guard<std::mutex> guard(mutex_);
    std::vector<Stream*> all;
    for (const auto& s : owned_)
        all.push_back(s.get());
    return all;
}

bool FrameRecorder::takeFailure() {
    int n = failSends_.load();
    while (n > 0) {
        if (failSends_.compare_exchange_weak(n, n - 1)) {
            ++rejected_;
            return true;
        }
    }
    return false;
}

int FrameRecorder::receive(AHardwareBuffer* buffer, uint32_t size, uint8_t id, uint8_t idx,
                           uint64_t nowNs) {
    if (buffer == nullptr)
        return -EINVAL;
    if (takeFailure())
        return -EPIPE;
    Stream& s = makeStream(id, idx);
    AHardwareBuffer_Desc desc = {};
    AHardwareBuffer_describe(buffer, &desc);
    const bool copy = copyBytes_.load(std::memory_order_relaxed);
    {
        std::lock_guard<std::mutex> guard(s.mutex);
        if (s.used == s.frames.size())
            s.frames.emplace_back();
        ReceivedFrame& f = s.frames[s.used++];
        f.streamId = id;
        f.streamIdx = idx;
        f.width = desc.width;
        f.height = desc.height;
        f.format = desc.format;
        f.size = size;
        f.monotonicNs = nowNs;
        f.bytes.clear();  // keeps its capacity for the next frame of this size
        void* address = nullptr;
        if (copy && size > 0 &&
            AHardwareBuffer_lock(buffer, AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN, -1, nullptr,
                                 &address) == 0) {
            // A BLOB buffer holds `width` bytes; never read past them.
            const uint64_t capacity = uint64_t(desc.width) * desc.height;
            const uint8_t* bytes = static_cast<const uint8_t*>(address);
            f.bytes.assign(bytes, bytes + std::min<uint64_t>(size, capacity));
            AHardwareBuffer_unlock(buffer, nullptr);
        }
        s.arrived.notify_all();
        // Under the stream's lock, so that the record it sees stays as it is.
        if (s.listener)
            (*s.listener)(f);
    }
    const int64_t delayMs = s.delayMs.load(std::memory_order_relaxed);
    if (delayMs > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(delayMs));  // only this stream waits
    return 0;
}

std::vector<ReceivedFrame> FrameRecorder::frames() const {
    std::vector<ReceivedFrame> all;
    for (Stream* s : allStreams()) {
        std::lock_guard<std::mutex> guard(s->mutex);
        all.insert(all.end(), s->frames.begin(), s->frames.begin() + s->used);
    }
    // Streams record apart; their arrival times put them back in order.
    std::stable_sort(all.begin(), all.end(), [](const ReceivedFrame& a, const ReceivedFrame& b) {
        return a.monotonicNs < b.monotonicNs;
    });
    return all;
}

size_t FrameRecorder::frameCount(uint8_t id, uint8_t idx) const {
    Stream* s = stream(id, idx);
    if (s == nullptr)
        return 0;
    std::lock_guard<std::mutex> guard(s->mutex);
    return s->used;
}

bool FrameRecorder::waitForFrames(uint8_t id, uint8_t idx, size_t n,
                                  std::chrono::milliseconds timeout) {
    Stream& s = makeStream(id, idx);
    std::unique_lock<std::mutex> guard(s.mutex);
    return s.arrived.wait_for(guard, timeout, [&] { return s.used >= n; });
}

void FrameRecorder::clearFrames() {
    for (Stream* s : allStreams()) {
        std::lock_guard<std::mutex> guard(s->mutex);
        s->used = 0;
    }
}

void FrameRecorder::setFrameListener(Listener f) {
    std::shared_ptr<const Listener> shared;
    if (f)
        shared = std::make_shared<const Listener>(std::move(f));
    std::lock_guard<std::mutex> guard(mutex_);
    listener_ = shared;
    for (const auto& s : owned_) {
        std::lock_guard<std::mutex> streamGuard(s->mutex);
        s->listener = shared;
    }
}

void FrameRecorder::setHostDelay(uint8_t id, uint8_t idx, std::chrono::milliseconds delay) {
    makeStream(id, idx).delayMs = std::max<int64_t>(0, delay.count());
}

void FrameRecorder::reset() {
    std::lock_guard<std::mutex> guard(mutex_);
    listener_ = nullptr;
    for (const auto& s : owned_) {
        std::lock_guard<std::mutex> streamGuard(s->mutex);
        std::vector<ReceivedFrame>().swap(s->frames);
        s->used = 0;
        s->listener = nullptr;
        s->delayMs = 0;
    }
    copyBytes_ = true;
    failSends_ = 0;
    rejected_ = 0;
}

}  // namespace trevo_standin
