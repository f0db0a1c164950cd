#include "ModelCore/ZVFWMC/MCVRefIter.h"

#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCRefProperty.h"

template class MCiVPropertyIterT<MCObject*>;
template class MCVPropertyIterT<MCObject*>;

// ---------------------------------------------------------------------------------------------------
// MCRefSettingVisitor

MCRefSettingVisitor::MCRefSettingVisitor(MCObject* owner) : MCRefSettingVisitor(owner, nullptr) {}

MCRefSettingVisitor::MCRefSettingVisitor(MCObject* owner, MCObject* value)
    : m_pxOwner(owner), m_pxValue(value) {}

MCRefSettingVisitor::~MCRefSettingVisitor() {
    delete m_pxSingleAccessor;
    delete m_pxListAccessor;
}

void MCRefSettingVisitor::SetValue(MCObject* value) {
    m_pxValue = value;
    if (m_pxSingleAccessor)
        m_pxSingleAccessor->SetValue(value);
    if (m_pxListAccessor)
        m_pxListAccessor->SetValue(value, MCPropertyAccessor::accessReplace);
}

void MCRefSettingVisitor::VisitType(MCSRef* property) {
    if (!m_pxOwner || !property)
        return;
    if (!m_pxSingleAccessor)
        m_pxSingleAccessor = new MCSRefAccessor(m_pxValue);
    m_pxSingleAccessor->SetPropertyValue(property, m_pxOwner, MCPropertyAccessor::accessAdd);
}

void MCRefSettingVisitor::VisitType(MCVRef* property) {
    if (!m_pxOwner || !property)
        return;
    if (!m_pxListAccessor)
        m_pxListAccessor = new MCVRefAccessor(m_pxValue);
    m_pxListAccessor->SetPropertyValue(property, m_pxOwner, MCPropertyAccessor::accessAdd);
}

// ---------------------------------------------------------------------------------------------------
// MCVRefIter

MCVRefIter::MCVRefIter(MCObject* object, short propertyType, ZVTFilter<MCObject*>* filter,
                       ZVTSorter<MCObject*>* sorter, ZVTBoolean unused)
    : MCVPropertyIterT<MCObject*>(object, propertyType, filter, sorter, unused) {}

MCVRefIter::MCVRefIter(ZVTSList<MCObject*>* list, ZVTFilter<MCObject*>* filter, ZVTSorter<MCObject*>* sorter,
                       ZVTBoolean unused)
    : MCVPropertyIterT<MCObject*>(list, filter, sorter, unused) {}

MCVRefIter::MCVRefIter(MCVRefIter& other)
    : MCVPropertyIterT<MCObject*>(other.m_pxList, other.m_pxFilter, other.m_pxSorter) {
    m_bFromObject = other.m_bFromObject;
    m_pxObject = other.m_pxObject;
    m_sPropertyType = other.m_sPropertyType;
}

MCVRefIter::~MCVRefIter() = default;

long MCVRefIter::GetCount() const {
    return MCVPropertyIterT<MCObject*>::GetCount();
}

ZVTBoolean MCVRefIter::operator++() {
    return MCVPropertyIterT<MCObject*>::operator++();
}

MCiVPropertyIterT<MCObject*>* MCVRefIter::AllocateImplementation_(ZVTSListRCIterT<MCObject*>* cursor,
                                                                  ZVTFilter<MCObject*>* filter,
                                                                  ZVTSorter<MCObject*>* sorter) {
    // Held here until the implementation holds it, so that a failing constructor does not leak it.
    ZVTReferenceUser hold(cursor);
    auto* implementation = new MCiVRefIter(cursor, filter, sorter);
    implementation->AddReference();
    return implementation;
}

MCiVPropertyIterT<MCObject*>* MCVRefIter::AllocateImplementation_(MCVPropertyT<MCObject*>* property,
                                                                  ZVTFilter<MCObject*>* filter,
                                                                  ZVTSorter<MCObject*>* sorter) {
    ZVTReferenceUser hold;
    return AllocateImplementation_(property->GetIterator(hold), filter, sorter);
}

// ---------------------------------------------------------------------------------------------------
// MCiVRefIter

MCiVRefIter::MCiVRefIter(ZVTSListRCIterT<MCObject*>* cursor, ZVTFilter<MCObject*>* filter,
                         ZVTSorter<MCObject*>* sorter)
    : MCiVPropertyIterT<MCObject*>(cursor, filter, sorter, DeferReset{}) {}

MCiVRefIter::~MCiVRefIter() {
    // The base's destructor would free the snapshot in the pointer form.
    ReleaseBuffer();
}

ZVTBoolean MCiVRefIter::Next_() {
    if (!MCiVPropertyIterT<MCObject*>::Next_())
        return false;
    // Two steps ahead the object, one step ahead (its object asked for a step ago) its properties, so that
    // the misses of a walk over targets all over the heap overlap instead of following one another.
    if (MCObject* const* later = Cursor()->Peek(2); later && *later)
        __builtin_prefetch(*later);
    if (MCObject* const* next = Cursor()->Peek(1); next && *next)
        (*next)->GetPropertySet().Prefetch();
    return true;
}

void MCiVRefIter::Rewind_() {
    MCiVPropertyIterT<MCObject*>::Rewind_();
    for (size_t ahead = 1; ahead <= 2; ++ahead) {
        if (MCObject* const* target = Cursor()->Peek(ahead); target && *target)
            __builtin_prefetch(*target);
    }
}

void* MCiVRefIter::SetBuffer_(MCObject** values, long count) {
    long* ids = new long[static_cast<size_t>(count)];
    for (long i = 0; i < count; ++i)
        ids[i] = values[i] ? values[i]->GetId() : 0;
    delete[] values;
    return ids;
}

MCObject* MCiVRefIter::GetBufferValue_(void* buffer, long index) const {
    if (!buffer || index < 0 || index >= m_lBufferCount)
        return nullptr;
    return MCObject::ResolveId(static_cast<long*>(buffer)[index]);
}

ZVTBoolean MCiVRefIter::IsValidBufferValue_(void* buffer, long index) {
    return GetBufferValue_(buffer, index) != nullptr;
}

void MCiVRefIter::FreeBuffer_(void* buffer) {
    delete[] static_cast<long*>(buffer);
}
