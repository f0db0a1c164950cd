#include "ModelCore/ZVFWMC/MCAddInHook.h"

#include <utility>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCEvent.h"
#include "platform/AIC.h"
#include "platform/HUB.h"

namespace {

// The registration below belongs to the object rule registry, and its failures name that unit.
const ZVTString c_xObjectSemSourceFile("ModelCore/ZVFWMC/MCObjectSem");

// The highest result both families know: 2, stop (objects) or object gone (properties).
constexpr long c_nLastResult = 2;

// Whether `object` lies in the subtree of `scope`, `scope` itself included.
bool IsWithin(MCObject* object, const MCObject* scope) {
    MCObject* above = object;
    while (above && above != scope)
        above = above->GetOwner(0, MCItem::rttiDerived);
    return above != nullptr;
}

// The component's answer, or 0 after message 603 when no component of that name is known. Nothing is
// remembered: the message comes with every firing, and a missing component never stops an operation. An
// answer that is no result of either family counts as 0, as no enum may hold it.
long Forward(const ZVTString& component, const ZVTString& semantic, const MCObject* scope, long objectId,
             long propertyType, unsigned long mode) {
    ControllerInterface* found = CComponentManager::FindComponent(component);
    if (!found) {
        HUBMessageParameter parameter(1, MCCodes::styleWarning);
        parameter.SetString(0, component);
        HUBInterface::ShowMessage(MCCodes::msgKindInformation,
                                  MCExternalObjectSem::c_nMissingComponentMessage, parameter);
        return 0;
    }
    const long answer = found->FireSemantic(semantic, scope ? scope->GetId() : 0, objectId, propertyType,
                                            static_cast<unsigned int>(mode));
    return answer >= 0 && answer <= c_nLastResult ? answer : 0;
}

// Whether `event` is the death of `scope`.
bool IsDeathOf(MCEvent& event, MCObject* scope) {
    return event.GetEventType() == MCEvent::SubjectDestroyed && scope &&
           event.GetSubject() == static_cast<MCSubject*>(scope);
}

}  // namespace

// ---------------------------------------------------------------------------------------------------
// Object rules

MCExternalObjectSem::MCExternalObjectSem(ZVTString componentName, ZVTString semanticName, MCObject* pScope)
    : m_xComponentName(std::move(componentName)),
      m_xSemanticName(std::move(semanticName)),
      m_pxScope(pScope) {
    if (m_pxScope)
        m_pxScope->AddSubscriber(this, MCEvent::subscriberReferenceHolder);
}

MCExternalObjectSem::~MCExternalObjectSem() {
    // ~MCObjectSem takes the proxy out of the handlers, or leaves them alone while the registry dies.
    if (m_pxScope)
        m_pxScope->RemoveSubscriber(this, MCEvent::subscriberReferenceHolder);
    m_pxScope = nullptr;
}

MCObjectSem::result MCExternalObjectSem::Fire(mode nMode, MCObject* pObject,
                                              MCObjectSemContext* /*pContext*/) {
    // A handler's mask speaks for every rule of the chain, so PostPaste and PostCopy may still come here.
    if ((nMode & GetInterests()) == 0 || !pObject)
        return resultContinue;
    if (m_pxScope && !IsWithin(pObject, m_pxScope))
        return resultContinue;
    return static_cast<result>(
        Forward(m_xComponentName, m_xSemanticName, m_pxScope, pObject->GetId(), 0, nMode));
}

void MCExternalObjectSem::Notify(MCEvent& rEvent) {
    if (!IsDeathOf(rEvent, m_pxScope))
        return;
    if (MCObjectSemReg* registry = MCObjectSemReg::GetInstance())
        registry->Deregister(this);
    m_pxScope->RemoveSubscriber(this, MCEvent::subscriberReferenceHolder);
    m_pxScope = nullptr;
}

