#pragma once

#include <android/hardware_buffer.h>

#include <cstdint>
#include <mutex>

#include "pipeline/FlatBuffer.h"

// Owns one BLOB hardware buffer into which a frame is copied on its way to
// the conversion library.
class FlatTestBuffer {
public:
    explicit FlatTestBuffer(unsigned size);
    // Maps the buffer for writing and stores it in `out`; the mapped address,
    // or null. The buffer stays mapped until unlock().
    virtual void* lockBuffer(FlatBuffer* out);
    virtual void unlock();
    virtual ~FlatTestBuffer();
    FlatTestBuffer(const FlatTestBuffer&) = delete;
    FlatTestBuffer& operator=(const FlatTestBuffer&) = delete;

    // Holds a buffer of `size` bytes (none for 0). Always 0.
    int reinit(unsigned size);
    void setSize(const unsigned& n) { size = n; }
    // The hardware buffer held (null while none), for inspection.
    AHardwareBuffer* heldBuffer() {
        std::lock_guard<std::recursive_mutex> guard(lock);
        return hardwareBuffer;
    }

    uint32_t size = 0;      // payload bytes held
    uint32_t capacity = 0;  // bytes of the hardware buffer; 0 while none

private:
    std::recursive_mutex lock;
    AHardwareBuffer* hardwareBuffer = nullptr;  // one reference, owned
};
