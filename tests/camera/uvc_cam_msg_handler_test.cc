#include <gtest/gtest.h>
#include <json-c/json.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "CameraTestSupport.h"
#include "base/log_test_support.h"
#include "camera/MessageLimits.h"
#include "camera/UvcCamMsgHandler.h"
#include "trevo/CompositorBridge.h"

using namespace camera_test;
using Lines = std::vector<std::string>;

namespace {

const char kHandle[] = "Handle message: handleMessage";

std::string report(const std::string& content) {
    return R"({"msg_type":"uvc_report","content":)" + content + "}";
}

std::string reply(const std::string& name, const std::string& value) {
    return R"({ "source": "app", "response": { ")" + name + R"(": ")" + value + R"(" } })";
}

// Keeps the replies, marking each among the printed lines as it goes out.
class RecordingBridge : public trevo::CompositorBridge {
public:
    RecordingBridge() : trevo::CompositorBridge(trevo::BRIDGE_CONTEXT_UVC) {}
    int onAppMessage(const std::string& message) override {
        printf("<sent %zu>\n", replies.size());
        replies.push_back(message);
        return 0;
    }
    int onAppMessage(const char*) override {
        ADD_FAILURE() << "replies take the std::string overload";
        return 0;
    }
    Lines replies;
};

class UvcCamMsgHandlerTest : public ::testing::Test {
protected:
    void SetUp() override { freshTable(); }
    // Handles one message and returns the printed lines.
    Lines handle(const std::string& message) {
        CaptureStdout();
        handler.handleMessage(message, bridge);
        std::istringstream printed(GetCapturedStdout());
        Lines out;
        for (std::string line; std::getline(printed, line);) {
            out.push_back(line);
        }
        return out;
    }

    RecordingBridge bridge;
    uvc_client::UvcCamMsgHandler handler;
};

}  // namespace

// Each "get" is answered at once, before the next entry, in key order, and is
// tested before the preset keys.
TEST_F(UvcCamMsgHandlerTest, GetEntries) {
    const Lines out = handle(report(R"({"hue":"get","gain":"get"})"));
    ASSERT_GE(out.size(), 7u);
    EXPECT_EQ(Lines(out.begin() + 1, out.begin() + 7),
              (Lines{"msg_type = [uvc_report]", "content key = [gain]", "content val = [get]",
                     "==== Get value for [get]", "<sent 0>", "content key = [hue]"}));
    EXPECT_EQ(handle(report(R"({"preset":"get","presetID":"get"})")).at(4),
              "no setting named: [preset]");
    EXPECT_EQ(bridge.replies, (Lines{reply("gain", "-255"), reply("hue", "-255"),
                                     reply("preset", "-1"), reply("presetID", "-1")}));
}

// A "set" takes the "value" member; every value is read as text, so a JSON
// number or an absent "value" is none.
TEST_F(UvcCamMsgHandlerTest, WritesReadEveryValueAsText) {
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {  // content, rows written
        {R"({"brightness":"set","value":"40"})", "brightness=40/-255 "},
        {R"({"gain":"9"})", "gain=9/-255 "}, {R"({"gain":9})", "gain=0/-255 "},
        {R"({"gain":"4\u00005"})", "gain=4/-255 "}, {R"({"tile":"6"})", "tile=6/-255 "},
        {R"({"BRIGHTNESS":"5"})", ""}, {R"({"zoomAbs":"set"})", "zoomAbs=0/-255 "},
        {R"({"zoomAbs":"set","value":300})", "zoomAbs=0/-255 "}};
    // clang-format on
    for (const auto& c : cases) {
        freshTable();
        handle(report(c.first));
        EXPECT_EQ(writtenRows(), c.second) << c.first;
    }
    EXPECT_TRUE(bridge.replies.empty());
}

TEST_F(UvcCamMsgHandlerTest, PresetRunsOncePerPresetMemberWithTheIdNarrowed) {
    // Strings come before integers in key order; the id is read for each.
    Lines out = handle(report(R"({"presetID":2,"preset":"apply"})"));
    EXPECT_EQ(out.at(2), "content key = [preset]");
    EXPECT_EQ(std::count(out.begin(), out.end(), "apply op [apply] on preset id: [2]"), 2);
    // Beyond int: printed in full, passed on as its low 32 bits.
    out = handle(report(R"({"preset":"save","presetID":4294967298})"));
    EXPECT_EQ(out[4], "==== Preset Op [save: 4294967298]");
    EXPECT_EQ(out[5], "apply op [save] on preset id: [2]");
    out = handle(report(R"({"preset":"recall","presetID":"3"})"));  // not an integer: 0
    EXPECT_EQ(out[5], "apply op [recall] on preset id: [0]");
    EXPECT_TRUE(bridge.replies.empty());
}