void MCObjectSemReg::RegisterExternalSemantic(short nType, const MCExternalObjectSem* pSemantic,
                                              ZVTBoolean bSetContext) {
    CreateHandler(nType, nullptr, bSetContext);
    MCObjectSemHandler* handler = FindHandler(nType);
    if (!handler)
        MC_THROW_UNEXPECTED(c_xObjectSemSourceFile);
    // Each handler deletes its external rules when it goes, so a proxy has one handler only.
    auto* rule = const_cast<MCObjectSem*>(static_cast<const MCObjectSem*>(pSemantic));
    ZVTHDictIter<short, MCObjectSemHandler*> handlers(m_xHandlers);
    while (++handlers) {
        if (handlers.Value() != handler && handlers.Value()->m_xExternalSemantics.Contains(rule))
            return;
    }
    handler->RegisterExternalSemantic(rule);
}

// ---------------------------------------------------------------------------------------------------
// Property rules

MCExternalPropertySemantic::MCExternalPropertySemantic(ZVTString componentName, ZVTString semanticName,
                                                       MCObject* pScope, ZVTBoolean bIncludeScope)
    : m_xComponentName(std::move(componentName)),
      m_xSemanticName(std::move(semanticName)),
      m_pxScope(pScope),
      m_bIncludeScope(bIncludeScope) {
    if (m_pxScope)
        m_pxScope->AddSubscriber(this, MCEvent::subscriberReferenceHolder);
}

MCExternalPropertySemantic::~MCExternalPropertySemantic() {
    // Not GetInstance: a proxy that outlives MdlCore::Terminate must not bring the registry back.
    MCPropertySemanticRegistry* registry = MCPropertySemanticRegistry::c_pxSingleton;
    if (registry && registry->GetState() == MCPropertySemanticRegistry::stateInUse)
        registry->Deregister(this);
    if (m_pxScope)
        m_pxScope->RemoveSubscriber(this, MCEvent::subscriberReferenceHolder);
    m_pxScope = nullptr;
}

unsigned long MCExternalPropertySemantic::GetInterests() const {
    return PreEdit | PostEdit;
}

MCPropertySemantic::result MCExternalPropertySemantic::Fire(mode nMode, MCObject* pObject,
                                                            MCProperty* pProperty,
                                                            MCPropertySemanticContext* /*pContext*/) {
    if ((nMode & GetInterests()) == 0 || !pObject || !pProperty)
        return resultContinue;
    if (m_pxScope) {
        if (!m_bIncludeScope && pObject == m_pxScope)
            return resultContinue;
        if (!IsWithin(pObject, m_pxScope))
            return resultContinue;
    }
    return static_cast<result>(
        Forward(m_xComponentName, m_xSemanticName, m_pxScope, pObject->GetId(), pProperty->GetType(), nMode));
}

void MCExternalPropertySemantic::Notify(MCEvent& rEvent) {
    if (!IsDeathOf(rEvent, m_pxScope))
        return;
    MCPropertySemanticRegistry* registry = MCPropertySemanticRegistry::c_pxSingleton;
    if (registry && registry->GetState() == MCPropertySemanticRegistry::stateInUse)
        registry->Deregister(this);
    m_pxScope->RemoveSubscriber(this, MCEvent::subscriberReferenceHolder);
    m_pxScope = nullptr;
}

// ---------------------------------------------------------------------------------------------------
// Add-in hooks

MCAddInHook::MCAddInHook(MCObject* pOwner, MCFactoryContext* pContext) : MCObject(c_sType, pOwner, pContext) {
    if (!pContext)
        return;
    MCPropertySemanticRegistry::GetInstance()->CreateHandler(c_sType, pContext, true);
    if (MCObjectSemReg* registry = MCObjectSemReg::GetInstance())
        registry->CreateHandler(c_sType, pContext, true);
    RegisterNotificationObject(c_sType, pContext, true);
}

MCAddInHook::~MCAddInHook() = default;
