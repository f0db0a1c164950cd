#ifndef MCOBJECTFILTERS_H
#define MCOBJECTFILTERS_H

// Iteration over an object's properties, its ownees and the values of a list property; the filters and
// the sorter the core supplies; the strategies of object equality.
//
// Every iterator is a small handle over a counted implementation (ZVTIter plus ZVTReference). Without a
// sorter a walk runs on the live container; with one it runs on a snapshot taken at construction or at
// Reset(true). Iterators keep nothing alive: a handle must end before the object or list it walks, and
// filters and sorters, which stay with their makers, must outlive it.

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCProperty.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTIter.h"
#include "foundation/ZVTReference.h"
#include "foundation/ZVTSList.h"
#include "foundation/ZVTString.h"

class MCItem;
class MCiOwneeListIter;
class MCiPropertyListIter;

// ---------------------------------------------------------------------------------------------------
// Handles

/// Walks the properties of one object in slot order. Unsorted, it runs on the live set, and the current
/// property may be nulled during the walk. Copies share one implementation and so one cursor.
class MODELCORE_API MCPropertyListIter {
public:
    /// An iterator on `object`'s properties, before the first; no implementation for a null object.
    MCPropertyListIter(const MCObject* object, ZVTFilter<MCProperty*>* filter = nullptr,
                       ZVTSorter<MCProperty*>* sorter = nullptr);
    /// Shares the other's implementation and cursor.
    MCPropertyListIter(const MCPropertyListIter& other);
    /// Shares the other's implementation and cursor, letting go of its own.
    MCPropertyListIter& operator=(const MCPropertyListIter& other);
    /// Lets go of the implementation; the last holder destroys it.
    virtual ~MCPropertyListIter();

    /// The count of the walk (ZVTIter::GetCount); -1 without an implementation.
    long GetCount() const;
    /// The current property; null before the first step and without an implementation.
    MCProperty* GetValue() const;
    /// Back before the first property; `rebuild` recounts, or takes a new snapshot when sorted.
    void Reset(ZVTBoolean rebuild);
    /// Steps to the next property that passes the filter; false at the end or without an implementation.
    ZVTBoolean operator++();
    /// Makes the implementation on the object unless there is one.
    void AllocateImplementation();
    /// Lets go of the implementation; the handle stays empty until AllocateImplementation.
    void FreeImplementation();

private:
    MCiPropertyListIter* m_pxImplementation = nullptr;
    const MCObject* m_pxObject;
    ZVTFilter<MCProperty*>* m_pxFilter;
    ZVTSorter<MCProperty*>* m_pxSorter;
};

/// Walks the ownees of one object, oldest first. Unsorted, it runs on the live ring and reads each
/// ownee's successor as it steps onto it: the current ownee may be removed or expunged during the walk,
/// and ownees added behind the cursor are reached, but not once the cursor stands on the youngest; the
/// ownee after the current one must not go. A sorted walk holds plain pointers: an ownee expunged after
/// the snapshot must not be reached. Copies share one implementation and so one cursor.
class MODELCORE_API MCOwneeListIter {
public:
    /// An iterator on `owner`'s ownees, before the first; a null owner has none.
    MCOwneeListIter(MCObject* owner, ZVTFilter<MCObject*>* filter = nullptr,
                    ZVTSorter<MCObject*>* sorter = nullptr);
    /// Shares the other's implementation and cursor.
    MCOwneeListIter(const MCOwneeListIter& other);
    /// Shares the other's implementation and cursor, letting go of its own.
    MCOwneeListIter& operator=(const MCOwneeListIter& other);
    /// Lets go of the implementation; the last holder destroys it.
    virtual ~MCOwneeListIter();

    /// The count of the walk (ZVTIter::GetCount); unfiltered and unsorted it is linear in the ownees.
    long GetCount() const;
    /// The current ownee; null before the first step and past the end.
    MCObject* GetValue() const;
    /// Back before the first ownee; `rebuild` recounts, or takes a new snapshot when sorted.
    void Reset(ZVTBoolean rebuild);
    /// Steps to the next ownee that passes the filter; false at the end.
    ZVTBoolean operator++();

private:
    MCiOwneeListIter* m_pxImplementation;
};

