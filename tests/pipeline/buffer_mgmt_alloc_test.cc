// The steady frame path must not touch the heap: this program's operator new
// counts allocations while a window is open.

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <thread>

#include <gtest/gtest.h>

#include "pipeline/BufferMgmt.h"
#include "pipeline/Buffers.h"
#include "trevo_host.h"

// Sanitizers bring their own operator new, and a second replacement mixes the
// two across shared objects; the count is taken in plain builds only.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define UVC_COUNT_ALLOCATIONS 0
#else
#define UVC_COUNT_ALLOCATIONS 1
#endif

// The replacements below pair malloc with free, which the compiler cannot see
// through once operator new is inlined.
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"

namespace {
std::atomic<bool> gCounting{false};
std::atomic<size_t> gAllocations{0};
}  // namespace

#if UVC_COUNT_ALLOCATIONS
void* operator new(size_t bytes) {
    if (gCounting.load(std::memory_order_relaxed))
        gAllocations.fetch_add(1);
    void* p = std::malloc(bytes == 0 ? 1 : bytes);
    if (p == nullptr)
        throw std::bad_alloc();
    return p;
}
void* operator new[](size_t bytes) {
    return operator new(bytes);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, size_t) noexcept {
    std::free(p);
}
#endif

using namespace std::chrono_literals;
using hidl_uvc_client::BufferMgmt;
using hidl_uvc_client::Buffers;
using hidl_uvc_client::DynamicBuffer;

namespace {

// One frame through the whole path: pool -> hardware buffer -> conversion
// thread -> factory -> sink -> bridge. Waits until the bridge has it.
void passFrame(Buffers& pool, const std::unique_ptr<BufferMgmt>& mgmt, size_t expected) {
    std::unique_ptr<DynamicBuffer> frame = pool.getBuffer();
    ASSERT_TRUE(frame);
    frame->length = 512;
    std::memset(frame->data, int(expected & 0xFF), frame->length);
    pool.sendQ.push(std::move(frame));
    ASSERT_EQ(pool.sendFrame(mgmt), 512u);
    ASSERT_TRUE(trevo_standin::Host::instance().waitForFrames(0, 0, expected, 5s));
    // Let the conversion thread give the hardware buffer back.
    for (int i = 0; i < 5000 && mgmt->fillQ.size() < 3; ++i)
        std::this_thread::yield();
}

}  // namespace

TEST(FramePathAllocations, SteadyStateAllocatesNothing) {
    if (!UVC_COUNT_ALLOCATIONS)
        GTEST_SKIP() << "allocation counting needs a plain build";
    auto& host = trevo_standin::Host::instance();
    host.reset();
    host.setCopyFrameBytes(false);  // the stand-in's copy is not the product's
    trevo::CompositorBridge bridge(trevo::BRIDGE_CONTEXT_UVC);
    Buffers pool(5, 1024);
    auto mgmt = std::make_unique<BufferMgmt>(3, 1024, &bridge, 0, 0);
    mgmt->startStream();

    // Warm-up: queue chunks and the host's record reach their working size.
    size_t sent = 0;
    for (int i = 0; i < 300; ++i)
        passFrame(pool, mgmt, ++sent);
    host.clearFrames();  // keeps the record's capacity
    sent = 0;

    gAllocations = 0;
    gCounting = true;
    for (int i = 0; i < 200; ++i)
        passFrame(pool, mgmt, ++sent);
    gCounting = false;
    EXPECT_EQ(gAllocations.load(), 0u);

    mgmt->stopStream();
    host.reset();
}

TEST(FramePathAllocations, CountingSeesAllocations) {
    if (!UVC_COUNT_ALLOCATIONS)
        GTEST_SKIP() << "allocation counting needs a plain build";
    gAllocations = 0;
    gCounting = true;
    auto p = std::make_unique<int>(1);
    gCounting = false;
    EXPECT_EQ(gAllocations.load(), 1u);
}
