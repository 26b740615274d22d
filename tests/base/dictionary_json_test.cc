#include <gtest/gtest.h>

#include <atomic>
#include <cfloat>
#include <cmath>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "base/Serialization.h"
#include "log_test_support.h"

using VOLUT::Dictionary;
using VOLUT::Serialization;

namespace {

const long long kMax = std::numeric_limits<long long>::max();

Dictionary parse(const std::string& text) {
    return Serialization::deserialize(text);
}

// One key of every kind, nested three deep; byte order of the keys runs
// against kind order.
Dictionary everyKind() {
    Dictionary leaf;
    leaf.setDecimalArray("w", {0.25L});
    Dictionary nested;
    nested.setObject("leaf", leaf);
    nested.setInteger("n", 7);
    Dictionary d;
    d.setObjectArray("a_objs", {nested, Dictionary()});
    d.setBooleanArray("b_bools", {true, false, true});
    d.setDecimalArray("c_decs", {0.5L, -1.25L});
    d.setIntegerArray("d_ints", {1, -2, 3});
    d.setStringArray("e_strs", {"x", ""});
    d.setObject("f_obj", nested);
    d.setBoolean("g_bool", true);
    d.setDecimal("h_dec", 1.0L);
    d.setInteger("i_int", kMax);
    d.setString("j_str", "text \"quoted\"");
    return d;
}

// json-c's default (spaced) form of everyKind(): members in allKeys() order.
const char kEveryKindText[] =
    "{ \"j_str\": \"text \\\"quoted\\\"\", \"i_int\": 9223372036854775807, \"h_dec\": 1.0, "
    "\"g_bool\": true, \"f_obj\": { \"n\": 7, \"leaf\": { \"w\": [ 0.25 ] } }, "
    "\"e_strs\": [ \"x\", \"\" ], \"d_ints\": [ 1, -2, 3 ], \"c_decs\": [ 0.5, -1.25 ], "
    "\"b_bools\": [ true, false, true ], "
    "\"a_objs\": [ { \"n\": 7, \"leaf\": { \"w\": [ 0.25 ] } }, { } ] }";

}  // namespace

TEST(DictionaryTest, TypeNumbersAndGettersOfOneKindOnly) {
    Dictionary d = everyKind();
    // Type numbers differ from the map order: String is 2, IntegerArray 6.
    const std::pair<const char*, int> kinds[] = {
        {"i_int", 1},  {"j_str", 2},  {"h_dec", 3},   {"g_bool", 4},  {"f_obj", 5}, {"d_ints", 6},
        {"e_strs", 7}, {"c_decs", 8}, {"b_bools", 9}, {"a_objs", 10}, {"none", 0}};
    for (const auto& kind : kinds)
        EXPECT_EQ(kind.second, d.getType(kind.first)) << kind.first;
    // Getters read only their own kind: no conversion, not even between numbers.
    EXPECT_EQ(0, d.getInteger("h_dec"));
    EXPECT_EQ(0.0L, d.getDecimal("i_int"));
    EXPECT_TRUE(d.getIntegerArray("c_decs").empty());
    std::vector<bool> bits(67);  // length and order past a machine word
    for (size_t i = 0; i < bits.size(); i += 3)
        bits[i] = true;
    d.setBooleanArray("bits", bits);
    EXPECT_EQ(bits, d.getBooleanArray("bits"));
}

TEST(DictionaryTest, KeyLivesInOneKindOnlyAndEraseAndClear) {
    Dictionary d;
    d.setInteger("k", 5);
    d.setString("k", "x");
    EXPECT_EQ(Dictionary::String, d.getType("k"));
    EXPECT_EQ(0, d.getInteger("k"));
    // Through every kind: the key must never sit in two maps.
    d.setIntegerArray("k", {1});
    d.setObjectArray("k", {Dictionary()});
    d.setBooleanArray("k", {false});
    d.setDecimal("k", 1.5L);
    d.setStringArray("k", {"s"});
    d.setDecimalArray("k", {2.5L});
    d.setObject("k", Dictionary());
    d.setBoolean("k", true);
    EXPECT_EQ(std::vector<std::string>{"k"}, d.allKeys());

    d = everyKind();
    d.erase("absent");
    d.eraseOriginalValue("absent");
    d.erase("f_obj");
    d.eraseOriginalValue("d_ints");
    EXPECT_EQ(8u, d.size());
    EXPECT_FALSE(d.hasKey("f_obj") || d.hasKey("d_ints"));
    d.clear();
    EXPECT_EQ(0u, d.size());
}

