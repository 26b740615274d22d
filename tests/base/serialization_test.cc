#include "base/Serialization.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

using VOLUT::Dictionary;
using VOLUT::Serialization;

namespace {

Dictionary parse(const std::string& text) {
    return Serialization::deserialize(text);
}

std::string nested(int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) {
        text += "{\"d\":";
    }
    text += "1";
    text.append(depth, '}');
    return text;
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
    d.setInteger("big", std::numeric_limits<long long>::max());
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

// Same keys, kinds and values, recursively.
void expectSame(const Dictionary& want, const Dictionary& got, const std::string& path = "") {
    ASSERT_EQ(want.allKeys(), got.allKeys()) << path;
    for (const auto& key : want.allKeys()) {
        const std::string where = path + "/" + key;
        ASSERT_EQ(want.getType(key), got.getType(key)) << where;
        EXPECT_EQ(want.getInteger(key), got.getInteger(key)) << where;
        EXPECT_EQ(want.getString(key), got.getString(key)) << where;
        EXPECT_EQ(want.getDecimal(key), got.getDecimal(key)) << where;
        EXPECT_EQ(want.getBoolean(key), got.getBoolean(key)) << where;
        EXPECT_EQ(want.getIntegerArray(key), got.getIntegerArray(key)) << where;
        EXPECT_EQ(want.getStringArray(key), got.getStringArray(key)) << where;
        EXPECT_EQ(want.getDecimalArray(key), got.getDecimalArray(key)) << where;
        EXPECT_EQ(want.getBooleanArray(key), got.getBooleanArray(key)) << where;
        expectSame(want.getObject(key), got.getObject(key), where);
        auto wantList = want.getObjectArray(key);
        auto gotList = got.getObjectArray(key);
        ASSERT_EQ(wantList.size(), gotList.size()) << where;
        for (size_t i = 0; i < wantList.size(); ++i) {
            expectSame(wantList[i], gotList[i], where + "[" + std::to_string(i) + "]");
        }
    }
}

}  // namespace

TEST(SerializationWrite, MembersFollowKindGroupsThenByteOrder) {
    Dictionary d;
    d.setString("z", "s");
    d.setInteger("a", 1);
    EXPECT_EQ("{ \"z\": \"s\", \"a\": 1 }", Serialization::serialize(d));

    EXPECT_EQ(
        "{ \"a_str\": \"\", \"str\": \"text \\\"quoted\\\"\", "
        "\"big\": 9223372036854775807, \"int\": -42, "
        "\"dec\": 2.5, \"whole\": 1.0, "
        "\"flag\": false, "
        "\"obj\": { \"n\": 3, \"leaf\": { \"name\": \"leaf\", \"w\": [ 0.25 ] } }, "
        "\"strs\": [ \"x\", \"y\" ], "
        "\"ints\": [ 1, -2 ], "
        "\"decs\": [ 0.5, 3.0 ], "
        "\"bools\": [ true, false, true ], "
        "\"objs\": [ { \"name\": \"leaf\", \"w\": [ 0.25 ] }, { }, "
        "{ \"n\": 3, \"leaf\": { \"name\": \"leaf\", \"w\": [ 0.25 ] } } ] }",
        Serialization::serialize(everyKind()));
}

TEST(SerializationWrite, EmptyValuesAndArrays) {
    EXPECT_EQ("{ }", Serialization::serialize(Dictionary()));
    Dictionary d;
    d.setIntegerArray("i", {});
    d.setObject("o", Dictionary());
    d.setObjectArray("l", {});
    EXPECT_EQ("{ \"o\": { }, \"i\": [ ], \"l\": [ ] }", Serialization::serialize(d));

    EXPECT_EQ("[ ]", Serialization::serializeArray({}));
    Dictionary one;
    one.setBoolean("b", true);
    EXPECT_EQ("[ { \"b\": true }, { } ]", Serialization::serializeArray({one, Dictionary()}));
}

