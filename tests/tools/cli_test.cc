#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <sstream>

#include "FakeLink.h"
#include "ToolTestSupport.h"
#include "cli/CommandLine.h"

using namespace uvc_host;
using uvc_host_test::Outcome;
using uvc_host_test::runTool;

namespace {

StreamOptions parseStream(std::vector<std::string> args, CommandLine* line) {
    args.insert(args.begin(), "stream");
    *line = parseCommandLine(args);
    return line->stream;
}

// The words of `text`, split at spaces.
std::vector<std::string> words(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

long lines(const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
}

}  // namespace

TEST(StreamOptionsTest, HostDelaysAndAllStreams) {
    CommandLine line;
    StreamOptions o = parseStream({"--host-delay", "0:2=40", "--host-delay=1:3=0"}, &line);
    ASSERT_EQ(line.command, CommandLine::Command::Stream) << line.text;
    ASSERT_EQ(o.hostDelaysMs.size(), 2u);
    EXPECT_EQ(o.hostDelaysMs[0].first.text() + "=" + std::to_string(o.hostDelaysMs[0].second),
              "0:2=40");
    EXPECT_EQ(o.hostDelaysMs[1].second, 0u);

    o = parseStream({"--stream", "all"}, &line);
    ASSERT_EQ(line.command, CommandLine::Command::Stream);
    EXPECT_TRUE(o.allStreams);
    ASSERT_EQ(o.streams.size(), 8u);
    EXPECT_EQ(o.streams[7].text(), "1:3");
}

TEST(StreamOptionsTest, RejectsBadValuesWithOneReason) {
    // One command line per case, the cases split at '|'.
    std::istringstream cases(
        "--format RGB3|--format yuyv|--size 0x720|--size 1280x0|--size 1280*720|--size 99999x10|"
        "--size -4x3|--fps 0|--fps 241|--fps 3.5|--stream 256:0|--stream 0:4|--stream 2:0|"
        "--stream all --output -|--output - --timing -|--timing - --save-frame 3 -|"
        "--stream all --save-frame 0 -|--report -|--stream 0|--stream 0:0:0|"
        "--stream 0:0 --stream 0:0|--stream all --stream 0:1|--duration 0|--duration nan|"
        "--frames 0|--frames 10 --duration 1|--timeout 3|--jpeg|--save-frame 1|"
        "--format H264 --save-frame 1 x.jpg|--save-frame x f.jpg|--output|--bogus|extra|"
        "--json=yes|--fps-tolerance 101|--host-delay 0:0|--host-delay 0:4=40|"
        "--host-delay 0:0=-1|--host-delay 0:0=60001");
    for (std::string bad; std::getline(cases, bad, '|');) {
        SCOPED_TRACE(bad);
        CommandLine line;
        parseStream(words(bad), &line);
        EXPECT_EQ(line.command, CommandLine::Command::Usage);
        EXPECT_EQ(line.text.rfind("uvc-host stream: ", 0), 0u) << line.text;
        EXPECT_EQ(line.text.find('\n'), std::string::npos);
    }
}

TEST(HostMainTest, UsageErrorsExitTwoWithOneLine) {
    std::istringstream cases(
        "|record|--bogus|control {\"msg_type\":|control [1,2]|control {}trailing|control|"
        "frames make --format MJPG|frames make --format YUYV --size 64x48 --count 3 --dir d|"
        "frames remove|frames|scenario|scenario a.txt b.txt|control get|control set hue|"
        "control set hue=1.5|control {} list|control list extra");
    for (std::string bad; std::getline(cases, bad, '|');) {
        SCOPED_TRACE(bad);
        Outcome r = runTool(words(bad));
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_EQ(r.err.rfind("uvc-host", 0), 0u) << r.err;
        EXPECT_TRUE(r.out.empty());
    }
}

TEST(HostMainTest, HelpIsCompleteForEveryCommand) {
    Outcome main = runTool({"--help"});
    EXPECT_EQ(main.status, 0);
    EXPECT_EQ(main.out.rfind("usage: uvc-host COMMAND", 0), 0u) << main.out;
    Outcome version = runTool({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out.rfind("uvc-host ", 0), 0u) << version.out;
    for (const char* cmd : {"stream", "control", "frames", "scenario", "formats"}) {
        EXPECT_NE(main.out.find(cmd), std::string::npos);
        Outcome r = runTool({cmd, "-h"});
        EXPECT_EQ(r.status, 0) << cmd;
        EXPECT_EQ(r.out.rfind(std::string("usage: uvc-host ") + cmd, 0), 0u) << cmd;
    }
    // The limits shown are the library's (here the fake's).
    Outcome formats = runTool({"formats"});
    EXPECT_EQ(formats.status, 0);
    for (const char* text :
         {"YUYV", "YU12", "NV12", "MJPG", "H264", "S264", "1 to 240 fps", "up to 8294400"}) {
        EXPECT_NE(formats.out.find(text), std::string::npos) << text << "\n" << formats.out;
    }
}

TEST(HostMainTest, EnvironmentErrorsExitOneBeforeTheLibraryStarts) {
    uvc_host_test::TempDir dir;
    uvc_host_test::FakeState state;
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"stream", "--output", dir.file("missing/sub/out.yuv")}, "cannot write"},
        {{"stream", "--format", "MJPG", "--frames-dir", dir.file("nothing")},
         "cannot read frame directory"},
        {{"control", "--file", dir.file("absent.txt")}, ""},
        {{"scenario", dir.path()}, ""}};
    for (const auto& c : cases) {
        Outcome r = runTool(c.first, &state);
        EXPECT_EQ(r.status, 1) << c.first[0];
        EXPECT_EQ(lines(r.err), 1) << r.err;
        EXPECT_NE(r.err.find(c.second), std::string::npos) << r.err;
    }
    EXPECT_FALSE(state.started);

    state.failStart = true;
    Outcome r = runTool({"stream", "--frames", "3"}, &state);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("fake start failure"), std::string::npos);
}

