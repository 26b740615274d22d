#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "CameraTestSupport.h"
#include "RecordingBridge.h"
#include "base/Dictionary.h"
#include "base/Serialization.h"
#include "camera/UvcCamMsgHandler.h"

using camera_test::RecordingBridge;
using camera_test::StdoutCapture;
using camera_test::TableGuard;

namespace {

const std::vector<std::string> kSeeds = {
    R"({"msg_type":"uvc_report","content":{"brightness":"get"}})",
    R"({"msg_type":"uvc_report","content":{"brightness":"set","value":"40"}})",
    R"({"msg_type":"uvc_report","content":{"preset":"apply","presetID":2}})",
    R"({"msg_type":"uvc_report","content":{"hue":"get","gain":"9","pan":-3600}})",
    R"({"type":1,"param":14,"value":3600,"value2":-3600})",
    R"({"msg_type":"uvc_report","content":{"a":[1,2.5,"x",null,{"b":[true]}],"c":{"d":{}}}})",
};

// Pieces that steer mutations towards the parser's and the handler's corners.
const std::vector<std::string> kTokens = {
    "{",
    "}",
    "[",
    "]",
    ":",
    ",",
    "\"",
    "\\u0000",
    "\\",
    "get",
    "set",
    "\"get\"",
    "\"set\"",
    "preset",
    "presetID",
    "value",
    "null",
    "1e9",
    "-0.5",
    "true",
    "99999999999999999999",
    "\"type\"",
    "\"msg_type\"",
    "\x00",
    "\xff",
    "\"content\"",
    "{\"a\":{\"b\":{\"c\":[[[[",
};

std::string mutate(std::string text, std::mt19937& rng) {
    auto pick = [&rng](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng); };
    const int rounds = 1 + static_cast<int>(pick(2));
    for (int i = 0; i < rounds; ++i) {
        const size_t at = text.empty() ? 0 : pick(text.size() + 1);
        switch (pick(6)) {
            case 0:  // flip a byte
                if (!text.empty()) {
                    text[pick(text.size())] = static_cast<char>(pick(256));
                }
                break;
            case 1:  // insert a token
                text.insert(at, kTokens[pick(kTokens.size())]);
                break;
            case 2:  // delete a span
                if (!text.empty()) {
                    text.erase(pick(text.size()), 1 + pick(8));
                }
                break;
            case 3:  // cut
                text.resize(at);
                break;
            case 4:  // duplicate a span
                if (!text.empty()) {
                    const size_t from = pick(text.size());
                    text.insert(at, text.substr(from, 1 + pick(16)));
                }
                break;
            default:  // splice in another seed
                text.insert(at, kSeeds[pick(kSeeds.size())]);
                break;
        }
    }
    return text;
}

// A well-formed message of random shape, so that most runs get past the
// parser and into the handler's branches.
std::string randomMessage(std::mt19937& rng) {
    auto pick = [&rng](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng); };
    static const std::vector<std::string> keys = {
        "brightness", "gain",     "hue",   "pan",        "tile", "persist.vendor.group_framing",
        "preset",     "presetID", "value", "BRIGHTNESS", "",     "x\"y",
        "nope"};
    static const std::vector<std::string> texts = {"get", "set",         "GET", "",     "12",
                                                   "-3",  "99999999999", "abc", "apply"};
    static const std::vector<long long> numbers = {
        0, 1, -1, 14, 2147483648LL, -2147483649LL, 9223372036854775807LL};
    VOLUT::Dictionary content;
    const size_t entries = pick(6);
    for (size_t i = 0; i < entries; ++i) {
        const std::string& key = keys[pick(keys.size())];
        switch (pick(5)) {
            case 0:
            case 1:
                content.setString(key, texts[pick(texts.size())]);
                break;
            case 2:
                content.setInteger(key, numbers[pick(numbers.size())]);
                break;
            case 3:
                content.setDecimal(key, 2.5);
                break;
            default: {
                VOLUT::Dictionary inner;
                inner.setString(key, "get");
                content.setObject(key, inner);
                break;
            }
        }
    }
    VOLUT::Dictionary message;
    switch (pick(4)) {
        case 0:
            message.setString("msg_type", "uvc_report");
            message.setObject("content", content);
            break;
        case 1:
            message.setString("msg_type", pick(2) ? "UVC_REPORT" : "uvc_report");
            if (pick(2)) {
                message.setString("content", "get");
            }
            break;
        case 2:
            message.setInteger("type", 0);
            for (const char* member : {"param", "value", "value2"}) {
                if (pick(3) == 0) {
                    message.setString(member, "1");
                } else if (pick(2)) {
                    message.setInteger(member, numbers[pick(numbers.size())]);
                }
            }
            break;
        default:
            message.setObject("content", content);
            break;
    }
    return VOLUT::Serialization::serialize(message);
}

}  // namespace

// Thousands of damaged messages from a fixed seed: none may crash, every reply
// must still be a well-formed report, and the table keeps its shape.
TEST(UvcCamMsgHandlerFuzz, MutatedMessagesAreHandledSafely) {
    TableGuard guard;
    RecordingBridge bridge;
    uvc_client::UvcCamMsgHandler handler;
    std::mt19937 rng(20261123);
    StdoutCapture quiet;
    for (int i = 0; i < 4000; ++i) {
        const std::string message =
            i % 2 == 0 ? randomMessage(rng) : mutate(kSeeds[i % kSeeds.size()], rng);
        handler.handleMessage(message, bridge);
    }
    quiet.finish();

    EXPECT_GT(bridge.replies.size(), 0u);
    for (const std::string& reply : bridge.replies) {
        VOLUT::Dictionary parsed = VOLUT::Serialization::deserialize(reply);
        ASSERT_EQ(parsed.size(), 2u) << reply;
        EXPECT_EQ(parsed.getString("source"), "app") << reply;
        EXPECT_EQ(parsed.getObject("response").size(), 1u) << reply;
    }
    EXPECT_TRUE(bridge.wrongOverload.empty());
    auto& table = uvc_client::CamSettingCollection::Instance();
    EXPECT_EQ(table.settingsByName.size(), 29u);
    EXPECT_EQ(table.settingsByCtrl.size(), 17u);
}
