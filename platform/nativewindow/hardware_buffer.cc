// In-memory hardware buffers: enough of the NDK contract for CPU-only use,
// with counters and fault injection for tests.

#include <android/hardware_buffer.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>

#include "testing/hardware_buffer_testing.h"

struct AHardwareBuffer {
    AHardwareBuffer_Desc desc;
    size_t byteSize;
    std::unique_ptr<uint8_t[]> bytes;
    std::atomic<int> refs{1};
    std::mutex mutex;
    int lockDepth = 0;  // 0 or 1; guarded by mutex
    struct {
        native_handle_t header;
        int ints[2];  // byte size, buffer serial
    } handle;
};

namespace {

// Largest buffer handed out; larger requests fail as an allocator would.
constexpr uint64_t kMaxBytes = 1ull << 30;

std::atomic<size_t> gLive{0};
std::atomic<size_t> gHeldLocks{0};
std::atomic<size_t> gLockCalls{0};
std::atomic<size_t> gAllocateCalls{0};
std::atomic<int> gSerial{0};

std::mutex gFaultMutex;
// Atomic, so that the lock and unlock of every frame take no lock shared by
// all streams when no fault is pending.
std::atomic<int> gFailAllocations{0};
int gFailAllocationStatus = -ENOMEM;  // guarded by gFaultMutex
std::atomic<int> gFailLocks{0};
std::atomic<int> gFailUnlocks{0};

// Consumes one pending failure of a counter; true when the call is to fail.
bool takeFault(std::atomic<int>& counter) {
    int n = counter.load();
    while (n > 0) {
        if (counter.compare_exchange_weak(n, n - 1))
            return true;
    }
    return false;
}

// Bytes per pixel times 2, so that 4:2:0 (1.5 bytes) stays integral.
int doubledBytesPerPixel(uint32_t format) {
    switch (format) {
        case AHARDWAREBUFFER_FORMAT_R8G8B8A8_UNORM:
        case AHARDWAREBUFFER_FORMAT_R8G8B8X8_UNORM:
            return 8;
        case AHARDWAREBUFFER_FORMAT_R8G8B8_UNORM:
            return 6;
        case AHARDWAREBUFFER_FORMAT_R5G6B5_UNORM:
            return 4;
        case AHARDWAREBUFFER_FORMAT_BLOB:
            return 2;
        case AHARDWAREBUFFER_FORMAT_Y8Cb8Cr8_420:
            return 3;
        default:
            return 0;
    }
}

constexpr uint64_t kCpuUsageMask =
    AHARDWAREBUFFER_USAGE_CPU_READ_MASK | AHARDWAREBUFFER_USAGE_CPU_WRITE_MASK;

}  // namespace

extern "C" int AHardwareBuffer_allocate(const AHardwareBuffer_Desc* desc,
                                        AHardwareBuffer** outBuffer) {
    if (desc == nullptr || outBuffer == nullptr)
        return -EINVAL;
    if (takeFault(gFailAllocations)) {
        std::lock_guard<std::mutex> guard(gFaultMutex);
        return gFailAllocationStatus;
    }
    int dbpp = doubledBytesPerPixel(desc->format);
    if (dbpp == 0 || desc->width == 0 || desc->height == 0 || desc->layers == 0 ||
        desc->rfu0 != 0 || desc->rfu1 != 0) {
        return -EINVAL;
    }
    if (desc->format == AHARDWAREBUFFER_FORMAT_BLOB && (desc->height != 1 || desc->layers != 1)) {
        return -EINVAL;
    }
    uint64_t bytes = uint64_t(desc->width) * desc->height * desc->layers * dbpp / 2;
    if (bytes > kMaxBytes)
        return -ENOMEM;

    std::unique_ptr<AHardwareBuffer> buffer(new (std::nothrow) AHardwareBuffer);
    if (!buffer)
        return -ENOMEM;
    buffer->bytes.reset(new (std::nothrow) uint8_t[bytes]());
    if (!buffer->bytes)
        return -ENOMEM;
    buffer->desc = *desc;
    buffer->desc.stride = desc->width;
    buffer->byteSize = bytes;
    buffer->handle.header.version = sizeof(native_handle_t);
    buffer->handle.header.numFds = 0;
    buffer->handle.header.numInts = 2;
    buffer->handle.ints[hardware_buffer_standin::kNativeHandleSizeWord] = static_cast<int>(bytes);
    buffer->handle.ints[1] = ++gSerial;
    *outBuffer = buffer.release();
    ++gLive;
    ++gAllocateCalls;
    return 0;
}

