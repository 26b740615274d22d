#include <android/hardware_buffer.h>

#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

#include "hardware_buffer_testing.h"

namespace hb = hardware_buffer_standin;

namespace {

AHardwareBuffer_Desc blobDesc(uint32_t bytes) {
    AHardwareBuffer_Desc desc = {};
    desc.width = bytes;
    desc.height = 1;
    desc.layers = 1;
    desc.format = AHARDWAREBUFFER_FORMAT_BLOB;
    desc.usage = AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN;
    return desc;
}

class HardwareBufferStandIn : public ::testing::Test {
protected:
    void SetUp() override {
        hb::clearFaults();
        hb::resetCounters();
        baseline = hb::liveBuffers();
    }
    void TearDown() override {
        hb::clearFaults();
        EXPECT_EQ(hb::liveBuffers(), baseline);
    }
    size_t baseline = 0;
};

}  // namespace

TEST_F(HardwareBufferStandIn, BlobDescribesItselfAndCountsReferences) {
    AHardwareBuffer_Desc desc = blobDesc(1000);
    AHardwareBuffer* buffer = nullptr;
    ASSERT_EQ(AHardwareBuffer_allocate(&desc, &buffer), 0);
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(hb::liveBuffers(), baseline + 1);
    EXPECT_EQ(hb::allocateCalls(), 1u);

    AHardwareBuffer_Desc out = {};
    AHardwareBuffer_describe(buffer, &out);
    EXPECT_EQ(out.width, 1000u);
    EXPECT_EQ(out.height, 1u);
    EXPECT_EQ(out.layers, 1u);
    EXPECT_EQ(out.format, uint32_t(AHARDWAREBUFFER_FORMAT_BLOB));
    EXPECT_EQ(out.usage, uint64_t(AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN));
    EXPECT_EQ(out.stride, 1000u);

    const native_handle_t* handle = AHardwareBuffer_getNativeHandle(buffer);
    ASSERT_NE(handle, nullptr);
    ASSERT_GT(handle->numInts, hb::kNativeHandleSizeWord);
    EXPECT_EQ(handle->data[handle->numFds + hb::kNativeHandleSizeWord], 1000);

    AHardwareBuffer_acquire(buffer);
    EXPECT_EQ(hb::refCount(buffer), 2);
    AHardwareBuffer_release(buffer);
    EXPECT_EQ(hb::liveBuffers(), baseline + 1);
    AHardwareBuffer_release(buffer);
    EXPECT_EQ(hb::liveBuffers(), baseline);
}

TEST_F(HardwareBufferStandIn, RejectsBadDescriptions) {
    AHardwareBuffer* buffer = nullptr;
    AHardwareBuffer_Desc desc = blobDesc(0);
    EXPECT_EQ(AHardwareBuffer_allocate(&desc, &buffer), -EINVAL);
    desc = blobDesc(16);
    desc.height = 2;
    EXPECT_EQ(AHardwareBuffer_allocate(&desc, &buffer), -EINVAL);
    desc = blobDesc(16);
    desc.rfu0 = 1;
    EXPECT_EQ(AHardwareBuffer_allocate(&desc, &buffer), -EINVAL);
    desc = blobDesc(16);
    desc.format = 0x7777;
    EXPECT_EQ(AHardwareBuffer_allocate(&desc, &buffer), -EINVAL);
    desc = blobDesc(0xFFFFFFFFu);
    EXPECT_EQ(AHardwareBuffer_allocate(&desc, &buffer), -ENOMEM);
    EXPECT_EQ(AHardwareBuffer_allocate(nullptr, &buffer), -EINVAL);
    EXPECT_EQ(buffer, nullptr);
    // Null buffers are tolerated where the NDK tolerates them.
    AHardwareBuffer_release(nullptr);
    EXPECT_EQ(AHardwareBuffer_getNativeHandle(nullptr), nullptr);
}