/// The common base of the value iterators; on its own it has nothing to walk.
class MODELCORE_API MCPropertyIter {
public:
    MCPropertyIter() = default;
    MCPropertyIter(const MCPropertyIter&) = delete;
    MCPropertyIter& operator=(const MCPropertyIter&) = delete;
    /// Virtual: value iterators are used through this base.
    virtual ~MCPropertyIter();

    /// The number of values the walk gives; the base has none.
    virtual long GetCount() const;
    /// Steps to the next value; the base gives false.
    virtual ZVTBoolean operator++();
};

template <class T>
class MCiVPropertyIterT;

/// Walks the values of a list, given directly or as the list property of a type on an object. Nothing
/// is looked up until the first GetCount, step or GetValue; an object without such a property then
/// gives an empty walk, and GetValue throws EXInvalidIter. The list and the property must outlive the
/// handle and must not change while it walks unsorted.
template <class T>
class MODELCORE_API MCVPropertyIterT : public MCPropertyIter {
public:
    /// An iterator on `list` (null: an empty walk); the last argument has no effect.
    explicit MCVPropertyIterT(ZVTSList<T>* list, ZVTFilter<T>* filter = nullptr,
                              ZVTSorter<T>* sorter = nullptr, ZVTBoolean unused = false);
    /// An iterator on the list property of `propertyType` on `object`, nulled ones counting as absent; the
    /// last argument has no effect.
    MCVPropertyIterT(MCObject* object, short propertyType, ZVTFilter<T>* filter = nullptr,
                     ZVTSorter<T>* sorter = nullptr, ZVTBoolean unused = false);
    /// Lets go of the implementation.
    ~MCVPropertyIterT() override;

    /// The count of the walk; 0 when there is nothing to walk.
    long GetCount() const override;
    /// Steps to the next value that passes the filter; false at the end or when there is nothing to walk.
    ZVTBoolean operator++() override;
    /// The current value; T() before the first step. EXInvalidIter when there is nothing to walk.
    T GetValue() const;

protected:
    /// Makes the counted implementation on `cursor`, which it then holds; the result has one reference.
    virtual MCiVPropertyIterT<T>* AllocateImplementation_(ZVTSListRCIterT<T>* cursor, ZVTFilter<T>* filter,
                                                          ZVTSorter<T>* sorter);
    /// Makes the counted implementation on a cursor of `property`; the result has one reference.
    virtual MCiVPropertyIterT<T>* AllocateImplementation_(MCVPropertyT<T>* property, ZVTFilter<T>* filter,
                                                          ZVTSorter<T>* sorter);

    // What the walk runs over, kept for the lookup of the first use (and for a derived copy).
    ZVTBoolean m_bFromObject;
    MCObject* m_pxObject;
    short m_sPropertyType;
    ZVTSList<T>* m_pxList;
    ZVTFilter<T>* m_pxFilter;
    ZVTSorter<T>* m_pxSorter;

private:
    // The lookup of the first use; the implementation, or null when there is nothing to walk.
    MCiVPropertyIterT<T>* Implementation() const;

    mutable MCiVPropertyIterT<T>* m_pxImplementation = nullptr;
};

// ---------------------------------------------------------------------------------------------------
// Value iterator implementation

/// The counted implementation behind MCVPropertyIterT: a walk over a list cursor that it holds.
template <class T>
class MODELCORE_API MCiVPropertyIterT : public ZVTIter<T>, public ZVTReference {
public:
    /// Holds `cursor` and takes the first count or snapshot.
    MCiVPropertyIterT(ZVTSListRCIterT<T>* cursor, ZVTFilter<T>* filter, ZVTSorter<T>* sorter);

    ZVTBoolean Next_() override;
    ZVTBoolean Seek_(long index) override;
    /// Linear: the cursor does not tell the length of its list.
    long Entries_() const override;
    long Index_() const override { return m_lIndex; }
    /// T() off the list.
    T Current_() const override;
    void CurrentTo_(T& value) const override { value = Current_(); }
    void Rewind_() override;

protected:
    /// Holds `cursor` without taking a count or snapshot, for a class whose snapshot has another form:
    /// the base's constructor cannot reach its overrides. The maker resets it before use.
    struct DeferReset {};
    MCiVPropertyIterT(ZVTSListRCIterT<T>* cursor, ZVTFilter<T>* filter, ZVTSorter<T>* sorter, DeferReset)
        : ZVTIter<T>(filter, sorter), m_xCursor(cursor) {}

