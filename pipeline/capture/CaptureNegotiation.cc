#include "pipeline/capture/CaptureNegotiation.h"

#include <linux/videodev2.h>

#include <cstdio>
#include <limits>
#include <tuple>

namespace uvc_client {
namespace capture {

namespace {

using Interval = CaptureMode::Interval;

bool convertible(uint32_t fourcc) {
    return fourcc == V4L2_PIX_FMT_YUYV || fourcc == V4L2_PIX_FMT_YUV420 ||
           fourcc == V4L2_PIX_FMT_NV12 || fourcc == V4L2_PIX_FMT_MJPEG;
}

// Lower is better, compared key by key in the order the header gives.
struct Rank {
    int size;
    uint64_t area;
    int format;
    bool operator<(const Rank& o) const {
        return std::tie(size, area, format) < std::tie(o.size, o.area, o.format);
    }
};

Rank rankOf(const CaptureMode& mode, const CaptureTarget& target) {
    Rank rank{};
    const uint64_t area = uint64_t(mode.width) * mode.height;
    if (mode.width == target.width && mode.height == target.height) {
        rank.size = 0;
    } else if (mode.width >= target.width && mode.height >= target.height) {
        rank.size = 1;
        rank.area = area;
    } else {
        rank.size = 2;
        rank.area = std::numeric_limits<uint64_t>::max() - area;  // the largest first
    }
    if (mode.fourcc == target.fourcc) {
        rank.format = 0;
    } else if (target.fourcc == V4L2_PIX_FMT_MJPEG || mode.fourcc != V4L2_PIX_FMT_MJPEG) {
        rank.format = 1;
    } else {
        rank.format = 2;
    }
    return rank;
}

// A zero term makes an interval unknown rather than a fault; known rates are
// compared as cross products.
bool known(const Interval& i) {
    return i.numerator != 0 && i.denominator != 0;
}

bool faster(const Interval& a, const Interval& b) {
    return uint64_t(a.denominator) * b.numerator > uint64_t(b.denominator) * a.numerator;
}

// Within 1 %, so that 30000/1001 serves a host that asked for 30.
bool reaches(const Interval& i, uint32_t fps) {
    return fps != 0 && double(i.denominator) / i.numerator >= 0.99 * fps;
}

bool better(const Interval& a, const Interval& b, uint32_t fps) {
    if (known(a) != known(b)) {
        return known(a);
    }
    if (!known(a)) {
        return false;
    }
    if (reaches(a, fps) != reaches(b, fps)) {
        return reaches(a, fps);
    }
    return reaches(a, fps) ? faster(b, a) : faster(a, b);
}

std::string fourccName(uint32_t fourcc) {
    std::string name;
    for (int shift = 0; shift < 32; shift += 8) {
        const char c = static_cast<char>((fourcc >> shift) & 0xFF);
        name += (c >= ' ' && c <= '~') ? c : '?';
    }
    return name;
}

std::string sizeText(uint32_t width, uint32_t height, uint32_t fourcc) {
    return std::to_string(width) + "x" + std::to_string(height) + " " + fourccName(fourcc);
}

std::string rateText(const Interval& i) {
    if (!known(i)) {
        return "an unknown rate";
    }
    // Two decimals at most: NTSC rates read 29.97, whole rates 30.
    char text[32];
    std::snprintf(text, sizeof(text), "%.2f", double(i.denominator) / i.numerator);
    std::string rate = text;
    rate.erase(rate.find_last_not_of('0') + 1);
    if (rate.back() == '.') {
        rate.pop_back();
    }
    return rate + " fps";
}

}  // namespace

std::optional<CaptureChoice> chooseCapture(const std::vector<CaptureMode>& offered,
                                           const CaptureTarget& target) {
    if (!convertible(target.fourcc) || target.width == 0 || target.height == 0) {
        return std::nullopt;
    }
    const CaptureMode* best = nullptr;
    Rank bestRank{};
    Interval interval;
    for (const CaptureMode& mode : offered) {
        if (!convertible(mode.fourcc) || mode.width == 0 || mode.height == 0) {
            continue;
        }
        const Rank rank = rankOf(mode, target);
        if (best != nullptr && bestRank < rank) {
            continue;
        }
        if (best == nullptr || rank < bestRank) {
            best = &mode;
            bestRank = rank;
            interval = Interval{};
        }
        for (const Interval& i : mode.intervals) {
            if (better(i, interval, target.fps)) {
                interval = i;
                best = &mode;
            }
        }
    }
    if (best == nullptr) {
        return std::nullopt;
    }
    CaptureChoice choice;
    choice.interval = interval;
    choice.fourcc = best->fourcc;
    choice.width = best->width;
    choice.height = best->height;
    choice.direct = bestRank.size == 0 && bestRank.format == 0;
    return choice;
}

std::string describeChoice(const CaptureChoice& choice, const CaptureTarget& target) {
    const bool scaled = choice.width != target.width || choice.height != target.height;
    std::vector<const char*> work;
    if (choice.direct) {
        work.push_back("copied");
    } else {
        const bool fromJpeg = choice.fourcc == V4L2_PIX_FMT_MJPEG;
        const bool toJpeg = target.fourcc == V4L2_PIX_FMT_MJPEG;
        if (fromJpeg) {
            work.push_back("decoded");
        } else if (!toJpeg && choice.fourcc != target.fourcc) {
            work.push_back("converted");
        }
        if (scaled) {
            work.push_back("scaled");
        }
        if (toJpeg) {
            work.push_back("encoded");
        }
    }
    std::string line = "camera " + sizeText(choice.width, choice.height, choice.fourcc) + " at " +
                       rateText(choice.interval) + " -> host " +
                       sizeText(target.width, target.height, target.fourcc) + " at " +
                       rateText(Interval{1, target.fps}) + ":";
    for (size_t i = 0; i < work.size(); ++i) {
        line += i == 0 ? " " : (i + 1 == work.size() ? " and " : ", ");
        line += work[i];
    }
    return line;
}

}  // namespace capture
}  // namespace uvc_client
