#include "ModelCore/ZVFWMC/MCPropertySemantics.h"

#include <memory>
#include <utility>
#include <vector>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCEndsPrivate.h"
#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCNotification.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCRegistrationPrivate.h"
#include "foundation/ZVTHDict.h"
#include "foundation/ZVTRecent.h"
#include "foundation/ZVTVector.h"

/// The rules of one property type on one level, with the OR of the interests of all that were ever added.
class MCPropertySemanticList : public ZVTOrderedVectorT<MCPropertySemantic*> {
public:
    MCPropertySemanticList() : ZVTOrderedVectorT<MCPropertySemantic*>(10) {}
    unsigned long m_nInterests = 0;
};

/// The lists a firing of one property type walks on one type: every level from the root down, external
/// before internal on each.
struct MCPropertySemanticChain {
    std::vector<MCPropertySemanticList*> m_xLists;
    // The OR of the lists' interests: a mode outside it fires nothing of this chain.
    unsigned long m_nInterests = 0;
};

/// The rules of one object type, per property type, and the link to the handler of the level above.
class MCPropertySemanticHandler {
public:
    using Lists = ZVTHDict<short, MCPropertySemanticList*>;

    MCPropertySemanticHandler()
        : m_xSemantics(MCNotificationDirectory::HashId),
          m_xExternalSemantics(MCNotificationDirectory::HashId),
          m_xChains(MCNotificationDirectory::HashId) {}
    ~MCPropertySemanticHandler() {
        DeleteLists(m_xSemantics);
        DeleteLists(m_xExternalSemantics);
        DropChains();
    }
    MCPropertySemanticHandler(const MCPropertySemanticHandler&) = delete;
    MCPropertySemanticHandler& operator=(const MCPropertySemanticHandler&) = delete;

    static void DeleteLists(Lists& lists) {
        ZVTHDictIter<short, MCPropertySemanticList*> each(lists);
        while (++each)
            delete each.Value();
        lists.Clear();
    }
    void DropChains() {
        ZVTHDictIter<short, MCPropertySemanticChain*> each(m_xChains);
        while (++each)
            delete each.Value();
        m_xChains.Clear();
        m_pxLastChain = nullptr;
    }

    static MCPropertySemanticList* FindList(const Lists& lists, short propertyType) {
        MCPropertySemanticList* list = nullptr;
        lists.Find(propertyType, list);
        return list;
    }

    Lists m_xSemantics;
    Lists m_xExternalSemantics;
    MCPropertySemanticHandler* m_pxAncestor = nullptr;
    unsigned long m_nInterests = 0;
    unsigned long m_nExternalInterests = 0;

    // What firing reads, rebuilt when the registry's generation moves on: the OR of both masks over the
    // whole chain, and per property type the chain's lists in firing order.
    unsigned long m_uCacheGeneration = 0;
    unsigned long m_nChainInterests = 0;
    ZVTHDict<short, MCPropertySemanticChain*> m_xChains;
    // The chain asked for last: an edit asks for the same one before and after the change.
    short m_sLastChainType = 0;
    MCPropertySemanticChain* m_pxLastChain = nullptr;
    // Rebuilt with the mask: the property types with a list anywhere on the chain, each with the OR of
    // its lists' interests, while there are no more than c_nFewTypes; -1 when there are more. Most
    // chains rule only a type or two, and an edit of any other then needs no chain look-up.
    static constexpr int c_nFewTypes = 4;
    int m_nRuledTypes = -1;
    short m_asRuledTypes[c_nFewTypes] = {};
    unsigned long m_anRuledInterests[c_nFewTypes] = {};
};

/// The handlers by object type, and what keeps re-entrant firing safe: a registration made by a rule
/// invalidates the caches, and what it drops is only freed once no firing is running.
class MCPropertySemanticRegistryImpl {
public:
    MCPropertySemanticRegistryImpl() : m_xHandlers(MCNotificationDirectory::HashId) {
        mc_detail::RegistriesChanged();
    }
    ~MCPropertySemanticRegistryImpl() {
        Purge();
        mc_detail::RegistriesChanged();
    }