TEST_F(HardwareBufferStandIn, LocksNestAndKeepContents) {
    AHardwareBuffer_Desc desc = blobDesc(64);
    AHardwareBuffer* buffer = nullptr;
    ASSERT_EQ(AHardwareBuffer_allocate(&desc, &buffer), 0);
    void* a = nullptr;
    void* b = nullptr;
    ASSERT_EQ(AHardwareBuffer_lock(buffer, AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN, -1, nullptr, &a),
              0);
    std::memset(a, 0x5A, 64);
    ASSERT_EQ(AHardwareBuffer_lock(buffer, AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN, -1, nullptr, &b),
              0);
    EXPECT_EQ(a, b);
    EXPECT_EQ(hb::lockDepth(buffer), 2);
    EXPECT_EQ(hb::heldLocks(), 2u);
    EXPECT_EQ(hb::lockCalls(), 2u);
    int32_t fence = 7;
    EXPECT_EQ(AHardwareBuffer_unlock(buffer, &fence), 0);
    EXPECT_EQ(fence, -1);
    EXPECT_EQ(AHardwareBuffer_unlock(buffer, nullptr), 0);
    EXPECT_EQ(AHardwareBuffer_unlock(buffer, nullptr), -EINVAL);  // not locked
    EXPECT_EQ(hb::heldLocks(), 0u);
    EXPECT_EQ(hb::peekBytes(buffer)[63], 0x5A);

    // Non-CPU usage, a rectangle outside the buffer and a missing out-pointer.
    EXPECT_EQ(AHardwareBuffer_lock(buffer, 1ull << 8, -1, nullptr, &a), -EINVAL);
    ARect rect = {0, 0, 65, 1};
    EXPECT_EQ(AHardwareBuffer_lock(buffer, AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN, -1, &rect, &a),
              -EINVAL);
    EXPECT_EQ(
        AHardwareBuffer_lock(buffer, AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN, -1, nullptr, nullptr),
        -EINVAL);
    EXPECT_EQ(hb::heldLocks(), 0u);
    AHardwareBuffer_release(buffer);
}

TEST_F(HardwareBufferStandIn, InjectedFaultsFailTheNextCallsOnly) {
    AHardwareBuffer_Desc desc = blobDesc(8);
    AHardwareBuffer* buffer = nullptr;
    hb::failAllocations(1, -99);
    EXPECT_EQ(AHardwareBuffer_allocate(&desc, &buffer), -99);
    EXPECT_EQ(buffer, nullptr);
    ASSERT_EQ(AHardwareBuffer_allocate(&desc, &buffer), 0);

    void* address = nullptr;
    hb::failLocks(1);
    EXPECT_NE(
        AHardwareBuffer_lock(buffer, AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN, -1, nullptr, &address),
        0);
    EXPECT_EQ(address, nullptr);
    EXPECT_EQ(hb::heldLocks(), 0u);
    ASSERT_EQ(
        AHardwareBuffer_lock(buffer, AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN, -1, nullptr, &address),
        0);
    hb::failUnlocks(1);
    EXPECT_NE(AHardwareBuffer_unlock(buffer, nullptr), 0);
    EXPECT_EQ(hb::lockDepth(buffer), 1);  // a failed unlock leaves the lock held
    EXPECT_EQ(AHardwareBuffer_unlock(buffer, nullptr), 0);
    AHardwareBuffer_release(buffer);
}

TEST_F(HardwareBufferStandIn, ReleasingALockedBufferDropsItsLocks) {
    AHardwareBuffer_Desc desc = blobDesc(8);
    AHardwareBuffer* buffer = nullptr;
    ASSERT_EQ(AHardwareBuffer_allocate(&desc, &buffer), 0);
    void* address = nullptr;
    ASSERT_EQ(
        AHardwareBuffer_lock(buffer, AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN, -1, nullptr, &address),
        0);
    AHardwareBuffer_release(buffer);
    EXPECT_EQ(hb::heldLocks(), 0u);
}
