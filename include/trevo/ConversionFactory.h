#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <shared_mutex>
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

// The process-wide frame-conversion service. convert() runs a frame through
// the converter for its (input, output) format pair and hands every produced
// frame to all registered sinks.
//
// The singleton accessor, construction, destruction and sink registration are
// inline and so belong to the program that uses the factory. Beyond the
// library's own interface this header offers unregisterFrameSink(): a sink
// must be unregistered before it is destroyed, and the factory delivers frames
// under the same mutex (shared, so that the conversions of different streams
// do not wait for each other's sinks), so once unregisterFrameSink() has
// returned the sink is not called again.
class TREVO_EXPORT ConversionFactory : public ConverterCbInterface {
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
        for (const auto& entry : pluginManager.plugins()) {
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
        std::lock_guard<std::shared_mutex> guard(sinksMutex);
        sinks.insert(sink);
    }
    // Returns only when no delivery to `sink` is running any more.
    void unregisterFrameSink(FrameReceiver* sink) {
        std::lock_guard<std::shared_mutex> guard(sinksMutex);
        sinks.erase(sink);
    }
    bool hasFrameSink(FrameReceiver* sink) {
        std::lock_guard<std::shared_mutex> guard(sinksMutex);
        return sinks.count(sink) != 0;
    }
    size_t frameSinkCount() {
        std::lock_guard<std::shared_mutex> guard(sinksMutex);
        return sinks.size();
    }
    // The converter table: (input format, output format) -> converter.
    const std::map<std::pair<int, int>, ConverterInterface*>& converterTable() const {
        return converters;
    }
    ConverterInterface* builtInConverter() const { return yuvConverter.get(); }

    // Converts `frame` for output `format`; produced frames reach the sinks
    // before this returns. The frame is not kept after the call. 0 on success.
    virtual int convert(GBuffer* frame, int format);

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
    std::shared_mutex sinksMutex;
    std::map<std::pair<int, int>, ConverterInterface*> converters;
    PluginManager pluginManager;
};

}  // namespace trevo
