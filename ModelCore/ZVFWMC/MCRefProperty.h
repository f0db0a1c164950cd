#ifndef MCREFPROPERTY_H
#define MCREFPROPERTY_H

// References: properties whose value is another object (MCSRef) or a list of them (MCVRef).
//
// The holder subscribes to each target as reference holder (type 4), one count per reference and per
// list entry, so that it hears of the target's death in time to take the reference out. On a stream a
// reference is its target's id; after a restore the property holds the ids in the pointers' place
// (itemNL) until ResolveIds binds them. A reference holds its subscriptions only while it is bound:
// neither nulled nor holding ids. Nothing may dereference the value of an unbound reference.

#include <memory>
#include <typeinfo>

#include "ModelCore/ZVFWMC/MCPropertyAccessor.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTSList.h"

class MCIdConverter;
class MCIdSpace;
class MCObject;
class MCStream;

template <class T>
class MCSPtrPropertyT;
template <class T>
class MCVPtrPropertyT;

namespace mc_detail {
class RefListIndex;

/// Asks for the cache lines of `target` that a reference set reads first (its flags and subscriber
/// list), so that a far target's misses overlap the holder's side of the change (finding or making the
/// property, the rules). Null does nothing; a prefetch never faults.
inline void PrefetchTarget(const MCObject* target) {
#if defined(__GNUC__)
    if (target != nullptr) {
        __builtin_prefetch(target);
        __builtin_prefetch(reinterpret_cast<const char*>(target) + 64);
    }
#else
    (void)target;
#endif
}
}  // namespace mc_detail

/// A visitor of pointer properties to T: the list kind in the first slot, the single kind in the second.
template <class T>
class MODELCORE_API MCPtrPropertyVisitorT : public virtual MCVisitor {
public:
    virtual void VisitType(MCVPtrPropertyT<T>* property) = 0;
    virtual void VisitType(MCSPtrPropertyT<T>* property) = 0;
};

/// A single pointer to a T, which it does not own.
template <class T>
class MODELCORE_API MCSPtrPropertyT : public MCSPropertyT<T*> {
public:
    /// A nulled property holding null, entered into `owner`'s set.
    MCSPtrPropertyT(short type, MCObject* owner) : MCSPropertyT<T*>(type, owner) {}

    /// The property line and ", Value=" with the pointer in hexadecimal ("0x0" for null). Returns 0.
    unsigned int Dump(std::ofstream& stream, long level) override {
        MCProperty::Dump(stream, level);
        stream << ", Value=";
        mc_detail::DumpPointer(stream, this->m_xValue);
        return 0;
    }

    /// Lets an MCPtrPropertyVisitorT<T> visit; other visitors see nothing.
    void AcceptVisitor(MCVisitor* visitor) override {
        if (auto* typed = dynamic_cast<MCPtrPropertyVisitorT<T>*>(visitor))
            typed->VisitType(this);
    }
};

/// A list of pointers to T, which it does not own.
template <class T>
class MODELCORE_API MCVPtrPropertyT : public MCVPropertyT<T*> {
public:
    /// A nulled, empty property entered into `owner`'s set.
    MCVPtrPropertyT(short type, MCObject* owner) : MCVPropertyT<T*>(type, owner) {}

    /// The property line and ", Ptrs=" with each pointer in hexadecimal and a blank. Returns 0.
    unsigned int Dump(std::ofstream& stream, long level) override {
        MCProperty::Dump(stream, level);
        stream << ", Ptrs=";
        for (size_t i = 0; i < this->m_xValues.Entries(); ++i) {
            mc_detail::DumpPointer(stream, this->m_xValues.At(i));
            stream << ' ';
        }
        return 0;
    }

    /// Lets an MCPtrPropertyVisitorT<T> visit; other visitors see nothing.
    void AcceptVisitor(MCVisitor* visitor) override {
        if (auto* typed = dynamic_cast<MCPtrPropertyVisitorT<T>*>(visitor))
            typed->VisitType(this);
    }
};

