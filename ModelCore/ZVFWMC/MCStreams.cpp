#include "ModelCore/ZVFWMC/MCStreams.h"

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCEnvironment.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCUDPMap.h"
#include "platform/TGT.h"

namespace {

const ZVTString c_xSourceFile("ModelCore/ZVFWMC/MCStreams");

}  // namespace

MCStream::MCStream(const char* path, ZVTStream::stream_type type, int openMode, int protection)
    : ZVTStream(path, type, openMode, protection, false),
      m_pxIdSpace(new MCIdSpace(0)),
      m_cPendingToken(0),
      m_bHasPendingToken(false) {}

MCStream::MCStream(std::streambuf& buffer, ZVTStream::stream_type type)
    : ZVTStream(buffer, type), m_pxIdSpace(new MCIdSpace(0)), m_cPendingToken(0), m_bHasPendingToken(false) {}

MCStream::MCStream(std::iostream& stream, ZVTStream::stream_type type)
    : ZVTStream(stream, type), m_pxIdSpace(new MCIdSpace(0)), m_cPendingToken(0), m_bHasPendingToken(false) {}

MCStream::MCStream(std::istream& stream, ZVTStream::stream_type type)
    : ZVTStream(stream, type), m_pxIdSpace(new MCIdSpace(0)), m_cPendingToken(0), m_bHasPendingToken(false) {}

MCStream::~MCStream() = default;

MCUDPMap* MCStream::GetUDPMap() {
    return m_pxUDPMap.get();
}

void MCStream::AdoptUDPMap(MCUDPMap* map) {
    // An earlier map goes back to whoever adopted it, who may still be using it.
    static_cast<void>(m_pxUDPMap.release());
    m_pxUDPMap.reset(map);
}

short MCStream::TranslateUDPType(short type) {
    if (!m_pxUDPMap)
        return type < 0 ? 0 : type;
    m_pxUDPMap->Translate(type, type);
    return type;
}

MCIdSpace& MCStream::GetIdSpace() {
    return *m_pxIdSpace;
}

ZVTBoolean MCStream::HasPendingToken() const {
    return m_bHasPendingToken;
}

ZVTBoolean MCStream::SetPendingToken(char token) {
    // One token of push-back: a second would silently lose the first.
    if (m_bHasPendingToken)
        return false;
    m_cPendingToken = token;
    m_bHasPendingToken = true;
    return true;
}

char MCStream::GetPendingToken() {
    m_bHasPendingToken = false;
    return m_cPendingToken;
}

MCStream& operator<<(MCStream& stream, tgt_target* pTarget) {
    stream << (pTarget == nullptr ? ZVTString("") : pTarget->GetTargetName());
    return stream;
}

MCStream& operator>>(MCStream& stream, tgt_target*& pTarget) {
    ZVTString name;
    stream >> name;  // left null by a failed read, which so gives no target
    pTarget = HUBTargetRegistry::GetTargetFromId(name);
    return stream;
}

MCStream& operator<<(MCStream&, MCObject*) {
    MC_THROW_UNEXPECTED(c_xSourceFile);
}

MCStream& operator>>(MCStream&, MCObject*&) {
    MC_THROW_UNEXPECTED(c_xSourceFile);
}

MCGlobalStreamable::~MCGlobalStreamable() = default;

// The environment's global-section hooks live with the model stream: the environment sits below the
// metamodel registry and may not include it.

void MCEnvironment::SaveGlobals(MCStream& rStream, MCObject* pObject) {
    MCFactoryRegistry::GetInstance()->SaveTo(rStream, pObject);
}

void MCEnvironment::RestoreGlobalToken(char cToken, MCStream& rStream, MCUDPMap** ppMap) {
    if (cToken != MCStream::tokenGlobals)
        throw EXUnknownToken();
    if (ppMap == nullptr)
        throw EXNoMapPointer();
    if (*ppMap == nullptr)
        *ppMap = new MCUDPMap;
    MCFactoryRegistry::GetInstance()->RestoreFrom(rStream, *ppMap, nullptr);
}
