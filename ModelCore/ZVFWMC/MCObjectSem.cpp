#include "ModelCore/ZVFWMC/MCObjectSem.h"

#include <algorithm>
#include <vector>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCNotification.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCRegistrationPrivate.h"

namespace {

const ZVTString c_xSourceFile("ModelCore/ZVFWMC/MCObjectSem");

// The list walks under way on this thread. A walk goes by index over the live list, so a rule that leaves
// during one only empties its slot, and the slots close when the outermost walk is done: every rule that
// was there when a walk began and is still registered fires.
__attribute__((tls_model("initial-exec"))) thread_local unsigned t_nWalks = 0;
// Whether a rule left during the walks under way, so that Holed has handlers to see to.
__attribute__((tls_model("initial-exec"))) thread_local bool t_bHoles = false;

// The handlers with slots to close.
std::vector<MCObjectSemHandler*>& Holed() {
    static thread_local std::vector<MCObjectSemHandler*> holed;
    return holed;
}

}  // namespace

// ---------------------------------------------------------------------------------------------------
// Rules and contexts

MCObjectSem::~MCObjectSem() {
    // Not GetInstance: a rule of static storage that dies at unload must not bring the registry back.
    MCObjectSemReg* registry = MCObjectSemReg::c_pxSingleton;
    if (registry && registry->GetState() == MCObjectSemReg::stateInUse)
        registry->Deregister(this);
}

unsigned long MCObjectSem::GetInterests() const {
    return PostCreation | PreDestructon | CalculateData;
}

void MCObjectSem::Register(short nType, MCFactoryContext* context) {
    if (context)
        MCObjectSemReg::Register(nType, context, this, true);
}

MCObjectSemContext::~MCObjectSemContext() = default;

MCPasteObjectContext::~MCPasteObjectContext() = default;

ZVTBoolean MCObjectSemContext::PropsExist() const {
    return false;
}

// ---------------------------------------------------------------------------------------------------
// Handlers

MCObjectSemHandler::MCObjectSemHandler(short nAncestorType) {
    SetAncestorType(nAncestorType);
}

MCObjectSemHandler::~MCObjectSemHandler() {
    // Ancestor and descendants are left alone: handlers go all together, with the registry.
    for (size_t i = 0; i < m_xExternalSemantics.Entries(); ++i)
        delete m_xExternalSemantics.At(i);
    if (t_bHoles) {
        std::vector<MCObjectSemHandler*>& holed = Holed();
        holed.erase(std::remove(holed.begin(), holed.end(), this), holed.end());
    }
}

void MCObjectSemHandler::CloseHoles() {
    for (auto* list : {&m_xSemantics, &m_xExternalSemantics}) {
        while (list->Remove(nullptr)) {
        }
    }
}

MCObjectSem::result MCObjectSemHandler::FireList(ZVTSList<MCObjectSem*>& list, MCObjectSem::mode nMode,
                                                 MCObject* object, MCObjectSem*& rpFailed,
                                                 MCObjectSemContext* context, ZVTBoolean bDerivedFirst,
                                                 size_t nFirst) {
    // By index over the live list: a rule may register another one on the list that is running, and one
    // that leaves meanwhile leaves an empty slot until the outermost walk is done.
    struct Walk {
        Walk() { ++t_nWalks; }
        ~Walk() {
            if (--t_nWalks == 0 && t_bHoles) {
                t_bHoles = false;
                std::vector<MCObjectSemHandler*> holed;
                holed.swap(Holed());
                for (MCObjectSemHandler* handler : holed)
                    handler->CloseHoles();
                mc_detail::RegistriesChanged();
            }
        }
        Walk(const Walk&) = delete;
        Walk& operator=(const Walk&) = delete;
    } walk;
    for (size_t i = nFirst; i < list.Entries(); ++i) {
        MCObjectSem* semantic = list.At(i);
        if (!semantic)
            continue;
        const MCObjectSem::result result = semantic->Fire(nMode, object, context);
        if (result == MCObjectSem::resultFailed) {
            rpFailed = semantic;
            return result;
        }
        if (result == MCObjectSem::resultStop && bDerivedFirst)
            return result;
    }
    return MCObjectSem::resultContinue;
}

