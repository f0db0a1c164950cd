// Type names: the default nomenclature "Logical", further vocabularies made on first use, look-ups in
// both directions with the default as fallback, and the one-step translation of aliases.

#include <tuple>

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "support/RegistryTestSupport.h"

using R = MCFactoryRegistry;

namespace {

class MCNomenclatureTest : public FreshRegistryTest {
protected:
    void SetUp() override {
        FreshRegistryTest::SetUp();
        ASSERT_TRUE(R::RegisterAbstractObject(1, "Element", 0));
        ASSERT_TRUE(R::RegisterAbstractObject(2, "Classifier", 1));
        ASSERT_TRUE(R::RegisterAliasProperty(87, "Integer", MCCodes::pFloatList, true, false, false, false));
        ASSERT_TRUE(R::RegisterAliasProperty(132, "Id", MCCodes::pInteger, false, false, false, false));
    }
};

TEST_F(MCNomenclatureTest, NamesFallBackToTheDefaultNomenclature) {
    ASSERT_TRUE(R::AddName(1, "German", "Element (de)"));
    // A name several types share finds the latest of them.
    ASSERT_TRUE(R::RegisterAbstractObject(3, "Element", 1) && R::AddName(1, "UI", "Item") &&
                R::AddName(2, "UI", "Item"));

    // By code, then by name; a null nomenclature is the default one, "(null)" the null string.
    const std::tuple<short, const char*, const char*> byCode[] = {
        {1, "German", "Element (de)"}, {2, "German", "Classifier"}, {1, nullptr, "Element"},
        {1, "Logical", "Element"},     {1, "Klingon", "(null)"},    {0, "German", "(null)"},
        {99, nullptr, "(null)"},       {3, nullptr, "Element"},
    };
    for (const auto& [code, nomenclature, name] : byCode) {
        const ZVTString found = R::Lookup(code, ZVTString(nomenclature));
        EXPECT_EQ(found.IsNull() ? "(null)" : std::string(found), name) << code << " " << nomenclature;
    }
    const std::tuple<const char*, const char*, short> byName[] = {
        {"Element (de)", "German", 1}, {"Classifier", "German", 2}, {"Classifier", "Klingon", 0},
        {"Element (de)", nullptr, 0},  {"Element", nullptr, 3},     {"Item", "UI", 2},
        {"Nothing", "German", 0},
    };
    for (const auto& [name, nomenclature, code] : byName)
        EXPECT_EQ(R::Lookup(ZVTString(name), ZVTString(nomenclature)), code) << name << " " << nomenclature;

    // Translation takes one step only: 132 names 87, which names 86. Keeping, a code that is no alias
    // answers itself, else 0.
    const std::pair<short, bool> translations[] = {{132, true}, {132, false}, {87, true},  {1, true},
                                                   {1, false},  {777, true},  {777, false}};
    std::string translated;
    for (auto [code, keep] : translations)
        translated += std::to_string(R::Translate(code, keep)) + " ";
    EXPECT_EQ(translated, "87 87 86 1 0 777 0 ");
}

TEST_F(MCNomenclatureTest, ATypeKeepsItsFirstNamePerNomenclature) {
    // The same name again is no conflict; the default name cannot change but can be confirmed.
    const std::pair<const char*, const char*> names[] = {
        {"UI", "Class"}, {"UI", "Class"}, {"Logical", "Classifier"}, {"UI", "Kind"}, {"Logical", "Renamed"}};
    std::string added;
    for (auto [nomenclature, name] : names)
        added += R::AddName(2, nomenclature, name) ? "T" : "F";
    EXPECT_EQ(added + " " + std::string(R::Lookup(short(2), "UI")) + " " + std::string(R::Lookup(short(2))) +
                  " " + std::to_string(R::Lookup(ZVTString("Kind"), "UI")),
              "TTTFF Class Classifier 0");
}

TEST_F(MCNomenclatureTest, RefusedNamesStillMayLeaveTheNomenclatureBehind) {
    EXPECT_FALSE(R::ContainsNomenclature("Audit"));
    EXPECT_FALSE(R::AddName(999, "Audit", "Ghost"));
    EXPECT_TRUE(R::ContainsNomenclature("Audit"));
    EXPECT_TRUE(R::IsRegistered(ZVTString("Audit"), nullptr));
    // Without a model a name is a nomenclature's; with one, the types are asked.
    auto* model = reinterpret_cast<MCObject*>(0x1000);
    EXPECT_FALSE(R::IsRegistered(ZVTString("Element"), nullptr));
    EXPECT_TRUE(R::IsRegistered(ZVTString("Element"), model));
    EXPECT_FALSE(R::IsRegistered(ZVTString("Nothing"), model));

    EXPECT_FALSE(R::AddName(-3, "Other", "Udp")) << "user-defined properties have one name only";
    EXPECT_FALSE(R::AddName(1, ZVTString(), "x"));
    EXPECT_FALSE(R::AddName(1, "Other", ZVTString()));
    EXPECT_FALSE(R::ContainsNomenclature("Other"));

    // The nomenclature now exists, so an object type may no longer take its name.
    EXPECT_FALSE(R::RegisterAbstractObject(5, "Audit", 0));
}

}  // namespace
