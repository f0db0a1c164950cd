// ZVTString: null against empty, numbers as text, comparison with and without case, editing.

#include <climits>
#include <cstring>
#include <new>
#include <stdexcept>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

#include "foundation/ZVTString.h"

namespace {

// Null and empty strings are both null (and equal), but only the first is the null string; numbers
// become text in their radix.
TEST(ZVTStringTest, EachConstructorSetsTextAndNullState) {
    // Each with its text and whether it is the null string.
    const std::tuple<const char*, ZVTString, const char*, bool> cases[] = {
        {"default", ZVTString(), "", true},
        {"nullptr", ZVTString(static_cast<const char*>(nullptr)), "", true},
        {"null text", ZVTString(ZVTString::c_pcNull), "", true},
        {"empty text", ZVTString(""), "", false},
        {"empty std::string", ZVTString(std::string()), "", false},
        {"zero", ZVTString(0, 10), "0", false},
        {"negative", ZVTString(-42, 10), "-42", false},
        {"LONG_MIN", ZVTString(LONG_MIN, 10), "-9223372036854775808", false},
        {"hex", ZVTString(255, 16), "ff", false},
        {"negative binary", ZVTString(-5, 2), "-101", false},
        {"radix too large counts as 10", ZVTString(40, 37), "40", false},
        {"radix too small counts as 10", ZVTString(40, 1), "40", false},
    };
    for (const auto& [name, string, text, nullString] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(string.str(), text);
        EXPECT_EQ(string.IsNull(), *text == '\0');
        EXPECT_EQ(string.IsNullString(), nullString);
        // Only the null string's text makes a null string again.
        EXPECT_EQ(ZVTString(static_cast<const char*>(string)).IsNullString(), nullString);
        EXPECT_EQ(string == static_cast<const char*>(nullptr), *text == '\0');
    }
    EXPECT_EQ(ZVTString::Hash(""), ZVTString::Hash(ZVTString()));
    ZVTString assigned;
    assigned = -17L;
    EXPECT_EQ(assigned, "-17");
}

// A string made in room whose bytes are all ones, as left by whatever held it before; its text.
template <class... Args>
std::string MadeOverOnes(Args&&... args) {
    alignas(ZVTString) unsigned char room[sizeof(ZVTString)];
    std::memset(room, 0xFF, sizeof room);
    auto* made = new (room) ZVTString(std::forward<Args>(args)...);
    std::string text = made->str();
    made->~ZVTString();
    return text;
}

// A constructor sets the whole state: nothing of what its memory held is read.
TEST(ZVTStringTest, ConstructorsReadNothingOfTheirMemory) {
    const ZVTString longText(std::string(100, 'h'));  // held on the heap, so a copy starts afresh too
    EXPECT_EQ(MadeOverOnes() + "|" + MadeOverOnes("ab") + "|" + MadeOverOnes(std::string("cd")) + "|" +
                  MadeOverOnes(40L, 10),
              "|ab|cd|40");
    EXPECT_EQ(MadeOverOnes(longText), longText.str());
}

int Sign(int value) {
    return (value > 0) - (value < 0);
}

TEST(ZVTStringTest, CompareToOrdersBytesWithOrWithoutCase) {
    // Each pair with the sign of its comparison exact and ignoring case.
    const std::tuple<const char*, const char*, int, int> cases[] = {
        {"abc", "abc", 0, 0}, {"abc", "ABC", 1, 0},  {"ABC", "abc", -1, 0},
        {"Z", "a", -1, 1},    {"ab", "abc", -1, -1}, {"\xe9", "z", 1, 1},  // bytes compare unsigned
        {"[", "a", -1, -1},  // no case folding outside the letters
    };
    for (const auto& [a, b, exact, ignoringCase] : cases) {
        SCOPED_TRACE(std::string(a) + " vs " + b);
        EXPECT_EQ(Sign(ZVTString(a).compareTo(b)), exact);
        EXPECT_EQ(Sign(ZVTString(a).compareTo(b, ZVTString::ignoreCase)), ignoringCase);
        EXPECT_EQ(ZVTString(a) < ZVTString(b), exact < 0);
        EXPECT_EQ(ZVTString(a) == b, exact == 0);
        EXPECT_EQ(a != ZVTString(b), exact != 0);
    }
    EXPECT_NE(ZVTString::Hash("ab"), ZVTString::Hash("ba"));
}

TEST(ZVTStringTest, EditsKeepTheNullStateHonest) {
    ZVTString text("Hello, World \xC9");
    text.ToLower();
    text.Remove(5, 7);
    EXPECT_EQ(text, "hello \xC9");
    text.Remove(5, 100);
    for (long position : {6L, -1L})
        EXPECT_THROW(text.Remove(position, 1), std::out_of_range);
    text.Prepend('>');
    text += ZVTString(" a");
    text += "b";
    text += 'c';
    EXPECT_EQ(text.str() + " " + std::to_string(text.Length()), ">hello abc 10");

    // Appending nothing keeps the null string, a character ends it; a moved-from string is null.
    ZVTString null;
    null += "";
    null += ZVTString();
    EXPECT_TRUE(null.IsNullString());
    null += 'x';
    const ZVTString target(std::move(null));
    EXPECT_TRUE(null.IsNullString());
    EXPECT_EQ(target, "x");
}

// Texts on both sides of the inline limit survive every way of copying, growing and shrinking, including
// appending a string to itself as it moves to the heap.
TEST(ZVTStringTest, TextsAcrossTheInlineLimitCopyGrowAndShrink) {
    for (size_t size :
         {size_t{0}, ZVTString::c_nInline - 1, ZVTString::c_nInline, ZVTString::c_nInline + 1, size_t{100}}) {
        SCOPED_TRACE(size);
        std::string expected(size, 'a');
        for (size_t i = 0; i < size; ++i)
            expected[i] = static_cast<char>('a' + i % 26);
        ZVTString built;
        for (char c : expected)
            built += c;
        ZVTString copy(built), assigned("x"), moved;
        assigned = built;
        moved = ZVTString(built);
        for (const ZVTString* text : {&built, &copy, &assigned, &moved})
            EXPECT_EQ(text->str() + " " + std::to_string(std::strlen(text->data())),
                      expected + " " + std::to_string(size));
        copy += copy;
        assigned += assigned.data() + size / 2;
        moved.Prepend('>');
        moved.Remove(1, static_cast<long>(size));
        EXPECT_EQ(copy.str() + "|" + assigned.str() + "|" + moved.str(),
                  expected + expected + "|" + expected + expected.substr(size / 2) + "|>");
        moved = ZVTString("short");
        EXPECT_EQ(moved, "short");
        EXPECT_EQ(built.IsNullString(), size == 0);
    }
}

}  // namespace
