#include "ModelCore/ZVFWMC/MCRefProperty.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <memory>
#include <typeinfo>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCEndsPrivate.h"
#include "ModelCore/ZVFWMC/MCEvent.h"
#include "ModelCore/ZVFWMC/MCIdSpace.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCStreams.h"
#include "ModelCore/ZVFWMC/MCVRefIter.h"

namespace {

const ZVTString c_xSourceFile("ModelCore/ZVFWMC/MCRefProperty");

constexpr unsigned int c_nHolder = MCEvent::subscriberReferenceHolder;

// The entries an empty list makes room for when it gains its first.
constexpr size_t c_nFirstRoom = 3;

// An unresolved reference keeps the stored id in the pointer's place. The round trip through an integer
// is all that is ever done with such a value: it is never dereferenced nor converted to a base.
MCObject* IdAsPointer(long id) {
    return reinterpret_cast<MCObject*>(static_cast<std::intptr_t>(id));
}

long PointerAsId(const MCObject* stored) {
    return static_cast<long>(reinterpret_cast<std::intptr_t>(stored));
}

// The id a value of a reference with `flags` stands for: the stored id while unresolved, else the
// target's id, 0 for null. A nulled reference stands for nothing, whatever is left behind the flag.
long IdOf(const MCObject* value, unsigned short flags) {
    if (flags & MCItem::itemNL)
        return PointerAsId(value);
    if ((flags & MCItem::itemNulled) || !value)
        return 0;
    return value->GetId();
}

// The object of a stored id in `space`, or of the id the converter gives for it; null for 0.
MCObject* Lookup(MCIdSpace& space, long id, MCIdConverter* converter) {
    if (id == 0)
        return nullptr;
    MCObject* target = space.ResolveId(id);
    if (!target && converter) {
        const long converted = converter->ConvertId(id);
        if (converted != 0)
            target = space.ResolveId(converted);
    }
    return target;
}

// Reads a stored count and at most that many ids while the stream delivers them, kept as pointers.
void ReadIds(MCStream& stream, ZVTSList<MCObject*>& ids) {
    long count = 0;
    stream >> count;
    for (long i = 0; i < count && !stream.fail(); ++i) {
        long id = 0;
        stream >> id;
        if (stream.fail())
            break;
        ids.Append(IdAsPointer(id));
    }
}

// A reference's entry as the dumps show it: the id it stands for, "<null reference>" for none.
void DumpId(std::ofstream& stream, const MCObject* value, unsigned short flags) {
    const long id = IdOf(value, flags);
    if (id == 0)
        stream << "<null reference>";
    else
        stream << id;
}

unsigned short WithoutNL(unsigned short flags) {
    return static_cast<unsigned short>(flags & ~MCItem::itemNL);
}

}  // namespace

// ---------------------------------------------------------------------------------------------------
// The index of a long list

namespace mc_detail {

// Where each target stands in a long reference list, so that a removal needs no scan: when k targets of a
// list of L entries die one by one, each removing itself as its own change, a scan each would cost k*L.
// Entries are known by their slot when the index was built; a slot's position now is the slot less the
// removed slots before it, which a Fenwick tree counts. Removals through the index keep it; any other
// change of the list forgets it, and it is built again only once searches have again cost several passes
// over the list, so a list that changes between single removals never pays more than a few scans.
class RefListIndex {
public:
    // Counts a search of a list of `entries`; true once the searches since the last change are worth an
    // index.
    bool Searched(size_t entries) {
        m_nSearched += entries;
        return IsLong(entries) && m_nSearched >= c_nSearchesPerBuild * entries;
    }
    // Whether a list of `entries` is long enough to be indexed at all.
    static bool IsLong(size_t entries) { return entries >= c_nLongList; }
    bool IsBuilt() const { return m_bBuilt; }
    // The number of entries the list has if nothing but removals through the index changed it.
    size_t Entries() const { return m_nEntries; }

