#pragma once

// Sections of scripts/bench. Each measures the library and its yardstick in
// the same run, on the same machine, one after the other.

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace uvc_bench {

// Where the tables go: the standard output as the program found it (the
// library's own notices on the standard output are discarded).
FILE* out();

struct Percentiles {
    double p50 = 0, p99 = 0, max = 0;  // ms
};
Percentiles percentiles(std::vector<double> ms);

// Heap allocations, counted per thread while counting() is on; the thread
// that runs the event loop marks itself.
void markLoopThread();
void startCounting();
struct AllocationCount {
    uint64_t loop = 0, others = 0;
    unsigned otherThreads = 0;
};
AllocationCount stopCounting();

void frameCost();
void pacing();
void jpegCost();
void captureCost();
void allocations();
void captureLatency();

}  // namespace uvc_bench
