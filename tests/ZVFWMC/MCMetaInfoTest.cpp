// The host's flag table and the table of inherited property pairs.

#include <tuple>

#include "support/RegistryTestSupport.h"

namespace {

class MCMetaInfoTest : public FreshRegistryTest {};

TEST_F(MCMetaInfoTest, FlagsSelectReportableTypes) {
    // 301 lacks bit 0: never reported.
    ASSERT_TRUE(MCMetaInfo::SetFlags(2, 5) && MCMetaInfo::SetFlags(27, 21) && MCMetaInfo::SetFlags(301, 4) &&
                MCMetaInfo::SetFlags(302, 1));
    EXPECT_FALSE(MCMetaInfo::SetFlags(302, 0x80000001UL));
    // Flags required, flags forbidden, the types reported.
    const std::tuple<unsigned long, unsigned long, const char*> cases[] = {
        {0, 0, "2 27 302"},
        {4, 0, "2 27"},
        {4, 0x10, "2"},
        {0x10, 0, "27"},
        {0, 1, "refused"},
        {0x80000000UL, 0, "refused"},
        {0, 0x80000000UL, "refused"},
    };
    for (const auto& [required, forbidden, types] : cases) {
        auto query = [r = required, f = forbidden](auto& v) { return MCMetaInfo::GetObjectTypes(r, f, v); };
        EXPECT_EQ(CodeList(query, true), types) << std::hex << required << " / " << forbidden;
    }
    ASSERT_TRUE(MCMetaInfo::SetFlags(2, 0));  // replaced, not merged
    EXPECT_EQ(CodeList([](auto& v) { return MCMetaInfo::GetObjectTypes(0, 0, v); }, true), "27 302");
}

TEST_F(MCMetaInfoTest, InheritancePairsHoldForExactlyTheTypeNamed) {
    ZVTOrderedVectorT<short> none;
    EXPECT_FALSE(MCMetaInfo::GetObjectTypes(0, 0, none)) << "no table yet";
    EXPECT_FALSE(MCMetaInfo::IsInheritable(1, 147)) << "no table yet";
    EXPECT_FALSE(MCMetaInfo::GetInheritableProperties(1, none)) << "no table yet";
    ASSERT_TRUE(MCFactoryRegistry::RegisterAbstractObject(1, "Root", 0) &&
                MCFactoryRegistry::RegisterAbstractObject(2, "Sub", 1));
    // Nothing checks that the types exist.
    for (auto [type, property] : {std::pair<short, short>{1, 147}, {1, 91}, {1, 147}, {-4, 88}})
        ASSERT_TRUE(MCMetaInfo::RegisterPropertyInheritance(type, property));
    // A subtype does not share its supertype's pairs.
    for (auto [type, property, held] :
         {std::tuple<short, short, bool>{1, 147, true}, {2, 147, false}, {147, 1, false}, {-4, 88, true}})
        EXPECT_EQ(MCMetaInfo::IsInheritable(type, property), held) << type << "/" << property;
    EXPECT_EQ(CodeList([](auto& v) { return MCMetaInfo::GetInheritableProperties(1, v); }, true),
              "91 147 147");
    EXPECT_EQ(CodeList([](auto& v) { return MCMetaInfo::GetInheritableProperties(2, v); }), "");
}

}  // namespace
