#ifndef MCFACTORY_H
#define MCFACTORY_H

// Factories and what travels with a creation. Every item is made through
// MCFactoryRegistry::CreateItem, which finds the factory a type registered.

#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCItem.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTString.h"
#include "foundation/ZVTVector.h"

class MCIdSpace;
class MCObject;

/// Builds the items of one registered type. A factory registers itself in its constructor; from then on
/// the metamodel registry owns it and deletes it when it ends. A refused factory (IsRegistered false)
/// stays with its maker.
class MODELCORE_API MCFactory {
public:
    virtual ~MCFactory();

    /// Builds one item under `owner`; `code` is the code as asked for, before alias translation.
    /// Returns null when the item cannot be made.
    virtual MCItem* CreateItem(short code, MCObject* owner, MCFactoryContext* context) = 0;

    /// The size in bytes of the item this factory builds for `code`.
    virtual unsigned int GetItemSize(short code) = 0;

    /// Whether the registry took the factory when it was made.
    ZVTBoolean IsRegistered() const { return m_bRegistered; }

protected:
    /// Throws EXUnexpected for an owner of the wrong class.
    [[noreturn]] static void ThrowWrongOwner();
    /// Whether `owner` is of one of the owner types registered for `code`.
    static ZVTBoolean IsOfOwnerType(short code, MCObject* owner);
    /// The property of `code` that `owner` already holds, nulled or not; null for none or no owner.
    static MCItem* FindExisting(short code, MCObject* owner);

    ZVTBoolean m_bRegistered = false;
};

/// Marks the prototype constructor of a class, which only its factory calls.
class MODELCORE_API MCFactoryBaseSignature {};
/// The argument type of prototype constructors.
class MODELCORE_API MCFactorySignature : public MCFactoryBaseSignature {};

/// Travels through one creation: the type of the class level below the running constructor, once for
/// each of the three rule systems, and a byte of flags for the host. Subclasses decide whether creation
/// semantics run and which id the object gets.
class MODELCORE_API MCFactoryContext {
public:
    /// The rule system whose chain an ancestor slot serves.
    enum user { userObjectSemantics = 0, userPropertySemantics = 1, userNotifications = 2 };
    /// Flags for the host; the paste path sets flagPasting. Nothing in the library reads them.
    enum flag { flagPasting = 3 };

    MCFactoryContext() { Reset(); }
    virtual ~MCFactoryContext();

    /// Whether creation semantics run; the base answers true.
    virtual ZVTBoolean SemanticsNeeded();
    /// The id for the new object; 0 (the base) sends it to the id space for a fresh one.
    virtual long RequestId();
    /// The id space the new object registers in; the base gives the global one.
    virtual MCIdSpace* GetIdSpace();

    /// Clears the ancestor types and the flags.
    void Reset();
    /// Clears the ancestor types only; each creation starts its class chain afresh, so one context can
    /// serve many creations.
    void ClearAncestorTypes() { m_asAncestorTypes[0] = m_asAncestorTypes[1] = m_asAncestorTypes[2] = 0; }
    /// Records `type` as the latest class level of the rule system `slot`.
    void SetAncestorType(user slot, short type) { m_asAncestorTypes[slot] = type; }
    /// The latest class level recorded for `slot`, 0 before any.
    short GetAncestorType(user slot) const { return m_asAncestorTypes[slot]; }
    /// Sets or clears a flag (0 to 7).
    void SetFlag(flag which, ZVTBoolean on);
    /// Whether a flag is set.
    ZVTBoolean GetFlag(flag which) const { return (m_xFlags >> which) & 1u; }

private:
    short m_asAncestorTypes[3];
    unsigned char m_xFlags;
};

/// The host's hook told of every object CreateItem makes (not of properties); stays with its maker, who
/// removes it before destroying it. A hook may remove or destroy hooks (a removed one is not called for
/// the object under way) and may expunge the object, which then reaches no later hook.
class MODELCORE_API MCCreationHook {
public:
    virtual ~MCCreationHook();
    /// Called after the object and its creation semantics are complete.
    virtual void ItemCreated(MCObject* object) = 0;
};

