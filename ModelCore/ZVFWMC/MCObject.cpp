#include "ModelCore/ZVFWMC/MCObject.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <typeinfo>
#include <unordered_set>
#include <utility>
#include <vector>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCEndsPrivate.h"
#include "ModelCore/ZVFWMC/MCEvent.h"
#include "ModelCore/ZVFWMC/MCEventPrivate.h"
#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCIdSpace.h"
#include "ModelCore/ZVFWMC/MCNotification.h"
#include "ModelCore/ZVFWMC/MCObjectFilters.h"
#include "ModelCore/ZVFWMC/MCObjectSem.h"
#include "ModelCore/ZVFWMC/MCPropertyAccessor.h"
#include "ModelCore/ZVFWMC/MCPropertyConverter.h"
#include "ModelCore/ZVFWMC/MCPropertySemantics.h"
#include "ModelCore/ZVFWMC/MCRefProperty.h"
#include "ModelCore/ZVFWMC/MCRegistrationPrivate.h"
#include "ModelCore/ZVFWMC/MCStreams.h"
#include "ModelCore/ZVFWMC/MCVisitor.h"
#include "platform/HUB.h"

std::uint64_t mc_detail::g_nHeardGeneration = 1;
#ifdef MC_READS_NOTIFY_OVERRIDER
mc_detail::NotifyCode mc_detail::g_pfnObjectNotify = nullptr;
#endif

namespace {

#ifdef MC_READS_NOTIFY_OVERRIDER
// MCObject's own FindProperty and GetHeirs, read as g_pfnObjectNotify is.
using FindCode = const MCProperty* (*)(const MCObject*, short, ZVTBoolean);
using HeirsCode = void (*)(MCObject*, const MCHeirSet*&);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpmf-conversions"
#pragma GCC diagnostic ignored "-Wpedantic"
FindCode FindOf(const MCObject* object) {
    return reinterpret_cast<FindCode>(object->*(&MCObject::FindProperty));
}
HeirsCode HeirsOf(MCObject* object) {
    return reinterpret_cast<HeirsCode>(object->*(&MCObject::GetHeirs));
}
#pragma GCC diagnostic pop
FindCode c_pfnObjectFind = nullptr;
HeirsCode c_pfnObjectHeirs = nullptr;
#endif

// The audibility memos hold the answers for the events that owners and observers hear of an object's
// own changes (bit = event type), as a climb finds them all at once.
constexpr unsigned int c_nMemoMask = MCEvent::subscriberOwner | MCEvent::subscriberObserver;
constexpr long c_nMemoEventLimit = 8;
constexpr std::uint8_t c_nMemoEvents =
    (1u << MCEvent::PropertySet) | (1u << MCEvent::PropertyNulled) | (1u << MCEvent::ObjectCreated);
// A climb leaves its memo on this many levels at most, the lowest ones; it still climbs on.
constexpr int c_nMemoLevels = 32;
// The generation of the memos when IsHeard last found none, and how often it has found none since.
std::uint64_t c_nAskedAt = 0;
unsigned c_nAskedSince = 0;
constexpr unsigned c_nAskedBeforeMemos = 8;

// Whether `address` lies in the `size` bytes at `object`, both ends included; any address for size 0.
bool IsWithin(const void* object, unsigned int size, const void* address) {
    if (size == 0)
        return true;
    const auto* begin = static_cast<const unsigned char*>(object);
    const auto* at = static_cast<const unsigned char*>(address);
    return begin <= at && at <= begin + size;
}

// A rule or subscriber may expunge another object while one goes, whose end may expunge a third: a
// chain as long as the model (or a file) makes it. Past c_nExpungeDepth nested expunges the next one
// waits, its veto already asked, until the outermost has finished its own, so no chain costs more call
// depth than that.
constexpr unsigned c_nExpungeDepth = 64;

struct ExpungeState {
    unsigned m_nDepth = 0;
    std::vector<std::pair<MCObject*, bool>> m_xWaiting;  // in the order they were asked for
    std::unordered_set<const MCObject*> m_xAlive;        // those waiting that no owner has taken down
};

ExpungeState& Expunges() {
    static thread_local ExpungeState state;
    return state;
}

// Plain data, so every destructor checks it with one load.
__attribute__((tls_model("initial-exec"))) thread_local std::size_t t_nWaiting = 0;

// Objects that went silently (a tree expunge) on this thread. Such an end leaves the subscriptions its
// references held in place, so while one has happened during a walk, the walk's reading ahead trusts no
// list entry to name a subscriber still there.
__attribute__((tls_model("initial-exec"))) thread_local std::size_t t_nSilentEnds = 0;

// The objects whose end is under way on this thread, innermost first: each from its veto until its
// subtree has gone. An expunge of an owner above one of them would free it under its own walk, so such an
// expunge waits as a deep one does. A node lives in the frame of the expunge it stands for.
struct EndUnderWay {
    explicit EndUnderWay(MCObject* top);
    ~EndUnderWay();
    EndUnderWay(const EndUnderWay&) = delete;
    EndUnderWay& operator=(const EndUnderWay&) = delete;
    const MCObject* m_pxTop;  // null once its memory is going
    EndUnderWay* m_pxOuter;
};

__attribute__((tls_model("initial-exec"))) thread_local EndUnderWay* t_pxEnds = nullptr;

EndUnderWay::EndUnderWay(MCObject* top) : m_pxTop(top), m_pxOuter(t_pxEnds) {
    t_pxEnds = this;
}

EndUnderWay::~EndUnderWay() {
    t_pxEnds = m_pxOuter;
}

struct ExpungeDepth {
    explicit ExpungeDepth(ExpungeState& state) : m_rState(state) { ++m_rState.m_nDepth; }
    ~ExpungeDepth() {
        // Left over only when a rule or subscriber threw: those stay rather than go with some later,
        // unrelated expunge. Nothing of them has gone yet, so they are as they were before their veto,
        // free to be expunged again.
        if (--m_rState.m_nDepth == 0 && !m_rState.m_xWaiting.empty()) {
            for (const std::pair<MCObject*, bool>& waiting : m_rState.m_xWaiting) {
                if (m_rState.m_xAlive.count(waiting.first) != 0) {
                    waiting.first->SetFlag(MCItem::itemExpunging, false);
                    waiting.first->SetFlag(MCItem::itemTreeExpunge, false);
                }
            }
            m_rState.m_xWaiting.clear();
            m_rState.m_xAlive.clear();
            t_nWaiting = 0;
        }
    }
    ExpungeDepth(const ExpungeDepth&) = delete;
    ExpungeDepth& operator=(const ExpungeDepth&) = delete;
    ExpungeState& m_rState;
};

// The rules every object has: it announces its creation, an undeletable object goes only with its
// owner, and a dying object's properties hear of it.
class MCObjectOS : public MCObjectSem {
public:
    result Fire(mode nMode, MCObject* object, MCObjectSemContext* context) override;
    unsigned long GetInterests() const override {
        return PostCreation | PreDestructon | CalculateData | PostPaste;
    }
};

// The id changes only through a raw accessor: every rule-running edit of it is refused.
class MCIdPS : public MCPropertySemantic {
public:
    result Fire(mode, MCObject*, MCProperty*, MCPropertySemanticContext*) override { return resultRefused; }
    unsigned long GetInterests() const override { return PreEdit; }
};

MCObjectOS c_xObjectOS;
MCIdPS c_xIdPS;

// Whether `owner`'s class replaced MCObject::Notify, so that hearing an event may do anything at all.
bool HasOwnNotify(MCObject* owner) {
    return !mc_detail::KeepsObjectNotify(owner);
}

// What one class level's registration did to the context the last time it ran without changing any
// registry: while the registries have not changed since, the same level with the same ancestor types in
// the context would do exactly that again, so only the context's ancestor types are moved. Every object
// made registers each of its class levels, and only the first of a type changes anything.
constexpr MCFactoryContext::user c_aeAncestorSlots[] = {MCFactoryContext::userObjectSemantics,
                                                        MCFactoryContext::userPropertySemantics,
                                                        MCFactoryContext::userNotifications};
constexpr std::size_t c_nAncestorSlots = std::size(c_aeAncestorSlots);

struct LevelRegistration {
    std::uint64_t m_nChanges = 0;  // the registries' change count it was seen at; 0 never is current
    short m_sType = 0;
    short m_asBefore[c_nAncestorSlots] = {};
    short m_asAfter[c_nAncestorSlots] = {};
};

// The levels by type, one slot per type's low bits: a few host types share them.
constexpr std::size_t c_nLevelSlots = 64;
LevelRegistration c_axLevels[c_nLevelSlots];
LevelRegistration c_xObjectLevel;

template <class Register>
void RegisterOnce(LevelRegistration& level, short type, MCFactoryContext* context, Register registerLevel) {
    short before[c_nAncestorSlots];
    for (std::size_t i = 0; i < c_nAncestorSlots; ++i)
        before[i] = context->GetAncestorType(c_aeAncestorSlots[i]);
    const std::uint64_t changes = mc_detail::c_nRegistryChanges;
    if (level.m_nChanges == changes && level.m_sType == type &&
        std::equal(before, before + c_nAncestorSlots, level.m_asBefore)) {
        for (std::size_t i = 0; i < c_nAncestorSlots; ++i)
            context->SetAncestorType(c_aeAncestorSlots[i], level.m_asAfter[i]);
        return;
    }
    registerLevel();
    if (mc_detail::c_nRegistryChanges != changes)
        return;
    level.m_nChanges = changes;
    level.m_sType = type;
    for (std::size_t i = 0; i < c_nAncestorSlots; ++i) {
        level.m_asBefore[i] = before[i];
        level.m_asAfter[i] = context->GetAncestorType(c_aeAncestorSlots[i]);
    }
}

void AnnounceCreation(MCObject* object) {
    constexpr unsigned int mask = MCEvent::subscriberOwner | MCEvent::subscriberObserver;
    if (object->IsHeard(MCEvent::ObjectCreated, mask))
        object->NotifySubscribers(MCEvent::Instantiate(MCEvent::ObjectCreated, object, mask));
}

MCObjectSem::result MCObjectOS::Fire(mode nMode, MCObject* object, MCObjectSemContext* context) {
    switch (nMode) {
        case PostCreation:
            AnnounceCreation(object);
            return resultContinue;
        case PreDestructon: {
            if (object->GetFlag(MCItem::itemUndeletable)) {
                // A root has no owner to go with, so it stays until the host clears the flag.
                MCObject* owner = object->GetOwner(0, MCItem::rttiDerived);
                if (!owner || !owner->GetFlag(MCItem::itemExpunging)) {
                    HUBMessageParameter parameter(0, MCCodes::styleWarning);
                    HUBInterface::ShowMessage(MCCodes::msgKindInformation, MCCodes::msgUndeletable,
                                              parameter);
                    return resultFailed;
                }
            }
            // Asked once for the object: most types have no rule for this mode, and a firing that reaches
            // none costs a look-up per property.
            if (!object->GetFlag(MCItem::itemTreeExpunge) &&
                MCPropertySemanticRegistry::MayFire(MCPropertySemantic::ObjectPreDestruction, object)) {
                MCPropertySetIter properties(object->GetPropertySet());
                while (++properties) {
                    if (MCProperty* property = properties.GetValue())
                        MCPropertySemanticRegistry::FireSemantics(MCPropertySemantic::ObjectPreDestruction,
                                                                  property->GetType(), object, property,
                                                                  nullptr);
                }
            }
            return resultContinue;
        }
        case PostPaste: {
            auto* paste = dynamic_cast<MCPasteObjectContext*>(context);
            if (!paste)
                return resultFailed;
            // Only the top of what was pasted is news to the owner; the rest came with it.
            if (paste->GetLevel() < 1)
                AnnounceCreation(object);
            return resultContinue;
        }
        default:
            return resultContinue;
    }
}

}  // namespace

