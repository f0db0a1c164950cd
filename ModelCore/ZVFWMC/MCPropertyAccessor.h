#ifndef MCPROPERTYACCESSOR_H
#define MCPROPERTYACCESSOR_H

// Accessors: the only way a property value changes. An active accessor fires the rules and tells the
// subscribers; a raw one only moves the value. Also the members of the value templates that need the
// accessor classes.

#include <typeinfo>

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCProperty.h"
#include "ModelCore/ZVFWMC/MCPropertySemantics.h"
#include "ModelCore/ZVFWMC/MCStreams.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTReference.h"
#include "foundation/ZVTSList.h"
#include "foundation/ZVTString.h"
#include "foundation/ZvUCId.h"
#include "platform/TGT.h"

/// Carries one value into or out of a property and, when active, runs the rules and tells the
/// subscribers on the way. Usually a local; reusable, as each operation overwrites the flags it carries
/// unless accessFlags is given. Values move by copy: what is handed in stays the caller's, what comes
/// out is the caller's copy; a reference accessor carries target pointers, never their ownership.
class MODELCORE_API MCPropertyAccessor : public ZVTReference {
public:
    /// The flags of a change. The values are part of the interface and must not change.
    enum access_flag : long {
        accessAdd = 0x01,       ///< set a single value; add the values to a list
        accessReplace = 0x02,   ///< set a single value; replace a list
        accessRemove = 0x04,    ///< set a single value; remove the values from a list
        accessFlags = 0x08,     ///< write the accessor's flags; alone, nothing else happens
        accessForce = 0x10,     ///< set and fire even when a single value is unchanged
        accessInherited = 0x20  ///< fire the inherited rules only; value, flags and subscribers stay
    };

    /// An active accessor with no flags.
    MCPropertyAccessor() = default;
    ~MCPropertyAccessor() override;

    /// The item flags that travel with the accessor.
    void SetFlags(unsigned short flags) { m_uFlags = flags; }
    /// The item flags that travel with the accessor: after a read, the property's.
    long GetFlags() const { return m_uFlags; }
    /// True once a rule reported, or the accessor found, that the object of a change was destroyed.
    ZVTBoolean GetObjectDestroyed() const { return m_bObjectDestroyed; }
    /// Whether the accessor fires rules and events.
    ZVTBoolean IsActive() const { return m_bActive; }

    /// Copies the value and flags of `property` into the accessor; false, and nothing copied, for a
    /// property of another value class. A calculated property is calculated first (not without `object`);
    /// false too when a calculating rule answers anything but resultContinue, ends the object or takes
    /// the property away.
    virtual ZVTBoolean GetPropertyValue(MCProperty* property, MCObject* object) = 0;
    /// Writes the accessor's value into `property` of `object` with `flags`; false for a property of
    /// another value class or when a pre-edit rule did not answer resultContinue. A pre-edit rule that
    /// answers resultObjectDestroyed, or ends the object whatever it answers, leaves the value unwritten
    /// and GetObjectDestroyed true; one that nulls or deletes the property ends the edit with false, its
    /// nulling standing. A reference target that a pre-edit rule ends is written as null (left out of a
    /// list), and a hint object that a post-edit rule ends reaches the subscribers as null. A post-edit
    /// rule that nulls or deletes the property makes the answer false and keeps the event from being sent.
    virtual ZVTBoolean SetPropertyValue(MCProperty* property, MCObject* object, long flags) = 0;
    /// Takes `property` off `object` (a free one is deleted, an embedded one nulled) after the rules
    /// agreed and the subscribers heard PropertyNulled; false when a rule did not answer resultContinue
    /// or ended the object (then GetObjectDestroyed is true), true when one of them nulled it already.
    /// EXNullOwner without an object.
    ZVTBoolean NullPropertyValue(MCProperty* property, MCObject* object);
    /// Makes the property of `type` on `object` and replaces its value with the accessor's; nothing when
    /// the property exists with a value (message 601). EXNullOwner without an object.
    void CreateAndSet(short type, MCObject* object);

protected:
    /// The pre-edit rules (inherited form with `inherited`); a raw accessor answers resultContinue.
    virtual MCPropertySemantic::result FirePreSemantics(short type, MCObject* object, MCProperty* property,
                                                        MCPropertySemanticContext* context,
                                                        ZVTBoolean inherited);
    /// The post-edit rules (inherited form with `inherited`); a raw accessor answers resultContinue.
    virtual MCPropertySemantic::result FirePostSemantics(short type, MCObject* object, MCProperty* property,
                                                         MCPropertySemanticContext* context,
                                                         ZVTBoolean inherited);
    /// Delivers PropertySet on `object` with the hints; a raw accessor tells nobody.
    virtual void Notify(MCObject* object, MCProperty* property, long hintCode, MCObject* hintObject,
                        void* hintPointer);