TEST(SerializationRead, ScalarsFollowJsonTypes) {
    Dictionary d = parse(R"({"p": 1, "q": 2.5, "r": true, "s": "x", "t": false})");
    EXPECT_EQ(5u, d.size());
    EXPECT_EQ(Dictionary::Integer, d.getType("p"));
    EXPECT_EQ(1, d.getInteger("p"));
    EXPECT_EQ(Dictionary::Decimal, d.getType("q"));
    EXPECT_EQ(2.5L, d.getDecimal("q"));
    EXPECT_EQ(Dictionary::Boolean, d.getType("r"));
    EXPECT_TRUE(d.getBoolean("r"));
    EXPECT_EQ(Dictionary::String, d.getType("s"));
    EXPECT_EQ("x", d.getString("s"));
    EXPECT_EQ(Dictionary::Boolean, d.getType("t"));
    EXPECT_FALSE(d.getBoolean("t"));
}

TEST(SerializationRead, IntegerOrDecimalIsJsonCsDecision) {
    Dictionary d = parse(R"({"whole": 1.0, "exp": 1e2, "negzero": -0, "frac": 0.1,
        "max": 9223372036854775807, "over": 9223372036854775808,
        "way_over": 18446744073709551616, "under": -9223372036854775809,
        "huge": 1e400})");
    EXPECT_EQ(Dictionary::Decimal, d.getType("whole"));
    EXPECT_EQ(1.0L, d.getDecimal("whole"));
    EXPECT_EQ(Dictionary::Decimal, d.getType("exp"));
    EXPECT_EQ(100.0L, d.getDecimal("exp"));
    EXPECT_EQ(Dictionary::Integer, d.getType("negzero"));
    EXPECT_EQ(static_cast<long double>(0.1), d.getDecimal("frac"));
    EXPECT_EQ(std::numeric_limits<long long>::max(), d.getInteger("max"));
    // Out-of-range integers stay integers, clamped by json-c.
    EXPECT_EQ(Dictionary::Integer, d.getType("over"));
    EXPECT_EQ(std::numeric_limits<long long>::max(), d.getInteger("over"));
    EXPECT_EQ(std::numeric_limits<long long>::max(), d.getInteger("way_over"));
    EXPECT_EQ(std::numeric_limits<long long>::min(), d.getInteger("under"));
    EXPECT_EQ(Dictionary::Decimal, d.getType("huge"));
    EXPECT_TRUE(std::isinf(d.getDecimal("huge")));
}

TEST(SerializationRead, ArraysTakeTheKindOfTheFirstElement) {
    Dictionary d = parse(R"({"ints": [1, 2.5, 3], "decs": [2.5, 1, 0.5],
        "bools": [true, 1, null, false, "x"], "strs": ["a", null, 2, "b", {}],
        "objs": [{"k": 1}, 1, null, [], {"k": 2}, "s"], "one": [7]})");
    EXPECT_EQ(Dictionary::IntegerArray, d.getType("ints"));
    EXPECT_EQ((std::vector<long long>{1, 3}), d.getIntegerArray("ints"));
    EXPECT_EQ(Dictionary::DecimalArray, d.getType("decs"));
    EXPECT_EQ((std::vector<long double>{2.5L, 0.5L}), d.getDecimalArray("decs"));
    EXPECT_EQ((std::vector<bool>{true, false}), d.getBooleanArray("bools"));
    EXPECT_EQ((std::vector<std::string>{"a", "b"}), d.getStringArray("strs"));
    auto objs = d.getObjectArray("objs");
    ASSERT_EQ(2u, objs.size());
    EXPECT_EQ(1, objs[0].getInteger("k"));
    EXPECT_EQ(2, objs[1].getInteger("k"));
    EXPECT_EQ((std::vector<long long>{7}), d.getIntegerArray("one"));
}

TEST(SerializationRead, UnrepresentableMembersAreLeftOut) {
    Dictionary d = parse(R"({"empty": [], "nothing": null, "nullfirst": [null, 1],
        "nested": [[1], [2]], "kept": 5, "emptyobj": {}})");
    for (const char* key : {"empty", "nothing", "nullfirst", "nested"}) {
        EXPECT_FALSE(d.hasKey(key)) << key;
        EXPECT_EQ(Dictionary::None, d.getType(key)) << key;
    }
    EXPECT_EQ(5, d.getInteger("kept"));
    // An empty object is still an object.
    EXPECT_EQ(Dictionary::Object, d.getType("emptyobj"));
    EXPECT_EQ(2u, d.size());
}