// ---------------------------------------------------------------------------------------------------
// Construction and destruction

MCObject::MCObject(short type, MCFactorySignature& /*signature*/, MCFactoryContext* context)
    : MCItem(type), m_pxOwner(nullptr), m_xId(MCCodes::pId, this) {
    MCObjectSemReg::Register(MCCodes::tAbstractObject, context, &c_xObjectOS, true);
    MCPropertySemanticRegistry::Register(MCCodes::tAbstractObject, context, MCCodes::pId, &c_xIdPS, true,
                                         false);
    MCNotificationDirectory::Register(MCCodes::tAbstractObject, context, 0,
                                      &MCObjectNotification::c_xInstance, true);
    MCNotificationDirectory::Register(MCCodes::tAbstractObject, context, MCEvent::SubjectDestroyed,
                                      &MCObjectSubjectDestNotification::c_xInstance, true);
}

MCObject::MCObject(short type, MCObject* owner, MCFactoryContext* context)
    : MCItem(type), m_pxOwner(owner), m_xId(MCCodes::pId, this) {
    if (context) {
        RegisterOnce(c_xObjectLevel, MCCodes::tAbstractObject, context, [context] {
            c_xObjectOS.Register(MCCodes::tAbstractObject, context);
            if (RegisterNotificationObject(MCCodes::tAbstractObject, context, true)) {
                RegisterNotification(MCObjectNotification::c_xInstance, MCCodes::tAbstractObject, context,
                                     true);
                RegisterNotification(MCObjectSubjectDestNotification::c_xInstance, MCCodes::tAbstractObject,
                                     MCEvent::SubjectDestroyed, context, true);
            }
            if (MCPropertySemanticRegistry::GetInstance()->CreateHandler(MCCodes::tAbstractObject, context,
                                                                         true))
                MCPropertySemanticRegistry::Register(MCCodes::tAbstractObject, context, MCCodes::pId,
                                                     &c_xIdPS, true, false);
        });
    }
#ifdef MC_READS_NOTIFY_OVERRIDER
    // Until the body ends this object is an MCObject, whatever class it is being made as.
    if (!mc_detail::g_pfnObjectNotify) {
        mc_detail::g_pfnObjectNotify = mc_detail::NotifyOf(this);
        c_pfnObjectFind = FindOf(this);
        c_pfnObjectHeirs = HeirsOf(this);
    }
#endif
    if (owner) {
        owner->AddOwnedObject(this);
        AddSubscriber(owner, MCEvent::subscriberOwner);
        // The owner is the only one to hear this object yet: where the owner holds a memo and is made (its
        // Notify final), the first climb from here would stop at it at once, so this level's memo is taken
        // now, as FindQuietEvents would leave it.
        if (owner->m_nHeardAt == mc_detail::g_nHeardGeneration && (owner->m_nState & c_nHeardMade) != 0 &&
            !HasOwnNotify(owner)) {
            if (const MCNotificationDirectory* directory = MCNotificationDirectory::FindInstance()) {
                m_nQuietEvents =
                    static_cast<std::uint8_t>(owner->m_nQuietEvents & directory->PassingOn(owner->GetType()));
                m_nHeardAt = owner->m_nHeardAt;
                m_nState = static_cast<std::uint8_t>(m_nState | c_nHeardRelied);
            }
        }
    }
    long id = 0;
    MCIdSpace* space = nullptr;
    try {
        id = context ? context->RequestId() : 0;
        space = context ? context->GetIdSpace() : nullptr;
        if (!space)
            space = GetIdSpace();
        if (id == 0)
            id = space->RequestId();
        SetId(id);
        space->RegisterPointer(id, this);
        MCFactoryRegistry::RegisterInstance(this, true);
    } catch (...) {
        // The members and bases unwind by themselves (the owner's subscription goes with the subject);
        // neither the owner's list nor the id space may keep a pointer to what never became an object.
        if (space)
            space->RemovePointer(id, this);
        if (owner)
            owner->RemoveOwnedObject(this);
        throw;
    }
}