    void Build(const ZVTSList<MCObject*>& values) {
        Forget();
        m_nEntries = values.Entries();
        m_xTargets.reserve(m_nEntries);
        for (size_t slot = 0; slot < m_nEntries; ++slot) {
            auto placed = m_xTargets.try_emplace(values.At(slot), slot);
            if (!placed.second)
                placed.first->second.m_xLater.push_back(slot);
        }
        m_xRemoved.assign(m_nEntries + 1, 0);
        m_bBuilt = true;
    }

    void Forget() {
        std::unordered_map<const MCObject*, Slots>().swap(m_xTargets);
        std::vector<size_t>().swap(m_xRemoved);
        m_nEntries = 0;
        m_nSearched = 0;
        m_bBuilt = false;
    }

    long Occurrences(const MCObject* target) const {
        auto found = m_xTargets.find(target);
        return found == m_xTargets.end() ? 0 : static_cast<long>(found->second.Left());
    }

    // The position now of the first entry that is `target`; false when there is none.
    bool FirstPosition(const MCObject* target, size_t& position) const {
        auto found = m_xTargets.find(target);
        if (found == m_xTargets.end())
            return false;
        const size_t slot = found->second.Next();
        position = slot - RemovedBefore(slot);
        return true;
    }

    // Records that the first entry of `target`, which FirstPosition found, was removed.
    void RemoveFirst(const MCObject* target) {
        auto found = m_xTargets.find(target);
        if (found == m_xTargets.end())
            return;
        for (size_t i = found->second.Next() + 1; i < m_xRemoved.size(); i += i & (~i + 1))
            ++m_xRemoved[i];
        if (++found->second.m_nTaken > found->second.m_xLater.size())
            m_xTargets.erase(found);
        --m_nEntries;
    }

private:
    static constexpr size_t c_nLongList = 64;
    static constexpr size_t c_nSearchesPerBuild = 8;

    // A target's slots in order; most targets stand once, which needs no vector.
    struct Slots {
        explicit Slots(size_t first) : m_nFirst(first) {}
        size_t Left() const { return 1 + m_xLater.size() - m_nTaken; }
        size_t Next() const { return m_nTaken == 0 ? m_nFirst : m_xLater[m_nTaken - 1]; }
        size_t m_nFirst;
        std::vector<size_t> m_xLater;
        size_t m_nTaken = 0;
    };

    size_t RemovedBefore(size_t slot) const {
        size_t removed = 0;
        for (size_t i = slot; i > 0; i -= i & (~i + 1))
            removed += m_xRemoved[i];
        return removed;
    }

    std::unordered_map<const MCObject*, Slots> m_xTargets;
    std::vector<size_t> m_xRemoved;  // the Fenwick tree, slot s at s + 1
    size_t m_nEntries = 0;
    size_t m_nSearched = 0;
    bool m_bBuilt = false;
};

}  // namespace mc_detail

// ---------------------------------------------------------------------------------------------------
// MCSRef

MCSRef::MCSRef(short type, MCObject* owner) : MCSPtrPropertyT<MCObject>(type, owner) {}

MCSRef::~MCSRef() = default;

unsigned int MCSRef::Dump(std::ofstream& stream, long level) {
    MCProperty::Dump(stream, level);
    stream << ", Id=";
    DumpId(stream, m_xValue, GetFlags());
    return 0;
}

ZVTBoolean MCSRef::IsEqualTo(const MCProperty* other, ZVTBoolean /*flag*/) const {
    // Another class, a host's derived one too, is another kind of value.
    if (other == nullptr || other->GetType() != GetType() || typeid(*other) != typeid(*this))
        return false;
    auto* typed = static_cast<const MCSRef*>(other);
    return IdOf(typed->m_xValue, typed->GetFlags()) == IdOf(m_xValue, GetFlags());
}

void MCSRef::SaveTo(MCStream& stream) {
    MCProperty::SaveTo(stream);
    stream << IdOf(m_xValue, GetFlags());
}

