#include "media/FrameWriter.h"

#include <cerrno>
#include <cstring>

namespace uvc_host {

namespace {

bool hasStartCode(const uint8_t* d, size_t n) {
    return (n >= 3 && d[0] == 0 && d[1] == 0 && d[2] == 1) ||
           (n >= 4 && d[0] == 0 && d[1] == 0 && d[2] == 0 && d[3] == 1);
}

}  // namespace

void FrameWriter::FileCloser::operator()(FILE* f) const {
    if (owned) {
        std::fclose(f);
    }
}

FrameWriter::FrameWriter() = default;
FrameWriter::~FrameWriter() = default;

bool FrameWriter::open(const std::string& path, const VideoFormat& format, FrameSize size,
                       std::string* error, FILE* standardOutput) {
    if (path == "-") {
        file_ = std::unique_ptr<FILE, FileCloser>(standardOutput, FileCloser{false});
    } else {
        file_.reset(std::fopen(path.c_str(), "wb"));
    }
    if (!file_) {
        *error = "cannot write " + path + ": " + std::strerror(errno);
        return false;
    }
    path_ = path == "-" ? "standard output" : path;
    format_ = &format;
    rawFrameBytes_ = format.rawFrameBytes(size.width, size.height);
    return true;
}

bool FrameWriter::put(const uint8_t* data, size_t length) {
    if (std::fwrite(data, 1, length, file_.get()) != length) {
        fail(errno);
        file_.reset();
        return false;
    }
    bytes_ += length;
    return true;
}

void FrameWriter::fail(int err) {
    closedByReader_ = err == EPIPE;
    error_ = closedByReader_
                 ? path_ + " was closed by its reader after " + std::to_string(written_) + " frames"
                 : "cannot write " + path_ + ": " + std::strerror(err);
}

bool FrameWriter::write(const uint8_t* data, size_t length) {
    if (!file_) {
        return false;
    }
    bool usable = length > 0;
    switch (format_->kind) {
        case FormatKind::Raw:
            usable = length == rawFrameBytes_;
            break;
        case FormatKind::Jpeg:
            usable = length >= 4 && data[0] == 0xFF && data[1] == 0xD8;
            break;
        case FormatKind::H264:
            break;
    }
    if (!usable) {
        ++skipped_;
        return true;
    }
    // A recorded frame without its start code would merge with the one
    // before it in the elementary stream.
    if (format_->kind == FormatKind::H264 && !hasStartCode(data, length)) {
        static const uint8_t kStartCode[] = {0, 0, 0, 1};
        if (!put(kStartCode, sizeof kStartCode)) {
            return false;
        }
    }
    if (!put(data, length)) {
        return false;
    }
    // A player reading standard output shows each frame as it comes, and a
    // reader that left is noticed at this frame, not a buffer later.
    if (!file_.get_deleter().owned && std::fflush(file_.get()) != 0) {
        fail(errno);
        file_.reset();
        return false;
    }
    ++written_;
    return true;
}

bool FrameWriter::close(std::string* error) {
    if (file_) {
        bool owned = file_.get_deleter().owned;
        FILE* f = file_.release();
        bool flushed = std::fflush(f) == 0;
        int err = errno;
        if (!flushed) {
            fail(err);
        }
        if (owned && std::fclose(f) != 0 && flushed) {
            fail(errno);
        }
    }
    if (!error_.empty()) {
        *error = error_;
        return false;
    }
    return true;
}

}  // namespace uvc_host
