#include <android/hardware_buffer.h>

#include <cerrno>
#include <cstring>

#include <gtest/gtest.h>

#include "hardware_buffer_testing.h"

namespace hb = hardware_buffer_standin;
constexpr uint32_t kBlob = AHARDWAREBUFFER_FORMAT_BLOB;
constexpr uint64_t kRead = AHARDWAREBUFFER_USAGE_CPU_READ_OFTEN;

// The frame-path tests count on the stand-in refusing what the device's
// allocator refuses, and on its counters: a lax or miscounting stand-in
// would let their checks pass whatever the library did.
TEST(HardwareBufferStandIn, RefusesWhatTheDeviceRefusesAndCountsLocks) {
    hb::clearFaults();
    hb::resetCounters();
    // Empty, two rows, reserved field set, unknown format, too large, none.
    const AHardwareBuffer_Desc bad[] = {{0, 1, 1, kBlob, kRead, 0, 0, 0},
                                        {16, 2, 1, kBlob, kRead, 0, 0, 0},
                                        {16, 1, 1, kBlob, kRead, 0, 1, 0},
                                        {16, 1, 1, 0x7777, kRead, 0, 0, 0},
                                        {0xFFFFFFFFu, 1, 1, kBlob, kRead, 0, 0, 0}};
    AHardwareBuffer* buffer = nullptr;
    for (const auto& d : bad)
        EXPECT_EQ(AHardwareBuffer_allocate(&d, &buffer), d.width > 16 ? -ENOMEM : -EINVAL);
    EXPECT_EQ(AHardwareBuffer_allocate(nullptr, &buffer), -EINVAL);
    EXPECT_EQ(buffer, nullptr);

    AHardwareBuffer_Desc desc = {64, 1, 1, kBlob, kRead, 0, 0, 0};
    ASSERT_EQ(AHardwareBuffer_allocate(&desc, &buffer), 0);
    EXPECT_EQ(hb::allocateCalls(), 1u);
    AHardwareBuffer_Desc out = {};
    AHardwareBuffer_describe(buffer, &out);
    desc.stride = 64;
    EXPECT_EQ(std::memcmp(&out, &desc, sizeof(desc)), 0);
    auto lock = [&](uint64_t usage, void** address) {
        return AHardwareBuffer_lock(buffer, usage, -1, nullptr, address);
    };
    void* a = nullptr;
    void* b = nullptr;
    EXPECT_EQ(lock(1ull << 8, &a), -EINVAL);  // no CPU usage
    ASSERT_EQ(lock(AHARDWAREBUFFER_USAGE_CPU_WRITE_OFTEN, &a), 0);
    EXPECT_EQ(lock(kRead, &b), -EBUSY);  // even for reading
    EXPECT_EQ(b, nullptr);
    EXPECT_EQ(hb::lockDepth(buffer), 1);
    EXPECT_EQ(hb::heldLocks(), 1u);
    EXPECT_EQ(hb::lockCalls(), 1u);
    EXPECT_EQ(AHardwareBuffer_unlock(buffer, nullptr), 0);
    EXPECT_EQ(AHardwareBuffer_unlock(buffer, nullptr), -EINVAL);  // not locked
    EXPECT_EQ(hb::heldLocks(), 0u);
    AHardwareBuffer_release(buffer);
}