    // Every change of a handler, a list or a link moves the generation, so no cache outlives it.
    void Changed() {
        ++m_uGeneration;
        m_xRecent.Forget();
        mc_detail::RegistriesChanged();
    }

    void Retire(MCPropertySemanticHandler* handler) {
        if (m_nFiring == 0)
            delete handler;
        else
            m_xRetiredHandlers.emplace_back(handler);
    }
    void Retire(MCPropertySemanticList* list) {
        if (m_nFiring == 0)
            delete list;
        else
            m_xRetiredLists.emplace_back(list);
    }
    void Retire(MCPropertySemanticHandler& handler) {
        ZVTHDictIter<short, MCPropertySemanticChain*> each(handler.m_xChains);
        while (++each)
            m_xRetiredChains.emplace_back(each.Value());
        handler.m_xChains.Clear();
        handler.m_pxLastChain = nullptr;
        if (m_nFiring == 0)
            Purge();
    }
    // Takes out the slots that rules which left during the firings emptied.
    void CloseHoles() {
        m_bHoles = false;
        ZVTHDictIter<short, MCPropertySemanticHandler*> each(m_xHandlers);
        while (++each) {
            for (auto* lists : {&each.Value()->m_xSemantics, &each.Value()->m_xExternalSemantics}) {
                ZVTHDictIter<short, MCPropertySemanticList*> list(*lists);
                while (++list) {
                    while (list.Value()->Remove(nullptr)) {
                    }
                }
            }
        }
    }
    void Purge() {
        m_xRetiredChains.clear();
        m_xRetiredLists.clear();
        m_xRetiredHandlers.clear();
    }

    ZVTHDict<short, MCPropertySemanticHandler*> m_xHandlers;
    unsigned long m_uGeneration = 1;
    // The handlers FindHandler found lately, forgotten at every change: every object made and every edit
    // asks for the same few types.
    ZVTRecentT<MCPropertySemanticHandler> m_xRecent;
    long m_nFiring = 0;
    // Whether a rule left a list during the firings under way: see Deregister.
    bool m_bHoles = false;
    std::vector<std::unique_ptr<MCPropertySemanticChain>> m_xRetiredChains;
    std::vector<std::unique_ptr<MCPropertySemanticList>> m_xRetiredLists;
    std::vector<std::unique_ptr<MCPropertySemanticHandler>> m_xRetiredHandlers;
};

