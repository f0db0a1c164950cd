#include "ModelCore/ZVFWMC/MCProperty.h"

#include <cstring>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCPropertyAccessor.h"
#include "ModelCore/ZVFWMC/MCStreams.h"

// ---------------------------------------------------------------------------------------------------
// MCProperty

MCProperty::MCProperty(short type, MCObject* owner) : MCItem(type) {
    SetFlagRaw(itemNulled, true);
    if (!owner)
        throw EXNullOwner();
    if (owner->IsContainedAddress(this)) {
        // An embedded property takes its registered flags here; a free one gets them from CreateItem.
        unsigned long registered = 0;
        if (MCFactoryRegistry::GetFlags(type, registered)) {
            if (registered & MCFactoryRegistry::flagPreFetch)
                SetFlagRaw(itemPreFetchType | itemPreFetch, true);
            if (registered & MCFactoryRegistry::flagItemFlag100)
                SetFlagRaw(itemFlag100, true);
        }
    }
    owner->AddProperty(this);
}

MCProperty::~MCProperty() = default;
MCSProperty::~MCSProperty() = default;
MCVProperty::~MCVProperty() = default;

unsigned int MCProperty::Dump(std::ofstream& /*stream*/, long /*level*/) {
    return 0;
}

ZVTBoolean MCProperty::IsEqualTo(const MCProperty& other, ZVTBoolean flag) const {
    return IsEqualTo(&other, flag);
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
// MCPropertySet

MCPropertySet::~MCPropertySet() {
    DeleteSegment(m_ppxFirstSegment);
}

MCProperty** MCPropertySet::CreateSegment() {
    auto** segment = new MCProperty*[c_nSlots + 1];
    std::memset(segment, 0, sizeof(MCProperty*) * (c_nSlots + 1));
    return segment;
}

void MCPropertySet::DeleteSegment(MCProperty** segment) {
    // Iterative: a set may grow long chains, and recursion would be as deep as the chain.
    while (segment) {
        auto** next = reinterpret_cast<MCProperty**>(segment[c_nSlots]);
        delete[] segment;
        segment = next;
    }
}

ZVTBoolean MCPropertySet::Insert(MCProperty* property) {
    if (!m_ppxFirstSegment) {
        m_ppxFirstSegment = CreateSegment();
        m_ppxFirstSegment[0] = property;
        ++m_uCount;
        return true;
    }
    const short type = property->GetType();
    MCProperty** freeSlot = nullptr;
    MCProperty** last = nullptr;
    // The whole chain: a property of the type may stand behind the first free slot.
    for (MCProperty** segment = m_ppxFirstSegment; segment;
         segment = reinterpret_cast<MCProperty**>(segment[c_nSlots])) {
        for (int i = 0; i < c_nSlots; ++i) {
            if (!segment[i]) {
                if (!freeSlot)
                    freeSlot = &segment[i];
            } else if (segment[i]->GetType() == type) {
                return false;
            }
        }
        last = segment;
    }
    if (!freeSlot) {
        MCProperty** segment = CreateSegment();
        last[c_nSlots] = reinterpret_cast<MCProperty*>(segment);
        freeSlot = &segment[0];
    }
    *freeSlot = property;
    ++m_uCount;
    return true;
}

MCProperty** MCPropertySet::FindSlot(short type) const {
    for (MCProperty** segment = m_ppxFirstSegment; segment;
         segment = reinterpret_cast<MCProperty**>(segment[c_nSlots])) {
        for (int i = 0; i < c_nSlots; ++i) {
            if (segment[i] && segment[i]->GetType() == type)
                return &segment[i];
        }
    }
    return nullptr;
}

ZVTBoolean MCPropertySet::Delete(MCProperty* property) {
    for (MCProperty** segment = m_ppxFirstSegment; segment;
         segment = reinterpret_cast<MCProperty**>(segment[c_nSlots])) {
        for (int i = 0; i < c_nSlots; ++i) {
            if (segment[i] == property && property) {
                segment[i] = nullptr;
                --m_uCount;
                return true;
            }
        }
    }
    return false;
}

ZVTBoolean MCPropertySet::Delete(short type) {
    MCProperty** slot = FindSlot(type);
    if (!slot)
        return false;
    *slot = nullptr;
    --m_uCount;
    return true;
}

ZVTBoolean MCPropertySet::FindValue(short type, MCProperty*& found) const {
    MCProperty** slot = FindSlot(type);
    if (!slot)
        return false;
    found = *slot;
    return true;
}

ZVTBoolean MCPropertySet::Contains(short type) const {
    return FindSlot(type) != nullptr;
}

// ---------------------------------------------------------------------------------------------------
// MCPropertySetIter

ZVTBoolean MCPropertySetIter::operator++() {
    if (m_pxSet->GetCount() == 0)
        return false;
    if (!m_ppxCurrent) {
        m_ppxCurrent = m_pxSet->m_ppxFirstSegment;
        m_uLeft = MCPropertySet::c_nSlots;
        return true;
    }
    for (;;) {
        ++m_ppxCurrent;
        if (--m_uLeft == 0) {
            // The cursor stands on the link to the next segment.
            auto** next = reinterpret_cast<MCProperty**>(*m_ppxCurrent);
            if (!next) {
                --m_ppxCurrent;  // stay on the last slot, so GetValue never reads the link
                ++m_uLeft;
                return false;
            }
            m_ppxCurrent = next;
            m_uLeft = MCPropertySet::c_nSlots;
        }
        if (*m_ppxCurrent)
            return true;
    }
}
