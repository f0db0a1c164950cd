// The plugin libraries of the controller's tests, one source built three ways: with an entry point that
// registers "echo", with one that registers "doomed" and refuses (AIC_TEST_REFUSE), and without one.

#include "platform/AIC.h"

namespace {

// Answers object id + mode; "terminate" ends every library, its own included, before it returns.
struct Echo : ControllerInterface {
    long FireSemantic_(const ZVTString& semantic, long, long object, long, unsigned int mode) override {
        if (semantic == ZVTString("terminate"))
            CComponentManager::Terminate();
        return object + static_cast<long>(mode);
    }
} c_xEcho;

}  // namespace

#if !defined(AIC_TEST_NO_ENTRY)
AIC_PLUGIN_ENTRY ZVTBoolean AICRegisterComponents(AICComponentRegistrar* registrar) {
#if defined(AIC_TEST_REFUSE)
    registrar->RegisterComponent("doomed", &c_xEcho);
    return false;
#else
    return registrar->RegisterComponent("echo", &c_xEcho);
#endif
}
#endif
