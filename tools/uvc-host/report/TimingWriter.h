#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "link/StreamKey.h"

namespace uvc_host {

// One stream's frames as they arrived: times and sizes, in order.
struct StreamTrace {
    StreamKey key;
    std::vector<uint64_t> arrivalsNs;
    std::vector<uint32_t> sizes;
};

// Writes one record per received frame, all streams merged in order of
// arrival: stream, index (per stream, from 0), arrival time and interval to
// the stream's previous frame in milliseconds (times from the run's first
// frame; no interval for a stream's first frame) and bytes. CSV with a
// header line, or JSON lines when the path ends in ".jsonl" or ".json".
bool writeTiming(const std::string& path, const std::vector<StreamTrace>& traces,
                 std::string* error);
// The same into an open stream (standard output), CSV or JSON lines; on
// failure errno tells why.
bool writeTiming(FILE* out, bool jsonLines, const std::vector<StreamTrace>& traces,
                 std::string* error);

}  // namespace uvc_host
