#include "base/Serialization.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "log_test_support.h"

using VOLUT::Dictionary;
using VOLUT::Serialization;

namespace {

const long long kMax = std::numeric_limits<long long>::max();

Dictionary parse(const std::string& text) {
    return Serialization::deserialize(text);
}

Dictionary everyKind() {
    Dictionary leaf;
    leaf.setString("name", "leaf");
    leaf.setDecimalArray("w", {0.25L});
    Dictionary inner;
    inner.setObject("leaf", leaf);
    inner.setInteger("n", 3);
    Dictionary d;
    d.setString("str", "text \"quoted\"");
    d.setString("a_str", "");
    d.setInteger("int", -42);
    d.setInteger("big", kMax);
    d.setDecimal("dec", 2.5L);
    d.setDecimal("whole", 1.0L);
    d.setBoolean("flag", false);
    d.setObject("obj", inner);
    d.setStringArray("strs", {"x", "y"});
    d.setIntegerArray("ints", {1, -2});
    d.setDecimalArray("decs", {0.5L, 3.0L});
    d.setBooleanArray("bools", {true, false, true});
    d.setObjectArray("objs", {leaf, Dictionary(), inner});
    return d;
}

// json-c's default (spaced) form of everyKind(): members in allKeys() order.
const char kEveryKindText[] =
    "{ \"a_str\": \"\", \"str\": \"text \\\"quoted\\\"\", \"big\": 9223372036854775807, "
    "\"int\": -42, \"dec\": 2.5, \"whole\": 1.0, \"flag\": false, "
    "\"obj\": { \"n\": 3, \"leaf\": { \"name\": \"leaf\", \"w\": [ 0.25 ] } }, "
    "\"strs\": [ \"x\", \"y\" ], \"ints\": [ 1, -2 ], \"decs\": [ 0.5, 3.0 ], "
    "\"bools\": [ true, false, true ], \"objs\": [ { \"name\": \"leaf\", \"w\": [ 0.25 ] }, "
    "{ }, { \"n\": 3, \"leaf\": { \"name\": \"leaf\", \"w\": [ 0.25 ] } } ] }";

}  // namespace

TEST(SerializationWrite, MembersFollowKindGroupsThenByteOrder) {
    Dictionary d;
    d.setString("z", "s");
    d.setInteger("a", 1);
    EXPECT_EQ("{ \"z\": \"s\", \"a\": 1 }", Serialization::serialize(d));
    EXPECT_EQ(kEveryKindText, Serialization::serialize(everyKind()));
    Dictionary empties;
    empties.setIntegerArray("i", {});
    empties.setObject("o", Dictionary());
    EXPECT_EQ("{ \"o\": { }, \"i\": [ ] }", Serialization::serialize(empties));
    EXPECT_EQ("[ ]", Serialization::serializeArray({}));
    EXPECT_EQ("[ { \"z\": \"s\", \"a\": 1 }, { } ]", Serialization::serializeArray({d, {}}));
}

TEST(SerializationRead, NumbersFollowJsonCsTypes) {
    Dictionary d = parse(R"({"p": 1, "q": 2.5, "r": true, "s": "x", "whole": 1.0,
        "exp": 1e2, "over": 18446744073709551616, "under": -9223372036854775809, "huge": 1e400})");
    EXPECT_EQ(1, d.getInteger("p"));
    EXPECT_EQ(2.5L, d.getDecimal("q"));
    EXPECT_TRUE(d.getBoolean("r"));
    EXPECT_EQ("x", d.getString("s"));
    // A fraction or exponent makes a decimal; out-of-range integers stay
    // integers, clamped by json-c.
    EXPECT_EQ(Dictionary::Decimal, d.getType("whole"));
    EXPECT_EQ(100.0L, d.getDecimal("exp"));
    EXPECT_EQ(kMax, d.getInteger("over"));
    EXPECT_EQ(std::numeric_limits<long long>::min(), d.getInteger("under"));
    EXPECT_TRUE(std::isinf(d.getDecimal("huge")));
    EXPECT_EQ(9u, d.size());
}

