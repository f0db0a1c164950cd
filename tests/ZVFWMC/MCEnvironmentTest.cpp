// The host's environment: one installation per process, the order of the global-token checks, and what
// shutting down ends.

#include "ModelCore/ZVFWMC/MCEnvironment.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCIdSpace.h"
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
    try {
        TestEnvironment::Install(nullptr);
        ADD_FAILURE() << "nothing thrown";
    } catch (const EXUnexpected& e) {
        EXPECT_EQ(e.m_xFile, "ModelCore/ZVFWMC/MCEnvironment");
    }
    EXPECT_EQ(MCEnvironment::GetInstance(), nullptr);
    {
        TestEnvironment first;
        TestEnvironment second;
        TestEnvironment* const none = nullptr;
        EXPECT_EQ(MCEnvironment::GetInstance(), nullptr);  // constructing does not install
        TestEnvironment::Install(&first);
        for (MCEnvironment* pEnvironment : {none, &second, &first}) {
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
    for (char token : {0, 1, 2, 0x10, 0x12, 0x15, -1}) {
        SCOPED_TRACE(static_cast<int>(token));
        EXPECT_THROW(environment.RestoreGlobalToken(token, untouched, nullptr), EXUnknownToken);
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
    TestEnvironment().NotifyOfShutdown();
    EXPECT_EQ(HUBProductIdent::GetProductIdent(), nullptr);
    EXPECT_EQ(HUB::GetMessageHandler(), nullptr);
    EXPECT_EQ(MCIdSpace::Global().ResolveId(id), nullptr);
}

}  // namespace
