#pragma once

// Test hooks of the hardware-buffer stand-in. Product code never includes
// this header.

#include <android/hardware_buffer.h>

#include <cstddef>
#include <cstdint>

namespace hardware_buffer_standin {

// Buffers allocated and not yet released to their last reference.
size_t liveBuffers();
// Locks currently held (successful locks not yet unlocked), over all buffers.
size_t heldLocks();
// Successful AHardwareBuffer_lock calls since the last resetCounters().
size_t lockCalls();
// Successful AHardwareBuffer_allocate calls since the last resetCounters().
size_t allocateCalls();
void resetCounters();

// Locking a buffer that is locked already fails with -EBUSY, as it does on
// the device; nothing else need be injected for that.
//
// The next `n` calls of the named operation fail: allocate returns `status`
// (default -ENOMEM), lock returns -EINVAL, unlock returns -EINVAL. A failing
// unlock leaves the lock held, as a driver failure would.
void failAllocations(int n, int status = -12);
void failLocks(int n);
void failUnlocks(int n);
// Cancels pending failures.
void clearFaults();

// Word of the native handle's ints that holds the byte size of a BLOB buffer.
constexpr int kNativeHandleSizeWord = 0;

// The buffer's bytes without locking it (for checks only), and its lock depth.
const uint8_t* peekBytes(const AHardwareBuffer* buffer);
int lockDepth(const AHardwareBuffer* buffer);
// References held on the buffer (1 after allocate).
int refCount(const AHardwareBuffer* buffer);

}  // namespace hardware_buffer_standin
