#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistryPrivate.h"
#include "ModelCore/ZVFWMC/MCStreams.h"
#include "ModelCore/ZVFWMC/MCUDPMap.h"
#include "foundation/ZVTHSet.h"
#include "platform/HUB.h"

namespace {

const char* const c_pcDefaultNomenclature = "Logical";
const ZVTString c_xSourceFile("ModelCore/ZVFWMC/MCFactoryRegistry");

unsigned int HashShort(const short& code) {
    return MCFactoryRegistry::HashFactoryKey(code);
}
unsigned int HashSize(const unsigned int& size) {
    return size;
}
unsigned int HashFactory(MCFactory* const& factory) {
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(factory));
}

unsigned long FirstFlag(ZVTBoolean first) {
    return first ? MCFactoryRegistry::flagFirstOn : MCFactoryRegistry::flagFirstOff;
}
unsigned long SecondFlag(ZVTBoolean second) {
    return second ? MCFactoryRegistry::flagSecondOn : MCFactoryRegistry::flagSecondOff;
}
unsigned long OriginFlag(short code) {
    return code >= 0 ? MCFactoryRegistry::flagCore : MCFactoryRegistry::flagUser;
}

bool SharesBit(unsigned long flags, unsigned long mask, unsigned long group) {
    return (flags & mask & group) != 0;
}

void AppendToPending(ZVTHDict<short, ZVTSList<short>>& pending, short key, short code) {
    if (ZVTSList<short>* waiting = pending.FindPtr(key)) {
        waiting->Append(code);
        return;
    }
    ZVTSList<short> waiting;
    waiting.Append(code);
    pending.Insert(key, waiting);
}

