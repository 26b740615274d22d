#include "pipeline/BufferMgmt.h"

#include <android/log.h>

#include <exception>
#include <system_error>

#include "trevo/ConversionFactory.h"

namespace hidl_uvc_client {

namespace {
constexpr int kBlobFormat = 33;  // AHARDWAREBUFFER_FORMAT_BLOB: no conversion wanted
const char kTag[] = "ConvFactory";

// Called in a catch handler: names the exception being handled in one line.
// Neither the conversion thread nor the library's threads calling the sink
// may see it (memory can run out anywhere, and the library may throw).
void logFailure(const char* what) {
    try {
        throw;
    } catch (const std::exception& e) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s failed: %s", what, e.what());
    } catch (...) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "%s failed: unknown exception", what);
    }
}
}  // namespace

BufferMgmt::BufferMgmt(unsigned count, unsigned size, trevo::CompositorBridge* bridge,
                       unsigned char stream_id, unsigned char stream_idx)
    : bridge(bridge),
      stream_id(stream_id),
      stream_idx(stream_idx),
      bufferSize(size),
      sender(BufferMgmt::bridge, stream_id, stream_idx, fillQ) {
    for (unsigned i = 0; i < count; ++i) {
        auto buffer = std::make_unique<FlatTestBuffer>(size);
        // A buffer without memory would only make every frame it meets fail.
        if (size > 0 && buffer->capacity == size) {
            fillQ.push(std::move(buffer));
        } else {
            missing.push_back(std::move(buffer));
        }
    }
    missingCount = static_cast<int>(missing.size());
    if (!missing.empty()) {
        __android_log_print(ANDROID_LOG_WARN, kTag,
                            "Stream [%u] [%u]: %zu of %u hardware buffers could not be made, "
                            "trying again\n",
                            stream_id, stream_idx, missing.size(), count);
    }
    trevo::ConversionFactory::getInstance().registerFrameSink(this);
}

int BufferMgmt::repair() {
    std::lock_guard<std::recursive_mutex> guard(lock);
    return repairLocked();
}

int BufferMgmt::tryRepair() {
    std::unique_lock<std::recursive_mutex> guard(lock, std::try_to_lock);
    return guard.owns_lock() ? repairLocked() : missingCount.load();
}

void BufferMgmt::frameDropped() const {
    std::lock_guard<std::mutex> guard(dropLock);
    ++droppedSinceReport;
    const auto now = std::chrono::steady_clock::now();
    if (dropReported && now - lastDropReport < std::chrono::seconds(1))
        return;
    reportDropsLocked(now);
}

void BufferMgmt::reportDropsLocked(std::chrono::steady_clock::time_point now) const {
    __android_log_print(ANDROID_LOG_WARN, kTag,
                        "Stream [%u] [%u]: host busy, %u frame(s) dropped\n", stream_id, stream_idx,
                        droppedSinceReport);
    droppedSinceReport = 0;
    dropReported = true;
    lastDropReport = now;
}

int BufferMgmt::repairLocked() {
    if (missing.empty())
        return 0;
    for (auto it = missing.begin(); it != missing.end();) {
        (*it)->reinit(bufferSize);
        if (bufferSize > 0 && (*it)->capacity == bufferSize) {
            fillQ.push(std::move(*it));
            it = missing.erase(it);
        } else {
            ++it;
        }
    }
    missingCount = static_cast<int>(missing.size());
    if (missing.empty()) {
        __android_log_print(ANDROID_LOG_INFO, kTag, "Stream [%u] [%u]: hardware buffers complete\n",
                            stream_id, stream_idx);
    }
    return missingCount;
}

BufferMgmt::~BufferMgmt() {
    // The factory calls every sink, so another stream's conversion thread may
    // be about to call this one; once unregistered, none will.
    trevo::ConversionFactory::getInstance().unregisterFrameSink(this);
    stopStream();
}

bool BufferMgmt::isThreadStarted() const {
    std::lock_guard<std::recursive_mutex> guard(lock);
    return threadStarted;
}

