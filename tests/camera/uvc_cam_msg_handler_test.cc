#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CameraTestSupport.h"
#include "RecordingBridge.h"
#include "camera/UvcCamMsgHandler.h"

using camera_test::lines;
using camera_test::RecordingBridge;
using camera_test::StdoutCapture;
using camera_test::TableGuard;
using Lines = std::vector<std::string>;

namespace {

class UvcCamMsgHandlerTest : public ::testing::Test {
protected:
    // Handles one message and returns the printed lines.
    Lines handle(const std::string& message) {
        StdoutCapture capture;
        handler.handleMessage(message, bridge);
        return lines(capture.finish());
    }
    std::string reply(const std::string& name, const std::string& value) {
        return R"({ "source": "app", "response": { ")" + name + R"(": ")" + value + R"(" } })";
    }
    void TearDown() override { EXPECT_TRUE(bridge.wrongOverload.empty()); }

    TableGuard guard;
    RecordingBridge bridge;
    uvc_client::UvcCamMsgHandler handler;
};

}  // namespace

// ---- report messages: "get" -------------------------------------------------

TEST_F(UvcCamMsgHandlerTest, GetOnFreshTableRepliesMinus255) {
    Lines out = handle(R"({"msg_type":"uvc_report","content":{"brightness":"get"}})");
    EXPECT_EQ(
        out, (Lines{"Handle message: handleMessage", "msg_type = [uvc_report]",
                    "content key = [brightness]", "content val = [get]", "==== Get value for [get]",
                    "<sent 0>", "content key = [brightness]", "content val = [get]"}));
    EXPECT_EQ(bridge.replies, (Lines{reply("brightness", "-255")}));
}

TEST_F(UvcCamMsgHandlerTest, TwoGetsReplyTwiceInKeyOrder) {
    handle(R"({"msg_type":"uvc_report","content":{"hue":"get","gain":"get"}})");
    EXPECT_EQ(bridge.replies, (Lines{reply("gain", "-255"), reply("hue", "-255")}));
}

TEST_F(UvcCamMsgHandlerTest, EachReplyIsSentBeforeTheNextEntry) {
    // The reply goes out while the entry is handled, before the next entry's
    // lines and before the second listing.
    Lines out = handle(R"({"msg_type":"uvc_report","content":{"aeMode":"get","gain":"4"}})");
    Lines expected{"Handle message: handleMessage",
                   "msg_type = [uvc_report]",
                   "content key = [aeMode]",
                   "content val = [get]",
                   "==== Get value for [get]",
                   "<sent 0>",
                   "content key = [gain]",
                   "content val = [4]",
                   "==== key, val = [gain: 4]",
                   "content key = [aeMode]",
                   "content val = [get]",
                   "content key = [gain]",
                   "content val = [4]"};
    EXPECT_EQ(out, expected);
    EXPECT_EQ(guard.row("gain").cur, 4);
}

TEST_F(UvcCamMsgHandlerTest, GetOfUnknownNameRepliesMinus1) {
    Lines out = handle(R"({"msg_type":"uvc_report","content":{"nope":"get"}})");
    EXPECT_EQ(out[4], "no setting named: [nope]");
    EXPECT_EQ(out[5], "==== Get value for [get]");
    EXPECT_EQ(bridge.replies, (Lines{reply("nope", "-1")}));
}

TEST_F(UvcCamMsgHandlerTest, GetIsTestedBeforePresetKeys) {
    handle(R"({"msg_type":"uvc_report","content":{"preset":"get","presetID":"get"}})");
    EXPECT_EQ(bridge.replies, (Lines{reply("preset", "-1"), reply("presetID", "-1")}));
}

// ---- report messages: writes --------------------------------------------------

TEST_F(UvcCamMsgHandlerTest, SetTakesValueMemberAndValueIsThenAPlainWrite) {
    Lines out = handle(R"({"msg_type":"uvc_report","content":{"brightness":"set","value":"40"}})");
    Lines expected{"Handle message: handleMessage",
                   "msg_type = [uvc_report]",
                   "content key = [brightness]",
                   "content val = [set]",
                   "==== Set value for [set: 40]",
                   "content key = [value]",
                   "content val = [40]",
                   "==== key, val = [value: 40]",
                   "no setting named: [value]",
                   "content key = [brightness]",
                   "content val = [set]",
                   "content key = [value]",
                   "content val = [40]"};
    EXPECT_EQ(out, expected);
    EXPECT_EQ(guard.row("brightness").cur, 40);
    EXPECT_TRUE(bridge.replies.empty());
}

