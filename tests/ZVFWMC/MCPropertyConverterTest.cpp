// Property values as text: which converter the registry picks for a pair of types (aliases and the order
// of registration included), what each core converter writes, and what the object's string read gives.

#include "support/ModelTestSupport.h"

namespace {

constexpr short c_sFloat = 85;
constexpr short c_sInteger = 87;
constexpr short c_sRef = 89;
constexpr short c_sString = 91;
constexpr short c_sStringList = 92;
constexpr short c_sName = 147;  // an alias of String

// Answers for one host type, to show that a second converter of a type never wins over the first.
struct FixedConverter : MCPropertyConverter, MCToStringConverter {
    FixedConverter(short from, const char* text) : MCPropertyConverter(from), m_pcText(text) {}
    ZVTBoolean Supports(short toType) const override { return toType == c_sString; }
    ZVTBoolean AsString(const MCProperty*, ZVTString& text) const override {
        text = m_pcText;
        return true;
    }
    const char* m_pcText;
};

class PropertyConverterTest : public ModelTest {};

TEST_F(PropertyConverterTest, FindsTheConverterOfATypeOrOfWhatItAliases) {
    using R = MCPropertyConverterRegistry;
    const struct {
        short m_sFrom, m_sTo;
        const char* m_pcExpected;
    } cases[] = {
        {c_sString, c_sString, typeid(MCFromStringConverter).name()},
        {c_sInteger, c_sString, typeid(MCFromIntegerConverter).name()},
        {c_sStringList, c_sString, typeid(MCFromStringListConverter).name()},
        {c_sName, c_sString, typeid(MCFromStringConverter).name()},
        {c_sFloat, c_sString, "none"},
        {c_sRef, c_sString, "none"},
        {c_sInteger, c_sInteger, "none"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.m_sFrom) + " to " + std::to_string(c.m_sTo));
        const MCPropertyConverter* converter = R::GetConverter(c.m_sFrom, c.m_sTo);
        EXPECT_STREQ(converter ? typeid(*converter).name() : "none", c.m_pcExpected);
    }

    const short hostType = 7201;
    R::Register(new FixedConverter(hostType, "first"));
    R::Register(new FixedConverter(hostType, "second"));
    ZVTString text;
    dynamic_cast<const MCToStringConverter*>(R::GetConverter(hostType, c_sString))->AsString(nullptr, text);
    EXPECT_EQ(text, "first");
}

TEST_F(PropertyConverterTest, WritesEachValueTypeAsText) {
    MCObject* object = Make();
    SetLong(object, c_sInteger, -7);
    MCSPropertyAccessorT<ZVTString> name(ZVTString("Order"));
    object->SetProperty(c_sName, name, MCPropertyAccessor::accessAdd);
    MCSPropertyAccessorT<float> number(1.5f);
    object->SetProperty(c_sFloat, number, MCPropertyAccessor::accessAdd);
    for (const char* element : {"a", "b", "c"}) {
        MCVPropertyAccessorT<ZVTString> list{ZVTString(element)};
        object->SetProperty(c_sStringList, list, MCPropertyAccessor::accessAdd);
    }
    const struct {
        short m_sType;
        const char* m_pcText;
    } cases[] = {
        {c_sInteger, "-7"},   {c_sName, "Order"}, {c_sStringList, "a, b, c"},
        {c_sFloat, "unread"}, {c_sRef, "unread"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.m_sType);
        ZVTString text("unread");
        object->GetPropertyString(c.m_sType, text);
        EXPECT_EQ(text, c.m_pcText);
    }

    // A converter handed a property of another class leaves the text as it was.
    ZVTString text("kept");
    MCFromIntegerConverter integer;
    EXPECT_FALSE(integer.AsString(object->FindProperty(c_sName, false), text));
    MCFromStringListConverter list;
    EXPECT_FALSE(list.AsString(object->FindProperty(c_sInteger, false), text));
    EXPECT_EQ(text, "kept");
}

TEST_F(PropertyConverterTest, JoinsNoListAsTheEmptyTextAndOneElementAlone) {
    MCObject* object = Make();
    MCVPropertyAccessorT<ZVTString> one{ZVTString("only")};
    object->SetProperty(c_sStringList, one, MCPropertyAccessor::accessAdd);
    ZVTString text;
    EXPECT_TRUE(object->GetPropertyString(c_sStringList, text));
    EXPECT_EQ(text, "only");
    one.SetValue(ZVTString("only"), MCPropertyAccessor::accessRemove);
    MCVPropertyAccessorT<ZVTString> none{ZVTSList<ZVTString>()};
    object->SetProperty(c_sStringList, none, MCPropertyAccessor::accessReplace);
    EXPECT_TRUE(object->GetPropertyString(c_sStringList, text));
    EXPECT_EQ(text, "");
}

}  // namespace
