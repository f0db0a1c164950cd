#ifndef MCVREFITER_H
#define MCVREFITER_H

// Two services over the reference properties: a double dispatch that tells the single kind from the list
// kind, with a visitor that writes one target into either; and a walk over a list reference whose sorted
// form keeps ids, so that it survives targets that die while it runs.

#include "ModelCore/ZVFWMC/MCObjectFilters.h"
#include "ModelCore/ZVFWMC/MCVisitor.h"

class MCObject;
class MCSRef;
class MCVRef;
class MCSRefAccessor;
class MCVRefAccessor;

/// A visitor for the two kinds of reference property: MCSRef::AcceptVisitor and MCVRef::AcceptVisitor
/// call the slot of their kind; any other property ignores it.
class MODELCORE_API MCRefVisitor : public virtual MCVisitor {
public:
    /// Called with a list reference.
    virtual void VisitType(MCVRef* property) = 0;
    /// Called with a single reference.
    virtual void VisitType(MCSRef* property) = 0;
};

/// Writes one target into every reference it visits, through active accessors, so each visit runs the
/// rules and tells the subscribers: a single reference takes the target, a list reference has it
/// appended. The owner is the object that holds the visited properties; without one nothing changes.
class MODELCORE_API MCRefSettingVisitor : public MCRefVisitor {
public:
    /// A visitor that writes null into the references of `owner` until SetValue gives a target.
    explicit MCRefSettingVisitor(MCObject* owner);
    /// A visitor that writes `value` into the references of `owner`.
    MCRefSettingVisitor(MCObject* owner, MCObject* value);
    /// Deletes the accessors it made.
    ~MCRefSettingVisitor() override;

    MCObject* GetOwner() const { return m_pxOwner; }
    void SetOwner(MCObject* owner) { m_pxOwner = owner; }
    MCObject* GetValue() const { return m_pxValue; }
    /// The target of later visits; accessors already made carry it from now on.
    void SetValue(MCObject* value);

    /// Appends the target to `property` of the owner; nothing for a null owner or property.
    void VisitType(MCVRef* property) override;
    /// Sets `property` of the owner to the target; nothing for a null owner or property.
    void VisitType(MCSRef* property) override;

private:
    MCObject* m_pxOwner;
    MCObject* m_pxValue;
    MCSRefAccessor* m_pxSingleAccessor = nullptr;  // made at the first visit of its kind, owned
    MCVRefAccessor* m_pxListAccessor = nullptr;
};

/// Walks the targets of a list reference, given as the property of a type on an object or as a list.
/// Unsorted, it runs over the live list, which must not change while it walks. Sorted, it keeps the
/// targets' ids and looks each up when it steps there, passing over a target that has died since the
/// walk began; only the first step takes its target unchecked, so GetValue may then answer null.
class MODELCORE_API MCVRefIter : public MCVPropertyIterT<MCObject*> {
public:
    /// A walk over the list reference of `propertyType` on `object`; the last argument has no effect.
    MCVRefIter(MCObject* object, short propertyType, ZVTFilter<MCObject*>* filter = nullptr,
               ZVTSorter<MCObject*>* sorter = nullptr, ZVTBoolean unused = false);
    /// A walk over `list`, which must outlive the walk; the last argument has no effect.
    explicit MCVRefIter(ZVTSList<MCObject*>* list, ZVTFilter<MCObject*>* filter = nullptr,
                        ZVTSorter<MCObject*>* sorter = nullptr, ZVTBoolean unused = false);
    /// A walk over what `other` walks, from the start; filter and sorter are shared.
    MCVRefIter(MCVRefIter& other);
    ~MCVRefIter() override;

    long GetCount() const override;
    ZVTBoolean operator++() override;

protected:
    /// Both make an MCiVRefIter.
    MCiVPropertyIterT<MCObject*>* AllocateImplementation_(ZVTSListRCIterT<MCObject*>* cursor,
                                                          ZVTFilter<MCObject*>* filter,
                                                          ZVTSorter<MCObject*>* sorter) override;
    MCiVPropertyIterT<MCObject*>* AllocateImplementation_(MCVPropertyT<MCObject*>* property,
                                                          ZVTFilter<MCObject*>* filter,
                                                          ZVTSorter<MCObject*>* sorter) override;
};

/// The implementation behind MCVRefIter: its sorted snapshot is an array of ids, each resolved in the
/// global id space when the walk reads it.
class MODELCORE_API MCiVRefIter : public MCiVPropertyIterT<MCObject*> {
public:
    MCiVRefIter(ZVTSListRCIterT<MCObject*>* cursor, ZVTFilter<MCObject*>* filter,
                ZVTSorter<MCObject*>* sorter);
    ~MCiVRefIter() override;

    /// Steps the live walk and asks the memory for the next target, whose object and properties a
    /// template reads next: in a large model it lies anywhere in the heap.
    ZVTBoolean Next_() override;
    /// Goes back before the first target and asks the memory for the first two.
    void Rewind_() override;
    /// Keeps the ids of `values`, which it frees.
    void* SetBuffer_(MCObject** values, long count) override;
    /// The live object of the id at `index`; null when it has died or `index` is outside.
    MCObject* GetBufferValue_(void* buffer, long index) const override;
    /// Whether the id at `index` still names a live object.
    ZVTBoolean IsValidBufferValue_(void* buffer, long index) override;

protected:
    void FreeBuffer_(void* buffer) override;
};

extern template class MCiVPropertyIterT<MCObject*>;
extern template class MCVPropertyIterT<MCObject*>;

#endif
