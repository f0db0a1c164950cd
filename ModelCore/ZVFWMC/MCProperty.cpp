#include "ModelCore/ZVFWMC/MCProperty.h"

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <typeinfo>
#include <utility>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistryPrivate.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCPropertyAccessor.h"
#include "ModelCore/ZVFWMC/MCStreams.h"
#include "foundation/ZVTPool.h"

// ---------------------------------------------------------------------------------------------------
// MCProperty

namespace {

// The block MCProperty::operator new gave last, until a constructor takes it.
__attribute__((tls_model("initial-exec"))) thread_local void* t_pvNewBlock = nullptr;

}  // namespace

void* MCProperty::operator new(std::size_t size) {
    void* block = MCItem::operator new(size);
    t_pvNewBlock = block;
    return block;
}

MCProperty::MCProperty(short type, MCObject* owner) : MCItem(type) {
    // Taken before anything can throw, so no later property finds it.
    const bool madeByNew = std::exchange(t_pvNewBlock, nullptr) == this;
    const bool absent = madeByNew && std::exchange(mc_detail::t_bAbsentType, false);
    SetFlagRaw(itemNulled, true);
    if (!owner)
        throw EXNullOwner();
    // An object's own id is embedded and made first, into an empty set: nothing to ask or search.
    const bool ownId = this == static_cast<MCProperty*>(&owner->m_xId);
    if (!madeByNew && (ownId || owner->IsContainedAddress(this))) {
        // An embedded property takes its registered flags here; a free one gets them from CreateItem.
        unsigned long registered = 0;
        if (MCFactoryRegistry::GetFlags(type, registered)) {
            if (registered & MCFactoryRegistry::flagPreFetch)
                SetFlagRaw(itemPreFetchType | itemPreFetch, true);
            if (registered & MCFactoryRegistry::flagItemFlag100)
                SetFlagRaw(itemFlag100, true);
        }
    }
    owner->AddProperty(this, absent || ownId);
}

MCProperty::~MCProperty() = default;
MCSProperty::~MCSProperty() = default;
MCVProperty::~MCVProperty() = default;

unsigned int MCProperty::Dump(std::ofstream& stream, long /*level*/) {
    const auto bit = [this](unsigned short flag) { return GetFlag(flag) ? '1' : '0'; };
    stream << "T=" << bit(itemTemp) << " SA=" << bit(itemSA) << " N=" << bit(itemNulled)
           << " PF=" << bit(itemPreFetch) << " NL=" << bit(itemNL) << ' ' << ClassName(typeid(*this))
           << ", Type=" << MCFactoryRegistry::Lookup(GetType(), ZVTString(ZVTString::c_pcNull)) << '('
           << GetType() << ')';
    return 0;
}

void mc_detail::DumpValue(std::ostream& stream, const ZvUCObjectId& value) {
    constexpr int c_nBitsPerByte = 8;
    constexpr int c_nBytesPerWord = 4;
    for (int word = 0; word < ZvUCId::c_nWordCount; ++word) {
        for (int byte = 0; byte < c_nBytesPerWord; ++byte)
            stream << static_cast<char>((value.GetWord(word) >> (byte * c_nBitsPerByte)) & 0xFF);
    }
}

void mc_detail::DumpPointer(std::ostream& stream, const void* value) {
    char text[2 + 2 * sizeof(std::uintptr_t) + 1];  // "0x", two digits a byte, the end
    std::snprintf(text, sizeof text, "0x%" PRIxPTR, reinterpret_cast<std::uintptr_t>(value));
    stream << text;
}

ZVTBoolean MCProperty::IsEqualTo(const MCProperty& other, ZVTBoolean flag) const {
    return IsEqualTo(&other, flag);
}

long MCProperty::GetParallelism(MCItem* first, MCItem* /*second*/, ZVTBoolean /*useCloneId*/) const {
    return first == nullptr || first->GetType() == GetType() ? 10 : 0;
}

void MCProperty::SaveTo(MCStream& stream) {
    stream << GetFlags();
}

void MCProperty::RestoreFrom(MCStream& stream, MCPropertyAccessor& accessor) {
    unsigned short flags = 0;
    stream >> flags;
    accessor.SetFlags(flags);
}

