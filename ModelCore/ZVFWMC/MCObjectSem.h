#ifndef MCOBJECTSEM_H
#define MCOBJECTSEM_H

// Rules on object types: they run at fixed moments of an object's life (after creation, before
// destruction, after restore, around copy and paste), may veto a destruction, and are inherited along the
// type hierarchy through one handler per type. The handlers are linked while the class levels of a type
// register, root first, so the first object (or prototype) of a type teaches the registry its ancestry.

#include <cstdint>

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTHDict.h"
#include "foundation/ZVTRecent.h"
#include "foundation/ZVTSList.h"
#include "foundation/ZVTString.h"

class MCExternalObjectSem;
class MCFactoryContext;
class MCObject;
class MCObjectSemContext;

/// A rule on an object type. As a rule an object of static storage shared by all objects of its type; it
/// leaves the registry by itself when it dies.
class MODELCORE_API MCObjectSem {
public:
    /// When a rule runs; each value doubles as the interest bit. The values must not change.
    enum mode : unsigned long {
        PostCreation = 0x01,
        PreDestructon = 0x02,
        CalculateData = 0x04,
        PostPaste = 0x40,
        PostCopy = 0x80
    };
    /// What a rule answers: go on, failure (the firing stops and reports the rule), or stop without
    /// failure, which only the derived-first order heeds.
    enum result { resultContinue = 0, resultFailed = 1, resultStop = 2 };

    MCObjectSem() = default;
    MCObjectSem(const MCObjectSem&) = delete;
    MCObjectSem& operator=(const MCObjectSem&) = delete;
    /// Leaves every handler, unless the registry is being torn down or is gone.
    virtual ~MCObjectSem();

    /// Runs the rule for `object` in `nMode`. A handler's mask covers its ancestors' interests too, so a
    /// rule may be called for a mode it did not ask for and must ignore it.
    virtual result Fire(mode nMode, MCObject* object, MCObjectSemContext* context) = 0;
    /// The OR of the modes the rule wants; the base wants PostCreation, PreDestructon and CalculateData.
    virtual unsigned long GetInterests() const;

    /// Adds this rule to the handler of `nType`, linked through the context; nothing without a context.
    void Register(short nType, MCFactoryContext* context);
};

/// What a firing tells the rules besides the object: the factory context of a creation, or more in the
/// derived contexts of restore, copy and paste.
class MODELCORE_API MCObjectSemContext {
public:
    /// A context carrying `factoryContext`, which may be null.
    explicit MCObjectSemContext(MCFactoryContext* factoryContext = nullptr)
        : m_pxFactoryContext(factoryContext) {}
    virtual ~MCObjectSemContext();

    /// Whether the object's properties exist already; the base says no.
    virtual ZVTBoolean PropsExist() const;
    /// The factory context of the creation, null outside one.
    MCFactoryContext* GetFactoryContext() const { return m_pxFactoryContext; }

private:
    MCFactoryContext* m_pxFactoryContext;
};

/// The context of PostPaste: the level of the pasted object in its buffer, 0 for an object placed under a
/// target, -1 for one placed before the targets, more for one that followed its owner. An object below
/// level 1 announces its creation to its subscribers.
class MODELCORE_API MCPasteObjectContext : public MCObjectSemContext {
public:
    MCPasteObjectContext() = default;
    ~MCPasteObjectContext() override;

    long GetLevel() const { return m_lLevel; }
    void SetLevel(long level) { m_lLevel = level; }

private:
    long m_lLevel = 0;
};

/// The rules of one object type and the link to its ancestor's handler. Interests spread down: a handler's
/// masks hold the bits of every ancestor's rules, so a late rule on a base type reaches its derived types
/// at once. Owns its external rules, not the others.
class MODELCORE_API MCObjectSemHandler {
public:
    /// The two lists: the rules of Register and the external ones.
    enum type { typeInternal = 0, typeExternal = 1 };

    virtual ~MCObjectSemHandler();
    MCObjectSemHandler(const MCObjectSemHandler&) = delete;
    MCObjectSemHandler& operator=(const MCObjectSemHandler&) = delete;

