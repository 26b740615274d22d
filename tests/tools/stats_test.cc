#include <gtest/gtest.h>

#include <algorithm>

#include "ToolTestSupport.h"
#include "report/FrameStats.h"
#include "report/ProgressReporter.h"
#include "report/RunTimeline.h"

using uvc_host::FrameStats;
using uvc_host::RoundAxis;
using uvc_host::roundAxis;

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
    // Arrivals out of order give no negative interval.
    FrameStats::intervals({3000000, 1000000, 2000000, 4000000}, &median, &p99, &max);
    EXPECT_DOUBLE_EQ(median, 1);
    EXPECT_DOUBLE_EQ(max, 1);

    // 200 gaps: 197 of 33 ms, then 50, 60 and 100 ms. The nearest rank of the
    // 99th percentile is the 198th smallest (ceil(0.99 * 200)): 50 ms, not
    // the maximum.
    std::vector<double> gaps(197, 33);
    gaps.insert(gaps.end(), {100, 50, 60});
    FrameStats::intervals(arrivalsFromGapsMs(gaps), &median, &p99, &max);
    EXPECT_DOUBLE_EQ(median, 33);
    EXPECT_DOUBLE_EQ(p99, 50);
    EXPECT_DOUBLE_EQ(max, 100);

    // No rate from no frame or from one.
    FrameStats stats;
    EXPECT_EQ(stats.summary().frames, 0u);
    EXPECT_EQ(stats.summary().achievedFps, 0);
    EXPECT_EQ(stats.summary().intervalMaxMs, 0);
    stats.record(1000000000, 100);
    EXPECT_EQ(stats.summary().frames, 1u);
    EXPECT_EQ(stats.summary().achievedFps, 0);
}

TEST(ProgressReporterTest, PlainLinesOncePerSecondRatesOverTheLastSpan) {
    std::string text = uvc_host_test::captured([](FILE* f, FILE*) {
                           uvc_host::ProgressReporter plain(f, false);
                           plain.update(0.5, 15, 500000);  // too soon for a plain line
                           plain.update(1.0, 30, 1000000);
                           plain.update(1.5, 45, 1500000);
                           plain.update(3.0, 60, 4000000);  // 30 frames and 3 MB over 2 s
                           plain.finish();
                           return 0;
                       }).out;
    EXPECT_EQ(text,
              "   1.0 s        30 frames    30.00 fps      1.00 MB/s\n"
              "   3.0 s        60 frames    15.00 fps      1.50 MB/s\n");

    // On a terminal: rewritten in place, ended once.
    std::string line = uvc_host_test::captured([](FILE* t, FILE*) {
                           uvc_host::ProgressReporter terminal(t, true);
                           terminal.update(0.25, 8, 0);
                           terminal.update(0.5, 15, 0);
                           terminal.finish();
                           return 0;
                       }).out;
    EXPECT_EQ(std::count(line.begin(), line.end(), '\r'), 2);
    EXPECT_EQ(line.back(), '\n');
    EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
}

TEST(RunTimelineTest, AxesStopAtRoundStepsForAwkwardRanges) {
    struct Case {
        double high;
        int maxSteps;
        double step, top;
        int decimals;
    } cases[] = {
        {73.3, 8, 10, 80, 0},          // the interval scale at 30 fps
        {80, 8, 10, 80, 0},            // a high on a step is not pushed one further
        {0.1 * 3, 3, 0.1, 0.3, 1},     // just over 0.3 in floating point
        {0.0123, 5, 0.005, 0.015, 3},  // a five step well below 1
        {1234, 10, 200, 1400, 0},      // a two step above 100
        {0, 5, 0.2, 1, 1},             // nothing measured: still an axis to draw
    };
    for (const Case& c : cases) {
        RoundAxis a = roundAxis(c.high, c.maxSteps);
        EXPECT_DOUBLE_EQ(a.step, c.step) << c.high;
        EXPECT_NEAR(a.top, c.top, 1e-9) << c.high;
        EXPECT_EQ(a.decimals, c.decimals) << c.high;
        ASSERT_LE(a.ticks.size(), size_t(c.maxSteps) + 1) << c.high;
        EXPECT_EQ(a.ticks.front(), 0);
        EXPECT_NEAR(a.ticks.back(), a.top, 1e-9) << c.high;
    }
}

TEST(RunTimelineTest, StreamsShareTheRunsClockAndStartUpIsClippedNotDropped) {
    const uint64_t period = 33333333;  // 30 fps
    // 0:0 from 5 s: a start-up interval of 195 ms, 30 periods, a gap of three
    // periods (two frames lost), 10 periods. 1:0 from 50 ms later, steady.
    uvc_host::StreamTrace a{{0, 0}, {5000000000ull, 5195000000ull}, {}};
    for (int i = 0; i < 40; ++i) {
        a.arrivalsNs.push_back(a.arrivalsNs.back() + (i == 30 ? 3 * period : period));
    }
    uvc_host::StreamTrace b{{1, 0}, {5050000000ull}, {}};
    for (int i = 0; i < 50; ++i) {
        b.arrivalsNs.push_back(b.arrivalsNs.back() + period);
    }
    uvc_host::RunTimeline run = uvc_host::runTimeline({a, b}, 1000.0 / 30);
    ASSERT_EQ(run.streams.size(), 2u);
    const uvc_host::StreamTimeline& sa = run.streams[0];
    const uvc_host::StreamTimeline& sb = run.streams[1];
    EXPECT_DOUBLE_EQ(sa.firstSec, 0);
    EXPECT_DOUBLE_EQ(sb.firstSec, 0.05);
    EXPECT_DOUBLE_EQ(sb.atSec[0], 0.05 + period / 1e9);
    EXPECT_GE(run.timeAxis.top, std::max(sa.atSec.back(), sb.atSec.back()));

    // The start-up interval is above the scale, which still shows a
    // one-frame drop in full; only the later gap counts as a drop.
    EXPECT_LT(run.intervalAxis.top, 195);
    EXPECT_GE(run.intervalAxis.top, 2 * 1000.0 / 30);
    EXPECT_EQ(sa.drops, std::vector<size_t>{31});
    EXPECT_EQ(sa.framesDropped, 2u);
    EXPECT_TRUE(sb.drops.empty());
}
