// The library's door: the once-only Initialize, and Terminate deleting the registries and emptying the
// global id space while keeping its counter.

#include "ModelCore/ZVFWMC/MdlCore.h"

#include <gtest/gtest.h>

#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCIdSpace.h"
#include "ModelCore/ZVFWMC/MCMetaInfo.h"

namespace {

TEST(MdlCoreTest, TerminateDeletesTheRegistriesAndEmptiesTheIdSpaceButInitializeStaysDone) {
    EXPECT_EQ(MdlCore::GetVersion(), 1.0);
    MdlCore::Initialize();
    MdlCore::Initialize();
    ASSERT_TRUE(MCFactoryRegistry::RegisterAbstractObject(1000, "TerminateProbe", 0));
    ASSERT_TRUE(MCMetaInfo::RegisterPropertyInheritance(1000, 1001));
    alignas(16) char object[16];
    MCIdSpace& global = MCIdSpace::Global();
    const long id = global.RequestId();
    global.RegisterPointer(id, reinterpret_cast<MCObject*>(object));
    MdlCore::Terminate();
    MdlCore::Terminate();  // a second end finds nothing to delete twice
    EXPECT_TRUE(MdlCore::IsInitialized());
    MdlCore::Initialize();  // registers nothing again
    EXPECT_FALSE(MCFactoryRegistry::IsRegistered(1000, nullptr));
    EXPECT_FALSE(MCFactoryRegistry::IsRegistered(1, nullptr));
    EXPECT_FALSE(MCMetaInfo::IsInheritable(1000, 1001));
    EXPECT_EQ(global.ResolveId(id), nullptr);
    EXPECT_EQ(global.RequestId(), id + 1);
}

}  // namespace
