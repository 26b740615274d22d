#include <gtest/gtest.h>

#include <string>

#include "GadgetTestSupport.h"
#include "android_testing.h"
#include "uvc/ConfigfsFunction.h"
#include "uvc/ControlTable.h"

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

// A function directory as configfs shows it after the gadget script ran,
// with two modes its endpoint (3 x 1024 bytes a microframe) cannot carry; the
// directory names run against the index order.
void writeFunction(const gadget_test::TempDir& dir) {
    dir.write("control/bInterfaceNumber", "2\n");
    dir.write("streaming/bInterfaceNumber", "3\n");
    dir.write("control/header/h/bcdUVC", "256\n");
    dir.write("control/terminal/camera/default/bTerminalID", "1\n");
    dir.write("control/processing/default/bUnitID", "2\n");
    // Ours is known by its GUID, not by coming first.
    dir.write("control/extensions/a_other/bUnitID", "4\n");
    dir.write("control/extensions/a_other/guidExtensionCode", guid("NV12"));
    dir.write("control/extensions/ours/bUnitID", "5\n");
    dir.write("control/extensions/ours/guidExtensionCode",
              std::string(reinterpret_cast<const char*>(kExtensionGuid), 16));
    dir.write("streaming_maxpacket", "3072\n");
    dir.write("streaming_interval", "4\n");  // ignored: three packets serve every microframe
    const std::string yuyv = "streaming/uncompressed/yuyv/";
    dir.write(yuyv + "bFormatIndex", "2\n");
    dir.write(yuyv + "guidFormat", guid("YUY2"));
    dir.write(yuyv + "bBitsPerPixel", "16\n");
    dir.write(yuyv + "bDefaultFrameIndex", "1\n");
    writeFrame(dir, yuyv + "hd", 2, 1280, 720, "1000000\n333333");  // 30 fps: 55 MB/s
    dir.write(yuyv + "hd/dwDefaultFrameInterval", "333333\n");
    writeFrame(dir, yuyv + "uhd", 3, 7680, 4320, "10000000");  // even 1 fps is too much
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
    dir.write(mjpeg + "f/dwMaxVideoFrameBufferSize", "1843200\n");  // compressed: never judged
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
    android_standin::LogCapture log;
    ASSERT_TRUE(ConfigfsFunction(dir.path()).load(f, error)) << error;
    EXPECT_EQ(f.uvcVersion, 0x0100);
    EXPECT_EQ(f.controlInterface, 2);
    EXPECT_EQ(f.streamingInterface, 3);
    EXPECT_EQ(f.extensionUnitId, 5);
    EXPECT_EQ(f.endpoint.bytesPerService(), 3072u);
    // Every warning: one line per mode refused, naming it and both
    // bandwidths (hd's refused default says nothing more), then the others.
    std::vector<std::string> lines;
    for (const auto& record : log.withTag("UvcGadget"))
        lines.push_back(record.text.substr(record.text.find(": ") + 2));
    const std::string carries = ", the streaming endpoint carries 24.48 MB/s; not offered";
    EXPECT_EQ(lines, (std::vector<std::string>{
                         "format not supported, skipped",
                         "YUYV 1280x720 at 30.00 fps needs 55.36 MB/s" + carries,
                         "YUYV 7680x4320 at 1.00 fps needs 66.36 MB/s" + carries,
                         "default interval 500001 is none of the frame's; using 666666",
                         "default interval 0 is none of the frame's; using 666666",
                         "frame not usable, skipped"}));

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
    EXPECT_EQ(yuyv.frames[1].intervals, (std::vector<uint32_t>{1000000}));
    EXPECT_EQ(yuyv.frames[1].defaultInterval, 1000000u);
    EXPECT_EQ(yuyv.frames[1].maxFrameSize, 1280u * 720 * 2);

    const FormatDesc& mjpeg = f.formats[2];
    EXPECT_TRUE(mjpeg.compressed);
    ASSERT_EQ(mjpeg.frames.size(), 1u);
    EXPECT_EQ(mjpeg.frames[0].maxFrameSize, 1843200u);
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

// The endpoint the kernel's function makes of its attributes, and what it
// carries: whole services of its bytes less the largest payload header.
TEST(ConfigfsFunction, EndpointCarriesWholeServicesOfPayload) {
    struct Case {
        uint32_t maxPacketAttr, intervalAttr;
        uint32_t maxPacket, mult, interval;
        uint64_t payloadPerSecond;
    } cases[] = {
        {3072, 1, 1024, 3, 1, 3060 * 8000},
        {2049, 4, 683, 3, 1, 2037 * 8000},  // more than one packet: every microframe
        {1024, 4, 1024, 1, 4, 1012 * 1000},
        {512, 17, 512, 1, 16, 500 * 8000 / 32768},
        {12, 1, 12, 1, 1, 0},  // the header alone
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.maxPacketAttr << "/" << c.intervalAttr);
        const StreamingEndpoint e =
            StreamingEndpoint::fromAttributes(c.maxPacketAttr, c.intervalAttr);
        EXPECT_EQ(e.maxPacket, c.maxPacket);
        EXPECT_EQ(e.mult, c.mult);
        EXPECT_EQ(e.interval, c.interval);
        EXPECT_EQ(e.payloadPerSecond(), c.payloadPerSecond);
    }
    // 1012 payload bytes a millisecond: 100 services take 100 ms, and a
    // frame one byte larger takes a service more.
    const StreamingEndpoint ms = StreamingEndpoint::fromAttributes(1024, 4);
    EXPECT_TRUE(ms.carries(101200, 1000000));
    EXPECT_FALSE(ms.carries(101201, 1000000));
    EXPECT_FALSE(ms.carries(101200, 999999));
    EXPECT_FALSE(StreamingEndpoint::fromAttributes(12, 1).carries(1, 10000000));
}