TEST_F(UvcCamMsgHandlerTest, SetWithoutValueMemberWritesZero) {
    handle(R"({"msg_type":"uvc_report","content":{"zoomAbs":"set"}})");
    EXPECT_EQ(guard.row("zoomAbs").cur, 0);
    // A numeric "value" is not text either.
    guard.row("zoomAbs").cur = 7;
    handle(R"({"msg_type":"uvc_report","content":{"zoomAbs":"set","value":300}})");
    EXPECT_EQ(guard.row("zoomAbs").cur, 0);
}

TEST_F(UvcCamMsgHandlerTest, SetThenGetReturnsTheNewValue) {
    handle(R"({"msg_type":"uvc_report","content":{"brightness":"set","value":"77"}})");
    handle(R"({"msg_type":"uvc_report","content":{"brightness":"get"}})");
    EXPECT_EQ(bridge.replies, (Lines{reply("brightness", "77")}));
}

TEST_F(UvcCamMsgHandlerTest, StringValueWritesButJsonNumberWritesZero) {
    Lines out = handle(R"({"msg_type":"uvc_report","content":{"gain":"9"}})");
    EXPECT_EQ(out[4], "==== key, val = [gain: 9]");
    EXPECT_EQ(guard.row("gain").cur, 9);
    out = handle(R"({"msg_type":"uvc_report","content":{"gain":9}})");
    EXPECT_EQ(out[3], "content val = []");
    EXPECT_EQ(out[4], "==== key, val = [gain: ]");
    EXPECT_EQ(guard.row("gain").cur, 0);
    handle(R"({"msg_type":"uvc_report","content":{"gain":"12abc","pan":"-3600"}})");
    EXPECT_EQ(guard.row("gain").cur, 12);
    EXPECT_EQ(guard.row("pan").cur, -3600);
    EXPECT_TRUE(bridge.replies.empty());
}

TEST_F(UvcCamMsgHandlerTest, NamesAreStoredNamesAndCaseSensitive) {
    Lines out = handle(R"({"msg_type":"uvc_report","content":{"BRIGHTNESS":"5","tile":"6"}})");
    EXPECT_EQ(out[5], "no setting named: [BRIGHTNESS]");
    EXPECT_EQ(guard.row("brightness").cur, -255);
    EXPECT_EQ(guard.row("tile").cur, 6);
}

// ---- report messages: presets -------------------------------------------------

TEST_F(UvcCamMsgHandlerTest, PresetRunsOncePerPresetMember) {
    Lines out = handle(R"({"msg_type":"uvc_report","content":{"presetID":2,"preset":"apply"}})");
    // Strings come before integers in key order.
    Lines expected{"Handle message: handleMessage", "msg_type = [uvc_report]",
                   "content key = [preset]",        "content val = [apply]",
                   "==== Preset Op [apply: 2]",     "apply op [apply] on preset id: [2]",
                   "content key = [presetID]",      "content val = []",
                   "==== Preset Op [apply: 2]",     "apply op [apply] on preset id: [2]",
                   "content key = [preset]",        "content val = [apply]",
                   "content key = [presetID]",      "content val = []"};
    EXPECT_EQ(out, expected);
    EXPECT_TRUE(bridge.replies.empty());
}

TEST_F(UvcCamMsgHandlerTest, PresetIdBeyondIntIsNarrowedButPrintedInFull) {
    Lines out =
        handle(R"({"msg_type":"uvc_report","content":{"preset":"save","presetID":4294967298}})");
    EXPECT_EQ(out[4], "==== Preset Op [save: 4294967298]");
    EXPECT_EQ(out[5], "apply op [save] on preset id: [2]");
    // A missing or non-integer presetID reads as 0.
    out = handle(R"({"msg_type":"uvc_report","content":{"preset":"recall","presetID":"3"}})");
    EXPECT_EQ(out[4], "==== Preset Op [recall: 0]");
    EXPECT_EQ(out[5], "apply op [recall] on preset id: [0]");
}

