#include "ModelCore/ZVFWMC/MCEnvironment.h"

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MdlCore.h"
#include "platform/HUB.h"

namespace {

const ZVTString c_xSourceFile("ModelCore/ZVFWMC/MCEnvironment");

}  // namespace

MCEnvironment* MCEnvironment::c_pxSingleton = nullptr;

MCEnvironment::MCEnvironment() = default;

MCEnvironment::~MCEnvironment() {
    // GetInstance must never answer a dead object.
    if (c_pxSingleton == this)
        c_pxSingleton = nullptr;
}

MCEnvironment* MCEnvironment::GetInstance() {
    return c_pxSingleton;
}

void MCEnvironment::SetSingleton(MCEnvironment* pEnvironment) {
    if (pEnvironment == nullptr || c_pxSingleton != nullptr)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    c_pxSingleton = pEnvironment;
}

// SaveGlobals and RestoreGlobalToken are defined with the model stream, in MCStreams.cpp.

ZVTBoolean MCEnvironment::HandleUnknownToken(char, MCStream&) {
    return false;
}

void MCEnvironment::NotifyOfShutdown() {
    Shutdown();
}

void MCEnvironment::Shutdown() {
    HUB::Terminate();
    MdlCore::Terminate();
}