TEST(SerializationRead, ArraysTakeTheKindOfTheFirstElementAndDropTheRest) {
    Dictionary d = parse(R"({"ints": [1, 2.5, 3], "decs": [2.5, 1, 0.5],
        "bools": [true, 1, null, false, "x"], "strs": ["a", null, 2, "b", {}],
        "objs": [{"k": 1}, 1, null, [], {"k": 2}, "s"]})");
    EXPECT_EQ((std::vector<long long>{1, 3}), d.getIntegerArray("ints"));
    EXPECT_EQ((std::vector<long double>{2.5L, 0.5L}), d.getDecimalArray("decs"));
    EXPECT_EQ((std::vector<bool>{true, false}), d.getBooleanArray("bools"));
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), d.getStringArray("strs"));
    auto objs = d.getObjectArray("objs");
    ASSERT_EQ(2u, objs.size());
    EXPECT_EQ(2, objs[1].getInteger("k"));

    // Unrepresentable values are left out; the last duplicate wins.
    d = parse(R"({"empty": [], "nothing": null, "nullfirst": [null, 1],
        "nested": [[1], [2]], "kept": 5, "emptyobj": {}, "dup": 1, "dup": "two"})");
    EXPECT_EQ((std::vector<std::string>{"dup", "kept", "emptyobj"}), d.allKeys());
    EXPECT_EQ("two", d.getString("dup"));
    // Texts end at the first NUL, escaped or raw.
    d = parse(R"({"s": "a\u0000b", "k\u0000z": 1, "l": ["x\u0000y", "\u0000"]})");
    EXPECT_EQ("a", d.getString("s"));
    EXPECT_EQ(1, d.getInteger("k"));
    EXPECT_EQ((std::vector<std::string>{"x", ""}), d.getStringArray("l"));
    EXPECT_EQ(1, parse(std::string("{\"a\":1}\0garbage", 15)).getInteger("a"));
}

TEST(SerializationRoundTrip, EveryKindSurvivesExceptEmptyArrays) {
    Dictionary d = everyKind();
    d.setStringArray("e1", {});
    d.setObjectArray("e2", {});
    Dictionary back = parse(Serialization::serialize(d));
    EXPECT_FALSE(back.hasKey("e1"));
    EXPECT_FALSE(back.hasKey("e2"));
    EXPECT_EQ(kEveryKindText, Serialization::serialize(back));
    EXPECT_EQ(everyKind().allKeys(), back.allKeys());

    // Decimals travel as doubles.
    Dictionary dec;
    dec.setDecimal("tenth", 0.1L);
    dec.setDecimal("widest", -std::numeric_limits<long double>::max());
    dec.setDecimal("inf", std::numeric_limits<long double>::infinity());
    back = parse(Serialization::serialize(dec));
    EXPECT_TRUE(std::isinf(back.getDecimal("inf")));
    EXPECT_EQ(-HUGE_VALL, back.getDecimal("widest"));
    EXPECT_EQ(static_cast<long double>(0.1), back.getDecimal("tenth"));
}

TEST(SerializationArray, ReadsOnlyArraysOfObjects) {
    auto list = Serialization::deserializeArray(R"([{"a": 1}, null, {"b": "x"}])");
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ("x", list[1].getString("b"));
    // Other elements contribute empty records.
    list = Serialization::deserializeArray(R"([1, [], {"c": true}])");
    ASSERT_EQ(3u, list.size());
    EXPECT_EQ(0u, list[0].size());
    EXPECT_TRUE(list[2].getBoolean("c"));
    list = Serialization::deserializeArray(Serialization::serializeArray({everyKind(), {}}));
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ(kEveryKindText, Serialization::serialize(list[0]));
    for (const char* text : {"{\"a\": 1}", "[", "", "[]"})
        EXPECT_TRUE(Serialization::deserializeArray(text).empty()) << text;
}

