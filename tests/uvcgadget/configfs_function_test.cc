#include <gtest/gtest.h>

#include <string>

#include "GadgetTestSupport.h"
#include "uvc/ConfigfsFunction.h"

using namespace uvc_gadget;

namespace {

std::string guid(const char* code) {
    const char tail[] = "\x00\x00\x10\x00\x80\x00\x00\xaa\x00\x38\x9b\x71";
    return std::string(code, 4) + std::string(tail, 12);
}

// A frame directory: index, size and intervals ("" for none).
void writeFrame(const gadget_test::TempDir& dir, const std::string& frame, int index, int width,
                int height, const std::string& intervals) {
    dir.write(frame + "/bFrameIndex", std::to_string(index) + "\n");
    dir.write(frame + "/wWidth", std::to_string(width) + "\n");
    dir.write(frame + "/wHeight", std::to_string(height) + "\n");
    if (!intervals.empty())
        dir.write(frame + "/dwFrameInterval", intervals + "\n");
}

// A function directory as configfs shows it after the gadget script ran; the
// directory names run against the index order.
void writeFunction(const gadget_test::TempDir& dir) {
    dir.write("control/bInterfaceNumber", "2\n");
    dir.write("streaming/bInterfaceNumber", "3\n");
    dir.write("control/header/h/bcdUVC", "256\n");
    dir.write("control/terminal/camera/default/bTerminalID", "1\n");
    dir.write("control/processing/default/bUnitID", "2\n");
    dir.write("streaming_maxpacket", "2048\n");
    const std::string yuyv = "streaming/uncompressed/yuyv/";
    dir.write(yuyv + "bFormatIndex", "2\n");
    dir.write(yuyv + "guidFormat", guid("YUY2"));
    dir.write(yuyv + "bBitsPerPixel", "16\n");
    dir.write(yuyv + "bDefaultFrameIndex", "1\n");
    writeFrame(dir, yuyv + "hd", 2, 1280, 720, "1000000\n333333");
    dir.write(yuyv + "hd/dwDefaultFrameInterval", "333333\n");
    writeFrame(dir, yuyv + "vga", 1, 640, 480, "333333\n666666");
    dir.write(yuyv + "vga/dwDefaultFrameInterval", "500001\n");  // none of its intervals
    const std::string nv12 = "streaming/uncompressed/z_nv12/";
    dir.write(nv12 + "bFormatIndex", "1\n");
    dir.write(nv12 + "guidFormat", guid("NV12"));
    dir.write(nv12 + "bBitsPerPixel", "12\n");
    writeFrame(dir, nv12 + "f", 1, 640, 480, "666666");
    dir.write(nv12 + "f/dwDefaultFrameInterval", "0\n");
    const std::string mjpeg = "streaming/mjpeg/m/";
    dir.write(mjpeg + "bFormatIndex", "3\n");
    writeFrame(dir, mjpeg + "f", 1, 640, 480, "333333");
    dir.write(mjpeg + "f/dwMaxVideoFrameBufferSize", "614400\n");
    // Not declared: no index (not linked into the header), an unknown GUID,
    // a frame without intervals.
    dir.write("streaming/mjpeg/unlinked/f/wWidth", "320\n");
    dir.write("streaming/uncompressed/rgb/bFormatIndex", "4\n");
    dir.write("streaming/uncompressed/rgb/guidFormat", guid("RGBP"));
    dir.write("streaming/uncompressed/rgb/bBitsPerPixel", "16\n");
    writeFrame(dir, mjpeg + "broken", 2, 320, 240, "");
}

}  // namespace

TEST(ConfigfsFunction, ReadsWhatTheFunctionDeclares) {
    gadget_test::TempDir dir;
    writeFunction(dir);
    GadgetFunction f;
    std::string error;
    ASSERT_TRUE(ConfigfsFunction(dir.path()).load(f, error)) << error;
    EXPECT_EQ(f.uvcVersion, 0x0100);
    EXPECT_EQ(f.controlInterface, 2);
    EXPECT_EQ(f.streamingInterface, 3);
    EXPECT_EQ(f.maxPayloadTransferSize, 2048u);  // two packets of 1024

    ASSERT_EQ(f.formats.size(), 3u);
    EXPECT_EQ(f.formats[0].fourcc, fourcc('N', 'V', '1', '2'));
    EXPECT_EQ(f.formats[0].frames[0].maxFrameSize, 640u * 480 * 3 / 2);
    // A default the frame does not declare becomes the nearest one it does.
    EXPECT_EQ(f.formats[0].frames[0].defaultInterval, 666666u);

    const FormatDesc& yuyv = f.formats[1];
    EXPECT_EQ(yuyv.fourcc, fourcc('Y', 'U', 'Y', 'V'));
    ASSERT_EQ(yuyv.frames.size(), 2u);
    EXPECT_EQ(yuyv.frames[0].width, 640);  // ordered by bFrameIndex
    EXPECT_EQ(yuyv.frames[0].defaultInterval, 666666u);
    EXPECT_EQ(yuyv.frames[1].intervals, (std::vector<uint32_t>{333333, 1000000}));
    EXPECT_EQ(yuyv.frames[1].defaultInterval, 333333u);
    EXPECT_EQ(yuyv.frames[1].maxFrameSize, 1280u * 720 * 2);

    const FormatDesc& mjpeg = f.formats[2];
    EXPECT_TRUE(mjpeg.compressed);
    ASSERT_EQ(mjpeg.frames.size(), 1u);
    EXPECT_EQ(mjpeg.frames[0].maxFrameSize, 614400u);
}

TEST(ConfigfsFunction, RefusesAFunctionWithoutFormats) {
    gadget_test::TempDir dir;
    GadgetFunction f;
    std::string error;
    EXPECT_FALSE(ConfigfsFunction(dir.path() + "/missing").load(f, error));
    EXPECT_NE(error.find("not a UVC function"), std::string::npos);
    dir.write("streaming/mjpeg/unlinked/f/wWidth", "320\n");
    EXPECT_FALSE(ConfigfsFunction(dir.path()).load(f, error));
    EXPECT_NE(error.find("no format"), std::string::npos);
}
