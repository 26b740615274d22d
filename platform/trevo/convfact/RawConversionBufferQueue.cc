#include "trevo/RawConversionBufferQueue.h"

namespace trevo {

RawConversionBufferQueue::RawConversionBufferQueue() = default;
RawConversionBufferQueue::~RawConversionBufferQueue() = default;

}  // namespace trevo
