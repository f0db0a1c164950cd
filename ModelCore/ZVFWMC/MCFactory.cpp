#include "ModelCore/ZVFWMC/MCFactory.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <typeinfo>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCEndsPrivate.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistryPrivate.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCPropertyAccessor.h"
#include "ModelCore/ZVFWMC/MCPropertySemantics.h"
#include "ModelCore/ZVFWMC/MCRefProperty.h"
#include "ModelCore/ZVFWMC/MCRegistrationPrivate.h"
#include "ModelCore/ZVFWMC/MCUDPMap.h"
#include "foundation/ZVTHSet.h"
#include "foundation/ZVTPool.h"

namespace {

const ZVTString c_xSourceFile("ModelCore/ZVFWMC/MCFactory");

}  // namespace

MCFactory::~MCFactory() = default;

void MCFactory::ThrowWrongOwner() {
    MC_THROW_UNEXPECTED(c_xSourceFile);
}

ZVTBoolean MCFactory::IsOfOwnerType(short code, MCObject* owner) {
    ZVTOrderedVectorT<short> ownerTypes;
    if (!MCFactoryRegistry::GetOwnerTypes(code, ownerTypes))
        return false;
    for (size_t i = 0; i < ownerTypes.Length(); ++i) {
        if (owner->IsType(ownerTypes[i], MCItem::rttiDerived))
            return true;
    }
    return false;
}

MCItem* MCFactory::FindExisting(short code, MCObject* owner) {
    if (owner == nullptr)
        return nullptr;
    // Nulled ones too: an embedded property stays in its set when nulled, and setting it again must
    // reuse it rather than make a second one.
    return const_cast<MCProperty*>(owner->FindProperty(code, true));
}

MCFactoryContext::~MCFactoryContext() = default;

ZVTBoolean MCFactoryContext::SemanticsNeeded() {
    return true;
}

long MCFactoryContext::RequestId() {
    return 0;
}

MCIdSpace* MCFactoryContext::GetIdSpace() {
    return MCObject::GetIdSpace();
}

void MCFactoryContext::Reset() {
    for (short& type : m_asAncestorTypes)
        type = 0;
    m_xFlags = 0;
}

void MCFactoryContext::SetFlag(flag which, ZVTBoolean on) {
    const auto bit = static_cast<unsigned char>(1u << which);
    m_xFlags = static_cast<unsigned char>(on ? (m_xFlags | bit) : (m_xFlags & ~bit));
}

MCCreationHook::~MCCreationHook() = default;

MCPoolFactory::MCPoolFactory(unsigned int itemSize, long initialCount) : m_uItemSize(itemSize) {
    MCFactoryRegistry::RegisterInitialPoolCount(itemSize, initialCount);
}

unsigned long MCPoolFactory::GetPool() {
    if (m_ulPool == 0)
        m_ulPool = MCFactoryRegistry::GetPool(m_uItemSize);
    return m_ulPool;
}

// ---------------------------------------------------------------------------------------------
// The one door of creation: the registry's operations that make items and call into them

namespace {

// An object's address in units of 16 bytes (objects are 8-aligned but far larger, so no two share a
// unit); 256 such units (4 KB) share a block of the live-object table, where objects stay sparse.
unsigned int HashObjectAddress(MCObject* const& object) {
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(object) >> 4);
}
constexpr unsigned int c_nAddressLocalityBits = 8;

// The item flags a new property takes from the registration of the code it was asked for by.
unsigned short RegisteredPropertyFlags(MCMetaInfoEntry* entry) {
    if (!entry)
        return 0;
    unsigned short flags = 0;
    if (entry->GetFlags() & MCFactoryRegistry::flagPreFetch)
        flags |= MCItem::itemPreFetchType | MCItem::itemPreFetch;
    if (entry->GetFlags() & MCFactoryRegistry::flagItemFlag100)
        flags |= MCItem::itemFlag100;
    return flags;
}

}  // namespace

MCItem* MCFactoryRegistry::CreateItem(short code, MCObject* owner, MCFactoryContext* context,
                                      MCObject* /*model*/) {
    return CreateItem_(code, owner, context, false);
}