/// A reference to one object, type 89 and its aliases. GetValue is a pointer only while the property is
/// bound; change it through MCSRefAccessor (or the raw MCSRefRawAccessor), which keeps the subscription.
class MODELCORE_API MCSRef : public MCSPtrPropertyT<MCObject> {
public:
    /// A nulled reference to nothing, entered into `owner`'s set.
    MCSRef(short type, MCObject* owner);
    /// Leaves the subscription alone: the holder's Expunge or NullProperty has dropped it.
    ~MCSRef() override;

    /// The property line and ", Id=" with the target's id (the stored id while unresolved), or
    /// "<null reference>" for no target or a nulled reference. Reads no target that is not bound. Returns 0.
    unsigned int Dump(std::ofstream& stream, long level) override;

    /// True for a reference of the same class and type whose target has the same id (both null counts as
    /// equal), so that references in two models compare; stored ids compare as they are.
    ZVTBoolean IsEqualTo(const MCProperty* other, ZVTBoolean flag) const override;
    using MCProperty::IsEqualTo;
    /// Writes the flags and the target's id: the stored id while unresolved, 0 for null.
    void SaveTo(MCStream& stream) override;
    /// Reads the flags into `accessor` and hands the stored id, as a pointer, to an active MCSRefAccessor
    /// only; this property is not touched.
    void RestoreFrom(MCStream& stream, MCPropertyAccessor& accessor) override;
    /// Reads flags and id into this property and marks it itemNL; no subscription is made.
    void RestoreFrom(MCStream& stream) override;
    /// Binds a stored id to the object of that id in `space`, or of the id `converter` gives for it,
    /// through a raw accessor (no rule, no event). A missing target leaves null with itemNulled (and
    /// itemNL, which the next call clears) and answers false; a bound reference answers true.
    /// EXUnexpected when CreateRawAccessor does not give an MCSRefRawAccessor.
    ZVTBoolean ResolveIds(MCIdSpace& space, MCObject& owner, ZVTBoolean strict,
                          MCIdConverter* converter) override;
    /// Moves the reference to the object bearing its target's id in `space` (a copy's space); a target
    /// without one there stays. Nothing for a reference that is not bound.
    void Rebind(MCIdSpace& space, MCObject& owner) override;
    /// A new MCSRefAccessor; the caller owns it.
    MCPropertyAccessor* CreateAccessor() const override;
    /// A new MCSRefRawAccessor; the caller owns it.
    MCPropertyAccessor* CreateRawAccessor() const override;
    /// Reference visitors join with their unit; until then no visitor sees a reference.
    void AcceptVisitor(MCVisitor* visitor) override;

    /// Whether the value is a live pointer that the holder's subscription counts.
    ZVTBoolean IsBound() const { return !GetFlag(itemNulled | itemNL); }
    /// True: a reference.
    ZVTBoolean IsReference() const override { return true; }

private:
    friend class MCSRefRawAccessor;

    void UnsubscribeTargets_(MCObject& holder, unsigned int type) override;
    void LetGo_(MCObject& holder, const MCObject& target) noexcept override;
};

namespace mc_detail {
/// Whether `property` is of class T itself, told by the address of its type information: no compare of
/// names and no call into a host's class. Another library's copy of the type information could only be
/// missed, which sends the property the way any other class goes, never to a wrong cast.
template <class T>
bool IsExactly(const MCProperty& property) {
    return &typeid(property) == &typeid(T);
}
/// `property` as the core's single reference when it is of that class itself, else null.
inline const MCSRef* AsCoreRef(const MCProperty* property) {
    return property != nullptr && IsExactly<MCSRef>(*property) ? static_cast<const MCSRef*>(property)
                                                               : nullptr;
}
}  // namespace mc_detail

/// A list of references, type 90 and its aliases, in insertion order; a target may stand more than once
/// and is then counted once per entry. Change it through MCVRefAccessor or MCVRefRawAccessor.
class MODELCORE_API MCVRef : public MCVPtrPropertyT<MCObject> {
public:
    /// A nulled, empty list entered into `owner`'s set.
    MCVRef(short type, MCObject* owner);
    /// Leaves the subscriptions alone: the holder's Expunge or NullProperty has dropped them.
    ~MCVRef() override;

    /// The property line and ", Ids=" with, for each entry, its id as MCSRef writes it and a blank.
    /// Returns 0.
    unsigned int Dump(std::ofstream& stream, long level) override;

