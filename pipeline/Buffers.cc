#include "pipeline/Buffers.h"

#include <cstdio>
#include <cstring>

#include "pipeline/BufferMgmt.h"
#include "pipeline/FlatTestBuffer.h"

namespace hidl_uvc_client {

Buffers::Buffers(unsigned count, unsigned size) : size(size) {
    for (unsigned i = 0; i < count; ++i) {
        // Kept even when the allocation failed: getBuffer resizes it later.
        fillQ.push(std::make_unique<DynamicBuffer>(size));
    }
}

// sendQ goes first, then fillQ (reverse declaration order).
Buffers::~Buffers() = default;

std::unique_ptr<DynamicBuffer> Buffers::getBuffer() {
    std::unique_ptr<DynamicBuffer> buffer;
    // tryPop instead of a look followed by a waiting pop: the frame source
    // runs on the loop thread, which must never block here.
    if (fillQ.size() <= 0 || !fillQ.tryPop(buffer))
        return nullptr;
    if (state != kActive)
        return nullptr;
    if (buffer->capacity != size)
        buffer->resize(size);
    return buffer;
}

unsigned Buffers::sendFrame(const std::unique_ptr<BufferMgmt>& mgmt) {
    std::unique_ptr<DynamicBuffer> frame;
    if (sendQ.size() <= 0 || !sendQ.tryPop(frame)) {
        std::puts("no buffers to send");
        return 0;
    }
    if (state != kActive)
        return 0;
    if (frame->capacity != size) {
        // Its content is dropped: a buffer of the wrong size came back.
        frame->resize(size);
        fillQ.push(std::move(frame));
        return 0;
    }
    unsigned sent = 0;
    if (mgmt) {
        sent = handOver(*frame, *mgmt);
    } else {
        std::puts("cannot receive fill buffer");
    }
    fillQ.push(std::move(frame));
    return sent;
}

unsigned Buffers::handOver(const DynamicBuffer& frame, BufferMgmt& mgmt) {
    std::unique_ptr<FlatTestBuffer> hw;
    {
        // The conversion thread holds this lock across convert, sink and
        // bridge, so a slow host keeps it for as long as its frame takes.
        // This runs on the loop thread of every stream: waiting here would
        // hold up all of them, so a busy stream loses this frame instead,
        // as it does when every hardware buffer awaits conversion (waiting
        // for one would stop the conversion thread for good).
        std::unique_lock<std::recursive_mutex> guard(mgmt.lock, std::try_to_lock);
        if (guard.owns_lock())
            mgmt.fillQ.tryPop(hw);
    }
    if (!hw) {
        mgmt.frameDropped();
        return 0;
    }
    if (frame.length > frame.capacity) {
        std::printf("frame claims %u bytes but its buffer holds %u, dropped\n", frame.length,
                    frame.capacity);
        mgmt.fillQ.push(std::move(hw));
        return 0;
    }
    if (frame.length > hw->capacity) {
        std::printf("frame of %u bytes does not fit the hardware buffer of %u bytes, dropped\n",
                    frame.length, hw->capacity);
        mgmt.fillQ.push(std::move(hw));
        return 0;
    }
    FlatBuffer flat;
    void* address = hw->lockBuffer(&flat);
    if (address == nullptr) {
        // Nothing was written, so nothing is worth converting.
        mgmt.fillQ.push(std::move(hw));
        return 0;
    }
    if (frame.length > 0)
        std::memcpy(address, frame.data, frame.length);
    hw->setSize(frame.length);
    hw->unlock();
    mgmt.convertQ.push(std::move(hw));
    return frame.length;
}

void Buffers::cleanup() {
    state = kCleaningUp;
    std::unique_ptr<DynamicBuffer> kept;
    if (sendQ.size() <= 0) {
        std::puts(
            "no buffers to send, create a buffer to unblock thread waiting on the fillQ if any");
        kept = std::make_unique<DynamicBuffer>(4);
    } else {
        std::unique_ptr<DynamicBuffer> next;
        while (sendQ.tryPop(next))
            kept = std::move(next);
        if (!kept)
            kept = std::make_unique<DynamicBuffer>(4);
    }
    fillQ.push(std::move(kept));
    state = kCleanedUp;
}

}  // namespace hidl_uvc_client