void MCSRef::RestoreFrom(MCStream& stream, MCPropertyAccessor& accessor) {
    MCProperty::RestoreFrom(stream, accessor);
    long id = 0;
    stream >> id;
    if (auto* active = dynamic_cast<MCSRefAccessor*>(&accessor); active != nullptr && !stream.fail())
        active->SetValue(IdAsPointer(id));
}

void MCSRef::RestoreFrom(MCStream& stream) {
    MCProperty::RestoreFrom(stream);
    long id = 0;
    stream >> id;
    m_xValue = IdAsPointer(id);
    SetFlag(itemNL, true);
}

ZVTBoolean MCSRef::ResolveIds(MCIdSpace& space, MCObject& owner, ZVTBoolean /*strict*/,
                              MCIdConverter* converter) {
    if (!GetFlag(itemNL))
        return true;
    const long id = PointerAsId(m_xValue);
    MCObject* target = Lookup(space, id, converter);
    if (id != 0 && !target) {
        // itemNL stays: the value is 0 now, so the next resolution ends the state.
        m_xValue = nullptr;
        SetFlagRaw(itemNulled, true);
        return false;
    }
    // The core's own class makes a plain raw accessor, which needs no heap and no cast; a derived class
    // may make its own.
    MCSRefRawAccessor plain;
    std::unique_ptr<MCPropertyAccessor> accessor;
    MCSRefRawAccessor* raw = &plain;
    if (typeid(*this) != typeid(MCSRef)) {
        accessor.reset(CreateRawAccessor());
        raw = dynamic_cast<MCSRefRawAccessor*>(accessor.get());
    }
    if (!raw)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    raw->SetValue(target);
    raw->SetFlags(WithoutNL(GetFlags()));
    raw->SetPropertyValue(this, &owner, MCPropertyAccessor::accessReplace | MCPropertyAccessor::accessFlags);
    return true;
}

void MCSRef::Rebind(MCIdSpace& space, MCObject& owner) {
    if (!IsBound())
        return;
    MCObject* target = m_xValue;
    if (target) {
        if (MCObject* copy = space.ResolveId(target->GetId()))
            target = copy;
    }
    MCSRefRawAccessor accessor(target);
    accessor.SetPropertyValue(this, &owner, MCPropertyAccessor::accessReplace);
}

MCPropertyAccessor* MCSRef::CreateAccessor() const {
    return new MCSRefAccessor;
}

MCPropertyAccessor* MCSRef::CreateRawAccessor() const {
    return new MCSRefRawAccessor;
}

void MCSRef::AcceptVisitor(MCVisitor* visitor) {
    if (auto* references = dynamic_cast<MCRefVisitor*>(visitor))
        references->VisitType(this);
}

void MCSRef::UnsubscribeTargets_(MCObject& holder, unsigned int type) {
    if (IsBound() && m_xValue)
        m_xValue->RemoveSubscriber(&holder, type);
    // Nothing left behind the flag that could outlive its target.
    m_xValue = nullptr;
}

void MCSRef::LetGo_(MCObject& holder, const MCObject& target) noexcept {
    if (!IsBound() || m_xValue != &target)
        return;
    m_xValue->RemoveSubscriber(&holder, c_nHolder);
    m_xValue = nullptr;
}

// ---------------------------------------------------------------------------------------------------
// MCVRef

MCVRef::MCVRef(short type, MCObject* owner) : MCVPtrPropertyT<MCObject>(type, owner) {}

MCVRef::~MCVRef() = default;

unsigned int MCVRef::Dump(std::ofstream& stream, long level) {
    MCProperty::Dump(stream, level);
    stream << ", Ids=";
    for (size_t i = 0; i < m_xValues.Entries(); ++i) {
        DumpId(stream, m_xValues.At(i), GetFlags());
        stream << ' ';
    }
    return 0;
}

ZVTBoolean MCVRef::IsEqualTo(const MCProperty* other, ZVTBoolean /*flag*/) const {
    if (other == nullptr || other->GetType() != GetType() || typeid(*other) != typeid(*this))
        return false;
    auto* typed = static_cast<const MCVRef*>(other);
    if (typed->m_xValues.Entries() != m_xValues.Entries())
        return false;
    for (size_t i = 0; i < m_xValues.Entries(); ++i) {
        if (IdOf(typed->m_xValues.At(i), typed->GetFlags()) != IdOf(m_xValues.At(i), GetFlags()))
            return false;
    }
    return true;
}

