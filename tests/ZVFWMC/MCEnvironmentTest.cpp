// The host's environment: one installation per process, the order of the global-token checks, and what
// shutting down ends (not the once-only initialization).

#include "ModelCore/ZVFWMC/MCEnvironment.h"

#include <gtest/gtest.h>

#include <cstddef>

#include "ModelCore/ModelCore.h"
#include "platform/HUB.h"

namespace {

class TestEnvironment : public MCEnvironment {
public:
    static void Install(MCEnvironment* pEnvironment) { SetSingleton(pEnvironment); }
    std::string m_xLog;
};

class RecordingEnvironment : public TestEnvironment {
protected:
    void Shutdown() override { m_xLog += "Shutdown;"; }
};

// The only test that installs an environment: installation is once per process.
TEST(MCEnvironmentTest, TheFirstInstalledInstanceStaysUntilItIsDestroyed) {
    std::string thrownBy = "nothing";
    try {
        TestEnvironment::Install(nullptr);
    } catch (const EXUnexpected& e) {
        thrownBy = e.m_xFile.data();
    }
    EXPECT_EQ(thrownBy, "ModelCore/ZVFWMC/MCEnvironment");
    EXPECT_EQ(MCEnvironment::GetInstance(), nullptr);
    {
        TestEnvironment first, second;
        EXPECT_EQ(MCEnvironment::GetInstance(), nullptr);  // constructing does not install
        TestEnvironment::Install(&first);
        for (MCEnvironment* pEnvironment : std::initializer_list<MCEnvironment*>{nullptr, &second, &first}) {
            EXPECT_THROW(TestEnvironment::Install(pEnvironment), EXUnexpected);
            EXPECT_EQ(MCEnvironment::GetInstance(), &first);
        }
    }
    EXPECT_EQ(MCEnvironment::GetInstance(), nullptr);
}

TEST(MCEnvironmentTest, RestoreGlobalTokenChecksTheTokenBeforeTheMapPointer) {
    // The checks fail before the stream is touched, and the stream type is not complete here, so any
    // well-aligned storage stands in for it.
    alignas(std::max_align_t) static unsigned char s_acStorage[256];
    MCStream& untouched = *reinterpret_cast<MCStream*>(s_acStorage);
    TestEnvironment environment;
    for (char token : {0, 0x10, 0x12, -1}) {
        EXPECT_THROW(environment.RestoreGlobalToken(token, untouched, nullptr), EXUnknownToken) << int(token);
        EXPECT_FALSE(environment.HandleUnknownToken(token, untouched));
    }
    EXPECT_THROW(environment.RestoreGlobalToken(0x11, untouched, nullptr), EXNoMapPointer);
}

TEST(MCEnvironmentTest, ShutdownIsVirtualAndTheBaseEndsTheInterfaceLibraryAndTheCore) {
    RecordingEnvironment recording;
    recording.NotifyOfShutdown();
    EXPECT_EQ(recording.m_xLog, "Shutdown;");

    alignas(16) char object[16];
    HUBProductIdent::SetProductIdent("Company", "Product", "1.0", "1, 0, 0, 0");
    HUBScopedMessageHandler messages;
    const long id = MCIdSpace::Global().RequestId();
    MCIdSpace::Global().RegisterPointer(id, reinterpret_cast<MCObject*>(object));
    MdlCore::Initialize();
    TestEnvironment().NotifyOfShutdown();
    MdlCore::Terminate();   // a second end finds nothing to delete twice
    MdlCore::Initialize();  // done once per process: registers nothing again
    EXPECT_TRUE(MdlCore::IsInitialized());
    EXPECT_FALSE(MCFactoryRegistry::IsRegistered(MCCodes::pInteger, nullptr));
    EXPECT_EQ(HUBProductIdent::GetProductIdent(), nullptr);
    EXPECT_EQ(HUB::GetMessageHandler(), nullptr);
    EXPECT_EQ(MCIdSpace::Global().ResolveId(id), nullptr);
    EXPECT_EQ(MCIdSpace::Global().RequestId(), id + 1) << "the emptied id space keeps its counter";
}

}  // namespace
