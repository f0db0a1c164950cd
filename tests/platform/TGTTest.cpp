// Covers the target registry: refused registrations, look-up by exact name, unregistering only the
// registered target, and the ways the registry forgets (Clear, HUB::Terminate, a target's destruction).

#include "platform/TGT.h"

#include <gtest/gtest.h>

#include "platform/HUB.h"

namespace {

using R = HUBTargetRegistry;

TEST(TGTTest, OneTargetPerNameAndTheRegistryForgetsThem) {
    R::Clear();
    tgt_target first("Drive"), twin("Drive"), empty(""), null(static_cast<const char*>(nullptr));
    std::string seen;
    for (tgt_target* target : {static_cast<tgt_target*>(nullptr), &empty, &null, &first, &first, &twin})
        seen += R::RegisterTarget(target) ? "T" : "F";
    for (const char* name : {"Drive", "drive", ""})
        seen += R::GetTargetFromId(name) == &first ? " first" : " none";
    // Only the registered target unregisters its name, and only once.
    for (tgt_target* target : {static_cast<tgt_target*>(nullptr), &twin, &first, &first})
        seen += R::UnregisterTarget(target) ? " T" : " F";
    seen += R::GetTargetFromId("Drive") ? " found" : " gone";
    seen += R::RegisterTarget(&twin) ? " T" : " F";
    EXPECT_EQ(seen, "FFFTFF first none none F F T F gone T");

    // Clear, HUB::Terminate and a target's destruction forget targets.
    {
        tgt_target shortLived("Gone");
        ASSERT_TRUE(R::RegisterTarget(&shortLived));
    }
    EXPECT_EQ(R::GetTargetFromId("Gone"), nullptr);
    HUB::Terminate();
    EXPECT_EQ(R::GetTargetFromId("Drive"), nullptr);
    ASSERT_TRUE(R::RegisterTarget(&twin));
    R::Clear();
    EXPECT_EQ(R::GetTargetFromId("Drive"), nullptr);
}

}  // namespace
