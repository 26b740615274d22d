#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "pipeline/BlockingQueue.h"
#include "pipeline/FlatTestBuffer.h"
#include "trevo/CompositorBridge.h"
#include "trevo/GBuffer.h"

namespace hidl_uvc_client {

// Hands one stream's converted frames to the bridge, outside the conversion
// library's delivery.
//
// The conversion library calls the sinks of every stream in turn under one
// mutex, so a sink that waited for a slow host would hold up the frames of
// all streams. The stream's sink (BufferMgmt::processBuffer) therefore never
// calls the bridge: a frame delivered within convert() is sent by the
// conversion thread once convert() has returned (sendHere), one delivered
// later is queued for this sender's thread (send, sendCopy). Either way the
// hardware buffer goes back to the stream's free queue once the bridge has
// taken it. A rejected frame is reported and the connection re-registered,
// never sent again.
//
// send(), sendCopy() and sendHere() may be called on any thread; start() and
// stop() by the owner, never concurrently with each other.
class FrameSender {
public:
    using Queue = util::BlockingQueue<std::unique_ptr<FlatTestBuffer>>;

    // `freeQ` receives every buffer once sent or dropped; it outlives this.
    FrameSender(trevo::CompositorBridge* bridge, uint8_t stream_id, uint8_t stream_idx,
                Queue& freeQ);
    ~FrameSender();
    FrameSender(const FrameSender&) = delete;
    FrameSender& operator=(const FrameSender&) = delete;

    // Starts the thread (again after a stop); false when it could not be.
    bool start();
    // Waits for a send in progress, then gives queued buffers back to
    // `freeQ` unsent and ends the thread. Frames handed in later go straight
    // back to `freeQ`.
    void stop();

    // Queues a buffer holding `size` payload bytes.
    void send(std::unique_ptr<FlatTestBuffer> buffer);
    // Sends it on the calling thread, then gives it back to `freeQ`.
    void sendHere(std::unique_ptr<FlatTestBuffer> buffer);
    // For a frame in a buffer that stays valid only during this call (the
    // library's own): copies its payload into a free buffer of `freeQ` and
    // queues that. False when the frame is lost: no free buffer, not a
    // blob, larger than a buffer, or not readable.
    bool sendCopy(const trevo::GBuffer& frame);

private:
    void run();
    void handOver(FlatTestBuffer& buffer);

    trevo::CompositorBridge* const bridge;
    const uint8_t stream_id;
    const uint8_t stream_idx;
    Queue& freeQ;
    Queue queue;  // an empty handle ends the thread
    std::mutex stateLock;  // `accepting`, and pushes into `queue`
    bool accepting = false;
    std::atomic<bool> sending{false};  // false: queued buffers go back unsent
    std::thread thread;
};

}  // namespace hidl_uvc_client
