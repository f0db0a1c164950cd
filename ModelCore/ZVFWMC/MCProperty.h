#ifndef MCPROPERTY_H
#define MCPROPERTY_H

// Properties, the typed values an object holds, and the property set inside every object.
//
// The value templates are declared here; the members that need the accessor classes (making accessors,
// reading into one) are defined in MCPropertyAccessor.h. A host that instantiates its own value type
// includes that header (ModelCore.h does).

#include <cstddef>
#include <fstream>
#include <type_traits>
#include <utility>

#include "ModelCore/ZVFWMC/MCItem.h"
#include "ModelCore/ZVFWMC/MCVisitor.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTSList.h"
#include "foundation/ZVTString.h"
#include "foundation/ZvUCId.h"

class MCIdConverter;
class MCIdSpace;
class MCPropertyAccessor;
class MCStream;
class tgt_target;

/// A typed value held by one object, in a free heap block the object owns or embedded in the object.
/// Born nulled; made only by its factory, which enters it into its owner's set.
class MODELCORE_API MCProperty : public MCItem {
public:
    /// Writes the property line: "T=", " SA=", " N=", " PF=" and " NL=" each with 1 or 0 for the flags
    /// itemTemp, itemSA, itemNulled, itemPreFetch and itemNL, then the class name, ", Type=", the type's
    /// name and "(<code>)"; no newline. Every value class adds its value. Returns 0; `level` is not read.
    unsigned int Dump(std::ofstream& stream, long level) override;

    /// Same type, same value class and equal value(s); the flag has no effect and flags are not compared.
    virtual ZVTBoolean IsEqualTo(const MCProperty& other, ZVTBoolean flag) const;
    /// The pointer form of the comparison; false for null.
    virtual ZVTBoolean IsEqualTo(const MCProperty* other, ZVTBoolean flag) const = 0;
    using MCItem::IsEqualTo;
    /// How well `first` pairs with this property: 10 for null or the same type code, 0 otherwise.
    long GetParallelism(MCItem* first, MCItem* second, ZVTBoolean useCloneId) const override;

    /// Writes the flag word; the value classes then write the value unless it is calculated.
    virtual void SaveTo(MCStream& stream);
    /// Reads what SaveTo wrote and hands it to `accessor` without touching this property: the base the
    /// flag word, the value classes then the value, which reaches only an active accessor of their class.
    virtual void RestoreFrom(MCStream& stream, MCPropertyAccessor& accessor);
    /// Reads the flag word into this property, raw; the value classes then read the value.
    virtual void RestoreFrom(MCStream& stream);
    /// Resolves stored ids into objects; plain values have none and answer true.
    virtual ZVTBoolean ResolveIds(MCIdSpace& space, MCObject& owner, ZVTBoolean flag,
                                  MCIdConverter* converter);
    /// Binds stored ids again after a copy; plain values do nothing.
    virtual void Rebind(MCIdSpace& space, MCObject& owner);
    /// A new active accessor of this property's class; the caller owns it.
    virtual MCPropertyAccessor* CreateAccessor() const = 0;
    /// A new raw accessor of this property's class; the caller owns it.
    virtual MCPropertyAccessor* CreateRawAccessor() const = 0;
    /// Lets a visitor of this value kind visit the property; other visitors see nothing.
    virtual void AcceptVisitor(MCVisitor* visitor) = 0;

    /// Whether the value refers to other objects (single and list references); answered without a cast,
    /// for the walks that run on every death.
    virtual ZVTBoolean IsReference() const { return false; }

    /// MCItem::SetType; the object is not used.
    void SetType(MCObject* object, short type);
    using MCItem::SetType;
    /// Whether the host's temporary flag is set.
    ZVTBoolean GetTempFlag() const { return GetFlag(itemTemp); }

    /// MCItem's pool block, remembered until the property built in it runs its constructor: a property
    /// made by `new` is free, so only one built anywhere else asks whether it lies inside its owner.
    static void* operator new(std::size_t size);
    /// Gives the block back to the pool, as MCItem's does.
    static void operator delete(void* block, std::size_t size) noexcept {
        MCItem::operator delete(block, size);
    }

protected:
    /// Enters the property into `owner`'s set, nulled; an embedded property takes its registered flags
    /// here. EXNullOwner without an owner, EXDuplicateProperty when the owner has one of `type`.
    MCProperty(short type, MCObject* owner);
    ~MCProperty() override;

private:
    friend class MCObject;
    friend class MCPropertyAccessor;