void MCVRef::SaveTo(MCStream& stream) {
    MCProperty::SaveTo(stream);
    stream << static_cast<long>(m_xValues.Entries());
    for (size_t i = 0; i < m_xValues.Entries(); ++i)
        stream << IdOf(m_xValues.At(i), GetFlags());
}

void MCVRef::RestoreFrom(MCStream& stream, MCPropertyAccessor& accessor) {
    MCProperty::RestoreFrom(stream, accessor);
    ZVTSList<MCObject*> ids;
    ReadIds(stream, ids);
    if (auto* active = dynamic_cast<MCVRefAccessor*>(&accessor))
        active->SetValue(ids);
}

void MCVRef::RestoreFrom(MCStream& stream) {
    EntriesChanged_();
    m_xValues.Clear();
    MCProperty::RestoreFrom(stream);
    SetFlag(itemNL, true);
    ReadIds(stream, m_xValues);
}

ZVTBoolean MCVRef::ResolveIds(MCIdSpace& space, MCObject& owner, ZVTBoolean strict,
                              MCIdConverter* converter) {
    if (!GetFlag(itemNL))
        return true;
    std::unique_ptr<MCPropertyAccessor> accessor(CreateRawAccessor());
    auto* raw = dynamic_cast<MCVRefRawAccessor*>(accessor.get());
    if (!raw)
        MC_THROW_UNEXPECTED(c_xSourceFile);
    ZVTSList<MCObject*>& targets = *raw->GetList();
    ZVTBoolean complete = true;
    for (size_t i = 0; i < m_xValues.Entries(); ++i) {
        if (MCObject* target = Lookup(space, PointerAsId(m_xValues.At(i)), converter)) {
            targets.Append(target);
            continue;
        }
        if (strict) {
            SetFlagRaw(itemNulled, true);
            return false;
        }
        complete = false;
    }
    // The ids go first, so that the replace finds nothing to unsubscribe.
    EntriesChanged_();
    m_xValues.Clear();
    raw->SetFlags(WithoutNL(GetFlags()));
    raw->SetPropertyValue(this, &owner, MCPropertyAccessor::accessReplace | MCPropertyAccessor::accessFlags);
    return complete;
}

void MCVRef::Rebind(MCIdSpace& space, MCObject& owner) {
    if (!IsBound())
        return;
    MCVRefRawAccessor accessor;
    ZVTSList<MCObject*>& moved = *accessor.GetList();
    for (size_t i = 0; i < m_xValues.Entries(); ++i) {
        MCObject* target = m_xValues.At(i);
        MCObject* copy = target ? space.ResolveId(target->GetId()) : nullptr;
        moved.Append(copy ? copy : target);
    }
    accessor.SetPropertyValue(this, &owner, MCPropertyAccessor::accessReplace);
}

MCPropertyAccessor* MCVRef::CreateAccessor() const {
    return new MCVRefAccessor;
}

MCPropertyAccessor* MCVRef::CreateRawAccessor() const {
    return new MCVRefRawAccessor;
}

void MCVRef::AcceptVisitor(MCVisitor* visitor) {
    if (auto* references = dynamic_cast<MCRefVisitor*>(visitor))
        references->VisitType(this);
}

long MCVRef::Occurrences(const MCObject* target) const {
    if (mc_detail::RefListIndex* index = Index_())
        return index->Occurrences(target);
    long count = 0;
    for (size_t i = 0; i < m_xValues.Entries(); ++i) {
        if (m_xValues.At(i) == target)
            ++count;
    }
    return count;
}

