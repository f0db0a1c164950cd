#ifndef MCPROPERTYSEMANTICS_H
#define MCPROPERTYSEMANTICS_H

// Rules on one property type of one object type. Accessors fire them around every change; the registry
// keeps one handler per object type, chained along the type hierarchy as the class levels register.
//
// Firing does not search: each handler keeps, per property type, the lists of its whole chain in firing
// order, built on first use and dropped whenever any registration changes. A type whose chain has no
// rule for a mode answers from one mask.

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTString.h"

class MCFactoryContext;
class MCObject;
class MCProperty;
class MCPropertyAccessor;
class MCPropertySemanticContext;
class MCPropertySemanticHandler;
class MCPropertySemanticRegistryImpl;

/// What a change through an accessor tells the rules: the accessor and the flags of the operation.
struct MODELCORE_API MCActiveAccessor {
    MCActiveAccessor(MCPropertyAccessor* accessor, long flags) : m_pxAccessor(accessor), m_lFlags(flags) {}

    MCPropertyAccessor* m_pxAccessor;
    long m_lFlags;
};

/// A rule on a property type. Semantics are as a rule objects of static storage, never deleted through
/// this class.
class MODELCORE_API MCPropertySemantic {
public:
    /// When a rule runs; each value doubles as the interest bit. The values must not change.
    enum mode : unsigned long {
        PreEdit = 0x1,
        PostEdit = 0x2,
        PreDestructon = 0x4,
        PreCalculateData = 0x8,
        PostCalculateData = 0x10,
        CalculateValue = 0x20,
        PostPaste = 0x40,
        ObjectPreDestruction = 0x80,
        InheritedPreEdit = 0x10000,
        InheritedPostEdit = 0x20000
    };
    /// What a rule answers: go on, refuse, or the object is gone. Any answer but resultContinue stops the
    /// firing.
    enum result { resultContinue = 0, resultRefused = 1, resultObjectDestroyed = 2 };

    /// Runs the rule for `property` of `object` in `mode`.
    virtual result Fire(mode nMode, MCObject* object, MCProperty* property,
                        MCPropertySemanticContext* context) = 0;
    /// The OR of the modes the rule wants to hear of.
    virtual unsigned long GetInterests() const = 0;

protected:
    ~MCPropertySemantic() = default;
};

/// The context of a firing: the running accessor and its flags, or null outside an accessor.
class MODELCORE_API MCPropertySemanticContext {
public:
    explicit MCPropertySemanticContext(MCActiveAccessor* accessor = nullptr) : m_pxActiveAccessor(accessor) {}
    /// The context of the running `accessor`.
    explicit MCPropertySemanticContext(MCActiveAccessor& accessor) : m_pxActiveAccessor(&accessor) {}
    virtual ~MCPropertySemanticContext();

    /// The running accessor, null when the firing does not come from one.
    MCActiveAccessor* GetActiveAccessor() const { return m_pxActiveAccessor; }

private:
    MCActiveAccessor* m_pxActiveAccessor;
};

/// The context of PostPaste for each property of a pasted object: the object's level in its buffer.
class MODELCORE_API MCPastePropertyContext : public MCPropertySemanticContext {
public:
    MCPastePropertyContext() = default;
    ~MCPastePropertyContext() override;

    long GetLevel() const { return m_lLevel; }
    void SetLevel(long level) { m_lLevel = level; }

private:
    long m_lLevel = 0;
};

/// The process-wide table of property semantics: one handler per object type, made as the class levels of
/// the type register and chained to the handler of the level above. Made on first use, deleted by
/// MdlCore::Terminate; it does not own the semantics.
class MODELCORE_API MCPropertySemanticRegistry {
public:
    /// 0 in use; 1 from the start of the destructor on.
    enum State { stateInUse = 0, stateDying = 1 };

    /// The registry, made on first use.
    static MCPropertySemanticRegistry* GetInstance();
    /// Deletes the registry and its handlers; nothing when there is none.
    static void DeleteInstance();

