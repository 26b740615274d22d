#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "pipeline/BlockingQueue.h"
#include "pipeline/FlatBuffer.h"
#include "pipeline/FlatTestBuffer.h"
#include "pipeline/FrameSender.h"
#include "trevo/CompositorBridge.h"
#include "trevo/FrameReceiver.h"
#include "trevo/GBuffer.h"

namespace hidl_uvc_client {

// The last stage of a stream's frame path: a few hardware buffers circulate
// between fillQ (free) and convertQ (filled); the conversion thread passes
// each filled one through the conversion factory, and the factory hands the
// result back to processBuffer, which picks out the frames of this stream
// for the stream's FrameSender to give to the bridge. A buffer goes back to
// fillQ once the bridge has taken its frame.
//
// processBuffer never waits for the bridge: the library calls the sinks of
// every stream under one mutex, so one slow host would otherwise stall all
// streams. When the delivered frame is the buffer being converted (the
// library delivers within convert), the conversion thread sends that buffer
// itself once convert has returned; a frame in a buffer of the library's own
// (delivered later) is copied into a free buffer for the sender's thread.
class BufferMgmt : public trevo::FrameReceiver {
public:
    BufferMgmt(unsigned count, unsigned size, trevo::CompositorBridge* bridge,
               unsigned char stream_id, unsigned char stream_idx);
    void processBuffer(trevo::GBuffer* frame) const override;
    void preProcessBuffer(trevo::GBuffer* frame) const override;
    // Leaves the factory's sinks first, then stops the conversion thread if
    // it still runs.
    ~BufferMgmt() override;
    BufferMgmt(const BufferMgmt&) = delete;
    BufferMgmt& operator=(const BufferMgmt&) = delete;

    // Starts the conversion thread and the sender (a second start without a
    // stop only keeps the running threads).
    void startStream();
    // Stops the conversion thread and the sender and waits for both; frames
    // not yet sent are dropped, their buffers return to fillQ.
    void stopStream();
    void msgHandler();
    void convert(FlatBuffer& buffer, unsigned size);

    // Hardware buffers that could not be made are kept out of circulation
    // (fillQ and convertQ hold only buffers of the full size). repair()
    // tries to make them again and puts those that now exist into fillQ;
    // it returns how many are still missing. Thread-safe (takes `lock`).
    int repair();
    int missingBuffers() const { return missingCount; }
    // repair() for the loop thread: does nothing while a conversion runs.
    int tryRepair();

    // Counts a frame that had to be dropped because the stream was busy (no
    // free hardware buffer, or a conversion running) and says so at most
    // once a second; stopStream() tells what is still untold. Thread-safe.
    void frameDropped() const;

    bool isRunning() const { return running; }
    bool isThreadStarted() const;
    uint8_t streamId() const { return stream_id; }
    uint8_t streamIdx() const { return stream_idx; }

private:
    trevo::CompositorBridge* bridge;

public:
    // Used directly by Buffers::sendFrame, which takes from fillQ under lock.
    util::BlockingQueue<std::unique_ptr<FlatTestBuffer>> fillQ;
    util::BlockingQueue<std::unique_ptr<FlatTestBuffer>> convertQ;

private:
    int repairLocked();
    void reportDropsLocked(std::chrono::steady_clock::time_point now) const;  // holds dropLock

    uint8_t stream_id;
    uint8_t stream_idx;
    const unsigned bufferSize;
    std::vector<std::unique_ptr<FlatTestBuffer>> missing;  // guarded by `lock`
    std::atomic<int> missingCount{0};
    mutable std::mutex dropLock;  // a leaf: guards the three below
    mutable unsigned droppedSinceReport = 0;
    mutable bool dropReported = false;
    mutable std::chrono::steady_clock::time_point lastDropReport;
    mutable FrameSender sender;
    // The buffer being converted, and whether its frame reached this sink
    // (with which payload size) during the conversion.
    mutable std::atomic<AHardwareBuffer*> converting{nullptr};
    mutable std::atomic<bool> claimed{false};
    mutable std::atomic<uint32_t> claimedSize{0};
    std::thread msgThread;
    // Read by the conversion thread outside `lock` between buffers.
    std::atomic<bool> running{true};
    bool threadStarted = false;

public:
    mutable std::recursive_mutex lock;
};

}  // namespace hidl_uvc_client