    /// Writes the accessor's flags into `property`, raw.
    void SetPropertyFlags(MCProperty* property) { SetItemFlagsRaw(property, m_uFlags); }
    static void SetItemFlagsRaw(MCProperty* property, unsigned short flags) { property->SetFlagsRaw(flags); }
    /// Lets the rules calculate the value of a calculated property before it is read; false when it is
    /// calculated and there is no object to calculate it on, or a rule refused, ended the object or took
    /// the property away.
    static ZVTBoolean CalculateBeforeRead(MCProperty* property, MCObject* object);

    /// The steps of a change common to every value class: rules before, `apply` (which writes the value,
    /// may name the event's hint object through its argument and answers the hint code), flags, rules
    /// after, the event. The change ends after the rules before when they did not answer resultContinue,
    /// ended the object or took the property away. Without `WithRules` the rules are not looked for: only for
    /// a change that the caller knows no rule can take part in.
    template <bool WithRules = true, class Apply>
    ZVTBoolean RunChange(MCProperty* property, MCObject* object, long flags, Apply apply);

    ZVTBoolean m_bActive = true;
    unsigned short m_uFlags = 0;
    ZVTBoolean m_bObjectDestroyed = false;
};

/// Base of the list accessors: they also write and read their list alone, without flags.
class MODELCORE_API MCVPropertyAccessor : public MCPropertyAccessor {
public:
    ~MCVPropertyAccessor() override;
    /// Writes the count, then each value.
    virtual void SaveTo(MCStream& stream) = 0;
    /// Replaces the list with a count and that many values read from `stream`.
    virtual void RestoreFrom(MCStream& stream) = 0;
};

/// Moves a single value of type T without rules or events: restore, paste, cloning and the object's own
/// id use it.
template <class T>
class MODELCORE_API MCSPropertyRawAccessorT : public MCPropertyAccessor {
public:
    MCSPropertyRawAccessorT() : m_xValue() { m_bActive = false; }
    explicit MCSPropertyRawAccessorT(const T& value) : m_xValue(value) { m_bActive = false; }

    ZVTBoolean GetPropertyValue(MCProperty* property, MCObject* object) override;
    ZVTBoolean SetPropertyValue(MCProperty* property, MCObject* object, long flags) override;

    /// The carried value.
    virtual T GetValue() const { return m_xValue; }
    /// Replaces the carried value.
    virtual void SetValue(const T& value) { m_xValue = value; }

protected:
    friend class MCFactoryRegistry;
    /// SetPropertyValue on `property`, just made for this change, when no rule can take part in it.
    ZVTBoolean SetMadeValue(MCSPropertyT<T>* property, MCObject* object, long flags) {
        return this->template RunChange<false>(property, object, flags,
                                               [&](MCObject*& /*hintObject*/) -> long {
                                                   property->SetValue(m_xValue);
                                                   return MCCodes::hintNone;
                                               });
    }

    T m_xValue;
};

/// A single-value accessor that fires the rules and tells the subscribers.
template <class T>
class MODELCORE_API MCSPropertyAccessorT : public MCSPropertyRawAccessorT<T> {
public:
    MCSPropertyAccessorT() { this->m_bActive = true; }
    explicit MCSPropertyAccessorT(const T& value) : MCSPropertyRawAccessorT<T>(value) {
        this->m_bActive = true;
    }
};

/// Moves a list of values of type T without rules or events.
template <class T>
class MODELCORE_API MCVPropertyRawAccessorT : public MCVPropertyAccessor {
public:
    MCVPropertyRawAccessorT() { m_bActive = false; }
    explicit MCVPropertyRawAccessorT(const ZVTSList<T>& values) : m_xValues(values) { m_bActive = false; }
    explicit MCVPropertyRawAccessorT(const T& value) {
        m_bActive = false;
        m_xValues.Append(value);
    }

    ZVTBoolean GetPropertyValue(MCProperty* property, MCObject* object) override;
    ZVTBoolean SetPropertyValue(MCProperty* property, MCObject* object, long flags) override;
    void SaveTo(MCStream& stream) override;
    void RestoreFrom(MCStream& stream) override;

