#include "ModelCore/ZVFWMC/MCEnvironment.h"

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MdlCore.h"
#include "platform/HUB.h"

namespace {

const ZVTString c_xSourceFile("ModelCore/ZVFWMC/MCEnvironment");

// Opens the global section of a stored model. Stored value: must not change.
constexpr char c_cGlobalsToken = 0x11;

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

void MCEnvironment::SaveGlobals(MCStream&, MCObject*) {
    // Seam: forwards to MCFactoryRegistry::SaveTo(rStream, pObject) once the
    // model stream joins. Until then no stream exists to call this with.
    MC_THROW_UNEXPECTED(c_xSourceFile);
}

void MCEnvironment::RestoreGlobalToken(char cToken, MCStream&, MCUDPMap** ppMap) {
    if (cToken != c_cGlobalsToken)
        throw EXUnknownToken();
    if (ppMap == nullptr)
        throw EXNoMapPointer();
    // Seam: once the model stream joins, make a new MCUDPMap into *ppMap when it
    // is null, then MCFactoryRegistry::RestoreFrom(rStream, *ppMap, nullptr).
    MC_THROW_UNEXPECTED(c_xSourceFile);
}

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
