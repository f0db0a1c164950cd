#include "ModelCore/ZVFWMC/MCPropertyAccessor.h"

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCEndsPrivate.h"
#include "ModelCore/ZVFWMC/MCEvent.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"

MCPropertyAccessor::~MCPropertyAccessor() = default;
MCVPropertyAccessor::~MCVPropertyAccessor() = default;
MCPropertySemanticContext::~MCPropertySemanticContext() = default;

MCPastePropertyContext::~MCPastePropertyContext() = default;

MCPropertySemantic::result MCPropertyAccessor::FirePreSemantics(short type, MCObject* object,
                                                                MCProperty* property,
                                                                MCPropertySemanticContext* context,
                                                                ZVTBoolean inherited) {
    if (!m_bActive)
        return MCPropertySemantic::resultContinue;
    return MCPropertySemanticRegistry::FireSemantics(
        inherited ? MCPropertySemantic::InheritedPreEdit : MCPropertySemantic::PreEdit, type, object,
        property, context);
}

MCPropertySemantic::result MCPropertyAccessor::FirePostSemantics(short type, MCObject* object,
                                                                 MCProperty* property,
                                                                 MCPropertySemanticContext* context,
                                                                 ZVTBoolean inherited) {
    if (!m_bActive)
        return MCPropertySemantic::resultContinue;
    return MCPropertySemanticRegistry::FireSemantics(
        inherited ? MCPropertySemantic::InheritedPostEdit : MCPropertySemantic::PostEdit, type, object,
        property, context);
}

void MCPropertyAccessor::Notify(MCObject* object, MCProperty* property, long hintCode, MCObject* hintObject,
                                void* hintPointer) {
    constexpr unsigned int mask = MCEvent::subscriberOwner | MCEvent::subscriberObserver;
    if (!m_bActive || !object->IsHeard(MCEvent::PropertySet, mask))
        return;
    MCEvent& event = MCEvent::Instantiate(MCEvent::PropertySet, object, mask, property);
    // Held before the hints are set: a fresh event has no holder yet.
    MCEventUser holder(event);
    event.SetHintCode(hintCode);
    event.SetHintObject(hintObject);
    event.SetHintPointer(hintPointer);
    object->NotifySubscribers(event);
}

ZVTBoolean MCPropertyAccessor::CalculateBeforeRead(MCProperty* property, MCObject* object) {
    if (!property->GetFlag(MCItem::itemPreFetch))
        return true;
    if (!object)
        return false;
    // The firing answers resultObjectDestroyed for an object its rules ended and resultRefused for a
    // property they took away: either way there is nothing to read.
    return MCPropertySemanticRegistry::FireSemantics(MCPropertySemantic::CalculateValue, property->GetType(),
                                                     object, property,
                                                     nullptr) == MCPropertySemantic::resultContinue;
}

ZVTBoolean MCPropertyAccessor::NullPropertyValue(MCProperty* property, MCObject* object) {
    if (!property)
        return true;
    MCActiveAccessor active(this, 0);
    MCPropertySemanticContext context(active);
    if (m_bActive) {
        const short type = property->GetType();
        const MCPropertySemantic::result before = MCPropertySemanticRegistry::FireSemantics(
            MCPropertySemantic::PreDestructon, type, object, property, &context);
        // Only an answer to go on lets the property go; a rule that ended the object took it along, and
        // the firing then answers resultObjectDestroyed.
        if (before != MCPropertySemantic::resultContinue) {
            if (before == MCPropertySemantic::resultObjectDestroyed)
                m_bObjectDestroyed = true;
            return false;
        }
        constexpr unsigned int mask = MCEvent::subscriberOwner | MCEvent::subscriberObserver;
        if (object && object->IsHeard(MCEvent::PropertyNulled, mask)) {
            // Subscribers see the property with its value still in place.
            const mc_detail::HeldObject held(object);
            object->NotifySubscribers(MCEvent::Instantiate(MCEvent::PropertyNulled, object, mask, property));
            // One of them may have expunged the object, or nulled and deleted the property already; one
            // nulled before still has to go.
            if (held.Gone())
                return true;
            if (object->MCObject::FindProperty(type, true) != property)
                return true;
        }
    }
    if (!object)
        throw EXNullOwner();
    object->NullProperty_(property);
    return true;
}

void MCPropertyAccessor::CreateAndSet(short type, MCObject* object) {
    if (!object)
        throw EXNullOwner();
    if (MCProperty* property = object->CreateProperty_(type))
        SetPropertyValue(property, object, accessReplace);
}

template class MCSPropertyT<long>;
template class MCSPropertyT<double>;
template class MCSPropertyT<float>;
template class MCSPropertyT<ZVTString>;
template class MCSPropertyT<ZvUCObjectId>;
template class MCSPropertyT<tgt_target*>;
template class MCVPropertyT<long>;
template class MCVPropertyT<float>;
template class MCVPropertyT<ZVTString>;
template class MCSPropertyRawAccessorT<long>;
template class MCSPropertyRawAccessorT<double>;
template class MCSPropertyRawAccessorT<float>;
template class MCSPropertyRawAccessorT<ZVTString>;
template class MCSPropertyRawAccessorT<ZvUCObjectId>;
template class MCSPropertyRawAccessorT<tgt_target*>;
template class MCVPropertyRawAccessorT<long>;
template class MCVPropertyRawAccessorT<float>;
template class MCVPropertyRawAccessorT<ZVTString>;
