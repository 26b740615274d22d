#include <android/hardware_buffer.h>

#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

#include "hardware_buffer_testing.h"

namespace hb = hardware_buffer_standin;
constexpr uint32_t kBlob = AHARDWAREBUFFER_FORMAT_BLOB;
constexpr uint64_t kRead = AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN;

TEST(HardwareBufferStandIn, BlobDescribesItselfIsCountedLiveAndRefusesBadDescriptions) {
    hb::resetCounters();
    const size_t baseline = hb::liveBuffers();
    AHardwareBuffer_Desc desc = {1000, 1, 1, kBlob, kRead, 0, 0, 0};
    AHardwareBuffer* buffer = nullptr;
    ASSERT_EQ(AHardwareBuffer_allocate(&desc, &buffer), 0);
    EXPECT_EQ(hb::allocateCalls(), 1u);
    AHardwareBuffer_Desc out = {};
    AHardwareBuffer_describe(buffer, &out);
    desc.stride = 1000;
    EXPECT_EQ(std::memcmp(&out, &desc, sizeof(desc)), 0);
    EXPECT_EQ(hb::liveBuffers(), baseline + 1);
    AHardwareBuffer_release(buffer);
    EXPECT_EQ(hb::liveBuffers(), baseline);

    // Empty, two rows, reserved field set, unknown format, too large, none.
    const AHardwareBuffer_Desc bad[] = {{0, 1, 1, kBlob, kRead, 0, 0, 0},
                                        {16, 2, 1, kBlob, kRead, 0, 0, 0},
                                        {16, 1, 1, kBlob, kRead, 0, 1, 0},
                                        {16, 1, 1, 0x7777, kRead, 0, 0, 0},
                                        {0xFFFFFFFFu, 1, 1, kBlob, kRead, 0, 0, 0}};
    buffer = nullptr;
    for (const auto& d : bad)
        EXPECT_EQ(AHardwareBuffer_allocate(&d, &buffer), d.width > 16 ? -ENOMEM : -EINVAL);
    EXPECT_EQ(AHardwareBuffer_allocate(nullptr, &buffer), -EINVAL);
    EXPECT_EQ(buffer, nullptr);
}

TEST(HardwareBufferStandIn, ASecondLockIsRefusedAndLocksFailOnRequest) {
    hb::clearFaults();
    hb::resetCounters();
    AHardwareBuffer_Desc desc = {64, 1, 1, kBlob, kRead, 0, 0, 0};
    AHardwareBuffer* buffer = nullptr;
    hb::failAllocations(1, -99);
    EXPECT_EQ(AHardwareBuffer_allocate(&desc, &buffer), -99);
    ASSERT_EQ(AHardwareBuffer_allocate(&desc, &buffer), 0);  // the next one only
    auto lock = [&](uint64_t usage, void** out) {
        return AHardwareBuffer_lock(buffer, usage, -1, nullptr, out);
    };
    void* a = nullptr;
    ASSERT_EQ(lock(AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN, &a), 0);
    std::memset(a, 0x5A, 64);
    void* b = nullptr;
    EXPECT_EQ(lock(kRead, &b), -EBUSY);  // even for reading
    EXPECT_EQ(b, nullptr);
    EXPECT_EQ(hb::lockDepth(buffer), 1);
    EXPECT_EQ(hb::heldLocks(), 1u);
    EXPECT_EQ(hb::lockCalls(), 1u);
    hb::failUnlocks(1);
    EXPECT_NE(AHardwareBuffer_unlock(buffer, nullptr), 0);
    EXPECT_EQ(hb::lockDepth(buffer), 1);  // a failed unlock leaves the lock held
    EXPECT_EQ(AHardwareBuffer_unlock(buffer, nullptr), 0);
    EXPECT_EQ(AHardwareBuffer_unlock(buffer, nullptr), -EINVAL);  // not locked
    EXPECT_EQ(hb::peekBytes(buffer)[63], 0x5A);

    hb::failLocks(1);
    a = nullptr;
    EXPECT_NE(lock(AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN, &a), 0);
    EXPECT_EQ(a, nullptr);
    EXPECT_EQ(lock(1ull << 8, &a), -EINVAL);  // no CPU usage
    EXPECT_EQ(hb::heldLocks(), 0u);
    ASSERT_EQ(lock(AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN, &a), 0);
    AHardwareBuffer_release(buffer);
    EXPECT_EQ(hb::heldLocks(), 0u);  // releasing a locked buffer drops its locks
}
