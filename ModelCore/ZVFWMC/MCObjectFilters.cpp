#include "ModelCore/ZVFWMC/MCObjectFilters.h"

#include <cstdlib>

#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCRefProperty.h"

// ---------------------------------------------------------------------------------------------------
// Implementations of the property and ownee handles

/// The counted implementation behind MCPropertyListIter: a walk over the cursor of an object's set.
class MCiPropertyListIter : public ZVTIter<MCProperty*>, public ZVTReference {
public:
    MCiPropertyListIter(const MCObject& object, ZVTFilter<MCProperty*>* filter,
                        ZVTSorter<MCProperty*>* sorter)
        : ZVTIter<MCProperty*>(filter, sorter), m_xCursor(object.GetPropertySet()) {
        Reset(true);
    }

    ZVTBoolean Next_() override { return ++m_xCursor; }
    ZVTBoolean Seek_(long /*index*/) override { return false; }
    long Entries_() const override { return m_xCursor.GetCount(); }
    long Index_() const override { return 0; }
    MCProperty* Current_() const override { return m_xCursor.GetValue(); }
    void CurrentTo_(MCProperty*& value) const override { value = m_xCursor.GetValue(); }
    void Rewind_() override { m_xCursor.Reset(); }

private:
    MCPropertySetIter m_xCursor;
};

/// The counted implementation behind MCOwneeListIter: a walk over the owner's ring of ownees.
class MCiOwneeListIter : public ZVTIter<MCObject*>, public ZVTReference {
public:
    MCiOwneeListIter(MCObject* owner, ZVTFilter<MCObject*>* filter, ZVTSorter<MCObject*>* sorter)
        : ZVTIter<MCObject*>(filter, sorter), m_pxOwner(owner) {
        Reset(true);
    }

    ZVTBoolean Next_() override {
        if (m_lIndex == -1)
            m_pxCurrent = m_pxOwner ? m_pxOwner->GetFirstOwnee() : nullptr;
        else
            m_pxCurrent = m_pxNext;
        // Read now, so that the current ownee may leave the ring before the next step.
        m_pxNext = m_pxCurrent ? m_pxCurrent->GetNextSibling() : nullptr;
        ++m_lIndex;
        return m_pxCurrent != nullptr;
    }
    // ZVTIter only steps; nothing seeks a cursor that lives behind a handle.
    ZVTBoolean Seek_(long /*index*/) override { return false; }
    long Entries_() const override { return m_pxOwner ? m_pxOwner->GetOwneeCount() : 0; }
    long Index_() const override { return m_lIndex; }
    MCObject* Current_() const override { return m_pxCurrent; }
    void CurrentTo_(MCObject*& value) const override { value = m_pxCurrent; }
    void Rewind_() override {
        m_pxCurrent = m_pxNext = nullptr;
        m_lIndex = -1;
    }

private:
    MCObject* m_pxOwner;
    MCObject* m_pxCurrent = nullptr;
    MCObject* m_pxNext = nullptr;
    long m_lIndex = -1;  // -1 before the first step
};

// ---------------------------------------------------------------------------------------------------
// MCPropertyListIter

MCPropertyListIter::MCPropertyListIter(const MCObject* object, ZVTFilter<MCProperty*>* filter,
                                       ZVTSorter<MCProperty*>* sorter)
    : m_pxObject(object), m_pxFilter(filter), m_pxSorter(sorter) {
    AllocateImplementation();
}

MCPropertyListIter::MCPropertyListIter(const MCPropertyListIter& other)
    : m_pxImplementation(other.m_pxImplementation),
      m_pxObject(other.m_pxObject),
      m_pxFilter(other.m_pxFilter),
      m_pxSorter(other.m_pxSorter) {
    if (m_pxImplementation)
        m_pxImplementation->AddReference();
}

MCPropertyListIter& MCPropertyListIter::operator=(const MCPropertyListIter& other) {
    // Counted first: letting go of our own may destroy the other's when both are one.
    MCiPropertyListIter* implementation = other.m_pxImplementation;
    if (implementation)
        implementation->AddReference();
    FreeImplementation();
    m_pxImplementation = implementation;
    m_pxObject = other.m_pxObject;
    m_pxFilter = other.m_pxFilter;
    m_pxSorter = other.m_pxSorter;
    return *this;
}

MCPropertyListIter::~MCPropertyListIter() {
    FreeImplementation();
}

void MCPropertyListIter::AllocateImplementation() {
    if (m_pxImplementation || !m_pxObject)
        return;
    m_pxImplementation = new MCiPropertyListIter(*m_pxObject, m_pxFilter, m_pxSorter);
    m_pxImplementation->AddReference();
}

void MCPropertyListIter::FreeImplementation() {
    if (m_pxImplementation)
        m_pxImplementation->RemoveReference();
    m_pxImplementation = nullptr;
}

long MCPropertyListIter::GetCount() const {
    return m_pxImplementation ? m_pxImplementation->GetCount() : -1;
}

MCProperty* MCPropertyListIter::GetValue() const {
    return m_pxImplementation ? m_pxImplementation->GetValue() : nullptr;
}

void MCPropertyListIter::Reset(ZVTBoolean rebuild) {
    if (m_pxImplementation)
        m_pxImplementation->Reset(rebuild);
}

ZVTBoolean MCPropertyListIter::operator++() {
    return m_pxImplementation != nullptr && ++*m_pxImplementation;
}