ZVTBoolean MCVRef::RemoveEntry_(const MCObject* target) {
    mc_detail::RefListIndex* index = Index_();
    size_t position = 0;
    if (!index)
        return m_xValues.Remove(const_cast<MCObject*>(target));
    if (!index->FirstPosition(target, position))
        return false;
    // An entry written in place, not through a change, leaves the index behind: the list is searched.
    if (m_xValues.At(position) != target) {
        index->Forget();
        return m_xValues.Remove(const_cast<MCObject*>(target));
    }
    m_xValues.RemoveAt(position);
    index->RemoveFirst(target);
    return true;
}

void MCVRef::EntriesChanged_() {
    if (m_pxIndex)
        m_pxIndex->Forget();
}

mc_detail::RefListIndex* MCVRef::Index_() const {
    const size_t entries = m_xValues.Entries();
    if (!m_pxIndex) {
        if (!mc_detail::RefListIndex::IsLong(entries))
            return nullptr;
        m_pxIndex = std::make_unique<mc_detail::RefListIndex>();
    }
    mc_detail::RefListIndex& index = *m_pxIndex;
    // A count that differs means a change that bypassed EntriesChanged_.
    if (index.IsBuilt() && index.Entries() != entries)
        index.Forget();
    if (!index.IsBuilt()) {
        if (!index.Searched(entries))
            return nullptr;
        index.Build(m_xValues);
    }
    return &index;
}

void MCVRef::UnsubscribeTargets_(MCObject& holder, unsigned int type) {
    EntriesChanged_();
    if (IsBound()) {
        for (size_t i = 0; i < m_xValues.Entries(); ++i) {
            if (MCObject* target = m_xValues.At(i))
                target->RemoveSubscriber(&holder, type);
        }
    }
    m_xValues.Clear();
}

void MCVRef::LetGo_(MCObject& holder, const MCObject& target) noexcept {
    if (!IsBound())
        return;
    EntriesChanged_();
    auto* going = const_cast<MCObject*>(&target);
    while (m_xValues.Remove(going))
        going->RemoveSubscriber(&holder, c_nHolder);
}

// ---------------------------------------------------------------------------------------------------
// Accessors

MCResolvingAccessor::~MCResolvingAccessor() = default;
MCSRefRawAccessor::~MCSRefRawAccessor() = default;
MCVRefRawAccessor::~MCVRefRawAccessor() = default;

namespace {

// Whether `target` has begun to go: it has told, or is telling, its holders of its end, so a reference
// made to it now would outlive it. Such a target is set as null, or left out of a list.
bool IsGoing(const MCObject* target) {
    return target && target->GetFlag(MCItem::itemExpunging);
}

void DropGoing(ZVTSList<MCObject*>& values) {
    for (size_t i = 0; i < values.Entries(); ++i) {
        if (IsGoing(values.At(i))) {
            ZVTSList<MCObject*> kept;
            for (size_t j = 0; j < values.Entries(); ++j)
                if (!IsGoing(values.At(j)))
                    kept.Append(values.At(j));
            values = kept;
            return;
        }
    }
}

// The targets a reference edit is about to write, with their ids, taken before the pre-edit rules run: a
// rule that ends one leaves a pointer nothing may read, and only the id then tells that it went. Looked
// up only once an object ended on this thread; a handful of targets is kept without allocating.
class IncomingTargets {
public:
    // Nothing is taken unless `take`.
    IncomingTargets(MCObject* target, bool take) {
        if (take && target) {
            m_nEnds = mc_detail::t_nObjectEnds;
            Keep(target);
        }
    }
    IncomingTargets(const ZVTSList<MCObject*>& targets, bool take) {
        if (!take || targets.IsEmpty())
            return;
        m_nEnds = mc_detail::t_nObjectEnds;
        if (targets.Entries() > c_nInline)
            m_xMore.reserve(targets.Entries() - c_nInline);
        for (size_t i = 0; i < targets.Entries(); ++i) {
            if (MCObject* target = targets.At(i))
                Keep(target);
        }
    }
    IncomingTargets(const IncomingTargets&) = delete;
    IncomingTargets& operator=(const IncomingTargets&) = delete;