MCItem* MCFactoryRegistry::CreateItem_(short code, MCObject* owner, MCFactoryContext* context,
                                       ZVTBoolean propertyOnly) {
    const short requested = code;
    auto creationFailed = [](short failed) -> MCItem* {
        ShowCodeMessage(MCCodes::msgCannotCreate, failed);
        return nullptr;
    };
    MCMetaInfoI* impl = c_pxImplementation;
    if (!impl)
        return creationFailed(requested);
    // The entry of the code as asked for: a property's flags come from it, and an alias leads from it to
    // its concrete type's entry.
    MCMetaInfoEntry* asked = impl->FindEntry(requested);
    if (propertyOnly && asked && !(asked->GetFlags() & flagProperty))
        return creationFailed(requested);
    MCFactoryContext defaultContext;
    if (!context)
        context = &defaultContext;
    MCMetaInfoEntry* entry = impl->Translated(asked, code);
    if (!entry)
        return creationFailed(requested);
    if (code < 0)
        return nullptr;
    MCMetaInfoConcreteEntry* concrete = entry->AsConcrete();
    if (!concrete || concrete->m_xFactories.IsEmpty())
        return creationFailed(requested);
    context->ClearAncestorTypes();
    MCItem* item = concrete->m_xFactories[0]->CreateItem(requested, owner, context);
    if (!item)
        return creationFailed(requested);
    // The entry says what the item is; a cross-cast through MCObject's bases would cost far more.
    if (entry->GetFlags() & flagProperty) {
        item->InvokeCreationSemantics(context);
        auto* property = static_cast<MCProperty*>(item);
        // CreateItem may have given an existing nulled property back: it takes its flags again.
        if (const unsigned short flags = RegisteredPropertyFlags(asked))
            owner->SetPropertyFlag(property, flags, true);
        return item;
    }
    auto* object = static_cast<MCObject*>(item);
    // A rule or hook may expunge the object.
    const mc_detail::HeldObject held(object);
    try {
        object->InvokeCreationSemantics(context);
        if (held.Gone())
            return nullptr;
        object->MarkMade();
        // A hook may remove itself or another: walk a copy, and skip a hook the live list no longer holds,
        // since whoever removed it may have destroyed it.
        if (!impl->m_xCreationHooks.IsEmpty()) {
            const ZVTSList<MCCreationHook*>& live = impl->m_xCreationHooks;
            const ZVTSList<MCCreationHook*> hooks = live;
            for (size_t i = 0; i < hooks.Entries(); ++i) {
                MCCreationHook* hook = hooks.At(i);
                // The live list unchanged at this place answers without a search.
                if ((i >= live.Entries() || live.At(i) != hook) && !live.Contains(hook))
                    continue;
                hook->ItemCreated(object);
                if (held.Gone())
                    return nullptr;
            }
        }
    } catch (...) {
        // The exception passes on; an object its owner holds stays there, but one without an owner would
        // be lost with it, since nothing the caller gets leads to it. One the host code took is gone.
        if (!held.Gone() && !object->GetOwner(0, MCItem::rttiExact))
            mc_detail::ExpungeOrphan(*object);
        throw;
    }
    return item;
}

namespace {

// How a first set of one code goes, found once per code while no registry changes: the code's own entry
// (its flags are read at each set, since SetWantPreFetch changes them in place), for a property the
// core's own factory makes the short way and the accessor class it takes, and whether the chain of the
// object type last asked for rules the code's edits.
struct FirstSetWay {
    std::uint64_t m_nChanges = 0;  // the registries' change count it was found at; 0 never is current
    short m_sCode = 0;
    short m_sObjectType = 0;  // 0: not asked yet
    ZVTBoolean m_bRuled = true;
    MCMetaInfoEntry* m_pxAsked = nullptr;
    ZVTBoolean (*m_pfnSet)(short, MCObject*, MCPropertyAccessor&, long) = nullptr;  // null: the long way
    const std::type_info* m_pxAccessor = nullptr;
};

// One way per code's low bits: a model sets a handful of codes over and over.
constexpr std::size_t c_nFirstSetSlots = 64;
FirstSetWay c_axFirstSetWays[c_nFirstSetSlots];

}  // namespace

template <class Property, class RawAccessor>
ZVTBoolean MCFactoryRegistry::SetMadeValue(short code, MCObject* owner, MCPropertyAccessor& accessor,
                                           long flags) {
    // What MCPropertyFactoryT makes for a code its owner holds no property of: SetProperty has just
    // searched the set, and no host code ran since.
    struct Absent {
        Absent() { mc_detail::t_bAbsentType = true; }
        ~Absent() { mc_detail::t_bAbsentType = false; }
    };
    Property* property;
    {
        Absent absent;
        property = new Property(code, owner);
    }
    return static_cast<RawAccessor&>(accessor).SetMadeValue(property, owner, flags);
}

