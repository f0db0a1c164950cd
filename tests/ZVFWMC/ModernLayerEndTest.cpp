// Its own process: the library's last scope shuts the core down, which happens once per process.

#include <gtest/gtest.h>

#include "ModelCore/ModelCoreModern.h"

namespace {

struct CountingEnvironment : MCEnvironment {
    int m_nShutdowns = 0;
    void Shutdown() override {
        ++m_nShutdowns;
        MCEnvironment::Shutdown();
    }
};

TEST(ModernLayerLibraryTest, TheLastScopeShutsTheCoreDownOnce) {
    // Outlives the test: the core keeps it as its environment after the end.
    static CountingEnvironment environment;
    mc::Rule outliving;
    {
        mc::Library outer(&environment);
        EXPECT_EQ(MCEnvironment::GetInstance(), &environment);
        { mc::Library inner; }
        EXPECT_EQ(environment.m_nShutdowns, 0);
        MCObject* object = mc::Create<MCGenericObject>(nullptr);
        ASSERT_NE(object, nullptr) << "an inner scope shut the core down";
        object->Expunge(true);
        outliving =
            mc::OnObject(MCCodes::tGenericObject, [](auto...) { return MCObjectSem::resultContinue; });
    }
    EXPECT_EQ(environment.m_nShutdowns, 1);
    outliving.Reset();  // the registries are gone: it must neither touch nor remake them
    EXPECT_EQ(MCObjectSemReg::GetInstance(), nullptr);
    EXPECT_FALSE(MCFactoryRegistry::IsRegistered(MCCodes::tGenericObject, nullptr));
    EXPECT_THROW(mc::Library{}, EXUnexpected);
}

}  // namespace