std::uint64_t mc_detail::ObjectEnds() {
    return t_nObjectEnds;
}

void mc_detail::ExpungeOrphan(MCObject& object) noexcept {
    try {
        object.Expunge(true);
    } catch (...) {
    }
}

void MCObject::Ended() {
    ++mc_detail::t_nObjectEnds;
    if (t_nWaiting != 0) {
        ExpungeState& state = Expunges();
        state.m_xAlive.erase(this);
        t_nWaiting = state.m_xAlive.size();
    }
    // Only our own entry: an id set by hand may name another object's.
    GetIdSpace()->RemovePointer(GetId(), this);
}

MCObject::~MCObject() {
    Ended();
    const unsigned int size = MCFactoryRegistry::GetItemSize(GetType());
    MCPropertySetIter properties(m_xProperties);
    while (++properties) {
        MCProperty* property = properties.GetValue();
        if (property && !IsWithin(this, size, property))
            delete property;
    }
    MCFactoryRegistry::RegisterInstance(this, false);
    // Expunge_ has taken this object out of its owner's list; a derived constructor that threw has not.
    if (m_pxOwner && IsListedBy(m_pxOwner))
        m_pxOwner->UnlinkOwnee(this);
}

void MCObject::RegisterLevel(short type, MCFactoryContext* context) {
    if (!context)
        return;
    LevelRegistration& level = c_axLevels[static_cast<unsigned short>(type) % c_nLevelSlots];
    RegisterOnce(level, type, context, [type, context] {
        MCObjectSemReg::Register(type, context, nullptr, true);
        RegisterNotificationObject(type, context, true);
        MCPropertySemanticRegistry::Register(type, context, 0, nullptr, true, false);
    });
}

ZVTBoolean MCObject::InvokeCreationSemantics(MCFactoryContext* context) {
    if (context && !context->SemanticsNeeded())
        return false;
    MCObjectSemHandler* handler = MCObjectSemReg::HandlerOf(this);
    if (!handler)
        return false;
    MCObjectSemContext semanticContext(context);
    MCObjectSem* failed = nullptr;
    MCObjectSemReg::FireRootFirst(handler, MCObjectSem::PostCreation, this, c_xObjectOS, failed,
                                  &semanticContext);
    return true;
}

ZVTBoolean MCObject::HasCreationSemantics() const {
    MCObjectSemReg* registry = MCObjectSemReg::GetInstance();
    return registry && registry->IsRegistered(GetType());
}

ZVTBoolean MCObject::IsPersistenceUnit() {
    return false;
}

ZVTBoolean MCObject::Unlink(MCObject* /*other*/) {
    Expunge(true);
    return true;
}

ZVTBoolean MCObject::IsType_(short type) const {
    return type == MCCodes::tAbstractObject || MCItem::IsType_(type);
}

ZVTBoolean MCObject::SetFlag_(unsigned short& /*flag*/, ZVTBoolean /*on*/) {
    return true;
}

ZVTBoolean MCObject::SetFlags_(unsigned short& /*flags*/) {
    return true;
}

// ---------------------------------------------------------------------------------------------------
// Identity

void MCObject::SetId(long id) {
    // What a raw accessor's set does to the id, without making one: no rule and no event fire, an
    // unchanged value is left alone, a new one clears the nulled and SA flags.
    if (!m_xId.GetFlag(itemNulled) && m_xId.GetValue() == id)
        return;
    m_xId.SetValue(id);
    m_xId.SetFlagRaw(itemSA, false);
}

MCIdSpace* MCObject::GetIdSpace() {
    return &MCIdSpace::Global();
}

MCObject* MCObject::ResolveId(long id) {
    return MCIdSpace::Global().ResolveId(id);
}

// ---------------------------------------------------------------------------------------------------
// Ownership

MCObject* MCObject::GetPersistenceRoot() const {
    if (IsType(MCCodes::tPersistenceRoot, MCItem::rttiDerived))
        return const_cast<MCObject*>(this);
    return GetOwner(MCCodes::tPersistenceRoot, MCItem::rttiDerived);
}

MCObject* MCObject::GetOwner(short type, MCItem::rtti how) const {
    MCObject* owner = m_pxOwner;
    while (type != 0 && owner && !owner->IsType(type, how))
        owner = owner->m_pxOwner;
    return owner;
}

ZVTBoolean MCObject::IsListedBy(const MCObject* owner) const {
    return m_pxOwner == owner && m_pxNextSibling != nullptr;
}

void MCObject::AddOwnedObject(MCObject* object) {
    if (!object || object->m_pxOwner != this)
        throw EXNonOwnedObject();
    if (object->m_pxNextSibling)
        return;
    if (!m_pxFirstOwnee) {
        m_pxFirstOwnee = object;
        object->m_pxPrevSibling = object->m_pxNextSibling = object;
        return;
    }
    MCObject* last = m_pxFirstOwnee->m_pxPrevSibling;
    last->m_pxNextSibling = object;
    object->m_pxPrevSibling = last;
    object->m_pxNextSibling = m_pxFirstOwnee;
    m_pxFirstOwnee->m_pxPrevSibling = object;
}

void MCObject::UnlinkOwnee(MCObject* object) {
    if (object->m_pxNextSibling == object) {
        m_pxFirstOwnee = nullptr;
    } else {
        object->m_pxPrevSibling->m_pxNextSibling = object->m_pxNextSibling;
        object->m_pxNextSibling->m_pxPrevSibling = object->m_pxPrevSibling;
        if (m_pxFirstOwnee == object)
            m_pxFirstOwnee = object->m_pxNextSibling;
    }
    object->m_pxPrevSibling = object->m_pxNextSibling = nullptr;
}

ZVTBoolean MCObject::RemoveOwnedObject(MCObject* object) {
    if (!object || !object->IsListedBy(this))
        return false;
    UnlinkOwnee(object);
    return true;
}

MCObject* MCObject::RemoveFirstOwnee() {
    MCObject* first = m_pxFirstOwnee;
    if (first)
        UnlinkOwnee(first);
    return first;
}

void MCObject::DestroyOwnedObject(MCObject*& object) {
    if (!object)
        return;
    if (!object->IsListedBy(this))
        throw EXNonOwnedObject();
    object->Expunge(true);
    object = nullptr;
}

MCObject* MCObject::GetNextSibling() const {
    if (!m_pxNextSibling || m_pxNextSibling == m_pxOwner->m_pxFirstOwnee)
        return nullptr;
    return m_pxNextSibling;
}

long MCObject::GetOwneeCount() const {
    long count = 0;
    for (MCObject* ownee = m_pxFirstOwnee; ownee; ownee = ownee->GetNextSibling())
        ++count;
    return count;
}

