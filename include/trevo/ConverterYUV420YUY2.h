#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "trevo/ConverterCbInterface.h"
#include "trevo/ConverterInterface.h"
#include "trevo/RawConversionBufferQueue.h"
#include "trevo/TrevoExport.h"

namespace trevo {

// Built-in converter from YUV 4:2:0 (NV21 and flexible 4:2:0) to YUY2.
class TREVO_EXPORT ConverterYUV420YUY2 : public ConverterInterface {
public:
    ConverterYUV420YUY2(ConverterCbInterface* callback,
                        std::shared_ptr<RawConversionBufferQueue> queue);
    ~ConverterYUV420YUY2() override;
    ConverterYUV420YUY2(const ConverterYUV420YUY2&) = delete;
    ConverterYUV420YUY2& operator=(const ConverterYUV420YUY2&) = delete;

    std::vector<std::pair<int, int>> supportedFormats() const override;
    int convert(GBuffer* frame, int outFormat) override;

private:
    ConverterCbInterface* callback_;
    std::shared_ptr<RawConversionBufferQueue> queue_;
    std::map<int, int> strideCache_;
    std::map<int, int> sizeCache_;
    uint32_t converted_ = 0;
    uint32_t dropped_ = 0;
};

}  // namespace trevo
