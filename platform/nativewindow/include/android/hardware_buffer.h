#pragma once

// The NDK's hardware-buffer interface (libnativewindow), as far as this
// library uses it, plus the vendor call that exposes the native handle.

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct AHardwareBuffer AHardwareBuffer;

typedef struct ARect {
    int32_t left;
    int32_t top;
    int32_t right;
    int32_t bottom;
} ARect;

typedef struct AHardwareBuffer_Desc {
    uint32_t width;   // bytes for a BLOB buffer
    uint32_t height;  // 1 for a BLOB buffer
    uint32_t layers;
    uint32_t format;  // AHARDWAREBUFFER_FORMAT_*
    uint64_t usage;   // AHARDWAREBUFFER_USAGE_* bits
    uint32_t stride;  // filled in by describe; ignored by allocate
    uint32_t rfu0;    // reserved, must be 0
    uint64_t rfu1;    // reserved, must be 0
} AHardwareBuffer_Desc;

// The gralloc handle behind a buffer: numFds descriptors, then numInts words.
typedef struct native_handle {
    int version;  // sizeof(native_handle_t)
    int numFds;
    int numInts;
    int data[0];
} native_handle_t;

enum {
    AHARDWAREBUFFER_FORMAT_R8G8B8A8_UNORM = 1,
    AHARDWAREBUFFER_FORMAT_R8G8B8X8_UNORM = 2,
    AHARDWAREBUFFER_FORMAT_R8G8B8_UNORM = 3,
    AHARDWAREBUFFER_FORMAT_R5G6B5_UNORM = 4,
    AHARDWAREBUFFER_FORMAT_BLOB = 0x21,
    AHARDWAREBUFFER_FORMAT_Y8Cb8Cr8_420 = 0x23,
};

enum {
    AHARDWAREBUFFER_USAGE_CPU_READ_NEVER = 0UL,
    AHARDWAREBUFFER_USAGE_CPU_READ_RARELY = 2UL,
    AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN = 3UL,
    AHARDWAREBUFFER_USAGE_CPU_READ_MASK = 0xFUL,
    AHARDWAREBUFFER_USAGE_CPU_WRITE_NEVER = 0UL << 4,
    AHARDWAREBUFFER_USAGE_CPU_WRITE_RARELY = 2UL << 4,
    AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN = 3UL << 4,
    AHARDWAREBUFFER_USAGE_CPU_WRITE_MASK = 0xFUL << 4,
};

// 0 on success, a negative errno otherwise (*outBuffer untouched).
int AHardwareBuffer_allocate(const AHardwareBuffer_Desc* desc, AHardwareBuffer** outBuffer);
void AHardwareBuffer_acquire(AHardwareBuffer* buffer);
void AHardwareBuffer_release(AHardwareBuffer* buffer);
void AHardwareBuffer_describe(const AHardwareBuffer* buffer, AHardwareBuffer_Desc* outDesc);
// Maps the buffer for CPU access; `usage` must be CPU usage bits only. A
// fence of -1 means there is nothing to wait for; a null rect is the whole
// buffer. Locks nest: each successful lock needs its own unlock.
int AHardwareBuffer_lock(AHardwareBuffer* buffer, uint64_t usage, int32_t fence, const ARect* rect,
                         void** outVirtualAddress);
// `fence` may be null; when given it receives -1 (the unlock is complete).
int AHardwareBuffer_unlock(AHardwareBuffer* buffer, int32_t* fence);
const native_handle_t* AHardwareBuffer_getNativeHandle(const AHardwareBuffer* buffer);

#ifdef __cplusplus
}
#endif