ZVTBoolean MCObject::IsContainedAddress(const void* address) const {
    return IsWithin(this, MCFactoryRegistry::GetItemSize(GetType()), address);
}

// ---------------------------------------------------------------------------------------------------
// Properties

const MCProperty* MCObject::FindProperty(short type, ZVTBoolean withNulled) const {
    if (type == MCCodes::pId)
        return &m_xId;
    MCProperty* property = nullptr;
    if (!m_xProperties.FindValue(type, property))
        return nullptr;
    if (!withNulled && property->GetFlag(itemNulled) && !property->GetFlag(itemPreFetch))
        return nullptr;
    return property;
}

ZVTBoolean MCObject::KeepsObjectSearch() const {
#ifdef MC_READS_NOTIFY_OVERRIDER
    return c_pfnObjectFind != nullptr && FindOf(this) == c_pfnObjectFind &&
           HeirsOf(const_cast<MCObject*>(this)) == c_pfnObjectHeirs;
#else
    return false;
#endif
}

MCProperty* MCObject::FindProperty_(short type, ZVTBoolean withNulled) const {
    return const_cast<MCProperty*>(FindProperty(type, withNulled));
}

MCProperty* MCObject::CreateProperty_(short type) {
    return static_cast<MCProperty*>(MCFactoryRegistry::CreateItem_(type, this, nullptr, true));
}

void MCObject::AddProperty(MCProperty* property, bool absent) {
    if (absent) {
        m_xProperties.InsertAbsent(property);
        return;
    }
    // Insert refuses a second property of a type and then leaves the set as it was.
    if (!m_xProperties.Insert(property))
        throw EXDuplicateProperty();
}

ZVTBoolean MCObject::SetProperty(short type, MCPropertyAccessor& accessor, long flags) {
    // The object's own search, not a host's override: a change must reach the property that is there.
    auto* property = const_cast<MCProperty*>(MCObject::FindProperty(type, true));
    if (!property) {
        const int set = MCFactoryRegistry::SetFirstValue(type, this, accessor, flags);
        if (set >= 0)
            return set != 0;
        property = CreateProperty_(type);
    }
    if (!property)
        return false;
    return accessor.SetPropertyValue(property, this, flags);
}

ZVTBoolean MCObject::GetProperty(short type, MCPropertyAccessor& accessor) const {
    MCProperty* property = FindProperty_(type, true);
    if (property && property->GetFlag(itemNulled))
        return false;
    auto* self = const_cast<MCObject*>(this);
    if (!property && MCFactoryRegistry::IsPreFetch(type))
        property = self->CreateProperty_(type);
    if (!property)
        return false;
    return accessor.GetPropertyValue(property, self);
}

ZVTBoolean MCObject::NullProperty(short type, MCPropertyAccessor& accessor) {
    auto* property = const_cast<MCProperty*>(MCObject::FindProperty(type, true));
    if (!property)
        return false;
    return accessor.NullPropertyValue(property, this);
}

ZVTBoolean MCObject::NullProperty(MCProperty* property, MCPropertyAccessor* accessor) {
    // Another object's property would be taken out of the wrong set and freed under its owner.
    if (!property || MCObject::FindProperty(property->GetType(), true) != property)
        return false;
    if (accessor)
        return accessor->NullPropertyValue(property, this);
    std::unique_ptr<MCPropertyAccessor> own(property->CreateAccessor());
    return own->NullPropertyValue(property, this);
}

void MCObject::NullProperty_(MCProperty* property) {
    if (!property)
        return;
    ++mc_detail::t_nPropertyEnds;
    property->UnsubscribeTargets_(*this, MCEvent::subscriberReferenceHolder);
    if (IsContainedAddress(property)) {
        property->SetFlagRaw(itemNulled, true);
        return;
    }
    if (m_xProperties.Delete(property))
        delete property;
}

ZVTBoolean MCObject::GetPropertyString(short type, ZVTString& text) const {
    const MCProperty* property = FindProperty(type, false);
    if (!property || property->GetFlag(itemNulled))
        return false;
    // The concrete type behind an alias; 0 for a concrete type, which so has no text.
    const short concreteType = MCFactoryRegistry::Translate(property->GetType(), false);
    return GetPropertyString_(type, concreteType, property, text);
}

ZVTBoolean MCObject::GetPropertyString_(short /*type*/, short concreteType, const MCProperty* property,
                                        ZVTString& text) const {
    if (property->GetFlag(itemPreFetch))
        MCPropertySemanticRegistry::FireSemantics(MCPropertySemantic::CalculateValue, property->GetType(),
                                                  const_cast<MCObject*>(this),
                                                  const_cast<MCProperty*>(property), nullptr);
    if (concreteType == MCCodes::pString) {
        auto* typed = dynamic_cast<const MCSPropertyT<ZVTString>*>(property);
        if (!typed)
            return false;
        text = typed->GetValue();
        return true;
    }
    auto* converter = dynamic_cast<const MCToStringConverter*>(
        MCPropertyConverterRegistry::GetConverter(concreteType, MCCodes::pString));
    return converter != nullptr && converter->AsString(property, text);
}

ZVTBoolean MCObject::SetPropertyFlag(MCProperty* property, unsigned short flag, ZVTBoolean on) {
    if (!property || (flag & (itemNulled | itemNL)) != 0)
        return false;
    return SetPropertyFlag_(property, flag, on);
}

ZVTBoolean MCObject::SetPropertyFlag_(MCProperty* property, unsigned short flag, ZVTBoolean on) {
    unsigned short word = property->GetFlags();
    if (on) {
        // A calculated property is never empty.
        if (flag & itemPreFetch)
            word = static_cast<unsigned short>(word & ~itemNulled);
        word = static_cast<unsigned short>(word | flag);
    } else {
        word = static_cast<unsigned short>(word & ~flag);
    }
    std::unique_ptr<MCPropertyAccessor> accessor(property->CreateRawAccessor());
    accessor->SetFlags(word);
    accessor->SetPropertyValue(property, this, MCPropertyAccessor::accessFlags);
    return true;
}

void MCObject::ResolveIds(MCIdSpace& space) {
    MCPropertySetIter properties(m_xProperties);
    while (++properties) {
        if (MCProperty* property = properties.GetValue())
            property->ResolveIds(space, *this, false, nullptr);
    }
}

// ---------------------------------------------------------------------------------------------------
// Visitors

void MCObject::AcceptVisitor(MCVisitor* visitor) {
    visitor->Visit(this);
}

void MCObject::VisitProperty(short type, MCVisitor* visitor) {
    if (MCProperty* property = FindProperty_(type, true))
        property->AcceptVisitor(visitor);
}

void MCObject::CreateAndVisitProperty(short type, MCVisitor* visitor) {
    MCProperty* property = FindProperty_(type, true);
    if (!property)
        property = CreateProperty_(type);
    if (property)
        property->AcceptVisitor(visitor);
}

// ---------------------------------------------------------------------------------------------------
// Notifications

ZVTBoolean MCObject::RegisterNotification(MCNotification& notification, short type, long eventType,
                                          MCFactoryContext* context, ZVTBoolean setAncestor) {
    if (!context)
        return false;
    ZVTBoolean registered = false;
    if (MCNotificationDirectory* directory = MCNotificationDirectory::FindInstance())
        registered = directory->RegisterNotification(
            type, context->GetAncestorType(MCFactoryContext::userNotifications), eventType, &notification);
    if (setAncestor)
        context->SetAncestorType(MCFactoryContext::userNotifications, type);
    return registered;
}

