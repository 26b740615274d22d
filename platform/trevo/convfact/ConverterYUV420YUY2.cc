#include "trevo/ConverterYUV420YUY2.h"

#include "trevo/ConversionFactory.h"

namespace trevo {

ConverterYUV420YUY2::ConverterYUV420YUY2(ConverterCbInterface* callback,
                                         std::shared_ptr<RawConversionBufferQueue> queue)
    : callback_(callback), queue_(std::move(queue)) {}

ConverterYUV420YUY2::~ConverterYUV420YUY2() = default;

std::vector<std::pair<int, int>> ConverterYUV420YUY2::supportedFormats() const {
    return {{ConversionFactory::kFormatNv21, ConversionFactory::kFormatYuy2},
            {ConversionFactory::kFormatYuv420Flexible, ConversionFactory::kFormatYuy2}};
}

// The stand-in does not touch pixels: it reports the input relabelled as
// YUY2, which is all the frame sinks look at.
int ConverterYUV420YUY2::convert(GBuffer* frame, int outFormat) {
    if (frame == nullptr || outFormat != ConversionFactory::kFormatYuy2 || callback_ == nullptr) {
        ++dropped_;
        return -1;
    }
    GBuffer out;
    out.width = frame->width;
    out.height = frame->height;
    out.layers = frame->layers;
    out.stride = frame->stride;
    out.stride2 = frame->stride2;
    out.format = static_cast<uint32_t>(outFormat);
    out.hardwareBuffer = frame->hardwareBuffer;
    out.size = frame->size;
    out.stream_id = frame->stream_id;
    out.stream_idx = frame->stream_idx;
    callback_->onFrameConverted(&out);
    ++converted_;
    return 0;
}

}  // namespace trevo
