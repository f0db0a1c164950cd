#include "ModelCore/ZVFWMC/MCNotification.h"

#include <memory>
#include <typeinfo>

#include "ModelCore/ZVFWMC/MCEvent.h"
#include "ModelCore/ZVFWMC/MCEventPrivate.h"
#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCIdSpace.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCRefProperty.h"
#include "ModelCore/ZVFWMC/MCRegistrationPrivate.h"

// ---------------------------------------------------------------------------------------------------
// Handlers and entries

ZVTBoolean MCNotificationHandler::Add(MCNotification* pNotification) {
    if (!pNotification || Contains(pNotification))
        return false;
    Append(pNotification);
    return true;
}

MCNotification::result MCNotificationHandler::Notify(MCObject* pObject, MCEvent& rEvent) {
    // By index and recounted each step: a notification may register another on this very handler.
    for (size_t i = 0; i < Entries(); ++i) {
        if (At(i)->Notify(pObject, rEvent) == MCNotification::resultHandled)
            return MCNotification::resultHandled;
    }
    return MCNotification::resultNotHandled;
}

MCNotificationEntry::MCNotificationEntry() : m_xHandlers(MCIdSpace::HashId, 64) {}

MCNotificationEntry::~MCNotificationEntry() {
    ZVTHDictIter<long, MCNotificationHandler*> handlers(m_xHandlers);
    while (++handlers)
        delete handlers.Value();
    delete m_pxDefaultHandler;
}

ZVTBoolean MCNotificationEntry::Register(long nEventType, MCNotification* pNotification) {
    ++c_nRegistrations;
    mc_detail::ForgetHeard();
    MCNotificationHandler* handler = nullptr;
    if (nEventType == 0) {
        if (!m_pxDefaultHandler)
            m_pxDefaultHandler = new MCNotificationHandler;
        handler = m_pxDefaultHandler;
    } else if (!m_xHandlers.Find(nEventType, handler)) {
        auto made = std::make_unique<MCNotificationHandler>();
        m_xHandlers.Insert(nEventType, made.get());
        handler = made.release();
        if (nEventType > 0 && nEventType < c_nDirectEvents)
            m_apxDirect[nEventType] = handler;
    }
    return handler->Add(pNotification);
}

MCNotification::result MCNotificationEntry::Notify(MCObject* pObject, MCEvent& rEvent) {
    const long eventType = rEvent.GetEventType();
    MCNotificationHandler* handler = nullptr;
    if (eventType > 0 && eventType < c_nDirectEvents)
        handler = m_apxDirect[eventType];
    else
        m_xHandlers.Find(eventType, handler);
    if (handler)
        return handler->Notify(pObject, rEvent);
    if (m_pxDefaultHandler)
        return m_pxDefaultHandler->Notify(pObject, rEvent);
    return MCNotification::resultNotHandled;
}

std::uint64_t MCNotificationEntry::c_nRegistrations = 1;

ZVTBoolean MCNotificationEntry::PassesOnAloneAnew(long nEventType) {
    if (nEventType <= 0 || nEventType >= c_nDirectEvents)
        return false;
    const auto bit = static_cast<std::uint8_t>(1u << nEventType);
    // Recomputed for every low event type at once: registrations are rare, deliveries are not.
    m_nPassingOn = 0;
    m_nCleaningUp = 0;
    for (long eventType = 1; eventType < c_nDirectEvents; ++eventType) {
        for (const MCNotificationEntry* entry = this; entry; entry = entry->m_pxAncestor) {
            const MCNotificationHandler* handler =
                entry->m_apxDirect[eventType] ? entry->m_apxDirect[eventType] : entry->m_pxDefaultHandler;
            // An empty handler answers resultNotHandled and the search goes on up.
            if (!handler || handler->Entries() == 0)
                continue;
            // MCObjectNotification always answers resultHandled, so nothing after it runs.
            if (handler->At(0) == &MCObjectNotification::c_xInstance)
                m_nPassingOn = static_cast<std::uint8_t>(m_nPassingOn | (1u << eventType));
            // So does the reference clean-up.
            else if (handler->At(0) == &MCObjectSubjectDestNotification::c_xInstance)
                m_nCleaningUp = static_cast<std::uint8_t>(m_nCleaningUp | (1u << eventType));
            break;
        }
    }
    m_nAnswersMadeAt = c_nRegistrations;
    return (m_nPassingOn & bit) != 0;
}