    /// Fires the chain: root first (internal rules, then external ones, on each level), or with
    /// `bDerivedFirst` this level first. Answers 1 for a failure (with `rpFailed` set), 2 for a stop in
    /// derived-first order, 0 otherwise.
    MCObjectSem::result FireSemantics(MCObjectSem::mode nMode, MCObject* object, MCObjectSem*& rpFailed,
                                      MCObjectSemContext* context, ZVTBoolean bDerivedFirst);
    /// Appends a rule once; null is ignored.
    void Register(const MCObjectSem* semantic);
    /// Appends an external rule, which the handler then owns; null or one already there is ignored.
    void RegisterExternalSemantic(const MCObjectSem* semantic);
    /// Takes the rule out of both lists; masks stay as they are. While a walk of this thread fires rules,
    /// the rule's slots are emptied instead and close once the outermost walk is done, so the walk still
    /// fires every other rule it would have.
    void Deregister(const MCObjectSem* semantic);
    /// Whether the rule stands in either list.
    ZVTBoolean IsRegistered(const MCObjectSem* semantic) const;
    /// Links this handler under the handler of `nType`; nothing when that type has no handler or is this
    /// handler's own. EXUnexpected when the link would close a cycle.
    void SetAncestorType(short nType);
    /// Records a handler whose ancestor this is.
    void AddDescendant(MCObjectSemHandler* descendant);
    /// ORs `nMask` into one mask and into every descendant's.
    void SetInterests(unsigned long nMask, type nType);
    /// One of the masks.
    unsigned long GetInterests(type nType) const {
        return nType == typeInternal ? m_nInterests : m_nExternalInterests;
    }
    /// The ancestor's handler, null for a root.
    MCObjectSemHandler* GetAncestor() const { return m_pxAncestor; }

protected:
    friend class MCObjectSemReg;
    /// A handler linked under the handler of `nAncestorType`, when it has one.
    explicit MCObjectSemHandler(short nAncestorType);

private:
    // This level's two lists, as the walk fires them on reaching it; from `nFirst` on in the internal one.
    MCObjectSem::result FireLevel(MCObjectSem::mode nMode, MCObject* object, MCObjectSem*& rpFailed,
                                  MCObjectSemContext* context, ZVTBoolean bDerivedFirst, size_t nFirst = 0);
    // The level of the chain from here up that holds the chain's only rule, in its internal list; null
    // when the chain holds none, more than one, or only an external one.
    MCObjectSemHandler* LoneLevel();
    // Takes out the slots that rules which left during a walk emptied.
    void CloseHoles();
    // 1 or 2 when that ends the walk; 0 to go on.
    MCObjectSem::result FireList(ZVTSList<MCObjectSem*>& list, MCObjectSem::mode nMode, MCObject* object,
                                 MCObjectSem*& rpFailed, MCObjectSemContext* context,
                                 ZVTBoolean bDerivedFirst, size_t nFirst = 0);

    ZVTSList<MCObjectSem*> m_xSemantics;
    ZVTSList<MCObjectSem*> m_xExternalSemantics;
    MCObjectSemHandler* m_pxAncestor = nullptr;
    ZVTSList<MCObjectSemHandler*> m_xDescendants;
    unsigned long m_nInterests = 0;
    unsigned long m_nExternalInterests = 0;
    // LoneLevel's answer and the registry-change count it holds at: every change to a rule list or a link
    // moves the count on.
    std::uint64_t m_nLoneChanges = 0;
    MCObjectSemHandler* m_pxLoneLevel = nullptr;
};

/// The process-wide table of object rules, one handler per object type. Made on first use, deleted by
/// MdlCore::Terminate; once deleted it stays gone, so rules of static storage that die at unload find
/// nothing to leave.
class MODELCORE_API MCObjectSemReg {
public:
    /// 0 in use; 1 from the start of the destructor on.
    enum State { stateInUse = 0, stateDying = 1 };

    /// The registry, made on first use; null once it has been deleted.
    static MCObjectSemReg* GetInstance();
    /// Deletes the registry and its handlers for good; nothing when there is none.
    static void DeleteInstance();