void MCFactoryRegistry::FindFirstSetWay(void* found, short code) {
    auto& way = *static_cast<FirstSetWay*>(found);
    way = FirstSetWay{mc_detail::c_nRegistryChanges, code};
    // The steps of CreateItem_ up to the factory.
    MCMetaInfoI* impl = c_pxImplementation;
    MCMetaInfoEntry* asked = impl ? impl->FindEntry(code) : nullptr;
    short concreteCode = code;
    MCMetaInfoEntry* entry =
        asked && (asked->GetFlags() & flagProperty) ? impl->Translated(asked, concreteCode) : nullptr;
    MCMetaInfoConcreteEntry* concrete =
        entry && concreteCode >= 0 && (entry->GetFlags() & flagProperty) ? entry->AsConcrete() : nullptr;
    if (!concrete || concrete->m_xFactories.IsEmpty())
        return;
    const MCFactory& factory = *concrete->m_xFactories[0];
    way.m_pxAsked = asked;
    if (typeid(factory) == typeid(MCPropertyFactoryT<MCSPropertyT<long>>)) {
        way.m_pfnSet = &SetMadeValue<MCSPropertyT<long>, MCSPropertyRawAccessorT<long>>;
        way.m_pxAccessor = &typeid(MCSPropertyAccessorT<long>);
    } else if (typeid(factory) == typeid(MCPropertyFactoryT<MCSPropertyT<ZVTString>>)) {
        way.m_pfnSet = &SetMadeValue<MCSPropertyT<ZVTString>, MCSPropertyRawAccessorT<ZVTString>>;
        way.m_pxAccessor = &typeid(MCSPropertyAccessorT<ZVTString>);
    } else if (typeid(factory) == typeid(MCPropertyFactoryT<MCSPropertyT<double>>)) {
        way.m_pfnSet = &SetMadeValue<MCSPropertyT<double>, MCSPropertyRawAccessorT<double>>;
        way.m_pxAccessor = &typeid(MCSPropertyAccessorT<double>);
    } else if (typeid(factory) == typeid(MCPropertyFactoryT<MCSRef>)) {
        way.m_pfnSet = &SetMadeValue<MCSRef, MCSRefRawAccessor>;
        way.m_pxAccessor = &typeid(MCSRefAccessor);
    }
}

int MCFactoryRegistry::SetFirstValue(short code, MCObject* owner, MCPropertyAccessor& accessor, long flags) {
    // A code known to take the long way (a list, a host's property class) leaves at once.
    const FirstSetWay& way = c_axFirstSetWays[static_cast<unsigned short>(code) % c_nFirstSetSlots];
    if (way.m_nChanges == mc_detail::c_nRegistryChanges && way.m_sCode == code && !way.m_pfnSet)
        return -1;
    return SetFirstValueBy(const_cast<FirstSetWay*>(&way), code, owner, accessor, flags);
}

int MCFactoryRegistry::SetFirstValueBy(void* slot, short code, MCObject* owner, MCPropertyAccessor& accessor,
                                       long flags) {
    auto& way = *static_cast<FirstSetWay*>(slot);
    if (way.m_nChanges != mc_detail::c_nRegistryChanges || way.m_sCode != code)
        FindFirstSetWay(&way, code);
    // Registered flags would be set through the owner's flag hook; rules, heirs and a search of the
    // owner's own would each see the long way.
    if (!way.m_pfnSet || (flags & MCPropertyAccessor::accessInherited) != 0 ||
        (way.m_pxAsked->GetFlags() & (flagPreFetch | flagItemFlag100)) != 0 ||
        typeid(accessor) != *way.m_pxAccessor)
        return -1;
    if (way.m_sObjectType != owner->GetType()) {
        way.m_bRuled = MCPropertySemanticRegistry::MayRule(
            MCPropertySemantic::PreEdit | MCPropertySemantic::PostEdit, code, owner);
        way.m_sObjectType = owner->GetType();
    }
    if (way.m_bRuled || !owner->KeepsObjectSearch())
        return -1;
    return way.m_pfnSet(code, owner, accessor, flags) ? 1 : 0;
}

ZVTBoolean MCFactoryRegistry::HookCreateItem(MCCreationHook& hook, ZVTBoolean add) {
    MCMetaInfoI* impl = c_pxImplementation;
    if (!impl)
        return false;
    if (!add)
        return impl->m_xCreationHooks.Remove(&hook);
    if (impl->m_xCreationHooks.Contains(&hook))
        return false;
    impl->m_xCreationHooks.Append(&hook);
    return true;
}

