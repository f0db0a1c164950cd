// The host's flag table and the table of inherited property pairs.

#include <gtest/gtest.h>

#include "ModelCore/ZVFWMC/MCMetaInfo.h"
#include "support/RegistryTestSupport.h"

namespace {

class MCMetaInfoTest : public FreshRegistryTest {};

TEST_F(MCMetaInfoTest, FlagsSelectReportableTypes) {
    ASSERT_TRUE(MCMetaInfo::SetFlags(2, 5));
    ASSERT_TRUE(MCMetaInfo::SetFlags(27, 21));
    ASSERT_TRUE(MCMetaInfo::SetFlags(301, 4));  // bit 0 missing: never reported
    ASSERT_TRUE(MCMetaInfo::SetFlags(302, 1));
    EXPECT_FALSE(MCMetaInfo::SetFlags(302, 0x80000001UL));

    struct Case {
        unsigned long required;
        unsigned long forbidden;
        bool answer;
        std::vector<short> types;
    };
    const Case cases[] = {
        {0, 0, true, {2, 27, 302}},   {4, 0, true, {2, 27}}, {4, 0x10, true, {2}},
        {0x10, 0, true, {27}},        {0, 1, false, {}},     {0x80000000UL, 0, false, {}},
        {0, 0x80000000UL, false, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.required << " / " << c.forbidden);
        ZVTOrderedVectorT<short> found;
        EXPECT_EQ(MCMetaInfo::GetObjectTypes(c.required, c.forbidden, found), c.answer);
        std::vector<short> codes;
        for (size_t i = 0; i < found.Length(); ++i)
            codes.push_back(found[i]);
        std::sort(codes.begin(), codes.end());
        EXPECT_EQ(codes, c.types);
    }

    ASSERT_TRUE(MCMetaInfo::SetFlags(2, 0));  // replaced, not merged
    EXPECT_EQ(SortedCodes([](auto& v) { return MCMetaInfo::GetObjectTypes(0, 0, v); }),
              (std::vector<short>{27, 302}));
}

TEST_F(MCMetaInfoTest, InheritancePairsHoldForExactlyTheTypeNamed) {
    ZVTOrderedVectorT<short> none;
    EXPECT_FALSE(MCMetaInfo::GetObjectTypes(0, 0, none)) << "no table yet";
    EXPECT_FALSE(MCMetaInfo::IsInheritable(1, 147));
    EXPECT_FALSE(MCMetaInfo::GetInheritableProperties(1, none));
    ASSERT_TRUE(MCFactoryRegistry::RegisterAbstractObject(1, "Root", 0));
    ASSERT_TRUE(MCFactoryRegistry::RegisterAbstractObject(2, "Sub", 1));
    ASSERT_TRUE(MCMetaInfo::RegisterPropertyInheritance(1, 147));
    ASSERT_TRUE(MCMetaInfo::RegisterPropertyInheritance(1, 91));
    ASSERT_TRUE(MCMetaInfo::RegisterPropertyInheritance(1, 147));
    ASSERT_TRUE(MCMetaInfo::RegisterPropertyInheritance(-4, 88));  // nothing checks that types exist

    EXPECT_TRUE(MCMetaInfo::IsInheritable(1, 147));
    EXPECT_FALSE(MCMetaInfo::IsInheritable(2, 147)) << "a subtype does not share its supertype's pairs";
    EXPECT_FALSE(MCMetaInfo::IsInheritable(147, 1));
    EXPECT_TRUE(MCMetaInfo::IsInheritable(-4, 88));
    EXPECT_EQ(SortedCodes([](auto& v) { return MCMetaInfo::GetInheritableProperties(1, v); }),
              (std::vector<short>{91, 147, 147}));
    EXPECT_EQ(Codes([](auto& v) { return MCMetaInfo::GetInheritableProperties(2, v); }),
              std::vector<short>{});
}

}  // namespace