namespace {

// Set by a firing just before it fires an heir: the property it hands on is its own object's, not the
// heir's, so the heir's firing leaves looking it up to it.
__attribute__((tls_model("initial-exec"))) thread_local bool t_bForHeir = false;

// Counts a running firing; the last one out frees what re-entrant registrations dropped meanwhile.
class FiringScope {
public:
    explicit FiringScope(MCPropertySemanticRegistryImpl& impl) : m_xImpl(impl) { ++m_xImpl.m_nFiring; }
    ~FiringScope() {
        if (--m_xImpl.m_nFiring == 0) {
            if (m_xImpl.m_bHoles)
                m_xImpl.CloseHoles();
            m_xImpl.Purge();
        }
    }
    FiringScope(const FiringScope&) = delete;
    FiringScope& operator=(const FiringScope&) = delete;

private:
    MCPropertySemanticRegistryImpl& m_xImpl;
};

// Fills the handler's table of ruled property types from its chain's lists; how many there are, or -1
// when more than the table holds.
int CollectRuledTypes(MCPropertySemanticHandler& handler) {
    int count = 0;
    for (MCPropertySemanticHandler* level = &handler; level; level = level->m_pxAncestor) {
        for (auto* lists : {&level->m_xExternalSemantics, &level->m_xSemantics}) {
            ZVTHDictIter<short, MCPropertySemanticList*> each(*lists);
            while (++each) {
                int at = 0;
                while (at < count && handler.m_asRuledTypes[at] != each.Key())
                    ++at;
                if (at == count) {
                    if (count == MCPropertySemanticHandler::c_nFewTypes)
                        return -1;
                    handler.m_asRuledTypes[count] = each.Key();
                    handler.m_anRuledInterests[count++] = 0;
                }
                handler.m_anRuledInterests[at] |= each.Value()->m_nInterests;
            }
        }
    }
    return count;
}

// Brings the handler's chain mask up to date and drops its chains when anything was registered since.
void Refresh(MCPropertySemanticRegistryImpl& impl, MCPropertySemanticHandler& handler) {
    if (handler.m_uCacheGeneration == impl.m_uGeneration)
        return;
    impl.Retire(handler);
    unsigned long mask = 0;
    for (MCPropertySemanticHandler* level = &handler; level; level = level->m_pxAncestor)
        mask |= level->m_nInterests | level->m_nExternalInterests;
    handler.m_nChainInterests = mask;
    handler.m_uCacheGeneration = impl.m_uGeneration;
    handler.m_nRuledTypes = CollectRuledTypes(handler);
}

MCPropertySemanticChain* ChainFor(MCPropertySemanticHandler& handler, short propertyType) {
    if (handler.m_pxLastChain && handler.m_sLastChainType == propertyType)
        return handler.m_pxLastChain;
    MCPropertySemanticChain* chain = nullptr;
    if (handler.m_xChains.Find(propertyType, chain)) {
        handler.m_sLastChainType = propertyType;
        handler.m_pxLastChain = chain;
        return chain;
    }
    std::vector<MCPropertySemanticHandler*> levels;
    for (MCPropertySemanticHandler* level = &handler; level; level = level->m_pxAncestor)
        levels.push_back(level);
    auto made = std::make_unique<MCPropertySemanticChain>();
    for (auto level = levels.rbegin(); level != levels.rend(); ++level) {
        for (const auto* lists : {&(*level)->m_xExternalSemantics, &(*level)->m_xSemantics}) {
            if (auto* list = MCPropertySemanticHandler::FindList(*lists, propertyType)) {
                made->m_xLists.push_back(list);
                made->m_nInterests |= list->m_nInterests;
            }
        }
    }
    // Entered while still owned here: an insert that throws must not lose it.
    handler.m_xChains.Insert(propertyType, made.get());
    chain = made.release();
    handler.m_sLastChainType = propertyType;
    handler.m_pxLastChain = chain;
    return chain;
}

// The modes any rule on the handler's chain has for the property type; Refresh must have run first.
unsigned long ChainInterests(MCPropertySemanticHandler& handler, short propertyType) {
    if (handler.m_nRuledTypes < 0)
        return ChainFor(handler, propertyType)->m_nInterests;
    for (int i = 0; i < handler.m_nRuledTypes; ++i) {
        if (handler.m_asRuledTypes[i] == propertyType)
            return handler.m_anRuledInterests[i];
    }
    return 0;
}

// Whether a rule on the handler's chain has one of `modes` for the property type; Refresh must have run.
bool ChainRules(MCPropertySemanticHandler& handler, unsigned long modes, short propertyType) {
    return (handler.m_nChainInterests & modes) != 0 && (ChainInterests(handler, propertyType) & modes) != 0;
}

MCPropertySemantic::result FireList(MCPropertySemanticList& list, MCPropertySemantic::mode nMode,
                                    short nPropertyType, MCObject* pObject, MCProperty* pProperty,
                                    MCPropertySemanticContext* pContext) {
    const size_t count = list.Length();
    for (size_t i = 0; i < count && i < list.Length(); ++i) {
        MCPropertySemantic* semantic = list[i];
        if (!semantic)
            continue;
        if (!pProperty)
            pProperty = const_cast<MCProperty*>(pObject->FindProperty(nPropertyType, true));
        if (semantic->GetInterests() & nMode) {
            const MCPropertySemantic::result result = semantic->Fire(nMode, pObject, pProperty, pContext);
            if (result != MCPropertySemantic::resultContinue)
                return result;
        }
    }
    return MCPropertySemantic::resultContinue;
}

MCPropertySemantic::result FireHandler(MCPropertySemanticRegistryImpl& impl,
                                       MCPropertySemanticHandler& handler, MCPropertySemantic::mode nMode,
                                       short nPropertyType, MCObject* pObject, MCProperty* pProperty,
                                       MCPropertySemanticContext* pContext) {
    Refresh(impl, handler);
    if ((handler.m_nChainInterests & nMode) == 0)
        return MCPropertySemantic::resultContinue;
    // The chain stays valid through the loop: a rule that registers only retires it.
    MCPropertySemanticChain* chain = ChainFor(handler, nPropertyType);
    for (MCPropertySemanticList* list : chain->m_xLists) {
        if ((list->m_nInterests & nMode) == 0)
            continue;
        const MCPropertySemantic::result result =
            FireList(*list, nMode, nPropertyType, pObject, pProperty, pContext);
        if (result != MCPropertySemantic::resultContinue)
            return result;
    }
    return MCPropertySemantic::resultContinue;
}

}  // namespace

