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
}

TEST_F(MCNomenclatureTest, TranslateTakesOneStepOnly) {
    // 132 names 87, which names 86; keeping, a code that is no alias answers itself, else 0.
    const std::tuple<short, bool, short> cases[] = {{132, true, 87}, {132, false, 87}, {87, true, 86},
                                                    {1, true, 1},    {1, false, 0},    {777, true, 777},
                                                    {777, false, 0}};
    for (const auto& [code, keep, expected] : cases)
        EXPECT_EQ(R::Translate(code, keep), expected) << code << " keep " << keep;
}

TEST_F(MCNomenclatureTest, ATypeKeepsItsFirstNamePerNomenclature) {
    // The same name again is no conflict; the default name cannot change but can be confirmed.
    ASSERT_TRUE(R::AddName(2, "UI", "Class"));
    ASSERT_TRUE(R::AddName(2, "UI", "Class"));
    EXPECT_TRUE(R::AddName(2, "Logical", "Classifier"));
    EXPECT_FALSE(R::AddName(2, "UI", "Kind"));
    EXPECT_FALSE(R::AddName(2, "Logical", "Renamed"));
    EXPECT_EQ(std::string(R::Lookup(short(2), "UI")) + " " + std::string(R::Lookup(short(2))),
              "Class Classifier");
    EXPECT_EQ(R::Lookup(ZVTString("Kind"), "UI"), 0);
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
