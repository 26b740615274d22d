// Replaces malloc/calloc/realloc in this program (forwarding to glibc;
// operator new goes through malloc) and counts calls per thread.

#include <atomic>
#include <cstddef>

#include "bench.h"

namespace uvc_bench {
namespace {

constexpr unsigned kThreads = 128;
std::atomic<bool> gCounting{false};
std::atomic<unsigned> gNextSlot{0};
std::atomic<uint64_t> gCounts[kThreads];
std::atomic<bool> gIsLoop[kThreads];
thread_local int tSlot = -1;

int slot() {
    if (tSlot < 0) {
        unsigned s = gNextSlot.fetch_add(1);
        tSlot = s < kThreads ? int(s) : int(kThreads - 1);
    }
    return tSlot;
}

void note() {
    if (gCounting.load(std::memory_order_relaxed))
        gCounts[slot()].fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

void markLoopThread() {
    gIsLoop[slot()] = true;
}

void startCounting() {
    for (auto& c : gCounts)
        c = 0;
    gCounting = true;
}

AllocationCount stopCounting() {
    gCounting = false;
    AllocationCount n;
    for (unsigned i = 0; i < kThreads; ++i) {
        if (gIsLoop[i]) {
            n.loop += gCounts[i];
        } else if (gCounts[i] > 0) {
            n.others += gCounts[i];
            ++n.otherThreads;
        }
    }
    return n;
}

}  // namespace uvc_bench

extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);
extern "C" void* malloc(size_t n) {
    uvc_bench::note();
    return __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t m) {
    uvc_bench::note();
    return __libc_calloc(n, m);
}
extern "C" void* realloc(void* p, size_t n) {
    uvc_bench::note();
    return __libc_realloc(p, n);
}
