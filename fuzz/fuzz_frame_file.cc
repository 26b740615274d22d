// The frame maker reads recorded frames (H.264 and MJPEG frame files, here
// fuzzed bytes written to a temporary frame directory) or compresses a
// pattern to JPEG, into a buffer of a fuzzed size. It must never write past
// that size (the buffer is allocated to exactly that size, so ASan sees any
// byte beyond it), and it must deliver each file's bytes, in sequence, cut at
// the buffer's size.
//
// Input: mode, width, height, buffer size (2 bytes), file count, call count,
// then per file a length (2 bytes) and its bytes.
#include <sys/stat.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "pipeline/DemoBuffer.h"
#include "pipeline/DemoBufferSettings.h"

using uvc_client::DemoBuffer;
using uvc_client::DemoBufferSettings;

namespace {

std::string& root() {
    static std::string dir;
    return dir;
}

void removeRoot() {
    rmdir((root() + "/mjpeg").c_str());
    rmdir(root().c_str());
}

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    FILE* f = std::fopen(path.c_str(), "wb");
    FUZZ_CHECK(f != nullptr, "cannot write %s", path.c_str());
    FUZZ_CHECK(bytes.empty() || std::fwrite(bytes.data(), bytes.size(), 1, f) == 1,
               "cannot write %s", path.c_str());
    std::fclose(f);
}

void checkJpeg(const uint8_t* bytes, unsigned length, int width, int height) {
    tjhandle d = tjInitDecompress();
    int w = 0, h = 0, sub = 0, cs = 0;
    const int rc = tjDecompressHeader3(d, bytes, length, &w, &h, &sub, &cs);
    tjDestroy(d);
    FUZZ_CHECK(rc == 0 && w == width && h == height, "JPEG of %u bytes is not %dx%d", length, width,
               height);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::silenceStandardOutput();
    char tmpl[] = "/tmp/fuzz_frame_file_XXXXXX";
    FUZZ_CHECK(mkdtemp(tmpl) != nullptr, "no temporary directory");
    root() = tmpl;
    mkdir((root() + "/mjpeg").c_str(), 0700);
    std::atexit(removeRoot);
    DemoBufferSettings::setFrameFilesRoot(root());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > fuzz::kMaxInputBytes) {
        return 0;
    }
    fuzz::ByteReader in(data, size);
    const uint8_t mode = in.byte() % 4;  // H264, S264, MJPG files, MJPG compressed
    const uint32_t formats[] = {DemoBuffer::kFormatH264, DemoBuffer::kFormatS264,
                                DemoBuffer::kFormatMJPG, DemoBuffer::kFormatMJPG};
    trevo::HalUvcConfig config;
    config.format = formats[mode];
    if (mode == 3) {  // small pictures: compression is slow
        config.width = in.byte() % 64;
        config.height = in.byte() % 64;
    } else {
        config.width = static_cast<int8_t>(in.byte());
        config.height = static_cast<int8_t>(in.byte());
    }
    const unsigned bufferSize = in.word();
    const unsigned fileCount = in.byte() % 4;
    const unsigned calls = 1 + in.byte() % 6;

    const bool files = mode != 3 && config.width > 0 && config.height > 0;
    const std::string dir = root() + (mode == 2 ? "/mjpeg/" : "/") + std::to_string(config.width) +
                            "_" + std::to_string(config.height);
    std::vector<std::vector<uint8_t>> contents;
    std::vector<std::string> paths;
    if (files) {
        mkdir(dir.c_str(), 0700);
        for (unsigned i = 0; i < fileCount; ++i) {
            const size_t length = std::min<size_t>(in.word(), in.restSize());
            contents.emplace_back(in.rest(), in.rest() + length);
            for (size_t skip = 0; skip < length; ++skip) {
                in.byte();
            }
            paths.push_back(dir + "/frame" + std::to_string(i) + (mode == 2 ? ".jpg" : ""));
            writeFile(paths.back(), contents.back());
        }
    }

    DemoBuffer demo;
    demo.useFrameFiles = mode != 3;
    for (unsigned call = 0; call < calls; ++call) {
        // Exactly bufferSize bytes, so that ASan reports the first byte beyond.
        auto* buffer = static_cast<uint8_t*>(std::malloc(bufferSize));
        const unsigned length = demo.uvc_video_fill_buffer(config, buffer, bufferSize);
        FUZZ_CHECK(length <= bufferSize, "%u bytes reported for a buffer of %u", length,
                   bufferSize);
        if (mode == 3) {
            if (length > 0) {
                checkJpeg(buffer, length, config.width, config.height);
            }
        } else if (!files || contents.empty()) {
            FUZZ_CHECK(length == 0, "%u bytes without a frame file", length);
        } else {
            const std::vector<uint8_t>& file = contents[call % contents.size()];
            const size_t expected =
                std::min<size_t>({file.size(), bufferSize, DemoBuffer::kMaxFrameFileBytes});
            FUZZ_CHECK(length == expected, "call %u: %u bytes of frame%zu, expected %zu", call,
                       length, static_cast<size_t>(call % contents.size()), expected);
            FUZZ_CHECK(length == 0 || std::memcmp(buffer, file.data(), length) == 0,
                       "call %u: bytes differ from frame%zu", call,
                       static_cast<size_t>(call % contents.size()));
        }
        std::free(buffer);
    }

    for (const std::string& path : paths) {
        unlink(path.c_str());
    }
    if (files) {
        rmdir(dir.c_str());
    }
    return 0;
}
