// The add-in controller: components registered in-process, plugins loaded by path with the result of
// every way a load can end, unloading (also from inside a component's own call) and Terminate.

#include <gtest/gtest.h>

#include "platform/AIC.h"

namespace {

struct Constant : ControllerInterface {
    long FireSemantic_(const ZVTString&, long, long, long, unsigned int) override { return 7; }
};

// What the component of that name answers to object 10 in mode 2, "none" without one.
std::string Ask(const char* name) {
    ControllerInterface* found = CComponentManager::FindComponent(name);
    return found ? std::to_string(found->FireSemantic("any", 0, 10, 0, 2)) : "none";
}

struct ControllerTest : ::testing::Test {
    void TearDown() override { CComponentManager::Terminate(); }
};

}  // namespace

TEST_F(ControllerTest, InProcessComponentsByName) {
    Constant constant;
    for (const char* name : {"c", "c", ""})  // a name is taken once; an empty one never
        CComponentManager::RegisterComponent(name, &constant);
    EXPECT_FALSE(CComponentManager::RegisterComponent("null", nullptr));
    EXPECT_EQ(Ask("c") + " " + Ask("") + " " + Ask("null"), "7 none none");
    EXPECT_TRUE(CComponentManager::UnregisterComponent("c"));
    EXPECT_EQ(Ask("c"), "none");
}

TEST_F(ControllerTest, EveryWayALoadCanEndAndUnloading) {
    const std::pair<const char*, CComponentManager::load_result> cases[] = {
        {AIC_TEST_PLUGIN, CComponentManager::loadOk},
        {AIC_TEST_PLUGIN, CComponentManager::loadAlreadyLoaded},
        {AIC_REFUSING_PLUGIN, CComponentManager::loadRefused},
        {AIC_NO_ENTRY_MODULE, CComponentManager::loadNoEntryPoint},
        {"/no/such/library.so", CComponentManager::loadCannotOpen},
        {"", CComponentManager::loadCannotOpen},
        {__FILE__, CComponentManager::loadCannotOpen},     // not a shared library
        {"libc.so.6", CComponentManager::loadCannotOpen},  // a bare name is never looked up
    };
    for (const auto& [path, result] : cases) {
        SCOPED_TRACE(path);
        ZVTString detail;
        EXPECT_EQ(CComponentManager::LoadComponentLibrary(path, &detail), result);
        EXPECT_EQ(detail.IsNull(), result != CComponentManager::loadCannotOpen);
    }
    EXPECT_EQ(Ask("echo") + " " + Ask("doomed"), "12 none");

    // Unloading ends the library's components, once.
    EXPECT_TRUE(CComponentManager::UnloadComponentLibrary(AIC_TEST_PLUGIN));
    EXPECT_FALSE(CComponentManager::UnloadComponentLibrary(AIC_TEST_PLUGIN));
    EXPECT_EQ(Ask("echo"), "none");
    // A component that ends its own library still returns through its code.
    ASSERT_EQ(CComponentManager::LoadComponentLibrary(AIC_TEST_PLUGIN), CComponentManager::loadOk);
    EXPECT_EQ(CComponentManager::FindComponent("echo")->FireSemantic("terminate", 0, 10, 0, 1), 11);
    EXPECT_EQ(Ask("echo"), "none");
}