TEST(SerializationRead, NonObjectTopLevelGivesEmptyRecord) {
    for (const char* text : {"[1, 2]", "42", "\"s\"", "true", "null", "{}"}) {
        EXPECT_EQ(0u, parse(text).size()) << text;
    }
}

TEST(SerializationRead, TextsEndAtTheFirstNul) {
    Dictionary d =
        parse(R"({"s": "a\u0000b", "k\u0000z": 1, "l": ["x\u0000y", "\u0000"], "n": "\u0000"})");
    EXPECT_EQ("a", d.getString("s"));
    EXPECT_EQ(1, d.getInteger("k"));
    EXPECT_FALSE(d.hasKey(std::string("k\0z", 3)));
    EXPECT_EQ((std::vector<std::string>{"x", ""}), d.getStringArray("l"));
    EXPECT_EQ(Dictionary::String, d.getType("n"));
    EXPECT_EQ("", d.getString("n"));
    EXPECT_EQ(4u, d.size());

    // A raw NUL in the text ends the input that json-c sees.
    EXPECT_EQ(1, parse(std::string("{\"a\":1}\0garbage", 15)).getInteger("a"));
}

TEST(SerializationRead, DuplicateKeysKeepTheLastValue) {
    Dictionary d = parse(R"({"a": 1, "a": "two"})");
    EXPECT_EQ(1u, d.size());
    EXPECT_EQ("two", d.getString("a"));
}

TEST(SerializationRoundTrip, EveryKindWithNestedObjects) {
    Dictionary original = everyKind();
    Dictionary back = parse(Serialization::serialize(original));
    expectSame(original, back);
    EXPECT_EQ(Serialization::serialize(original), Serialization::serialize(back));
}

TEST(SerializationRoundTrip, EmptyArraysDisappear) {
    Dictionary original = everyKind();
    original.setIntegerArray("e1", {});
    original.setStringArray("e2", {});
    original.setDecimalArray("e3", {});
    original.setBooleanArray("e4", {});
    original.setObjectArray("e5", {});
    Dictionary back = parse(Serialization::serialize(original));
    for (const char* key : {"e1", "e2", "e3", "e4", "e5"}) {
        EXPECT_FALSE(back.hasKey(key)) << key;
        original.erase(key);
    }
    expectSame(original, back);
}

TEST(SerializationRoundTrip, DecimalsTravelAsDoubles) {
    Dictionary d;
    d.setDecimal("tenth", 0.1L);
    d.setDecimal("inf", std::numeric_limits<long double>::infinity());
    d.setDecimal("tiny", 5e-324L);
    Dictionary back = parse(Serialization::serialize(d));
    EXPECT_EQ(static_cast<long double>(0.1), back.getDecimal("tenth"));
    EXPECT_TRUE(std::isinf(back.getDecimal("inf")));
    EXPECT_EQ(static_cast<long double>(5e-324), back.getDecimal("tiny"));
}

TEST(SerializationArray, ReadsOnlyArraysOfRecords) {
    auto list = Serialization::deserializeArray(R"([{"a": 1}, null, {"b": "x"}])");
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ(1, list[0].getInteger("a"));
    EXPECT_EQ("x", list[1].getString("b"));

    // Non-object elements contribute empty records.
    list = Serialization::deserializeArray(R"([1, "s", [], {"c": true}])");
    ASSERT_EQ(4u, list.size());
    EXPECT_EQ(0u, list[0].size());
    EXPECT_EQ(0u, list[2].size());
    EXPECT_TRUE(list[3].getBoolean("c"));

    EXPECT_TRUE(Serialization::deserializeArray("{\"a\": 1}").empty());
    EXPECT_TRUE(Serialization::deserializeArray("[").empty());
    EXPECT_TRUE(Serialization::deserializeArray("").empty());
    EXPECT_TRUE(Serialization::deserializeArray("[]").empty());

    std::vector<Dictionary> records = {everyKind(), Dictionary(), everyKind()};
    auto back = Serialization::deserializeArray(Serialization::serializeArray(records));
    ASSERT_EQ(3u, back.size());
    expectSame(records[0], back[0]);
    EXPECT_EQ(0u, back[1].size());
}

