// Property values as text: which converter the registry picks for a pair of types (aliases and the order
// of registration included), what each core converter writes, and what the object's string read gives.

#include "support/ModelTestSupport.h"

namespace {

// A host converter giving a fixed text; a second converter of a type, registered later, must never win.
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
    const short hostType = 7201;
    for (auto [from, text] : {std::pair<short, const char*>{MCCodes::pInteger, "late"},
                              {hostType, "first"},
                              {hostType, "second"}})
        MCPropertyConverterRegistry::Register(new FixedConverter(from, text));
    // The host's converters answer with their text, the core's with their class.
    const struct {
        short from, to;
        const char* expected;
    } cases[] = {
        {hostType, MCCodes::pString, "first"},
        {MCCodes::pInteger, MCCodes::pString, typeid(MCFromIntegerConverter).name()},
        {MCCodes::pStringList, MCCodes::pString, typeid(MCFromStringListConverter).name()},
        {MCCodes::pName, MCCodes::pString, typeid(MCFromStringConverter).name()},
        {MCCodes::pFloat, MCCodes::pString, "none"},
        {MCCodes::pInteger, MCCodes::pInteger, "none"},
    };
    for (const auto& [from, to, expected] : cases) {
        SCOPED_TRACE(std::to_string(from) + " to " + std::to_string(to));
        const MCPropertyConverter* converter = MCPropertyConverterRegistry::GetConverter(from, to);
        ZVTString text(converter ? typeid(*converter).name() : "none");
        if (auto* host = dynamic_cast<const FixedConverter*>(converter))
            host->AsString(nullptr, text);
        EXPECT_EQ(text, expected);
    }
}

TEST_F(PropertyConverterTest, WritesEachValueTypeAsText) {
    // Text is read through the alias: a property under a concrete code has none.
    const short notes = 7221;
    MCFactoryRegistry::RegisterAliasProperty(notes, "Notes", MCCodes::pStringList, false, false, false,
                                             false);
    MCObject *object = Named("Order"), *one = Make(), *none = Make();
    SetLong(object, MCCodes::pTypeCode, -7);
    SetLong(object, MCCodes::pInteger, 3);
    MCSPropertyAccessorT<float> number(1.5f);  // no converter: unread
    object->SetProperty(MCCodes::pFloat, number, MCPropertyAccessor::accessAdd);
    for (auto [holder, element] :
         {std::pair<MCObject*, const char*>{object, "a"}, {object, "b"}, {one, "only"}, {none, "gone"}}) {
        MCVPropertyAccessorT<ZVTString> list{ZVTString(element)};
        holder->SetProperty(notes, list, MCPropertyAccessor::accessAdd);
        holder->SetProperty(MCCodes::pStringList, list, MCPropertyAccessor::accessAdd);
    }
    // Emptied: no list joins as the empty text.
    MCVPropertyAccessorT<ZVTString> empty{ZVTSList<ZVTString>()};
    none->SetProperty(notes, empty, MCPropertyAccessor::accessReplace);
    std::string seen;
    for (auto [holder, type] : {std::pair<MCObject*, short>{object, MCCodes::pTypeCode},
                                {object, MCCodes::pName},
                                {object, notes},
                                {one, notes},
                                {none, notes},
                                {object, MCCodes::pInteger},
                                {object, MCCodes::pStringList},
                                {object, MCCodes::pFloat},
                                {object, MCCodes::pReference}}) {
        ZVTString text("unread");
        const bool read = holder->GetPropertyString(type, text);
        seen += (read ? "" : "!") + text.str() + "|";
    }
    EXPECT_EQ(seen, "-7|Order|a, b|only||!unread|!unread|!unread|!unread|");

    // A converter handed a property of another class leaves the text as it was.
    ZVTString text("kept");
    EXPECT_FALSE(MCFromIntegerConverter().AsString(object->FindProperty(MCCodes::pStringList, false), text));
    EXPECT_FALSE(MCFromStringListConverter().AsString(object->FindProperty(MCCodes::pInteger, false), text));
    EXPECT_EQ(text, "kept");
}

}  // namespace