// Moves the codes that waited for `key` into `target`, in the order they came.
void TakePending(ZVTHDict<short, ZVTSList<short>>& pending, short key, ZVTOrderedVectorT<short>& target) {
    ZVTSList<short>* waiting = pending.FindPtr(key);
    if (!waiting)
        return;
    ZVTSListIter<short> it(*waiting);
    while (++it)
        target.Append(it.Key());
    pending.Remove(key);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Storage

unsigned short MCNomenclature::c_usLastId = 0;

MCNomenclature::MCNomenclature(const ZVTString& name, ZVTBoolean numbered)
    : m_xName(name), m_xCodes(ZVTString::Hash, 64), m_usId(numbered ? ++c_usLastId : 0) {}

MCMetaInfoEntry::~MCMetaInfoEntry() = default;
MCMetaInfoConcreteEntry::~MCMetaInfoConcreteEntry() = default;
MCMetaInfoAliasEntry::~MCMetaInfoAliasEntry() = default;

MCMetaInfoAliasPropertyEntry::MCMetaInfoAliasPropertyEntry()
    : m_xModels(MCFactoryRegistry::HashPointer, 64) {}

MCMetaInfoI::MCMetaInfoI()
    : m_xEntries(HashShort, 64),
      m_xNomenclatures(ZVTString::Hash, 64),
      m_xFactories(HashFactory, 64),
      m_xPendingSubtypes(HashShort, 64),
      m_xPendingOwnees(HashShort, 64),
      m_xInstances(HashShort, 64),
      m_xPools(HashSize, 64) {
    m_pxDefaultNomenclature = new MCNomenclature(c_pcDefaultNomenclature, false);
    m_xNomenclatures.Insert(m_pxDefaultNomenclature->m_xName, m_pxDefaultNomenclature);
    ForgetRecent();
}

MCMetaInfoI::~MCMetaInfoI() {
    m_xPendingSubtypes.Clear();
    m_xPendingOwnees.Clear();
    for (ZVTHDictIter<short, InstanceTable*> it(m_xInstances); ++it;) {
        delete it.Value()->m_pxTable;
        delete it.Value();
    }
    m_xInstances.Clear();
    for (ZVTHSetIterT<MCFactory*> it(m_xFactories); ++it;)
        delete it.Key();
    m_xFactories.Clear();
    for (ZVTHDictIter<ZVTString, MCNomenclature*> it(m_xNomenclatures); ++it;)
        delete it.Value();
    m_xNomenclatures.Clear();
    for (ZVTHDictIter<short, MCMetaInfoEntry*> it(m_xEntries); ++it;)
        delete it.Value();
    m_xEntries.Clear();
    ForgetRecent();
}

MCMetaInfoEntry* MCMetaInfoI::FindEntry(short code) const {
    if (MCMetaInfoEntry* known = m_xRecent.Find(code))
        return known;
    MCMetaInfoEntry* entry = nullptr;
    if (m_xEntries.Find(code, entry))
        m_xRecent.Remember(code, entry);
    return entry;
}

MCMetaInfoEntry* MCMetaInfoI::FindTranslated(short code, short& concrete) const {
    concrete = code;
    return Translated(FindEntry(code), concrete);
}

MCMetaInfoAbstractObjectEntry* MCMetaInfoI::SupertypeOf(MCMetaInfoAbstractObjectEntry* entry) const {
    if (!entry->m_pxSupertypeEntry) {
        if (MCMetaInfoEntry* super = FindEntry(entry->m_sSupertype))
            entry->m_pxSupertypeEntry = super->AsAbstractObject();
    }
    return entry->m_pxSupertypeEntry;
}

MCNomenclature* MCMetaInfoI::FindNomenclature(const ZVTString& name) const {
    MCNomenclature* nomenclature = nullptr;
    m_xNomenclatures.Find(name.IsNull() ? ZVTString(c_pcDefaultNomenclature) : name, nomenclature);
    return nomenclature;
}

namespace {

// Walks `entry` and its supertypes, root last. The caller is trusted to register no cycle, but
// a walk longer than the table is one, and it stops there rather than spin.
template <typename Visit>
void WalkUp(MCMetaInfoI* impl, MCMetaInfoAbstractObjectEntry* entry, Visit visit) {
    if (!impl)
        return;
    size_t steps = impl->m_xEntries.Entries();
    while (entry && steps-- > 0) {
        if (!visit(entry))
            return;
        entry = impl->SupertypeOf(entry);
    }
}

// Stores the default name on the type's side and the nomenclature's side.
void AddDefaultName(MCMetaInfoI* impl, MCMetaInfoEntry* entry, short code, const ZVTString& name) {
    entry->m_xNames.Append(MCNameTranslation(name, 0));
    impl->m_pxDefaultNomenclature->m_xCodes.Insert(name, code);
}

void AdoptFactory(MCMetaInfoI* impl, MCMetaInfoConcreteEntry* entry, short code, MCFactory* factory) {
    entry->m_xFactories.Append(factory);
    impl->m_xFactories.Insert(factory);
    entry->m_uItemSize = factory->GetItemSize(code);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Singleton

MCFactoryRegistry* MCFactoryRegistry::c_pxSingleton = nullptr;
MCMetaInfoI* MCFactoryRegistry::c_pxImplementation = nullptr;

MCFactoryRegistry::MCFactoryRegistry() {
    c_pxImplementation = new MCMetaInfoI;
}

MCFactoryRegistry::~MCFactoryRegistry() {
    UnlistInstances();
    delete c_pxImplementation;
    c_pxImplementation = nullptr;
}

MCFactoryRegistry* MCFactoryRegistry::GetInstance() {
    if (!c_pxSingleton)
        c_pxSingleton = new MCFactoryRegistry;
    return c_pxSingleton;
}

void MCFactoryRegistry::DeleteInstance() {
    delete c_pxSingleton;
    c_pxSingleton = nullptr;
}

unsigned int MCFactoryRegistry::HashPointer(MCObject* const& object) {
    return static_cast<unsigned int>(reinterpret_cast<std::uintptr_t>(object));
}

// ---------------------------------------------------------------------------------------------
// Registering

namespace {

ZVTBoolean RegisterObjectType(MCMetaInfoI* impl, short code, const ZVTString& name, short supertype,
                              short ownerType, MCFactory* factory, bool abstract, ZVTBoolean first,
                              ZVTBoolean second) {
    if (code == 0)
        return false;
    if (name.IsNull() || impl->m_xNomenclatures.Contains(name))
        return false;
    if (impl->m_xEntries.Contains(code))
        return false;

    std::unique_ptr<MCMetaInfoAbstractObjectEntry> entry;
    MCMetaInfoConcreteObjectEntry* concrete = nullptr;
    if (abstract) {
        entry.reset(new MCMetaInfoAbstractObjectEntry);
    } else {
        concrete = new MCMetaInfoConcreteObjectEntry;
        entry.reset(concrete);
    }
    entry->m_sSupertype = supertype;

    MCMetaInfoEntry* super = impl->FindEntry(supertype);
    MCMetaInfoAbstractObjectEntry* superEntry = super ? super->AsAbstractObject() : nullptr;
    if (superEntry) {
        entry->m_pxSupertypeEntry = superEntry;
        superEntry->m_xSubtypes.Append(code);
    } else {
        AppendToPending(impl->m_xPendingSubtypes, supertype, code);
    }
    TakePending(impl->m_xPendingSubtypes, code, entry->m_xSubtypes);

    AddDefaultName(impl, entry.get(), code, name);
    if (factory && concrete)
        AdoptFactory(impl, concrete, code, factory);

    entry->m_ulFlags = MCFactoryRegistry::flagObject |
                       (abstract ? MCFactoryRegistry::flagAbstract : MCFactoryRegistry::flagConcrete) |
                       FirstFlag(first) | SecondFlag(second) | MCFactoryRegistry::flagCore;

    impl->m_xEntries.Insert(code, entry.get());
    impl->ForgetRecent();
    if (!abstract) {
        try {
            MCFactoryRegistry::AddOwnerType(code, ownerType);
        } catch (...) {
            impl->m_xEntries.Remove(code);
            impl->ForgetRecent();
            if (factory)
                impl->m_xFactories.Remove(factory);
            throw;
        }
    }
    TakePending(impl->m_xPendingOwnees, code, entry->m_xOwneeTypes);
    entry.release();
    return true;
}

ZVTBoolean RegisterAliasPropertyIn(MCMetaInfoI* impl, short code, const ZVTString& name, short concreteType,
                                   ZVTBoolean first, ZVTBoolean second, ZVTBoolean preFetch,
                                   ZVTBoolean itemFlag100, MCObject* root) {
    if (code == 0 || concreteType == 0)
        return false;
    if (impl->m_xEntries.Contains(code))
        return false;
    // Held here until the registry has taken it: an insert below may fail.
    auto entry = std::make_unique<MCMetaInfoAliasPropertyEntry>();
    entry->m_sConcreteType = concreteType;
    AddDefaultName(impl, entry.get(), code, name);
    entry->m_ulFlags = MCFactoryRegistry::flagProperty | MCFactoryRegistry::flagAlias | OriginFlag(code) |
                       FirstFlag(first) | SecondFlag(second) |
                       (preFetch ? MCFactoryRegistry::flagPreFetch : 0) |
                       (itemFlag100 ? MCFactoryRegistry::flagItemFlag100 : 0);
    if (root)
        entry->m_xModels.Insert(root);
    impl->m_xEntries.Insert(code, entry.get());
    entry.release();
    impl->ForgetRecent();
    return true;
}

}  // namespace

ZVTBoolean MCFactoryRegistry::RegisterAbstractObject(short code, const ZVTString& name, short supertype) {
    GetInstance();
    return RegisterObjectType(c_pxImplementation, code, name, supertype, 0, nullptr, true, true, false);
}

ZVTBoolean MCFactoryRegistry::RegisterConcreteObject(short code, const ZVTString& name, short supertype,
                                                     short ownerType, MCFactory* factory, ZVTBoolean first,
                                                     ZVTBoolean second) {
    if (!factory)
        return false;
    GetInstance();
    return RegisterObjectType(c_pxImplementation, code, name, supertype, ownerType, factory, false, first,
                              second);
}

ZVTBoolean MCFactoryRegistry::RegisterAliasObject(short code, const ZVTString& name, short /*unused*/,
                                                  short concreteType, ZVTBoolean first, ZVTBoolean second) {
    if (code == 0 || concreteType == 0 || name.IsNull())
        return false;
    GetInstance();
    MCMetaInfoI* impl = c_pxImplementation;
    if (impl->m_xEntries.Contains(code))
        return false;
    auto* entry = new MCMetaInfoAliasObjectEntry;
    entry->m_ulFlags = flagObject | flagAlias | FirstFlag(first) | SecondFlag(second);
    entry->m_sConcreteType = concreteType;
    AddDefaultName(impl, entry, code, name);
    impl->m_xEntries.Insert(code, entry);
    impl->ForgetRecent();
    return true;
}

ZVTBoolean MCFactoryRegistry::RegisterConcreteProperty(short code, const ZVTString& name, MCFactory* factory,
                                                       ZVTBoolean first, ZVTBoolean second,
                                                       ZVTBoolean preFetch, ZVTBoolean itemFlag100) {
    if (code == 0 || !factory || name.IsNull())
        return false;
    GetInstance();
    MCMetaInfoI* impl = c_pxImplementation;
    if (impl->m_xEntries.Contains(code))
        return false;
    auto* entry = new MCMetaInfoConcretePropertyEntry;
    AddDefaultName(impl, entry, code, name);
    AdoptFactory(impl, entry, code, factory);
    entry->m_ulFlags = flagProperty | flagConcrete | OriginFlag(code) | FirstFlag(first) |
                       SecondFlag(second) | (preFetch ? flagPreFetch : 0) |
                       (itemFlag100 ? flagItemFlag100 : 0);
    impl->m_xEntries.Insert(code, entry);
    impl->ForgetRecent();
    return true;
}

ZVTBoolean MCFactoryRegistry::RegisterAliasProperty(short code, const ZVTString& name, short concreteType,
                                                    ZVTBoolean first, ZVTBoolean second, ZVTBoolean preFetch,
                                                    ZVTBoolean itemFlag100) {
    GetInstance();
    return RegisterAliasPropertyIn(c_pxImplementation, code, name, concreteType, first, second, preFetch,
                                   itemFlag100, nullptr);
}

// ---------------------------------------------------------------------------------------------
// Relating

ZVTBoolean MCFactoryRegistry::AddOwnerType(short code, short ownerType) {
    if (!c_pxImplementation)
        return false;
    MCMetaInfoI* impl = c_pxImplementation;
    MCMetaInfoEntry* entry = impl->FindEntry(code);
    MCMetaInfoConcreteObjectEntry* concrete = entry ? entry->AsConcreteObject() : nullptr;
    if (!concrete)
        return false;
    concrete->m_sOwnerType = ownerType;
    concrete->m_xOwnerTypes.Append(ownerType);
    MCMetaInfoEntry* owner = impl->FindEntry(ownerType);
    if (owner) {
        // Only hierarchy types collect ownees; anything else is a caller's mistake we ignore.
        if (MCMetaInfoAbstractObjectEntry* ownerEntry = owner->AsAbstractObject())
            ownerEntry->m_xOwneeTypes.Append(code);
    } else {
        AppendToPending(impl->m_xPendingOwnees, ownerType, code);
    }
    return true;
}

namespace {

struct UsagePair {
    MCMetaInfoObjectEntry* object;
    MCMetaInfoPropertyEntry* property;
};

UsagePair FindUsagePair(MCMetaInfoI* impl, short objectType, short propertyType) {
    MCMetaInfoEntry* object = impl ? impl->FindEntry(objectType) : nullptr;
    MCMetaInfoEntry* property = impl ? impl->FindEntry(propertyType) : nullptr;
    return {object ? object->AsObject() : nullptr, property ? property->AsProperty() : nullptr};
}

}  // namespace

ZVTBoolean MCFactoryRegistry::AddPropertyUsage(short objectType, short propertyType, clip_reference clip) {
    UsagePair pair = FindUsagePair(c_pxImplementation, objectType, propertyType);
    if (!pair.object || !pair.property)
        return false;
    MCPropertyUsage usage(propertyType, clip);
    if (pair.object->m_xPropertyUsages.Contains(usage))
        return true;
    pair.object->m_xPropertyUsages.Append(usage);
    pair.property->m_xUsingObjectTypes.Append(objectType);
    return true;
}

ZVTBoolean MCFactoryRegistry::AddPropertyUsages(short objectType, const short* pairs, long count) {
    for (long i = 0; pairs && i < count; ++i) {
        // The clip value travels as a short and widens with its sign.
        auto clip = static_cast<clip_reference>(static_cast<std::int32_t>(pairs[2 * i + 1]));
        AddPropertyUsage(objectType, pairs[2 * i], clip);
    }
    return true;
}

ZVTBoolean MCFactoryRegistry::RemovePropertyUsage(short objectType, short propertyType, MCObject* /*model*/) {
    UsagePair pair = FindUsagePair(c_pxImplementation, objectType, propertyType);
    if (!pair.object || !pair.property)
        return false;
    pair.object->m_xPropertyUsages.Remove(MCPropertyUsage(propertyType, clipUndecided));
    pair.property->m_xUsingObjectTypes.Remove(objectType);
    return true;
}

namespace {

const MCPropertyUsage* FindOwnUsage(MCMetaInfoObjectEntry* entry, short propertyType) {
    ZVTOrderedVectorT<MCPropertyUsage>& usages = entry->m_xPropertyUsages;
    for (size_t i = 0; i < usages.Length(); ++i)
        if (usages[i].m_sPropertyType == propertyType)
            return &usages[i];
    return nullptr;
}

}  // namespace

MCFactoryRegistry::clip_reference MCFactoryRegistry::GetClipFlag(short objectType, short propertyType) {
    MCMetaInfoI* impl = c_pxImplementation;
    MCMetaInfoEntry* entry = impl ? impl->FindEntry(objectType) : nullptr;
    MCMetaInfoAbstractObjectEntry* start = entry ? entry->AsAbstractObject() : nullptr;
    clip_reference answer = clipNoUsage;
    WalkUp(impl, start, [&](MCMetaInfoAbstractObjectEntry* level) {
        const MCPropertyUsage* usage = FindOwnUsage(level, propertyType);
        if (usage)
            answer = usage->m_uClip;
        return usage == nullptr;
    });
    return answer;
}

ZVTBoolean MCFactoryRegistry::SetClipFlag(short objectType, short propertyType, clip_reference clip) {
    MCMetaInfoEntry* entry = c_pxImplementation ? c_pxImplementation->FindEntry(objectType) : nullptr;
    MCMetaInfoObjectEntry* object = entry ? entry->AsObject() : nullptr;
    if (!object)
        return false;
    auto* usage = const_cast<MCPropertyUsage*>(FindOwnUsage(object, propertyType));
    if (!usage || usage->m_uClip != clipUndecided)
        return false;
    usage->m_uClip = clip;
    return true;
}

// ---------------------------------------------------------------------------------------------
// Facts about one type

ZVTBoolean MCFactoryRegistry::IsRegistered(short code, MCObject* model) {
    MCMetaInfoI* impl = c_pxImplementation;
    if (!impl)
        return false;
    MCMetaInfoEntry* entry = impl->FindEntry(code);
    if (model && code < 0) {
        MCMetaInfoAliasPropertyEntry* udp = entry ? entry->AsAliasProperty() : nullptr;
        return udp && udp->m_xModels.Contains(model);
    }
    return entry != nullptr;
}

ZVTBoolean MCFactoryRegistry::IsRegistered(const ZVTString& name, MCObject* model) {
    MCMetaInfoI* impl = c_pxImplementation;
    if (!impl)
        return false;
    if (!model)
        return impl->m_xNomenclatures.Contains(name);
    short code = Lookup(name, ZVTString());
    return code != 0 && IsRegistered(code, model);
}

ZVTBoolean MCFactoryRegistry::IsValidOwner(short code, short ownerType) {
    MCMetaInfoEntry* entry = c_pxImplementation ? c_pxImplementation->FindEntry(code) : nullptr;
    MCMetaInfoConcreteObjectEntry* concrete = entry ? entry->AsConcreteObject() : nullptr;
    return concrete && concrete->m_xOwnerTypes.Contains(ownerType);
}

ZVTBoolean MCFactoryRegistry::IsPreFetch(short code) {
    MCMetaInfoEntry* entry = c_pxImplementation ? c_pxImplementation->FindEntry(code) : nullptr;
    return entry && (entry->m_ulFlags & flagPreFetch) != 0;
}

ZVTBoolean MCFactoryRegistry::SetWantPreFetch(short code, ZVTBoolean /*want*/) {
    MCMetaInfoEntry* entry = c_pxImplementation ? c_pxImplementation->FindEntry(code) : nullptr;
    if (!entry || !entry->AsProperty())
        return false;
    entry->m_ulFlags |= flagPreFetch;
    return true;
}

unsigned int MCFactoryRegistry::GetItemSize(short code) {
    MCMetaInfoI* impl = c_pxImplementation;
    if (MCMetaInfoConcreteEntry* known = impl ? impl->FindRecentSized(code) : nullptr)
        return known->m_uItemSize;
    short concrete = code;
    MCMetaInfoEntry* entry = impl ? impl->FindTranslated(code, concrete) : nullptr;
    if (!entry) {
        ShowCodeMessage(MCCodes::msgUnknownSize, concrete);
        return 0;
    }
    MCMetaInfoConcreteEntry* sized = entry->AsConcrete();
    if (!sized)
        return 0;
    impl->RememberSized(code, sized);
    return sized->m_uItemSize;
}

ZVTBoolean MCFactoryRegistry::SetDefinition(short code, const ZVTString& text) {
    MCMetaInfoEntry* entry = c_pxImplementation ? c_pxImplementation->FindEntry(code) : nullptr;
    if (!entry)
        return false;
    entry->m_xDefinition = text;
    return true;
}

ZVTBoolean MCFactoryRegistry::GetDefinition(short code, ZVTString& text) {
    MCMetaInfoEntry* entry = c_pxImplementation ? c_pxImplementation->FindEntry(code) : nullptr;
    if (!entry)
        return false;
    text = entry->m_xDefinition;
    return true;
}

// ---------------------------------------------------------------------------------------------
// Names

ZVTBoolean MCFactoryRegistry::AddName(short code, const ZVTString& nomenclature, const ZVTString& name) {
    if (code < 0)
        return false;
    if (name.IsNull() || nomenclature.IsNull())
        return false;
    MCMetaInfoI* impl = c_pxImplementation;
    if (!impl)
        return false;
    MCNomenclature* target = impl->FindNomenclature(nomenclature);
    if (!target) {
        target = new MCNomenclature(nomenclature, true);
        impl->m_xNomenclatures.Insert(nomenclature, target);
    }
    MCMetaInfoEntry* entry = impl->FindEntry(code);
    if (!entry)
        return false;
    for (ZVTSListIter<MCNameTranslation> it(entry->m_xNames); ++it;) {
        if (it.Key().m_usId == target->m_usId)
            return it.Key().m_xName == name;
    }
    entry->m_xNames.Append(MCNameTranslation(name, target->m_usId));
    target->m_xCodes.Insert(name, code);
    return true;
}

short MCFactoryRegistry::Lookup(const ZVTString& name, ZVTString nomenclature) {
    MCMetaInfoI* impl = c_pxImplementation;
    MCNomenclature* target = impl ? impl->FindNomenclature(nomenclature) : nullptr;
    if (!target)
        return 0;
    short code = 0;
    if (target->m_xCodes.Find(name, code))
        return code;
    impl->m_pxDefaultNomenclature->m_xCodes.Find(name, code);
    return code;
}

ZVTString MCFactoryRegistry::Lookup(short code, ZVTString nomenclature) {
    MCMetaInfoI* impl = c_pxImplementation;
    MCNomenclature* target = impl ? impl->FindNomenclature(nomenclature) : nullptr;
    MCMetaInfoEntry* entry = target ? impl->FindEntry(code) : nullptr;
    if (!entry)
        return ZVTString();
    const ZVTString* fallback = nullptr;
    for (ZVTSListIter<MCNameTranslation> it(entry->m_xNames); ++it;) {
        const MCNameTranslation& translation = it.Key();
        if (translation.m_usId == target->m_usId)
            return translation.m_xName;
        if (translation.m_usId == 0 && !fallback)
            fallback = &translation.m_xName;
    }
    return fallback ? *fallback : ZVTString();
}

ZVTBoolean MCFactoryRegistry::ContainsNomenclature(const ZVTString& name) {
    return c_pxImplementation && c_pxImplementation->m_xNomenclatures.Contains(name);
}

short MCFactoryRegistry::Translate(short code, ZVTBoolean keep) {
    MCMetaInfoEntry* entry = c_pxImplementation ? c_pxImplementation->FindEntry(code) : nullptr;
    if (MCMetaInfoAliasEntry* alias = entry ? entry->AsAlias() : nullptr)
        return alias->m_sConcreteType;
    return keep ? code : 0;
}

// ---------------------------------------------------------------------------------------------
// Queries

ZVTBoolean MCFactoryRegistry::GetObjectTypes(ZVTOrderedVectorT<short>& types, unsigned long mask) {
    MCMetaInfoI* impl = c_pxImplementation;
    if (!impl)
        return false;
    mask |= flagObject;
    for (ZVTHDictIter<short, MCMetaInfoEntry*> it(impl->m_xEntries); ++it;) {
        unsigned long flags = it.Value()->m_ulFlags;
        if (SharesBit(flags, mask, groupKind) && SharesBit(flags, mask, groupOrigin) &&
            SharesBit(flags, mask, groupFirst) && SharesBit(flags, mask, groupTypeKind) &&
            SharesBit(flags, mask, groupSecond))
            types.Append(it.Key());
    }
    return true;
}

namespace {

bool ModelHolds(MCMetaInfoEntry* entry, MCObject* model) {
    MCMetaInfoAliasPropertyEntry* udp = entry ? entry->AsAliasProperty() : nullptr;
    return model && udp && udp->m_xModels.Contains(model);
}

}  // namespace

ZVTBoolean MCFactoryRegistry::GetPropertyTypes(ZVTOrderedVectorT<short>& types, unsigned long mask,
                                               MCObject* model) {
    MCMetaInfoI* impl = c_pxImplementation;
    if (!impl)
        return false;
    for (ZVTHDictIter<short, MCMetaInfoEntry*> it(impl->m_xEntries); ++it;) {
        short code = it.Key();
        // Here the first pair also tells core properties from user-defined ones.
        unsigned long flags = it.Value()->m_ulFlags | (code >= 0 ? flagFirstOff : flagFirstOn);
        if (!(flags & flagProperty))
            continue;
        if (!SharesBit(flags, mask, groupTypeKind) || !SharesBit(flags, mask, groupOrigin) ||
            !SharesBit(flags, mask, groupFirst))
            continue;
        if (code < 0 && !ModelHolds(it.Value(), model))
            continue;
        types.Append(code);
    }
    return true;
}

ZVTBoolean MCFactoryRegistry::GetPropertyUsages(short objectType, ZVTOrderedVectorT<short>& types,
                                                unsigned long mask, MCObject* model) {
    MCMetaInfoI* impl = c_pxImplementation;
    MCMetaInfoEntry* entry = impl ? impl->FindEntry(objectType) : nullptr;
    MCMetaInfoAbstractObjectEntry* start = entry ? entry->AsAbstractObject() : nullptr;
    if (!start)
        return false;
    auto collect = [&](MCMetaInfoAbstractObjectEntry* level) {
        ZVTOrderedVectorT<MCPropertyUsage>& usages = level->m_xPropertyUsages;
        if (mask & usageCore) {
            for (size_t i = 0; i < usages.Length(); ++i)
                if (usages[i].m_sPropertyType > 0)
                    types.Append(usages[i].m_sPropertyType);
        }
        if (mask & usageUser) {
            for (size_t i = 0; i < usages.Length(); ++i) {
                short code = usages[i].m_sPropertyType;
                if (code >= 0)
                    continue;
                MCMetaInfoEntry* udp = impl->FindEntry(code);
                if (!udp || !udp->AsAliasProperty())
                    break;  // a broken user-defined usage ends this level
                if (ModelHolds(udp, model))
                    types.Append(code);
            }
        }
        return (mask & flagWithInherited) != 0;
    };
    WalkUp(impl, start, collect);
    return true;
}

ZVTBoolean MCFactoryRegistry::GetUsingObjectTypes(short propertyType, ZVTOrderedVectorT<short>& types,
                                                  MCObject* model) {
    MCMetaInfoI* impl = c_pxImplementation;
    if (!impl || (propertyType < 0 && !model))
        return false;
    MCMetaInfoEntry* entry = impl->FindEntry(propertyType);
    MCMetaInfoPropertyEntry* property = entry ? entry->AsProperty() : nullptr;
    if (!property)
        return false;
    if (propertyType < 0 && !ModelHolds(entry, model))
        return false;
    for (size_t i = 0; i < property->m_xUsingObjectTypes.Length(); ++i)
        types.Append(property->m_xUsingObjectTypes[i]);
    return true;
}

ZVTBoolean MCFactoryRegistry::GetFlags(short code, unsigned long& flags) {
    MCMetaInfoEntry* entry = c_pxImplementation ? c_pxImplementation->FindEntry(code) : nullptr;
    if (!entry)
        return false;
    flags = entry->GetFlags();
    return true;
}

namespace {

MCMetaInfoAbstractObjectEntry* FindHierarchyEntry(MCMetaInfoI* impl, short code) {
    MCMetaInfoEntry* entry = impl ? impl->FindEntry(code) : nullptr;
    return entry ? entry->AsAbstractObject() : nullptr;
}

MCMetaInfoConcreteObjectEntry* FindConcreteObjectEntry(MCMetaInfoI* impl, short code) {
    MCMetaInfoEntry* entry = impl ? impl->FindEntry(code) : nullptr;
    return entry ? entry->AsConcreteObject() : nullptr;
}

ZVTBoolean AppendAll(const ZVTOrderedVectorT<short>* from, ZVTOrderedVectorT<short>& types) {
    if (!from)
        return false;
    for (size_t i = 0; i < from->Length(); ++i)
        types.Append((*from)[i]);
    return true;
}

}  // namespace

short MCFactoryRegistry::GetSupertype(short code) {
    MCMetaInfoAbstractObjectEntry* entry = FindHierarchyEntry(c_pxImplementation, code);
    return entry ? entry->m_sSupertype : 0;
}

ZVTBoolean MCFactoryRegistry::GetSubtypes(short code, ZVTOrderedVectorT<short>& types) {
    MCMetaInfoAbstractObjectEntry* entry = FindHierarchyEntry(c_pxImplementation, code);
    return AppendAll(entry ? &entry->m_xSubtypes : nullptr, types);
}

short MCFactoryRegistry::GetOwnerType(short code) {
    MCMetaInfoConcreteObjectEntry* entry = FindConcreteObjectEntry(c_pxImplementation, code);
    return entry ? entry->m_sOwnerType : 0;
}

ZVTBoolean MCFactoryRegistry::GetOwnerTypes(short code, ZVTOrderedVectorT<short>& types) {
    MCMetaInfoConcreteObjectEntry* entry = FindConcreteObjectEntry(c_pxImplementation, code);
    return AppendAll(entry ? &entry->m_xOwnerTypes : nullptr, types);
}

ZVTBoolean MCFactoryRegistry::GetOwneeTypes(short code, ZVTOrderedVectorT<short>& types) {
    MCMetaInfoConcreteObjectEntry* entry = FindConcreteObjectEntry(c_pxImplementation, code);
    return AppendAll(entry ? &entry->m_xOwneeTypes : nullptr, types);
}

// ---------------------------------------------------------------------------------------------
// User-defined properties

namespace {

MCMetaInfoAliasPropertyEntry* FindUDPEntry(MCMetaInfoI* impl, short code) {
    MCMetaInfoEntry* entry = impl && code < 0 ? impl->FindEntry(code) : nullptr;
    return entry ? entry->AsAliasProperty() : nullptr;
}

// The lowest code a user-defined property can have: past it the low 16 bits would turn positive.
constexpr long c_lLowestUDP = -32768;

}  // namespace

short MCFactoryRegistry::RegisterUDP(const ZVTString& name, short concreteType, MCObject* model,
                                     ZVTBoolean first) {
    GetInstance();
    if (name.IsNull())
        return 0;
    MCMetaInfoI* impl = c_pxImplementation;
    short code = Lookup(name, ZVTString());
    if (code > 0)
        return 0;
    if (code < 0) {
        MCMetaInfoAliasPropertyEntry* udp = FindUDPEntry(impl, code);
        if (!udp || udp->m_sConcreteType != concreteType)
            return 0;
        if (model)
            udp->m_xModels.Insert(model);
        return code;
    }
    MCMetaInfoEntry* concrete = impl->FindEntry(concreteType);
    if (!concrete || !concrete->AsProperty() || !concrete->AsConcrete() || concrete->AsAlias())
        return 0;
    // A host may have taken negative codes with RegisterAliasProperty; they are skipped, never reused.
    long next = impl->m_lLastUDP;
    do {
        if (--next < c_lLowestUDP)
            return 0;
    } while (impl->m_xEntries.Contains(static_cast<short>(next)));
    impl->m_lLastUDP = next;
    code = static_cast<short>(next);
    RegisterAliasPropertyIn(impl, code, name, concreteType, first, true, false, false, model);
    return code;
}

ZVTBoolean MCFactoryRegistry::RemoveUDP(short code, MCObject* model) {
    MCMetaInfoAliasPropertyEntry* udp = FindUDPEntry(c_pxImplementation, code);
    if (!udp)
        return false;
    udp->m_xModels.Remove(model);
    return true;
}

void MCFactoryRegistry::RemoveUDPs(MCObject* model) {
    ZVTOrderedVectorT<short> held;
    GetPropertyTypes(held, selectUserProperties, model);
    for (size_t i = 0; i < held.Length(); ++i)
        RemoveUDP(held[i], model);
}

ZVTBoolean MCFactoryRegistry::ValidatePersistenceUnit(short code, MCObject* model) {
    // A null model would make every later query with a null model see the property as held.
    MCMetaInfoAliasPropertyEntry* udp = FindUDPEntry(c_pxImplementation, code);
    if (!udp || !model)
        return false;
    udp->m_xModels.Insert(model);
    return true;
}

void MCFactoryRegistry::SaveTo(MCStream& stream, MCObject* model) {
    stream << static_cast<char>(MCStream::tokenGlobals);
    for (ZVTHDictIter<short, MCMetaInfoEntry*> it(c_pxImplementation->m_xEntries); ++it;) {
        const short code = it.Key();
        if (code >= 0 || !ModelHolds(it.Value(), model))
            continue;
        const ZVTString* name = nullptr;
        for (ZVTSListIter<MCNameTranslation> names(it.Value()->m_xNames); ++names;) {
            if (names.Key().m_usId == 0) {
                name = &names.Key().m_xName;
                break;
            }
        }
        if (!name)
            MC_THROW_UNEXPECTED(c_xSourceFile);
        ZVTOrderedVectorT<short> users;
        GetUsingObjectTypes(code, users, model);
        const unsigned short first = (it.Value()->m_ulFlags & flagFirstOn) ? 1 : 0;
        stream << static_cast<char>(MCStream::tokenProperty) << code << *name << Translate(code, false)
               << first << static_cast<long>(users.Length());
        for (size_t i = 0; i < users.Length(); ++i)
            stream << users[i];
    }
    stream << static_cast<char>(MCStream::tokenGlobalsEnd);
}

namespace {

// Reads up to `count` object types into `types`. The count comes from the stream, so the room made is
// what the bytes present can fill, never what the count claims.
void ReadUsingTypes(MCStream& stream, long count, ZVTOrderedVectorT<short>& types) {
    for (long i = 0; i < count; ++i) {
        short type = 0;
        stream >> type;
        if (stream.fail())
            return;
        types.Append(type);
    }
}

}  // namespace

void MCFactoryRegistry::RestoreFrom(MCStream& stream, MCUDPMap* map, MCObject* /*model*/) {
    if (!map)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    // A failed read counts as the end, so a stream that breaks down cannot keep the loop going.
    while (stream.HasPendingToken() || (!stream.eof() && !stream.fail())) {
        char token = 0;
        if (stream.HasPendingToken()) {
            token = stream.GetPendingToken();
        } else {
            stream >> token;
            if (stream.fail())
                return;
        }
        if (token == MCStream::tokenGlobalsEnd || token == MCStream::tokenEndMark)
            return;
        if (token != MCStream::tokenProperty)
            continue;

        MCUDPInfo info;
        long count = 0;
        stream >> info.m_sCode >> info.m_xName >> info.m_sConcreteType >> info.m_usFirst;
        if (stream.fail())
            return;  // a record cut inside its head is dropped
        if (info.m_sCode >= 0)
            MC_THROW_UNEXPECTED(c_xSourceFile);
        stream >> count;
        if (stream.fail())
            return;

        const short current = Lookup(info.m_xName, ZVTString());
        if (current == 0) {
            map->m_xUDPInfos.Append(info);
            ReadUsingTypes(stream, count, map->m_xUDPInfos[map->m_xUDPInfos.Length() - 1].m_xUsingTypes);
            continue;
        }
        ZVTOrderedVectorT<short> users(1);
        ReadUsingTypes(stream, count, users);
        // A name that this process gives to an object type must not turn stored properties into objects.
        MCMetaInfoEntry* entry = c_pxImplementation->FindEntry(current);
        if (!entry || !entry->AsProperty()) {
            map->Add(info.m_sCode, 0);
            continue;
        }
        map->Add(info.m_sCode, current);
        for (size_t i = 0; i < users.Length(); ++i)
            AddPropertyUsage(users[i], current, clipUndecided);
    }
}

// ---------------------------------------------------------------------------------------------
// Pools

ZVTBoolean MCFactoryRegistry::RegisterInitialPoolCount(unsigned int itemSize, long count) {
    GetInstance();
    MCPoolRecord record;
    c_pxImplementation->m_xPools.Find(itemSize, record);
    record.m_lCount += count;
    c_pxImplementation->m_xPools.Insert(itemSize, record);
    return true;
}

unsigned long MCFactoryRegistry::GetPool(unsigned int itemSize) {
    MCMetaInfoI* impl = c_pxImplementation;
    if (!impl)
        return 0;
    if (MCPoolRecord* record = impl->m_xPools.FindPtr(itemSize))
        return record->m_ulPool;
    impl->m_xPools.Insert(itemSize, MCPoolRecord());
    return 0;
}

long MCFactoryRegistry::GetPoolCount(unsigned int itemSize) {
    MCPoolRecord record;
    if (!c_pxImplementation || !c_pxImplementation->m_xPools.Find(itemSize, record))
        return 0;
    return record.m_lCount;
}

void MCFactoryRegistry::ShowCodeMessage(long messageId, short code) {
    HUBMessageParameter parameter(1, MCCodes::styleTypeCode);
    parameter.SetString(0, ZVTString(static_cast<long>(code), 10));
    HUBInterface::ShowMessage(MCCodes::msgKindInformation, messageId, parameter);
}

// ---------------------------------------------------------------------------------------------
// Dumps

namespace {

using NamedCodes = std::vector<std::pair<ZVTString, short>>;

// By default name, exact and case-sensitive; equal names fall back on the code so that the dump never
// shows the hash order.
NamedCodes SortedByName(const ZVTOrderedVectorT<short>& codes) {
    NamedCodes named;
    named.reserve(codes.Length());
    for (size_t i = 0; i < codes.Length(); ++i)
        named.emplace_back(MCFactoryRegistry::Lookup(codes[i]), codes[i]);
    std::sort(named.begin(), named.end(), [](const auto& a, const auto& b) {
        const int order = a.first.compareTo(b.first);
        return order != 0 ? order < 0 : a.second < b.second;
    });
    return named;
}

// One char at a time: a binary stream then holds the dump's text byte for byte, without string lengths.
void WriteText(MCStream& stream, const ZVTString& text) {
    for (char c : text.str())
        stream << c;
}

void WriteLine(MCStream& stream, const ZVTString& text) {
    WriteText(stream, text);
    WriteText(stream, "\r\n");
}

ZVTString Concat(const char* head, const ZVTString& tail) {
    ZVTString line(head);
    line += tail;
    return line;
}

}  // namespace

void MCFactoryRegistry::Dump(MCStream& stream, long mode, MCDumpableParameter* /*pParameter*/) {
    if (mode != dumpMetamodel && mode != dumpConcreteMetamodel)
        return;
    MCMetaInfoI* impl = c_pxImplementation;
    if (!impl)
        return;
    const bool concrete = mode == dumpConcreteMetamodel;
    // Only the kind of type selects here; origin and the flag pairs play no part.
    const unsigned long kinds = concrete ? flagConcrete | flagAlias : flagAbstract | flagConcrete;
    ZVTOrderedVectorT<short> selected;
    for (ZVTHDictIter<short, MCMetaInfoEntry*> it(impl->m_xEntries); ++it;) {
        const unsigned long flags = it.Value()->m_ulFlags;
        if ((flags & flagObject) && (flags & kinds))
            selected.Append(it.Key());
    }

    WriteText(stream, concrete ? "CONCRETE METAMODEL DUMP\nConcrete objects with flattened properties\r\n\r\n"
                               : "METAMODEL DUMP\r\n\r\n");
    for (const auto& type : SortedByName(selected)) {
        const short code = type.second;
        WriteLine(stream, type.first);
        const short supertype = GetSupertype(code);
        WriteLine(stream, Concat("\tSupertype: ", supertype != 0 ? Lookup(supertype) : ZVTString()));
        if (concrete) {
            WriteLine(stream, "\tOwner Types: ");
            ZVTOrderedVectorT<short> owners;
            GetOwnerTypes(code, owners);
            ZVTString line;
            for (size_t i = 0; i < owners.Length(); ++i) {
                line += owners[i] == 0 ? ZVTString("Undefined") : Lookup(owners[i]);
                line += ", ";
            }
            WriteLine(stream, line);
        }
        WriteLine(stream, "\tProperty Usages:");
        ZVTOrderedVectorT<short> usages;
        GetPropertyUsages(code, usages, concrete ? usageCore | flagWithInherited : usageCore, nullptr);
        for (const auto& usage : SortedByName(usages))
            WriteLine(stream, Concat("\t\t", usage.first));
    }
}