void MCProperty::RestoreFrom(MCStream& stream) {
    unsigned short flags = GetFlags();
    stream >> flags;
    SetFlagsRaw(flags);
}

ZVTBoolean MCProperty::ResolveIds(MCIdSpace& /*space*/, MCObject& /*owner*/, ZVTBoolean /*flag*/,
                                  MCIdConverter* /*converter*/) {
    return true;
}

void MCProperty::Rebind(MCIdSpace& /*space*/, MCObject& /*owner*/) {}

void MCProperty::UnsubscribeTargets_(MCObject& /*holder*/, unsigned int /*type*/) {}

void MCProperty::LetGo_(MCObject& /*holder*/, const MCObject& /*target*/) noexcept {}

void MCProperty::SetType(MCObject* /*object*/, short type) {
    MCItem::SetType(type);
}

ZVTBoolean MCProperty::SetFlag_(unsigned short& flag, ZVTBoolean /*on*/) {
    flag = static_cast<unsigned short>(flag & ~itemNulled);
    return true;
}

ZVTBoolean MCProperty::SetFlags_(unsigned short& flags) {
    flags = static_cast<unsigned short>(flags & ~itemNulled);
    if (GetFlag(itemPreFetch))
        flags = static_cast<unsigned short>(flags | itemPreFetch);
    return true;
}

// ---------------------------------------------------------------------------------------------------
// The segment chain shared by the property set and the heir set

namespace {

// Blocks of four slots, then the link to the next block; a null slot is free. A block is only ever
// added at the end and freed with the whole chain, so a cursor standing on a slot stays valid.
template <class T>
struct SegmentChain {
    static constexpr int c_nSlots = 4;
    // Where a cursor stands past the end: a slot of no chain that holds null, then a null link, so that
    // the value there is null and a further step ends there again. Never written.
    inline static T* c_apxPastTheEnd[2] = {};
    static constexpr std::size_t c_nBytes = sizeof(T*) * (c_nSlots + 1);

    static T** Next(T** segment) { return reinterpret_cast<T**>(segment[c_nSlots]); }

    static void Free(T** segment) {
        // Iterative: recursion would be as deep as the chain.
        while (segment) {
            T** next = Next(segment);
            ZVTPool::ReleasePacked(segment, c_nBytes);
            segment = next;
        }
    }

    // The first slot in chain order for which `match` holds, or null.
    template <class Match>
    static T** Find(T** first, Match match) {
        for (T** segment = first; segment; segment = Next(segment)) {
            for (int i = 0; i < c_nSlots; ++i) {
                if (match(&segment[i]))
                    return &segment[i];
            }
        }
        return nullptr;
    }

    // Links a zeroed block to the end of the chain (or starts it) and gives the block's first slot.
    static T** Grow(T**& first) {
        // From the pool: every object has at least one segment.
        auto** segment = static_cast<T**>(ZVTPool::AllocatePacked(c_nBytes));
        for (int i = 0; i <= c_nSlots; ++i)
            segment[i] = nullptr;
        if (!first) {
            first = segment;
            return segment;
        }
        T** last = first;
        while (Next(last))
            last = Next(last);
        last[c_nSlots] = reinterpret_cast<T*>(segment);
        return segment;
    }

    // The used slots of the chain.
    static unsigned short Count(T** first) {
        unsigned short count = 0;
        for (T** segment = first; segment; segment = Next(segment)) {
            for (int i = 0; i < c_nSlots; ++i)
                count = static_cast<unsigned short>(count + (segment[i] != nullptr));
        }
        return count;
    }

    // One cursor step over a chain that holds something (`empty` false): the first takes slot 0 untested,
    // later ones the next used slot; false at the end, where the cursor stands on c_apxPastTheEnd.
    static ZVTBoolean Step(T** first, bool empty, T**& current, unsigned short& left) {
        if (empty)
            return false;
        if (!current) {
            current = first;
            left = c_nSlots;
            return true;
        }
        for (;;) {
            ++current;
            if (--left == 0) {
                T** next = reinterpret_cast<T**>(*current);
                if (!next) {
                    current = c_apxPastTheEnd;
                    left = 1;
                    return false;
                }
                current = next;
                left = c_nSlots;
            }
            if (*current)
                return true;
        }
    }
};

using PropertyChain = SegmentChain<MCProperty>;
using HeirChain = SegmentChain<MCObject>;

MCProperty** SlotOfType(MCProperty** first, short type) {
    return PropertyChain::Find(first, [type](MCProperty** at) { return *at && (*at)->GetType() == type; });
}

}  // namespace

