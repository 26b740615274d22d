// The device's closed libraries were compiled from their own copy of the
// declarations under include/trevo/, and the factory is half inline here, half
// in libconvfact: a member, base or virtual slot that sits elsewhere in our copy
// is read at the wrong place by one side. Every expectation is a mirror written
// from the device's documented layout, never from our headers, measured with
// the target's ABI (this suite also runs as a 32-bit Arm program).

#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <initializer_list>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "support/PrivateMember.h"
#include "trevo/CompositorBridge.h"
#include "trevo/ConversionFactory.h"

// Tags of the private members, named <mirror>_<mirror member>; they live at
// namespace scope, where the explicit instantiations behind them must be.
using trevo::GBuffer;
using Factory = trevo::ConversionFactory;
using Queue = trevo::RawConversionBufferQueue;
using Plugins = trevo::PluginManager;
UVC_PRIVATE_MEMBER(RawQueue_cond1, Queue, freeCond_, std::condition_variable);
UVC_PRIVATE_MEMBER(RawQueue_cond2, Queue, filledCond_, std::condition_variable);
UVC_PRIVATE_MEMBER(RawQueue_mutex1, Queue, freeMutex_, std::mutex);
UVC_PRIVATE_MEMBER(RawQueue_mutex2, Queue, filledMutex_, std::mutex);
UVC_PRIVATE_MEMBER(RawQueue_deque1, Queue, free_, std::deque<GBuffer*>);
UVC_PRIVATE_MEMBER(RawQueue_deque2, Queue, filled_, std::deque<GBuffer*>);
UVC_PRIVATE_MEMBER(RawQueue_count, Queue, count_, int);
UVC_PRIVATE_MEMBER(RawQueue_buffers, Queue, buffers_, std::vector<GBuffer>);
UVC_PRIVATE_MEMBER(RawQueue_mutex3, Queue, buffersMutex_, std::mutex);
UVC_PRIVATE_MEMBER(Plugins_plugins, Plugins, plugins, Plugins::PluginMap);
UVC_PRIVATE_MEMBER(Plugins_mutex, Plugins, mutex, std::mutex);
UVC_PRIVATE_MEMBER(Factory_sinks, Factory, sinks, std::set<trevo::FrameReceiver*>);
UVC_PRIVATE_MEMBER(Factory_rawQueue, Factory, rawQueue, std::shared_ptr<Queue>);
UVC_PRIVATE_MEMBER(Factory_yuvConverter, Factory, yuvConverter,
                   std::shared_ptr<trevo::ConverterYUV420YUY2>);
UVC_PRIVATE_MEMBER(Factory_sinksMutex, Factory, sinksMutex, std::mutex);
UVC_PRIVATE_MEMBER(Factory_converters, Factory, converters,
                   std::map<std::pair<int, int>, trevo::ConverterInterface*>);
UVC_PRIVATE_MEMBER(Factory_pluginManager, Factory, pluginManager, trevo::PluginManager);