void BufferMgmt::startStream() {
    std::lock_guard<std::recursive_mutex> guard(lock);
    running = true;
    if (threadStarted)
        return;
    if (!sender.start())
        return;
    try {
        msgThread = std::thread(&BufferMgmt::msgHandler, this);
        threadStarted = true;
    } catch (const std::system_error& e) {
        __android_log_print(ANDROID_LOG_ERROR, "ConvFactory", "cannot start conversion thread: %s",
                            e.what());
    }
}

void BufferMgmt::stopStream() {
    {
        std::lock_guard<std::recursive_mutex> guard(lock);
        running = false;
        if (threadStarted && convertQ.size() <= 0) {
            // Wake the thread out of its wait on convertQ with an empty
            // handle. A free buffer would do too, but it could be left in
            // convertQ and a later thread would send its stale frame again;
            // and taking one could wait here while the thread holds them.
            convertQ.push(std::unique_ptr<FlatTestBuffer>());
        }
    }
    if (msgThread.joinable())
        msgThread.join();
    sender.stop();
    {
        // Drops held back by the once-a-second limit are told now, so that
        // the log of a stream always adds up to what it lost.
        std::lock_guard<std::mutex> dropGuard(dropLock);
        if (droppedSinceReport > 0)
            reportDropsLocked(std::chrono::steady_clock::now());
    }
    std::lock_guard<std::recursive_mutex> guard(lock);
    threadStarted = false;
    // Drop a wake-up the thread did not need; filled buffers keep their order.
    int32_t waiting = convertQ.size();
    for (int32_t i = 0; i < waiting; ++i) {
        std::unique_ptr<FlatTestBuffer> buffer;
        if (!convertQ.tryPop(buffer))
            break;
        if (buffer)
            convertQ.push(std::move(buffer));
    }
}

void BufferMgmt::msgHandler() try {
    for (;;) {
        if (!running)
            return;
        std::unique_ptr<FlatTestBuffer> buffer;
        convertQ.pop(buffer);
        std::unique_lock<std::recursive_mutex> guard(lock);
        if (!running) {
            if (buffer)
                fillQ.push(std::move(buffer));
            return;
        }
        if (!buffer)
            continue;  // a wake-up left over from an earlier stop
        FlatBuffer flat;
        void* address = buffer->lockBuffer(&flat);
        claimed = false;
        converting = flat.hardwareBuffer;
        try {
            convert(flat, buffer->size);
        } catch (...) {
            logFailure("conversion");  // the frame is lost, the buffer is not
        }
        converting = nullptr;
        if (address != nullptr)
            buffer->unlock();
        guard.unlock();
        if (claimed.exchange(false)) {
            // Outside the library's delivery and this object's lock: a slow
            // host holds up only this stream's next conversion.
            buffer->setSize(claimedSize.load());
            sender.sendHere(std::move(buffer));
        } else {
            fillQ.push(std::move(buffer));
        }
    }
} catch (...) {
    // Only the queues' own locking and allocation are left here; the thread
    // ends and the next stopStream joins it as usual.
    logFailure("conversion thread");
}

void BufferMgmt::convert(FlatBuffer& buffer, unsigned size) {
    // On the stack: the factory does not keep the frame past the call, and the
    // frame path stays off the heap.
    trevo::GBuffer frame(buffer.hardwareBuffer);
    frame.size = size;
    frame.stream_id = stream_id;
    frame.stream_idx = stream_idx;
    trevo::ConversionFactory::getInstance().convert(&frame, kBlobFormat);
}

void BufferMgmt::processBuffer(trevo::GBuffer* frame) const try {
    if (frame == nullptr)
        return;
    if (frame->stream_id != stream_id || frame->stream_idx != stream_idx)
        return;
    if (frame->hardwareBuffer == nullptr)
        return;
    if (frame->hardwareBuffer == converting.load()) {
        // Ours, and locked until convert returns: the conversion thread
        // hands it to the sender then.
        claimedSize = frame->size;
        claimed = true;
        return;
    }
    if (!sender.sendCopy(*frame))
        frameDropped();
} catch (...) {
    logFailure("frame hand-over");
}

void BufferMgmt::preProcessBuffer(trevo::GBuffer* /*frame*/) const {}

}  // namespace hidl_uvc_client