ZVTBoolean MCObject::RegisterNotification(MCNotification& notification, short type, MCFactoryContext* context,
                                          ZVTBoolean setAncestor) {
    return RegisterNotification(notification, type, 0, context, setAncestor);
}

ZVTBoolean MCObject::RegisterNotificationObject(short type, MCFactoryContext* context,
                                                ZVTBoolean setAncestor) {
    if (!context)
        return false;
    const short ancestorType = context->GetAncestorType(MCFactoryContext::userNotifications);
    if (setAncestor)
        context->SetAncestorType(MCFactoryContext::userNotifications, type);
    return RegisterNotificationObject(type, ancestorType);
}

ZVTBoolean MCObject::RegisterNotificationObject(short type, short ancestorType) {
    MCNotificationDirectory* directory = MCNotificationDirectory::FindInstance();
    return directory && !directory->ContainsEntry(type) && directory->CreateEntry(type, ancestorType);
}

// ---------------------------------------------------------------------------------------------------
// Events and the end

void MCObject::Notify(MCEvent& event) {
    mc_detail::HearAsObject(*this, event);
}

ZVTBoolean MCObject::IsHeardClimb(const MCNotificationDirectory& directory, long eventType,
                                  unsigned int mask) const {
    // The type last found to pass events on: owners above one another are mostly of one type.
    short passingType = 0;
    for (const MCObject* level = this;;) {
        MCSubscriber* hearer = nullptr;
        const int hearers = level->CountHearers(mask, hearer);
        if (hearers == 0)
            return false;
        MCObject* owner = level->m_pxOwner;
        if (hearers != 1 || !owner || hearer != static_cast<MCSubscriber*>(owner) || HasOwnNotify(owner))
            return true;
        const short type = owner->GetType();
        if (type != passingType || passingType == 0) {
            if (!directory.PassesOnAlone(type, eventType))
                return true;
            passingType = type;
        }
        level = owner;
    }
}

ZVTBoolean MCObject::IsHeard(long eventType, unsigned int mask) const {
    const MCNotificationDirectory* directory = MCNotificationDirectory::FindInstance();
    if (!directory)
        return true;
    const std::uint64_t generation = mc_detail::g_nHeardGeneration;
    if (mask != c_nMemoMask || eventType <= 0 || eventType >= c_nMemoEventLimit ||
        (c_nMemoEvents & (1u << eventType)) == 0 || generation > UINT32_MAX)
        return IsHeardClimb(*directory, eventType, mask);
    const auto stamp = static_cast<std::uint32_t>(generation);
    if (m_nHeardAt == stamp)
        return (m_nQuietEvents & (1u << eventType)) == 0;
    // Memos are left only once a generation has lasted for a few questions: where the subscriptions
    // change every few edits (an expunge clearing references), they would be dropped unread.
    if (c_nAskedAt != generation) {
        c_nAskedAt = generation;
        c_nAskedSince = 0;
    }
    if (c_nAskedSince < c_nAskedBeforeMemos) {
        ++c_nAskedSince;
        return IsHeardClimb(*directory, eventType, mask);
    }
    return (FindQuietEvents(*directory, stamp) & (1u << eventType)) == 0;
}

std::uint8_t MCObject::FindQuietEvents(const MCNotificationDirectory& directory, std::uint32_t stamp) const {
    // The levels passed, lowest first, each with what its owner's type only passes on; the level the
    // climb ended on has all bits there, and its own answer, or that of the level with a memo, is `end`.
    // Levels past the last one kept gather theirs in `above`.
    const MCObject* levels[c_nMemoLevels];
    std::uint8_t passing[c_nMemoLevels];
    int kept = 0;
    std::uint8_t above = c_nMemoEvents;
    std::uint8_t end = 0;
    bool made = true;
    short passingType = 0;
    std::uint8_t passingBits = 0;
    auto keep = [&](const MCObject* level, std::uint8_t pass) {
        if (kept < c_nMemoLevels) {
            levels[kept] = level;
            passing[kept++] = pass;
            return;
        }
        above &= pass;
        level->m_nState = static_cast<std::uint8_t>(level->m_nState | c_nHeardRelied);
    };
    for (const MCObject* level = this;;) {
        MCSubscriber* hearer = nullptr;
        const int hearers = level->CountHearers(c_nMemoMask, hearer);
        MCObject* owner = level->m_pxOwner;
        std::uint8_t pass = 0;
        if (hearers == 0) {
            end = c_nMemoEvents;
        } else if (hearers == 1 && owner && hearer == static_cast<MCSubscriber*>(owner) &&
                   !HasOwnNotify(owner)) {
            // Owners above one another are mostly of one type.
            const short type = owner->GetType();
            if (type != passingType || passingType == 0) {
                passingType = type;
                passingBits = static_cast<std::uint8_t>(directory.PassingOn(type) & c_nMemoEvents);
            }
            pass = passingBits;
        }
        if (pass == 0) {
            keep(level, 0xFF);
            break;
        }
        keep(level, pass);
        made = made && (owner->m_nState & c_nHeardMade) != 0;
        level = owner;
        if (level->m_nHeardAt == stamp) {
            end = level->m_nQuietEvents;
            break;
        }
    }
    std::uint8_t quiet = static_cast<std::uint8_t>(end & above);
    for (int i = kept - 1; i >= 0; --i) {
        quiet &= passing[i];
        if (made) {
            // Whatever this level's list does from now on drops the memo.
            levels[i]->m_nState = static_cast<std::uint8_t>(levels[i]->m_nState | c_nHeardRelied);
            levels[i]->m_nHeardAt = stamp;
            levels[i]->m_nQuietEvents = quiet;
        }
    }
    return quiet;
}

ZVTBoolean MCObject::Expunge(ZVTBoolean top) {
    // Asked again while it goes, by a rule or subscriber that hears of its end (or of the end of what it
    // takes down, in a ring): it is going already.
    if (GetFlag(itemExpunging))
        return true;
    ExpungeState& state = Expunges();
    if (state.m_nDepth >= c_nExpungeDepth || (t_pxEnds && IsAboveAnEnd())) {
        if (PrepareExpunge(top)) {
            state.m_xWaiting.emplace_back(this, top);
            state.m_xAlive.insert(this);
            t_nWaiting = state.m_xAlive.size();
        }
        return true;
    }
    // Counted from the veto on, so that what the rules expunge waits for the outermost as well.
    ExpungeDepth depth(state);
    {
        EndUnderWay end(this);
        if (PrepareExpunge(top))
            Expunge_(top);
    }
    if (state.m_nDepth == 1) {
        // By index: each of these may make others wait.
        for (std::size_t i = 0; i < state.m_xWaiting.size(); ++i) {
            const std::pair<MCObject*, bool> next = state.m_xWaiting[i];
            if (state.m_xAlive.erase(next.first) == 0)
                continue;
            t_nWaiting = state.m_xAlive.size();
            EndUnderWay end(next.first);
            next.first->Expunge_(next.second);
        }
        state.m_xWaiting.clear();
    }
    return true;
}

ZVTBoolean MCObject::IsAboveAnEnd() const {
    // Only an owner can be above anything.
    if (!m_pxFirstOwnee)
        return false;
    for (const EndUnderWay* end = t_pxEnds; end; end = end->m_pxOuter) {
        if (!end->m_pxTop)
            continue;
        // What lies above the next end out is that end's climb.
        const MCObject* outer = end->m_pxOuter ? end->m_pxOuter->m_pxTop : nullptr;
        for (const MCObject* owner = end->m_pxTop->m_pxOwner; owner && owner != outer;
             owner = owner->m_pxOwner) {
            if (owner == this)
                return true;
        }
    }
    return false;
}