// ---- report messages that do nothing -----------------------------------------

TEST_F(UvcCamMsgHandlerTest, WrongCaseTypeOrMissingContentPrintsNoContent) {
    const Lines noContent{"Handle message: handleMessage", "msg_type = [UVC_REPORT]", "No content"};
    EXPECT_EQ(handle(R"({"msg_type":"UVC_REPORT","content":{"brightness":"1"}})"), noContent);
    EXPECT_EQ(handle(R"({"msg_type":"uvc_report"})"),
              (Lines{"Handle message: handleMessage", "msg_type = [uvc_report]", "No content"}));
    // A non-string msg_type reads as empty text.
    EXPECT_EQ(handle(R"({"msg_type":1,"content":{"brightness":"1"}})"),
              (Lines{"Handle message: handleMessage", "msg_type = []", "No content"}));
    EXPECT_EQ(guard.row("brightness").cur, -255);
    EXPECT_TRUE(bridge.replies.empty());
}

TEST_F(UvcCamMsgHandlerTest, ContentThatIsNotAnObjectHandlesNothing) {
    const Lines header{"Handle message: handleMessage", "msg_type = [uvc_report]"};
    EXPECT_EQ(handle(R"({"msg_type":"uvc_report","content":"brightness"})"), header);
    EXPECT_EQ(handle(R"({"msg_type":"uvc_report","content":["brightness","get"]})"), header);
    EXPECT_EQ(handle(R"({"msg_type":"uvc_report","content":7})"), header);
    EXPECT_EQ(handle(R"({"msg_type":"uvc_report","content":{}})"), header);
    // null is dropped by the parser, so content is then absent.
    EXPECT_EQ(handle(R"({"msg_type":"uvc_report","content":null})"),
              (Lines{"Handle message: handleMessage", "msg_type = [uvc_report]", "No content"}));
    EXPECT_TRUE(bridge.replies.empty());
}

TEST_F(UvcCamMsgHandlerTest, MsgTypeWinsOverType) {
    Lines out = handle(R"({"type":1,"param":1,"value":50,"msg_type":"uvc_report","content":{}})");
    EXPECT_EQ(out, (Lines{"Handle message: handleMessage", "msg_type = [uvc_report]"}));
}

// ---- parameter messages --------------------------------------------------------

TEST_F(UvcCamMsgHandlerTest, ParamMessageOnlyAcknowledges) {
    Lines out = handle(R"({"type":"uvc","param":1,"value":50,"value2":0})");
    EXPECT_EQ(out, (Lines{"Handle message: handleMessage", "handleMessage: handle param message",
                          "type = [1] | value = [50] | value2 = [0]",
                          "Set the camera parameter: setCamParam"}));
    EXPECT_EQ(guard.row("brightness").cur, -255);
    EXPECT_EQ(guard.row("brightness").cur2, -255);
    EXPECT_TRUE(bridge.replies.empty());
}

TEST_F(UvcCamMsgHandlerTest, ParamMembersAbsentReadMinus1) {
    Lines out = handle(R"({"type":null,"value2":null})");
    // "type":null is dropped by the parser: no member, so not a parameter message.
    EXPECT_EQ(out, (Lines{"Handle message: handleMessage", "===== No known msg"}));
    out = handle(R"({"type":{}})");
    EXPECT_EQ(out[2], "type = [-1] | value = [-1] | value2 = [-1]");
    out = handle(R"({"type":0,"value2":null})");
    EXPECT_EQ(out[2], "type = [-1] | value = [-1] | value2 = [-1]");
}

TEST_F(UvcCamMsgHandlerTest, ParamMembersOfOtherKindsReadZero) {
    Lines out = handle(R"({"type":0,"param":"1","value":2.5,"value2":true})");
    EXPECT_EQ(out[2], "type = [0] | value = [0] | value2 = [0]");
    out = handle(R"({"type":0,"param":[1],"value":{"v":1},"value2":-7})");
    EXPECT_EQ(out[2], "type = [0] | value = [0] | value2 = [-7]");
}