    // SetFlag cannot change the nulled state; SetFlags clears it and cannot clear the calculated state.
    ZVTBoolean SetFlag_(unsigned short& flag, ZVTBoolean on) override;
    ZVTBoolean SetFlags_(unsigned short& flags) override;

    // For MCObject's clean-ups: a reference's targets drop `holder` as subscriber of `type` and the
    // reference forgets them; plain values have none. Virtual so that an object's end pays no cast per
    // property.
    virtual void UnsubscribeTargets_(MCObject& holder, unsigned int type);
    // For an end that could not be announced (out of memory): the reference lets go of `target` and its
    // holder's subscription there, without rules, events or allocation; plain values hold no target.
    virtual void LetGo_(MCObject& holder, const MCObject& target) noexcept;
};

/// The kind of single-valued properties.
class MODELCORE_API MCSProperty : public MCProperty {
protected:
    MCSProperty(short type, MCObject* owner) : MCProperty(type, owner) {}
    ~MCSProperty() override;
};

/// The kind of list-valued properties.
class MODELCORE_API MCVProperty : public MCProperty {
protected:
    MCVProperty(short type, MCObject* owner) : MCProperty(type, owner) {}
    ~MCVProperty() override;
};

template <class T>
class MCSPropertyT;
template <class T>
class MCVPropertyT;

/// A visitor of one value type's properties: the list kind in the first slot, the single kind in the
/// second.
template <class T>
class MODELCORE_API MCPropertyVisitorT : public virtual MCVisitor {
public:
    virtual void VisitType(MCVPropertyT<T>* property) = 0;
    virtual void VisitType(MCSPropertyT<T>* property) = 0;
};

/// A single value of type T. The value belongs to the accessors: SetValue fires nothing.
template <class T>
class MODELCORE_API MCSPropertyT : public MCSProperty {
public:
    /// A nulled property of `type` entered into `owner`'s set.
    MCSPropertyT(short type, MCObject* owner) : MCSProperty(type, owner), m_xValue() {}

    /// The stored value; no semantics run, not even for a calculated property.
    T GetValue() const { return m_xValue; }
    /// Stores the value and clears itemNulled; no event, no semantics.
    void SetValue(const T& value) {
        m_xValue = value;
        SetFlagRaw(itemNulled, false);
    }

    /// The property line and ", Value=" with the value as a file stream writes it (an origin id as its 20
    /// bytes); a value type that a std::ostream cannot write shows nothing behind the label. Returns 0.
    unsigned int Dump(std::ofstream& stream, long level) override;
    ZVTBoolean IsEqualTo(const MCProperty* other, ZVTBoolean flag) const override;
    using MCProperty::IsEqualTo;
    void SaveTo(MCStream& stream) override;
    void RestoreFrom(MCStream& stream, MCPropertyAccessor& accessor) override;
    void RestoreFrom(MCStream& stream) override;
    MCPropertyAccessor* CreateAccessor() const override;
    MCPropertyAccessor* CreateRawAccessor() const override;
    void AcceptVisitor(MCVisitor* visitor) override;

    /// Public so that an object can embed the property as a member; free ones go through their object.
    ~MCSPropertyT() override = default;

protected:
    T m_xValue;
};

/// A list of values of type T in insertion order; duplicates are allowed.
template <class T>
class MODELCORE_API MCVPropertyT : public MCVProperty {
public:
    /// A nulled, empty property of `type` entered into `owner`'s set.
    MCVPropertyT(short type, MCObject* owner) : MCVProperty(type, owner) {}

    /// A copy of the list.
    ZVTSList<T> GetValue() const { return m_xValues; }
    /// Replaces the list and clears itemNulled.
    void SetValue(const ZVTSList<T>& values) {
        m_xValues = values;
        SetFlagRaw(itemNulled, false);
    }
    /// Appends and clears itemNulled.
    void AddValue(const T& value) {
        m_xValues.Append(value);
        SetFlagRaw(itemNulled, false);
    }
    /// Removes the first equal value; an emptied list stays set.
    void RemoveValue(const T& value) { m_xValues.Remove(value); }
    /// The number of values.
    long GetCount() const { return static_cast<long>(m_xValues.Entries()); }
    /// A new counted cursor on the list, held by `user`, which destroys it.
    ZVTSListRCIterT<T>* GetIterator(ZVTReferenceUser& user) {
        auto* iterator = new ZVTSListRCIterT<T>(m_xValues);
        user = iterator;
        return iterator;
    }