extern "C" void AHardwareBuffer_acquire(AHardwareBuffer* buffer) {
    if (buffer != nullptr)
        buffer->refs.fetch_add(1, std::memory_order_relaxed);
}

extern "C" void AHardwareBuffer_release(AHardwareBuffer* buffer) {
    if (buffer == nullptr)
        return;
    if (buffer->refs.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    {
        std::lock_guard<std::mutex> guard(buffer->mutex);
        gHeldLocks -= static_cast<size_t>(buffer->lockDepth);
    }
    delete buffer;
    --gLive;
}

extern "C" void AHardwareBuffer_describe(const AHardwareBuffer* buffer,
                                         AHardwareBuffer_Desc* outDesc) {
    if (buffer == nullptr || outDesc == nullptr)
        return;
    *outDesc = buffer->desc;
}

extern "C" int AHardwareBuffer_lock(AHardwareBuffer* buffer, uint64_t usage, int32_t /*fence*/,
                                    const ARect* rect, void** outVirtualAddress) {
    if (buffer == nullptr || outVirtualAddress == nullptr)
        return -EINVAL;
    if (usage == 0 || (usage & ~kCpuUsageMask) != 0)
        return -EINVAL;
    if (rect != nullptr) {
        int64_t w = buffer->desc.width;
        int64_t h = buffer->desc.height;
        if (rect->left < 0 || rect->top < 0 || rect->left > rect->right ||
            rect->top > rect->bottom || rect->right > w || rect->bottom > h) {
            return -EINVAL;
        }
    }
    if (takeFault(gFailLocks))
        return -EINVAL;
    std::lock_guard<std::mutex> guard(buffer->mutex);
    // An allocator maps a buffer for one user at a time: a second lock
    // before the unlock is refused, even for reading.
    if (buffer->lockDepth > 0)
        return -EBUSY;
    ++buffer->lockDepth;
    ++gHeldLocks;
    ++gLockCalls;
    *outVirtualAddress = buffer->bytes.get();
    return 0;
}

extern "C" int AHardwareBuffer_unlock(AHardwareBuffer* buffer, int32_t* fence) {
    if (buffer == nullptr)
        return -EINVAL;
    if (takeFault(gFailUnlocks))
        return -EINVAL;
    std::lock_guard<std::mutex> guard(buffer->mutex);
    if (buffer->lockDepth == 0)
        return -EINVAL;
    --buffer->lockDepth;
    --gHeldLocks;
    if (fence != nullptr)
        *fence = -1;
    return 0;
}

extern "C" const native_handle_t* AHardwareBuffer_getNativeHandle(const AHardwareBuffer* buffer) {
    return buffer != nullptr ? &buffer->handle.header : nullptr;
}

namespace hardware_buffer_standin {

size_t liveBuffers() {
    return gLive.load();
}
size_t heldLocks() {
    return gHeldLocks.load();
}
size_t lockCalls() {
    return gLockCalls.load();
}
size_t allocateCalls() {
    return gAllocateCalls.load();
}

void resetCounters() {
    gLockCalls = 0;
    gAllocateCalls = 0;
}

void failAllocations(int n, int status) {
    std::lock_guard<std::mutex> guard(gFaultMutex);
    gFailAllocations = n;
    gFailAllocationStatus = status;
}

void failLocks(int n) {
    std::lock_guard<std::mutex> guard(gFaultMutex);
    gFailLocks = n;
}

void failUnlocks(int n) {
    std::lock_guard<std::mutex> guard(gFaultMutex);
    gFailUnlocks = n;
}

void clearFaults() {
    std::lock_guard<std::mutex> guard(gFaultMutex);
    gFailAllocations = 0;
    gFailLocks = 0;
    gFailUnlocks = 0;
}

const uint8_t* peekBytes(const AHardwareBuffer* buffer) {
    return buffer != nullptr ? buffer->bytes.get() : nullptr;
}

int lockDepth(const AHardwareBuffer* buffer) {
    if (buffer == nullptr)
        return 0;
    std::lock_guard<std::mutex> guard(const_cast<AHardwareBuffer*>(buffer)->mutex);
    return buffer->lockDepth;
}

int refCount(const AHardwareBuffer* buffer) {
    return buffer != nullptr ? buffer->refs.load() : 0;
}

}  // namespace hardware_buffer_standin