namespace {

using uvc_test::memberOffset;
using uvc_test::privateMember;

struct Offset {
    const char* member;
    std::ptrdiff_t actual, expected;
};

void expectLayout(const char* type, std::initializer_list<Offset> offsets, size_t actualSize,
                  size_t expectedSize) {
    for (const Offset& o : offsets)
        EXPECT_EQ(o.actual, o.expected) << "offset of " << type << "::" << o.member;
    EXPECT_EQ(actualSize, expectedSize) << "sizeof " << type;
}

// A member measured on the real object `real` and on its mirror `want`, and a
// virtual operation's slot beside the expected one.
// clang-format off
#define PUBLIC_AT(m) Offset{#m, memberOffset(real, &decltype(real)::m), memberOffset(want, &decltype(want)::m)}
#define PRIVATE_AT(mirror, m) Offset{#m, memberOffset(real, privateMember<mirror##_##m>()), memberOffset(want, &decltype(want)::m)}
#define SLOT(cls, fn, expected) {#cls "::" #fn, slotOf(&trevo::cls::fn), expected}
// clang-format on

// Offset of Base within `object`; -1 when Base is no public base of it.
template <typename Base, typename Derived>
std::ptrdiff_t baseOffset(Derived& object) {
    if constexpr (std::is_base_of_v<Base, Derived>)
        return reinterpret_cast<char*>(static_cast<Base*>(&object)) -
               reinterpret_cast<char*>(&object);
    else
        return -1;
}

// Virtual-table slot of a virtual member function, -1 when not virtual.
template <typename Fn>
long slotOf(Fn fn) {
    struct {
        std::uintptr_t ptr;
        std::ptrdiff_t adj;
    } raw;
    static_assert(sizeof(fn) == sizeof(raw), "two-word member function pointer");
    std::memcpy(&raw, &fn, sizeof(raw));
    const long word = sizeof(void*);
#if defined(__arm__) || defined(__aarch64__)
    // Arm C++ ABI: ptr = table offset; adj = 2 * this-adjustment, plus 1 when
    // virtual (code addresses may be odd, so the flag cannot live in ptr).
    return (raw.adj & 1) ? static_cast<long>(raw.ptr) / word : -1;
#else
    // Itanium C++ ABI: ptr = 1 + table offset when virtual.
    return (raw.ptr & 1) ? static_cast<long>(raw.ptr - 1) / word : -1;
#endif
}

struct ExpectedGBuffer {
    uint32_t flags;
    std::mutex mutex;
    uint32_t width, height, layers, stride, stride2;
    uint8_t* ownedData;
    uint32_t format;
    std::vector<char> planes;
    void* hardwareBuffer;
    uint32_t size;
    int32_t stream_id, stream_idx;
};
struct ExpectedCameraState {
    std::string name;
    int32_t value;
};
struct ExpectedUvcConfig {
    int32_t width, height, fps;
    uint32_t format;
    int32_t streaming;
    uint8_t reserved[12];
    uint8_t flags;
    std::string label;
    std::vector<ExpectedCameraState> cameraStates;
};
struct ExpectedRawQueue {
    std::condition_variable cond1, cond2;
    std::mutex mutex1, mutex2;
    std::deque<GBuffer*> deque1, deque2;
    int count;
    std::vector<GBuffer> buffers;
    std::mutex mutex3;
};
struct ExpectedPluginManager {
    std::map<std::string, std::shared_ptr<void>> plugins;
    std::mutex mutex;
};
struct ExpectedFactory {
    void* factoryTable;   // the library's own virtual table
    void* callbackTable;  // ConverterCbInterface, the second base
    std::set<trevo::FrameReceiver*> sinks;
    std::shared_ptr<void> rawQueue, yuvConverter;
    std::mutex sinksMutex;
    std::map<std::pair<int, int>, void*> converters;
    ExpectedPluginManager pluginManager;
};

TEST(ClosedLayout, FrameAndConfigurationRecords) {
    {
        GBuffer real;
        ExpectedGBuffer want{};
        expectLayout(
            "GBuffer",
            {PUBLIC_AT(flags), PUBLIC_AT(mutex), PUBLIC_AT(width), PUBLIC_AT(height),
             PUBLIC_AT(layers), PUBLIC_AT(stride), PUBLIC_AT(stride2), PUBLIC_AT(ownedData),
             PUBLIC_AT(format), PUBLIC_AT(planes), PUBLIC_AT(hardwareBuffer), PUBLIC_AT(size),
             PUBLIC_AT(stream_id), PUBLIC_AT(stream_idx)},
            sizeof(real), sizeof(want));
    }
    {
        trevo::HalUvcConfig real;
        ExpectedUvcConfig want{};
        expectLayout("HalUvcConfig",
                     {PUBLIC_AT(width), PUBLIC_AT(height), PUBLIC_AT(fps), PUBLIC_AT(format),
                      PUBLIC_AT(streaming), PUBLIC_AT(reserved), PUBLIC_AT(flags), PUBLIC_AT(label),
                      PUBLIC_AT(cameraStates)},
                     sizeof(real), sizeof(want));
        EXPECT_EQ(real.label, ",") << "default HalUvcConfig text";
    }
    trevo::HalCameraState real;
    ExpectedCameraState want{};
    expectLayout("HalCameraState", {PUBLIC_AT(name), PUBLIC_AT(value)}, sizeof(real), sizeof(want));
}

TEST(ClosedLayout, ConversionFactoryAndItsParts) {
    {
        Queue real;
        ExpectedRawQueue want{};
        expectLayout(
            "RawConversionBufferQueue",
            {PRIVATE_AT(RawQueue, cond1), PRIVATE_AT(RawQueue, cond2), PRIVATE_AT(RawQueue, mutex1),
             PRIVATE_AT(RawQueue, mutex2), PRIVATE_AT(RawQueue, deque1),
             PRIVATE_AT(RawQueue, deque2), PRIVATE_AT(RawQueue, count),
             PRIVATE_AT(RawQueue, buffers), PRIVATE_AT(RawQueue, mutex3)},
            sizeof(real), sizeof(want));
        EXPECT_EQ(real.*privateMember<RawQueue_count>(), 2) << "RawConversionBufferQueue count";
    }
    {
        Plugins real;
        ExpectedPluginManager want{};
        expectLayout("PluginManager", {PRIVATE_AT(Plugins, plugins), PRIVATE_AT(Plugins, mutex)},
                     sizeof(real), sizeof(want));
        Plugins::PluginState state;
        EXPECT_EQ(memberOffset(state, &Plugins::PluginState::converter), 0)
            << "offset of PluginState::converter";
    }
    Factory real;
    ExpectedFactory want{};
    EXPECT_EQ(baseOffset<trevo::ConversionFactoryBase>(real), 0) << "ConversionFactory's 1st base";
    EXPECT_EQ(baseOffset<trevo::ConverterCbInterface>(real),
              memberOffset(want, &ExpectedFactory::callbackTable))
        << "ConversionFactory's ConverterCbInterface base";
    expectLayout("ConversionFactory",
                 {PRIVATE_AT(Factory, sinks), PRIVATE_AT(Factory, rawQueue),
                  PRIVATE_AT(Factory, yuvConverter), PRIVATE_AT(Factory, sinksMutex),
                  PRIVATE_AT(Factory, converters), PRIVATE_AT(Factory, pluginManager)},
                 sizeof(real), sizeof(want));
}

TEST(ClosedLayout, InterfacesAndVirtualSlots) {
    // Interfaces hold nothing but their virtual-table pointer.
    EXPECT_EQ(sizeof(trevo::FrameReceiver), sizeof(void*));
    EXPECT_EQ(sizeof(trevo::HotPlugHandler), sizeof(void*));
    EXPECT_EQ(sizeof(trevo::ConverterCbInterface), sizeof(void*));
    EXPECT_EQ(sizeof(trevo::ConverterInterface), sizeof(void*));
    EXPECT_EQ(sizeof(trevo::ConversionFactoryBase), sizeof(void*));
    using trevo::CompositorBridge;
    const struct {
        const char* operation;
        long slot, expected;
    } slots[] = {SLOT(FrameReceiver, processBuffer, 0),
                 SLOT(FrameReceiver, preProcessBuffer, 1),
                 SLOT(HotPlugHandler, hotplug, 0),
                 SLOT(HotPlugHandler, setting, 1),
                 SLOT(ConverterInterface, supportedFormats, 0),
                 SLOT(CompositorBridge, sendFrameBuffer, 3)};
    for (const auto& s : slots)
        EXPECT_EQ(s.slot, s.expected) << "virtual slot of " << s.operation;
    // Only the fourth bridge operation is fixed; the three before it fill
    // slots 0 to 2 in an order of the library's choosing.
    const std::set<long> firstThree = {slotOf(&CompositorBridge::registerHotPlugHandler),
                                       slotOf(&CompositorBridge::registerProjector),
                                       slotOf(&CompositorBridge::getConfiguration)};
    EXPECT_EQ(firstThree, (std::set<long>{0, 1, 2}))
        << "slots of registerHotPlugHandler, registerProjector, getConfiguration";
}

}  // namespace