MCObjectSem::result MCObjectSemHandler::FireSemantics(MCObjectSem::mode nMode, MCObject* object,
                                                      MCObjectSem*& rpFailed, MCObjectSemContext* context,
                                                      ZVTBoolean bDerivedFirst) {
    if (!bDerivedFirst && m_pxAncestor &&
        m_pxAncestor->FireSemantics(nMode, object, rpFailed, context, false) == MCObjectSem::resultFailed)
        return MCObjectSem::resultFailed;
    const MCObjectSem::result result = FireLevel(nMode, object, rpFailed, context, bDerivedFirst);
    if (result != MCObjectSem::resultContinue)
        return result;
    if (bDerivedFirst && m_pxAncestor)
        return m_pxAncestor->FireSemantics(nMode, object, rpFailed, context, true);
    return MCObjectSem::resultContinue;
}

MCObjectSem::result MCObjectSemHandler::FireLevel(MCObjectSem::mode nMode, MCObject* object,
                                                  MCObjectSem*& rpFailed, MCObjectSemContext* context,
                                                  ZVTBoolean bDerivedFirst, size_t nFirst) {
    if (m_nInterests & nMode) {
        const MCObjectSem::result result =
            FireList(m_xSemantics, nMode, object, rpFailed, context, bDerivedFirst, nFirst);
        if (result != MCObjectSem::resultContinue)
            return result;
    }
    if (m_nExternalInterests & nMode)
        return FireList(m_xExternalSemantics, nMode, object, rpFailed, context, bDerivedFirst);
    return MCObjectSem::resultContinue;
}

MCObjectSemHandler* MCObjectSemHandler::LoneLevel() {
    if (m_nLoneChanges == mc_detail::c_nRegistryChanges)
        return m_pxLoneLevel;
    MCObjectSemHandler* lone = nullptr;
    for (MCObjectSemHandler* level = this; level; level = level->m_pxAncestor) {
        const size_t rules = level->m_xSemantics.Entries();
        if (rules == 0 && level->m_xExternalSemantics.Entries() == 0)
            continue;
        if (lone || rules != 1 || level->m_xExternalSemantics.Entries() != 0) {
            lone = nullptr;
            break;
        }
        lone = level;
    }
    m_pxLoneLevel = lone;
    m_nLoneChanges = mc_detail::c_nRegistryChanges;
    return lone;
}

void MCObjectSemHandler::Register(const MCObjectSem* semantic) {
    auto* rule = const_cast<MCObjectSem*>(semantic);
    if (!rule || m_xSemantics.Contains(rule))
        return;
    m_xSemantics.Append(rule);
    mc_detail::RegistriesChanged();
    SetInterests(rule->GetInterests(), typeInternal);
}

void MCObjectSemHandler::RegisterExternalSemantic(const MCObjectSem* semantic) {
    auto* rule = const_cast<MCObjectSem*>(semantic);
    if (!rule || m_xExternalSemantics.Contains(rule))
        return;
    m_xExternalSemantics.Append(rule);
    mc_detail::RegistriesChanged();
    SetInterests(rule->GetInterests(), typeExternal);
}

void MCObjectSemHandler::Deregister(const MCObjectSem* semantic) {
    auto* rule = const_cast<MCObjectSem*>(semantic);
    if (!rule)
        return;
    bool removed = false;
    for (auto* list : {&m_xSemantics, &m_xExternalSemantics}) {
        if (t_nWalks == 0) {
            while (list->Remove(rule))
                removed = true;
            continue;
        }
        // A walk may be on this list: the slot stays, empty, and closes after the walk.
        for (size_t i = 0; i < list->Entries(); ++i) {
            if (list->At(i) == rule) {
                list->At(i) = nullptr;
                removed = true;
            }
        }
    }
    if (removed && t_nWalks != 0 && std::find(Holed().begin(), Holed().end(), this) == Holed().end()) {
        Holed().push_back(this);
        t_bHoles = true;
    }
    if (removed)
        mc_detail::RegistriesChanged();
}

