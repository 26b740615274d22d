#pragma once

#include <turbojpeg.h>

#include <memory>

namespace uvc_client {

// Owning TurboJPEG objects: a compressor or decompressor handle, and an
// output block from tjAlloc. Each holder keeps them across frames, because
// making them per frame costs heap allocations on the loop thread.
struct JpegHandleDeleter {
    void operator()(void* handle) const { tjDestroy(handle); }
};
struct JpegBlockDeleter {
    void operator()(unsigned char* block) const { tjFree(block); }
};
using JpegHandle = std::unique_ptr<void, JpegHandleDeleter>;
using JpegBlock = std::unique_ptr<unsigned char, JpegBlockDeleter>;

}  // namespace uvc_client