TEST_F(UvcCamMsgHandlerTest, MessagesThatChangeNothingAndSendNothing) {
    const Lines header{"msg_type = [uvc_report]"}, unknown{"===== No known msg"};
    auto param = [](const std::string& type, const std::string& value, const std::string& value2) {
        return Lines{"handleMessage: handle param message",
                     "type = [" + type + "] | value = [" + value + "] | value2 = [" + value2 + "]",
                     "Set the camera parameter: setCamParam"};
    };
    // clang-format off
    const std::pair<std::string, Lines> cases[] = {  // message, the lines after kHandle
        {R"({"msg_type":"UVC_REPORT","content":{"brightness":"1"}})",
         {"msg_type = [UVC_REPORT]", "No content"}},
        {R"({"msg_type":"uvc_report"})", {"msg_type = [uvc_report]", "No content"}},
        {R"({"msg_type":1,"content":{"brightness":"1"}})", {"msg_type = []", "No content"}},
        {report("null"), {"msg_type = [uvc_report]", "No content"}},  // null is dropped
        // A content that is not an object reads as an empty record.
        {report(R"(["brightness","get"])"), header}, {report("7"), header}, {report("{}"), header},
        {R"({"type":1,"param":1,"msg_type":"uvc_report","content":{}})", header},
        {"{}", unknown}, {"", unknown}, {"not json", unknown},
        {report(R"({"brightness":"get")"), unknown},
        {report(R"({"gain":)" + std::string(40, '[')), unknown},  // too deep to parse
        // Parameter messages are only acknowledged. Absent members read -1,
        // present ones of another kind 0; wider numbers are printed in full.
        {R"({"type":"uvc","param":1,"value":50,"value2":0})", param("1", "50", "0")},
        {R"({"type":{}})", param("-1", "-1", "-1")},
        {R"({"type":0,"param":"1","value":2.5,"value2":true})", param("0", "0", "0")},
        {R"({"type":0,"param":9223372036854775807,"value":-9223372036854775808,)"
         R"("value2":4294967297})",
         param("9223372036854775807", "-9223372036854775808", "4294967297")}};
    // clang-format on
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first.substr(0, 60));
        Lines expected{kHandle};
        expected.insert(expected.end(), c.second.begin(), c.second.end());
        EXPECT_EQ(handle(c.first), expected);
    }
    EXPECT_TRUE(bridge.replies.empty());
    EXPECT_EQ(writtenRows(), "");
}

TEST_F(UvcCamMsgHandlerTest, HostileNamesAndValues) {
    // Together just within the byte limit.
    const std::string bigName(60000, 'n'), bigValue = "123" + std::string(5000, '9');
    handle(report(R"({")" + bigName + R"(":"get","gain":")" + bigValue + R"("})"));
    // The value is clamped, not overflowed; a NUL cuts a name; quotes are escaped.
    handle(report(R"({"gain":"get","hue\u0000xyz":"get","a\"b\\c\/d\n":"get"})"));
    EXPECT_EQ(bridge.replies, (Lines{reply(bigName, "-1"),
                                     R"({ "source": "app", "response": { "a\"b\\c\/d\n": "-1" } })",
                                     reply("gain", "2147483647"), reply("hue", "-255")}));
}