TEST_F(UvcCamMsgHandlerTest, ParamNumbersBeyondIntArePrintedInFull) {
    Lines out = handle(
        R"({"type":0,"param":9223372036854775807,"value":-9223372036854775808,"value2":4294967297})");
    EXPECT_EQ(out[2],
              "type = [9223372036854775807] | value = [-9223372036854775808] | value2 = "
              "[4294967297]");
    EXPECT_EQ(out[3], "Set the camera parameter: setCamParam");
}

// ---- neither form --------------------------------------------------------------

TEST_F(UvcCamMsgHandlerTest, UnknownFormsPrintNoKnownMsg) {
    const Lines unknown{"Handle message: handleMessage", "===== No known msg"};
    EXPECT_EQ(handle("{}"), unknown);
    EXPECT_EQ(handle(R"({"Type":1,"MSG_TYPE":"uvc_report"})"), unknown);
    EXPECT_EQ(handle("[{\"type\":1}]"), unknown);
    EXPECT_EQ(handle("\"msg_type\""), unknown);
    EXPECT_EQ(handle("42"), unknown);
    EXPECT_EQ(handle(""), unknown);
    EXPECT_EQ(handle("not json"), unknown);
    EXPECT_EQ(handle(R"({"msg_type":"uvc_report","content":{"brightness":"get"})"), unknown);
    EXPECT_TRUE(bridge.replies.empty());
    EXPECT_EQ(guard.row("brightness").cur, -255);
}

// ---- hostile input -------------------------------------------------------------

TEST_F(UvcCamMsgHandlerTest, NulInsideJsonStringsCutsTheText) {
    handle(R"({"msg_type":"uvc_report","content":{"gain":"4\u00005"}})");
    EXPECT_EQ(guard.row("gain").cur, 4);
    handle(R"({"msg_type":"uvc_report","content":{"hue\u0000xyz":"get"}})");
    EXPECT_EQ(bridge.replies, (Lines{reply("hue", "-255")}));
    // A raw NUL byte ends the text the parser sees.
    Lines out = handle(std::string("{\"type\":1}\0{\"msg_type\":1}", 25));
    EXPECT_EQ(out[1], "handleMessage: handle param message");
}

TEST_F(UvcCamMsgHandlerTest, DeepNestingIsRejectedOrHandledWithoutHarm) {
    // Far beyond what the parser accepts: treated as text that is not JSON.
    std::string deep = R"({"msg_type":"uvc_report","content":{"gain":)";
    for (int i = 0; i < 100000; ++i) {
        deep += "[";
    }
    Lines out = handle(deep);
    EXPECT_EQ(out, (Lines{"Handle message: handleMessage", "===== No known msg"}));

    // Nesting the parser accepts: the nested value is not text, so it writes 0.
    std::string nested = R"({"msg_type":"uvc_report","content":{"gain":)";
    for (int i = 0; i < 20; ++i) {
        nested += R"({"a":)";
    }
    nested += "1";
    for (int i = 0; i < 20; ++i) {
        nested += "}";
    }
    nested += "}}";
    guard.row("gain").cur = 3;
    out = handle(nested);
    EXPECT_EQ(out[4], "==== key, val = [gain: ]");
    EXPECT_EQ(guard.row("gain").cur, 0);
}

TEST_F(UvcCamMsgHandlerTest, HugeStringsAreHandled) {
    const std::string bigName(1 << 20, 'n');
    const std::string bigValue = "123" + std::string(1 << 20, '9');
    handle(R"({"msg_type":"uvc_report","content":{")" + bigName + R"(":"get","gain":")" + bigValue +
           R"("}})");
    EXPECT_EQ(bridge.replies, (Lines{reply(bigName, "-1")}));
    EXPECT_EQ(guard.row("gain").cur, 2147483647);  // clamped, not overflowed
}

TEST_F(UvcCamMsgHandlerTest, RepliesEscapeHostileNames) {
    handle(R"({"msg_type":"uvc_report","content":{"a\"b\\c\/d\n":"get"}})");
    EXPECT_EQ(bridge.replies,
              (Lines{R"({ "source": "app", "response": { "a\"b\\c\/d\n": "-1" } })"}));
}