ZVTBoolean MCObject::PrepareExpunge(ZVTBoolean top) {
    SetFlag(itemExpunging, true);
    if (GetFlag(itemTreeExpunge))
        return true;
    if (IsPersistenceUnit())
        SetFlag(itemTreeExpunge, true);
    MCObjectSem* failed = nullptr;
    MCObjectSem::result answer = MCObjectSem::resultContinue;
    try {
        answer = MCObjectSemReg::FireDerivedFirst(MCObjectSem::PreDestructon, this, c_xObjectOS, failed);
    } catch (...) {
        // Before anything has gone a rule's exception is a refusal that the host hears of; an ownee's
        // goes on up through the expunge that its owner began.
        if (top) {
            SetFlag(itemExpunging, false);
            SetFlag(itemTreeExpunge, false);
        }
        throw;
    }
    // An ownee cannot outlive its owner: only the object asked for may refuse.
    if (answer == MCObjectSem::resultFailed && top) {
        SetFlag(itemExpunging, false);
        SetFlag(itemTreeExpunge, false);
        return false;
    }
    return true;
}

void MCObject::AnnounceEnd() {
    if (GetFlag(itemTreeExpunge))
        return;
    try {
        NotifySubscribers(MCEvent::Instantiate(
            MCEvent::SubjectDestroyed, this,
            MCEvent::subscriberOwner | MCEvent::subscriberObserver | MCEvent::subscriberReferenceHolder));
    } catch (...) {
        // A subscriber's exception ended the delivery: the holders not reached must still let go of
        // their references, and those that did have unsubscribed, so only the rest hear it again. Where
        // even that fails (out of memory) they let go unheard, so that none keeps a pointer to this one.
        try {
            NotifySubscribers(
                MCEvent::Instantiate(MCEvent::SubjectDestroyed, this, MCEvent::subscriberReferenceHolder));
        } catch (...) {
            LetGoOfHolders();
        }
        throw;
    }
}

void MCObject::LetGoOfHolders() noexcept {
    // The guard keeps every entry in place while the holders unsubscribe.
    MCSubjectUser guard(*this);
    for (MCSubscriberReference* entry = First(); entry; entry = entry->m_pxNext) {
        if (entry->GetReferenceCount() == 0 ||
            !(entry->GetSubscriberType() & MCEvent::subscriberReferenceHolder))
            continue;
        auto* holder = dynamic_cast<MCObject*>(entry->GetSubscriber());
        if (!holder)
            continue;
        for (MCPropertySetIter properties(holder->m_xProperties); ++properties;) {
            if (MCProperty* property = properties.GetValue())
                property->LetGo_(*holder, *this);
        }
        // A host's class may answer for the heirs itself, and that may fail as well.
        try {
            const MCHeirSet* heirs = nullptr;
            holder->GetHeirs(heirs);
            if (heirs)
                const_cast<MCHeirSet*>(heirs)->Delete(this);
        } catch (...) {
        }
    }
}

void MCObject::FinishExpunge(ZVTBoolean top) {
    if (!GetFlag(itemTreeExpunge)) {
        MCPropertySetIter properties(m_xProperties);
        while (++properties) {
            if (MCProperty* property = properties.GetValue())
                property->UnsubscribeTargets_(*this, 0xFFFF);
        }
    } else {
        ++t_nSilentEnds;
    }
    if (top) {
        if (MCObject* owner = GetOwner(0, rttiDerived))
            owner->RemoveOwnedObject(this);
    }
    if (m_nUsers == 0) {
        delete this;
        return;
    }
    // A subscriber ended this object during a delivery of its own, which goes on over the list: the
    // memory stays until the last walk of the list ends, but the object is gone for everyone else. Its
    // owner, which may go before that, hears nothing more of it.
    if (m_pxOwner)
        RemoveSubscriber(m_pxOwner, MCEvent::subscriberOwner);
    Ended();
    MCFactoryRegistry::RegisterInstance(this, false);
    m_nUsers = static_cast<std::uint16_t>(m_nUsers | c_nDeleteUnused);
}

void MCObject::PrefetchEnds(const MCObject* walked, const MCObject* top, ZVTBoolean trusted) {
    // Each end reaches objects far away: the holders that hear it through its subscriber list (a chain of
    // nodes all over the heap; their properties searched, their owners asked) and the targets its
    // references leave. The next objects of the walk get one stage each, each stage reading only what the
    // one before asked for a step earlier, so that the misses of several ends overlap instead of following
    // one another. Only live entries are followed: a stale one may name a subscriber gone.
    constexpr int c_nAhead = 7;
    constexpr int c_nEntries = 3;  // the nodes of a list reached ahead; the rest are met as they come
    // The object the walk reaches after `object` (first ownee, next sibling, an owner's next sibling), or
    // null past the end or after a long climb. An object the walk has taken from its owner's list has no
    // sibling links: that owner's remaining list comes next.
    auto walkedNext = [top](const MCObject* object) -> const MCObject* {
        if (object->m_pxFirstOwnee)
            return object->m_pxFirstOwnee;
        constexpr int c_nClimb = 16;
        for (int climbed = 0; object != top && object->m_pxOwner && climbed < c_nClimb; ++climbed) {
            const MCObject* owner = object->m_pxOwner;
            const MCObject* first = owner->m_pxFirstOwnee;
            if (!object->m_pxNextSibling) {
                if (first)
                    return first;
            } else if (object->m_pxNextSibling != first) {
                return object->m_pxNextSibling;
            }
            object = owner;
        }
        return nullptr;
    };
    const MCObject* ahead[c_nAhead] = {};
    const MCObject* next = walked;
    for (const MCObject*& later : ahead) {
        if (!(next = walkedNext(next)))
            break;
        // Whatever goes with a tree unannounced may leave entries naming subscribers already gone.
        later = next->GetFlag(itemTreeExpunge) ? nullptr : next;
    }
    // The list node after the first `depth` nodes apart from the own entry, which lies in the object.
    auto listNode = [](const MCObject* object, int depth) {
        const MCSubscriberReference* entry = object->First();
        for (; entry && (entry == &object->m_xOwnEntry || depth-- > 0); entry = entry->m_pxNext) {
        }
        return entry;
    };
    constexpr unsigned int heard =
        MCEvent::subscriberOwner | MCEvent::subscriberObserver | MCEvent::subscriberReferenceHolder;
    auto holders = [](const MCObject* object, auto&& visit) {
        int count = 0;
        for (const MCSubscriberReference* entry = object->First(); entry && count <= c_nEntries;
             entry = entry->m_pxNext) {
            if (entry != &object->m_xOwnEntry)
                ++count;
            if (entry->GetReferenceCount() != 0 && (entry->GetSubscriberType() & heard) != 0)
                visit(entry->GetSubscriber());
        }
    };
    // The core's single references in the first segment.
    auto targets = [](const MCObject* object, auto&& visit) {
        for (int slot = 0; slot < MCPropertySet::c_nSegmentSlots; ++slot) {
            if (const MCSRef* single = mc_detail::AsCoreRef(object->m_xProperties.m_apxFirstSegment[slot])) {
                if (single->IsBound() && single->GetValue())
                    visit(single->GetValue());
            }
        }
    };
    if (const MCObject* object = ahead[6])
        mc_detail::PrefetchObject(object);
    if (const MCObject* object = ahead[5]) {
        __builtin_prefetch(listNode(object, 0));
        object->m_xProperties.PrefetchHeads();
    }
    if (const MCObject* object = ahead[4]) {
        __builtin_prefetch(listNode(object, 1));
        targets(object, [](const MCObject* target) { mc_detail::PrefetchTarget(target); });
    }
    if (const MCObject* object = ahead[3]) {
        __builtin_prefetch(listNode(object, 2));
        holders(object, [](const MCSubscriber* holder) { __builtin_prefetch(holder); });
        if (trusted)
            targets(object, [](const MCObject* target) { __builtin_prefetch(target->First()); });
    }
    // Past here the stages read the holders and targets themselves.
    if (!trusted)
        return;
    // Only a subscriber that keeps the common Notify is known to be an object without asking its class.
    if (const MCObject* object = ahead[2]) {
        holders(object, [](MCSubscriber* holder) {
            if (mc_detail::KeepsObjectNotify(holder))
                mc_detail::PrefetchObject(static_cast<const MCObject*>(holder));
        });
    }
    if (const MCObject* object = ahead[1]) {
        holders(object, [](MCSubscriber* holder) {
            if (!mc_detail::KeepsObjectNotify(holder))
                return;
            const auto* held = static_cast<const MCObject*>(holder);
            held->m_xProperties.PrefetchHeads();
            if (held->m_pxOwner)
                mc_detail::PrefetchObject(held->m_pxOwner);
        });
    }
}