// ---------------------------------------------------------------------------------------------------
// MCOwneeListIter

MCOwneeListIter::MCOwneeListIter(MCObject* owner, ZVTFilter<MCObject*>* filter, ZVTSorter<MCObject*>* sorter)
    : m_pxImplementation(new MCiOwneeListIter(owner, filter, sorter)) {
    m_pxImplementation->AddReference();
}

MCOwneeListIter::MCOwneeListIter(const MCOwneeListIter& other)
    : m_pxImplementation(other.m_pxImplementation) {
    m_pxImplementation->AddReference();
}

MCOwneeListIter& MCOwneeListIter::operator=(const MCOwneeListIter& other) {
    other.m_pxImplementation->AddReference();
    m_pxImplementation->RemoveReference();
    m_pxImplementation = other.m_pxImplementation;
    return *this;
}

MCOwneeListIter::~MCOwneeListIter() {
    m_pxImplementation->RemoveReference();
}

long MCOwneeListIter::GetCount() const {
    return m_pxImplementation->GetCount();
}

MCObject* MCOwneeListIter::GetValue() const {
    return m_pxImplementation->GetValue();
}

void MCOwneeListIter::Reset(ZVTBoolean rebuild) {
    m_pxImplementation->Reset(rebuild);
}

ZVTBoolean MCOwneeListIter::operator++() {
    return ++*m_pxImplementation;
}

// ---------------------------------------------------------------------------------------------------
// MCPropertyIter

MCPropertyIter::~MCPropertyIter() = default;

long MCPropertyIter::GetCount() const {
    return 0;
}

ZVTBoolean MCPropertyIter::operator++() {
    return false;
}

// ---------------------------------------------------------------------------------------------------
// Filters

ZVTBoolean MCOwneeFilterOnType::Test(MCObject*& object) {
    return object != nullptr && object->IsType(m_sType, MCItem::rttiDerived);
}

ZVTBoolean MCOwneeFilterOnPropExistence::Test(MCObject*& object) {
    if (object == nullptr || object->GetType() != m_sObjectType)
        return false;
    return (object->FindProperty(m_sPropertyType, false) != nullptr) == m_bWanted;
}

ZVTBoolean MCOwneeFilterOnPropRefValue::Test(MCObject*& object) {
    if (object == nullptr || object->GetType() != m_sObjectType)
        return false;
    MCSRefAccessor reference;
    return object->GetProperty(m_sPropertyType, reference) && reference.GetValue() == m_pxValue;
}

ZVTBoolean MCPropertyFilterOnNotNulled::Test(MCProperty*& property) {
    return property != nullptr && !property->GetFlag(MCItem::itemNulled);
}

ZVTBoolean MCItemFilter::Test(MCObject*& object) {
    MCItem* item = object;
    return Test(item);
}

ZVTBoolean MCItemFilter::Test(MCProperty*& property) {
    MCItem* item = property;
    return Test(item);
}

ZVTBoolean MCItemFilterOnPresenceInList::Test(MCItem*& item) {
    return m_pxTypes != nullptr && item != nullptr && m_pxTypes->Contains(item->GetType());
}

ZVTBoolean MCItemFilterOnAbsenceInList::Test(MCItem*& item) {
    if (m_pxTypes == nullptr || item == nullptr)
        return false;
    const short type = item->GetType();
    return !m_pxTypes->Contains(type) && !m_pxTypes->Contains(MCFactoryRegistry::Translate(type, false));
}

ZVTBoolean MCItemFilterOfFilters::Test(MCItem*& item) {
    if (m_pxFilters == nullptr)
        return false;
    for (size_t i = 0; i < m_pxFilters->Entries(); ++i) {
        if (!m_pxFilters->At(i)->Test(item))
            return false;
    }
    return true;
}

// ---------------------------------------------------------------------------------------------------
// MCPropertySortOnType

void MCPropertySortOnType::Sort(MCProperty** values, long count) {
    if (values == nullptr || count < 2)
        return;
    std::qsort(values, static_cast<size_t>(count), sizeof(MCProperty*),
               [](const void* first, const void* second) {
                   return Compare(static_cast<MCProperty**>(const_cast<void*>(first)),
                                  static_cast<MCProperty**>(const_cast<void*>(second)));
               });
}

int MCPropertySortOnType::Compare(MCProperty** first, MCProperty** second) {
    const short left = (*first)->GetType();
    const short right = (*second)->GetType();
    return left < right ? -1 : (left > right ? 1 : 0);
}

// ---------------------------------------------------------------------------------------------------
// Equality strategies

MCObjectEqualStrategy::~MCObjectEqualStrategy() = default;

MCPropertyEqualStrategy::~MCPropertyEqualStrategy() = default;

ZVTFilter<MCProperty*>* MCPropertyEqualStrategy::GetFilter() const {
    return nullptr;
}

ZVTBoolean MCPropertyValueEqualStrategy::AreEqual(const MCObject* /*object*/, const MCProperty* mine,
                                                  const MCObject* /*otherObject*/, const MCProperty* theirs) {
    return mine != nullptr && mine->IsEqualTo(theirs, m_bFlag);
}

// ---------------------------------------------------------------------------------------------------
// The core's value iterators

template class MCiVPropertyIterT<long>;
template class MCiVPropertyIterT<float>;
template class MCiVPropertyIterT<ZVTString>;
template class MCVPropertyIterT<long>;
template class MCVPropertyIterT<float>;
template class MCVPropertyIterT<ZVTString>;
