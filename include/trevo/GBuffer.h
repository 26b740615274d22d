#pragma once

#include <android/hardware_buffer.h>

#include <cstdint>
#include <mutex>
#include <vector>

namespace trevo {

// One plane of a converted frame (converters that produce planar output).
struct GBufferPlane {
    uint8_t* data = nullptr;
    uint32_t stride = 0;
    uint32_t size = 0;
};

// A frame as exchanged with the conversion library. Not copyable: it owns
// `ownedData` and carries a mutex for converters that share it.
struct GBuffer {
    uint32_t flags = 0;
    std::mutex mutex;
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t layers = 0;
    uint32_t stride = 0;
    uint32_t stride2 = 0;
    uint8_t* ownedData = nullptr;  // released with delete[]
    uint32_t format = 0;
    std::vector<GBufferPlane> planes;
    AHardwareBuffer* hardwareBuffer = nullptr;  // not owned
    uint32_t size = 0;                          // payload bytes
    int32_t stream_id = 0;
    int32_t stream_idx = 0;

    GBuffer() = default;
    // Set-up from a hardware buffer: geometry and format from its description,
    // the initial size from the allocator's word of its native handle.
    explicit GBuffer(AHardwareBuffer* buffer) : hardwareBuffer(buffer) {
        if (buffer == nullptr)
            return;
        AHardwareBuffer_Desc desc = {};
        AHardwareBuffer_describe(buffer, &desc);
        width = desc.width;
        height = desc.height;
        layers = desc.layers;
        stride = desc.stride;
        stride2 = desc.stride;
        format = desc.format;
        const native_handle_t* handle = AHardwareBuffer_getNativeHandle(buffer);
        if (handle != nullptr && handle->numInts > kSizeWord) {
            size = static_cast<uint32_t>(handle->data[handle->numFds + kSizeWord]);
        }
    }
    GBuffer(const GBuffer&) = delete;
    GBuffer& operator=(const GBuffer&) = delete;
    ~GBuffer() { delete[] ownedData; }

    // Word of the native handle's ints that holds the allocated byte size.
    static constexpr int kSizeWord = 0;
};

}  // namespace trevo
