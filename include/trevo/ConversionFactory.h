#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <utility>

#include "trevo/ConverterCbInterface.h"
#include "trevo/ConverterInterface.h"
#include "trevo/ConverterYUV420YUY2.h"
#include "trevo/FrameReceiver.h"
#include "trevo/GBuffer.h"
#include "trevo/PluginManager.h"
#include "trevo/RawConversionBufferQueue.h"
#include "trevo/TrevoExport.h"

namespace trevo {

// Stands for the device factory's first polymorphic base, whose name and
// operations this program never uses: it only puts the factory's own
// virtual-table pointer first. Everything in it is inline, so no symbol of it
// is needed from the device.
class ConversionFactoryBase {
public:
    virtual ~ConversionFactoryBase() = default;
};

// The process-wide frame-conversion service. convert() runs a frame through
// the converter for its (input, output) format pair; what the converters
// produce goes to every registered sink, on a thread and at a time of the
// library's choosing (within convert() or later).
//
// The layout of this class is the device's and must not change: the
// singleton accessor, construction, destruction and sink registration are
// inline and so compiled into this program, while convert(), the converter
// call-back and the virtual table come from the device's libconvfact, and
// both halves reach the same members at the same offsets and lock
// `sinksMutex` the same way. Base order, member types and member order are
// checked by tests/platform/closed_layout_test.cc. Add no member, base or
// virtual operation here.
class TREVO_EXPORT ConversionFactory : public ConversionFactoryBase, public ConverterCbInterface {
public:
    static ConversionFactory& getInstance() {
        static ConversionFactory instance;
        return instance;
    }

    ConversionFactory() {
        rawQueue = std::make_shared<RawConversionBufferQueue>();
        yuvConverter = std::make_shared<ConverterYUV420YUY2>(this, rawQueue);
        converters[std::make_pair(kFormatNv21, kFormatYuy2)] = yuvConverter.get();
        converters[std::make_pair(kFormatYuv420Flexible, kFormatYuy2)] = yuvConverter.get();
        pluginManager.loadPlugins(this);
        // std::map orders by name, so a later plug-in wins a contested pair.
        for (const auto& entry : pluginManager.plugins) {
            ConverterInterface* converter = entry.second ? entry.second->converter : nullptr;
            if (converter == nullptr)
                continue;
            for (const auto& pair : converter->supportedFormats()) {
                converters[pair] = converter;
            }
        }
    }
    ~ConversionFactory() override = default;
    ConversionFactory(const ConversionFactory&) = delete;
    ConversionFactory& operator=(const ConversionFactory&) = delete;

    void registerFrameSink(FrameReceiver* sink) {
        std::lock_guard<std::mutex> guard(sinksMutex);
        sinks.insert(sink);
    }

    // Ours, not the library's: a sink must leave before it is destroyed, and
    // the library offers no way to remove one. It touches only `sinks` under
    // `sinksMutex`, as registration does. The library holds `sinksMutex`
    // while it calls the sinks, so once this returns the sink is not called
    // again.
    void unregisterFrameSink(FrameReceiver* sink) {
        std::lock_guard<std::mutex> guard(sinksMutex);
        sinks.erase(sink);
    }

    // Converts `frame` for output `format`. The frame is not kept after the
    // call. 0 on success.
    int convert(GBuffer* frame, int format);

    // Graphics pixel formats of the converter table.
    static constexpr int kFormatNv21 = 17;            // HAL_PIXEL_FORMAT_YCrCb_420_SP
    static constexpr int kFormatYuy2 = 20;            // HAL_PIXEL_FORMAT_YCbCr_422_I
    static constexpr int kFormatBlob = 33;            // AHARDWAREBUFFER_FORMAT_BLOB
    static constexpr int kFormatYuv420Flexible = 35;  // HAL_PIXEL_FORMAT_YCbCr_420_888

protected:
    // Converters report produced frames here; they go to every sink.
    void onFrameConverted(GBuffer* frame) override;

private:
    std::set<FrameReceiver*> sinks;
    std::shared_ptr<RawConversionBufferQueue> rawQueue;
    std::shared_ptr<ConverterYUV420YUY2> yuvConverter;
    std::mutex sinksMutex;
    std::map<std::pair<int, int>, ConverterInterface*> converters;
    PluginManager pluginManager;
};

}  // namespace trevo
