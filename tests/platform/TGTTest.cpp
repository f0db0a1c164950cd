// Covers the target registry: refused registrations, look-up by exact name, unregistering only the
// registered target, and the ways the registry forgets (Clear, HUB::Terminate, a target's destruction).

#include "platform/TGT.h"

#include <gtest/gtest.h>

#include "platform/HUB.h"

namespace {

TEST(TGTTest, OneTargetPerNameAndNoneForTheEmptyName) {
    HUBTargetRegistry::Clear();
    tgt_target first("Drive"), twin("Drive"), empty(""), null(static_cast<const char*>(nullptr));
    EXPECT_FALSE(HUBTargetRegistry::RegisterTarget(nullptr));
    EXPECT_FALSE(HUBTargetRegistry::RegisterTarget(&empty));
    EXPECT_FALSE(HUBTargetRegistry::RegisterTarget(&null));
    EXPECT_TRUE(HUBTargetRegistry::RegisterTarget(&first));
    EXPECT_FALSE(HUBTargetRegistry::RegisterTarget(&first));
    EXPECT_FALSE(HUBTargetRegistry::RegisterTarget(&twin));
    EXPECT_EQ(HUBTargetRegistry::GetTargetFromId("Drive"), &first);
    EXPECT_EQ(HUBTargetRegistry::GetTargetFromId("drive"), nullptr);
    EXPECT_EQ(HUBTargetRegistry::GetTargetFromId(""), nullptr);

    EXPECT_FALSE(HUBTargetRegistry::UnregisterTarget(nullptr));
    EXPECT_FALSE(HUBTargetRegistry::UnregisterTarget(&twin));  // same name, not the registered one
    EXPECT_EQ(HUBTargetRegistry::GetTargetFromId("Drive"), &first);
    EXPECT_TRUE(HUBTargetRegistry::UnregisterTarget(&first));
    EXPECT_FALSE(HUBTargetRegistry::UnregisterTarget(&first));
    EXPECT_EQ(HUBTargetRegistry::GetTargetFromId("Drive"), nullptr);
    EXPECT_TRUE(HUBTargetRegistry::RegisterTarget(&twin));
    HUBTargetRegistry::Clear();
}

TEST(TGTTest, ClearTerminateAndDestructionForgetTargets) {
    HUBTargetRegistry::Clear();
    tgt_target kept("Kept");
    {
        tgt_target shortLived("Gone");
        ASSERT_TRUE(HUBTargetRegistry::RegisterTarget(&shortLived));
        ASSERT_TRUE(HUBTargetRegistry::RegisterTarget(&kept));
    }
    EXPECT_EQ(HUBTargetRegistry::GetTargetFromId("Gone"), nullptr);
    EXPECT_EQ(HUBTargetRegistry::GetTargetFromId("Kept"), &kept);
    HUB::Terminate();
    EXPECT_EQ(HUBTargetRegistry::GetTargetFromId("Kept"), nullptr);
    ASSERT_TRUE(HUBTargetRegistry::RegisterTarget(&kept));
    HUBTargetRegistry::Clear();
    EXPECT_EQ(HUBTargetRegistry::GetTargetFromId("Kept"), nullptr);
}

}  // namespace
