#include <gtest/gtest.h>

#include <algorithm>

#include "TempDir.h"
#include "report/FrameStats.h"
#include "report/ProgressReporter.h"

using uvc_host::FrameStats;
using uvc_host::StatsSummary;

namespace {

std::vector<uint64_t> arrivalsFromGapsMs(const std::vector<double>& gaps) {
    std::vector<uint64_t> t{5000000000ull};
    for (double g : gaps) {
        t.push_back(t.back() + uint64_t(g * 1e6));
    }
    return t;
}

}  // namespace

TEST(FrameStatsTest, IntervalStatisticsOfKnownGaps) {
    double median = 0, p99 = 0, max = 0;
    // Odd count: the middle value.
    FrameStats::intervals(arrivalsFromGapsMs({30, 40, 10, 20, 50}), &median, &p99, &max);
    EXPECT_DOUBLE_EQ(median, 30);
    EXPECT_DOUBLE_EQ(p99, 50);
    EXPECT_DOUBLE_EQ(max, 50);
    // Even count: the mean of the two middle values.
    FrameStats::intervals(arrivalsFromGapsMs({10, 40, 20, 30}), &median, &p99, &max);
    EXPECT_DOUBLE_EQ(median, 25);
    EXPECT_DOUBLE_EQ(max, 40);

    // 200 gaps: 197 of 33 ms, then 50, 60 and 100 ms. The nearest rank of the
    // 99th percentile is the 198th smallest (ceil(0.99 * 200)): 50 ms, not
    // the maximum.
    std::vector<double> gaps(197, 33);
    gaps.insert(gaps.end(), {100, 50, 60});
    FrameStats::intervals(arrivalsFromGapsMs(gaps), &median, &p99, &max);
    EXPECT_DOUBLE_EQ(median, 33);
    EXPECT_DOUBLE_EQ(p99, 50);
    EXPECT_DOUBLE_EQ(max, 100);
}

TEST(FrameStatsTest, ArrivalsOutOfOrderGiveNoNegativeInterval) {
    double median = 0, p99 = 0, max = 0;
    FrameStats::intervals({3000000, 1000000, 2000000, 4000000}, &median, &p99, &max);
    EXPECT_DOUBLE_EQ(median, 1);
    EXPECT_DOUBLE_EQ(max, 1);
}

TEST(FrameStatsTest, SummaryOfNoOrOneFrameHasNoRate) {
    FrameStats stats;
    StatsSummary none = stats.summary();
    EXPECT_EQ(none.frames, 0u);
    EXPECT_EQ(none.achievedFps, 0);
    EXPECT_EQ(none.intervalMaxMs, 0);

    stats.record(1000000000, 100);
    StatsSummary one = stats.summary();
    EXPECT_EQ(one.frames, 1u);
    EXPECT_EQ(one.achievedFps, 0);  // no interval yet
}

TEST(ProgressReporterTest, PlainLinesOncePerSecondRatesOverTheLastSpan) {
    FILE* f = std::tmpfile();
    uvc_host::ProgressReporter plain(f, false);
    plain.update(0.5, 15, 500000);  // too soon for a plain line
    plain.update(1.0, 30, 1000000);
    plain.update(1.5, 45, 1500000);
    plain.update(3.0, 60, 4000000);  // 30 frames and 3 MB over 2 s
    plain.finish();
    std::string text = uvc_host_test::contents(f);
    std::fclose(f);
    EXPECT_EQ(text,
              "   1.0 s        30 frames    30.00 fps      1.00 MB/s\n"
              "   3.0 s        60 frames    15.00 fps      1.50 MB/s\n");

    FILE* t = std::tmpfile();
    uvc_host::ProgressReporter terminal(t, true);
    terminal.update(0.25, 8, 0);
    terminal.update(0.5, 15, 0);
    terminal.finish();
    std::string line = uvc_host_test::contents(t);
    std::fclose(t);
    // Rewritten in place, ended once.
    EXPECT_EQ(std::count(line.begin(), line.end(), '\r'), 2);
    EXPECT_EQ(line.back(), '\n');
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
}