// ---------------------------------------------------------------------------------------------------
// The directory

MCNotificationDirectory* MCNotificationDirectory::c_pxSingleton = nullptr;

MCNotificationDirectory::MCNotificationDirectory() : m_xEntries(HashId, 64) {
    mc_detail::RegistriesChanged();
}

MCNotificationDirectory::~MCNotificationDirectory() {
    // Whatever is made next starts without the reactions the memos counted on.
    mc_detail::ForgetHeard();
    ZVTHDictIter<short, MCNotificationEntry*> entries(m_xEntries);
    while (++entries)
        delete entries.Value();
    mc_detail::RegistriesChanged();
}

MCNotificationDirectory* MCNotificationDirectory::GetInstance() {
    if (!c_pxSingleton)
        c_pxSingleton = new MCNotificationDirectory;
    return c_pxSingleton;
}

void MCNotificationDirectory::DeleteInstance() {
    MCNotificationDirectory* directory = c_pxSingleton;
    c_pxSingleton = nullptr;
    delete directory;
}

unsigned int MCNotificationDirectory::HashId(const short& nType) {
    return static_cast<unsigned int>(nType);
}

void MCNotificationDirectory::Register(short nType, MCFactoryContext* pContext, long nEventType,
                                       MCNotification* pNotification, ZVTBoolean bSetContext) {
    MCNotificationDirectory* directory = GetInstance();
    if (!pContext || (nEventType != 0 && !pNotification))
        return;
    directory->CreateEntry(nType, pContext->GetAncestorType(MCFactoryContext::userNotifications))
        ->Register(nEventType, pNotification);
    if (bSetContext)
        pContext->SetAncestorType(MCFactoryContext::userNotifications, nType);
}

ZVTBoolean MCNotificationDirectory::RegisterNotification(short nType, short nAncestorType, long nEventType,
                                                         MCNotification* pNotification) {
    MCNotificationEntry* entry = CreateEntry(nType, nAncestorType);
    return entry && entry->Register(nEventType, pNotification);
}

MCNotificationEntry* MCNotificationDirectory::CreateEntry(short nType, short nAncestorType) {
    MCNotificationEntry* entry = nullptr;
    if (m_xEntries.Find(nType, entry))
        return entry;
    auto made = std::make_unique<MCNotificationEntry>();
    // An alias reacts as its concrete type does, whatever ancestor its class level names.
    const short concrete = MCFactoryRegistry::Translate(nType, true);
    if (concrete != nType)
        nAncestorType = concrete;
    MCNotificationEntry* ancestor = nullptr;
    if (nAncestorType != 0 && m_xEntries.Find(nAncestorType, ancestor))
        made->SetAncestor(ancestor);
    m_xEntries.Insert(nType, made.get());
    mc_detail::RegistriesChanged();
    return made.release();
}

MCNotificationEntry* MCNotificationDirectory::FindEntry(short nType) const {
    MCNotificationEntry* entry = nullptr;
    if (!m_xEntries.Find(nType, entry) || !entry)
        return nullptr;
    m_xRecent.Remember(nType, entry);
    return entry;
}

ZVTBoolean MCNotificationDirectory::ContainsEntry(short nType) const {
    return m_xEntries.Contains(nType);
}

MCNotification::result MCNotificationDirectory::Notify(short nType, MCObject* pObject, MCEvent& rEvent) {
    MCEventUser holder(rEvent);
    MCNotificationEntry* entry = nullptr;
    if (!m_xEntries.Find(nType, entry))
        return MCNotification::resultNotHandled;
    for (; entry; entry = entry->GetAncestor()) {
        const MCNotification::result result = entry->Notify(pObject, rEvent);
        if (result != MCNotification::resultNotHandled)
            return result;
    }
    return MCNotification::resultNotHandled;
}

// ---------------------------------------------------------------------------------------------------
// The reactions of every object

MCObjectNotification MCObjectNotification::c_xInstance;
MCObjectSubjectDestNotification MCObjectSubjectDestNotification::c_xInstance;

MCNotification::result MCObjectNotification::Notify(MCObject* pObject, MCEvent& rEvent) {
    // Queued rather than called when an ownee's delivery brought the event here: a deep tree would
    // otherwise climb on the call stack.
    pObject->PassOnToSubscribers(rEvent);
    return resultHandled;
}

