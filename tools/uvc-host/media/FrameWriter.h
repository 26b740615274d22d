#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "media/FrameSize.h"
#include "media/VideoFormat.h"

namespace uvc_host {

// Writes the frames of one stream into one file that ordinary players read:
// raw video for the YUV formats, concatenated JPEG images for MJPG and an
// Annex-B elementary stream for H.264. Frames that would break the file
// (a raw frame of the wrong length, a JPEG frame without its start marker,
// an empty frame) are skipped and counted instead.
class FrameWriter {
public:
    FrameWriter();
    ~FrameWriter();
    FrameWriter(const FrameWriter&) = delete;
    FrameWriter& operator=(const FrameWriter&) = delete;

    // Creates or truncates the file; "-" writes to `standardOutput`, which
    // stays open.
    bool open(const std::string& path, const VideoFormat& format, FrameSize size,
              std::string* error, FILE* standardOutput = stdout);
    // False once writing failed; the first failure is kept for close().
    bool write(const uint8_t* data, size_t length);
    // Flushes and closes; false when anything could not be written.
    bool close(std::string* error);

    const std::string& path() const { return path_; }
    uint64_t framesWritten() const { return written_; }
    uint64_t framesSkipped() const { return skipped_; }
    uint64_t bytesWritten() const { return bytes_; }
    // Writing failed because the reading end of a pipe was closed (EPIPE):
    // the reader has had enough, which ends a run rather than failing it.
    bool closedByReader() const { return closedByReader_; }

private:
    bool put(const uint8_t* data, size_t length);
    void fail(int err);  // keeps why writing ended

    // Closes files it opened; standard output is only flushed.
    struct FileCloser {
        FileCloser() : owned(true) {}
        explicit FileCloser(bool ownsFile) : owned(ownsFile) {}
        void operator()(FILE* f) const;
        bool owned;
    };
    std::unique_ptr<FILE, FileCloser> file_;
    std::string path_;
    const VideoFormat* format_ = nullptr;
    uint64_t rawFrameBytes_ = 0;
    uint64_t written_ = 0;
    uint64_t skipped_ = 0;
    uint64_t bytes_ = 0;
    bool closedByReader_ = false;
    std::string error_;
};

}  // namespace uvc_host