// Assignment is written out map by map; it must replace every one of them.
TEST(DictionaryTest, AssignmentReplacesEveryKindAndSelfUseIsSafe) {
    Dictionary original = everyKind();
    Dictionary assigned;
    assigned.setInteger("old", 1);
    assigned = original;
    original.clear();
    EXPECT_EQ(kEveryKindText, Serialization::serialize(assigned));

    Dictionary& alias = assigned;
    assigned = alias;
    EXPECT_EQ(kEveryKindText, Serialization::serialize(assigned));
    // The stored snapshot is taken before the key is removed.
    assigned.setObject("f_obj", assigned);
    EXPECT_EQ(10u, assigned.getObject("f_obj").size());
    EXPECT_EQ(7, assigned.getObject("f_obj").getObject("f_obj").getInteger("n"));
}

// The order of members is pinned by kEveryKindText in the assignment test.
TEST(SerializationWrite, EmptyValuesAndLists) {
    Dictionary empties;
    empties.setIntegerArray("i", {});
    empties.setObject("o", Dictionary());
    EXPECT_EQ("{ \"o\": { }, \"i\": [ ] }", Serialization::serialize(empties));
    EXPECT_EQ("[ ]", Serialization::serializeArray({}));
    EXPECT_EQ("[ { \"o\": { }, \"i\": [ ] }, { } ]", Serialization::serializeArray({empties, {}}));
}

// Every kind read back is in the round trip below; these are json-c's own rules.
TEST(SerializationRead, JsonCsKindsArraysTakeTheFirstElementsAndTheRestIsDropped) {
    // A fraction or exponent makes a decimal.
    Dictionary d = parse(R"({"whole": 1.0, "exp": 1e2})");
    EXPECT_EQ(Dictionary::Decimal, d.getType("whole"));
    EXPECT_EQ(100.0L, d.getDecimal("exp"));

    d = parse(R"({"ints": [1, 2.5, 3], "decs": [2.5, 1, 0.5],
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
    EXPECT_EQ("{ \"s\": \"a\", \"k\": 1, \"l\": [ \"x\", \"\" ] }", Serialization::serialize(d));
    EXPECT_EQ(1, parse(std::string("{\"a\":1}\0garbage", 15)).getInteger("a"));
}

TEST(SerializationRoundTrip, EveryKindSurvivesExceptEmptyArrays) {
    Dictionary d = everyKind();
    d.setStringArray("e1", {});
    d.setObjectArray("e2", {});
    Dictionary back = parse(Serialization::serialize(d));
    EXPECT_FALSE(back.hasKey("e1") || back.hasKey("e2"));
    EXPECT_EQ(kEveryKindText, Serialization::serialize(back));
    // Decimals travel as doubles.
    Dictionary dec;
    dec.setDecimal("tenth", 0.1L);
    const long double widest = -std::numeric_limits<long double>::max();
    dec.setDecimal("widest", widest);
    dec.setDecimal("inf", std::numeric_limits<long double>::infinity());
    back = parse(Serialization::serialize(dec));
    EXPECT_TRUE(std::isinf(back.getDecimal("inf")));
    // Beyond the double range (only where long double is wider than double,
    // not on 32-bit Arm) is infinite; the widest double survives.
    EXPECT_EQ(widest < -DBL_MAX ? -HUGE_VALL : widest, back.getDecimal("widest"));
    EXPECT_EQ(static_cast<long double>(0.1), back.getDecimal("tenth"));

    // Arrays read only objects; other elements give empty records.
    auto list = Serialization::deserializeArray(Serialization::serializeArray({everyKind(), {}}));
    ASSERT_EQ(2u, list.size());
    EXPECT_EQ(kEveryKindText, Serialization::serialize(list[0]));
    list = Serialization::deserializeArray(R"([{"a": 1}, null, 1, [], {"b": "x"}])");
    ASSERT_EQ(4u, list.size());
    EXPECT_EQ(0u, list[1].size() + list[2].size());
    EXPECT_EQ("x", list[3].getString("b"));
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

TEST(PasswordMask, MasksTheValueAfterEveryKeyText) {
    const std::pair<const char*, const char*> cases[] = {
        {R"({"Password":"s3cret","user":"u"})", R"({"Password":"*","user":"u"})"},
        {R"({"Password":"a","Password":"b"})", R"({"Password":"*","Password":"*"})"},
        {R"([{"Password":"a"},{"x":{"Password":"b\"c"}},"Password":")",
         R"([{"Password":"*"},{"x":{"Password":"*"}},"Password":")"},  // the last has no value
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
    EXPECT_TRUE(volut_test::Has(cap.onlyLine(), "[E][VOLUT] - JSON parsing error\n"));

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