TEST(HostMainTest, ControlPrintsEveryReplyInOrder) {
    uvc_host_test::TempDir dir;
    uvc_host_test::FakeState state;
    Outcome r = runTool(
        {"control", "{\"content\":{\"gain\":\"get\"}}", "--file", "-", "--stream", "0:1"}, &state,
        "# brightness then hue\n{\"content\":{\"brightness\":\"get\"}}\n\n"
        "{\"content\":{\"hue\":\"40\"}}\n{\"content\":{\"hue\":\"get\"}}");
    EXPECT_EQ(r.status, 0) << r.err;
    ASSERT_EQ(state.sent.size(), 4u);
    EXPECT_EQ(r.out,
              "{\"source\":\"app\",\"response\":{\"gain\":\"-255\"}}\n"
              "{\"source\":\"app\",\"response\":{\"brightness\":\"-255\"}}\n"
              "{\"source\":\"app\",\"response\":{\"hue\":\"40\"}}\n");
    EXPECT_TRUE(state.stopped);

    dir.write("bad.txt", "{\"a\":1}\nnot json\n");
    r = runTool({"control", "--file", dir.file("bad.txt")}, &state);
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("bad.txt:2"), std::string::npos) << r.err;
}

TEST(HostMainTest, ControlByNameChecksTheLibrarysTableFirst) {
    uvc_host_test::FakeState state;
    Outcome r =
        runTool({"control", "get", "brighness", "white_balance", "--stream", "1:0"}, &state);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("no setting named 'brighness' (did you mean brightness?)"),
              std::string::npos)
        << r.err;
    EXPECT_NE(r.err.find("whiteBalanceTemp or whiteBalanceTempAuto"), std::string::npos) << r.err;
    EXPECT_FALSE(state.started);

    r = runTool({"control", "set", "brightness=40", "hue=300"}, &state);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "brightness: 40\nhue: 300\n");
    EXPECT_NE(r.err.find("300 is outside the range of hue (0 to 270)"), std::string::npos) << r.err;

    // A never-written setting is null, not the library's marker.
    r = runTool({"control", "list", "--json"}, &state);
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out,
              "{\"settings\":[{\"name\":\"brightness\",\"type\":\"int\",\"min\":0,\"max\":255,"
              "\"step\":1,\"default\":128,\"current\":40},{\"name\":\"hue\",\"type\":\"int\","
              "\"min\":0,\"max\":270,\"step\":1,\"default\":90,\"current\":300},{\"name\":"
              "\"whiteBalanceTemp\",\"type\":\"int\",\"min\":2000,\"max\":7500,\"step\":100,"
              "\"default\":4500,\"current\":null},{\"name\":\"whiteBalanceTempAuto\",\"type\":"
              "\"bool\",\"min\":0,\"max\":1,\"step\":1,\"default\":1,\"current\":null}]}\n");
    EXPECT_EQ(runTool({"control", "get", "hue", "--json"}, &state).out, "{\"hue\":300}\n");
    EXPECT_EQ(runTool({"control", "get", "whiteBalanceTemp"}, &state).out,
              "whiteBalanceTemp: not set\n");
    r = runTool({"control", "{\"a\":1 \"b\":2}"}, &state);
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("at column 8"), std::string::npos) << r.err;
}
