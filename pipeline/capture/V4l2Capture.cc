#include "pipeline/capture/V4l2Capture.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace uvc_client {
namespace capture {

namespace {

// Enough to hold one frame while the camera fills the others.
const uint32_t kBufferCount = 4;
// A driver that never ends an enumeration must not hold the loop.
const uint32_t kMaxEnumerated = 64;

int xioctl(int fd, unsigned long request, void* arg) {
    int r;
    do {
        r = ioctl(fd, request, arg);
    } while (r == -1 && errno == EINTR);
    return r;
}

std::string failed(const char* what) {
    return std::string(what) + ": " + std::strerror(errno);
}

// Every buffer and request here is a capture queue of mapped buffers.
v4l2_buffer mappedBuffer(uint32_t index) {
    v4l2_buffer buf = {};
    buf.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buf.memory = V4L2_MEMORY_MMAP;
    buf.index = index;
    return buf;
}

v4l2_requestbuffers mappedRequest(uint32_t count) {
    v4l2_requestbuffers req = {};
    req.count = count;
    req.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    req.memory = V4L2_MEMORY_MMAP;
    return req;
}

bool wanted(uint32_t fourcc) {
    return fourcc == V4L2_PIX_FMT_YUYV || fourcc == V4L2_PIX_FMT_YUV420 ||
           fourcc == V4L2_PIX_FMT_NV12 || fourcc == V4L2_PIX_FMT_MJPEG;
}

// Discrete intervals as listed; a range by its two ends.
std::vector<CaptureMode::Interval> intervals(int fd, uint32_t fourcc, uint32_t w, uint32_t h) {
    std::vector<CaptureMode::Interval> out;
    for (uint32_t i = 0; i < kMaxEnumerated; ++i) {
        v4l2_frmivalenum e = {};
        e.index = i;
        e.pixel_format = fourcc;
        e.width = w;
        e.height = h;
        if (xioctl(fd, VIDIOC_ENUM_FRAMEINTERVALS, &e) == -1) {
            break;
        }
        if (e.type == V4L2_FRMIVAL_TYPE_DISCRETE) {
            out.push_back({e.discrete.numerator, e.discrete.denominator});
        } else {
            out.push_back({e.stepwise.min.numerator, e.stepwise.min.denominator});
            out.push_back({e.stepwise.max.numerator, e.stepwise.max.denominator});
            break;
        }
    }
    return out;
}

}  // namespace

std::unique_ptr<CaptureDevice> V4l2Capture::open(const std::string& path, std::string& why) {
    VOLUT::UniqueFd fd(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!fd.valid()) {
        why = failed("open");
        return nullptr;
    }
    struct stat st;
    if (fstat(fd.get(), &st) != 0 || !S_ISCHR(st.st_mode)) {
        why = "not a device";
        return nullptr;
    }
    v4l2_capability cap = {};
    if (xioctl(fd.get(), VIDIOC_QUERYCAP, &cap) == -1) {
        why = failed("VIDIOC_QUERYCAP");
        return nullptr;
    }
    const uint32_t caps =
        (cap.capabilities & V4L2_CAP_DEVICE_CAPS) != 0 ? cap.device_caps : cap.capabilities;
    if ((caps & V4L2_CAP_VIDEO_CAPTURE) == 0 || (caps & V4L2_CAP_STREAMING) == 0) {
        why = "not a single-planar streaming capture device";
        return nullptr;
    }
    return std::unique_ptr<CaptureDevice>(new V4l2Capture(std::move(fd)));
}

V4l2Capture::V4l2Capture(VOLUT::UniqueFd fd) : fd_(std::move(fd)) {}

V4l2Capture::~V4l2Capture() {
    stop();
}

std::vector<CaptureMode> V4l2Capture::modes() {
    std::vector<CaptureMode> out;
    for (uint32_t f = 0; f < kMaxEnumerated; ++f) {
        v4l2_fmtdesc desc = {};
        desc.index = f;
        desc.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        if (xioctl(fd(), VIDIOC_ENUM_FMT, &desc) == -1) {
            break;
        }
        if (!wanted(desc.pixelformat)) {
            continue;
        }
        for (uint32_t s = 0; s < kMaxEnumerated; ++s) {
            v4l2_frmsizeenum size = {};
            size.index = s;
            size.pixel_format = desc.pixelformat;
            if (xioctl(fd(), VIDIOC_ENUM_FRAMESIZES, &size) == -1) {
                break;
            }
            if (size.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
                const auto& d = size.discrete;
                out.push_back({desc.pixelformat, d.width, d.height,
                               intervals(fd(), desc.pixelformat, d.width, d.height)});
                continue;
            }
            const auto& r = size.stepwise;
            out.push_back({desc.pixelformat, r.min_width, r.min_height,
                           intervals(fd(), desc.pixelformat, r.min_width, r.min_height)});
            out.push_back({desc.pixelformat, r.max_width, r.max_height,
                           intervals(fd(), desc.pixelformat, r.max_width, r.max_height)});
            break;
        }
    }
    return out;
}

bool V4l2Capture::start(const CaptureMode& mode, std::string& why) {
    stop();
    v4l2_format fmt = {};
    fmt.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    fmt.fmt.pix.width = mode.width;
    fmt.fmt.pix.height = mode.height;
    fmt.fmt.pix.pixelformat = mode.fourcc;
    fmt.fmt.pix.field = V4L2_FIELD_NONE;
    if (xioctl(fd(), VIDIOC_S_FMT, &fmt) == -1) {
        why = failed("VIDIOC_S_FMT");
        return false;
    }
    // The driver may have adjusted the request; frames are converted from
    // whatever it settled on, as long as it is one of ours.
    format = fmt.fmt.pix;
    if (!wanted(format.pixelformat) || format.width == 0 || format.height == 0) {
        why = "the camera settled on a format that cannot be converted";
        return false;
    }
    if (!mode.intervals.empty() && mode.intervals[0].numerator != 0 &&
        mode.intervals[0].denominator != 0) {
        v4l2_streamparm parm = {};
        parm.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        parm.parm.capture.timeperframe.numerator = mode.intervals[0].numerator;
        parm.parm.capture.timeperframe.denominator = mode.intervals[0].denominator;
        // A camera without rate control keeps its own rate; the stream's
        // timer paces the host either way.
        xioctl(fd(), VIDIOC_S_PARM, &parm);
    }
    v4l2_requestbuffers req = mappedRequest(kBufferCount);
    if (xioctl(fd(), VIDIOC_REQBUFS, &req) == -1) {
        why = failed("VIDIOC_REQBUFS");
        return false;
    }
    streaming = true;  // from here on stop() undoes, whatever fails next
    if (req.count < 2) {
        why = "the camera gave fewer than two buffers";
        stop();
        return false;
    }
    for (uint32_t i = 0; i < req.count; ++i) {
        v4l2_buffer buf = mappedBuffer(i);
        if (xioctl(fd(), VIDIOC_QUERYBUF, &buf) == -1) {
            why = failed("VIDIOC_QUERYBUF");
            stop();
            return false;
        }
        void* data = mmap(nullptr, buf.length, PROT_READ, MAP_SHARED, fd(), buf.m.offset);
        if (data == MAP_FAILED) {
            why = failed("mmap");
            stop();
            return false;
        }
        mappings.push_back({data, buf.length});
    }
    for (uint32_t i = 0; i < mappings.size(); ++i) {
        if (!queue(i, why)) {
            stop();
            return false;
        }
    }
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (xioctl(fd(), VIDIOC_STREAMON, &type) == -1) {
        why = failed("VIDIOC_STREAMON");
        stop();
        return false;
    }
    return true;
}

bool V4l2Capture::queue(uint32_t index, std::string& why) {
    v4l2_buffer buf = mappedBuffer(index);
    if (xioctl(fd(), VIDIOC_QBUF, &buf) == -1) {
        why = failed("VIDIOC_QBUF");
        return false;
    }
    return true;
}

void V4l2Capture::stop() {
    if (!streaming) {
        return;
    }
    streaming = false;
    held = -1;
    heldBytes = 0;
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    xioctl(fd(), VIDIOC_STREAMOFF, &type);
    for (const auto& m : mappings) {
        munmap(m.data, m.length);
    }
    mappings.clear();
    // Frees the driver's buffers now that nothing maps them (a camera that is
    // gone refuses; closing the descriptor frees them then).
    v4l2_requestbuffers req = mappedRequest(0);
    xioctl(fd(), VIDIOC_REQBUFS, &req);
}

CaptureDevice::Dequeue V4l2Capture::dequeue(std::string& why) {
    if (!streaming) {
        why = "not streaming";
        return Dequeue::kGone;
    }
    Dequeue result = Dequeue::kNone;
    for (;;) {
        v4l2_buffer buf = mappedBuffer(0);
        if (xioctl(fd(), VIDIOC_DQBUF, &buf) == -1) {
            if (errno == EAGAIN) {
                return result;
            }
            why = failed("VIDIOC_DQBUF");
            return Dequeue::kGone;
        }
        if (buf.index >= mappings.size()) {
            why = "the camera returned an unknown buffer";
            return Dequeue::kGone;
        }
        // A frame the driver marked damaged goes straight back.
        if ((buf.flags & V4L2_BUF_FLAG_ERROR) != 0) {
            if (!queue(buf.index, why)) {
                return Dequeue::kGone;
            }
            continue;
        }
        if (held >= 0 && !queue(static_cast<uint32_t>(held), why)) {
            held = -1;
            return Dequeue::kGone;
        }
        held = static_cast<int>(buf.index);
        const size_t length = mappings[buf.index].length;
        heldBytes = buf.bytesused != 0 && buf.bytesused < length ? buf.bytesused : length;
        result = Dequeue::kFrame;
    }
}

CapturedFrame V4l2Capture::newest() const {
    CapturedFrame f;
    f.fourcc = format.pixelformat;
    f.width = format.width;
    f.height = format.height;
    f.bytesPerLine = format.pixelformat == V4L2_PIX_FMT_MJPEG ? 0 : format.bytesperline;
    if (held >= 0) {
        f.data = static_cast<const uint8_t*>(mappings[static_cast<size_t>(held)].data);
        f.bytes = heldBytes;
    }
    return f;
}

}  // namespace capture
}  // namespace uvc_client
