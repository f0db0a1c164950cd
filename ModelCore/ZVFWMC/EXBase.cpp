#include "ModelCore/ZVFWMC/EXBase.h"

#include <cstdio>
#include <cstring>
#include <utility>
#include "ModelCore/ZVFWMC/MCCodes.h"

#include "platform/HUB.h"

EXMsgData::EXMsgData() = default;
EXMsgData::~EXMsgData() = default;

EXBase::EXBase(long code) : EXBase(code, "EXBase") {}

EXBase::EXBase(long code, const char* className) : m_lCode(code) {
    std::snprintf(m_acWhat, c_nWhatCapacity, "%s (code %ld)", className ? className : "EXBase", code);
}

const char* EXBase::what() const noexcept {
    return m_acWhat;
}

void EXBase::SetWhatLocation(const char* file, const char* line) noexcept {
    if (file == nullptr || *file == '\0')
        return;
    const std::size_t used = std::strlen(m_acWhat);
    if (line != nullptr && *line != '\0')
        std::snprintf(m_acWhat + used, c_nWhatCapacity - used, " at %s:%s", file, line);
    else
        std::snprintf(m_acWhat + used, c_nWhatCapacity - used, " at %s", file);
}

long EXBase::GetExceptionCode() const {
    return m_lCode;
}

int EXBase::StandardMessage(EXMsgData*) const {
    return 0;
}

EXProgrammer::EXProgrammer(long code) : EXBase(code, "EXProgrammer") {}

EXProgrammer::EXProgrammer(long code, const char* className) : EXBase(code, className) {}

EXUser::EXUser(long code) : EXBase(code, "EXUser") {}

EXUser::EXUser(long code, const char* className) : EXBase(code, className) {}

EXDuplicateFactory::EXDuplicateFactory(short type)
    : EXProgrammer(codeDuplicateFactory, "EXDuplicateFactory"), m_sType(type) {}

int EXDuplicateFactory::StandardMessage(EXMsgData*) const {
    ZVTString xText(static_cast<long>(m_sType), 10);
    return HUBMessage::DisplayMessage(MCCodes::msgDuplicateFactory, xText, MCCodes::styleDisplay, nullptr,
                                      HUBMessage::textPlain);
}

EXDuplicateProperty::EXDuplicateProperty() : EXProgrammer(codeDuplicateProperty, "EXDuplicateProperty") {}

EXDuplicateResolution::EXDuplicateResolution(void* existing, void* incoming)
    : EXProgrammer(codeDuplicateResolution, "EXDuplicateResolution"),
      m_pxExisting(existing),
      m_pxIncoming(incoming) {}

EXDuplicateSemantic::EXDuplicateSemantic(void* existing, void* incoming)
    : EXProgrammer(codeDuplicateSemantic, "EXDuplicateSemantic"),
      m_pxExisting(existing),
      m_pxIncoming(incoming) {}

EXGenericObject::EXGenericObject() : EXProgrammer(codeGenericObject, "EXGenericObject") {}

EXInvalidIter::EXInvalidIter() : EXProgrammer(codeInvalidIter, "EXInvalidIter") {}

EXMissingFactory::EXMissingFactory(short type, MCFactoryContext* context)
    : EXProgrammer(codeMissingFactory, "EXMissingFactory"), m_sType(type), m_pxContext(context) {}

EXMissingSemanticHandler::EXMissingSemanticHandler(short type)
    : EXProgrammer(codeMissingSemanticHandler, "EXMissingSemanticHandler"), m_sType(type) {}

EXNoMapPointer::EXNoMapPointer() : EXProgrammer(codeNoMapPointer, "EXNoMapPointer") {}

EXNonOwnedObject::EXNonOwnedObject() : EXProgrammer(codeNonOwnedObject, "EXNonOwnedObject") {}

EXNullOwner::EXNullOwner() : EXProgrammer(codeNullOwner, "EXNullOwner") {}

EXRequiredProperty::EXRequiredProperty(short objectType, short propertyType)
    : EXProgrammer(codeRequiredProperty, "EXRequiredProperty"),
      m_sObjectType(objectType),
      m_sPropertyType(propertyType) {}

EXUnexpected::EXUnexpected(ZVTString file, ZVTString line)
    : EXProgrammer(codeUnexpected, "EXUnexpected"), m_xFile(std::move(file)), m_xLine(std::move(line)) {
    SetWhatLocation(m_xFile.data(), m_xLine.data());
}

EXUnknownToken::EXUnknownToken() : EXProgrammer(codeUnknownToken, "EXUnknownToken") {}

EXMissingComparisonObject::EXMissingComparisonObject()
    : EXProgrammer(codeMissingComparisonObject, "EXMissingComparisonObject") {}

EXInvalidComparison::EXInvalidComparison() : EXProgrammer(codeInvalidComparison, "EXInvalidComparison") {}

void MCThrowUnexpected(const ZVTString& file, long line) {
    throw EXUnexpected(file, ZVTString(line, 10));
}
