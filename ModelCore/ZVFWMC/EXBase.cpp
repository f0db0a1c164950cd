#include "ModelCore/ZVFWMC/EXBase.h"

#include <utility>

#include "platform/HUB.h"

EXMsgData::EXMsgData() = default;
EXMsgData::~EXMsgData() = default;

EXBase::EXBase(long code) : m_lCode(code) {}

long EXBase::GetExceptionCode() const {
    return m_lCode;
}

int EXBase::StandardMessage(EXMsgData*) const {
    return 0;
}

EXProgrammer::EXProgrammer(long code) : EXBase(code) {}

EXUser::EXUser(long code) : EXBase(code) {}

EXDuplicateFactory::EXDuplicateFactory(short type) : EXProgrammer(1), m_sType(type) {}

int EXDuplicateFactory::StandardMessage(EXMsgData*) const {
    ZVTString xText(static_cast<long>(m_sType), 10);
    return HUBMessage::DisplayMessage(60505, xText, 0x40, nullptr, HUBMessage::textPlain);
}

EXDuplicateProperty::EXDuplicateProperty() : EXProgrammer(2) {}

EXDuplicateResolution::EXDuplicateResolution(void* existing, void* incoming)
    : EXProgrammer(3), m_pxExisting(existing), m_pxIncoming(incoming) {}

EXDuplicateSemantic::EXDuplicateSemantic(void* existing, void* incoming)
    : EXProgrammer(4), m_pxExisting(existing), m_pxIncoming(incoming) {}

EXGenericObject::EXGenericObject() : EXProgrammer(5) {}

EXInvalidIter::EXInvalidIter() : EXProgrammer(6) {}

EXMissingFactory::EXMissingFactory(short type, MCFactoryContext* context)
    : EXProgrammer(7), m_sType(type), m_pxContext(context) {}

EXMissingSemanticHandler::EXMissingSemanticHandler(short type) : EXProgrammer(8), m_sType(type) {}

EXNoMapPointer::EXNoMapPointer() : EXProgrammer(9) {}

EXNonOwnedObject::EXNonOwnedObject() : EXProgrammer(10) {}

EXNullOwner::EXNullOwner() : EXProgrammer(11) {}

EXRequiredProperty::EXRequiredProperty(short objectType, short propertyType)
    : EXProgrammer(12), m_sObjectType(objectType), m_sPropertyType(propertyType) {}

EXUnexpected::EXUnexpected(ZVTString file, ZVTString line)
    : EXProgrammer(13), m_xFile(std::move(file)), m_xLine(std::move(line)) {}

EXUnknownToken::EXUnknownToken() : EXProgrammer(14) {}

EXMissingComparisonObject::EXMissingComparisonObject() : EXProgrammer(15) {}

EXInvalidComparison::EXInvalidComparison() : EXProgrammer(16) {}

void MCThrowUnexpected(const ZVTString& file, long line) {
    throw EXUnexpected(file, ZVTString(line, 10));
}
