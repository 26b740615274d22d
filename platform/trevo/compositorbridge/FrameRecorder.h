#pragma once

// The host side of the bridge stand-in's frame path: records the frames that
// sendFrameBuffer accepts. It is a measuring instrument, so per frame it
// costs less than the library it measures: at most one copy of the bytes, no
// allocation once a stream's records have grown to their working size (the
// records of a clearFrames() are reused), and no lock shared by all streams.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "trevo_host.h"

struct AHardwareBuffer;

namespace trevo_standin {

class FrameRecorder {
public:
    using Listener = std::function<void(const ReceivedFrame&)>;

    FrameRecorder();

    // sendFrameBuffer: 0, or -EPIPE for an injected lost connection.
    int receive(AHardwareBuffer* buffer, uint32_t size, uint8_t id, uint8_t idx, uint64_t nowNs);

    std::vector<ReceivedFrame> frames() const;
    size_t frameCount(uint8_t id, uint8_t idx) const;
    bool waitForFrames(uint8_t id, uint8_t idx, size_t n, std::chrono::milliseconds timeout);
    void clearFrames();
    void setCopyFrameBytes(bool on) { copyBytes_ = on; }
    void setFrameListener(Listener f);
    void setHostDelay(uint8_t id, uint8_t idx, std::chrono::milliseconds delay);
    void failSends(int n) { failSends_ = n; }
    size_t rejectedSends() const { return rejected_; }
    // Everything back to the start: no frames, delays, faults or listener.
    void reset();

private:
    struct Stream {
        mutable std::mutex mutex;
        std::condition_variable arrived;
        // [0, used) are this stream's frames; the rest wait to be reused.
        std::vector<ReceivedFrame> frames;
        size_t used = 0;
        std::shared_ptr<const Listener> listener;
        std::atomic<int64_t> delayMs{0};
    };
    static constexpr size_t kStreamKeys = 1u << 16;  // id << 8 | idx

    Stream* stream(uint8_t id, uint8_t idx) const;
    Stream& makeStream(uint8_t id, uint8_t idx);
    // All streams made so far; the list only grows.
    std::vector<Stream*> allStreams() const;
    bool takeFailure();

    // Found without a lock on the frame path; made under mutex_ once.
    std::unique_ptr<std::atomic<Stream*>[]> byKey_;
    mutable std::mutex mutex_;  // owned_ and listener_
    std::vector<std::unique_ptr<Stream>> owned_;
    std::shared_ptr<const Listener> listener_;
    std::atomic<bool> copyBytes_{true};
    std::atomic<int> failSends_{0};
    std::atomic<size_t> rejected_{0};
};

}  // namespace trevo_standin
