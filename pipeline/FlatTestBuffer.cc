#include "pipeline/FlatTestBuffer.h"

#include <android/log.h>

#include <cstdio>

FlatTestBuffer::FlatTestBuffer(unsigned size) {
    reinit(size);
}

FlatTestBuffer::~FlatTestBuffer() {
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (hardwareBuffer != nullptr) {
        AHardwareBuffer_release(hardwareBuffer);
        hardwareBuffer = nullptr;
    }
}

int FlatTestBuffer::reinit(unsigned newSize) {
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (newSize == capacity)
        return 0;
    if (hardwareBuffer != nullptr) {
        AHardwareBuffer_release(hardwareBuffer);
        hardwareBuffer = nullptr;
    }
    capacity = 0;
    // The allocator refuses empty buffers; holding none is the same thing.
    if (newSize == 0)
        return 0;
    AHardwareBuffer_Desc desc = {};
    desc.width = newSize;
    desc.height = 1;
    desc.layers = 1;
    desc.format = AHARDWAREBUFFER_FORMAT_BLOB;
    desc.usage = AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN;
    int status = AHardwareBuffer_allocate(&desc, &hardwareBuffer);
    if (status != 0) {
        hardwareBuffer = nullptr;
        std::printf("Cannot allocate buffer: [%d]\n", status);
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "Cannot allocate buffer: [%d]\n", status);
        return 0;
    }
    capacity = newSize;
    return 0;
}

void* FlatTestBuffer::lockBuffer(FlatBuffer* out) {
    if (out == nullptr)
        return nullptr;
    std::lock_guard<std::recursive_mutex> guard(lock);
    void* address = nullptr;
    if (AHardwareBuffer_lock(hardwareBuffer, AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN, -1, nullptr,
                             &address) != 0 ||
        address == nullptr) {
        std::puts("Cannot lock the hardware buffer");
        return nullptr;
    }
    out->hardwareBuffer = hardwareBuffer;
    return address;
}

void FlatTestBuffer::unlock() {
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (AHardwareBuffer_unlock(hardwareBuffer, nullptr) != 0) {
        __android_log_print(ANDROID_LOG_ERROR, nullptr, "%s: Failed to AHardwareBuffer_unlock",
                            "unlock");
    }
}
