#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <vector>

#include "trevo/GBuffer.h"
#include "trevo/TrevoExport.h"

namespace trevo {

// Output buffers shared between the factory and its built-in converter.
class TREVO_EXPORT RawConversionBufferQueue {
public:
    RawConversionBufferQueue();
    ~RawConversionBufferQueue();
    RawConversionBufferQueue(const RawConversionBufferQueue&) = delete;
    RawConversionBufferQueue& operator=(const RawConversionBufferQueue&) = delete;

    int count() const { return count_; }

private:
    std::condition_variable freeCond_;
    std::condition_variable filledCond_;
    std::mutex freeMutex_;
    std::mutex filledMutex_;
    std::deque<GBuffer*> free_;
    std::deque<GBuffer*> filled_;
    int count_ = 2;
    std::vector<GBuffer> buffers_;
    std::mutex buffersMutex_;
};

}  // namespace trevo