// ---------------------------------------------------------------------------------------------------
// The registry

MCPropertySemanticRegistry* MCPropertySemanticRegistry::c_pxSingleton = nullptr;

MCPropertySemanticRegistry::MCPropertySemanticRegistry() : m_pxHandlers(new MCPropertySemanticRegistryImpl) {}

MCPropertySemanticRegistry::~MCPropertySemanticRegistry() {
    m_eState = stateDying;
    ZVTHDictIter<short, MCPropertySemanticHandler*> handlers(m_pxHandlers->m_xHandlers);
    while (++handlers)
        delete handlers.Value();
    m_pxHandlers->m_xHandlers.Clear();
    delete m_pxHandlers;
    c_pxSingleton = nullptr;
}

MCPropertySemanticRegistry* MCPropertySemanticRegistry::GetInstance() {
    if (!c_pxSingleton)
        c_pxSingleton = new MCPropertySemanticRegistry;
    return c_pxSingleton;
}

void MCPropertySemanticRegistry::DeleteInstance() {
    delete c_pxSingleton;
}

MCPropertySemanticHandler* MCPropertySemanticRegistry::FindHandler(short nObjectType) const {
    if (MCPropertySemanticHandler* known = m_pxHandlers->m_xRecent.Find(nObjectType))
        return known;
    MCPropertySemanticHandler* handler = nullptr;
    if (m_pxHandlers->m_xHandlers.Find(nObjectType, handler))
        m_pxHandlers->m_xRecent.Remember(nObjectType, handler);
    return handler;
}

namespace {

// Appends a rule to the list of a property type on one side, making the list on first use. An internal
// rule stands once; an external one as often as it is added.
void AddSemantic(MCPropertySemanticHandler::Lists& lists, unsigned long& handlerInterests, short propertyType,
                 MCPropertySemantic* semantic, bool once) {
    MCPropertySemanticList* list = MCPropertySemanticHandler::FindList(lists, propertyType);
    if (!list) {
        // Held here until the table has taken it: the insert may fail.
        auto made = std::make_unique<MCPropertySemanticList>();
        lists.Insert(propertyType, made.get());
        list = made.release();
    }
    if (once && list->Contains(semantic))
        return;
    list->Append(semantic);
    const unsigned long interests = semantic ? semantic->GetInterests() : 0;
    handlerInterests |= interests;
    list->m_nInterests |= interests;
}

}  // namespace

void MCPropertySemanticRegistry::Register(short nObjectType, MCFactoryContext* pContext, short nPropertyType,
                                          MCPropertySemantic* pSemantic, ZVTBoolean bSetContext,
                                          ZVTBoolean bNoAncestor) {
    MCPropertySemanticRegistry* registry = GetInstance();
    MCPropertySemanticHandler* handler =
        registry->CreateHandler(nObjectType, pContext, bNoAncestor, bSetContext);
    if (nPropertyType == 0)
        return;
    if (nObjectType == MCCodes::tGenericObject)
        throw EXGenericObject();
    AddSemantic(handler->m_xSemantics, handler->m_nInterests, nPropertyType, pSemantic, true);
    registry->m_pxHandlers->Changed();
}

