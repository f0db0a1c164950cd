// ZVTString: null against empty, numbers as text, comparison with and without case, editing.

#include <climits>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "foundation/ZVTString.h"

namespace {

TEST(ZVTStringTest, NullAndEmptyAreBothNullButOnlyOneIsTheNullString) {
    const ZVTString nulls[] = {ZVTString(), ZVTString(static_cast<const char*>(nullptr)),
                               ZVTString::c_pcNull};
    const ZVTString empties[] = {ZVTString(""), ZVTString(std::string())};
    for (const ZVTString& s : nulls) {
        EXPECT_TRUE(s.IsNull() && s.IsNullString());
        EXPECT_EQ(static_cast<const char*>(s), ZVTString::c_pcNull);  // its text makes a null string again
    }
    for (const ZVTString& s : empties) {
        EXPECT_TRUE(s.IsNull());
        EXPECT_FALSE(s.IsNullString());
        EXPECT_FALSE(ZVTString(static_cast<const char*>(s)).IsNullString());
        EXPECT_TRUE(s == nulls[0] && s == static_cast<const char*>(nullptr));
        EXPECT_EQ(ZVTString::Hash(s), ZVTString::Hash(nulls[0]));
    }
}

TEST(ZVTStringTest, NumbersBecomeText) {
    const std::pair<ZVTString, const char*> cases[] = {
        {ZVTString(0, 10), "0"},
        {ZVTString(-42, 10), "-42"},
        {ZVTString(LONG_MIN, 10), "-9223372036854775808"},
        {ZVTString(255, 16), "ff"},
        {ZVTString(-5, 2), "-101"},
        {ZVTString(7, 99), "7"},  // an impossible radix counts as 10
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.first.str(), c.second);
    ZVTString assigned;
    assigned = -17L;
    EXPECT_EQ(assigned, "-17");
}

int Sign(int value) {
    return (value > 0) - (value < 0);
}

TEST(ZVTStringTest, CompareToOrdersBytesWithOrWithoutCase) {
    struct Case {
        const char* a;
        const char* b;
        int exact;
        int ignoringCase;
    };
    const Case cases[] = {
        {"abc", "abc", 0, 0}, {"abc", "ABC", 1, 0},  {"ABC", "abc", -1, 0},
        {"Z", "a", -1, 1},    {"ab", "abc", -1, -1}, {"\xe9", "z", 1, 1},  // bytes compare unsigned
        {"[", "a", -1, -1},  // no case folding outside the letters
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.a) + " vs " + c.b);
        EXPECT_EQ(Sign(ZVTString(c.a).compareTo(c.b)), c.exact);
        EXPECT_EQ(Sign(ZVTString(c.a).compareTo(c.b, ZVTString::ignoreCase)), c.ignoringCase);
        EXPECT_EQ(ZVTString(c.a) < ZVTString(c.b), c.exact < 0);
        EXPECT_EQ(ZVTString(c.a) == c.b, c.exact == 0);
        EXPECT_EQ(c.a != ZVTString(c.b), c.exact != 0);
    }
    EXPECT_NE(ZVTString::Hash("ab"), ZVTString::Hash("ba"));
}

TEST(ZVTStringTest, EditsKeepTheNullStateHonest) {
    ZVTString text("Hello, World \xC9");
    text.ToLower();
    text.Remove(5, 7);
    EXPECT_EQ(text, "hello \xC9");
    text.Remove(5, 100);
    EXPECT_THROW(text.Remove(6, 1), std::out_of_range);
    EXPECT_THROW(text.Remove(-1, 1), std::out_of_range);
    text.Prepend('>');
    text += ZVTString(" a");
    text += "b";
    text += 'c';
    EXPECT_EQ(text, ">hello abc");
    EXPECT_EQ(text.Length(), 10);

    // Appending nothing keeps the null string, a character ends it; a moved-from string is null.
    ZVTString null;
    null += "";
    null += ZVTString();
    EXPECT_TRUE(null.IsNullString());
    null += 'x';
    const ZVTString target(std::move(null));
    EXPECT_TRUE(null.IsNullString());
    EXPECT_EQ(target, "x");

    std::ostringstream out;
    out << ZVTString("x y") << '|' << ZVTString() << '|';
    EXPECT_EQ(out.str(), "x y||");
}

}  // namespace
