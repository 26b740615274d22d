#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "pipeline/BlockingQueue.h"
#include "pipeline/DynamicBuffer.h"

namespace hidl_uvc_client {

class BufferMgmt;

// A stream's pool of frame buffers: empty ones wait in fillQ for the frame
// source, filled ones in sendQ for the hand-over into buffer management.
class Buffers {
public:
    enum State : int32_t { kActive = 0, kCleaningUp = 1, kCleanedUp = 2 };

    Buffers(unsigned count, unsigned size);
    ~Buffers();
    Buffers(const Buffers&) = delete;
    Buffers& operator=(const Buffers&) = delete;

    // An empty buffer of the pool's size, or an empty handle when none is
    // free or the pool was cleaned up. Never waits.
    std::unique_ptr<DynamicBuffer> getBuffer();
    // Copies the oldest filled frame into a free hardware buffer of `mgmt`
    // and queues that for conversion. Returns the bytes handed over, 0 when
    // nothing was sent. Never waits for a hardware buffer.
    unsigned sendFrame(const std::unique_ptr<BufferMgmt>& mgmt);
    // Discards pending frames and turns the pool off for good.
    void cleanup();

    util::BlockingQueue<std::unique_ptr<DynamicBuffer>> fillQ;
    util::BlockingQueue<std::unique_ptr<DynamicBuffer>> sendQ;
    const uint32_t size;
    // Read without a lock by the frame source while cleanup() runs.
    std::atomic<int32_t> state{kActive};

private:
    // Sends one frame; the frame stays with the caller.
    unsigned handOver(const DynamicBuffer& frame, BufferMgmt& mgmt);
};

}  // namespace hidl_uvc_client
