#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "ToolTestSupport.h"
#include "media/AnnexBSplitter.h"
#include "media/DigitPainter.h"
#include "media/FrameSetMaker.h"
#include "media/JpegEncoder.h"
#include "media/TestImage.h"

using namespace uvc_host;

namespace {

FramesOptions framesOptions(const std::string& format, FrameSize size, uint64_t count,
                            const std::string& dir) {
    FramesOptions o;
    o.format = findFormat(format);
    o.size = size;
    o.count = count;
    o.dir = dir;
    return o;
}

}  // namespace

TEST(FrameSetMakerTest, ShorterSetRemovesTheTailOfAnEarlierOne) {
    uvc_host_test::TempDir dir;
    std::string where, error;
    ASSERT_TRUE(FrameSetMaker(framesOptions("MJPG", {32, 16}, 5, dir.path())).make(&where, &error));
    ASSERT_TRUE(FrameSetMaker(framesOptions("MJPG", {32, 16}, 2, dir.path())).make(&where, &error));
    EXPECT_EQ(access(dir.file("mjpeg/32_16/frame1.jpg").c_str(), R_OK), 0);
    // The client plays frame files up to the first missing number.
    for (int i = 2; i < 5; ++i) {
        EXPECT_NE(access(dir.file("mjpeg/32_16/frame" + std::to_string(i) + ".jpg").c_str(), F_OK),
                  0)
            << i;
    }
}

TEST(FrameSetMakerTest, H264WithoutEncoderSaysSo) {
    uvc_host_test::TempDir dir;
    const char* oldPath = std::getenv("PATH");
    std::string saved = oldPath ? oldPath : "";
    setenv("PATH", dir.path().c_str(), 1);
    std::string where, error;
    bool made = FrameSetMaker(framesOptions("H264", {64, 48}, 2, dir.path())).make(&where, &error);
    setenv("PATH", saved.c_str(), 1);
    EXPECT_FALSE(made);
    EXPECT_NE(error.find("no H.264 encoder"), std::string::npos) << error;

    FramesOptions odd = framesOptions("H264", {63, 48}, 2, dir.path());
    odd.encoder = "/bin/true";
    EXPECT_FALSE(FrameSetMaker(odd).make(&where, &error));
    EXPECT_NE(error.find("even"), std::string::npos) << error;

    FramesOptions fake = framesOptions("H264", {64, 48}, 2, dir.path());
    fake.encoder = "/bin/false";
    EXPECT_FALSE(FrameSetMaker(fake).make(&where, &error));
    EXPECT_NE(error.find("encoder failed"), std::string::npos) << error;
}

TEST(FrameSetMakerTest, H264StreamFromTheEncoderIsCutIntoFrameFiles) {
    // An "encoder" that swallows the raw pictures and writes two access
    // units (SPS + IDR, then P) to the file named last.
    uvc_host_test::TempDir dir;
    dir.write("fake-ffmpeg",
              "#!/bin/sh\ncat >/dev/null\nfor out; do :; done\n"
              "printf '\\000\\000\\000\\001\\147\\102\\000\\000\\001\\145\\210\\001"
              "\\000\\000\\001\\101\\232\\002' >\"$out\"\n");
    ASSERT_EQ(chmod(dir.file("fake-ffmpeg").c_str(), 0755), 0);
    FramesOptions o = framesOptions("H264", {64, 48}, 2, dir.file("set"));
    o.encoder = dir.file("fake-ffmpeg");
    std::string where, error;
    ASSERT_TRUE(FrameSetMaker(o).make(&where, &error)) << error;
    EXPECT_EQ(where, dir.file("set/64_48"));
    EXPECT_EQ(dir.read("set/64_48/frame0"),
              (std::vector<uint8_t>{0, 0, 0, 1, 0x67, 0x42, 0, 0, 1, 0x65, 0x88, 0x01}));
    EXPECT_EQ(dir.read("set/64_48/frame1"), (std::vector<uint8_t>{0, 0, 1, 0x41, 0x9A, 0x02}));
    // The whole stream was only a step on the way.
    EXPECT_NE(access(dir.file("set/64_48/.encoding.h264").c_str(), F_OK), 0);

    // A picture count that does not match is an error, not a short set.
    o.count = 3;
    EXPECT_FALSE(FrameSetMaker(o).make(&where, &error));
    EXPECT_NE(error.find("2 pictures, not 3"), std::string::npos) << error;
}

