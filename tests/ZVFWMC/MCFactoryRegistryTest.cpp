// The type registry: refusals, flag words, pending supertypes and owners joined in any order,
// property usages and clip values along the hierarchy, factory ownership and the query masks.

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "support/RegistryTestSupport.h"

using R = MCFactoryRegistry;

namespace {

class MCFactoryRegistryTest : public FreshRegistryTest {};

unsigned long FlagsOf(short code) {
    unsigned long flags = 0xDEAD;
    EXPECT_TRUE(R::GetFlags(code, flags)) << "code " << code;
    return flags;
}

// The codes a query appends, in its order, as "a b c"; "refused" when it answers false.
template <typename Query>
std::string List(Query query) {
    ZVTOrderedVectorT<short> found;
    if (!query(found))
        return "refused";
    std::string out;
    for (size_t i = 0; i < found.Length(); ++i)
        out += (i ? " " : "") + std::to_string(found[i]);
    return out;
}
std::string Usages(short type, unsigned long mask) {
    return List([&](auto& v) { return R::GetPropertyUsages(type, v, mask, nullptr); });
}
constexpr unsigned long c_nFlattened = R::usageCore | R::flagWithInherited;

TEST_F(MCFactoryRegistryTest, EveryQueryAnswersEmptyBeforeTheRegistryExists) {
    EXPECT_EQ(List([](auto& v) { return R::GetObjectTypes(v, ~0UL); }), "refused");
    EXPECT_EQ(Usages(1, c_nFlattened), "refused");
    unsigned long flags = 7;
    ZVTString text("untouched");
    EXPECT_FALSE(R::GetFlags(1, flags) || R::IsRegistered(1, nullptr) || R::GetDefinition(1, text) ||
                 R::AddOwnerType(1, 2) || R::AddPropertyUsage(1, 2, 0) || R::AddName(1, "UI", "x"));
    EXPECT_EQ(flags, 7u);
    EXPECT_EQ(R::Lookup(ZVTString("x")), 0);
    EXPECT_TRUE(R::Lookup(short(1)).IsNull());
    EXPECT_EQ(R::GetClipFlag(1, 2), R::clipNoUsage);
}

TEST_F(MCFactoryRegistryTest, RefusedRegistrationsChangeNothing) {
    ASSERT_TRUE(R::RegisterAbstractObject(10, "Element", 0));
    const unsigned long before = FlagsOf(10);
    const std::pair<const char*, bool> cases[] = {
        {"zero code", R::RegisterAbstractObject(0, "Zero", 0)},
        {"null name", R::RegisterAbstractObject(11, ZVTString(), 0)},
        {"name of a nomenclature", R::RegisterAbstractObject(12, "Logical", 0)},
        {"duplicate abstract", R::RegisterAbstractObject(10, "Again", 0)},
        {"duplicate concrete",
         R::RegisterConcreteObject(10, "Again", 0, 0, new CountingFactory(counters), true, true)},
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
    EXPECT_EQ(R::Lookup(short(10)), ZVTString("Element"));
    for (short code : {11, 12, 13, 14, 15, 16})
        EXPECT_FALSE(R::IsRegistered(code, nullptr)) << code;
    // Only object names must differ from the nomenclatures'.
    EXPECT_TRUE(R::RegisterAliasProperty(200, "Logical", MCCodes::pInteger, true, false, false, false));
    // A refused factory stays with its maker: the registry never deletes it.
    R::DeleteInstance();
    EXPECT_EQ(counters.destroyed, 0);
    EXPECT_EQ(counters.alive, 2);
    counters.DeleteAll();
}

TEST_F(MCFactoryRegistryTest, FlagWordsFollowTheRegistrationAndSelectTheQueries) {
    ASSERT_TRUE(R::RegisterAbstractObject(1, "Root", 0));
    ASSERT_TRUE(R::RegisterConcreteObject(2, "Thing", 1, 0, new CountingFactory(counters), false, true));
    ASSERT_TRUE(R::RegisterAliasObject(3, "Nick", 0, 2, true, false));
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
    EXPECT_TRUE(R::IsPreFetch(-5));
    EXPECT_FALSE(R::IsPreFetch(87));
    EXPECT_FALSE(R::SetWantPreFetch(2, true));   // object types have no calculated values
    EXPECT_TRUE(R::SetWantPreFetch(87, false));  // sets the flag whatever the argument says
    EXPECT_TRUE(R::IsPreFetch(87));

    // A query mask needs a bit in every group it tests.
    auto objects = [](unsigned long mask) {
        return SortedCodes([&](auto& v) { return R::GetObjectTypes(v, mask); });
    };
    auto properties = [](unsigned long mask) {
        return SortedCodes([&](auto& v) { return R::GetPropertyTypes(v, mask, nullptr); });
    };
    EXPECT_EQ(objects(R::flagConcrete), std::vector<short>{});
    EXPECT_EQ(objects(~0UL & ~R::flagProperty), (std::vector<short>{1, 2}))
        << "alias objects carry no origin bit";
    EXPECT_EQ(objects(~0UL), (std::vector<short>{-7, -5, 1, 2, 87, 132}))
        << "the mask's own kind bits are honoured";
    EXPECT_EQ(objects(R::flagCore | R::flagFirstOff | R::flagConcrete | R::flagSecondOn),
              (std::vector<short>{2}));
    EXPECT_EQ(objects(R::flagCore | R::flagFirstOn | R::flagSecondOff | R::groupTypeKind),
              (std::vector<short>{1}));

    // For properties the first pair also tells core from user-defined: core answers to FirstOff.
    EXPECT_EQ(properties(R::flagCore | R::flagFirstOff | R::groupTypeKind), (std::vector<short>{87, 132}));
    EXPECT_EQ(properties(R::flagCore | R::flagFirstOff | R::flagAlias), (std::vector<short>{132}));
    EXPECT_EQ(properties(R::flagUser | R::flagFirstOn | R::groupTypeKind), std::vector<short>{})
        << "user-defined ones only for a model that holds them";
}

TEST_F(MCFactoryRegistryTest, SupertypesJoinWhateverTheOrder) {
    // Root <- Node <- Leaf, registered in every order of the three calls.
    int order[] = {0, 1, 2};
    do {
        SCOPED_TRACE(testing::Message() << order[0] << order[1] << order[2]);
        R::DeleteInstance();
        for (int step : order) {
            if (step == 0)
                ASSERT_TRUE(R::RegisterAbstractObject(100, "Root", 0));
            else if (step == 1)
                ASSERT_TRUE(R::RegisterAbstractObject(110, "Node", 100));
            else
                ASSERT_TRUE(
                    R::RegisterConcreteObject(111, "Leaf", 110, 0, new CountingFactory(counters), 1, 0));
        }
        ASSERT_TRUE(R::RegisterAliasProperty(500, "Weight", MCCodes::pInteger, true, false, false, false));
        ASSERT_TRUE(R::AddPropertyUsage(100, 500, 4));
        EXPECT_EQ(List([](auto& v) { return R::GetSubtypes(100, v); }) + " | " +
                      List([](auto& v) { return R::GetSubtypes(110, v); }) + " | " +
                      Usages(111, c_nFlattened),
                  "110 | 111 | 500");
        EXPECT_EQ(R::GetSupertype(111), 110);
        EXPECT_EQ(R::GetClipFlag(111, 500), 4u);
    } while (std::next_permutation(order, order + 3));
}

TEST_F(MCFactoryRegistryTest, OwneesWaitForTheirOwnerAndOwnersMatchExactly) {
    ASSERT_TRUE(R::RegisterAbstractObject(1, "Root", 0));
    ASSERT_TRUE(R::RegisterConcreteObject(20, "Attribute", 1, 10, new CountingFactory(counters), 0, 0));
    ASSERT_TRUE(R::RegisterConcreteObject(21, "Operation", 1, 10, new CountingFactory(counters), 0, 0));
    ASSERT_TRUE(R::RegisterConcreteObject(10, "Class", 1, 0, new CountingFactory(counters), 0, 0));
    ASSERT_TRUE(R::RegisterConcreteObject(11, "Interface", 10, 0, new CountingFactory(counters), 0, 0));

    EXPECT_EQ(List([](auto& v) { return R::GetOwneeTypes(10, v); }), "20 21");
    EXPECT_TRUE(R::IsValidOwner(20, 10));
    EXPECT_FALSE(R::IsValidOwner(20, 11)) << "a subtype of an owner type is no owner type";

    ASSERT_TRUE(R::AddOwnerType(20, 11));
    ASSERT_TRUE(R::AddOwnerType(20, 11));  // kept twice, as given
    EXPECT_EQ(R::GetOwnerType(20), 11);
    EXPECT_EQ(List([](auto& v) { return R::GetOwnerTypes(20, v); }), "10 11 11");
    EXPECT_TRUE(R::IsValidOwner(20, 11));

    // Abstract types collect ownees but cannot report them; only concrete object types have owners.
    ASSERT_TRUE(R::AddOwnerType(21, 1));
    EXPECT_EQ(List([](auto& v) { return R::GetOwneeTypes(1, v); }), "refused");
    EXPECT_FALSE(R::AddOwnerType(1, 10));
    EXPECT_EQ(R::GetOwnerType(1), 0);
}

TEST_F(MCFactoryRegistryTest, ClipValuesAreDecidedOnceAndInheritedByNearestDeclaration) {
    ASSERT_TRUE(R::RegisterAbstractObject(1, "Root", 0));
    ASSERT_TRUE(R::RegisterAbstractObject(2, "Mid", 1));
    ASSERT_TRUE(R::RegisterAbstractObject(3, "Low", 2));
    for (short p : {90, 91, 92})
        ASSERT_TRUE(R::RegisterAliasProperty(p, ZVTString(long(p), 10), 87, 1, 0, 0, 0));
    ASSERT_TRUE(R::AddPropertyUsage(1, 90, 1));
    ASSERT_TRUE(R::AddPropertyUsage(2, 90, 2));
    ASSERT_TRUE(R::AddPropertyUsage(1, 91, R::clipUndecided));

    EXPECT_EQ(R::GetClipFlag(3, 90), 2u) << "the nearest declaration wins";
    EXPECT_EQ(R::GetClipFlag(1, 90), 1u);
    EXPECT_EQ(R::GetClipFlag(3, 91), R::clipUndecided);
    EXPECT_EQ(R::GetClipFlag(3, 92), R::clipNoUsage);
    EXPECT_EQ(R::GetClipFlag(999, 90), R::clipNoUsage);

    EXPECT_TRUE(R::AddPropertyUsage(1, 91, 4));  // a second declaration keeps the first value
    EXPECT_EQ(R::GetClipFlag(1, 91), R::clipUndecided);
    EXPECT_FALSE(R::SetClipFlag(3, 91, 4)) << "only a type's own usage can be decided";
    EXPECT_TRUE(R::SetClipFlag(1, 91, 4));
    EXPECT_FALSE(R::SetClipFlag(1, 91, 1)) << "a decided value stays";
    EXPECT_EQ(R::GetClipFlag(3, 91), 4u);

    EXPECT_FALSE(R::AddPropertyUsage(90, 1, 0)) << "arguments the wrong way round";
    EXPECT_TRUE(R::RemovePropertyUsage(2, 90, nullptr));
    EXPECT_EQ(R::GetClipFlag(3, 90), 1u);
    EXPECT_EQ(List([](auto& v) { return R::GetUsingObjectTypes(90, v, nullptr); }), "1");
    EXPECT_TRUE(R::RemovePropertyUsage(2, 90, nullptr)) << "removing what is not there still answers true";

    // Usage pairs widen their clip value with its sign; a pair of an unknown property is skipped.
    ASSERT_TRUE(R::RegisterAbstractObject(4, "Paired", 0));
    const short pairs[] = {90, -1, 91, 0x2000, 999, 0};
    EXPECT_TRUE(R::AddPropertyUsages(4, pairs, 3));
    EXPECT_EQ(R::GetClipFlag(4, 90), 0xFFFFFFFFu);
    EXPECT_EQ(R::GetClipFlag(4, 91), R::clipUndecided);
    EXPECT_EQ(Usages(4, R::usageCore), "90 91");
}

TEST_F(MCFactoryRegistryTest, FlattenedUsagesComeOwnFirstAndSeeLateDeclarations) {
    ASSERT_TRUE(R::RegisterAbstractObject(1, "Root", 0));
    ASSERT_TRUE(R::RegisterAbstractObject(2, "Sub", 1));
    for (short p : {60, 61, 62})
        ASSERT_TRUE(R::RegisterAliasProperty(p, ZVTString(long(p), 10), 87, 1, 0, 0, 0));
    ASSERT_TRUE(R::AddPropertyUsage(1, 60, 0));
    ASSERT_TRUE(R::AddPropertyUsage(2, 61, 0));
    ASSERT_TRUE(R::AddPropertyUsage(2, 60, 0));
    EXPECT_EQ(Usages(2, R::usageCore), "61 60");
    EXPECT_EQ(Usages(2, c_nFlattened), "61 60 60") << "a property declared on both levels comes twice";
    ASSERT_TRUE(R::AddPropertyUsage(1, 62, 0));
    EXPECT_EQ(Usages(2, c_nFlattened), "61 60 60 62");
    EXPECT_EQ(Usages(2, R::flagWithInherited), "");

    // Alias object types stand outside the hierarchy and report nothing.
    ASSERT_TRUE(R::RegisterAliasObject(3, "Nick", 0, 2, true, false));
    EXPECT_EQ(Usages(3, c_nFlattened), "refused");
    EXPECT_EQ(R::GetSupertype(3), 0);
}

TEST_F(MCFactoryRegistryTest, FactoriesBelongToTheRegistryOnceAcceptedAndDefinitionsToAnyEntry) {
    ASSERT_TRUE(R::RegisterAbstractObject(1, "Root", 0));
    ASSERT_TRUE(R::RegisterConcreteObject(2, "Thing", 1, 0, new CountingFactory(counters, 48), 0, 0));
    ASSERT_TRUE(R::RegisterConcreteProperty(87, "Integer", new CountingFactory(counters, 24), 1, 0, 0, 0));
    ASSERT_TRUE(R::RegisterAliasProperty(132, "Id", MCCodes::pInteger, 0, 0, 0, 0));
    ASSERT_TRUE(R::RegisterAliasProperty(133, "Dangling", 77, 0, 0, 0, 0));
    EXPECT_EQ(R::GetItemSize(2), 48u);
    EXPECT_EQ(R::GetItemSize(132), 24u) << "an alias answers with its concrete type's size";
    EXPECT_EQ(R::GetItemSize(1), 0u);
    {
        MessageLog log;
        EXPECT_EQ(R::GetItemSize(4242), 0u);
        EXPECT_EQ(R::GetItemSize(133), 0u);  // reported under the translated code
        EXPECT_EQ(log.Text(), "602(0x10: 4242) 602(0x10: 77)");
    }
    ZVTString text("untouched");
    EXPECT_TRUE(R::GetDefinition(1, text));
    EXPECT_TRUE(text.IsNull());
    EXPECT_TRUE(R::SetDefinition(1, "the root of all things"));
    EXPECT_TRUE(R::GetDefinition(1, text));
    EXPECT_EQ(text, ZVTString("the root of all things"));
    EXPECT_FALSE(R::SetDefinition(3, "nobody"));
    R::DeleteInstance();
    EXPECT_EQ(counters.destroyed, 2);
    EXPECT_EQ(counters.alive, 0);

    // The sizes answered above were remembered; codes registered anew answer anew, also when asked again,
    // and an unknown code is reported every time.
    ASSERT_TRUE(R::RegisterConcreteObject(2, "Thing", 1, 0, new CountingFactory(counters, 64), 0, 0));
    ASSERT_TRUE(R::RegisterAliasProperty(132, "Id", 2, 0, 0, 0, 0));
    MessageLog log;
    std::string sizes;
    for (short code : {short{2}, short{132}, short{4242}, short{132}, short{4242}})
        sizes += std::to_string(R::GetItemSize(code)) + " ";
    EXPECT_EQ(sizes + log.Text(), "64 64 0 64 0 602(0x10: 4242) 602(0x10: 4242)");
}

TEST_F(MCFactoryRegistryTest, ASupertypeCycleEndsTheWalkInsteadOfSpinning) {
    ASSERT_TRUE(R::RegisterAbstractObject(1, "A", 2));
    ASSERT_TRUE(R::RegisterAbstractObject(2, "B", 1));
    ASSERT_TRUE(R::RegisterAbstractObject(3, "Self", 3));
    EXPECT_EQ(R::GetClipFlag(1, 87), R::clipNoUsage);
    EXPECT_EQ(R::GetClipFlag(3, 87), R::clipNoUsage);
    EXPECT_EQ(Usages(3, c_nFlattened), "");
}

TEST_F(MCFactoryRegistryTest, TableGrowsToEveryPositiveCode) {
    for (int code = 1; code <= 32767; ++code)
        ASSERT_TRUE(R::RegisterAbstractObject(short(code), ZVTString(long(code), 10), short(code / 2)));
    EXPECT_EQ(R::GetSupertype(32767), 16383);
    EXPECT_EQ(R::Lookup(ZVTString("20000")), 20000);
    ZVTOrderedVectorT<short> all;
    EXPECT_TRUE(R::GetObjectTypes(all, ~0UL));
    EXPECT_EQ(all.Length(), 32767u);
}

}  // namespace