TEST(SerializationHostile, DeepLargeAndMalformedInput) {
    auto nested = [](int depth) {
        std::string t;
        for (int i = 0; i < depth; ++i)
            t += "{\"d\":";
        return t + "1" + std::string(depth, '}');
    };
    // json-c allows 32 levels, the innermost scalar counting as one; deeper
    // text fails as a whole, so our recursion stays bounded.
    Dictionary d = parse(nested(31));
    int depth = 1;
    for (; d.getType("d") == Dictionary::Object; ++depth)
        d = d.getObject("d");
    EXPECT_EQ(31, depth);
    EXPECT_EQ(0u, parse(nested(32)).size());
    EXPECT_EQ(0u, parse(nested(100000)).size());
    EXPECT_TRUE(Serialization::deserializeArray(std::string(100000, '[')).empty());
    for (const char* text : {"", "{", "{\"a\" 1}", "\xff\xfe", "{\"a\":tru}", "[1,]", "[1, 2]",
                             "42", "\"s\"", "null", "{}"})
        EXPECT_EQ(0u, parse(text).size()) << text;
}

TEST(SerializationConcurrency, ParallelCallsAreIndependent) {
    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&mismatches] {
            for (int i = 0; i < 200; ++i)
                mismatches += Serialization::serialize(parse(kEveryKindText)) != kEveryKindText;
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(0, mismatches);
}

TEST(PasswordMask, MasksTheValueAfterTheFirstKeyText) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"Password":"s3cret","user":"u"})", R"({"Password":"*","user":"u"})"},
        {R"({"Password":"a","Password":"b"})", R"({"Password":"*","Password":"b"})"},
        {R"({"Password":""})", R"({"Password":"*"})"},
        {R"({"Password":"a\\\"b\\"})", R"({"Password":"*"})"},     // escaped quote belongs to it
        {R"({"Password":"s3cret, user: 1)", R"({"Password":"*)"},  // no closing quote
        {R"({"Password":"ab\")", R"({"Password":"*)"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.second, VOLUT::maskPasswordValue(c.first)) << c.first;
    // Unchanged: nothing follows the key text, or no exact key text.
    for (const char* text : {R"({"Password":")", "", R"({"password":"x"})", R"({"Password": "x"})"})
        EXPECT_EQ(text, VOLUT::maskPasswordValue(text));
}

TEST(SerializationLog, OneErrorLinePerFailedParseWithoutTheRejectedText) {
    volut_test::DefaultServerCapture cap;
    VOLUT::Log::setLogLevel(VOLUT::LOG_DEBUG);
    EXPECT_EQ(0u, Serialization::deserialize("{\"a\": ").size());
    auto lines = cap.untilMarker();
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ(6, lines[0].priority);
    const std::string tail = "[E][VOLUT] - JSON parsing error\n";
    ASSERT_GE(lines[0].text.size(), tail.size());
    EXPECT_EQ(tail, lines[0].text.substr(lines[0].text.size() - tail.size()));

    cap.capture().clear();
    const std::string secret = "hunter2-Zq9";
    Serialization::deserialize("");
    Serialization::deserialize(std::string(100000, '['));
    Serialization::deserialize("{\"User\":\"u\",\"Password\":\"" + secret + "\",");
    Serialization::deserialize("{\"Password\":\"" + secret);
    EXPECT_EQ(4u, cap.untilMarker().size());
    for (const auto& record : cap.capture().records()) {
        EXPECT_EQ(std::string::npos, record.text.find(secret)) << record.text;
        EXPECT_EQ(std::string::npos, record.text.find("Password")) << record.text;
    }

    // Other failures stay silent.
    cap.capture().clear();
    EXPECT_TRUE(Serialization::deserializeArray("{\"a\": ").empty());
    EXPECT_TRUE(Serialization::deserializeArray("{\"a\": 1}").empty());
    EXPECT_EQ(0u, Serialization::deserialize("[1, 2]").size());
    EXPECT_EQ(1u, Serialization::deserialize("{\"n\": null, \"e\": [], \"x\": 1}").size());
    EXPECT_TRUE(cap.untilMarker().empty());
}