    /// Makes the handler of `nType` linked through the context and adds `pSemantic` once (null only makes
    /// the link); nothing without a context.
    static void Register(short nType, MCFactoryContext* pContext, const MCObjectSem* pSemantic,
                         ZVTBoolean bSetContext);
    /// Makes the handler of `nType` under the context's ancestor; an alias is linked under its concrete
    /// type instead. True when the handler was made now.
    ZVTBoolean CreateHandler(short nType, MCFactoryContext* pContext, ZVTBoolean bSetContext);
    /// Adds the proxy of a rule that lives in an add-in; the handler owns it from then on. A proxy that
    /// another type's handler already owns is ignored. Defined with the proxy, in MCAddInHook.cpp.
    void RegisterExternalSemantic(short nType, const MCExternalObjectSem* pSemantic, ZVTBoolean bSetContext);
    /// Removes and deletes the handler of a type; only for a type that no other type derives from.
    void Deregister(short nType);
    /// Takes the rule out of every handler.
    void Deregister(const MCObjectSem* pSemantic);
    /// Whether the type has a handler, with or without rules.
    ZVTBoolean IsRegistered(short nType) const;
    /// Whether the rule stands in the handler of `nType`.
    ZVTBoolean IsRegistered(short nType, const MCObjectSem* pSemantic) const;
    /// Whether the rule stands in any handler.
    ZVTBoolean IsRegistered(const MCObjectSem* pSemantic) const;
    /// Whether any type's rules, its own or inherited, were ever interested in `nMode`; masks keep their
    /// bits when rules leave, so a true answer may be stale, a false one never is.
    ZVTBoolean HasInterest(MCObjectSem::mode nMode) const;

    /// Fires the rules of `pObject`'s type chain in `nMode`; 1 when a rule failed (named in `rpFailed`),
    /// also for a null object, 0 otherwise, a stop included.
    static MCObjectSem::result FireSemantics(MCObjectSem::mode nMode, MCObject* pObject,
                                             MCObjectSem*& rpFailed, MCObjectSemContext* pContext,
                                             ZVTBoolean bDerivedFirst);
    /// FireSemantics in derived-first order without a context, for a caller that knows the rule it expects:
    /// when `rRule` is the only rule on `pObject`'s whole type chain it is called directly, sparing the
    /// walk over the empty levels; rules registered while it runs still fire as the walk would reach them.
    /// Any other chain takes the walk.
    static MCObjectSem::result FireDerivedFirst(MCObjectSem::mode nMode, MCObject* pObject,
                                                MCObjectSem& rRule, MCObjectSem*& rpFailed);
    /// FireSemantics in root-first order for a caller that knows the rule it expects: when `rRule` is the
    /// only rule on `pObject`'s whole type chain it is called directly; rules registered while it runs
    /// still fire as the walk would reach them. Any other chain takes the walk.
    static MCObjectSem::result FireRootFirst(MCObjectSem::mode nMode, MCObject* pObject, MCObjectSem& rRule,
                                             MCObjectSem*& rpFailed, MCObjectSemContext* pContext);

    /// "PostCreation", "PreDestructon", "CalculateData", and "Invalid mode" for every other value.
    ZVTString GetModeName(MCObjectSem::mode nMode) const;
    /// The registry's state.
    State GetState() const { return m_eState; }

protected:
    /// The handler of `nType`, null when there is none.
    MCObjectSemHandler* FindHandler(short nType) const;

private:
    friend class MCObjectSem;
    friend class MCObjectSemHandler;
    // A new object finds its type's handler once, both to know that rules may apply and to fire them.
    friend class MCObject;

    MCObjectSemReg();
    virtual ~MCObjectSemReg();
    MCObjectSemReg(const MCObjectSemReg&) = delete;
    MCObjectSemReg& operator=(const MCObjectSemReg&) = delete;

    void RemoveHandler(short nType);
    // The handler of `pObject`'s own type, or null (no object, no registry, no rules for the type).
    static MCObjectSemHandler* HandlerOf(const MCObject* pObject);
    // The level holding `rRule` when it is the only rule on the type chain that starts at `pFirst`, the
    // handler of the object's own type, and answers `nMode`; else null.
    static MCObjectSemHandler* LoneLevelFrom(MCObjectSemHandler* pFirst, MCObjectSem::mode nMode,
                                             MCObjectSem& rRule);
    // FireRootFirst with `pFirst`, the handler of the object's own type, already found.
    static MCObjectSem::result FireRootFirst(MCObjectSemHandler* pFirst, MCObjectSem::mode nMode,
                                             MCObject* pObject, MCObjectSem& rRule, MCObjectSem*& rpFailed,
                                             MCObjectSemContext* pContext);

    static MCObjectSemReg* c_pxSingleton;
    static ZVTBoolean ms_bDead;
    ZVTHDict<short, MCObjectSemHandler*> m_xHandlers;
    // The handlers FindHandler found lately; forgotten whenever a handler comes or goes. Every object
    // made asks for each of its class levels.
    mutable ZVTRecentT<MCObjectSemHandler> m_xRecent;
    State m_eState = stateInUse;
};

#endif
