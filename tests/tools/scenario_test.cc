#include <gtest/gtest.h>
#include <json-c/json.h>

#include <csignal>

#include "FakeLink.h"
#include "TempDir.h"
#include "cli/Interrupt.h"
#include "session/Scenario.h"
#include "session/ScenarioRunner.h"

using namespace uvc_host;
using uvc_host_test::contents;

namespace {

std::string parseError(const std::vector<std::string>& lines) {
    std::vector<ScenarioEvent> events;
    std::string error;
    EXPECT_FALSE(parseScenario(lines, &events, &error));
    return error;
}

struct Outcome {
    int status;
    std::string out;
    std::string err;
};

Outcome play(const std::string& script, uvc_host_test::FakeState* state, bool json = false) {
    uvc_host_test::TempDir dir;
    dir.write("s.txt", script);
    ScenarioOptions o;
    o.file = dir.file("s.txt");
    o.json = json;
    FILE* out = std::tmpfile();
    FILE* err = std::tmpfile();
    int status = ScenarioRunner(o, uvc_host_test::fakeFactory(state), {out, err, false}).run();
    Outcome r{status, contents(out), contents(err)};
    std::fclose(out);
    std::fclose(err);
    return r;
}

}  // namespace

TEST(ScenarioParseTest, ReadsEveryAction) {
    std::vector<std::string> lines = {
        "# a comment",
        "{\"at_ms\":0,\"configure\":{\"stream\":\"0:1\",\"size\":\"640x480\",\"fps\":30,"
        "\"format\":\"NV12\",\"streaming\":false}}",
        "",
        "{\"hotplug\":{\"status\":4,\"stream\":\"all\"}}",
        "{\"control\":{\"msg_type\":\"uvc_report\"},\"stream\":\"1:0\"}",
        "{\"control\":\"not json\"}",
        "{\"wait_ms\":250}",
        "{\"fail_sends\":2}",
        "{\"expect\":{\"frames\":{\"stream\":\"0:1\",\"min\":3,\"max\":9},\"within_ms\":100}}",
        "{\"expect\":{\"reply_contains\":\"hue\"}}",
        "{\"expect\":{\"replies\":{\"max\":0}}}",
        "{\"expect\":{\"recoveries\":{\"min\":1}}}",
    };
    std::vector<ScenarioEvent> e;
    std::string error;
    ASSERT_TRUE(parseScenario(lines, &e, &error)) << error;
    ASSERT_EQ(e.size(), 10u);
    EXPECT_EQ(e[0].line, 2);
    EXPECT_EQ(e[0].atMs, 0);
    EXPECT_EQ(e[0].stream.text(), "0:1");
    EXPECT_STREQ(e[0].format->name, "NV12");
    EXPECT_FALSE(e[0].streaming);
    EXPECT_EQ(e[1].line, 4);
    EXPECT_TRUE(e[1].allStreams);
    EXPECT_EQ(e[1].atMs, -1);
    EXPECT_EQ(e[2].message, "{\"msg_type\":\"uvc_report\"}");
    EXPECT_EQ(e[2].stream.text(), "1:0");
    EXPECT_EQ(e[3].message, "not json");
    EXPECT_EQ(e[4].waitMs, 250u);
    EXPECT_EQ(e[5].failCount, 2);
    EXPECT_EQ(e[6].subject, ScenarioEvent::Subject::Frames);
    EXPECT_EQ(e[6].min, 3u);
    EXPECT_EQ(e[6].max, 9u);
    EXPECT_EQ(e[6].withinMs, 100u);
    EXPECT_EQ(e[7].text, "hue");
    EXPECT_EQ(e[8].max, 0u);
    EXPECT_EQ(e[9].subject, ScenarioEvent::Subject::Recoveries);
}

TEST(ScenarioParseTest, ErrorsNameTheLine) {
    EXPECT_EQ(parseError({"{\"wait_ms\":1}", "{\"wait_ms\":"}).rfind("2: not a JSON object", 0),
              0u);
    EXPECT_EQ(parseError({"{\"wait_ms\":1,\"hotplug\":{}}"}).rfind("1: give exactly one", 0), 0u);
    EXPECT_EQ(parseError({"{}"}).rfind("1: give exactly one", 0), 0u);
    EXPECT_NE(parseError({"{\"wait_ms\":-5}"}).find("wait_ms"), std::string::npos);
    EXPECT_NE(parseError({"{\"configure\":{\"size\":\"640x480\",\"fps\":30,\"format\":\"BGR3\"}}"})
                  .find("format"),
              std::string::npos);
    EXPECT_NE(parseError({"{\"configure\":{\"size\":\"640x480\",\"fps\":30,\"format\":\"YUYV\","
                          "\"colour\":1}}"})
                  .find("unknown key \"colour\""),
              std::string::npos);
    EXPECT_NE(parseError({"{\"hotplug\":{\"stream\":\"300:1\"}}"}).find("bad stream"),
              std::string::npos);
    EXPECT_NE(parseError({"{\"expect\":{\"frames\":{\"min\":5,\"max\":2}}}"}).find("above"),
              std::string::npos);
    EXPECT_NE(parseError({"{\"expect\":{\"replies\":{},\"recoveries\":{}}}"}).find("exactly one"),
              std::string::npos);
    EXPECT_NE(parseError({"{\"control\":42}"}).find("control"), std::string::npos);
    EXPECT_NE(parseError({"{\"wait_ms\":1,\"stream\":\"0:0\"}"}).find("unknown key"),
              std::string::npos);
    EXPECT_EQ(parseError({"# only a comment"}), "0: no events");
}