    /// The property line and ", Values=" with each value and a blank, as MCSPropertyT writes a value.
    /// Returns 0.
    unsigned int Dump(std::ofstream& stream, long level) override;
    ZVTBoolean IsEqualTo(const MCProperty* other, ZVTBoolean flag) const override;
    using MCProperty::IsEqualTo;
    void SaveTo(MCStream& stream) override;
    void RestoreFrom(MCStream& stream, MCPropertyAccessor& accessor) override;
    void RestoreFrom(MCStream& stream) override;
    MCPropertyAccessor* CreateAccessor() const override;
    MCPropertyAccessor* CreateRawAccessor() const override;
    void AcceptVisitor(MCVisitor* visitor) override;

    /// Public so that an object can embed the property as a member; free ones go through their object.
    ~MCVPropertyT() override = default;

protected:
    ZVTSList<T> m_xValues;
};

class MCPropertySetIter;

/// The properties of one object in a chain of four-slot segments, tuned for objects with a handful of
/// properties: a freed slot is reused, segments go only with the set. The set does not own the
/// properties. At most one property per type; lookups are linear.
class MODELCORE_API MCPropertySet {
public:
    /// Property slots per segment of the set.
    static constexpr int c_nSegmentSlots = 4;

    MCPropertySet() = default;
    /// Frees the segments, not the properties.
    ~MCPropertySet();
    MCPropertySet(const MCPropertySet&) = delete;
    MCPropertySet& operator=(const MCPropertySet&) = delete;

    /// The number of properties, counted over the slots: a set holds a handful.
    unsigned short GetCount() const;
    /// Puts `property` in the lowest free slot; false, and nothing changed, when one of its type is there.
    ZVTBoolean Insert(MCProperty* property);
    /// Frees the slot of `property`; false when it is not in the set.
    ZVTBoolean Delete(MCProperty* property);
    /// Frees the slot of the property of `type`; false when there is none.
    ZVTBoolean Delete(short type);
    /// The property of `type` into `found`; false, and `found` untouched, when there is none.
    ZVTBoolean FindValue(short type, MCProperty*& found) const;
    /// Whether a property of `type` is in the set.
    ZVTBoolean Contains(short type) const;
    /// Asks the memory for the properties of the first segment, for a reader about to look them up.
    void Prefetch() const {
        // A property with a text value spans two lines.
        for (int slot = 0; slot < c_nSegmentSlots; ++slot) {
            if (const char* property = reinterpret_cast<const char*>(m_apxFirstSegment[slot])) {
                __builtin_prefetch(property);
                __builtin_prefetch(property + 64);
            }
        }
    }

    /// As Prefetch, only each property's first line: its class, type, flags and a reference's value, all
    /// that a search by type or kind reads.
    void PrefetchHeads() const {
        for (int slot = 0; slot < c_nSegmentSlots; ++slot)
            __builtin_prefetch(m_apxFirstSegment[slot]);
    }

private:
    friend class MCPropertySetIter;
    // An expunge reads ahead the references of the objects it will end next.
    friend class MCObject;

    // The first segment; its slots are filled in place.
    MCProperty** First() const { return const_cast<MCProperty**>(m_apxFirstSegment); }
    // Insert for a property whose type the set is known not to hold: the lowest free slot, unsearched.
    void InsertAbsent(MCProperty* property);
    // Puts `property` in `freeSlot`, or in a new segment's first slot when that is null.
    void Place(MCProperty** freeSlot, MCProperty* property);

    // Segments of four property slots, then the link to the next segment. The first lives in the set:
    // every object fills it (its id takes slot 0), and there it shares the object's cache lines. No count
    // is kept: the slots tell it, and beside them it would cost every object 8 bytes.
    MCProperty* m_apxFirstSegment[c_nSegmentSlots + 1] = {};
};

/// A cursor over the used slots of a set in slot order. Slot 0 of the first segment is taken as used:
/// in an object it holds the id property, which never leaves.
class MODELCORE_API MCPropertySetIter {
public:
    /// A cursor before the first property of `set`.
    explicit MCPropertySetIter(const MCPropertySet& set) : m_pxSet(&set) {}

    /// Steps to the next used slot; false at the end or on an empty set.
    ZVTBoolean operator++() {
        // Inline only the common step, to a used slot of the same segment: walks over every object's
        // properties take it for most of their steps.
        if (m_ppxCurrent && m_uLeft > 1 && m_ppxCurrent[1]) {
            ++m_ppxCurrent;
            --m_uLeft;
            return true;
        }
        return Advance();
    }
    /// The property in the current slot, null before the first step and after the last.
    MCProperty* GetValue() const { return m_ppxCurrent == nullptr ? nullptr : *m_ppxCurrent; }
    /// The number of properties in the set.
    unsigned short GetCount() const { return m_pxSet->GetCount(); }
    /// Back before the first property.
    void Reset() {
        m_ppxCurrent = nullptr;
        m_uLeft = 0;
    }

private:
    friend class MCPropertySet;

