#include <gtest/gtest.h>
#include <json-c/json.h>

#include <cctype>
#include <csignal>

#include "FakeLink.h"
#include "ToolTestSupport.h"
#include "cli/Interrupt.h"
#include "session/JsonText.h"
#include "session/Scenario.h"

using namespace uvc_host;
using uvc_host_test::Outcome;

namespace {

std::string parseError(const std::vector<std::string>& lines) {
    std::vector<ScenarioEvent> events;
    std::string error;
    EXPECT_FALSE(parseScenario(lines, &events, &error));
    return error;
}

// Plays `script` from the file s.txt, or with `file` "-" from standard input.
Outcome play(const std::string& script, uvc_host_test::FakeState* state, bool json = false,
             const std::string& file = "s.txt") {
    uvc_host_test::TempDir dir;
    dir.write("s.txt", script);
    std::vector<std::string> args{"scenario", file == "-" ? file : dir.file(file)};
    if (json) {
        args.push_back("--json");
    }
    return uvc_host_test::runTool(args, state, script);
}

}  // namespace

TEST(ScenarioParseTest, ErrorsNameTheLine) {
    const std::pair<std::vector<std::string>, const char*> cases[] = {
        {{"{\"wait_ms\":1}", "{\"wait_ms\":"}, "2: not a JSON object"},
        {{"{\"wait_ms\":1,\"hotplug\":{}}"}, "1: give exactly one"},
        {{"{}"}, "1: give exactly one"},
        {{"{\"wait_ms\":-5}"}, "wait_ms"},
        {{"{\"configure\":{\"size\":\"640x480\",\"fps\":30,\"format\":\"BGR3\"}}"}, "format"},
        {{"{\"configure\":{\"size\":\"640x480\",\"fps\":30,\"format\":\"YUYV\",\"colour\":1}}"},
         "unknown key \"colour\""},
        {{"{\"hotplug\":{\"stream\":\"300:1\"}}"}, "bad stream"},
        {{"{\"expect\":{\"frames\":{\"min\":5,\"max\":2}}}"}, "above"},
        {{"{\"expect\":{\"replies\":{},\"recoveries\":{}}}"}, "exactly one"},
        {{"{\"control\":42}"}, "control"},
        {{"{\"wait_ms\":1,\"stream\":\"0:0\"}"}, "unknown key"},
        {{"{\"host_delay\":{\"stream\":\"0:0\"}}"}, "give \"stream\" and"},
        {{"{\"host_delay\":{\"stream\":\"0:0\",\"ms\":60001}}"}, "ms"},
        {{"# only a comment"}, "0: no events"},
    };
    for (const auto& c : cases) {  // a line number leads the message
        const std::string error = parseError(c.first);
        const size_t at = error.find(c.second);
        EXPECT_TRUE(std::isdigit(c.second[0]) ? at == 0 : at != std::string::npos) << error;
    }
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
    // Replies count from the last control message: the brightness reply
    // came before it, so line 9 fails.
    for (const char* said : {"line 3: ok: stream 0:0 received 12 frames", "line 5: ok",
                             "line 6: FAILED: stream 0:0 received 12 frames, expected at least 20",
                             "line 8: ok", "line 9: FAILED", "5 expectations, 2 failed"}) {
        EXPECT_NE(r.out.find(said), std::string::npos) << said << "\n" << r.out;
    }
    for (const char* said : {"s.txt:6: expectation failed", "s.txt:9: expectation failed"}) {
        EXPECT_NE(r.err.find(said), std::string::npos) << said << "\n" << r.err;
    }
    EXPECT_TRUE(state.stopped);
    EXPECT_FALSE(state.settings.copyFrameBytes);

    uvc_host_test::FakeState clean;
    Outcome ok = play(
        "{\"configure\":{\"stream\":\"1:2\",\"size\":\"64x48\",\"fps\":30,\"format\":\"YUYV\"}}\n"
        "{\"hotplug\":{\"stream\":\"all\"}}\n"
        "{\"at_ms\":30,\"expect\":{\"frames\":{\"stream\":\"1:2\",\"min\":10,\"max\":10}}}\n"
        "{\"fail_sends\":1}\n"
        "{\"expect\":{\"recoveries\":{\"min\":1,\"max\":1}}}\n"
        "{\"control\":\"not json\"}\n",
        &clean);
    EXPECT_EQ(ok.status, 0) << ok.out << ok.err;
    ASSERT_EQ(clean.hotplugs.size(), 1u);
    EXPECT_EQ(clean.hotplugs[0], "4@255:0");
    EXPECT_EQ(clean.sent, std::vector<std::string>{"not json"});  // a text goes out as it is
}

// The JSON summary holds each expectation with its line and what it found.
TEST(ScenarioRunnerTest, RepliesCountFromTheLastControlOrHotplug) {
    uvc_host_test::FakeState state;
    Outcome r = play(
        "{\"control\":{\"content\":{\"brightness\":\"get\"}}}\n"
        "{\"hotplug\":{\"stream\":\"0:0\"}}\n"
        "{\"expect\":{\"replies\":{\"min\":1,\"max\":1}}}\n"
        "{\"expect\":{\"reply_contains\":\"stream changed\"}}\n"
        "{\"expect\":{\"reply_contains\":\"brightness\",\"within_ms\":0}}\n",
        &state, true);
    EXPECT_EQ(r.status, 1);
    EXPECT_NE(r.err.find("s.txt:5: expectation failed"), std::string::npos) << r.err;
    JsonPtr root(json_tokener_parse(r.out.c_str()));
    EXPECT_EQ(uvc_host_test::number(root.get(), "failed"), 1) << r.out;
    EXPECT_STREQ(
        json_object_to_json_string_ext(uvc_host_test::member(root.get(), "results"),
                                       JSON_C_TO_STRING_PLAIN),
        "[{\"line\":3,\"ok\":true,\"detail\":\"1 replies to the last event\"},{\"line\":4,"
        "\"ok\":true,\"detail\":\"reply contains \\\"stream changed\\\": stream changed\"},"
        "{\"line\":5,\"ok\":false,\"detail\":\"no reply to the last event contains "
        "\\\"brightness\\\" (1 replies)\"}]");
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
    const std::string script = "{\"wait_ms\":1}\n{\"hotplug\":{\"status\":\"four\"}}\n";
    Outcome r = play(script, &state);
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("s.txt:2: hotplug: \"status\""), std::string::npos) << r.err;
    r = play(script, &state, false, "-");
    EXPECT_EQ(r.status, 2);
    EXPECT_NE(r.err.find("standard input:2: hotplug: \"status\""), std::string::npos) << r.err;
    EXPECT_FALSE(state.started);
}