MCPropertySemanticHandler* MCPropertySemanticRegistry::CreateHandler(short nObjectType,
                                                                     MCFactoryContext* pContext,
                                                                     ZVTBoolean bNoAncestor,
                                                                     ZVTBoolean bSetContext) {
    MCPropertySemanticHandler* handler = FindHandler(nObjectType);
    if (!handler) {
        handler = new MCPropertySemanticHandler;
        m_pxHandlers->m_xHandlers.Insert(nObjectType, handler);
        m_pxHandlers->Changed();
    }
    if (bNoAncestor)
        return handler;
    auto linkTo = [&](short ancestorType) {
        MCPropertySemanticHandler* ancestor = FindHandler(ancestorType);
        if (ancestor && ancestor != handler) {
            handler->m_pxAncestor = ancestor;
            m_pxHandlers->Changed();
        }
    };
    if (!handler->m_pxAncestor) {
        const short concrete = MCFactoryRegistry::Translate(nObjectType, true);
        if (concrete != nObjectType) {
            linkTo(concrete);
        } else if (pContext) {
            linkTo(pContext->GetAncestorType(MCFactoryContext::userPropertySemantics));
            if (bSetContext)
                pContext->SetAncestorType(MCFactoryContext::userPropertySemantics, nObjectType);
        }
    } else if (bSetContext && pContext) {
        pContext->SetAncestorType(MCFactoryContext::userPropertySemantics, nObjectType);
    }
    return handler;
}

ZVTBoolean MCPropertySemanticRegistry::CreateHandler(short nObjectType, MCFactoryContext* pContext,
                                                     ZVTBoolean bSetContext) {
    const ZVTBoolean existed = FindHandler(nObjectType) != nullptr;
    CreateHandler(nObjectType, pContext, false, bSetContext);
    return !existed;
}

void MCPropertySemanticRegistry::RegisterExternalSemantic(short nObjectType, short nPropertyType,
                                                          MCPropertySemantic* pSemantic,
                                                          ZVTBoolean bSetContext) {
    CreateHandler(nObjectType, nullptr, bSetContext);
    if (nPropertyType == 0)
        return;
    if (nObjectType == MCCodes::tGenericObject)
        throw EXGenericObject();
    MCPropertySemanticHandler* handler = FindHandler(nObjectType);
    AddSemantic(handler->m_xExternalSemantics, handler->m_nExternalInterests, nPropertyType, pSemantic,
                false);
    m_pxHandlers->Changed();
}

void MCPropertySemanticRegistry::Deregister(short nObjectType) {
    MCPropertySemanticHandler* handler = FindHandler(nObjectType);
    if (!handler)
        return;
    m_pxHandlers->m_xHandlers.Remove(nObjectType);
    // The levels below skip the one that goes, so they keep the rules above it and never reach it freed;
    // the generation moved on, so every chain and mask built through it is rebuilt before it is read.
    ZVTHDictIter<short, MCPropertySemanticHandler*> each(m_pxHandlers->m_xHandlers);
    while (++each) {
        if (each.Value()->m_pxAncestor == handler)
            each.Value()->m_pxAncestor = handler->m_pxAncestor;
    }
    m_pxHandlers->Changed();
    m_pxHandlers->Retire(handler);
}

void MCPropertySemanticRegistry::Deregister(short nObjectType, short nPropertyType) {
    MCPropertySemanticHandler* handler = FindHandler(nObjectType);
    if (!handler)
        return;
    for (auto* lists : {&handler->m_xSemantics, &handler->m_xExternalSemantics}) {
        if (MCPropertySemanticList* list = MCPropertySemanticHandler::FindList(*lists, nPropertyType)) {
            lists->Remove(nPropertyType);
            m_pxHandlers->Retire(list);
        }
    }
    m_pxHandlers->Changed();
}

