#include "base/Dictionary.h"

#include <gtest/gtest.h>

using VOLUT::Dictionary;

namespace {

// One key of every kind; byte order of the keys runs against kind order.
Dictionary everyKind() {
    Dictionary nested;
    nested.setInteger("n", 7);
    Dictionary d;
    d.setObjectArray("a_objs", {nested, Dictionary()});
    d.setBooleanArray("b_bools", {true, false, true});
    d.setDecimalArray("c_decs", {0.5L, -1.25L});
    d.setIntegerArray("d_ints", {1, -2, 3});
    d.setStringArray("e_strs", {"x", ""});
    d.setObject("f_obj", nested);
    d.setBoolean("g_bool", true);
    d.setDecimal("h_dec", 2.5L);
    d.setInteger("i_int", -9);
    d.setString("j_str", "text");
    return d;
}

}  // namespace

TEST(DictionaryTest, TypeNumbersAndKeyOrder) {
    Dictionary d = everyKind();
    // Type numbers differ from the map order: String is 2, IntegerArray 6.
    const std::pair<const char*, int> kinds[] = {
        {"i_int", 1},  {"j_str", 2},  {"h_dec", 3},   {"g_bool", 4},  {"f_obj", 5}, {"d_ints", 6},
        {"e_strs", 7}, {"c_decs", 8}, {"b_bools", 9}, {"a_objs", 10}, {"none", 0}};
    for (const auto& kind : kinds)
        EXPECT_EQ(kind.second, d.getType(kind.first)) << kind.first;
    // Grouped by map (strings first, string arrays before integer arrays),
    // then byte-wise: "" first, upper case before lower, high bytes last.
    EXPECT_EQ((std::vector<std::string>{"j_str", "i_int", "h_dec", "g_bool", "f_obj", "e_strs",
                                        "d_ints", "c_decs", "b_bools", "a_objs"}),
              d.allKeys());
    Dictionary small;
    small.setString("beta", "b");
    small.setBoolean("gamma", true);
    for (const char* key : {"alpha", "B", "\xc3\xa9", ""})
        small.setInteger(key, 1);
    EXPECT_EQ((std::vector<std::string>{"beta", "", "B", "alpha", "\xc3\xa9", "gamma"}),
              small.allKeys());
}

TEST(DictionaryTest, GettersReadOnlyTheirOwnKind) {
    Dictionary d = everyKind();
    EXPECT_EQ(7, d.getObjectArray("a_objs")[0].getInteger("n"));
    EXPECT_EQ((std::vector<long double>{0.5L, -1.25L}), d.getDecimalArray("c_decs"));
    // No conversion, not even between integer and decimal.
    EXPECT_EQ(0, d.getInteger("h_dec"));
    EXPECT_EQ(0.0L, d.getDecimal("i_int"));
    EXPECT_EQ("", d.getString("i_int"));
    EXPECT_FALSE(d.getBoolean("i_int"));
    EXPECT_TRUE(d.getIntegerArray("c_decs").empty());
    EXPECT_TRUE(d.getObjectArray("f_obj").empty());
    EXPECT_EQ(0u, d.getObject("absent").size());
    // Boolean arrays keep length and order past a machine word.
    std::vector<bool> bits;
    for (int i = 0; i < 67; ++i)
        bits.push_back(i % 3 == 0);
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
    EXPECT_EQ(1u, d.size());

    d = everyKind();
    d.erase("absent");
    d.eraseOriginalValue("absent");
    d.erase("f_obj");
    d.eraseOriginalValue("d_ints");
    EXPECT_EQ(8u, d.size());
    EXPECT_FALSE(d.hasKey("f_obj") || d.hasKey("d_ints"));
    std::vector<std::string> keys = d.allKeys();
    d.clear();
    EXPECT_EQ(0u, d.size());
    for (const auto& key : keys)
        EXPECT_EQ(Dictionary::None, d.getType(key)) << key;
}

TEST(DictionaryTest, CopiesAreDeepAndSelfUseIsSafe) {
    Dictionary original = everyKind();
    Dictionary copy(original);
    Dictionary changed = copy.getObject("f_obj");
    changed.setInteger("n", 8);
    copy.setObject("f_obj", changed);
    std::vector<Dictionary> list = copy.getObjectArray("a_objs");
    list[0].setInteger("extra", 1);
    copy.setObjectArray("a_objs", list);
    EXPECT_EQ(7, original.getObject("f_obj").getInteger("n"));
    EXPECT_EQ(1u, original.getObjectArray("a_objs")[0].size());
    Dictionary assigned;
    assigned.setInteger("old", 1);
    assigned = original;
    EXPECT_FALSE(assigned.hasKey("old"));
    original.clear();
    EXPECT_EQ(7, assigned.getObject("f_obj").getInteger("n"));

    Dictionary& alias = assigned;
    assigned = alias;
    EXPECT_EQ(10u, assigned.size());
    // The stored snapshot is taken before the key is removed.
    assigned.setObject("f_obj", assigned);
    EXPECT_EQ(10u, assigned.getObject("f_obj").size());
    EXPECT_EQ(7, assigned.getObject("f_obj").getObject("f_obj").getInteger("n"));
}