ZVTBoolean MCObject::Expunge_(ZVTBoolean top) {
    // Past the veto nothing stops the end: an exception of a rule or subscriber is kept until the whole
    // subtree has gone, so that no object is left half gone, and the first one then passes on.
    std::exception_ptr failure;
    auto keep = [&failure] {
        if (!failure)
            failure = std::current_exception();
    };
    try {
        AnnounceEnd();
    } catch (...) {
        keep();
    }
    // The subtree goes depth first, so that a deep chain costs no call depth: each object's rules and
    // events run before its ownees', its memory goes after theirs. The path down to the object at hand is
    // its chain of owners (an owner never changes), so the walk needs no stack and nothing to allocate,
    // which could fail half-way. The head of an owner's list is taken each time, as an ownee may make or
    // take down siblings while it goes.
    const std::size_t silentEnds = t_nSilentEnds;
    for (MCObject* object = this; object;) {
        if (MCObject* ownee = object->RemoveFirstOwnee()) {
            // An ownee waiting for its own expunge has had its rules asked already.
            const ZVTBoolean prepared = ownee->GetFlag(itemExpunging);
            ownee->SetFlag(itemTreeExpunge,
                           object->GetFlag(itemTreeExpunge) || (prepared && ownee->GetFlag(itemTreeExpunge)));
            if (!object->GetFlag(itemTreeExpunge))
                PrefetchEnds(ownee, this, t_nSilentEnds == silentEnds);
            try {
                if (!prepared)
                    ownee->PrepareExpunge(false);
            } catch (...) {
                keep();
            }
            try {
                ownee->AnnounceEnd();
            } catch (...) {
                keep();
            }
            object = ownee;
            continue;
        }
        MCObject* up = object == this ? nullptr : object->m_pxOwner;
        if (object == this && t_pxEnds && t_pxEnds->m_pxTop == this)
            t_pxEnds->m_pxTop = nullptr;
        object->FinishExpunge(object == this && top);
        object = up;
    }
    if (failure)
        std::rethrow_exception(failure);
    return true;
}

ZVTBoolean MCObject::IsExpunging() const {
    for (const MCObject* object = this; object; object = object->m_pxOwner) {
        if (object->GetFlag(itemExpunging))
            return true;
    }
    return false;
}

// ---------------------------------------------------------------------------------------------------
// Equality and inheritance

namespace {

// The properties of default equality: the types registered with `first`. References never take part:
// their values are other objects, whose equality is a question of its own.
class MCPropertyFilterDefaultEquality : public ZVTFilter<MCProperty*> {
public:
    ZVTBoolean Test(MCProperty*& property) override {
        if (property->IsReference())
            return false;
        unsigned long flags = 0;
        return MCFactoryRegistry::GetFlags(property->GetType(), flags) &&
               (flags & MCFactoryRegistry::flagFirstOn) != 0;
    }
};

// Lets the rules refresh a calculated value before it is compared; what they answer does not matter here.
void Calculate(const MCObject* object, const MCProperty* property) {
    MCPropertySemanticRegistry::FireSemantics(MCPropertySemantic::CalculateValue, property->GetType(),
                                              const_cast<MCObject*>(object),
                                              const_cast<MCProperty*>(property), nullptr);
}

long CloneIdOrId(const MCObject& object) {
    MCSPropertyAccessorT<long> accessor;
    return object.GetProperty(MCCodes::pCloneId, accessor) ? accessor.GetValue() : object.GetId();
}

}  // namespace

ZVTBoolean MCObject::IsEqualTo(const MCObject* other, MCObjectEqualStrategy* objectStrategy,
                               MCPropertyEqualStrategy* propertyStrategy) const {
    if (objectStrategy)
        return objectStrategy->AreEqual(this, other);
    if (!other)
        return false;
    MCPropertyFilterDefaultEquality defaultFilter;
    ZVTFilter<MCProperty*>* filter = propertyStrategy ? propertyStrategy->GetFilter() : &defaultFilter;
    MCPropertySortOnType byType;
    MCPropertyListIter mine(this, filter, &byType);
    MCPropertyListIter theirs(other, filter, &byType);
    while (++mine) {
        if (!++theirs || !IsPropertyEqual(mine.GetValue(), other, theirs.GetValue(), propertyStrategy))
            return false;
    }
    return !++theirs;
}

ZVTBoolean MCObject::IsEqualTo(MCProperty* mine, MCObject* other, MCProperty* theirs, ZVTBoolean flag) const {
    if (!mine || !other || !theirs)
        return false;
    if (mine->GetFlag(itemPreFetch)) {
        Calculate(this, mine);
        Calculate(other, theirs);
    }
    return mine->IsEqualTo(theirs, flag);
}

ZVTBoolean MCObject::IsPropertyEqual(short type, const MCObject* other,
                                     MCPropertyEqualStrategy* strategy) const {
    if (!other)
        return false;
    return IsPropertyEqual(FindProperty(type, false), other, other->FindProperty(type, false), strategy);
}

ZVTBoolean MCObject::IsPropertyEqual(const MCProperty* mine, const MCObject* other, const MCProperty* theirs,
                                     MCPropertyEqualStrategy* strategy) const {
    if (!other)
        return false;
    if (!mine || !theirs)
        return mine == theirs;
    if (mine->GetType() != theirs->GetType())
        return false;
    if (strategy)
        return strategy->AreEqual(this, mine, other, theirs);
    if (GetType() != other->GetType())
        return false;
    if (mine->GetFlag(itemPreFetch))
        Calculate(this, mine);
    if (theirs->GetFlag(itemPreFetch))
        Calculate(other, theirs);
    return mine->IsEqualTo(theirs, false);
}

long MCObject::GetParallelism(MCItem* first, MCItem* /*second*/, ZVTBoolean useCloneId) const {
    if (!first)
        return 10;
    auto* other = dynamic_cast<MCObject*>(first);
    if (!other || other->GetType() != GetType())
        return 0;
    // Both read whatever `useCloneId` says, so that a calculated clone id is calculated on either side.
    const long mine = CloneIdOrId(*this);
    const long theirs = CloneIdOrId(*other);
    if (useCloneId && mine == theirs)
        return 10;
    const MCProperty* name = FindProperty(MCCodes::pName, false);
    if (name && name->IsEqualTo(other->FindProperty(MCCodes::pName, false), false))
        return 10;
    return 5;
}