// ---------------------------------------------------------------------------------------------------
// MCPropertySet

static_assert(MCPropertySet::c_nSegmentSlots == PropertyChain::c_nSlots, "one segment layout");

MCPropertySet::~MCPropertySet() {
    PropertyChain::Free(PropertyChain::Next(First()));
}

unsigned short MCPropertySet::GetCount() const {
    return PropertyChain::Count(First());
}

ZVTBoolean MCPropertySet::Insert(MCProperty* property) {
    const short type = property->GetType();
    MCProperty** freeSlot = nullptr;
    // The whole chain: a property of the type may stand behind the first free slot.
    const auto duplicate = [&](MCProperty** slot) {
        if (*slot)
            return (*slot)->GetType() == type;
        if (!freeSlot)
            freeSlot = slot;
        return false;
    };
    if (PropertyChain::Find(First(), duplicate))
        return false;
    Place(freeSlot, property);
    return true;
}

void MCPropertySet::InsertAbsent(MCProperty* property) {
    Place(PropertyChain::Find(First(), [](MCProperty** at) { return *at == nullptr; }), property);
}

void MCPropertySet::Place(MCProperty** freeSlot, MCProperty* property) {
    if (!freeSlot) {
        MCProperty** first = First();
        freeSlot = PropertyChain::Grow(first);
    }
    *freeSlot = property;
}

ZVTBoolean MCPropertySet::Delete(MCProperty* property) {
    if (!property)
        return false;
    MCProperty** slot = PropertyChain::Find(First(), [property](MCProperty** at) { return *at == property; });
    if (!slot)
        return false;
    *slot = nullptr;
    return true;
}

ZVTBoolean MCPropertySet::Delete(short type) {
    MCProperty** slot = SlotOfType(First(), type);
    if (!slot)
        return false;
    *slot = nullptr;
    return true;
}

ZVTBoolean MCPropertySet::FindValue(short type, MCProperty*& found) const {
    MCProperty** slot = SlotOfType(First(), type);
    if (!slot)
        return false;
    found = *slot;
    return true;
}

ZVTBoolean MCPropertySet::Contains(short type) const {
    return SlotOfType(First(), type) != nullptr;
}

ZVTBoolean MCPropertySetIter::Advance() {
    MCProperty** first = m_pxSet->First();
    // Only the first step asks whether anything is there: later, a set emptied under the cursor has no
    // used slot ahead, so the step ends there all the same.
    const bool empty =
        !m_ppxCurrent && !PropertyChain::Find(first, [](MCProperty** at) { return *at != nullptr; });
    return PropertyChain::Step(first, empty, m_ppxCurrent, m_uLeft);
}

// ---------------------------------------------------------------------------------------------------
// MCHeirSet

MCHeirSet::~MCHeirSet() {
    HeirChain::Free(m_ppxFirstSegment);
}

ZVTBoolean MCHeirSet::Insert(MCObject* heir) {
    if (!heir)
        return false;
    MCObject** slot = HeirChain::Find(m_ppxFirstSegment, [](MCObject** at) { return *at == nullptr; });
    if (!slot)
        slot = HeirChain::Grow(m_ppxFirstSegment);
    *slot = heir;
    ++m_uCount;
    return true;
}

ZVTBoolean MCHeirSet::Delete(MCObject* heir) {
    if (!heir)
        return false;
    MCObject** slot = HeirChain::Find(m_ppxFirstSegment, [heir](MCObject** at) { return *at == heir; });
    if (!slot)
        return false;
    *slot = nullptr;
    --m_uCount;
    return true;
}

ZVTBoolean MCHeirSetIter::operator++() {
    return HeirChain::Step(m_pxSet->m_ppxFirstSegment, m_pxSet->GetCount() == 0, m_ppxCurrent, m_uLeft);
}
