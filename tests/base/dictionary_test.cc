#include "base/Dictionary.h"

#include <gtest/gtest.h>

#include <type_traits>

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

TEST(DictionaryTest, KindsTypeNumbersAndKeyOrder) {
    Dictionary d = everyKind();
    EXPECT_EQ(10u, d.size());
    // Type numbers differ from the map order: String is 2, IntegerArray 6.
    const std::pair<const char*, int> kinds[] = {
        {"i_int", 1},  {"j_str", 2},  {"h_dec", 3},   {"g_bool", 4},  {"f_obj", 5}, {"d_ints", 6},
        {"e_strs", 7}, {"c_decs", 8}, {"b_bools", 9}, {"a_objs", 10}, {"none", 0}};
    for (const auto& kind : kinds) {
        EXPECT_EQ(kind.second, d.getType(kind.first)) << kind.first;
    }
    EXPECT_EQ(Dictionary::IntegerArray, 6);
    EXPECT_EQ(Dictionary::StringArray, 7);
    // Grouped by map (strings first, string arrays before integer arrays).
    EXPECT_EQ((std::vector<std::string>{"j_str", "i_int", "h_dec", "g_bool", "f_obj", "e_strs",
                                        "d_ints", "c_decs", "b_bools", "a_objs"}),
              d.allKeys());

    Dictionary small;
    small.setString("beta", "b");
    small.setInteger("alpha", 1);
    small.setBoolean("gamma", true);
    small.setInteger("B", 1);
    small.setInteger("\xc3\xa9", 1);  // byte-wise: high bytes after ASCII
    small.setInteger("", 1);
    EXPECT_EQ((std::vector<std::string>{"beta", "", "B", "alpha", "\xc3\xa9", "gamma"}),
              small.allKeys());
    EXPECT_TRUE(std::has_virtual_destructor<Dictionary>::value);
}

TEST(DictionaryTest, GettersReadOnlyTheirOwnKind) {
    Dictionary d = everyKind();
    EXPECT_EQ(7, d.getObjectArray("a_objs")[0].getInteger("n"));
    EXPECT_EQ((std::vector<long double>{0.5L, -1.25L}), d.getDecimalArray("c_decs"));
    EXPECT_EQ((std::vector<std::string>{"x", ""}), d.getStringArray("e_strs"));
    EXPECT_EQ(2.5L, d.getDecimal("h_dec"));
    // No conversion, not even between integer and decimal.
    EXPECT_EQ(0, d.getInteger("h_dec"));
    EXPECT_EQ(0.0L, d.getDecimal("i_int"));
    EXPECT_EQ("", d.getString("i_int"));
    EXPECT_FALSE(d.getBoolean("i_int"));
    EXPECT_TRUE(d.getIntegerArray("c_decs").empty());
    EXPECT_TRUE(d.getObjectArray("f_obj").empty());
    EXPECT_EQ(0u, d.getObject("absent").size());
}

TEST(DictionaryTest, SettingAnotherKindMovesTheKey) {
    Dictionary d;
    d.setInteger("k", 5);
    d.setString("k", "x");
    EXPECT_EQ(Dictionary::String, d.getType("k"));
    EXPECT_EQ(0, d.getInteger("k"));
    EXPECT_EQ(1u, d.size());

    // Through every kind: the key must never sit in two maps.
    d.setIntegerArray("k", {1});
    d.setObjectArray("k", {Dictionary()});
    d.setBooleanArray("k", {false});
    d.setDecimal("k", 1.5L);
    d.setStringArray("k", {"s"});
    d.setDecimalArray("k", {2.5L});
    d.setObject("k", Dictionary());
    d.setBoolean("k", true);
    EXPECT_EQ(1u, d.size());
    EXPECT_EQ(std::vector<std::string>{"k"}, d.allKeys());
    EXPECT_TRUE(d.getBoolean("k"));
}

TEST(DictionaryTest, EraseAndClear) {
    Dictionary d = everyKind();
    d.erase("absent");
    d.eraseOriginalValue("absent");
    EXPECT_EQ(10u, d.size());
    d.erase("f_obj");
    d.eraseOriginalValue("d_ints");
    EXPECT_EQ(8u, d.size());
    EXPECT_FALSE(d.hasKey("f_obj"));
    EXPECT_FALSE(d.hasKey("d_ints"));

    std::vector<std::string> keys = d.allKeys();
    d.clear();
    EXPECT_EQ(0u, d.size());
    for (const auto& key : keys) {
        EXPECT_EQ(Dictionary::None, d.getType(key)) << key;
    }
}

TEST(DictionaryTest, CopiesAreDeepAndIndependent) {
    Dictionary inner;
    inner.setString("name", "in");
    Dictionary original;
    original.setObject("obj", inner);
    original.setObjectArray("list", {inner});
    inner.setString("name", "later");  // the stored value is a copy

    Dictionary copy(original);
    Dictionary changed = copy.getObject("obj");
    changed.setString("name", "changed");
    copy.setObject("obj", changed);
    std::vector<Dictionary> list = copy.getObjectArray("list");
    list[0].setInteger("extra", 1);
    copy.setObjectArray("list", list);
    EXPECT_EQ("in", original.getObject("obj").getString("name"));
    EXPECT_EQ(1u, original.getObjectArray("list")[0].size());

    Dictionary assigned;
    assigned.setInteger("old", 1);
    assigned = original;
    EXPECT_FALSE(assigned.hasKey("old"));
    original.clear();
    EXPECT_EQ("in", assigned.getObject("obj").getString("name"));
}

TEST(DictionaryTest, SelfAssignmentAndSelfNesting) {
    Dictionary d = everyKind();
    Dictionary& alias = d;
    d = alias;
    EXPECT_EQ(10u, d.size());
    EXPECT_EQ(7, d.getObject("f_obj").getInteger("n"));

    // The stored snapshot is taken before the key is removed.
    d.setObject("f_obj", d);
    EXPECT_EQ(10u, d.getObject("f_obj").size());
    EXPECT_EQ(7, d.getObject("f_obj").getObject("f_obj").getInteger("n"));
}

TEST(DictionaryTest, BooleanArraysKeepLengthAndOrder) {
    std::vector<bool> bits;
    for (int i = 0; i < 67; ++i) {
        bits.push_back(i % 3 == 0);
    }
    Dictionary d;
    d.setBooleanArray("bits", bits);
    d.setBooleanArray("none", {});
    EXPECT_EQ(bits, d.getBooleanArray("bits"));
    EXPECT_EQ(Dictionary::BooleanArray, d.getType("none"));
}
