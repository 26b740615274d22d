#include <gtest/gtest.h>
#include <json-c/json.h>

#include <algorithm>
#include <csignal>

#include "FakeLink.h"
#include "ToolTestSupport.h"
#include "cli/Interrupt.h"
#include "session/JsonText.h"

using namespace uvc_host;
using uvc_host_test::member;
using uvc_host_test::number;
using uvc_host_test::Outcome;

namespace {

Outcome runStream(std::vector<std::string> args, uvc_host_test::FakeState* state) {
    args.insert(args.begin(), "stream");
    return uvc_host_test::runTool(args, state);
}

// The run's JSON summary.
JsonPtr summary(const Outcome& r) {
    return JsonPtr(json_tokener_parse(r.out.c_str()));
}

}  // namespace

TEST(StreamSessionTest, FramesModeStopsAtTheCountAndWritesEachStream) {
    uvc_host_test::TempDir dir;
    uvc_host_test::FakeState state;
    state.framesPerHotplug = 15;
    Outcome r = runStream(
        {"--stream", "0:0", "--stream", "1:1", "--size", "8x4", "--frames", "10", "--output",
         dir.file("v.yuv"), "--save-frame", "2", dir.file("f.jpg"), "--no-progress"},
        &state);
    EXPECT_EQ(r.status, 0) << r.out << r.err;
    // Frames beyond the requested count are neither counted nor written.
    EXPECT_EQ(dir.read("v-0_0.yuv").size(), 10u * 8 * 4 * 2);
    EXPECT_EQ(dir.read("v-1_1.yuv").size(), 10u * 8 * 4 * 2);
    EXPECT_FALSE(dir.read("f-0_0.jpg").empty());
    EXPECT_FALSE(dir.read("f-1_1.jpg").empty());
    EXPECT_NE(r.out.find("stream 1:1: ok"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("frames 10 (empty 0)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("ffplay -f rawvideo -pixel_format yuyv422 -video_size 8x4"),
              std::string::npos);
    EXPECT_EQ(state.hotplugs, (std::vector<std::string>{"4@0:0", "4@1:1"}));
    EXPECT_TRUE(state.settings.copyFrameBytes);
}

TEST(StreamSessionTest, JsonSummaryHoldsTheMeasuresAndDropsByCause) {
    uvc_host_test::FakeState state;
    state.framesPerHotplug = 5;
    state.recoveries = 2;
    Outcome r = runStream({"--frames", "5", "--json", "--size", "8x4", "--fps", "25"}, &state);
    EXPECT_EQ(r.status, 0) << r.err;
    // Nothing but the JSON object on the results stream.
    ASSERT_EQ(r.out.find('\n'), r.out.size() - 1) << r.out;
    JsonPtr root = summary(r);
    json_object* s = member(root.get(), "streams.0");
    ASSERT_NE(s, nullptr) << r.out;
    EXPECT_EQ(number(s, "frames"), 5);
    EXPECT_NEAR(number(s, "achieved_fps"), 25, 0.01);
    EXPECT_NEAR(number(s, "interval_median_ms"), 40, 0.01);
    EXPECT_NEAR(number(s, "interval_p99_ms"), 40, 0.01);
    EXPECT_EQ(number(s, "bytes"), 5 * 64);
    EXPECT_EQ(number(s, "recoveries"), 2);
    EXPECT_EQ(number(s, "dropped.expected"), 5);
    EXPECT_EQ(number(s, "dropped.library"), 0);
    EXPECT_FALSE(state.settings.copyFrameBytes);

    // Ten frames over twelve periods: two missing. Without a host-busy
    // warning they are the library's; with one they may not be.
    uvc_host_test::FakeState gaps;
    gaps.framesPerHotplug = 10;
    gaps.skipEvery = 5;
    std::vector<std::string> args = {"--frames", "10", "--json", "--fps-tolerance", "50"};
    r = runStream(args, &gaps);
    root = summary(r);
    ASSERT_NE(s = member(root.get(), "streams.0"), nullptr) << r.out;
    EXPECT_EQ(number(s, "dropped.expected"), 12);
    EXPECT_EQ(number(s, "dropped.library"), 2);
    EXPECT_EQ(number(s, "dropped.host_busy"), 0);
    gaps.hostBusyDrops[StreamKey{0, 0}] = 1;
    r = runStream(args, &gaps);
    root = summary(r);
    ASSERT_NE(s = member(root.get(), "streams.0"), nullptr) << r.out;
    EXPECT_EQ(number(s, "dropped.host_busy"), 1);
    EXPECT_EQ(member(s, "dropped.library"), nullptr) << r.out;
}

TEST(StreamSessionTest, FailsOnShortEmptyOrMistimedStreams) {
    uvc_host_test::TempDir dir;
    const std::string noFile = "warning: no frame file " + dir.path() + "/mjpeg/8_4/frame0.jpg";
    struct Case {
        uint64_t framesPerHotplug;
        int64_t frameSize;
        uint32_t pacingFps;
        std::vector<std::string> args;
        int status;
        std::string says, warns = "", saysNot = "";
    };
    // clang-format off
    const Case cases[] = {
        {3, -1, 0, {"--frames", "5", "--timeout", "0.1"}, 1, "received 3 of 5 frames in time"},
        {4, 0, 0, {"--frames", "4", "--format", "MJPG", "--frames-dir", dir.path(), "--size", "8x4"},
         1, "4 empty frames (no frame files for this size?", noFile},
        // Frames 1/30 s apart while 60 fps were configured: outside 10 %, but
        // inside a tolerance of 60 %; one interval is a rate too.
        {10, -1, 30, {"--frames", "10", "--fps", "60"}, 1,
         "achieved 30.00 fps, configured 60 (tolerance 10.00 %)"},
        {10, -1, 30, {"--frames", "10", "--fps", "60", "--fps-tolerance", "60"}, 0, ""},
        {2, -1, 30, {"--frames", "2", "--fps", "60"}, 1, "achieved 30.00 fps, configured 60"},
        // Two frames at the right pace, then nothing for the rest of a
        // second: the count to the end of the run fails it, not the rate.
        {2, -1, 0, {"--duration", "1"}, 1, "problem: received 2 of ~", "", "configured"}};
    // clang-format on
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.args));
        uvc_host_test::FakeState state;
        state.framesPerHotplug = c.framesPerHotplug;
        state.frameSize = c.frameSize;
        state.pacingFps = c.pacingFps;
        std::vector<std::string> args = c.args;
        args.push_back("--no-progress");
        Outcome r = runStream(args, &state);
        EXPECT_EQ(r.status, c.status) << r.out;
        EXPECT_NE(r.out.find(c.says), std::string::npos) << r.out;
        EXPECT_NE(r.err.find(c.warns), std::string::npos) << r.err;
        if (!c.saysNot.empty()) {
            EXPECT_EQ(r.out.find(c.saysNot), std::string::npos) << r.out;
        }
    }
}