    ZVTSListRCIterT<T>* Cursor() const { return static_cast<ZVTSListRCIterT<T>*>(m_xCursor()); }

private:
    ZVTReferenceUser m_xCursor;
    long m_lIndex = -1;  // -1 off the list
};

template <class T>
MCiVPropertyIterT<T>::MCiVPropertyIterT(ZVTSListRCIterT<T>* cursor, ZVTFilter<T>* filter,
                                        ZVTSorter<T>* sorter)
    : ZVTIter<T>(filter, sorter), m_xCursor(cursor) {
    this->Reset(true);
}

template <class T>
ZVTBoolean MCiVPropertyIterT<T>::Next_() {
    if (m_lIndex == -2 || !++*Cursor()) {
        m_lIndex = -2;  // past the end: a list cursor would start over from there
        return false;
    }
    ++m_lIndex;
    return true;
}

template <class T>
ZVTBoolean MCiVPropertyIterT<T>::Seek_(long index) {
    Rewind_();
    while (m_lIndex < index) {
        if (!Next_())
            return false;
    }
    return index >= 0;
}

template <class T>
long MCiVPropertyIterT<T>::Entries_() const {
    ZVTSListIter<T> probe(*Cursor());
    probe.Reset();
    long count = 0;
    while (++probe)
        ++count;
    return count;
}

template <class T>
T MCiVPropertyIterT<T>::Current_() const {
    return m_lIndex < 0 ? T() : Cursor()->Key();
}

template <class T>
void MCiVPropertyIterT<T>::Rewind_() {
    Cursor()->Reset();
    m_lIndex = -1;
}

// ---------------------------------------------------------------------------------------------------
// MCVPropertyIterT

template <class T>
MCVPropertyIterT<T>::MCVPropertyIterT(ZVTSList<T>* list, ZVTFilter<T>* filter, ZVTSorter<T>* sorter,
                                      ZVTBoolean /*unused*/)
    : m_bFromObject(false),
      m_pxObject(nullptr),
      m_sPropertyType(0),
      m_pxList(list),
      m_pxFilter(filter),
      m_pxSorter(sorter) {}

template <class T>
MCVPropertyIterT<T>::MCVPropertyIterT(MCObject* object, short propertyType, ZVTFilter<T>* filter,
                                      ZVTSorter<T>* sorter, ZVTBoolean /*unused*/)
    : m_bFromObject(true),
      m_pxObject(object),
      m_sPropertyType(propertyType),
      m_pxList(nullptr),
      m_pxFilter(filter),
      m_pxSorter(sorter) {}

template <class T>
MCVPropertyIterT<T>::~MCVPropertyIterT() {
    if (m_pxImplementation)
        m_pxImplementation->RemoveReference();
}

template <class T>
MCiVPropertyIterT<T>* MCVPropertyIterT<T>::Implementation() const {
    if (m_pxImplementation)
        return m_pxImplementation;
    auto* self = const_cast<MCVPropertyIterT*>(this);
    if (m_bFromObject) {
        if (m_pxObject && m_sPropertyType != 0) {
            auto* property = const_cast<MCProperty*>(m_pxObject->FindProperty(m_sPropertyType, false));
            if (auto* list = dynamic_cast<MCVPropertyT<T>*>(property))
                m_pxImplementation = self->AllocateImplementation_(list, m_pxFilter, m_pxSorter);
        }
    } else if (m_pxList) {
        m_pxImplementation =
            self->AllocateImplementation_(new ZVTSListRCIterT<T>(*m_pxList), m_pxFilter, m_pxSorter);
    }
    if (m_pxImplementation)
        m_pxImplementation->Reset(true);
    return m_pxImplementation;
}