    // Nulls `target` when it is one of those taken and has ended since.
    void DropEnded(MCObject*& target) const {
        if (m_nTaken != 0 && mc_detail::t_nObjectEnds != m_nEnds && Ended(target))
            target = nullptr;
    }
    // Leaves out of `targets` those taken that have ended since.
    void DropEnded(ZVTSList<MCObject*>& targets) const {
        if (m_nTaken == 0 || mc_detail::t_nObjectEnds == m_nEnds)
            return;
        ZVTSList<MCObject*> kept;
        for (size_t i = 0; i < targets.Entries(); ++i)
            if (!Ended(targets.At(i)))
                kept.Append(targets.At(i));
        if (kept.Entries() != targets.Entries())
            targets = kept;
    }

private:
    struct Taken {
        MCObject* m_pxTarget;
        long m_lId;
    };
    static constexpr size_t c_nInline = 4;

    void Keep(MCObject* target) {
        const Taken taken{target, target->GetId()};
        if (m_nTaken < c_nInline)
            m_axInline[m_nTaken] = taken;
        else
            m_xMore.push_back(taken);
        ++m_nTaken;
    }
    const Taken& At(size_t i) const { return i < c_nInline ? m_axInline[i] : m_xMore[i - c_nInline]; }
    // A pointer that a target taken had and whose id no longer names it; any other stays.
    bool Ended(const MCObject* target) const {
        if (!target)
            return false;
        for (size_t i = 0; i < m_nTaken; ++i) {
            const Taken& taken = At(i);
            if (taken.m_pxTarget == target)
                return MCObject::ResolveId(taken.m_lId) != target;
        }
        return false;
    }

    std::uint64_t m_nEnds = 0;
    size_t m_nTaken = 0;
    Taken m_axInline[c_nInline];
    std::vector<Taken> m_xMore;
};

// Whether host code can run on `holder` before a write with `flags`: a pre-edit rule on its chain, or an
// heir to hand the firing on to. Asked before the targets' ids are read, which would touch each target.
bool RulesMayRunBefore(MCObject* holder, long flags) {
    return (flags & MCPropertyAccessor::accessInherited) != 0 ||
           MCPropertySemanticRegistry::MayFire(MCPropertySemantic::PreEdit, holder);
}

}  // namespace

// The base finds the value class by a cast to it, which for a reference is a dynamic_cast to a base every
// time; the core's own class is known by its type information, and only a derived class goes that way.
ZVTBoolean MCSRefRawAccessor::GetPropertyValue(MCProperty* property, MCObject* object) {
    if (property == nullptr || typeid(*property) != typeid(MCSRef))
        return MCSPropertyRawAccessorT<MCObject*>::GetPropertyValue(property, object);
    if (!CalculateBeforeRead(property, object))
        return false;
    m_xValue = static_cast<MCSRef*>(property)->GetValue();
    m_uFlags = property->GetFlags();
    return true;
}

// Inline in both callers: it is a set's whole own work.
inline long MCSRefRawAccessor::Apply(MCSRef& ref, MCObject& holder, long flags) {
    if (ref.IsBound() && ref.m_xValue)
        ref.m_xValue->RemoveSubscriber(&holder, c_nHolder);
    // A pointer written is a pointer: only flags given with the value can keep the id state.
    if ((flags & accessFlags) == 0)
        m_uFlags = WithoutNL(m_uFlags);
    if (!(m_uFlags & MCItem::itemNL) && IsGoing(m_xValue))
        m_xValue = nullptr;
    // The target is written once the holder watches it: a subscription that fails (out of memory) leaves
    // the reference empty rather than holding a target whose end the holder would not hear of.
    MCObject* watched = !(m_uFlags & MCItem::itemNL) ? m_xValue : nullptr;
    ref.SetValue(watched ? nullptr : m_xValue);
    if (watched) {
        watched->AddSubscriber(&holder, c_nHolder);
        ref.m_xValue = watched;
    }
    return MCCodes::hintNone;
}