TEST(StreamSessionTest, StandardOutputCarriesOnlyFramesAndSignalsEndWithTheSummary) {
    uvc_host_test::FakeState state;
    state.framesPerHotplug = 4;
    Outcome r = runStream({"--frames", "4", "--size", "8x4", "--output", "-"}, &state);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, std::string(4 * 8 * 4 * 2, char(0x80)));
    EXPECT_NE(r.err.find("output standard output: 4 frames written"), std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("play:"), std::string::npos) << r.err;
    Outcome timing = runStream({"--frames", "4", "--size", "8x4", "--timing", "-"}, &state);
    EXPECT_EQ(timing.status, 0) << timing.err;
    EXPECT_EQ(timing.out.rfind("stream,index,arrival_ms,interval_ms,bytes\n", 0), 0u) << timing.out;
    EXPECT_NE(timing.err.find("result: ok"), std::string::npos) << timing.err;

    // A signal ends the run at once; the summary still comes, and the exit
    // status tells which signal it was.
    for (int signal : {SIGINT, SIGTERM}) {
        simulateInterrupt(signal);
        uvc_host_test::FakeState few;
        few.framesPerHotplug = 2;
        Outcome s = runStream({"--frames", "100", "--no-progress"}, &few);
        simulateInterrupt(0);
        EXPECT_EQ(s.status, 128 + signal);
        EXPECT_NE(s.out.find("(interrupted)"), std::string::npos) << s.out;
        EXPECT_NE(s.out.find("frames 2 (empty 0)"), std::string::npos) << s.out;
    }
}

TEST(StreamSessionTest, TimingAndReportHoldWhatTheRunMeasured) {
    uvc_host_test::TempDir dir;
    uvc_host_test::FakeState state;
    state.framesPerHotplug = 10;
    Outcome r =
        runStream({"--stream", "0:0", "--stream", "1:1", "--frames", "10", "--size", "8x4", "--fps",
                   "25", "--no-progress", "--timing", dir.file("t.csv"), "--report", dir.file("r")},
                  &state);
    ASSERT_EQ(r.status, 0) << r.out << r.err;
    std::string text = dir.text("t.csv");
    EXPECT_EQ(text.rfind("stream,index,arrival_ms,interval_ms,bytes\n0:0,0,0.000,,64\n", 0), 0u)
        << text;
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 21);
    // The tenth frame of each stream: 360 ms after the first, 40 ms after the ninth.
    EXPECT_NE(text.find("0:0,9,360.000,40.000,64\n"), std::string::npos) << text;
    EXPECT_NE(text.find("1:1,9,360.000,40.000,64\n"), std::string::npos) << text;

    std::string html = dir.text("r/index.html");
    EXPECT_NE(html.find("<td>10</td>"), std::string::npos);
    EXPECT_NE(html.find("target 40.00 ms"), std::string::npos);
    // Nine intervals of 40 ms per stream, all in the histogram bin at the period.
    size_t bin = html.find("40.00-42.00 ms: 9<");
    ASSERT_NE(bin, std::string::npos);
    EXPECT_NE(html.find("40.00-42.00 ms: 9<", bin + 1), std::string::npos);
    // Every link on the page leads to a section of it.
    for (size_t at = html.find("href=\"#"); at != std::string::npos;
         at = html.find("href=\"#", at + 1)) {
        std::string id = html.substr(at + 7, html.find('"', at + 7) - at - 7);
        EXPECT_NE(html.find("id=\"" + id + "\""), std::string::npos) << id;
    }
    size_t pictures = 0;
    for (size_t at = html.find("<img src=\""); at != std::string::npos;
         at = html.find("<img src=\"", at + 1)) {
        std::string file = html.substr(at + 10, html.find('"', at + 10) - at - 10);
        std::vector<uint8_t> jpeg = dir.read("r/" + file);
        EXPECT_TRUE(jpeg.size() > 2 && jpeg[0] == 0xFF && jpeg[1] == 0xD8) << file;
        ++pictures;
    }
    EXPECT_EQ(pictures, 20u);

    Outcome lines = runStream(
        {"--frames", "3", "--fps", "25", "--no-progress", "--timing", dir.file("t.jsonl")}, &state);
    ASSERT_EQ(lines.status, 0) << lines.err;
    std::string last = dir.text("t.jsonl");
    last = last.substr(last.rfind('\n', last.size() - 2) + 1);
    JsonPtr record(json_tokener_parse(last.c_str()));
    EXPECT_DOUBLE_EQ(number(record.get(), "interval_ms"), 40) << last;
}