    /// Makes the handler of `nObjectType` (linked through the context's ancestor slot unless
    /// `bNoAncestor`) and, for a non-zero `nPropertyType`, adds `pSemantic` to it once. EXGenericObject
    /// for a rule on the generic object type.
    static void Register(short nObjectType, MCFactoryContext* pContext, short nPropertyType,
                         MCPropertySemantic* pSemantic, ZVTBoolean bSetContext, ZVTBoolean bNoAncestor);
    /// Makes the handler of `nObjectType` linked to its ancestor; true when it was made now.
    ZVTBoolean CreateHandler(short nObjectType, MCFactoryContext* pContext, ZVTBoolean bSetContext);
    /// Adds a rule that lives outside the host's code; it fires before the internal ones of its level and
    /// is added again on each call. EXGenericObject on the generic object type.
    void RegisterExternalSemantic(short nObjectType, short nPropertyType, MCPropertySemantic* pSemantic,
                                  ZVTBoolean bSetContext);
    /// Removes and deletes the handler of a type; the handlers of the types derived from it then link to
    /// its own ancestor, so they keep the rules of the levels above it.
    void Deregister(short nObjectType);
    /// Removes the rules of one property type of one object type, on both sides.
    void Deregister(short nObjectType, short nPropertyType);
    /// Removes every occurrence of `pSemantic` from every handler. While a firing runs, the occurrences
    /// are emptied instead and leave once the last firing is done, so the firings still fire every other
    /// rule they would have.
    void Deregister(const MCPropertySemantic* pSemantic);
    /// Whether the type has a handler, with or without rules.
    ZVTBoolean IsRegistered(short nObjectType) const;
    /// Whether the type has rules, internal or external, for the property type.
    ZVTBoolean IsRegistered(short nObjectType, short nPropertyType) const;
    /// Whether `pSemantic` stands in any handler; false for null.
    ZVTBoolean IsRegistered(const MCPropertySemantic* pSemantic) const;

    /// Fires the rules of `nPropertyType` on `pObject`'s type chain, root type first, external before
    /// internal on each level, then on each heir in the inherited mode. The first non-zero result ends
    /// the firing and is returned; an EXBase thrown by a rule becomes resultRefused. A rule that ends the
    /// object, whatever it answers, ends the firing before the heirs (or the next heir) with
    /// resultObjectDestroyed; an heir that ends only skips the rest of its own part. A rule that takes
    /// away or nulls `pProperty` ends the firing there with resultRefused.
    static MCPropertySemantic::result FireSemantics(MCPropertySemantic::mode nMode, short nPropertyType,
                                                    MCObject* pObject, MCProperty* pProperty,
                                                    MCPropertySemanticContext* pContext);

    /// Whether FireSemantics in `nMode` on `pObject` could reach a rule for any property type: false only
    /// when the object's type chain has no rule with that interest and the object has no heirs. Fires
    /// nothing; false for null.
    static ZVTBoolean MayFire(MCPropertySemantic::mode nMode, MCObject* pObject);
    /// Whether FireSemantics in one of `nModes` for `nPropertyType` on `pObject` could reach a rule of the
    /// object's own type chain (heirs aside); true when there is no registry to ask. Fires nothing.
    static ZVTBoolean MayRule(unsigned long nModes, short nPropertyType, MCObject* pObject);

    /// The name of a mode, "Invalid mode" for those without one.
    ZVTString GetModeName(MCPropertySemantic::mode nMode) const;
    /// The registry's state.
    State GetState() const { return m_eState; }

private:
    // A proxy's destructor asks whether the registry exists without making it.
    friend class MCExternalPropertySemantic;

    MCPropertySemanticRegistry();
    ~MCPropertySemanticRegistry();
    MCPropertySemanticRegistry(const MCPropertySemanticRegistry&) = delete;
    MCPropertySemanticRegistry& operator=(const MCPropertySemanticRegistry&) = delete;

    MCPropertySemanticHandler* CreateHandler(short nObjectType, MCFactoryContext* pContext,
                                             ZVTBoolean bNoAncestor, ZVTBoolean bSetContext);
    MCPropertySemanticHandler* FindHandler(short nObjectType) const;

    static MCPropertySemanticRegistry* c_pxSingleton;
    MCPropertySemanticRegistryImpl* m_pxHandlers;
    State m_eState = stateInUse;
};

#endif