ZVTBoolean MCObjectSemHandler::IsRegistered(const MCObjectSem* semantic) const {
    auto* rule = const_cast<MCObjectSem*>(semantic);
    return m_xSemantics.Contains(rule) || m_xExternalSemantics.Contains(rule);
}

void MCObjectSemHandler::SetAncestorType(short nType) {
    MCObjectSemReg* registry = MCObjectSemReg::GetInstance();
    MCObjectSemHandler* ancestor = registry ? registry->FindHandler(nType) : nullptr;
    if (!ancestor || ancestor == this || ancestor == m_pxAncestor)
        return;
    for (MCObjectSemHandler* above = ancestor; above; above = above->m_pxAncestor) {
        if (above == this)
            MC_THROW_UNEXPECTED(c_xSourceFile);
    }
    if (m_pxAncestor)
        m_pxAncestor->m_xDescendants.Remove(this);
    m_pxAncestor = ancestor;
    mc_detail::RegistriesChanged();
    ancestor->AddDescendant(this);
    SetInterests(ancestor->GetInterests(typeInternal), typeInternal);
    SetInterests(ancestor->GetInterests(typeExternal), typeExternal);
}

void MCObjectSemHandler::AddDescendant(MCObjectSemHandler* descendant) {
    if (descendant && !m_xDescendants.Contains(descendant))
        m_xDescendants.Append(descendant);
}

void MCObjectSemHandler::SetInterests(unsigned long nMask, type nType) {
    unsigned long& mask = nType == typeInternal ? m_nInterests : m_nExternalInterests;
    if ((mask | nMask) == mask)
        return;
    mask |= nMask;
    for (size_t i = 0; i < m_xDescendants.Entries(); ++i)
        m_xDescendants.At(i)->SetInterests(nMask, nType);
}

// ---------------------------------------------------------------------------------------------------
// The registry

MCObjectSemReg* MCObjectSemReg::c_pxSingleton = nullptr;
ZVTBoolean MCObjectSemReg::ms_bDead = false;

MCObjectSemReg::MCObjectSemReg() : m_xHandlers(MCNotificationDirectory::HashId, 64) {
    mc_detail::RegistriesChanged();
}

MCObjectSemReg::~MCObjectSemReg() {
    m_eState = stateDying;
    ZVTHDictIter<short, MCObjectSemHandler*> handlers(m_xHandlers);
    while (++handlers)
        delete handlers.Value();
    m_xHandlers.Clear();
    m_xRecent.Forget();
    mc_detail::RegistriesChanged();
    ms_bDead = true;
    c_pxSingleton = nullptr;
}

MCObjectSemReg* MCObjectSemReg::GetInstance() {
    if (!c_pxSingleton && !ms_bDead)
        c_pxSingleton = new MCObjectSemReg;
    return c_pxSingleton;
}

void MCObjectSemReg::DeleteInstance() {
    delete c_pxSingleton;
    // Dead also when it never lived: a rule registered after the end must find no registry.
    ms_bDead = true;
}

MCObjectSemHandler* MCObjectSemReg::FindHandler(short nType) const {
    if (MCObjectSemHandler* known = m_xRecent.Find(nType))
        return known;
    MCObjectSemHandler* handler = nullptr;
    if (m_xHandlers.Find(nType, handler))
        m_xRecent.Remember(nType, handler);
    return handler;
}

void MCObjectSemReg::Register(short nType, MCFactoryContext* pContext, const MCObjectSem* pSemantic,
                              ZVTBoolean bSetContext) {
    MCObjectSemReg* registry = GetInstance();
    if (!registry || !pContext)
        return;
    registry->CreateHandler(nType, pContext, bSetContext);
    MCObjectSemHandler* handler = registry->FindHandler(nType);
    if (!handler)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    if (pSemantic)
        handler->Register(pSemantic);
}

