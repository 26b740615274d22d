#include <libyuv/compare.h>
#include <libyuv/convert_from.h>
#include <linux/videodev2.h>
#include <sys/mman.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "pipeline/capture/CaptureNegotiation.h"
#include "pipeline/capture/FrameConverter.h"

namespace {

using namespace uvc_client::capture;
using Bytes = std::vector<uint8_t>;

const uint32_t kYuyv = V4L2_PIX_FMT_YUYV, kYu12 = V4L2_PIX_FMT_YUV420, kNv12 = V4L2_PIX_FMT_NV12,
               kMjpg = V4L2_PIX_FMT_MJPEG, kH264 = V4L2_PIX_FMT_H264;

// A smooth test picture, packed I420 at any size: luma a diagonal ramp,
// U rising and V falling across, chroma constant down each column so that
// 4:2:2 to 4:2:0 loses nothing.
Bytes reference(int w, int h) {
    Bytes b(frameBytes(kYu12, w, h));
    const int cw = (w + 1) / 2, ch = (h + 1) / 2;
    for (int i = 0; i < w * h; ++i)
        b[i] = uint8_t(16 + 100 * ((i % w + 0.5) / w + (i / w + 0.5) / h));
    for (int i = 0; i < cw * ch; ++i) {
        b[w * h + i] = uint8_t(64 + 128 * (i % cw + 0.5) / cw);
        b[w * h + cw * ch + i] = uint8_t(192 - 128 * (i % cw + 0.5) / cw);
    }
    return b;
}

// A copy of `bytes` that ends where an inaccessible page begins: touching one
// byte past it faults, also inside libyuv and TurboJPEG, which ASan does not see.
struct Fenced {
    explicit Fenced(const Bytes& bytes) : size(bytes.size()) {
        const size_t page = size_t(sysconf(_SC_PAGESIZE));
        span = (size / page + 2) * page;
        void* m = mmap(nullptr, span, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        base = static_cast<uint8_t*>(m);
        EXPECT_EQ(0, mprotect(base + span - page, page, PROT_NONE));
        data = std::copy(bytes.begin(), bytes.end(), base + span - page - size) - size;
    }
    Fenced(const Fenced&) = delete;
    ~Fenced() { munmap(base, span); }
    size_t size, span;
    uint8_t *base, *data;
};

// Converts a fenced copy of `in` into a fenced buffer of `capacity` bytes.
Bytes convert(FrameConverter& c, const Bytes& in, CapturedFrame f, CaptureTarget t,
              unsigned capacity) {
    const Fenced from(in);
    Fenced out{Bytes(capacity)};
    f.data = from.data;
    f.bytes = from.size;
    return Bytes(out.data, out.data + c.convert(f, t, out.data, capacity));
}

// PSNR against the reference of a frame made for `t`, read back as YU12 of
// its size. The readers are held to the reference by the frames that the
// tests make with libyuv and TurboJPEG; libyuv gives 128 for no difference.
double psnr(FrameConverter& c, const Bytes& frame, const CaptureTarget& t) {
    const int w = int(t.width), h = int(t.height), cw = (w + 1) / 2, ch = (h + 1) / 2;
    const Bytes r = reference(w, h);
    const Bytes g = convert(c, frame, {t.fourcc, t.width, t.height}, {kYu12, t.width, t.height},
                            unsigned(r.size()));
    if (g.size() != r.size())
        return 0;
    return libyuv::I420Psnr(r.data(), w, &r[w * h], cw, &r[w * h + cw * ch], cw, g.data(), w,
                            &g[w * h], cw, &g[w * h + cw * ch], cw, w, h);
}

// The reference as a JPEG of `subsamp` (quality 95), made by TurboJPEG.
Bytes jpegOf(int w, int h, int subsamp) {
    const Bytes r = reference(w, h);
    const int cw = (w + 1) / 2, ch = (h + 1) / 2;
    Bytes planes[3];
    int strides[3];
    for (int p = 0; p < 3; ++p) {
        const int pw = strides[p] = tjPlaneWidth(p, w, subsamp), ph = tjPlaneHeight(p, h, subsamp);
        for (int i = 0; i < pw * ph; ++i) {
            const int x = i % pw, y = i / pw;
            planes[p].push_back(
                p == 0 ? r[i] : r[w * h + (p - 1) * cw * ch + y * ch / ph * cw + x * cw / pw]);
        }
    }
    const uint8_t* src[3] = {planes[0].data(), planes[1].data(), planes[2].data()};
    tjhandle tj = tjInitCompress();
    unsigned char* jpeg = nullptr;
    unsigned long size = 0;
    EXPECT_EQ(0, tjCompressFromYUVPlanes(tj, src, w, strides, h, subsamp, &jpeg, &size, 95, 0));
    Bytes out(jpeg, jpeg + size);
    tjFree(jpeg);
    tjDestroy(tj);
    return out;
}

TEST(CaptureNegotiation, ChoosesFromWhatTypicalCamerasOffer) {
    // A UVC webcam: raw 720p only at 10 fps, MJPEG up to 1080p; H.264 is ignored.
    const std::vector<CaptureMode> webcam = {
        {kYuyv, 640, 480, {{1, 30}, {1, 15}}}, {kYuyv, 1280, 720, {{1, 10}}},
        {kH264, 1920, 1080, {{1, 30}}},        {kMjpg, 640, 480, {{1, 30}, {1, 15}}},
        {kMjpg, 1280, 720, {{1, 30}}},         {kMjpg, 1920, 1080, {{1, 30}}}};
    // vivid: three raw formats, no MJPEG, NTSC rates.
    std::vector<CaptureMode> vivid;
    for (uint32_t f : {kNv12, kYuyv, kYu12}) {
        for (uint32_t w : {640, 1280})
            vivid.push_back({f, w, w * 9 / 16, {{1001, 60000}, {1001, 30000}, {1, 25}}});
    }
    const struct {
        const std::vector<CaptureMode>& camera;
        CaptureTarget target;
        const char* choice;  // the log line without its host part, which is the target's
    } cases[] = {
        // clang-format off
        {webcam, {kYuyv, 1280, 720, 30}, "1280x720 YUYV at 10 fps: copied"},
        {webcam, {kNv12, 1280, 720, 30}, "1280x720 YUYV at 10 fps: converted"},
        {webcam, {kNv12, 640, 360, 15}, "640x480 YUYV at 15 fps: converted and scaled"},
        {webcam, {kMjpg, 1280, 720, 30}, "1280x720 MJPG at 30 fps: copied"},
        {webcam, {kMjpg, 800, 600, 20}, "1280x720 MJPG at 30 fps: decoded, scaled and encoded"},
        {webcam, {kYu12, 3840, 2160, 30}, "1920x1080 MJPG at 30 fps: decoded and scaled"},
        {webcam, {kYu12, 640, 480, 60}, "640x480 YUYV at 30 fps: converted"},
        {vivid, {kYu12, 640, 360, 30}, "640x360 YU12 at 29.97 fps: copied"},
        {vivid, {kYuyv, 1280, 720, 20}, "1280x720 YUYV at 25 fps: copied"},
        {vivid, {kMjpg, 320, 180, 30}, "640x360 NV12 at 29.97 fps: scaled and encoded"},
        // clang-format on
    };
    for (const auto& c : cases) {
        const auto choice = chooseCapture(c.camera, c.target);
        ASSERT_TRUE(choice) << c.choice;
        std::string line = describeChoice(*choice, c.target);
        line.erase(line.find(" -> host "), line.rfind(':') - line.find(" -> host "));
        EXPECT_EQ(std::string("camera ") + c.choice, line);
    }
    const CaptureTarget anyRate{kYuyv, 320, 240, 0};  // takes the fastest
    EXPECT_EQ("camera 640x480 YUYV at 30 fps -> host 320x240 YUYV at an unknown rate: scaled",
              describeChoice(chooseCapture(webcam, anyRate).value(), anyRate));
    // Nothing convertible, or a target that cannot be made.
    EXPECT_FALSE(chooseCapture({{kH264, 640, 480, {}}, {kYuyv, 0, 480, {}}}, {kYuyv, 8, 8, 30}));
    EXPECT_FALSE(chooseCapture(webcam, {kH264, 640, 480, 30}));
    EXPECT_FALSE(chooseCapture(webcam, {kYuyv, 0, 480, 30}));
    // Unknown intervals (a zero on either side) are never chosen over a named
    // one, and stand as {0,0} when nothing is named (ties go to the mode
    // offered first); extreme values neither divide by zero nor overflow.
    const uint32_t big = UINT32_MAX;
    auto choice = chooseCapture({{kYuyv, big, big, {{0, 30}, {30, 0}, {big, 1}, {1, big}}}},
                                {kNv12, 65535, 65535, big});
    EXPECT_EQ(big, choice.value().interval.denominator);
    choice = chooseCapture({{kYuyv, 8, 8, {{0, 0}, {30, 0}}}, {kYu12, 8, 8, {}}}, {kNv12, 8, 8, 1});
    EXPECT_EQ(kYuyv, choice.value().fourcc);
    EXPECT_EQ(0u, choice->interval.numerator + choice->interval.denominator);
}

TEST(FrameConverter, RawFramesKeepTheirPictureThroughConversionAndScaling) {
    const int w = 64, h = 48, cw = 32, ch = 24;
    const Bytes i420 = reference(w, h);
    // YUYV and NV12 with padded rows, as V4L2 drivers deliver them.
    const uint32_t yuyvStride = 4 * cw + 16, nv12Stride = w + 8;
    Bytes yuyv(yuyvStride * h), nv12(nv12Stride * (h + ch));
    libyuv::I420ToYUY2(i420.data(), w, &i420[w * h], cw, &i420[w * h + cw * ch], cw, yuyv.data(),
                       yuyvStride, w, h);
    libyuv::I420ToNV12(i420.data(), w, &i420[w * h], cw, &i420[w * h + cw * ch], cw, nv12.data(),
                       nv12Stride, &nv12[nv12Stride * h], nv12Stride, w, h);
    const std::pair<const Bytes&, CapturedFrame> sources[] = {{yuyv, {kYuyv, w, h, yuyvStride}},
                                                              {i420, {kYu12, w, h}},
                                                              {nv12, {kNv12, w, h, nv12Stride}}};
    FrameConverter c;
    for (const auto& source : sources) {
        for (uint32_t fourcc : {kYu12, kYuyv, kNv12}) {
            for (uint32_t tw : {64, 32, 96, 33}) {
                const CaptureTarget t{fourcc, tw, tw == 33 ? 17 : tw * 3 / 4};
                const unsigned length = unsigned(frameBytes(fourcc, t.width, t.height));
                SCOPED_TRACE(testing::Message() << source.second.fourcc << " -> " << fourcc << tw);
                const Bytes out = convert(c, source.first, source.second, t, length);
                ASSERT_EQ(length, out.size());
                EXPECT_GE(psnr(c, out, t), tw == w ? 128 : 30);  // same size: lossless
                EXPECT_TRUE(convert(c, source.first, source.second, t, length - 1).empty());
            }
        }
    }
    // Odd sizes round chroma up; even ones have the pattern source's rows.
    EXPECT_EQ(4u * 17 * 17, frameBytes(kYuyv, 33, 17));
    EXPECT_EQ(33u * 17 + 2 * 17 * 9, frameBytes(kNv12, 33, 17));
    EXPECT_EQ(640u * 3 / 2 * 480, frameBytes(kYu12, 640, 480));
}

TEST(FrameConverter, JpegsDecodeEncodeOrPassThroughWhole) {
    const uint32_t w = 64, h = 48, room = w * h * 4;
    const CapturedFrame mjpeg{kMjpg, w, h};
    FrameConverter c;
    for (int subsamp : {TJSAMP_422, TJSAMP_420, TJSAMP_444}) {
        const Bytes jpeg = jpegOf(w, h, subsamp);
        for (CaptureTarget t : {CaptureTarget{kYuyv, w, h}, {kYu12, w, h}, {kNv12, 40, 30}})
            EXPECT_GE(psnr(c, convert(c, jpeg, mjpeg, t, room), t), 30) << subsamp;
    }
    const Bytes jpeg = jpegOf(w, h, TJSAMP_422);
    EXPECT_EQ(jpeg, convert(c, jpeg, mjpeg, {kMjpg, w, h}, room));  // as it came
    // Re-encoded at another size, and raw frames encoded: JPEGs that decode
    // back to the picture, and that are not cut where they do not fit.
    const Bytes smaller = convert(c, jpeg, mjpeg, {kMjpg, 32, 24}, room);
    const Bytes decoded = convert(c, smaller, {kMjpg, 32, 24}, {kYu12, 32, 24}, room);
    EXPECT_GE(psnr(c, decoded, {kYu12, 32, 24}), 30);
    const Bytes encoded = convert(c, reference(w, h), {kYu12, w, h}, {kMjpg, w, h}, room);
    EXPECT_GE(psnr(c, convert(c, encoded, mjpeg, {kNv12, w, h}, room), {kNv12, w, h}), 30);
    EXPECT_TRUE(convert(c, jpeg, mjpeg, {kMjpg, w, h}, unsigned(jpeg.size() - 1)).empty());
    EXPECT_TRUE(convert(c, jpeg, mjpeg, {kMjpg, 32, 24}, unsigned(smaller.size() - 1)).empty());
}

TEST(FrameConverter, BadFramesAndTargetsGiveNothingWithoutStrayingOutOfBounds) {
    const uint32_t w = 64, h = 48;
    const Bytes jpeg = jpegOf(w, h, TJSAMP_422), frame(frameBytes(kYuyv, w, h));
    // Cut, bare, garbled, 4:1:1 and empty JPEGs, and a short frame.
    const auto cut = [](const Bytes& b, size_t n) { return Bytes(b.begin(), b.begin() + n); };
    const Bytes bad[] = {cut(jpeg, jpeg.size() / 2), cut(jpeg, 2), Bytes(frame.size() - 7, 0x5A),
                         jpegOf(w, h, TJSAMP_411),   Bytes(),      cut(frame, frame.size() - 1)};
    FrameConverter c;
    for (const Bytes& b : bad) {
        for (uint32_t from : {kMjpg, kYuyv}) {
            for (CaptureTarget t : {CaptureTarget{kYu12, 32, 24}, {kMjpg, 32, 24}})
                EXPECT_TRUE(convert(c, b, {from, w, h}, t, 9999).empty());
        }
    }
    // What passes on as it came must at least start like a JPEG.
    EXPECT_TRUE(convert(c, frame, {kMjpg, w, h}, {kMjpg, w, h}, 9999).empty());
    const std::pair<CapturedFrame, CaptureTarget> pairs[] = {
        {{kMjpg, 32, 24}, {kYu12, 16, 16}},         // a JPEG larger than the frame says
        {{kYuyv, w, h, 2 * w - 2}, {kYu12, w, h}},  // stride shorter than a row
        {{kYu12, w, h, 2 * w}, {kYu12, w, h}},      // wide rows, chroma short
        {{kH264, w, h}, {kYu12, w, h}},
        {{kYuyv, 70000, 1}, {kYu12, w, h}},
        {{kYuyv, w, h}, {kH264, w, h}},
        {{kYuyv, w, h}, {kNv12, 65535, 65535}},
        {{kYuyv, w, h}, {kMjpg, 8, 8}},  // no room for the JPEG
        {{kYuyv, w, h}, {kMjpg, 65535, 65535}}};
    for (const auto& p : pairs) {
        const Bytes& in = p.first.fourcc == kMjpg ? jpeg : frame;
        EXPECT_TRUE(
            convert(c, in, p.first, p.second, p.second.fourcc == kMjpg ? 100 : 9999).empty())
            << p.first.fourcc << " " << p.first.width << " -> " << p.second.width;
    }
}

}  // namespace