    /// True for a list of the same class and type whose targets have the same ids pair by pair.
    ZVTBoolean IsEqualTo(const MCProperty* other, ZVTBoolean flag) const override;
    using MCProperty::IsEqualTo;
    /// Writes the flags, the count and each target's id (0 for null, the stored id while unresolved).
    void SaveTo(MCStream& stream) override;
    /// Reads the flags into `accessor` and hands the stored ids, as pointers, to an active MCVRefAccessor
    /// only; this property is not touched.
    void RestoreFrom(MCStream& stream, MCPropertyAccessor& accessor) override;
    /// Reads flags and ids into this property and marks it itemNL; no subscription is made.
    void RestoreFrom(MCStream& stream) override;
    /// Binds the stored ids as MCSRef does, through a raw accessor. An id without a target is dropped,
    /// or with `strict` leaves the list of ids as it was, sets itemNulled and answers false. Answers true
    /// when no entry was dropped (an id of 0 has no target either).
    ZVTBoolean ResolveIds(MCIdSpace& space, MCObject& owner, ZVTBoolean strict,
                          MCIdConverter* converter) override;
    /// Moves each entry to the object bearing its id in `space`, in one replace; nothing for a list that
    /// is not bound.
    void Rebind(MCIdSpace& space, MCObject& owner) override;
    /// A new MCVRefAccessor; the caller owns it.
    MCPropertyAccessor* CreateAccessor() const override;
    /// A new MCVRefRawAccessor; the caller owns it.
    MCPropertyAccessor* CreateRawAccessor() const override;
    /// Reference visitors join with their unit; until then no visitor sees a reference.
    void AcceptVisitor(MCVisitor* visitor) override;

    /// Whether the entries are live pointers that the holder's subscriptions count.
    ZVTBoolean IsBound() const { return !GetFlag(itemNulled | itemNL); }
    /// How many entries are `target`: linear in a short list, near constant in a long one that has
    /// been searched often since it last grew or was replaced.
    long Occurrences(const MCObject* target) const;
    /// True: a reference.
    ZVTBoolean IsReference() const override { return true; }

private:
    friend class MCVRefRawAccessor;

    void UnsubscribeTargets_(MCObject& holder, unsigned int type) override;
    void LetGo_(MCObject& holder, const MCObject& target) noexcept override;
    // Removes the first entry that is `target`; false when there is none.
    ZVTBoolean RemoveEntry_(const MCObject* target);
    // Every change of the entries but a removal through RemoveEntry_ calls this first.
    void EntriesChanged_();
    // The index to search with, made once searches have cost enough; null for a short list.
    mc_detail::RefListIndex* Index_() const;

    // Only a long list that has been searched has one, so a short list pays one null pointer.
    mutable std::unique_ptr<mc_detail::RefListIndex> m_pxIndex;
};

/// An accessor that can carry stored ids in its values' place (after RestoreFrom with an accessor).
class MODELCORE_API MCResolvingAccessor {
public:
    virtual ~MCResolvingAccessor();
    /// Takes the carried values for ids and looks them up in `space`; see each class for what changes.
    virtual ZVTBoolean ResolveIds(MCIdSpace& space) = 0;
};

/// Moves one target into an MCSRef without rules or events (restore, resolution, paste), keeping the
/// holder's subscription: the old target loses a count, the new one gains one. The holder is the object
/// passed to SetPropertyValue; without one nothing changes and the result is false.
class MODELCORE_API MCSRefRawAccessor : public MCSPropertyRawAccessorT<MCObject*>,
                                        public MCResolvingAccessor {
public:
    MCSRefRawAccessor() = default;
    explicit MCSRefRawAccessor(MCObject* value) : MCSPropertyRawAccessorT<MCObject*>(value) {}
    ~MCSRefRawAccessor() override;

    /// As for any single value: the target (the stored id while unresolved) and the flags.
    ZVTBoolean GetPropertyValue(MCProperty* property, MCObject* object) override;
    /// As for any single value (an equal target changes nothing without accessForce), and a value
    /// written without accessFlags binds the reference: itemNL goes. A target that has begun its expunge
    /// is written as null, as it would never tell this holder of its end; so is one a pre-edit rule ended.
    ZVTBoolean SetPropertyValue(MCProperty* property, MCObject* holder, long flags) override;
    /// True when the carried value, taken for an id, names an object in `space`; nothing changes.
    ZVTBoolean ResolveIds(MCIdSpace& space) override;

protected:
    friend class MCFactoryRegistry;
    /// SetPropertyValue on `ref`, just made for this change, when no rule can take part in it.
    ZVTBoolean SetMadeValue(MCSRef* ref, MCObject* holder, long flags);

private:
    // Writes the carried target into `ref` and moves the holder's subscription to it; the hint code.
    long Apply(MCSRef& ref, MCObject& holder, long flags);
};

