#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace uvc_host {

// Carries frames from the threads that deliver them to one writer thread, so
// that a slow disk or a slow reader of a pipe costs written frames instead
// of holding up the stream: the bridge calls the tool on the stream's own
// sending thread, and time spent there is time the library's host is busy.
//
// Each output may have up to `depth` frames waiting; a frame that finds its
// output's share full is not queued and is counted as not written. The
// queue is a ring of slots whose buffers are reused, so once the slots have
// held frames of the largest size, queueing allocates nothing.
//
// Thread-safe: push() from any number of threads; finish() and the counts
// from the owner.
class WriteQueue {
public:
    // Called on the writer thread, one frame at a time, in the order the
    // frames were pushed. False: the output failed; its later frames are
    // discarded (and not counted as not written).
    using Write = std::function<bool(size_t output, const uint8_t* data, size_t size)>;

    // Starts the writer thread.
    WriteQueue(size_t outputs, size_t depth, Write write);
    // finish()
    ~WriteQueue();
    WriteQueue(const WriteQueue&) = delete;
    WriteQueue& operator=(const WriteQueue&) = delete;

    // Copies the frame into a free slot and returns at once; false when it
    // was not queued: its output's share is full (counted), its output
    // failed, or the queue is finishing.
    bool push(size_t output, const uint8_t* data, size_t size);
    // Writes every frame still queued, then ends the writer thread; later
    // pushes are refused. Returns once the thread has ended.
    void finish();

    // Frames refused because their output's share was full.
    uint64_t notWritten(size_t output) const;
    size_t depth() const { return depth_; }

    // How many frames of about `frameBytes` each of `outputs` outputs may
    // hold within `budgetBytes`: at least 2, at most `maxDepth`.
    static size_t depthFor(uint64_t frameBytes, size_t outputs, uint64_t budgetBytes,
                           size_t maxDepth);

private:
    struct Slot {
        size_t output = 0;
        size_t size = 0;
        std::vector<uint8_t> bytes;  // grows to the largest frame, never shrinks
    };

    void run();

    const size_t depth_;
    const Write write_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    // The writer owns ring_[head_] while count_ > 0; push() fills the slot
    // after the last queued one. Both under mutex_.
    std::vector<Slot> ring_;
    size_t head_ = 0;
    size_t count_ = 0;
    std::vector<size_t> queued_;  // per output
    std::vector<uint64_t> notWritten_;
    std::vector<bool> failed_;
    bool finishing_ = false;
    std::thread thread_;
};

}  // namespace uvc_host