ZVTBoolean MCSRefRawAccessor::SetPropertyValue(MCProperty* property, MCObject* holder, long flags) {
    auto* ref = mc_detail::PropertyCast<MCSRef>(property);
    if (ref == nullptr || holder == nullptr)
        return false;
    if ((flags & (accessForce | accessFlags)) == 0 && !ref->GetFlag(MCItem::itemNulled) &&
        ref->m_xValue == m_xValue)
        return true;
    // A target carried as an id (an unresolved write with accessFlags) is not an object to look at.
    const ZVTBoolean carriesPointer = (flags & accessFlags) == 0 || !(m_uFlags & MCItem::itemNL);
    const IncomingTargets incoming(
        m_xValue, m_bActive && carriesPointer && m_xValue && RulesMayRunBefore(holder, flags));
    return RunChange(property, holder, flags, [&](MCObject*& /*hintObject*/) {
        incoming.DropEnded(m_xValue);
        return Apply(*ref, *holder, flags);
    });
}

ZVTBoolean MCSRefRawAccessor::SetMadeValue(MCSRef* ref, MCObject* holder, long flags) {
    return RunChange<false>(ref, holder, flags,
                            [&](MCObject*& /*hintObject*/) { return Apply(*ref, *holder, flags); });
}

ZVTBoolean MCSRefRawAccessor::ResolveIds(MCIdSpace& space) {
    return space.ResolveId(PointerAsId(m_xValue)) != nullptr;
}

MCVRefRawAccessor::MCVRefRawAccessor(const ZVTSList<MCObject*>* values) {
    if (values)
        m_xValues = *values;
}

ZVTBoolean MCVRefRawAccessor::GetPropertyValue(MCProperty* property, MCObject* object) {
    if (property == nullptr || typeid(*property) != typeid(MCVRef))
        return MCVPropertyRawAccessorT<MCObject*>::GetPropertyValue(property, object);
    if (!CalculateBeforeRead(property, object))
        return false;
    m_xValues = static_cast<MCVRef*>(property)->m_xValues;
    m_uFlags = property->GetFlags();
    return true;
}

// Subscribes the holder at each target of the list. Out of memory, the entries from the one that failed
// on leave the list, so that no entry stays that the holder would not hear the end of.
void MCVRefRawAccessor::WatchAll(MCVRef& ref, MCObject& holder) {
    ZVTSList<MCObject*>& values = ref.m_xValues;
    for (size_t i = 0; i < values.Entries(); ++i) {
        MCObject* target = values.At(i);
        if (!target)
            continue;
        try {
            target->AddSubscriber(&holder, c_nHolder);
        } catch (...) {
            ref.EntriesChanged_();
            while (values.Entries() > i)
                values.RemoveLast();
            throw;
        }
    }
}

