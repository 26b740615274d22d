// CPU per captured frame through FrameConverter::convert against the bare
// calls it stands on, made here on buffers of the same size: one memcpy for
// a same-format frame, libyuv alone for a conversion, TurboJPEG and libyuv
// alone for an MJPEG decode. The ratio is the converter's own overhead.

#include <libyuv/convert.h>
#include <libyuv/convert_from.h>
#include <libyuv/planar_functions.h>
#include <libyuv/scale.h>
#include <linux/videodev2.h>
#include <time.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <vector>

#include "bench.h"
#include "pipeline/capture/FrameConverter.h"

namespace uvc_bench {
namespace {

using uvc_client::capture::CapturedFrame;
using uvc_client::capture::CaptureTarget;
using Bytes = std::vector<uint8_t>;

const int kW = 1280, kH = 720;
const int kRounds = 5;

double cpuMs() {
    timespec ts = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

double perFrameMs(int frames, const std::function<void()>& one) {
    const double start = cpuMs();
    for (int i = 0; i < frames; ++i)
        one();
    return (cpuMs() - start) / frames;
}

// A YUYV picture with some detail, so that its JPEG has a realistic size.
Bytes yuyvPicture() {
    Bytes frame(size_t(kW) * kH * 2);
    for (int y = 0; y < kH; ++y) {
        for (int x = 0; x < kW * 2; ++x)
            frame[size_t(y) * kW * 2 + x] = uint8_t(x % 2 ? 128 + (x / 64 + y / 48) % 2 * 40
                                                          : (x * 3 + y * 5 + (x ^ y) % 17) & 0xFF);
    }
    return frame;
}

// Best of the rounds for the converter and its yardstick, measured in turns
// so that the machine's other load meets both alike.
void row(const char* name, int frames, const std::function<void()>& converter,
         const std::function<void()>& yardstick) {
    converter();  // scratch memory and handles settle
    yardstick();
    double lib = 1e30, bare = 1e30;
    for (int round = 0; round < kRounds; ++round) {
        lib = std::min(lib, perFrameMs(frames, converter));
        bare = std::min(bare, perFrameMs(frames, yardstick));
    }
    // Heap allocations of one more frame each (TurboJPEG allocates its
    // working memory per image, in the bare calls as well).
    unsigned long long allocs[2];
    for (int i = 0; i < 2; ++i) {
        startCounting();
        (i == 0 ? converter : yardstick)();
        const AllocationCount n = stopCounting();
        allocs[i] = n.loop + n.others;
    }
    std::fprintf(out(), "%-32s %8.3fms %8.3fms %6.2fx %4llu/%llu\n", name, lib, bare, lib / bare,
                 allocs[0], allocs[1]);
}

}  // namespace

void captureCost() {
    std::fprintf(out(),
                 "\nCPU per captured frame at %dx%d, converter against bare calls (best of %d)\n",
                 kW, kH, kRounds);
    std::fprintf(out(), "%-32s %10s %10s %7s %7s\n", "case", "convert", "bare", "ratio", "allocs");
    uvc_client::capture::FrameConverter converter;
    const Bytes yuyv = yuyvPicture();
    const CapturedFrame raw{V4L2_PIX_FMT_YUYV, kW, kH, kW * 2, yuyv.data(), yuyv.size()};
    Bytes out(size_t(kW) * kH * 4);
    const unsigned capacity = unsigned(out.size());
    auto convert = [&](const CapturedFrame& f, uint32_t fourcc, int w, int h) {
        return [&converter, &out, f, fourcc, w, h, capacity] {
            converter.convert(f, CaptureTarget{fourcc, uint32_t(w), uint32_t(h), 30}, out.data(),
                              capacity);
        };
    };
    row("YUYV -> YUYV (memcpy)", 200, convert(raw, V4L2_PIX_FMT_YUYV, kW, kH),
        [&] { std::memcpy(out.data(), yuyv.data(), yuyv.size()); });

    const int cw = kW / 2, ch = kH / 2;
    row("YUYV -> NV12 (libyuv)", 100, convert(raw, V4L2_PIX_FMT_NV12, kW, kH), [&] {
        libyuv::YUY2ToNV12(yuyv.data(), kW * 2, out.data(), kW, out.data() + kW * kH, kW, kW, kH);
    });
    Bytes i420(size_t(kW) * kH * 3 / 2), small(size_t(cw) * ch * 3 / 2);
    uint8_t *y = i420.data(), *u = y + kW * kH, *v = u + cw * ch;
    uint8_t *sy = small.data(), *su = sy + cw * ch, *sv = su + cw * ch / 4;
    row("YUYV -> NV12 640x360 (libyuv)", 100, convert(raw, V4L2_PIX_FMT_NV12, cw, ch), [&] {
        libyuv::YUY2ToI420(yuyv.data(), kW * 2, y, kW, u, cw, v, cw, kW, kH);
        libyuv::I420Scale(y, kW, u, cw, v, cw, kW, kH, sy, cw, su, cw / 2, sv, cw / 2, cw, ch,
                          libyuv::kFilterBox);
        libyuv::I420ToNV12(sy, cw, su, cw / 2, sv, cw / 2, out.data(), cw, out.data() + cw * ch, cw,
                           cw, ch);
    });

    // A camera's JPEG: 4:2:2, quality 85.
    Bytes i422(size_t(kW) * kH * 2);
    uint8_t *py = i422.data(), *pu = py + kW * kH, *pv = pu + cw * kH;
    libyuv::YUY2ToI422(yuyv.data(), kW * 2, py, kW, pu, cw, pv, cw, kW, kH);
    const uint8_t* planes[3] = {py, pu, pv};
    int strides[3] = {kW, cw, cw};
    tjhandle compressor = tjInitCompress();
    unsigned char* jpeg = nullptr;
    unsigned long jpegSize = 0;
    tjCompressFromYUVPlanes(compressor, planes, kW, strides, kH, TJSAMP_422, &jpeg, &jpegSize, 85,
                            0);
    tjDestroy(compressor);
    const CapturedFrame mjpeg{V4L2_PIX_FMT_MJPEG, kW, kH, 0, jpeg, jpegSize};
    tjhandle decompressor = tjInitDecompress();
    unsigned char* decoded[3] = {py, pu, pv};
    row("MJPEG -> YUYV (TurboJPEG+libyuv)", 30, convert(mjpeg, V4L2_PIX_FMT_YUYV, kW, kH), [&] {
        tjDecompressToYUVPlanes(decompressor, jpeg, jpegSize, decoded, kW, strides, kH, 0);
        libyuv::I422ToYUY2(py, kW, pu, cw, pv, cw, out.data(), kW * 2, kW, kH);
    });
    tjDestroy(decompressor);
    tjFree(jpeg);
}

}  // namespace uvc_bench