namespace {

// Calls `visit` on every list of every handler, both sides, until it answers true; whether one did.
template <class Visit>
bool AnyList(ZVTHDict<short, MCPropertySemanticHandler*>& handlers, Visit visit) {
    ZVTHDictIter<short, MCPropertySemanticHandler*> each(handlers);
    while (++each) {
        for (auto* lists : {&each.Value()->m_xSemantics, &each.Value()->m_xExternalSemantics}) {
            ZVTHDictIter<short, MCPropertySemanticList*> list(*lists);
            while (++list) {
                if (visit(*list.Value()))
                    return true;
            }
        }
    }
    return false;
}

}  // namespace

void MCPropertySemanticRegistry::Deregister(const MCPropertySemantic* pSemantic) {
    auto* semantic = const_cast<MCPropertySemantic*>(pSemantic);
    if (!semantic)
        return;
    MCPropertySemanticRegistryImpl& impl = *m_pxHandlers;
    AnyList(impl.m_xHandlers, [semantic, &impl](MCPropertySemanticList& list) {
        if (impl.m_nFiring == 0) {
            while (list.Remove(semantic)) {
            }
            return false;
        }
        // A firing walks its lists by index: the slot stays, empty, until the last firing is done, so
        // every other rule that was there still fires.
        for (size_t i = 0; i < list.Length(); ++i) {
            if (list[i] == semantic) {
                list[i] = nullptr;
                impl.m_bHoles = true;
            }
        }
        return false;
    });
}

ZVTBoolean MCPropertySemanticRegistry::IsRegistered(short nObjectType) const {
    return FindHandler(nObjectType) != nullptr;
}

ZVTBoolean MCPropertySemanticRegistry::IsRegistered(short nObjectType, short nPropertyType) const {
    MCPropertySemanticHandler* handler = FindHandler(nObjectType);
    return handler && (handler->m_xSemantics.Contains(nPropertyType) ||
                       handler->m_xExternalSemantics.Contains(nPropertyType));
}

ZVTBoolean MCPropertySemanticRegistry::IsRegistered(const MCPropertySemantic* pSemantic) const {
    auto* semantic = const_cast<MCPropertySemantic*>(pSemantic);
    return semantic && AnyList(m_pxHandlers->m_xHandlers,
                               [semantic](MCPropertySemanticList& list) { return list.Contains(semantic); });
}