TEST(ScenarioRunnerTest, PassingAndFailingExpectations) {
    uvc_host_test::FakeState state;
    state.framesPerHotplug = 12;
    Outcome r = play(
        "{\"configure\":{\"stream\":\"0:0\",\"size\":\"64x48\",\"fps\":30,\"format\":\"YUYV\"}}\n"
        "{\"hotplug\":{\"status\":4,\"stream\":\"0:0\"}}\n"
        "{\"expect\":{\"frames\":{\"stream\":\"0:0\",\"min\":10}}}\n"
        "{\"control\":{\"content\":{\"brightness\":\"get\"}}}\n"
        "{\"expect\":{\"reply_contains\":\"brightness\"}}\n"
        "{\"expect\":{\"frames\":{\"stream\":\"0:0\",\"min\":20},\"within_ms\":50}}\n"
        "{\"control\":{\"content\":{\"hue\":\"set\"}}}\n"
        "{\"expect\":{\"replies\":{\"max\":0}}}\n"
        "{\"expect\":{\"reply_contains\":\"brightness\",\"within_ms\":20}}\n",
        &state);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("line 3: ok: stream 0:0 received 12 frames"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("line 5: ok"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("line 6: FAILED: stream 0:0 received 12 frames, expected at least 20"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("line 8: ok"), std::string::npos) << r.out;
    // Replies count from the last control message: the brightness reply
    // came before it.
    EXPECT_NE(r.out.find("line 9: FAILED"), std::string::npos) << r.out;
    EXPECT_NE(r.err.find("s.txt:6: expectation failed"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("s.txt:9: expectation failed"), std::string::npos) << r.err;
    EXPECT_NE(r.out.find("5 expectations, 2 failed"), std::string::npos) << r.out;
    EXPECT_TRUE(state.stopped);
    EXPECT_FALSE(state.settings.copyFrameBytes);

    uvc_host_test::FakeState clean;
    Outcome ok = play(
        "{\"configure\":{\"stream\":\"1:2\",\"size\":\"64x48\",\"fps\":30,\"format\":\"YUYV\"}}\n"
        "{\"hotplug\":{\"stream\":\"all\"}}\n"
        "{\"at_ms\":30,\"expect\":{\"frames\":{\"stream\":\"1:2\",\"min\":10,\"max\":10}}}\n"
        "{\"fail_sends\":1}\n"
        "{\"expect\":{\"recoveries\":{\"min\":1,\"max\":1}}}\n",
        &clean);
    EXPECT_EQ(ok.status, 0) << ok.out << ok.err;
    ASSERT_EQ(clean.hotplugs.size(), 1u);
    EXPECT_EQ(clean.hotplugs[0], "4@255:0");
}

TEST(ScenarioRunnerTest, RepliesCountFromTheLastControlOrHotplug) {
    uvc_host_test::FakeState state;
    Outcome r = play(
        "{\"control\":{\"content\":{\"brightness\":\"get\"}}}\n"
        "{\"hotplug\":{\"stream\":\"0:0\"}}\n"
        "{\"expect\":{\"replies\":{\"min\":1,\"max\":1}}}\n"
        "{\"expect\":{\"reply_contains\":\"stream changed\"}}\n"
        "{\"expect\":{\"reply_contains\":\"brightness\",\"within_ms\":0}}\n",
        &state);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.out.find("line 3: ok: 1 replies to the last event"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("line 4: ok"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("line 5: FAILED"), std::string::npos) << r.out;
}

TEST(ScenarioRunnerTest, SignalEndsThePlayWithItsSummary) {
    uvc_host_test::FakeState state;
    simulateInterrupt(SIGTERM);
    Outcome r =
        play("{\"wait_ms\":60000}\n{\"control\":{\"content\":{\"hue\":\"get\"}}}\n", &state);
    simulateInterrupt(0);
    EXPECT_EQ(r.status, 143);
    EXPECT_NE(r.out.find("(interrupted)"), std::string::npos) << r.out;
    EXPECT_TRUE(state.sent.empty());
    EXPECT_TRUE(state.stopped);
}

TEST(ScenarioRunnerTest, MalformedFileRunsNothing) {
    uvc_host_test::FakeState state;
    Outcome r = play("{\"wait_ms\":1}\n{\"hotplug\":{\"status\":\"four\"}}\n", &state);
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("s.txt:2: hotplug: \"status\""), std::string::npos) << r.err;
    EXPECT_FALSE(state.started);
}

TEST(ScenarioRunnerTest, JsonSummaryHoldsEachExpectation) {
    uvc_host_test::FakeState state;
    Outcome r = play(
        "{\"control\":{\"content\":{\"hue\":\"get\"}}}\n"
        "{\"expect\":{\"replies\":{\"min\":1,\"max\":1}}}\n"
        "{\"expect\":{\"reply_contains\":\"gain\",\"within_ms\":0}}\n",
        &state, true);
    EXPECT_EQ(r.status, 1);
    json_object* root = json_tokener_parse(r.out.c_str());
    ASSERT_NE(root, nullptr) << r.out;
    json_object *failed = nullptr, *results = nullptr;
    ASSERT_TRUE(json_object_object_get_ex(root, "failed", &failed));
    ASSERT_TRUE(json_object_object_get_ex(root, "results", &results));
    EXPECT_EQ(json_object_get_int(failed), 1);
    ASSERT_EQ(json_object_array_length(results), 2u);
    json_object* line = nullptr;
    json_object_object_get_ex(json_object_array_get_idx(results, 1), "line", &line);
    EXPECT_EQ(json_object_get_int(line), 3);
    json_object_put(root);
    EXPECT_NE(r.err.find("s.txt:3: expectation failed"), std::string::npos) << r.err;
}
