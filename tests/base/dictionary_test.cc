#include "base/Dictionary.h"

#include <gtest/gtest.h>

#include <type_traits>

using VOLUT::Dictionary;

namespace {

// One key of every kind, with keys chosen so that byte order and kind order
// disagree.
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

TEST(DictionaryTest, ValueTypeNumbering) {
    EXPECT_EQ(0, Dictionary::None);
    EXPECT_EQ(1, Dictionary::Integer);
    EXPECT_EQ(2, Dictionary::String);
    EXPECT_EQ(3, Dictionary::Decimal);
    EXPECT_EQ(4, Dictionary::Boolean);
    EXPECT_EQ(5, Dictionary::Object);
    EXPECT_EQ(6, Dictionary::IntegerArray);
    EXPECT_EQ(7, Dictionary::StringArray);
    EXPECT_EQ(8, Dictionary::DecimalArray);
    EXPECT_EQ(9, Dictionary::BooleanArray);
    EXPECT_EQ(10, Dictionary::ObjectArray);
    EXPECT_TRUE(std::has_virtual_destructor<Dictionary>::value);
}

TEST(DictionaryTest, EveryKindReportsItsTypeAndValue) {
    Dictionary d = everyKind();
    EXPECT_EQ(10u, d.size());
    EXPECT_EQ(Dictionary::ObjectArray, d.getType("a_objs"));
    EXPECT_EQ(Dictionary::BooleanArray, d.getType("b_bools"));
    EXPECT_EQ(Dictionary::DecimalArray, d.getType("c_decs"));
    EXPECT_EQ(Dictionary::IntegerArray, d.getType("d_ints"));
    EXPECT_EQ(Dictionary::StringArray, d.getType("e_strs"));
    EXPECT_EQ(Dictionary::Object, d.getType("f_obj"));
    EXPECT_EQ(Dictionary::Boolean, d.getType("g_bool"));
    EXPECT_EQ(Dictionary::Decimal, d.getType("h_dec"));
    EXPECT_EQ(Dictionary::Integer, d.getType("i_int"));
    EXPECT_EQ(Dictionary::String, d.getType("j_str"));
    EXPECT_EQ(Dictionary::None, d.getType("missing"));

    ASSERT_EQ(2u, d.getObjectArray("a_objs").size());
    EXPECT_EQ(7, d.getObjectArray("a_objs")[0].getInteger("n"));
    EXPECT_EQ(0u, d.getObjectArray("a_objs")[1].size());
    EXPECT_EQ((std::vector<long double>{0.5L, -1.25L}), d.getDecimalArray("c_decs"));
    EXPECT_EQ((std::vector<long long>{1, -2, 3}), d.getIntegerArray("d_ints"));
    EXPECT_EQ((std::vector<std::string>{"x", ""}), d.getStringArray("e_strs"));
    EXPECT_EQ(7, d.getObject("f_obj").getInteger("n"));
    EXPECT_TRUE(d.getBoolean("g_bool"));
    EXPECT_EQ(2.5L, d.getDecimal("h_dec"));
    EXPECT_EQ(-9, d.getInteger("i_int"));
    EXPECT_EQ("text", d.getString("j_str"));
}

TEST(DictionaryTest, GettersOfAnotherKindGiveDefaults) {
    Dictionary d = everyKind();
    // No conversion between kinds, not even integer and decimal.
    EXPECT_EQ(0, d.getInteger("h_dec"));
    EXPECT_EQ(0.0L, d.getDecimal("i_int"));
    EXPECT_EQ("", d.getString("i_int"));
    EXPECT_FALSE(d.getBoolean("i_int"));
    EXPECT_EQ(0u, d.getObject("i_int").size());
    EXPECT_TRUE(d.getIntegerArray("c_decs").empty());
    EXPECT_TRUE(d.getStringArray("d_ints").empty());
    EXPECT_TRUE(d.getDecimalArray("d_ints").empty());
    EXPECT_TRUE(d.getBooleanArray("d_ints").empty());
    EXPECT_TRUE(d.getObjectArray("f_obj").empty());
    EXPECT_EQ(0u, d.getObject("absent").size());
}

TEST(DictionaryTest, SettingAnotherKindReplacesTheKey) {
    Dictionary d;
    d.setInteger("k", 5);
    d.setString("k", "x");
    EXPECT_EQ(Dictionary::String, d.getType("k"));
    EXPECT_EQ(0, d.getInteger("k"));
    EXPECT_EQ("x", d.getString("k"));
    EXPECT_EQ(1u, d.size());
    EXPECT_EQ(std::vector<std::string>{"k"}, d.allKeys());

    // Walk the key through every kind; it must never be in two maps at once.
    d.setIntegerArray("k", {1});
    d.setObjectArray("k", {Dictionary()});
    d.setBooleanArray("k", {false});
    d.setDecimal("k", 1.5L);
    d.setStringArray("k", {"s"});
    d.setDecimalArray("k", {2.5L});
    d.setObject("k", Dictionary());
    d.setBoolean("k", false);
    EXPECT_EQ(1u, d.size());
    EXPECT_EQ(Dictionary::Boolean, d.getType("k"));
    EXPECT_TRUE(d.getDecimalArray("k").empty());

    d.setBoolean("k", true);
    EXPECT_EQ(1u, d.size());
    EXPECT_TRUE(d.getBoolean("k"));
}

TEST(DictionaryTest, AllKeysGroupsByKindThenByteOrder) {
    Dictionary d;
    d.setString("beta", "b");
    d.setInteger("alpha", 1);
    d.setBoolean("gamma", true);
    EXPECT_EQ((std::vector<std::string>{"beta", "alpha", "gamma"}), d.allKeys());

    // Declaration order of the maps: string arrays before integer arrays,
    // although their type numbers run the other way.
    EXPECT_EQ((std::vector<std::string>{"j_str", "i_int", "h_dec", "g_bool", "f_obj", "e_strs",
                                        "d_ints", "c_decs", "b_bools", "a_objs"}),
              everyKind().allKeys());

    Dictionary bytes;
    bytes.setInteger("b", 1);
    bytes.setInteger("B", 1);
    bytes.setInteger("ab", 1);
    bytes.setInteger("a", 1);
    bytes.setInteger("", 1);
    bytes.setInteger("\xc3\xa9", 1);  // high bytes sort after ASCII
    EXPECT_EQ((std::vector<std::string>{"", "B", "a", "ab", "b", "\xc3\xa9"}), bytes.allKeys());
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
    EXPECT_TRUE(d.hasKey("a_objs"));

    std::vector<std::string> keys = d.allKeys();
    d.clear();
    EXPECT_EQ(0u, d.size());
    EXPECT_TRUE(d.allKeys().empty());
    for (const auto& key : keys) {
        EXPECT_EQ(Dictionary::None, d.getType(key)) << key;
        EXPECT_FALSE(d.hasKey(key)) << key;
    }
}

TEST(DictionaryTest, CopiesAreDeepAndIndependent) {
    Dictionary inner;
    inner.setString("name", "in");
    Dictionary original;
    original.setObject("obj", inner);
    original.setObjectArray("list", {inner});

    Dictionary copy(original);
    Dictionary changed = copy.getObject("obj");
    changed.setString("name", "changed");
    copy.setObject("obj", changed);
    std::vector<Dictionary> list = copy.getObjectArray("list");
    list[0].setInteger("extra", 1);
    copy.setObjectArray("list", list);

    EXPECT_EQ("in", original.getObject("obj").getString("name"));
    EXPECT_EQ(1u, original.getObjectArray("list")[0].size());
    EXPECT_EQ("changed", copy.getObject("obj").getString("name"));

    // Values handed out are copies too.
    Dictionary out = original.getObject("obj");
    out.clear();
    EXPECT_EQ(1u, original.getObject("obj").size());

    // The source given to a setter stays the caller's.
    inner.setString("name", "later");
    EXPECT_EQ("in", original.getObject("obj").getString("name"));

    Dictionary assigned;
    assigned.setInteger("old", 1);
    assigned = original;
    EXPECT_FALSE(assigned.hasKey("old"));
    EXPECT_EQ(original.allKeys(), assigned.allKeys());
    original.clear();
    EXPECT_EQ("in", assigned.getObject("obj").getString("name"));
}

TEST(DictionaryTest, SelfAssignmentAndSelfNesting) {
    Dictionary d = everyKind();
    Dictionary& alias = d;
    d = alias;
    EXPECT_EQ(10u, d.size());
    EXPECT_EQ(7, d.getObject("f_obj").getInteger("n"));

    // Storing a record inside itself stores a snapshot taken before the key
    // was removed, so the tree stays finite.
    d.setObject("f_obj", d);
    EXPECT_EQ(10u, d.size());
    Dictionary snapshot = d.getObject("f_obj");
    EXPECT_EQ(10u, snapshot.size());
    EXPECT_EQ(7, snapshot.getObject("f_obj").getInteger("n"));
}

TEST(DictionaryTest, BooleanArraysKeepLengthAndOrder) {
    Dictionary d;
    std::vector<bool> bits;
    for (int i = 0; i < 67; ++i) {
        bits.push_back(i % 3 == 0);
    }
    d.setBooleanArray("bits", bits);
    EXPECT_EQ(bits, d.getBooleanArray("bits"));
    d.setBooleanArray("none", {});
    EXPECT_EQ(Dictionary::BooleanArray, d.getType("none"));
    EXPECT_TRUE(d.getBooleanArray("none").empty());
}
