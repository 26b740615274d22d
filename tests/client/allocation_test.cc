// Counts heap allocations on the event-loop thread while a stream runs in
// steady state. The loop thread makes and hands over every frame (frame
// source and hand-over timer), so nothing may be allocated there per frame.
// Only in builds without sanitizers: they bring their own allocators.

#include <atomic>
#include <cstdlib>
#include <iostream>
#include <new>

#include "client_harness.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define UVC_COUNT_ALLOCATIONS 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define UVC_COUNT_ALLOCATIONS 0
#endif
#endif
#ifndef UVC_COUNT_ALLOCATIONS
#define UVC_COUNT_ALLOCATIONS 1
#endif

namespace {

std::atomic<bool> counting{false};
std::atomic<long> loopAllocations{0};
std::atomic<long> allAllocations{0};

// A place for a debugger breakpoint: called for each counted loop-thread
// allocation.
__attribute__((noinline)) void loopThreadAllocated() {
    asm volatile("");
}

inline void noteAllocation() {
    if (counting.load(std::memory_order_relaxed)) {
        allAllocations.fetch_add(1, std::memory_order_relaxed);
        if (client_test::onLoopThread) {
            loopAllocations.fetch_add(1, std::memory_order_relaxed);
            loopThreadAllocated();
        }
    }
}

}  // namespace

#if UVC_COUNT_ALLOCATIONS
// glibc's own entry points, so that the counting versions can forward.
extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);
extern "C" void __libc_free(void*);

extern "C" void* malloc(size_t n) {
    noteAllocation();
    return __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t m) {
    noteAllocation();
    return __libc_calloc(n, m);
}
extern "C" void* realloc(void* p, size_t n) {
    noteAllocation();
    return __libc_realloc(p, n);
}
extern "C" void free(void* p) {
    __libc_free(p);
}
#endif

namespace client_test {
namespace {

using uvc_client::DemoBuffer;

class AllocationTest : public HostTest {};

TEST_F(AllocationTest, SteadyStreamingAllocatesNothingOnTheLoopThread) {
#if !UVC_COUNT_ALLOCATIONS
    GTEST_SKIP() << "allocation counting needs a build without sanitizers";
#endif
    // The queues' chunk cache fills during the first cycles through a chunk
    // (64 frames), so the warm-up runs past two of them.
    const size_t kWarmUp = 150;
    const size_t kFrames = 120;
    host.setCopyFrameBytes(false);
    ClientHarness h;
    for (uint32_t format : {DemoBuffer::kFormatYUYV, DemoBuffer::kFormatNV12}) {
        h.change(0, 0, streamConfig(320, 240, 200, format, 1));
        host.clearFrames();
        ASSERT_TRUE(host.waitForFrames(0, 0, kWarmUp, 10s));
        loopAllocations = 0;
        allAllocations = 0;
        const size_t start = host.frameCount(0, 0);
        counting = true;
        ASSERT_TRUE(host.waitForFrames(0, 0, start + kFrames, 10s));
        counting = false;
        EXPECT_EQ(0, loopAllocations.load()) << "format " << format;
        // The rest of the process (conversion thread, stand-in host) does not
        // allocate per frame either; the host's record of frames grows now
        // and then.
        EXPECT_LT(allAllocations.load(), 8) << "format " << format;
        std::cout << "[ alloc    ] " << kFrames << " frames: " << loopAllocations.load()
                  << " allocations on the loop thread, " << allAllocations.load()
                  << " in the whole process\n";
    }
}

}  // namespace
}  // namespace client_test