    ZVTBoolean Advance();

    const MCPropertySet* m_pxSet;
    MCProperty** m_ppxCurrent = nullptr;
    unsigned short m_uLeft = 0;
};

class MCHeirSetIter;

/// The heirs of one object, for a host whose objects pass values on to others; the core never fills one.
/// The twin of MCPropertySet with objects in the slots, except that an object may stand twice. The set
/// owns only its segments, which go with it.
class MODELCORE_API MCHeirSet {
public:
    MCHeirSet() = default;
    /// Frees the segments, not the heirs.
    ~MCHeirSet();
    MCHeirSet(const MCHeirSet&) = delete;
    MCHeirSet& operator=(const MCHeirSet&) = delete;

    /// The number of heirs, a duplicate counted twice.
    unsigned short GetCount() const { return m_uCount; }
    /// Puts `heir` in the lowest free slot, also when it stands in the set already; false only for null.
    ZVTBoolean Insert(MCObject* heir);
    /// Frees the first slot that holds `heir`; false when none does or for null.
    ZVTBoolean Delete(MCObject* heir);

private:
    friend class MCHeirSetIter;

    unsigned short m_uCount = 0;
    MCObject** m_ppxFirstSegment = nullptr;
};

/// A cursor over a heir set in slot order, on the live set. The first step stands on slot 0 without
/// testing it, and no heir is sure to stay there: whoever walks a heir set skips null values.
class MODELCORE_API MCHeirSetIter {
public:
    /// A cursor before the first heir of `set`.
    explicit MCHeirSetIter(const MCHeirSet& set) : m_pxSet(&set) {}

    /// Steps to the next used slot (to slot 0 on the first step); false at the end or on an empty set.
    ZVTBoolean operator++();
    /// The heir in the current slot; null before the first step, on a freed slot 0 and after the last.
    MCObject* GetValue() const { return m_ppxCurrent == nullptr ? nullptr : *m_ppxCurrent; }
    /// The number of heirs in the set.
    unsigned short GetCount() const { return m_pxSet->GetCount(); }
    /// Back before the first heir.
    void Reset() {
        m_ppxCurrent = nullptr;
        m_uLeft = 0;
    }

private:
    const MCHeirSet* m_pxSet;
    MCObject** m_ppxCurrent = nullptr;
    unsigned short m_uLeft = 0;
};

namespace mc_detail {

// Whether a std::ostream can write a T.
template <class T, class = void>
struct IsWritable : std::false_type {};
template <class T>
struct IsWritable<T, std::void_t<decltype(std::declval<std::ostream&>() << std::declval<const T&>())>>
    : std::true_type {};

/// Writes a value as the property dumps show it: through the std::ostream operator when there is one,
/// else nothing.
template <class T>
void DumpValue(std::ostream& stream, const T& value) {
    if constexpr (IsWritable<T>::value)
        stream << value;
}

/// Writes the 20 bytes of the id's five words, each little-endian, as characters.
MODELCORE_API void DumpValue(std::ostream& stream, const ZvUCObjectId& value);
/// Writes a pointer as "0x" and its lowercase hexadecimal digits, "0x0" for null.
MODELCORE_API void DumpPointer(std::ostream& stream, const void* value);

}  // namespace mc_detail

template <class T>
unsigned int MCSPropertyT<T>::Dump(std::ofstream& stream, long level) {
    MCProperty::Dump(stream, level);
    stream << ", Value=";
    mc_detail::DumpValue(stream, m_xValue);
    return 0;
}

template <class T>
unsigned int MCVPropertyT<T>::Dump(std::ofstream& stream, long level) {
    MCProperty::Dump(stream, level);
    stream << ", Values=";
    for (size_t i = 0; i < m_xValues.Entries(); ++i) {
        mc_detail::DumpValue(stream, m_xValues.At(i));
        stream << ' ';
    }
    return 0;
}

// The core's value types are instantiated once, in the library.
extern template class MCSPropertyT<long>;
extern template class MCSPropertyT<double>;
extern template class MCSPropertyT<float>;
extern template class MCSPropertyT<ZVTString>;
extern template class MCSPropertyT<ZvUCObjectId>;
extern template class MCSPropertyT<tgt_target*>;
extern template class MCVPropertyT<long>;
extern template class MCVPropertyT<float>;
extern template class MCVPropertyT<ZVTString>;

#endif