ZVTBoolean MCObjectSemReg::CreateHandler(short nType, MCFactoryContext* pContext, ZVTBoolean bSetContext) {
    const short ancestorType =
        pContext ? pContext->GetAncestorType(MCFactoryContext::userObjectSemantics) : 0;
    ZVTBoolean made = false;
    MCObjectSemHandler* handler = FindHandler(nType);
    if (!handler) {
        handler = new MCObjectSemHandler(ancestorType);
        m_xHandlers.Insert(nType, handler);
        m_xRecent.Forget();
        mc_detail::RegistriesChanged();
        made = true;
    }
    const short concrete = MCFactoryRegistry::Translate(nType, true);
    if (concrete != nType) {
        // An alias inherits the rules of its concrete type; the context's chain is not its business.
        if (!handler->GetAncestor())
            handler->SetAncestorType(concrete);
    } else if (pContext && bSetContext) {
        if (!handler->GetAncestor())
            handler->SetAncestorType(ancestorType);
        pContext->SetAncestorType(MCFactoryContext::userObjectSemantics, nType);
    }
    return made;
}

// RegisterExternalSemantic is defined with the proxies it takes, in MCAddInHook.cpp.

void MCObjectSemReg::RemoveHandler(short nType) {
    MCObjectSemHandler* handler = FindHandler(nType);
    if (!handler)
        return;
    m_xHandlers.Remove(nType);
    m_xRecent.Forget();
    mc_detail::RegistriesChanged();
    // The ancestor must not reach it when it next spreads a late rule's interests down.
    if (MCObjectSemHandler* ancestor = handler->GetAncestor())
        ancestor->m_xDescendants.Remove(handler);
    delete handler;
}

void MCObjectSemReg::Deregister(short nType) {
    RemoveHandler(nType);
}

void MCObjectSemReg::Deregister(const MCObjectSem* pSemantic) {
    ZVTHDictIter<short, MCObjectSemHandler*> handlers(m_xHandlers);
    while (++handlers)
        handlers.Value()->Deregister(pSemantic);
}

ZVTBoolean MCObjectSemReg::IsRegistered(short nType) const {
    return FindHandler(nType) != nullptr;
}

ZVTBoolean MCObjectSemReg::IsRegistered(short nType, const MCObjectSem* pSemantic) const {
    MCObjectSemHandler* handler = FindHandler(nType);
    return handler && handler->IsRegistered(pSemantic);
}

ZVTBoolean MCObjectSemReg::HasInterest(MCObjectSem::mode nMode) const {
    ZVTHDictIter<short, MCObjectSemHandler*> handlers(
        const_cast<ZVTHDict<short, MCObjectSemHandler*>&>(m_xHandlers));
    while (++handlers) {
        const MCObjectSemHandler* handler = handlers.Value();
        if ((handler->GetInterests(MCObjectSemHandler::typeInternal) |
             handler->GetInterests(MCObjectSemHandler::typeExternal)) &
            nMode)
            return true;
    }
    return false;
}

ZVTBoolean MCObjectSemReg::IsRegistered(const MCObjectSem* pSemantic) const {
    ZVTHDictIter<short, MCObjectSemHandler*> handlers(
        const_cast<ZVTHDict<short, MCObjectSemHandler*>&>(m_xHandlers));
    while (++handlers) {
        if (handlers.Value()->IsRegistered(pSemantic))
            return true;
    }
    return false;
}

MCObjectSem::result MCObjectSemReg::FireSemantics(MCObjectSem::mode nMode, MCObject* pObject,
                                                  MCObjectSem*& rpFailed, MCObjectSemContext* pContext,
                                                  ZVTBoolean bDerivedFirst) {
    MCObjectSemHandler* handler = HandlerOf(pObject);
    if (!pObject)
        return MCObjectSem::resultFailed;
    if (!handler)
        return MCObjectSem::resultContinue;
    return handler->FireSemantics(nMode, pObject, rpFailed, pContext, bDerivedFirst) ==
                   MCObjectSem::resultFailed
               ? MCObjectSem::resultFailed
               : MCObjectSem::resultContinue;
}

MCObjectSemHandler* MCObjectSemReg::HandlerOf(const MCObject* pObject) {
    MCObjectSemReg* registry = GetInstance();
    return registry && pObject ? registry->FindHandler(pObject->GetType()) : nullptr;
}