/// An MCSRefRawAccessor that fires the rules and tells the subscribers.
class MODELCORE_API MCSRefAccessor : public MCSRefRawAccessor {
public:
    MCSRefAccessor() { m_bActive = true; }
    /// Starts loading the target: an edit is the accessor's next use.
    explicit MCSRefAccessor(MCObject* value) : MCSRefRawAccessor(value) {
        m_bActive = true;
        mc_detail::PrefetchTarget(value);
    }
};

/// Moves targets into an MCVRef without rules or events, keeping one subscription count per entry. The
/// event of an active change carries the hint code (1 added, 2 removed, 3 replaced) and, for add and
/// remove, the first carried value as hint object.
class MODELCORE_API MCVRefRawAccessor : public MCVPropertyRawAccessorT<MCObject*>,
                                        public MCResolvingAccessor {
public:
    MCVRefRawAccessor() = default;
    /// Carries the one value.
    explicit MCVRefRawAccessor(MCObject* const& value) : MCVPropertyRawAccessorT<MCObject*>(value) {}
    /// Carries a copy of `values`, nothing for null.
    explicit MCVRefRawAccessor(const ZVTSList<MCObject*>* values);
    ~MCVRefRawAccessor() override;

    /// As for any list: the entries (the stored ids while unresolved) and the flags.
    ZVTBoolean GetPropertyValue(MCProperty* property, MCObject* object) override;
    /// As for any list; with accessReplace and without accessFlags a value write binds the list (itemNL
    /// goes), while adding to or removing from an unresolved list takes the values for ids. A nulled list
    /// starts empty: what stood behind the flag is no longer watched. Targets that have begun their
    /// expunge, or that a pre-edit rule ended, are left out of an add or replace; a hint object that a
    /// post-edit rule ended reaches the subscribers as null.
    ZVTBoolean SetPropertyValue(MCProperty* property, MCObject* holder, long flags) override;
    /// Writes the count and each carried object's id, 0 for null.
    void SaveTo(MCStream& stream) override;
    /// Replaces the carried list with the objects of the stored ids in the global id space; 0 gives null.
    /// EXUnexpected for an id without an object, the list then partly filled.
    void RestoreFrom(MCStream& stream) override;
    /// Takes the carried values for ids and replaces them by the objects found in `space`, dropping the
    /// others; true when at least one was found.
    ZVTBoolean ResolveIds(MCIdSpace& space) override;

private:
    static void WatchAll(MCVRef& ref, MCObject& holder);
};

/// An MCVRefRawAccessor that fires the rules and tells the subscribers.
class MODELCORE_API MCVRefAccessor : public MCVRefRawAccessor {
public:
    MCVRefAccessor() { m_bActive = true; }
    /// Starts loading the target: an edit is the accessor's next use.
    explicit MCVRefAccessor(MCObject* const& value) : MCVRefRawAccessor(value) {
        m_bActive = true;
        mc_detail::PrefetchTarget(value);
    }
    explicit MCVRefAccessor(const ZVTSList<MCObject*>* values) : MCVRefRawAccessor(values) {
        m_bActive = true;
    }
};

// Instantiated once, in the library.
extern template class MCSPropertyT<MCObject*>;
extern template class MCVPropertyT<MCObject*>;
extern template class MCSPtrPropertyT<MCObject>;
extern template class MCVPtrPropertyT<MCObject>;
extern template class MCSPropertyRawAccessorT<MCObject*>;
extern template class MCVPropertyRawAccessorT<MCObject*>;

#endif
