#include "report/FrameStats.h"

#include <algorithm>

namespace uvc_host {

void FrameStats::record(uint64_t monotonicNs, uint64_t size) {
    arrivalsNs_.push_back(monotonicNs);
    sizes_.push_back(uint32_t(size));
    ++frames_;
    bytes_ += size;
    if (size == 0) {
        ++empty_;
    }
}

StatsSummary FrameStats::summary() const {
    StatsSummary s;
    s.frames = frames_;
    s.emptyFrames = empty_;
    s.bytes = bytes_;
    if (arrivalsNs_.size() >= 2) {
        auto [lo, hi] = std::minmax_element(arrivalsNs_.begin(), arrivalsNs_.end());
        if (*hi > *lo) {
            s.achievedFps = double(arrivalsNs_.size() - 1) * 1e9 / double(*hi - *lo);
        }
    }
    intervals(arrivalsNs_, &s.intervalMedianMs, &s.intervalP99Ms, &s.intervalMaxMs);
    return s;
}

void FrameStats::intervals(const std::vector<uint64_t>& arrivalsNs, double* medianMs, double* p99Ms,
                           double* maxMs) {
    *medianMs = *p99Ms = *maxMs = 0;
    if (arrivalsNs.size() < 2) {
        return;
    }
    // Frames may be handed over on more than one thread; order by time so
    // that no interval comes out negative.
    std::vector<uint64_t> sorted(arrivalsNs);
    std::sort(sorted.begin(), sorted.end());
    std::vector<uint64_t> gaps;
    gaps.reserve(sorted.size() - 1);
    for (size_t i = 1; i < sorted.size(); ++i) {
        gaps.push_back(sorted[i] - sorted[i - 1]);
    }
    std::sort(gaps.begin(), gaps.end());
    size_t n = gaps.size();
    double median =
        n % 2 ? double(gaps[n / 2]) : (double(gaps[n / 2 - 1]) + double(gaps[n / 2])) / 2;
    size_t rank = (n * 99 + 99) / 100;  // ceil(0.99 n), at least 1
    *medianMs = median / 1e6;
    *p99Ms = double(gaps[rank - 1]) / 1e6;
    *maxMs = double(gaps.back()) / 1e6;
}

}  // namespace uvc_host