inline MCObjectSemHandler* MCObjectSemReg::LoneLevelFrom(MCObjectSemHandler* pFirst, MCObjectSem::mode nMode,
                                                         MCObjectSem& rRule) {
    MCObjectSemHandler* level = pFirst ? pFirst->LoneLevel() : nullptr;
    if (level && (level->m_xSemantics.At(0) != &rRule || !(level->m_nInterests & nMode)))
        return nullptr;
    return level;
}

MCObjectSem::result MCObjectSemReg::FireDerivedFirst(MCObjectSem::mode nMode, MCObject* pObject,
                                                     MCObjectSem& rRule, MCObjectSem*& rpFailed) {
    MCObjectSemHandler* level = LoneLevelFrom(HandlerOf(pObject), nMode, rRule);
    if (!level)
        return FireSemantics(nMode, pObject, rpFailed, nullptr, true);
    MCObjectSem::result result = rRule.Fire(nMode, pObject, nullptr);
    if (result == MCObjectSem::resultFailed)
        rpFailed = &rRule;
    if (result != MCObjectSem::resultContinue)
        return result == MCObjectSem::resultFailed ? result : MCObjectSem::resultContinue;
    // The walk goes on from where rRule stood: what rRule registered on this level or above still runs,
    // what it registered on a level below would have come too late.
    if (level->m_xSemantics.Entries() > 1 || (level->m_nExternalInterests & nMode))
        result = level->FireLevel(nMode, pObject, rpFailed, nullptr, true, 1);
    if (result == MCObjectSem::resultContinue && level->m_pxAncestor)
        result = level->m_pxAncestor->FireSemantics(nMode, pObject, rpFailed, nullptr, true);
    return result == MCObjectSem::resultFailed ? result : MCObjectSem::resultContinue;
}

MCObjectSem::result MCObjectSemReg::FireRootFirst(MCObjectSem::mode nMode, MCObject* pObject,
                                                  MCObjectSem& rRule, MCObjectSem*& rpFailed,
                                                  MCObjectSemContext* pContext) {
    return FireRootFirst(HandlerOf(pObject), nMode, pObject, rRule, rpFailed, pContext);
}

MCObjectSem::result MCObjectSemReg::FireRootFirst(MCObjectSemHandler* first, MCObjectSem::mode nMode,
                                                  MCObject* pObject, MCObjectSem& rRule,
                                                  MCObjectSem*& rpFailed, MCObjectSemContext* pContext) {
    MCObjectSemHandler* level = LoneLevelFrom(first, nMode, rRule);
    // The levels below the rule's, which the walk comes back down through after it, nearest first.
    constexpr size_t c_nMaxBelow = 8;
    MCObjectSemHandler* below[c_nMaxBelow];
    size_t count = 0;
    for (MCObjectSemHandler* handler = first; level && handler != level; handler = handler->m_pxAncestor) {
        if (count == c_nMaxBelow)
            level = nullptr;  // a chain deeper than this takes the walk
        else
            below[count++] = handler;
    }
    if (!level)
        return FireSemantics(nMode, pObject, rpFailed, pContext, false);
    const std::uint64_t changes = mc_detail::c_nRegistryChanges;
    MCObjectSem::result result = rRule.Fire(nMode, pObject, pContext);
    if (result == MCObjectSem::resultFailed) {
        rpFailed = &rRule;
        return result;
    }
    if (changes == mc_detail::c_nRegistryChanges)
        return MCObjectSem::resultContinue;
    // Something was registered while rRule ran: the walk goes on from where rRule stood, through the
    // levels it had passed on its way up.
    result = level->FireLevel(nMode, pObject, rpFailed, pContext, false, 1);
    while (result == MCObjectSem::resultContinue && count > 0)
        result = below[--count]->FireLevel(nMode, pObject, rpFailed, pContext, false);
    return result == MCObjectSem::resultFailed ? result : MCObjectSem::resultContinue;
}

ZVTString MCObjectSemReg::GetModeName(MCObjectSem::mode nMode) const {
    switch (nMode) {
        case MCObjectSem::PostCreation:
            return "PostCreation";
        case MCObjectSem::PreDestructon:
            return "PreDestructon";
        case MCObjectSem::CalculateData:
            return "CalculateData";
        default:
            return "Invalid mode";
    }
}
