// Counts heap allocations while a stream runs in steady state: no thread of
// the frame path (the loop thread that makes and hands over every frame, the
// conversion and the sending) may allocate. Only in builds without
// sanitizers, which bring their own allocators. The same hooks let memory run
// out on request (HeapFaults.h).

#include <atomic>
#include <cerrno>
#include <iostream>

#include "HeapFaults.h"
#include "client_harness.h"

namespace {

std::atomic<bool> counting{false};
std::atomic<long> loopAllocations{0}, allAllocations{0};

inline void noteAllocation() {
    if (counting.load(std::memory_order_relaxed)) {
        allAllocations++;
        loopAllocations += client_test::onLoopThread ? 1 : 0;
    }
}

std::atomic<bool> heapLimited{false};
std::atomic<long> heapAllowed{0}, heapFailed{0};

// True when this allocation is to fail as if memory had run out.
inline bool heapRunsOut() {
    if (!heapLimited.load(std::memory_order_relaxed) || heapAllowed.fetch_sub(1) > 0) {
        return false;
    }
    heapFailed++;
    errno = ENOMEM;
    return true;
}

}  // namespace

namespace client_test {

void failHeapAfter(long allocations) {
    heapAllowed = allocations;
    heapLimited = allocations >= 0;
}

long heapFailures() {
    return heapFailed.load();
}

}  // namespace client_test

#if !UVC_TEST_SANITIZED
// Every allocation (operator new included) goes through these.
extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);
extern "C" void* malloc(size_t n) {
    noteAllocation();
    return heapRunsOut() ? nullptr : __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t m) {
    noteAllocation();
    return heapRunsOut() ? nullptr : __libc_calloc(n, m);
}
extern "C" void* realloc(void* p, size_t n) {
    noteAllocation();
    return n > 0 && heapRunsOut() ? nullptr : __libc_realloc(p, n);
}
#endif

namespace client_test {
namespace {

TEST_F(HostTest, SteadyStreamingAllocatesNothingPerFrame) {
    if (kSanitized) {
        GTEST_SKIP() << "allocation counting needs a build without sanitizers";
    }
    host.setCopyFrameBytes(false);
    ClientHarness h;
    for (uint32_t format : {DemoBuffer::kFormatYUYV, DemoBuffer::kFormatNV12}) {
        h.change(0, 0, streamConfig(320, 240, 200, format, 1));
        host.clearFrames();
        // Past two of the queues' 64-frame chunks, so that their cache is full.
        ASSERT_TRUE(host.waitForFrames(0, 0, 150, 10s));
        // A per-frame or per-chunk allocation shows in every window; a
        // one-time one that a busy machine delayed into the first does not
        // come back in a second.
        long all = 0;
        for (int window = 0; window < 2; ++window) {
            host.clearFrames();  // the host reuses its records from now on
            loopAllocations = allAllocations = 0;
            counting = true;
            int* volatile probe = new int(1);  // the count must see this one
            delete probe;
            ASSERT_GE(allAllocations.exchange(0), 1);
            ASSERT_TRUE(host.waitForFrames(0, 0, 120, 10s));
            counting = false;
            all = allAllocations;
            std::cout << "[ alloc    ] 120 frames: " << loopAllocations
                      << " allocations on the loop thread, " << all << " in all\n";
            if (all == 0)
                break;
        }
        EXPECT_EQ(0, all);
    }
}

}  // namespace
}  // namespace client_test