    /// A copy of the carried list.
    virtual ZVTSList<T> GetValue() const { return m_xValues; }
    /// Replaces the carried list.
    virtual void SetValue(const ZVTSList<T>& values) { m_xValues = values; }
    /// With accessRemove removes the first equal value, with accessReplace makes `value` the only one,
    /// otherwise appends it.
    virtual void SetValue(const T& value, long flags);
    /// True when the list has exactly one value.
    virtual ZVTBoolean IsSingle() const { return m_xValues.Entries() == 1; }
    /// The first value into `value`; false for an empty list.
    virtual ZVTBoolean GetFirst(T& value) const;
    /// The carried list itself, not a copy; the accessor owns it, so it lives as long as the accessor.
    virtual ZVTSList<T>* GetList() { return &m_xValues; }

protected:
    ZVTSList<T> m_xValues;
};

/// A list accessor that fires the rules and tells the subscribers.
template <class T>
class MODELCORE_API MCVPropertyAccessorT : public MCVPropertyRawAccessorT<T> {
public:
    MCVPropertyAccessorT() { this->m_bActive = true; }
    explicit MCVPropertyAccessorT(const ZVTSList<T>& values) : MCVPropertyRawAccessorT<T>(values) {
        this->m_bActive = true;
    }
    explicit MCVPropertyAccessorT(const T& value) : MCVPropertyRawAccessorT<T>(value) {
        this->m_bActive = true;
    }
};

namespace mc_detail {

// The property as `Target`, or null. The exact class is the common case and costs one comparison of type
// information; only other classes (derived ones, or none) pay for a dynamic_cast.
template <class Target, class Source>
Target* PropertyCast(Source* property) {
    if (property != nullptr && typeid(*property) == typeid(Target))
        return static_cast<Target*>(property);
    return dynamic_cast<Target*>(property);
}

// Writes a list as it is stored: the count, then each value.
template <class T>
void WriteList(MCStream& stream, const ZVTSList<T>& values) {
    stream << static_cast<long>(values.Entries());
    for (size_t i = 0; i < values.Entries(); ++i)
        stream << values.At(i);
}

// Reads a stored count, then at most that many values while the stream delivers them: a corrupt count
// costs no more than the bytes that are really there.
template <class T>
void ReadList(MCStream& stream, ZVTSList<T>& values) {
    long count = 0;
    stream >> count;
    values.Clear();
    for (long i = 0; i < count && !stream.fail(); ++i) {
        T value{};
        stream >> value;
        if (stream.fail())
            break;
        values.Append(value);
    }
}

}  // namespace mc_detail

// ---------------------------------------------------------------------------------------------------
// The steps of a change

template <bool WithRules, class Apply>
ZVTBoolean MCPropertyAccessor::RunChange(MCProperty* property, MCObject* object, long flags, Apply apply) {
    const ZVTBoolean inherited = (flags & accessInherited) != 0;
    const ZVTBoolean changing = (flags & ~static_cast<long>(accessFlags)) != 0;
    const ZVTBoolean withFlags = (flags & accessFlags) != 0;
    const short type = property->GetType();
    MCActiveAccessor active(this, flags);
    MCPropertySemanticContext context(active);

    // The firing answers resultObjectDestroyed for an object its rules ended and resultRefused for a
    // property they took away, whatever they answered: either way there is nothing left to write to.
    if (WithRules && changing) {
        const MCPropertySemantic::result before =
            FirePreSemantics(type, object, property, &context, inherited);
        if (before != MCPropertySemantic::resultContinue) {
            if (before == MCPropertySemantic::resultObjectDestroyed)
                m_bObjectDestroyed = true;
            return false;
        }
    }
    long hintCode = 0;
    MCObject* hintObject = nullptr;
    if (!inherited) {
        if (!withFlags)
            m_uFlags = property->GetFlags();
        if (changing) {
            hintCode = apply(hintObject);
            m_uFlags = static_cast<unsigned short>(m_uFlags & ~MCItem::itemNulled);
            if (!withFlags)
                m_uFlags = static_cast<unsigned short>(m_uFlags & ~MCItem::itemSA);
        }
        SetPropertyFlags(property);
    }
    if (changing) {
        // A hint object is looked up only once an object ended; an unresolved list's is an id, not an object.
        const long hintId = WithRules && hintObject && !(m_uFlags & MCItem::itemNL) ? hintObject->GetId() : 0;
        const std::uint64_t objectEnds = hintId != 0 ? mc_detail::ObjectEnds() : 0;
        const MCPropertySemantic::result after =
            WithRules ? FirePostSemantics(type, object, property, &context, inherited)
                      : MCPropertySemantic::resultContinue;
        if (after == MCPropertySemantic::resultRefused)
            return false;
        if (!inherited) {
            if (after == MCPropertySemantic::resultObjectDestroyed) {
                m_bObjectDestroyed = true;
            } else {
                // A hint object a rule ended is not handed to the subscribers.
                if (hintId != 0 && mc_detail::ObjectEnds() != objectEnds &&
                    MCObject::ResolveId(hintId) != hintObject)
                    hintObject = nullptr;
                Notify(object, property, hintCode, hintObject, &context);
            }
        }
    }
    return true;
}

