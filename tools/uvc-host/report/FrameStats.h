#pragma once

#include <cstdint>
#include <vector>

namespace uvc_host {

// What one stream's frames came to.
struct StatsSummary {
    uint64_t frames = 0;
    uint64_t emptyFrames = 0;
    uint64_t bytes = 0;
    double achievedFps = 0;  // frames per second between the first and the last frame
    double intervalMedianMs = 0;
    double intervalP99Ms = 0;
    double intervalMaxMs = 0;
};

// Arrival times and sizes of one stream's frames. Not thread-safe: the owner
// serialises record() with summary().
class FrameStats {
public:
    void record(uint64_t monotonicNs, uint64_t size);
    uint64_t frames() const { return frames_; }
    uint64_t bytes() const { return bytes_; }
    StatsSummary summary() const;
    // Every frame's arrival time and size, in order of arrival.
    const std::vector<uint64_t>& arrivalsNs() const { return arrivalsNs_; }
    const std::vector<uint32_t>& sizes() const { return sizes_; }

    // Interval statistics of arrival times: the median is the middle value
    // (the mean of the two middle ones for an even count), the 99th
    // percentile the nearest rank (the ceil(0.99 n)-th smallest). All 0
    // for fewer than two arrivals.
    static void intervals(const std::vector<uint64_t>& arrivalsNs, double* medianMs, double* p99Ms,
                          double* maxMs);

private:
    std::vector<uint64_t> arrivalsNs_;
    std::vector<uint32_t> sizes_;
    uint64_t frames_ = 0;
    uint64_t empty_ = 0;
    uint64_t bytes_ = 0;
};

}  // namespace uvc_host