TEST(SerializationHostile, NestingBeyondTheParserLimitIsRejected) {
    // json-c's tokener allows 32 levels, the innermost scalar counting as
    // one; deeper text fails as a whole.
    Dictionary d = parse(nested(31));
    int depth = 1;
    while (d.getType("d") == Dictionary::Object) {
        d = d.getObject("d");
        ++depth;
    }
    EXPECT_EQ(31, depth);
    EXPECT_EQ(1, d.getInteger("d"));
    EXPECT_EQ(0u, parse(nested(32)).size());
    EXPECT_EQ(0u, parse(nested(100000)).size());
    EXPECT_TRUE(Serialization::deserializeArray("[" + nested(100000) + "]").empty());
    EXPECT_TRUE(Serialization::deserializeArray(std::string(100000, '[')).empty());
}

TEST(SerializationHostile, LargeValuesSurvive) {
    std::string big(4 << 20, 'x');
    big[1000] = '"';
    big[2000] = '\\';
    Dictionary d;
    d.setString("big", big);
    std::vector<long long> many(100000);
    for (size_t i = 0; i < many.size(); ++i) {
        many[i] = static_cast<long long>(i) * 3;
    }
    d.setIntegerArray("many", many);
    Dictionary back = parse(Serialization::serialize(d));
    EXPECT_EQ(big, back.getString("big"));
    EXPECT_EQ(many, back.getIntegerArray("many"));
}

TEST(SerializationHostile, MalformedTextGivesEmptyRecords) {
    for (const char* text : {"", "{", "{\"a\":", "{\"a\" 1}", "\xff\xfe", "{\"a\":tru}",
                             "{\"a\":\"\\ud800\"", "[1,]"}) {
        EXPECT_EQ(0u, parse(text).size()) << text;
    }
}

TEST(SerializationConcurrency, ParallelCallsAreIndependent) {
    const std::string text = Serialization::serialize(everyKind());
    std::vector<std::thread> threads;
    std::vector<int> mismatches(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 200; ++i) {
                if (Serialization::serialize(parse(text)) != text) {
                    ++mismatches[t];
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0}), mismatches);
}

TEST(PasswordMask, ReplacesTheValueUpToTheClosingQuote) {
    using VOLUT::maskPasswordValue;
    EXPECT_EQ(R"({"Password":"*","user":"u"})",
              maskPasswordValue(R"({"Password":"s3cret","user":"u"})"));
    // Only the first occurrence is masked.
    EXPECT_EQ(R"({"Password":"*","Password":"b"})",
              maskPasswordValue(R"({"Password":"a","Password":"b"})"));
    // An empty value still shows as one asterisk, hiding that it was empty.
    EXPECT_EQ(R"({"Password":"*"})", maskPasswordValue(R"({"Password":""})"));
    // An escaped quote is inside the value, not its end.
    EXPECT_EQ(R"({"Password":"*"})", maskPasswordValue(R"({"Password":"ab\"cd"})"));
    EXPECT_EQ(R"({"Password":"*"})", maskPasswordValue(R"({"Password":"ab\\\"cd\\"})"));
}

TEST(PasswordMask, MissingClosingQuoteOrKeyAtTheEnd) {
    using VOLUT::maskPasswordValue;
    EXPECT_EQ(R"({"Password":"*)", maskPasswordValue(R"({"Password":"s3cret, user: 1)"));
    EXPECT_EQ(R"({"Password":"*)", maskPasswordValue(R"({"Password":"ab\")"));
    EXPECT_EQ(R"({"Password":")", maskPasswordValue(R"({"Password":")"));
    EXPECT_EQ(R"(Password":")", maskPasswordValue(R"(Password":")"));
    EXPECT_EQ("", maskPasswordValue(""));
    // Other spellings are not the key text and stay as they are.
    for (const char* text : {R"({"password":"x"})", R"({"Password": "x"})", R"({"Password":1})"}) {
        EXPECT_EQ(text, maskPasswordValue(text));
    }
}