/// A factory that declares how many items of its size it expects; the count is bookkeeping only.
class MODELCORE_API MCPoolFactory : public MCFactory {
public:
    /// Adds `initialCount` to the expected count of items of `itemSize`.
    MCPoolFactory(unsigned int itemSize, long initialCount);

protected:
    /// The pool handle of the item size, fetched on first use; always 0, as no allocator stands behind it.
    unsigned long GetPool();

private:
    unsigned int m_uItemSize;
    unsigned long m_ulPool = 0;
};

/// Factory of an object class T under owners of class O, without a prototype.
template <class T, class O>
class MCFactoryT : public MCFactory {
public:
    /// Registers the concrete object type `code` with this factory.
    MCFactoryT(short code, const ZVTString& name, short supertype, short ownerType, ZVTBoolean first,
               ZVTBoolean second) {
        m_bRegistered =
            MCFactoryRegistry::RegisterConcreteObject(code, name, supertype, ownerType, this, first, second);
    }

    /// A new T under `owner`; EXUnexpected when `owner` is not an O.
    MCItem* CreateItem(short /*code*/, MCObject* owner, MCFactoryContext* context) override {
        if (owner != nullptr && dynamic_cast<O*>(owner) == nullptr)
            ThrowWrongOwner();
        return new T(owner, context);
    }
    unsigned int GetItemSize(short /*code*/) override { return sizeof(T); }
};

/// Factory of an object class T under owners of class O, or of one of the type's registered owner types.
/// It builds a throw-away prototype of T when it is made, so the rules of T's class levels are in place
/// before the first real object.
template <class T, class O>
class MCObjectFactoryT : public MCPoolFactory {
public:
    /// Registers the concrete object type `code` with this factory, then builds and drops a prototype;
    /// a refused registration builds none. `secondCount` is not read.
    MCObjectFactoryT(short code, const ZVTString& name, short supertype, short ownerType, long initialCount,
                     long /*secondCount*/, ZVTBoolean first, ZVTBoolean second)
        : MCPoolFactory(sizeof(T), initialCount) {
        m_bRegistered =
            MCFactoryRegistry::RegisterConcreteObject(code, name, supertype, ownerType, this, first, second);
        // A refused class changes nothing: under a code another class holds, a prototype would add its
        // rules to that class's and be taken down by that class's size.
        if (!m_bRegistered)
            return;
        MCFactoryContext context;
        MCFactorySignature signature;
        T prototype(code, signature, &context);
    }

    /// A new T under `owner`; null when `owner` is neither an O nor of one of the type's owner types.
    MCItem* CreateItem(short code, MCObject* owner, MCFactoryContext* context) override {
        if (owner == nullptr || dynamic_cast<O*>(owner) != nullptr || IsOfOwnerType(code, owner))
            return new T(owner, context);
        return nullptr;
    }
    unsigned int GetItemSize(short /*code*/) override { return sizeof(T); }
};

/// Factory of a property class P.
template <class P>
class MCPropertyFactoryT : public MCPoolFactory {
public:
    /// Registers the concrete property type `code` with this factory.
    MCPropertyFactoryT(short code, const ZVTString& name, ZVTBoolean first, ZVTBoolean second,
                       long initialCount)
        : MCPoolFactory(sizeof(P), initialCount) {
        m_bRegistered =
            MCFactoryRegistry::RegisterConcreteProperty(code, name, this, first, second, false, false);
    }

    /// A new P on `owner`, or the owner's nulled property of `code`; null when the owner has one with a
    /// value.
    MCItem* CreateItem(short code, MCObject* owner, MCFactoryContext* /*context*/) override {
        if (MCItem* existing = FindExisting(code, owner))
            return existing->GetFlag(MCItem::itemNulled) ? existing : nullptr;
        return new P(code, owner);
    }
    unsigned int GetItemSize(short /*code*/) override { return sizeof(P); }
};

#endif
