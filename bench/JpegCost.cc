// Synthesised JPEG frames (the frame maker with file mode off) against
// TurboJPEG alone compressing the same 4:2:0 pattern with one compressor and
// one output buffer kept across frames.

#include <time.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "bench.h"
#include "pipeline/DemoBuffer.h"

namespace uvc_bench {
namespace {

double wallMs() {
    timespec ts = {};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

template <class F>
double bestMs(int frames, F&& one) {
    double best = 1e30;
    for (int round = 0; round < 3; ++round) {
        const double start = wallMs();
        for (int i = 0; i < frames; ++i)
            one();
        best = std::min(best, (wallMs() - start) / frames);
    }
    return best;
}

}  // namespace

void jpegCost() {
    std::fprintf(out(), "\nJPEG per frame, quality 85, 4:2:0 (best of 3 rounds)\n");
    std::fprintf(out(), "%-10s %12s %12s %8s\n", "size", "synthesised", "TurboJPEG", "ratio");
    for (const auto& s : {std::make_pair(1280, 720), std::make_pair(1920, 1080)}) {
        const int w = s.first, h = s.second;
        trevo::HalUvcConfig config;
        config.width = w;
        config.height = h;
        config.fps = 30;
        config.format = uvc_client::DemoBuffer::kFormatMJPG;
        config.streaming = 1;
        uvc_client::DemoBuffer demo;
        demo.useFrameFiles = false;
        std::vector<uint8_t> frame(size_t(w) * h * 4);
        const double synth = bestMs(20, [&] {
            demo.uvc_video_fill_buffer(config, frame.data(), unsigned(frame.size()));
        });

        tjhandle compressor = tjInitCompress();
        std::vector<uint8_t> yuv(tjBufSizeYUV2(w, 4, h, TJSAMP_420));
        unsigned long capacity = tjBufSize(w, h, TJSAMP_420);
        unsigned char* jpeg = tjAlloc(int(capacity));
        uint8_t value = 0;
        const double raw = bestMs(20, [&] {
            const size_t rowLength = size_t(w) * 3 / 2;
            for (int y = 0; y < h; ++y)
                std::memset(yuv.data() + y * rowLength, value++, rowLength);
            unsigned long size = capacity;
            tjCompressFromYUV(compressor, yuv.data(), w, 4, h, TJSAMP_420, &jpeg, &size, 85,
                              TJFLAG_NOREALLOC);
        });
        tjFree(jpeg);
        tjDestroy(compressor);
        std::fprintf(out(), "%4dx%-5d %10.3fms %10.3fms %7.2fx\n", w, h, synth, raw, synth / raw);
    }
}

}  // namespace uvc_bench