// ---------------------------------------------------------------------------------------------------
// Single-value accessors

template <class T>
ZVTBoolean MCSPropertyRawAccessorT<T>::GetPropertyValue(MCProperty* property, MCObject* object) {
    auto* typed = mc_detail::PropertyCast<MCSPropertyT<T>>(property);
    if (typed == nullptr || !CalculateBeforeRead(property, object))
        return false;
    m_xValue = typed->GetValue();
    this->m_uFlags = typed->GetFlags();
    return true;
}

template <class T>
ZVTBoolean MCSPropertyRawAccessorT<T>::SetPropertyValue(MCProperty* property, MCObject* object, long flags) {
    auto* typed = mc_detail::PropertyCast<MCSPropertyT<T>>(property);
    if (typed == nullptr)
        return false;
    if ((flags & (accessForce | accessFlags)) == 0 && !typed->GetFlag(MCItem::itemNulled) &&
        typed->GetValue() == m_xValue)
        return true;
    return this->RunChange(property, object, flags, [&](MCObject*& /*hintObject*/) -> long {
        typed->SetValue(m_xValue);
        return MCCodes::hintNone;
    });
}

// ---------------------------------------------------------------------------------------------------
// List accessors

template <class T>
ZVTBoolean MCVPropertyRawAccessorT<T>::GetPropertyValue(MCProperty* property, MCObject* object) {
    auto* typed = mc_detail::PropertyCast<MCVPropertyT<T>>(property);
    if (typed == nullptr || !CalculateBeforeRead(property, object))
        return false;
    m_xValues = typed->GetValue();
    this->m_uFlags = typed->GetFlags();
    return true;
}

template <class T>
ZVTBoolean MCVPropertyRawAccessorT<T>::SetPropertyValue(MCProperty* property, MCObject* object, long flags) {
    auto* typed = mc_detail::PropertyCast<MCVPropertyT<T>>(property);
    if (typed == nullptr)
        return false;
    return this->RunChange(property, object, flags, [&](MCObject*& /*hintObject*/) -> long {
        if ((flags & accessReplace) != 0) {
            typed->SetValue(m_xValues);
            return MCCodes::hintReplaced;
        }
        const ZVTBoolean adding = (flags & accessAdd) != 0;
        ZVTSListIter<T> values(m_xValues);
        while (++values) {
            if (adding)
                typed->AddValue(values.Key());
            else
                typed->RemoveValue(values.Key());
        }
        return adding ? MCCodes::hintAdded : MCCodes::hintRemoved;
    });
}

template <class T>
void MCVPropertyRawAccessorT<T>::SetValue(const T& value, long flags) {
    if (flags == accessRemove) {
        m_xValues.Remove(value);
        return;
    }
    if (flags == accessReplace)
        m_xValues.Clear();
    m_xValues.Append(value);
}

template <class T>
ZVTBoolean MCVPropertyRawAccessorT<T>::GetFirst(T& value) const {
    if (m_xValues.IsEmpty())
        return false;
    value = m_xValues.First();
    return true;
}

template <class T>
void MCVPropertyRawAccessorT<T>::SaveTo(MCStream& stream) {
    mc_detail::WriteList(stream, m_xValues);
}

template <class T>
void MCVPropertyRawAccessorT<T>::RestoreFrom(MCStream& stream) {
    mc_detail::ReadList(stream, m_xValues);
}

// ---------------------------------------------------------------------------------------------------
// Members of the value templates that need the accessors

template <class T>
ZVTBoolean MCSPropertyT<T>::IsEqualTo(const MCProperty* other, ZVTBoolean /*flag*/) const {
    if (other == nullptr || other->GetType() != GetType())
        return false;
    auto* typed = mc_detail::PropertyCast<const MCSPropertyT<T>>(other);
    return typed != nullptr && typed->m_xValue == m_xValue;
}