ZVTBoolean MCFactoryRegistry::GetInstances(short code, ZVTHTableT<MCObject*>*& table, MCObject* /*model*/) {
    MCMetaInfoI* impl = c_pxImplementation;
    MCMetaInfoI::InstanceTable* instances = impl ? impl->FindInstances(code) : nullptr;
    if (!instances)
        return false;
    if (!instances->m_pxTable) {
        size_t count = 0;
        for (MCObject* object = instances->m_pxFirst; object; object = object->m_pxNextOfType)
            ++count;
        // Objects made one after the other lie close together, and so do their places in the table: a
        // tree built or expunged in order touches the table in runs rather than at random.
        auto made = std::make_unique<ZVTHTableT<MCObject*>>(
            HashObjectAddress, std::max<size_t>(64, 2 * count), c_nAddressLocalityBits);
        for (MCObject* object = instances->m_pxFirst; object; object = object->m_pxNextOfType)
            made->Insert(object);
        instances->m_pxTable = made.release();
    }
    table = instances->m_pxTable;
    return true;
}

void MCFactoryRegistry::RegisterInstance(MCObject* object, ZVTBoolean add) {
    MCMetaInfoI* impl = c_pxImplementation;
    if (!impl)
        return;
    MCMetaInfoI::InstanceTable* instances = impl->FindInstances(object->GetType());
    if (!add) {
        if (!instances || object->m_pxNextOfType == object)
            return;
        MCObject* prev = object->m_pxPrevOfType;
        MCObject* next = object->m_pxNextOfType;
        (prev ? prev->m_pxNextOfType : instances->m_pxFirst) = next;
        (next ? next->m_pxPrevOfType : instances->m_pxLast) = prev;
        object->m_pxPrevOfType = object->m_pxNextOfType = object;
        if (instances->m_pxTable)
            instances->m_pxTable->Remove(object);
        return;
    }
    if (!instances) {
        auto fresh = std::make_unique<MCMetaInfoI::InstanceTable>();
        if (MCMetaInfoEntry* entry = impl->FindEntry(object->GetType())) {
            if (MCMetaInfoConcreteEntry* concrete = entry->AsConcrete())
                fresh->m_uItemSize = concrete->m_uItemSize;
        }
        impl->m_xInstances.Insert(object->GetType(), fresh.get());
        instances = fresh.release();
    } else if (instances->m_pxTable) {
        instances->m_pxTable->Insert(object);
        // The place of the block the next object of this type will take is loaded while this one is
        // made: a block given back lies anywhere, and a block carved from a fresh 4 KB stretch has its
        // place in a block of the table that no object has touched yet.
        if (const void* next = ZVTPool::NextPackedBlock(instances->m_uItemSize))
            instances->m_pxTable->Prefetch(static_cast<MCObject*>(const_cast<void*>(next)));
    }
    object->m_pxPrevOfType = instances->m_pxLast;
    object->m_pxNextOfType = nullptr;
    (instances->m_pxLast ? instances->m_pxLast->m_pxNextOfType : instances->m_pxFirst) = object;
    instances->m_pxLast = object;
}

void MCFactoryRegistry::UnlistInstances() {
    for (ZVTHDictIter<short, MCMetaInfoI::InstanceTable*> it(c_pxImplementation->m_xInstances); ++it;) {
        for (MCObject* object = it.Value()->m_pxFirst; object;) {
            MCObject* next = object->m_pxNextOfType;
            object->m_pxPrevOfType = object->m_pxNextOfType = object;
            object = next;
        }
    }
}

// Defined here rather than with the rest of the user-defined properties: finding the persistence root
// calls into objects, which the registry's own unit may not.
ZVTBoolean MCFactoryRegistry::RegisterUDPs(MCObject& object, MCUDPMap* map) {
    if (!map)
        return false;
    MCObject* root = object.GetPersistenceRoot();
    if (!root)
        return false;
    for (size_t i = 0; i < map->m_xUDPInfos.Length(); ++i) {
        const MCUDPInfo& info = map->m_xUDPInfos[i];
        const short code = RegisterUDP(info.m_xName, info.m_sConcreteType, root, info.m_usFirst != 0);
        map->Add(info.m_sCode, code);
        for (size_t j = 0; j < info.m_xUsingTypes.Length(); ++j)
            AddPropertyUsage(info.m_xUsingTypes[j], code, clipUndecided);
    }
    for (MCMapToIterT<short, short> it(*map); ++it;)
        ValidatePersistenceUnit(it.To(), root);
    return true;
}