TEST(AnnexBSplitterTest, CutsAtPicturesNotAtSlices) {
    // SPS, PPS, IDR slice (first_mb 0), a second slice of the same picture
    // (first_mb != 0), then an AUD and a P slice, then a bare P slice.
    std::vector<uint8_t> s = {0xAA,  // junk before the first start code
                              0,    0,    0, 1,    0x67, 0x42, 0,    0,    0, 1,
                              0x68, 0xCE, 0, 0,    1,    0x65, 0x88, 0x01,  // IDR, first_mb 0
                              0,    0,    1, 0x65, 0x41, 0x02,              // IDR, first_mb != 0
                              0,    0,    0, 1,    0x09, 0xF0,              // AUD
                              0,    0,    1, 0x41, 0x9A, 0x03,              // P, first_mb 0
                              0,    0,    1, 0x41, 0x80, 0x04};             // next picture
    std::vector<std::vector<uint8_t>> units = splitAccessUnits(s);
    ASSERT_EQ(units.size(), 3u);
    EXPECT_EQ(units[0].size(), 24u);  // SPS + PPS + two slices
    EXPECT_EQ(units[0][4], 0x67);
    EXPECT_EQ(units[1][4], 0x09);
    EXPECT_EQ(units[2], (std::vector<uint8_t>{0, 0, 1, 0x41, 0x80, 0x04}));
    EXPECT_TRUE(splitAccessUnits({}).empty());
    EXPECT_TRUE(splitAccessUnits({1, 2, 3}).empty());
}

TEST(TestImageTest, NumbersDifferAndDrawingIsClipped) {
    std::vector<uint8_t> plane(20 * 10, 0);
    DigitPainter(plane.data(), 20, 20, 10).draw("88", 15, 5, 3, 99);  // mostly outside
    EXPECT_GT(std::count(plane.begin(), plane.end(), 99), 0);
    TestImage a({64, 48}, 7), b({64, 48}, 8);
    EXPECT_NE(a.packed(), b.packed());
    // Odd sides: chroma planes round up.
    EXPECT_EQ(TestImage({5, 3}, 1).packed().size(), 15u + 2 * 3 * 2);
}

TEST(JpegEncoderTest, EveryRawFormatEncodesToItsSize) {
    JpegEncoder encoder;
    for (const char* name : {"YUYV", "YU12", "NV12"}) {
        const VideoFormat& f = *findFormat(name);
        // Luma 200 everywhere, in each format's own layout.
        std::vector<uint8_t> frame(f.rawFrameBytes(64, 32), 128);
        const bool packed = std::string(name) == "YUYV";
        for (size_t i = 0; i < (packed ? frame.size() : 64 * 32); i += packed ? 2 : 1) {
            frame[i] = 200;
        }
        std::vector<uint8_t> jpeg;
        std::string error;
        ASSERT_TRUE(encoder.encodeFrame(f, {64, 32}, frame.data(), frame.size(), 90, &jpeg, &error))
            << name << ": " << error;
        int w = 0, h = 0;
        std::vector<uint8_t> grey;
        ASSERT_TRUE(uvc_host_test::decodeJpeg(jpeg, &w, &h, &grey)) << name;
        EXPECT_EQ(w, 64);
        EXPECT_EQ(h, 32);
        EXPECT_NEAR(grey[100], 200, 3) << name;
        EXPECT_FALSE(
            encoder.encodeFrame(f, {64, 32}, frame.data(), frame.size() - 1, 90, &jpeg, &error));
        EXPECT_NE(error.find("needs"), std::string::npos);
    }
}