namespace {

// The property of `type` that `object` itself holds now, not nulled (never one it inherits); null when
// there is none.
MCProperty* StillHeld(MCObject* object, short type) {
    return const_cast<MCProperty*>(object->MCObject::FindProperty(type, false));
}

}  // namespace

MCNotification::result MCObjectSubjectDestNotification::Notify(MCObject* pObject, MCEvent& rEvent) {
    MCEventUser holder(rEvent);
    // Only an object can be a reference's target; anything else dying concerns no reference. The subject
    // is taken as an object only once something needs it so: a single reference that names it names it
    // as that object already, and most holders have nothing else.
    MCSubject* subject = rEvent.GetSubject();
    MCObject* target = nullptr;
    auto asObject = [&]() {
        if (!target)
            target = dynamic_cast<MCObject*>(subject);
        return target;
    };
    // The live set, not a copy: a rule run by a change may add or delete properties, and a deleted one
    // leaves an empty slot that the cursor passes over.
    MCPropertySetIter properties(pObject->GetPropertySet());
    while (++properties) {
        MCProperty* property = properties.GetValue();
        if (!property || !property->IsReference())
            continue;
        ZVTBoolean gone = false;
        const short type = property->GetType();
        // The core's two classes by their type information; only a class derived from them pays for a
        // dynamic_cast, and a list no longer pays for a failed cast to a single reference.
        MCSRef* single = nullptr;
        MCVRef* list = nullptr;
        const std::type_info& cls = typeid(*property);
        if (cls == typeid(MCSRef))
            single = static_cast<MCSRef*>(property);
        else if (cls == typeid(MCVRef))
            list = static_cast<MCVRef*>(property);
        else if (!(single = dynamic_cast<MCSRef*>(property)))
            list = dynamic_cast<MCVRef*>(property);
        if (single) {
            if (!single->IsBound() || static_cast<MCSubject*>(single->GetValue()) != subject)
                continue;
            target = single->GetValue();
            MCSRefAccessor accessor(nullptr);
            accessor.SetPropertyValue(single, pObject, MCPropertyAccessor::accessAdd);
            gone = accessor.GetObjectDestroyed();
            // A rule may refuse an edit, never the death of a target: the reference goes all the same. Found
            // again by type, as a rule or subscriber may have nulled and so deleted the property.
            auto* still = gone ? nullptr : mc_detail::PropertyCast<MCSRef>(StillHeld(pObject, type));
            if (still && still->IsBound() && still->GetValue() == target) {
                MCSRefRawAccessor raw(nullptr);
                raw.SetPropertyValue(still, pObject, MCPropertyAccessor::accessAdd);
            }
        } else if (list) {
            if (!list->IsBound())
                continue;
            if (!asObject())
                return resultHandled;
            // Every entry of the target goes, so none is left pointing at freed memory; a list without
            // one still hears of the death through a change that removes nothing.
            MCVRefAccessor accessor;
            const long entries = list->Occurrences(target);
            for (long i = 0; i < (entries > 0 ? entries : 1); ++i)
                accessor.GetList()->Append(target);
            accessor.SetPropertyValue(list, pObject, MCPropertyAccessor::accessRemove);
            gone = accessor.GetObjectDestroyed();
            auto* still = gone ? nullptr : mc_detail::PropertyCast<MCVRef>(StillHeld(pObject, type));
            if (still && still->IsBound() && still->Occurrences(target) > 0) {
                MCVRefRawAccessor raw(accessor.GetList());
                raw.SetPropertyValue(still, pObject, MCPropertyAccessor::accessRemove);
            }
        } else {
            continue;
        }
        if (gone)
            return resultHandled;
        if (pObject->IsHeard(MCEvent::ReferenceCleared, MCEvent::subscriberObserver))
            pObject->NotifySubscribers(MCEvent::Instantiate(MCEvent::ReferenceCleared, pObject,
                                                            MCEvent::subscriberObserver, nullptr, &rEvent));
    }
    // A source that subscribes to its heirs loses a dying heir from its set by itself.
    const MCHeirSet* heirs = nullptr;
    pObject->GetHeirs(heirs);
    if (heirs && asObject())
        const_cast<MCHeirSet*>(heirs)->Delete(target);
    return resultHandled;
}
