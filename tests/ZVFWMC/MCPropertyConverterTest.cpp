// Property values as text: which converter the registry picks for a pair of types (aliases and the order
// of registration included), what each core converter writes, and what the object's string read gives.

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "support/ModelTestSupport.h"

namespace {

// Answers for one host type, to show that a second converter of a type never wins over the first.
struct FixedConverter : MCPropertyConverter, MCToStringConverter {
    FixedConverter(short from, const char* text) : MCPropertyConverter(from), m_pcText(text) {}
    ZVTBoolean Supports(short toType) const override { return toType == MCCodes::pString; }
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
        {MCCodes::pString, MCCodes::pString, typeid(MCFromStringConverter).name()},
        {MCCodes::pInteger, MCCodes::pString, typeid(MCFromIntegerConverter).name()},
        {MCCodes::pStringList, MCCodes::pString, typeid(MCFromStringListConverter).name()},
        {MCCodes::pName, MCCodes::pString, typeid(MCFromStringConverter).name()},
        {MCCodes::pFloat, MCCodes::pString, "none"},
        {MCCodes::pReference, MCCodes::pString, "none"},
        {MCCodes::pInteger, MCCodes::pInteger, "none"},
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
    dynamic_cast<const MCToStringConverter*>(R::GetConverter(hostType, MCCodes::pString))
        ->AsString(nullptr, text);
    EXPECT_EQ(text, "first");
}

TEST_F(PropertyConverterTest, WritesEachValueTypeAsText) {
    MCObject* object = Make();
    SetLong(object, MCCodes::pInteger, -7);
    MCSPropertyAccessorT<ZVTString> name(ZVTString("Order"));
    object->SetProperty(MCCodes::pName, name, MCPropertyAccessor::accessAdd);
    MCSPropertyAccessorT<float> number(1.5f);
    object->SetProperty(MCCodes::pFloat, number, MCPropertyAccessor::accessAdd);
    // A list of three, of one, and one emptied: no list joins as the empty text.
    MCObject* one = Make();
    MCObject* none = Make();
    for (auto [holder, element] : {std::pair<MCObject*, const char*>{object, "a"},
                                   {object, "b"},
                                   {object, "c"},
                                   {one, "only"},
                                   {none, "gone"}}) {
        MCVPropertyAccessorT<ZVTString> list{ZVTString(element)};
        holder->SetProperty(MCCodes::pStringList, list, MCPropertyAccessor::accessAdd);
    }
    MCVPropertyAccessorT<ZVTString> empty{ZVTSList<ZVTString>()};
    empty.SetValue(ZVTString("gone"), MCPropertyAccessor::accessRemove);  // absent: stays empty
    none->SetProperty(MCCodes::pStringList, empty, MCPropertyAccessor::accessReplace);
    const struct {
        MCObject* m_pxObject;
        short m_sType;
        const char* m_pcText;  // "unread": refused
    } cases[] = {
        {object, MCCodes::pInteger, "-7"},         {object, MCCodes::pName, "Order"},
        {object, MCCodes::pStringList, "a, b, c"}, {one, MCCodes::pStringList, "only"},
        {none, MCCodes::pStringList, ""},          {object, MCCodes::pFloat, "unread"},
        {object, MCCodes::pReference, "unread"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.m_pcText);
        ZVTString text("unread");
        EXPECT_EQ(c.m_pxObject->GetPropertyString(c.m_sType, text), std::string(c.m_pcText) != "unread");
        EXPECT_EQ(text, c.m_pcText);
    }

    // A converter handed a property of another class leaves the text as it was.
    ZVTString text("kept");
    MCFromIntegerConverter integer;
    EXPECT_FALSE(integer.AsString(object->FindProperty(MCCodes::pName, false), text));
    MCFromStringListConverter list;
    EXPECT_FALSE(list.AsString(object->FindProperty(MCCodes::pInteger, false), text));
    EXPECT_EQ(text, "kept");
}

}  // namespace