ZVTBoolean MCVRefRawAccessor::SetPropertyValue(MCProperty* property, MCObject* holder, long flags) {
    auto* ref = mc_detail::PropertyCast<MCVRef>(property);
    if (ref == nullptr || holder == nullptr)
        return false;
    const ZVTBoolean withFlags = (flags & accessFlags) != 0;
    // The targets an add or replace will watch, as the change below tells ids from pointers.
    const unsigned short carried = (flags & accessReplace) ? (withFlags ? m_uFlags : WithoutNL(m_uFlags))
                                                           : (withFlags ? m_uFlags : ref->GetFlags());
    const bool watching =
        m_bActive && (flags & (accessReplace | accessAdd)) != 0 && !(carried & MCItem::itemNL);
    const IncomingTargets incoming(m_xValues,
                                   watching && !m_xValues.IsEmpty() && RulesMayRunBefore(holder, flags));
    return RunChange(property, holder, flags, [&](MCObject*& hintObject) -> long {
        ZVTSList<MCObject*>& values = ref->m_xValues;
        const ZVTBoolean wasBound = ref->IsBound();
        if (flags & (accessReplace | accessAdd))
            ref->EntriesChanged_();
        // What a nulled list kept behind the flag was not watched, so it may be gone.
        if (ref->GetFlag(MCItem::itemNulled) && !ref->GetFlag(MCItem::itemNL)) {
            ref->EntriesChanged_();
            values.Clear();
        }
        if (flags & accessReplace) {
            if (!((withFlags ? m_uFlags : WithoutNL(m_uFlags)) & MCItem::itemNL)) {
                incoming.DropEnded(m_xValues);
                DropGoing(m_xValues);
            }
            // The copy is made before anything changes, as it may fail.
            ZVTSList<MCObject*> replacement(m_xValues);
            if (wasBound) {
                for (size_t i = 0; i < values.Entries(); ++i) {
                    if (MCObject* target = values.At(i))
                        target->RemoveSubscriber(holder, c_nHolder);
                }
            }
            values = std::move(replacement);
            ref->SetFlagRaw(MCItem::itemNulled, false);
            if (!withFlags)
                m_uFlags = WithoutNL(m_uFlags);
            if (!(m_uFlags & MCItem::itemNL))
                WatchAll(*ref, *holder);
            return MCCodes::hintReplaced;
        }
        // An unresolved list takes what is added for ids as well.
        const ZVTBoolean bound = !(m_uFlags & MCItem::itemNL);
        if ((flags & accessAdd) && bound)
            incoming.DropEnded(m_xValues);
        hintObject = m_xValues.IsEmpty() ? nullptr : m_xValues.First();
        if (flags & accessAdd) {
            if (bound)
                DropGoing(m_xValues);
            // Lists grow an entry at a time as links are made; the heap's smallest block has room for
            // c_nFirstRoom pointers anyway, so asking for them at once spares the moves of growing 1, 2, 4.
            // With the room made first, an entry goes in only after its target is watched, as only the
            // subscription can still fail.
            if (values.IsEmpty())
                values.Reserve(std::max(c_nFirstRoom, m_xValues.Entries()));
            else
                values.MakeRoom(m_xValues.Entries());
            for (size_t i = 0; i < m_xValues.Entries(); ++i) {
                MCObject* target = m_xValues.At(i);
                if (target && bound)
                    target->AddSubscriber(holder, c_nHolder);
                ref->AddValue(target);
            }
            return MCCodes::hintAdded;
        }
        for (size_t i = 0; i < m_xValues.Entries(); ++i) {
            MCObject* target = m_xValues.At(i);
            if (ref->RemoveEntry_(target) && target && wasBound)
                target->RemoveSubscriber(holder, c_nHolder);
        }
        return MCCodes::hintRemoved;
    });
}

void MCVRefRawAccessor::SaveTo(MCStream& stream) {
    stream << static_cast<long>(m_xValues.Entries());
    for (size_t i = 0; i < m_xValues.Entries(); ++i)
        stream << IdOf(m_xValues.At(i), 0);
}

void MCVRefRawAccessor::RestoreFrom(MCStream& stream) {
    long count = 0;
    stream >> count;
    m_xValues.Clear();
    for (long i = 0; i < count && !stream.fail(); ++i) {
        long id = 0;
        stream >> id;
        if (stream.fail())
            break;
        MCObject* target = id != 0 ? MCObject::ResolveId(id) : nullptr;
        if (id != 0 && !target)
            MC_THROW_UNEXPECTED(c_xSourceFile);
        m_xValues.Append(target);
    }
}

ZVTBoolean MCVRefRawAccessor::ResolveIds(MCIdSpace& space) {
    ZVTSList<MCObject*> found;
    for (size_t i = 0; i < m_xValues.Entries(); ++i) {
        if (MCObject* target = space.ResolveId(PointerAsId(m_xValues.At(i))))
            found.Append(target);
    }
    m_xValues = found;
    return !found.IsEmpty();
}

template class MCSPropertyT<MCObject*>;
template class MCVPropertyT<MCObject*>;
template class MCSPtrPropertyT<MCObject>;
template class MCVPtrPropertyT<MCObject>;
template class MCSPropertyRawAccessorT<MCObject*>;
template class MCVPropertyRawAccessorT<MCObject*>;
