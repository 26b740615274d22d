#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "pipeline/BlockingQueue.h"
#include "pipeline/FlatBuffer.h"
#include "pipeline/FlatTestBuffer.h"
#include "trevo/CompositorBridge.h"
#include "trevo/FrameReceiver.h"
#include "trevo/GBuffer.h"

namespace hidl_uvc_client {

// The last stage of a stream's frame path: a few hardware buffers circulate
// between fillQ (free) and convertQ (filled); the conversion thread passes
// each filled one through the conversion factory, and the factory hands the
// result back to processBuffer, which gives the frames of this stream to the
// bridge.
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

    // Starts the conversion thread (a second start without a stop only keeps
    // the running thread).
    void startStream();
    // Stops the conversion thread and waits for it.
    void stopStream();
    void msgHandler();
    void convert(FlatBuffer& buffer, unsigned size);

    // Hardware buffers that could not be made are kept out of circulation
    // (fillQ and convertQ hold only buffers of the full size). repair()
    // tries to make them again and puts those that now exist into fillQ;
    // it returns how many are still missing. Thread-safe (takes `lock`).
    int repair();
    int missingBuffers() const { return missingCount; }

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
    uint8_t stream_id;
    uint8_t stream_idx;
    const unsigned bufferSize;
    std::vector<std::unique_ptr<FlatTestBuffer>> missing;  // guarded by `lock`
    std::atomic<int> missingCount{0};
    std::thread msgThread;
    // Read by the conversion thread outside `lock` between buffers.
    std::atomic<bool> running{true};
    bool threadStarted = false;

public:
    mutable std::recursive_mutex lock;
};

}  // namespace hidl_uvc_client