void MCObject::GetHeirs(const MCHeirSet*& heirs) {
    heirs = nullptr;
}

ZVTBoolean MCObject::IsDefinedBy(MCObject* other, long /*kind*/) {
    return other == this;
}

// ---------------------------------------------------------------------------------------------------
// Dumps

namespace {

const ZVTString c_xSourceFile("ModelCore/ZVFWMC/MCObject");

// What one list entry costs on the 32-bit layout the sizes describe.
constexpr unsigned int c_nListEntryBytes = 4;

// Past this many nested subtree dumps on a thread, a dump writes the rest of its branch in one loop.
constexpr unsigned c_nDumpDepth = 64;
thread_local unsigned t_nDumpDepth = 0;

struct DumpDepth {
    DumpDepth() { ++t_nDumpDepth; }
    ~DumpDepth() { --t_nDumpDepth; }
    DumpDepth(const DumpDepth&) = delete;
    DumpDepth& operator=(const DumpDepth&) = delete;
};

// The registered size of `type`; a type the registry cannot size counts nothing.
unsigned int ItemSize(short type) {
    try {
        return MCFactoryRegistry::GetItemSize(type);
    } catch (...) {
        return 0;
    }
}

// What a property's value adds to its item: the text of a string alias, the entries of a list alias.
// Translate(type, false) gives 0 for a type that is no alias, so that adds nothing.
unsigned int ValueSize(const MCProperty& property) {
    switch (MCFactoryRegistry::Translate(property.GetType(), false)) {
        case MCCodes::pString:
            if (auto* text = dynamic_cast<const MCSPropertyT<ZVTString>*>(&property))
                return static_cast<unsigned int>(text->GetValue().Length());
            return 0;
        case MCCodes::pStringList: {
            unsigned int size = 0;
            if (auto* texts = dynamic_cast<const MCVPropertyT<ZVTString>*>(&property)) {
                const ZVTSList<ZVTString> values = texts->GetValue();
                for (size_t i = 0; i < values.Entries(); ++i)
                    size += static_cast<unsigned int>(values.At(i).Length());
            }
            return size;
        }
        case MCCodes::pIntegerList:
            if (auto* list = dynamic_cast<const MCVPropertyT<long>*>(&property))
                return c_nListEntryBytes * static_cast<unsigned int>(list->GetCount());
            return 0;
        case MCCodes::pFloatList:
            if (auto* list = dynamic_cast<const MCVPropertyT<float>*>(&property))
                return c_nListEntryBytes * static_cast<unsigned int>(list->GetCount());
            return 0;
        case MCCodes::pReferenceList:
            if (auto* list = dynamic_cast<const MCVPropertyT<MCObject*>*>(&property))
                return c_nListEntryBytes * static_cast<unsigned int>(list->GetCount());
            return 0;
        default:
            return 0;
    }
}

// One character at a time, as the metamodel dumps: a binary stream then holds exactly the text.
void WriteText(MCStream& stream, const std::string& text) {
    for (char c : text)
        stream << c;
}

// The name in the model-stream dumps: read through GetProperty, so a nulled name is "<unknown>".
std::string ReportName(const MCObject& object) {
    MCSPropertyAccessorT<ZVTString> accessor;
    return object.GetProperty(MCCodes::pName, accessor) ? accessor.GetValue().str() : "<unknown>";
}

// "<class>: <name> [Id=<id>]" and a newline.
std::string ReportLine(const MCObject& object) {
    return MCDebug::ClassName(typeid(object)) + ": " + ReportName(object) +
           " [Id=" + std::to_string(object.GetId()) + "]\n";
}

void WriteListingHead(MCStream& stream, const MCObject& object) {
    WriteText(stream, ReportLine(object));
    if (const MCObject* owner = object.GetOwner(0, MCItem::rttiDerived))
        WriteText(stream, "\tOwner=" + ReportLine(*owner));
    else
        WriteText(stream, "\t<no owner>");
    WriteText(stream, "\n\n\t***PROPERTIES***\n\n");
}

void WriteOutlineLine(MCStream& stream, const MCObject& object, long depth) {
    WriteText(stream, std::string(static_cast<size_t>(depth < 0 ? 0 : depth), '\t') + ReportLine(object));
}

}  // namespace

ZVTString MCObject::DumpName() const {
    const MCProperty* name = FindProperty(MCCodes::pName, true);
    if (!name)
        return "<can't find name>";
    // An accessor reads a nulled property's text too.
    MCSPropertyAccessorT<ZVTString> accessor;
    accessor.GetPropertyValue(const_cast<MCProperty*>(name), const_cast<MCObject*>(this));
    return accessor.GetValue();
}

unsigned int MCObject::Dump(std::ofstream& stream, long /*level*/) {
    stream << ClassName(typeid(*this)) << '(' << GetType() << "):\tId=" << GetId() << ", Name='" << DumpName()
           << "'\n";
    unsigned int size = ItemSize(GetType());
    MCPropertySetIter properties(m_xProperties);
    while (++properties) {
        MCProperty* property = properties.GetValue();
        if (!property)
            continue;
        stream << '\t';
        property->Dump(stream, 1);
        size += ItemSize(property->GetType()) + ValueSize(*property);
        stream << '\n';
    }
    stream << "\tSubscriber info:\n";
    MCSubject::Dump(stream, 1);
    stream << "\tEffective size (approximate--doesn't include list nodes, etc.): " << size;
    return size;
}

void MCObject::Dump(MCStream& stream, long mode, MCDumpableParameter* pParameter) {
    if (mode == dumpListing)
        Dump1(stream, pParameter);
    else if (mode == dumpOutline)
        Dump2(stream, pParameter);
}

void MCObject::Dump1(MCStream& stream, MCDumpableParameter* pParameter) {
    WriteListingHead(stream, *this);
    DumpOwnees(stream, dumpListing, pParameter);
}

void MCObject::Dump2(MCStream& stream, MCDumpableParameter* pParameter) {
    if (!pParameter)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    WriteOutlineLine(stream, *this, pParameter->m_lDepth);
    // Back where it began even when a name's calculation throws.
    struct Indent {
        explicit Indent(long& depth) : m_rDepth(depth) { ++m_rDepth; }
        ~Indent() { --m_rDepth; }
        long& m_rDepth;
    } indent(pParameter->m_lDepth);
    DumpOwnees(stream, dumpOutline, pParameter);
}

void MCObject::DumpOwnees(MCStream& stream, long mode, MCDumpableParameter* pParameter) {
    if (t_nDumpDepth < c_nDumpDepth) {
        DumpDepth depth;
        for (MCObject* ownee = m_pxFirstOwnee; ownee; ownee = ownee->GetNextSibling())
            ownee->Dump(stream, mode, pParameter);
        return;
    }
    // Deep down a branch: the rest of it in one loop, each level's next ownee on a stack, in the order and
    // with the indentation that the calls would give.
    const long base = mode == dumpOutline ? pParameter->m_lDepth : 0;
    std::vector<MCObject*> next{m_pxFirstOwnee};
    while (!next.empty()) {
        MCObject* object = next.back();
        if (!object) {
            next.pop_back();
            continue;
        }
        next.back() = object->GetNextSibling();
        if (mode == dumpListing)
            WriteListingHead(stream, *object);
        else
            WriteOutlineLine(stream, *object, base + static_cast<long>(next.size()) - 1);
        next.push_back(object->m_pxFirstOwnee);
    }
}