MCPropertySemantic::result MCPropertySemanticRegistry::FireSemantics(MCPropertySemantic::mode nMode,
                                                                     short nPropertyType, MCObject* pObject,
                                                                     MCProperty* pProperty,
                                                                     MCPropertySemanticContext* pContext) {
    const bool forHeir = std::exchange(t_bForHeir, false);
    MCPropertySemanticRegistry* registry = GetInstance();
    MCPropertySemanticHandler* handler = pObject ? registry->FindHandler(pObject->GetType()) : nullptr;
    if (!handler)
        return MCPropertySemantic::resultContinue;
    MCPropertySemanticRegistryImpl& impl = *registry->m_pxHandlers;
    // A rule may end the object or take away (or null) the property the firing is about: then the rules
    // and heirs still to come would meet what is gone, so the firing ends there, as destroyed or as
    // refused. What is needed is taken once a rule or heir is there to fire, and looked up only once the
    // thread's counters of such ends moved.
    mc_detail::HeldObject held;
    std::uint64_t propertyEnds = 0;
    bool wasNulled = false;
    auto taken = [&] {
        return pProperty && !forHeir && mc_detail::t_nPropertyEnds != propertyEnds &&
               (pObject->MCObject::FindProperty(nPropertyType, true) != pProperty ||
                (!wasNulled && pProperty->GetFlag(MCItem::itemNulled)));
    };
    // The object's heirs hear the edit in the inherited mode, shifted once: the heirs of heirs hear the same.
    auto fireHeirs = [&](const MCHeirSet& heirs) {
        const auto inherited =
            static_cast<MCPropertySemantic::mode>((nMode & 0xFFFF0000UL) != 0 ? nMode : nMode << 16);
        MCHeirSetIter each(heirs);
        while (++each) {
            MCObject* heir = each.GetValue();
            if (!heir)
                continue;
            const long heirId = heir->GetId();
            t_bForHeir = true;
            const MCPropertySemantic::result inHeir =
                FireSemantics(inherited, nPropertyType, heir, pProperty, pContext);
            if (held.Gone())
                return MCPropertySemantic::resultObjectDestroyed;
            if (taken())
                return MCPropertySemantic::resultRefused;
            // An heir that ended ends only its own part: the object and its other heirs are still there.
            if (inHeir == MCPropertySemantic::resultObjectDestroyed && MCObject::ResolveId(heirId) != heir)
                continue;
            if (inHeir != MCPropertySemantic::resultContinue)
                return inHeir;
        }
        return MCPropertySemantic::resultContinue;
    };
    // Most edits meet no rule for their property on their object's chain: then only heirs can react, and
    // the firing is set up for them alone.
    Refresh(impl, *handler);
    const bool ruled = ChainRules(*handler, nMode, nPropertyType);
    const MCHeirSet* heirs = nullptr;
    try {
        if (!ruled) {
            pObject->GetHeirs(heirs);
            if (!heirs)
                return MCPropertySemantic::resultContinue;
        }
        held = mc_detail::HeldObject(pObject);
        propertyEnds = mc_detail::t_nPropertyEnds;
        wasNulled = pProperty && !forHeir && pProperty->GetFlag(MCItem::itemNulled);
        FiringScope firing(impl);
        if (ruled) {
            const MCPropertySemantic::result result =
                FireHandler(impl, *handler, nMode, nPropertyType, pObject, pProperty, pContext);
            if (result != MCPropertySemantic::resultContinue)
                return result;
            if (held.Gone())
                return MCPropertySemantic::resultObjectDestroyed;
            if (taken())
                return MCPropertySemantic::resultRefused;
            pObject->GetHeirs(heirs);
        }
        if (heirs)
            return fireHeirs(*heirs);
    } catch (const EXBase&) {
        return MCPropertySemantic::resultRefused;
    }
    return MCPropertySemantic::resultContinue;
}

ZVTBoolean MCPropertySemanticRegistry::MayFire(MCPropertySemantic::mode nMode, MCObject* pObject) {
    // The same tests FireSemantics and FireHandler make before any rule runs.
    MCPropertySemanticRegistry* registry = c_pxSingleton;
    MCPropertySemanticHandler* handler =
        registry && pObject ? registry->FindHandler(pObject->GetType()) : nullptr;
    if (!handler)
        return false;
    Refresh(*registry->m_pxHandlers, *handler);
    if ((handler->m_nChainInterests & nMode) != 0)
        return true;
    const MCHeirSet* heirs = nullptr;
    pObject->GetHeirs(heirs);
    return heirs != nullptr;
}

ZVTBoolean MCPropertySemanticRegistry::MayRule(unsigned long nModes, short nPropertyType, MCObject* pObject) {
    // The tests FireSemantics makes before it looks for heirs.
    MCPropertySemanticRegistry* registry = GetInstance();
    if (!registry)
        return true;
    MCPropertySemanticHandler* handler = pObject ? registry->FindHandler(pObject->GetType()) : nullptr;
    if (!handler)
        return false;
    Refresh(*registry->m_pxHandlers, *handler);
    return ChainRules(*handler, nModes, nPropertyType);
}

ZVTString MCPropertySemanticRegistry::GetModeName(MCPropertySemantic::mode nMode) const {
    switch (nMode) {
        case MCPropertySemantic::PreEdit:
            return "PreEdit";
        case MCPropertySemantic::PostEdit:
            return "PostEdit";
        case MCPropertySemantic::PreDestructon:
            return "PreDestructon";
        case MCPropertySemantic::PreCalculateData:
            return "PreCalculateData";
        case MCPropertySemantic::PostCalculateData:
            return "PostCalculateData";
        case MCPropertySemantic::InheritedPostEdit:
            return "InheritedPostEdit";
        default:
            return "Invalid mode";
    }
}
