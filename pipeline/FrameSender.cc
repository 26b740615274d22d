#include "pipeline/FrameSender.h"

#include <android/log.h>

#include <cstring>
#include <system_error>

namespace hidl_uvc_client {

namespace {
const char kTag[] = "ConvFactory";
}  // namespace

FrameSender::FrameSender(trevo::CompositorBridge* bridge, uint8_t stream_id, uint8_t stream_idx,
                         Queue& freeQ)
    : bridge(bridge), stream_id(stream_id), stream_idx(stream_idx), freeQ(freeQ) {}

FrameSender::~FrameSender() {
    stop();
}

bool FrameSender::start() {
    if (thread.joinable())
        return true;
    sending = true;
    try {
        thread = std::thread(&FrameSender::run, this);
    } catch (const std::system_error& e) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "cannot start frame sender: %s", e.what());
        return false;
    }
    std::lock_guard<std::mutex> guard(stateLock);
    accepting = true;
    return true;
}

void FrameSender::stop() {
    {
        std::lock_guard<std::mutex> guard(stateLock);
        accepting = false;
    }
    sending = false;
    if (thread.joinable()) {
        queue.push(std::unique_ptr<FlatTestBuffer>());
        thread.join();
    }
    std::unique_ptr<FlatTestBuffer> buffer;
    while (queue.tryPop(buffer)) {
        if (buffer)
            freeQ.push(std::move(buffer));
    }
}

void FrameSender::send(std::unique_ptr<FlatTestBuffer> buffer) {
    if (!buffer)
        return;
    std::lock_guard<std::mutex> guard(stateLock);
    if (accepting) {
        queue.push(std::move(buffer));
    } else {
        freeQ.push(std::move(buffer));
    }
}

bool FrameSender::sendCopy(const trevo::GBuffer& frame) {
    AHardwareBuffer_Desc desc = {};
    AHardwareBuffer_describe(frame.hardwareBuffer, &desc);
    if (desc.format != AHARDWAREBUFFER_FORMAT_BLOB || frame.size > uint64_t(desc.width))
        return false;  // no byte count to trust
    std::unique_ptr<FlatTestBuffer> buffer;
    if (!freeQ.tryPop(buffer))
        return false;
    if (frame.size > buffer->capacity) {
        freeQ.push(std::move(buffer));
        return false;
    }
    void* source = nullptr;
    if (AHardwareBuffer_lock(frame.hardwareBuffer, AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN, -1,
                             nullptr, &source) != 0) {
        freeQ.push(std::move(buffer));
        return false;
    }
    FlatBuffer flat;
    void* target = buffer->lockBuffer(&flat);
    if (target != nullptr) {
        if (frame.size > 0)
            std::memcpy(target, source, frame.size);
        buffer->setSize(frame.size);
        buffer->unlock();
    }
    AHardwareBuffer_unlock(frame.hardwareBuffer, nullptr);
    if (target == nullptr) {
        freeQ.push(std::move(buffer));
        return false;
    }
    send(std::move(buffer));
    return true;
}

void FrameSender::run() {
    for (;;) {
        std::unique_ptr<FlatTestBuffer> buffer;
        queue.pop(buffer);
        if (!buffer)
            return;
        if (sending)
            handOver(*buffer);
        freeQ.push(std::move(buffer));
    }
}

void FrameSender::sendHere(std::unique_ptr<FlatTestBuffer> buffer) {
    if (!buffer)
        return;
    handOver(*buffer);
    freeQ.push(std::move(buffer));
}

void FrameSender::handOver(FlatTestBuffer& buffer) {
    AHardwareBuffer* hardware = buffer.heldBuffer();
    if (hardware == nullptr)
        return;
    try {
        if (bridge->sendFrameBuffer(0, hardware, buffer.size, stream_id, stream_idx, 0) != 0) {
            __android_log_print(ANDROID_LOG_WARN, kTag,
                                "BUG: socket connection dropped to uvc_gadget. Trying to recover.");
            bridge->registerProjector(0);
        }
    } catch (...) {
        // The bridge is not ours; its exceptions end here, the frame with them.
        __android_log_print(ANDROID_LOG_ERROR, kTag, "frame hand-over failed");
    }
}

}  // namespace hidl_uvc_client
