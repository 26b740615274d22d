#include "DeliveryThread.h"

#include <algorithm>
#include <atomic>
#include <cstring>

#include "hardware_buffer_testing.h"

namespace convfact_standin {

namespace {
thread_local bool tOnDeliveryThread = false;
std::atomic<size_t> gLiveOutputs{0};
}  // namespace

DeliveryThread::DeliveryThread(trevo::ConverterCbInterface* factory)
    : factory_(factory), thread_(&DeliveryThread::run, this) {}

DeliveryThread::~DeliveryThread() {
    {
        std::lock_guard<std::mutex> guard(mutex_);
        stop_ = true;
    }
    changed_.notify_all();
    thread_.join();
    for (Output& out : outputs_) {
        if (out.buffer != nullptr) {
            AHardwareBuffer_release(out.buffer);
            --gLiveOutputs;
        }
    }
}

size_t DeliveryThread::liveOutputs() {
    return gLiveOutputs.load();
}

bool DeliveryThread::onDeliveryThread() {
    return tOnDeliveryThread;
}

bool DeliveryThread::queue(const trevo::GBuffer& frame) {
    int slot = -1;
    {
        std::unique_lock<std::mutex> guard(mutex_);
        changed_.wait(guard, [&] {
            slot = int(std::find(inUse_, inUse_ + kOutputs, false) - inUse_);
            return slot < kOutputs;
        });
        inUse_[slot] = true;
    }
    // The slot is this thread's until it is queued, so it is filled unlocked.
    const bool filled = fill(outputs_[slot], frame);
    {
        std::lock_guard<std::mutex> guard(mutex_);
        if (filled) {
            filled_[(filledHead_ + filledCount_++) % kOutputs] = slot;
        } else {
            inUse_[slot] = false;
        }
    }
    changed_.notify_all();
    return filled;
}

bool DeliveryThread::fill(Output& out, const trevo::GBuffer& frame) {
    out.width = frame.width;
    out.height = frame.height;
    out.layers = frame.layers;
    out.stride = frame.stride;
    out.format = frame.format;
    out.size = frame.size;
    out.streamId = frame.stream_id;
    out.streamIdx = frame.stream_idx;
    out.hasPayload = frame.hardwareBuffer != nullptr;
    if (!out.hasPayload)
        return true;
    // The owner holds the input locked during convert(); the library reads
    // it through a mapping of its own.
    AHardwareBuffer_Desc desc = {};
    AHardwareBuffer_describe(frame.hardwareBuffer, &desc);
    const uint32_t bytes = std::min<uint64_t>(frame.size, uint64_t(desc.width) * desc.height);
    const uint32_t needed = std::max<uint32_t>(bytes, 1);
    if (out.capacity < needed) {
        if (out.buffer != nullptr) {
            AHardwareBuffer_release(out.buffer);
            --gLiveOutputs;
        }
        out.buffer = nullptr;
        out.capacity = 0;
        AHardwareBuffer_Desc want = {};
        want.width = needed;
        want.height = 1;
        want.layers = 1;
        want.format = AHARDWAREBUFFER_FORMAT_BLOB;
        want.usage = AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN | AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN;
        if (AHardwareBuffer_allocate(&want, &out.buffer) != 0) {
            out.buffer = nullptr;
            return false;
        }
        ++gLiveOutputs;
        out.capacity = needed;
    }
    void* address = nullptr;
    if (AHardwareBuffer_lock(out.buffer, AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN, -1, nullptr,
                             &address) != 0)
        return false;
    if (bytes > 0)
        std::memcpy(address, hardware_buffer_standin::peekBytes(frame.hardwareBuffer), bytes);
    AHardwareBuffer_unlock(out.buffer, nullptr);
    out.size = bytes;
    return true;
}

void DeliveryThread::run() {
    tOnDeliveryThread = true;
    std::unique_lock<std::mutex> guard(mutex_);
    for (;;) {
        changed_.wait(guard, [&] { return stop_ || filledCount_ > 0; });
        if (filledCount_ == 0)
            return;  // stopping, and everything queued went out
        const int slot = filled_[filledHead_];
        filledHead_ = (filledHead_ + 1) % kOutputs;
        --filledCount_;
        guard.unlock();
        const Output& out = outputs_[slot];
        trevo::GBuffer frame;
        frame.width = out.width;
        frame.height = out.height;
        frame.layers = out.layers;
        frame.stride = out.stride;
        frame.stride2 = out.stride;
        frame.format = out.format;
        frame.hardwareBuffer = out.hasPayload ? out.buffer : nullptr;
        frame.size = out.size;
        frame.stream_id = out.streamId;
        frame.stream_idx = out.streamIdx;
        factory_->onFrameConverted(&frame);
        guard.lock();
        inUse_[slot] = false;
        changed_.notify_all();
    }
}

void DeliveryThread::waitIdle() {
    std::unique_lock<std::mutex> guard(mutex_);
    changed_.wait(guard, [&] {
        return filledCount_ == 0 && std::none_of(inUse_, inUse_ + kOutputs, [](bool b) { return b; });
    });
}

}  // namespace convfact_standin