template <class T>
long MCVPropertyIterT<T>::GetCount() const {
    MCiVPropertyIterT<T>* implementation = Implementation();
    return implementation ? implementation->GetCount() : 0;
}

template <class T>
ZVTBoolean MCVPropertyIterT<T>::operator++() {
    MCiVPropertyIterT<T>* implementation = Implementation();
    return implementation != nullptr && ++*implementation;
}

template <class T>
T MCVPropertyIterT<T>::GetValue() const {
    MCiVPropertyIterT<T>* implementation = Implementation();
    if (!implementation)
        throw EXInvalidIter();
    return implementation->GetValue();
}

template <class T>
MCiVPropertyIterT<T>* MCVPropertyIterT<T>::AllocateImplementation_(ZVTSListRCIterT<T>* cursor,
                                                                   ZVTFilter<T>* filter,
                                                                   ZVTSorter<T>* sorter) {
    // Held here until the implementation holds it, so that a failing constructor does not leak it.
    ZVTReferenceUser hold(cursor);
    auto* implementation = new MCiVPropertyIterT<T>(cursor, filter, sorter);
    implementation->AddReference();
    return implementation;
}

template <class T>
MCiVPropertyIterT<T>* MCVPropertyIterT<T>::AllocateImplementation_(MCVPropertyT<T>* property,
                                                                   ZVTFilter<T>* filter,
                                                                   ZVTSorter<T>* sorter) {
    ZVTReferenceUser hold;
    return AllocateImplementation_(property->GetIterator(hold), filter, sorter);
}

// ---------------------------------------------------------------------------------------------------
// Filters and the sorter

/// Accepts the ownees that are of `type` or derive from it.
class MODELCORE_API MCOwneeFilterOnType : public ZVTFilter<MCObject*> {
public:
    explicit MCOwneeFilterOnType(short type) : m_sType(type) {}
    /// IsType(type, rttiDerived); false for null.
    ZVTBoolean Test(MCObject*& object) override;

private:
    short m_sType;
};

/// Accepts the ownees of exactly `objectType` that have (`wanted`) or lack (not `wanted`) a property of
/// `propertyType`, a nulled one counting as absent; objects of any other type, derived ones too, never.
class MODELCORE_API MCOwneeFilterOnPropExistence : public ZVTFilter<MCObject*> {
public:
    MCOwneeFilterOnPropExistence(short objectType, short propertyType, ZVTBoolean wanted)
        : m_sObjectType(objectType), m_sPropertyType(propertyType), m_bWanted(wanted) {}
    ZVTBoolean Test(MCObject*& object) override;

private:
    short m_sObjectType;
    short m_sPropertyType;
    ZVTBoolean m_bWanted;
};

/// Accepts the ownees of exactly `objectType` whose single reference of `propertyType` points to
/// `value`; an absent or nulled reference matches nothing.
class MODELCORE_API MCOwneeFilterOnPropRefValue : public ZVTFilter<MCObject*> {
public:
    MCOwneeFilterOnPropRefValue(short objectType, short propertyType, MCObject* value)
        : m_sObjectType(objectType), m_sPropertyType(propertyType), m_pxValue(value) {}
    ZVTBoolean Test(MCObject*& object) override;

private:
    short m_sObjectType;
    short m_sPropertyType;
    MCObject* m_pxValue;
};

/// Accepts the properties that hold a value (itemNulled clear).
class MODELCORE_API MCPropertyFilterOnNotNulled : public ZVTFilter<MCProperty*> {
public:
    ZVTBoolean Test(MCProperty*& property) override;
};

/// The base of the filters on items: one test that also serves the ownee and the property iterators,
/// whose elements are items of a narrower class.
class MODELCORE_API MCItemFilter : public ZVTFilter<MCItem*>,
                                   public ZVTFilter<MCObject*>,
                                   public ZVTFilter<MCProperty*> {
public:
    /// The item test.
    ZVTBoolean Test(MCItem*& item) override = 0;
    /// The item test on an ownee.
    ZVTBoolean Test(MCObject*& object) override;
    /// The item test on a property.
    ZVTBoolean Test(MCProperty*& property) override;
};

