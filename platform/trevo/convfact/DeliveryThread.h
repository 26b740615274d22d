#pragma once

// The conversion stand-in's later delivery (Delivery::FromOwnThread): produced
// frames are copied into two output buffers of the library's own and handed
// to the sinks from one thread per factory.

#include <android/hardware_buffer.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>

#include "trevo/ConverterCbInterface.h"
#include "trevo/GBuffer.h"

namespace convfact_standin {

class DeliveryThread {
public:
    // `factory` receives each queued frame again, on the delivery thread,
    // where onDeliveryThread() is true and it delivers at once.
    explicit DeliveryThread(trevo::ConverterCbInterface* factory);
    // Delivers what is queued, then ends the thread.
    ~DeliveryThread();
    DeliveryThread(const DeliveryThread&) = delete;
    DeliveryThread& operator=(const DeliveryThread&) = delete;

    // Copies `frame` (its record and its payload) into a free output buffer,
    // waiting while both are queued or being delivered, and queues it.
    // Returns false (and queues nothing) when no output buffer can be made.
    bool queue(const trevo::GBuffer& frame);
    // Until nothing is queued or being delivered.
    void waitIdle();

    static bool onDeliveryThread();
    // Output buffers made so far and not yet released.
    static size_t liveOutputs();

private:
    struct Output {
        AHardwareBuffer* buffer = nullptr;  // owned; null until first needed
        uint32_t capacity = 0;
        uint32_t width = 0, height = 0, layers = 0, stride = 0, format = 0, size = 0;
        int32_t streamId = 0, streamIdx = 0;
        bool hasPayload = false;  // false: the frame came without a buffer
    };
    static constexpr int kOutputs = 2;

    void run();
    bool fill(Output& out, const trevo::GBuffer& frame);

    trevo::ConverterCbInterface* const factory_;
    std::mutex mutex_;
    std::condition_variable changed_;
    Output outputs_[kOutputs];
    bool inUse_[kOutputs] = {};
    // Queued outputs, oldest first: a ring of indices into outputs_, so
    // that the frame path allocates nothing.
    int filled_[kOutputs] = {};
    int filledHead_ = 0;
    int filledCount_ = 0;
    bool stop_ = false;
    std::thread thread_;
};

}  // namespace convfact_standin
