// The type registry: refusals, flag words, pending supertypes and owners joined in any order,
// property usages and clip values along the hierarchy, factory ownership, the query masks and the dumps.

#include <functional>
#include <sstream>
#include <tuple>

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCStreams.h"
#include "support/RegistryTestSupport.h"

using R = MCFactoryRegistry;

namespace {

class MCFactoryRegistryTest : public FreshRegistryTest {
protected:
    bool Concrete(short code, const char* name, short super, short owner = 0, bool first = false,
                  bool second = false, unsigned int size = 16) {
        return R::RegisterConcreteObject(code, name, super, owner, new CountingFactory(counters, size), first,
                                         second);
    }
};

unsigned long FlagsOf(short code) {
    unsigned long flags = 0xDEAD;
    EXPECT_TRUE(R::GetFlags(code, flags)) << "code " << code;
    return flags;
}

std::string Usages(short type, unsigned long mask) {
    return CodeList([&](auto& v) { return R::GetPropertyUsages(type, v, mask, nullptr); });
}
// The clip values of "type:property" pairs, "?" for undecided and "-" for no usage.
std::string Clips(std::vector<std::pair<short, short>> pairs) {
    std::string out;
    for (auto [type, property] : pairs) {
        const unsigned long clip = R::GetClipFlag(type, property);
        out += (out.empty() ? "" : " ") + (clip == R::clipUndecided ? "?"
                                           : clip == R::clipNoUsage ? "-"
                                                                    : std::to_string(clip));
    }
    return out;
}
constexpr unsigned long c_nFlattened = R::usageCore | R::flagWithInherited;

TEST_F(MCFactoryRegistryTest, EveryQueryAnswersEmptyBeforeTheRegistryExists) {
    unsigned long flags = 7;
    ZVTString text("untouched");
    EXPECT_FALSE(R::GetFlags(1, flags) || R::IsRegistered(1, nullptr) || R::GetDefinition(1, text) ||
                 R::AddOwnerType(1, 2) || R::AddPropertyUsage(1, 2, 0) || R::AddName(1, "UI", "x"));
    EXPECT_TRUE(R::Lookup(short(1)).IsNull());
    EXPECT_EQ(std::to_string(flags) + " " + std::to_string(R::Lookup(ZVTString("x"))) + " " +
                  Clips({{1, 2}}) + " " + CodeList([](auto& v) { return R::GetObjectTypes(v, ~0UL); }) + " " +
                  Usages(1, c_nFlattened),
              "7 0 - refused refused");
}

TEST_F(MCFactoryRegistryTest, RefusedRegistrationsChangeNothing) {
    ASSERT_TRUE(R::RegisterAbstractObject(10, "Element", 0));
    const unsigned long before = FlagsOf(10);
    const std::pair<const char*, bool> cases[] = {
        {"zero code", R::RegisterAbstractObject(0, "Zero", 0)},
        {"null name", R::RegisterAbstractObject(11, ZVTString(), 0)},
        {"name of a nomenclature", R::RegisterAbstractObject(12, "Logical", 0)},
        {"duplicate abstract", R::RegisterAbstractObject(10, "Again", 0)},
        {"duplicate concrete", Concrete(10, "Again", 0, 0, true, true)},
        {"null factory", R::RegisterConcreteObject(13, "NoFactory", 10, 0, nullptr, false, false)},
        {"alias to zero", R::RegisterAliasObject(14, "Alias", 0, 0, false, false)},
        {"alias without name", R::RegisterAliasObject(14, ZVTString(), 0, 10, false, false)},
        {"alias duplicate", R::RegisterAliasObject(10, "Alias", 0, 10, false, false)},
        {"property with zero code",
         R::RegisterConcreteProperty(0, "P", new CountingFactory(counters), 1, 0, 0, 0)},
        {"property without factory", R::RegisterConcreteProperty(15, "P", nullptr, 1, 0, 0, 0)},
        {"property duplicate", R::RegisterAliasProperty(10, "P", MCCodes::pInteger, 1, 0, 0, 0)},
        {"alias property to zero", R::RegisterAliasProperty(16, "P", 0, 1, 0, 0, 0)},
    };
    for (const auto& [what, accepted] : cases)
        EXPECT_FALSE(accepted) << what;
    EXPECT_EQ(FlagsOf(10), before);
    for (short code : {11, 12, 13, 14, 15, 16})
        EXPECT_FALSE(R::IsRegistered(code, nullptr)) << code;
    // Only object names must differ from the nomenclatures'.
    EXPECT_TRUE(R::RegisterAliasProperty(200, "Logical", MCCodes::pInteger, true, false, false, false));
    // A refused factory stays with its maker: the registry never deletes it.
    R::DeleteInstance();
    EXPECT_EQ(std::to_string(counters.destroyed) + " " + std::to_string(counters.alive), "0 2");
    counters.DeleteAll();
}

TEST_F(MCFactoryRegistryTest, FlagWordsFollowTheRegistrationAndSelectTheQueries) {
    ASSERT_TRUE(R::RegisterAbstractObject(1, "Root", 0) && Concrete(2, "Thing", 1, 0, false, true) &&
                R::RegisterAliasObject(3, "Nick", 0, 2, true, false));
    ASSERT_TRUE(R::RegisterConcreteProperty(87, "Integer", new CountingFactory(counters), 1, 0, 0, 0));
    ASSERT_TRUE(R::RegisterConcreteProperty(-5, "Odd", new CountingFactory(counters), 0, 1, 1, 1));
    ASSERT_TRUE(R::RegisterAliasProperty(132, "Id", MCCodes::pInteger, false, false, false, true));
    ASSERT_TRUE(R::RegisterAliasProperty(-7, "Udp", MCCodes::pInteger, true, true, true, false));
    const std::pair<short, unsigned long> cases[] = {
        {1, R::flagObject | R::flagAbstract | R::flagFirstOn | R::flagSecondOff | R::flagCore},
        {2, R::flagObject | R::flagConcrete | R::flagFirstOff | R::flagSecondOn | R::flagCore},
        {3, R::flagObject | R::flagAlias | R::flagFirstOn | R::flagSecondOff},
        {87, R::flagProperty | R::flagConcrete | R::flagCore | R::flagFirstOn | R::flagSecondOff},
        {-5, R::flagProperty | R::flagConcrete | R::flagUser | R::flagFirstOff | R::flagSecondOn |
                 R::flagPreFetch | R::flagItemFlag100},
        {132, R::flagProperty | R::flagAlias | R::flagCore | R::flagFirstOff | R::flagSecondOff |
                  R::flagItemFlag100},
        {-7,
         R::flagProperty | R::flagAlias | R::flagUser | R::flagFirstOn | R::flagSecondOn | R::flagPreFetch},
    };
    for (const auto& [code, flags] : cases)
        EXPECT_EQ(FlagsOf(code), flags) << code;
    EXPECT_FALSE(R::SetWantPreFetch(2, true));   // object types have no calculated values
    EXPECT_TRUE(R::SetWantPreFetch(87, false));  // sets the flag whatever the argument says
    EXPECT_EQ(std::to_string(R::IsPreFetch(87)) + std::to_string(R::IsPreFetch(2)), "10");

    // A query mask needs a bit in every group it tests. Alias objects carry no origin bit; the mask's own
    // kind bits are honoured; for properties the first pair also tells core (FirstOff) from user-defined,
    // and user-defined ones answer only for a model that holds them.
    // Properties or objects, the mask, the types reported.
    const std::tuple<bool, unsigned long, const char*> queries[] = {
        {false, R::flagConcrete, ""},
        {false, ~0UL & ~R::flagProperty, "1 2"},
        {false, ~0UL, "-7 -5 1 2 87 132"},
        {false, R::flagCore | R::flagFirstOff | R::flagConcrete | R::flagSecondOn, "2"},
        {false, R::flagCore | R::flagFirstOn | R::flagSecondOff | R::groupTypeKind, "1"},
        {true, R::flagCore | R::flagFirstOff | R::groupTypeKind, "87 132"},
        {true, R::flagCore | R::flagFirstOff | R::flagAlias, "132"},
        {true, R::flagUser | R::flagFirstOn | R::groupTypeKind, ""},
    };
    for (const auto& [properties, mask, codes] : queries) {
        auto query = [p = properties, m = mask](auto& v) {
            return p ? R::GetPropertyTypes(v, m, nullptr) : R::GetObjectTypes(v, m);
        };
        EXPECT_EQ(CodeList(query, true), codes) << std::hex << mask;
    }
}

TEST_F(MCFactoryRegistryTest, SupertypesJoinWhateverTheOrder) {
    // Root <- Node <- Leaf, registered in every order of the three calls.
    const std::function<bool()> steps[] = {
        [] { return R::RegisterAbstractObject(100, "Root", 0); },
        [] { return R::RegisterAbstractObject(110, "Node", 100); },
        [this] { return Concrete(111, "Leaf", 110, 0, true); },
    };
    int order[] = {0, 1, 2};
    do {
        SCOPED_TRACE(testing::Message() << order[0] << order[1] << order[2]);
        R::DeleteInstance();
        for (int step : order)
            ASSERT_TRUE(steps[step]());
        ASSERT_TRUE(R::RegisterAliasProperty(500, "Weight", MCCodes::pInteger, true, false, false, false) &&
                    R::AddPropertyUsage(100, 500, 4));
        EXPECT_EQ(CodeList([](auto& v) { return R::GetSubtypes(100, v); }) + " | " +
                      CodeList([](auto& v) { return R::GetSubtypes(110, v); }) + " | " +
                      Usages(111, c_nFlattened) + " | " + std::to_string(R::GetSupertype(111)) + " " +
                      Clips({{111, 500}}),
                  "110 | 111 | 500 | 110 4");
    } while (std::next_permutation(order, order + 3));
}

TEST_F(MCFactoryRegistryTest, OwneesWaitForTheirOwnerAndOwnersMatchExactly) {
    ASSERT_TRUE(R::RegisterAbstractObject(1, "Root", 0) && Concrete(20, "Attribute", 1, 10) &&
                Concrete(21, "Operation", 1, 10) && Concrete(10, "Class", 1) &&
                Concrete(11, "Interface", 10));

    EXPECT_EQ(CodeList([](auto& v) { return R::GetOwneeTypes(10, v); }), "20 21");
    // A subtype of an owner type is no owner type.
    EXPECT_EQ(std::to_string(R::IsValidOwner(20, 10)) + std::to_string(R::IsValidOwner(20, 11)), "10");
    ASSERT_TRUE(R::AddOwnerType(20, 11) && R::AddOwnerType(20, 11));  // kept twice, as given
    EXPECT_EQ(R::GetOwnerType(20), 11);
    EXPECT_EQ(CodeList([](auto& v) { return R::GetOwnerTypes(20, v); }), "10 11 11");
    EXPECT_TRUE(R::IsValidOwner(20, 11));

    // Abstract types collect ownees but cannot report them; only concrete object types have owners.
    ASSERT_TRUE(R::AddOwnerType(21, 1));
    EXPECT_FALSE(R::AddOwnerType(1, 10));
    EXPECT_EQ(
        CodeList([](auto& v) { return R::GetOwneeTypes(1, v); }) + " " + std::to_string(R::GetOwnerType(1)),
        "refused 0");
}

TEST_F(MCFactoryRegistryTest, UsagesFlattenOwnFirstAndClipValuesComeFromTheNearestDeclaration) {
    ASSERT_TRUE(R::RegisterAbstractObject(1, "Root", 0) && R::RegisterAbstractObject(2, "Mid", 1) &&
                R::RegisterAbstractObject(3, "Low", 2));
    for (short p : {90, 91, 92})
        ASSERT_TRUE(R::RegisterAliasProperty(p, ZVTString(long(p), 10), 87, 1, 0, 0, 0));
    ASSERT_TRUE(R::AddPropertyUsage(1, 90, 1) && R::AddPropertyUsage(2, 90, 2) &&
                R::AddPropertyUsage(1, 91, R::clipUndecided));
    EXPECT_TRUE(R::AddPropertyUsage(1, 91, 4));  // a second declaration keeps the first value
    // The nearest declaration wins.
    EXPECT_EQ(Clips({{3, 90}, {1, 90}, {3, 91}, {1, 91}, {3, 92}, {999, 90}}), "2 1 ? ? - -");
    // Flattened, a type's own usages come first, a property declared on two levels twice, and a late
    // declaration is seen. Alias object types stand outside the hierarchy.
    EXPECT_EQ(Usages(2, R::usageCore) + " | " + Usages(3, c_nFlattened), "90 | 90 90 91");
    ASSERT_TRUE(R::AddPropertyUsage(1, 92, 0));
    EXPECT_EQ(Usages(3, c_nFlattened) + " | " + Usages(3, R::flagWithInherited), "90 90 91 92 | ");
    ASSERT_TRUE(R::RegisterAliasObject(5, "Nick", 0, 2, true, false));
    EXPECT_EQ(Usages(5, c_nFlattened) + " " + std::to_string(R::GetSupertype(5)), "refused 0");

    EXPECT_FALSE(R::SetClipFlag(3, 91, 4)) << "only a type's own usage can be decided";
    EXPECT_TRUE(R::SetClipFlag(1, 91, 4));
    EXPECT_FALSE(R::SetClipFlag(1, 91, 1)) << "a decided value stays";
    EXPECT_FALSE(R::AddPropertyUsage(90, 1, 0)) << "arguments the wrong way round";
    EXPECT_TRUE(R::RemovePropertyUsage(2, 90, nullptr));
    EXPECT_TRUE(R::RemovePropertyUsage(2, 90, nullptr)) << "removing what is not there still answers true";
    EXPECT_EQ(Clips({{3, 91}, {3, 90}}), "4 1");
    EXPECT_EQ(CodeList([](auto& v) { return R::GetUsingObjectTypes(90, v, nullptr); }), "1");

    // Usage pairs widen their clip value with its sign; a pair of an unknown property is skipped.
    const short pairs[] = {90, -1, 91, 0x2000, 999, 0};
    ASSERT_TRUE(R::RegisterAbstractObject(4, "Paired", 0));
    EXPECT_TRUE(R::AddPropertyUsages(4, pairs, 3));
    EXPECT_EQ(Clips({{4, 90}, {4, 91}}) + " | " + Usages(4, R::usageCore), "4294967295 ? | 90 91");
}

TEST_F(MCFactoryRegistryTest, FactoriesBelongToTheRegistryOnceAcceptedAndDefinitionsToAnyEntry) {
    ASSERT_TRUE(R::RegisterAbstractObject(1, "Root", 0) && Concrete(2, "Thing", 1, 0, 0, 0, 48) &&
                R::RegisterConcreteProperty(87, "Integer", new CountingFactory(counters, 24), 1, 0, 0, 0) &&
                R::RegisterAliasProperty(132, "Id", MCCodes::pInteger, 0, 0, 0, 0) &&
                R::RegisterAliasProperty(133, "Dangling", 77, 0, 0, 0, 0));
    auto sizes = [](std::initializer_list<short> codes) {
        MessageLog log;
        std::string out;
        for (short code : codes)
            out += std::to_string(R::GetItemSize(code)) + " ";
        return out + log.Text();
    };
    // An alias answers with its concrete type's size; a dangling one is reported under the translated code.
    EXPECT_EQ(sizes({2, 132, 1, 4242, 133}), "48 24 0 0 0 602(0x10: 4242) 602(0x10: 77)");
    ZVTString text("untouched"), later;
    EXPECT_TRUE(R::GetDefinition(1, text));
    EXPECT_TRUE(text.IsNull());
    EXPECT_TRUE(R::SetDefinition(1, "the root"));
    EXPECT_TRUE(R::GetDefinition(1, later));
    EXPECT_EQ(later, ZVTString("the root"));
    EXPECT_FALSE(R::SetDefinition(3, "nobody"));
    R::DeleteInstance();
    EXPECT_EQ(std::to_string(counters.destroyed) + " " + std::to_string(counters.alive), "2 0");

    // The sizes answered above were remembered; codes registered anew answer anew, also when asked again,
    // and an unknown code is reported every time.
    ASSERT_TRUE(Concrete(2, "Thing", 1, 0, 0, 0, 64) && R::RegisterAliasProperty(132, "Id", 2, 0, 0, 0, 0));
    EXPECT_EQ(sizes({2, 132, 4242, 132, 4242}), "64 64 0 64 0 602(0x10: 4242) 602(0x10: 4242)");
}

// Each dump selects its types and writes them in name order, not by code or hash; other modes write nothing.
TEST_F(MCFactoryRegistryTest, EachDumpSelectsItsTypesAndOtherModesWriteNothing) {
    // Codes run against the names' order, so a dump in code order shows.
    for (auto [code, name] : {std::pair<short, const char*>{90, "Side"}, {91, "Name"}, {92, "Colour"}})
        ASSERT_TRUE(R::RegisterConcreteProperty(code, name, new CountingFactory(counters), true, false, false,
                                                false));
    ASSERT_TRUE(R::RegisterAbstractObject(20, "alpha", 0) && R::RegisterAbstractObject(21, "Shape", 0) &&
                Concrete(22, "Square", 21, 23, false, true) && Concrete(23, "Drawing", 21, 0, true) &&
                R::RegisterAliasObject(24, "Box", 0, 22, true, true) && R::AddOwnerType(22, 0));
    for (auto [type, property] : {std::pair<short, short>{21, 91}, {21, 92}, {22, 92}, {22, 90}})
        ASSERT_TRUE(R::AddPropertyUsage(type, property, R::clipUndecided));
    const std::pair<long, const char*> cases[] = {
        // Abstract and concrete types with their own usages.
        {R::dumpMetamodel,
         "METAMODEL DUMP\r\n\r\n"
         "Drawing\r\n\tSupertype: Shape\r\n\tProperty Usages:\r\n"
         "Shape\r\n\tSupertype: \r\n\tProperty Usages:\r\n\t\tColour\r\n\t\tName\r\n"
         "Square\r\n\tSupertype: Shape\r\n\tProperty Usages:\r\n\t\tColour\r\n\t\tSide\r\n"
         "alpha\r\n\tSupertype: \r\n\tProperty Usages:\r\n"},
        // Concrete and alias types with their owners and flattened usages.
        {R::dumpConcreteMetamodel,
         "CONCRETE METAMODEL DUMP\nConcrete objects with flattened properties\r\n\r\n"
         "Box\r\n\tSupertype: \r\n\tOwner Types: \r\n\r\n\tProperty Usages:\r\n"
         "Drawing\r\n\tSupertype: Shape\r\n\tOwner Types: \r\nUndefined, \r\n"
         "\tProperty Usages:\r\n\t\tColour\r\n\t\tName\r\n"
         "Square\r\n\tSupertype: Shape\r\n\tOwner Types: \r\nDrawing, Undefined, \r\n"
         "\tProperty Usages:\r\n\t\tColour\r\n\t\tColour\r\n\t\tName\r\n\t\tSide\r\n"},
        {0, ""},
        {3, ""},
        {6, ""}};
    for (const auto& [mode, text] : cases) {
        SCOPED_TRACE(mode);
        std::stringstream medium;
        MCStream stream(medium, ZVTStream::binary);
        R::GetInstance()->Dump(stream, mode, nullptr);
        EXPECT_EQ(medium.str(), text);
    }
}

TEST_F(MCFactoryRegistryTest, ASupertypeCycleEndsTheWalkInsteadOfSpinning) {
    ASSERT_TRUE(R::RegisterAbstractObject(1, "A", 2) && R::RegisterAbstractObject(2, "B", 1) &&
                R::RegisterAbstractObject(3, "Self", 3));
    EXPECT_EQ(Clips({{1, 87}, {3, 87}}) + " | " + Usages(3, c_nFlattened), "- - | ");
}

}  // namespace