template <class T>
void MCSPropertyT<T>::SaveTo(MCStream& stream) {
    MCProperty::SaveTo(stream);
    if (!GetFlag(itemPreFetch))
        stream << m_xValue;
}

template <class T>
void MCSPropertyT<T>::RestoreFrom(MCStream& stream) {
    MCProperty::RestoreFrom(stream);
    if (!GetFlag(itemPreFetch))
        stream >> m_xValue;
}

template <class T>
void MCSPropertyT<T>::RestoreFrom(MCStream& stream, MCPropertyAccessor& accessor) {
    MCProperty::RestoreFrom(stream, accessor);
    if (GetFlag(itemPreFetch))
        return;
    T value{};
    stream >> value;
    // Only an active accessor of this class takes the value; any other reads past it.
    if (auto* typed = dynamic_cast<MCSPropertyAccessorT<T>*>(&accessor); typed != nullptr && !stream.fail())
        typed->SetValue(value);
}

template <class T>
MCPropertyAccessor* MCSPropertyT<T>::CreateAccessor() const {
    return new MCSPropertyAccessorT<T>;
}

template <class T>
MCPropertyAccessor* MCSPropertyT<T>::CreateRawAccessor() const {
    return new MCSPropertyRawAccessorT<T>;
}

template <class T>
void MCSPropertyT<T>::AcceptVisitor(MCVisitor* visitor) {
    if (auto* typed = dynamic_cast<MCPropertyVisitorT<T>*>(visitor))
        typed->VisitType(this);
}

template <class T>
ZVTBoolean MCVPropertyT<T>::IsEqualTo(const MCProperty* other, ZVTBoolean /*flag*/) const {
    if (other == nullptr || other->GetType() != GetType())
        return false;
    auto* typed = mc_detail::PropertyCast<const MCVPropertyT<T>>(other);
    if (typed == nullptr || typed->m_xValues.Entries() != m_xValues.Entries())
        return false;
    for (size_t i = 0; i < m_xValues.Entries(); ++i) {
        if (!(typed->m_xValues.At(i) == m_xValues.At(i)))
            return false;
    }
    return true;
}

template <class T>
void MCVPropertyT<T>::SaveTo(MCStream& stream) {
    MCProperty::SaveTo(stream);
    if (GetFlag(itemPreFetch)) {
        // The shape of a one-element list; readers take the element as a placeholder.
        stream << static_cast<int>(1);
        // On its own: `stream << 1` gives a ZVTStream&, and a pointer T must meet MCStream's operators.
        stream << T{};
        return;
    }
    mc_detail::WriteList(stream, m_xValues);
}

template <class T>
void MCVPropertyT<T>::RestoreFrom(MCStream& stream) {
    MCProperty::RestoreFrom(stream);
    mc_detail::ReadList(stream, m_xValues);
}

template <class T>
void MCVPropertyT<T>::RestoreFrom(MCStream& stream, MCPropertyAccessor& accessor) {
    MCProperty::RestoreFrom(stream, accessor);
    ZVTSList<T> values;
    mc_detail::ReadList(stream, values);
    if (auto* typed = dynamic_cast<MCVPropertyAccessorT<T>*>(&accessor))
        typed->SetValue(values);
}

template <class T>
MCPropertyAccessor* MCVPropertyT<T>::CreateAccessor() const {
    return new MCVPropertyAccessorT<T>;
}

template <class T>
MCPropertyAccessor* MCVPropertyT<T>::CreateRawAccessor() const {
    return new MCVPropertyRawAccessorT<T>;
}

template <class T>
void MCVPropertyT<T>::AcceptVisitor(MCVisitor* visitor) {
    if (auto* typed = dynamic_cast<MCPropertyVisitorT<T>*>(visitor))
        typed->VisitType(this);
}

// The core's value types are instantiated once, in the library.
extern template class MCSPropertyRawAccessorT<long>;
extern template class MCSPropertyRawAccessorT<double>;
extern template class MCSPropertyRawAccessorT<float>;
extern template class MCSPropertyRawAccessorT<ZVTString>;
extern template class MCSPropertyRawAccessorT<ZvUCObjectId>;
extern template class MCSPropertyRawAccessorT<tgt_target*>;
extern template class MCVPropertyRawAccessorT<long>;
extern template class MCVPropertyRawAccessorT<float>;
extern template class MCVPropertyRawAccessorT<ZVTString>;

#endif