/// Accepts the items whose own type code is on the list; the concrete type behind an alias is not
/// looked at. Null list or item: false. The list stays with the caller.
class MODELCORE_API MCItemFilterOnPresenceInList : public MCItemFilter {
public:
    explicit MCItemFilterOnPresenceInList(ZVTSList<short>* types) : m_pxTypes(types) {}
    using MCItemFilter::Test;
    ZVTBoolean Test(MCItem*& item) override;

private:
    ZVTSList<short>* m_pxTypes;
};

/// Accepts the items whose type code is not on the list, nor the concrete type behind it when it is an
/// alias; so not the negation of the presence filter. Null list or item: false. The list stays with the
/// caller.
class MODELCORE_API MCItemFilterOnAbsenceInList : public MCItemFilter {
public:
    explicit MCItemFilterOnAbsenceInList(ZVTSList<short>* types) : m_pxTypes(types) {}
    using MCItemFilter::Test;
    ZVTBoolean Test(MCItem*& item) override;

private:
    ZVTSList<short>* m_pxTypes;
};

/// Accepts the items that every filter of the list accepts, asked in list order up to the first refusal;
/// an empty list accepts all, a null one nothing. The list and the filters stay with the caller.
class MODELCORE_API MCItemFilterOfFilters : public MCItemFilter {
public:
    explicit MCItemFilterOfFilters(ZVTSList<ZVTFilter<MCItem*>*>* filters) : m_pxFilters(filters) {}
    using MCItemFilter::Test;
    ZVTBoolean Test(MCItem*& item) override;

private:
    ZVTSList<ZVTFilter<MCItem*>*>* m_pxFilters;
};

/// Orders properties by type code as signed numbers, so user-defined (negative) types come first.
class MODELCORE_API MCPropertySortOnType : public ZVTSorter<MCProperty*> {
public:
    /// Sorts `count` properties in place; none of them may be null.
    void Sort(MCProperty** values, long count) override;

protected:
    /// -1, 0 or 1 by the type codes of the two properties.
    static int Compare(MCProperty** first, MCProperty** second);
};

// ---------------------------------------------------------------------------------------------------
// Equality strategies

/// Decides the equality of two whole objects in place of MCObject::IsEqualTo's property comparison.
class MODELCORE_API MCObjectEqualStrategy {
public:
    /// Virtual: strategies are used through this base.
    virtual ~MCObjectEqualStrategy();
    /// Whether `mine` and `theirs` count as equal.
    virtual ZVTBoolean AreEqual(const MCObject* mine, const MCObject* theirs) = 0;
};

/// Decides the equality of two properties of the same type code, and which properties take part.
class MODELCORE_API MCPropertyEqualStrategy {
public:
    /// Virtual: strategies are used through this base.
    virtual ~MCPropertyEqualStrategy();
    /// Whether property `mine` of `object` and `theirs` of `otherObject` count as equal; neither is null.
    virtual ZVTBoolean AreEqual(const MCObject* object, const MCProperty* mine, const MCObject* otherObject,
                                const MCProperty* theirs) = 0;
    /// The filter of the properties compared, kept by the strategy; null (the base) lets every property,
    /// the id included, take part.
    virtual ZVTFilter<MCProperty*>* GetFilter() const;
};

/// Compares the two properties' values with the property comparison; the objects are not read.
class MODELCORE_API MCPropertyValueEqualStrategy : public MCPropertyEqualStrategy {
public:
    /// `flag` is handed to MCProperty::IsEqualTo.
    explicit MCPropertyValueEqualStrategy(ZVTBoolean flag) : m_bFlag(flag) {}
    /// mine->IsEqualTo(theirs, flag); false for a null `mine`.
    ZVTBoolean AreEqual(const MCObject* object, const MCProperty* mine, const MCObject* otherObject,
                        const MCProperty* theirs) override;

private:
    ZVTBoolean m_bFlag;
};

// The core's value types are instantiated once, in the library.
extern template class MCiVPropertyIterT<long>;
extern template class MCiVPropertyIterT<float>;
extern template class MCiVPropertyIterT<ZVTString>;
extern template class MCVPropertyIterT<long>;
extern template class MCVPropertyIterT<float>;
extern template class MCVPropertyIterT<ZVTString>;

#endif