// Each limit: a message just within is handled, one just beyond is refused
// with one line and nothing else, and the next message is answered.
TEST_F(UvcCamMsgHandlerTest, MessagesBeyondTheLimitsAreRefusedUnparsed) {
    using uvc_client::MessageLimits;
    // Structure in strings of either quote and in comments does not count.
    const std::string get = R"({"msg_type":"uvc_report","content":{"gain":"get","x":"{[,:'//"})";
    // `get` has 2 objects and 6 separators; ,"p":[ adds 1 and 2.
    auto padded = [&get](size_t elements, const std::string& element, const char* before = "") {
        std::string text = get + before + R"(,"p":[)";
        for (size_t i = 0; i < elements; ++i) {
            text += (i ? "," : "") + element;
        }
        return text + "]}";
    };
    const size_t objects = MessageLimits::kMaxContainers - 3,
                 elements = MessageLimits::kMaxSeparators - 7;
    std::string spaced = get + "}";
    spaced.insert(1, MessageLimits::kMaxBytes - spaced.size(), ' ');
    const std::pair<std::string, std::string> cases[] = {
        // message, refusal
        {spaced, ""},
        {" " + spaced, "message refused: 65537 bytes, the limit is 65536"},
        {padded(objects, "{}", " /* {[,: */ // '{[,:\n"), ""},
        {padded(objects + 1, "{}", R"(,"q":'"')"),
         "message refused: 65 objects and arrays, the limit is 64"},
        {padded(elements, "0"), ""},
        {padded(elements + 1, "0", R"( /* " */)"),
         "message refused: 2049 commas and colons, the limit is 2048"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.first.substr(get.size(), 40));
        bridge.replies.clear();
        const Lines out = handle(c.first);
        if (c.second.empty()) {
            EXPECT_EQ(bridge.replies, Lines{reply("gain", "-255")});
        } else {
            EXPECT_EQ(out, (Lines{kHandle, c.second}));
            EXPECT_TRUE(bridge.replies.empty());
            handle(get + "}");
            EXPECT_EQ(bridge.replies, Lines{reply("gain", "-255")});
        }
    }
}

// Strings and comments end where json-c's default reading ends them, quirks included: the
// json-c we build with reads each text as counted (its own writing of it has the same shape).
TEST(MessageShape, StringsAndCommentsEndWhereJsonCEndsThem) {
    const std::pair<std::string, std::pair<size_t, size_t>> cases[] = {
        // text, objects and arrays, separators
        {R"({"a":"it's // {[,:",'b':'"{[,:\"','c':"'"})", {1, 5}},
        {"[1, // \"{[,:\r [,\n 2]", {1, 1}},
        {"/* **/ [ */ [1,/***/[2] */ 3]", {1, 1}},
        {"[1,/**/[2],/*/ [ */ 3]", {2, 2}}};
    for (const auto& c : cases) {
        json_object* root = json_tokener_parse(c.first.c_str());
        for (const std::string& text : {c.first, std::string(json_object_to_json_string(root))}) {
            const uvc_client::MessageShape shape = uvc_client::messageShape(text);
            EXPECT_EQ(std::make_pair(shape.containers, shape.separators), c.second)
                << text << " read from " << c.first;
        }
        json_object_put(root);
    }
}

// The value of a member named Password is printed as "*", whatever the
// message; the Android log and the base log never see it either. A set of
// Password carries it in "value", which every set of the message reads.
TEST_F(UvcCamMsgHandlerTest, PasswordValueIsNeverPrinted) {
    const std::string secret = "hunter2";
    volut_test::DefaultServerCapture base;  // the base log, written to the Android log
    std::string printed;
    for (const std::string& message :
         {report(R"({"Password":"hunter2","gain":"get","preset":"apply","presetID":1})"),
          report(R"({"Password":"get"})"),
          report(R"({"Password":"set","gain":"set","value":"hunter2"})"),
          report(R"({"x":{"Password":"hunter2"},"Password":["hunter2"]})"),
          std::string(R"({"msg_type":"other","content":{"Password":"hunter2"}})"),
          std::string(R"({"type":0,"param":1,"Password":"hunter2"})"),
          std::string(R"({"Password":"hunter2"})"), report(R"({"Password":"hunter2")"),
          std::string(R"({"Password":"hunter2)"), report(R"({"Password":"set","value":"hunter2")"),
          report(R"({"Password":"hunter2","pad":")" + std::string(70000, ' ') + R"("})")}) {
        for (const std::string& line : handle(message)) {
            printed += line + "\n";
        }
    }
    const auto logged = base.untilMarker();
    EXPECT_EQ(std::string::npos, printed.find(secret)) << printed;
    for (const char* masked : {"content val = [*]\n", "==== key, val = [Password: *]\n",
                               "==== Get value for [*]\n", "==== Set value for [*: *]\n",
                               "==== Set value for [set: *]\n", "==== key, val = [value: *]\n"})
        EXPECT_TRUE(volut_test::Has(printed, masked));
    for (const auto& record : base.capture().records()) {
        EXPECT_EQ(std::string::npos, record.text.find(secret)) << record.text;
    }
    EXPECT_EQ(3u, logged.size());  // one per text that does not parse
}
