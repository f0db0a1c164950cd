// Type names: the default nomenclature "Logical", further vocabularies made on first use, look-ups
// in both directions with the default as fallback, and the one-step translation of aliases.

#include <gtest/gtest.h>

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
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

    struct Case {
        short code;
        const char* nomenclature;
        const char* name;  // nullptr: the null string
    };
    const Case byCode[] = {
        {1, "German", "Element (de)"}, {2, "German", "Classifier"}, {1, nullptr, "Element"},
        {1, "Logical", "Element"},     {1, "Klingon", nullptr},     {0, "German", nullptr},
        {99, nullptr, nullptr},
    };
    for (const Case& c : byCode) {
        SCOPED_TRACE(testing::Message() << c.code << " in " << (c.nomenclature ? c.nomenclature : "(null)"));
        ZVTString name = R::Lookup(c.code, ZVTString(c.nomenclature));
        if (c.name) {
            EXPECT_EQ(name, ZVTString(c.name));
        } else {
            EXPECT_TRUE(name.IsNull());
        }
    }

    struct NameCase {
        const char* name;
        const char* nomenclature;
        short code;
    };
    const NameCase byName[] = {
        {"Element (de)", "German", 1}, {"Classifier", "German", 2}, {"Classifier", "Klingon", 0},
        {"Element (de)", nullptr, 0},  {"Element", nullptr, 1},     {"Nothing", "German", 0},
    };
    for (const NameCase& c : byName) {
        SCOPED_TRACE(testing::Message() << c.name << " in " << (c.nomenclature ? c.nomenclature : "(null)"));
        EXPECT_EQ(R::Lookup(ZVTString(c.name), ZVTString(c.nomenclature)), c.code);
    }
}

TEST_F(MCNomenclatureTest, ATypeKeepsItsFirstNamePerNomenclature) {
    EXPECT_TRUE(R::AddName(2, "UI", "Class"));
    EXPECT_TRUE(R::AddName(2, "UI", "Class")) << "the same name again is no conflict";
    EXPECT_FALSE(R::AddName(2, "UI", "Kind"));
    EXPECT_EQ(R::Lookup(short(2), "UI"), ZVTString("Class"));
    EXPECT_EQ(R::Lookup(ZVTString("Kind"), "UI"), 0);

    EXPECT_TRUE(R::AddName(2, "Logical", "Classifier"))
        << "the default name cannot change but can be confirmed";
    EXPECT_FALSE(R::AddName(2, "Logical", "Renamed"));
    EXPECT_EQ(R::Lookup(short(2)), ZVTString("Classifier"));
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

TEST_F(MCNomenclatureTest, TheLatestTypeTakesASharedName) {
    ASSERT_TRUE(R::RegisterAbstractObject(3, "Element", 1));
    EXPECT_EQ(R::Lookup(ZVTString("Element")), 3);
    EXPECT_EQ(R::Lookup(short(1)), ZVTString("Element"));
    EXPECT_EQ(R::Lookup(short(3)), ZVTString("Element"));

    ASSERT_TRUE(R::AddName(1, "UI", "Item"));
    ASSERT_TRUE(R::AddName(2, "UI", "Item"));
    EXPECT_EQ(R::Lookup(ZVTString("Item"), "UI"), 2);
}

TEST_F(MCNomenclatureTest, TranslateTakesOneStepOnly) {
    struct Case {
        short code;
        bool keep;
        short expected;
    };
    const Case cases[] = {
        {132, true, 87}, {132, false, 87}, {87, true, 86},  {1, true, 1},
        {1, false, 0},   {777, true, 777}, {777, false, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.code << (c.keep ? " keep" : " drop"));
        EXPECT_EQ(R::Translate(c.code, c.keep), c.expected);
    }
}

}  // namespace
