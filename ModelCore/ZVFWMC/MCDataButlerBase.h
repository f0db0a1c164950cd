#ifndef MCDATABUTLERBASE_H
#define MCDATABUTLERBASE_H

// The engine of the data butler, the bridge from a template engine to a model. Each macro call is
// dispatched by name to a stateless handler (MCDataButler.h); what the handlers work on lives in one
// counted state shared by the copies of a butler: a stack of current objects over the anchor, a stack of
// running iterations and a table of named variables. Every call costs hash look-ups and no walk of the
// model or of the metamodel.

#include <cstdint>

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCVRefIter.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTString.h"
#include "platform/ZVM.h"

class MCDataButlerState;
class MCMacroHandlerBase;
class MCObject;
class MCPropertyIter;

/// A named variable of a butler; the butler's state owns it from its creation to DestroyVariable or the
/// state's end. Templates read and write it through the typed operations of MCDataButlerBase.
struct MODELCORE_API MCDataButlerVariable {
    /// The kind of a variable; varNone is the answer for an unknown name. The values must not change.
    enum vartype { varNone = 0, varInteger = 1, varString = 2, varObject = 3 };

    /// A variable of kind `type`.
    explicit MCDataButlerVariable(vartype type) : m_nType(type) {}
    MCDataButlerVariable(const MCDataButlerVariable&) = delete;
    MCDataButlerVariable& operator=(const MCDataButlerVariable&) = delete;
    /// Virtual: the state deletes variables through this base.
    virtual ~MCDataButlerVariable();

    /// The value as text.
    virtual ZVTString GetAsString() const = 0;

    vartype m_nType;
};

/// An integer variable; it holds 0 until SetInteger.
struct MODELCORE_API MCDataButlerInteger : MCDataButlerVariable {
    MCDataButlerInteger() : MCDataButlerVariable(varInteger) {}
    /// The value in decimal, with its sign.
    ZVTString GetAsString() const override;

    int m_nValue = 0;
};

/// A string variable; it holds the empty text until SetString.
struct MODELCORE_API MCDataButlerString : MCDataButlerVariable {
    MCDataButlerString() : MCDataButlerVariable(varString) {}
    /// The value.
    ZVTString GetAsString() const override;

    ZVTString m_xValue;
};

/// An object variable; it holds null until SetObject. It keeps its object's id, so GetObjectA gives null
/// for an object that has ended since; a host that reads m_pxValue directly gets no such check.
struct MODELCORE_API MCDataButlerObject : MCDataButlerVariable {
    MCDataButlerObject() : MCDataButlerVariable(varObject) {}
    /// The empty text: an object has no text form here.
    ZVTString GetAsString() const override;

    MCObject* m_pxValue = nullptr;
    /// The object's id, and the count of ended objects (mc_detail::ObjectEnds) when it was last known
    /// alive; set by SetObject.
    long m_lId = 0;
    std::uint64_t m_nEnds = 0;
};

/// One running iteration on a butler's iterator stack, which owns it from PushIter until the iteration
/// ends. A derived class owns the iterator it hands to the constructor and says which object a pass
/// stands on; hosts derive their own kinds, for instance over a host-made ZVTSList<MCObject*> with an
/// MCVRefIter(list) member, and push them from their own handlers.
class MODELCORE_API MCIterProxy {
public:
    MCIterProxy(const MCIterProxy&) = delete;
    MCIterProxy& operator=(const MCIterProxy&) = delete;
    /// Virtual: the butler deletes proxies through this base.
    virtual ~MCIterProxy();

    /// The object of the current pass, which becomes the current context; null is allowed.
    virtual MCObject* GetCurrentObject() = 0;

    /// The number of elements the iterator gives.
    long GetCount() const;
    /// How many passes have begun: 0 before the first NextIteration, 1 during the first pass.
    long GetCurrent() const { return m_lCurrent; }
    /// Whether the iteration runs over a reference property.
    ZVTBoolean IsReference() const { return m_bReference; }
    /// Names the integer variable that ends the iteration, before its next pass, when it is 0 or not an
    /// integer variable; the empty name (the default) names none.
    void SetBreakOn(const ZVTString& variable) { m_xBreakOn = variable; }
    /// The break-on variable's name; empty for none.
    const ZVTString& GetBreakOn() const { return m_xBreakOn; }
    /// The name under which NextIteration finds the iteration.
    const ZVTString& GetName() const { return m_xName; }

protected:
    /// A proxy named `name` that drives `iterator`, which stays the derived class's: it must live as
    /// long as the proxy.
    MCIterProxy(const ZVTString& name, MCPropertyIter& iterator, ZVTBoolean reference);

private:
    friend class MCDataButlerBase;

    ZVTString m_xName;
    MCPropertyIter* m_pxIterator;
    ZVTBoolean m_bReference;
    long m_lCurrent = 0;
    ZVTString m_xBreakOn;
};

/// The iteration of ForEach: the targets of a list reference of an object, in list order. The walk runs
/// on the live list, which must not change while the iteration runs.
class MODELCORE_API MCiForEach : public MCIterProxy {
public:
    /// The iteration `name` over the list reference of `propertyType` on `object`; an object without such
    /// a property (or a null one) gives a count of 0.
    MCiForEach(const ZVTString& name, MCObject* object, short propertyType);
    ~MCiForEach() override;

    /// The target of the current pass; null before the first. EXInvalidIter when there is nothing to walk.
    MCObject* GetCurrentObject() override;

private:
    MCVRefIter m_xIterator;
};

/// The macro side's butler: dispatches each call by macro name to a handler of its table, and holds the
/// contexts, iterations and variables that the handlers use. The state is shared by copies and dies with
/// the last of them. Hosts derive from MCDataButler (or from this class) to add handlers of their own.
class MODELCORE_API MCDataButlerBase : public ZVMDataButler {
public:
    /// Message of a macro name that no handler answers; its text is the name.
    static constexpr unsigned int c_nUnknownMacroMessage = MCCodes::msgUnknownMacro;

    /// A butler on the same state as `other`.
    MCDataButlerBase(const MCDataButlerBase& other);
    /// Lets go of this butler's state and shares `other`'s.
    MCDataButlerBase& operator=(const MCDataButlerBase& other);
    /// Lets go of the state; the last butler on it deletes it with its variables and the iterations that
    /// a template left running.
    ~MCDataButlerBase() override;

    /// The value of macro `name` with `arguments` into `result`; message 59000 and false for an unknown
    /// name.
    ZVTBoolean SubstituteValue(const ZVTString& name, ZVMStringList& arguments, ZVTString& result) override;
    /// The same without an argument list.
    ZVTBoolean SubstituteValue(const ZVTString& name, ZVTString& result) override;
    /// Macro `name` with `arguments` and no result: ForEach starts an iteration; a macro that writes a
    /// value answers false and does nothing.
    ZVTBoolean StartIteration(const ZVTString& name, ZVMStringList& arguments) override;
    /// The same without an argument list.
    ZVTBoolean StartIteration(const ZVTString& name) override;
    /// Begins the next pass of the innermost iteration named `name`, deleting the iterations above it
    /// (whose current objects stay on the context stack). False when it has ended, when no iteration has
    /// that name (all are deleted then) or the stack is empty.
    ZVTBoolean NextIteration(const ZVTString& name) override;
    /// Whether the handler table holds `name`, exactly as written.
    ZVTBoolean KnowsMacro(const ZVTString& name) const override;
    /// A new butler of the same kind; the base and MCDataButler make none and answer null. A copy on the
    /// same state comes from the copy constructor.
    virtual MCDataButlerBase* Clone();

    /// The hash of the handler table: ZVTString::Hash.
    static unsigned int HashMacroName(const ZVTString& name);

    // --- contexts ---------------------------------------------------------------------------------

    // An object the butler keeps (the anchor, a context, an object variable) may end between macro calls,
    // for instance in a CalculateValue rule: each is kept with its id, and reads as null from then on.

    /// Makes `object` the anchor and pushes it on the context stack; the earlier anchor stays below it.
    void SetAnchorContext(MCObject* object);
    /// The anchor when `type` is 0 or the anchor is of `type` or derives from it; otherwise null.
    MCObject* GetAnchorContext(short type) const;
    /// The top of the context stack, which may be null (also once that object has ended); EXUnexpected on
    /// an empty stack.
    MCObject* GetContext() const;
    /// The object of the innermost iteration whose current object is not null and, unless `type` is 0,
    /// of `type` or derived from it; null when none is.
    MCObject* GetIterContext(short type) const;
    /// The top of the context stack if it is not null and fits `type` (0 fits every object), else
    /// GetIterContext(type), else GetAnchorContext(type).
    MCObject* GetCurrentContext(short type) const;
    /// Pushes `object`, null included.
    void PushCurrentContext(MCObject* object);
    /// Pops the top; nothing on an empty stack.
    void PopCurrentContext();
    /// The number of objects on the context stack.
    long GetContextStackCount() const;

    // --- iterations -------------------------------------------------------------------------------

    /// The number of running iterations.
    long GetIteratorStackCount() const;
    /// The innermost running iteration; null when none runs.
    MCIterProxy* GetIteratorStackLast() const;
    /// Makes `proxy` the innermost iteration; the state owns it from now on, and deletes it at once when
    /// the stack cannot grow (std::bad_alloc then passes on). A null proxy, or one already on the stack, is
    /// ignored.
    void PushIter(MCIterProxy* proxy);
    /// Begins the next pass of `proxy`, which must be the innermost iteration (false and nothing changes
    /// otherwise): takes off the object of the pass that ends, then either advances and pushes the new
    /// object (true), or, at the end or with the break-on variable at 0 or missing, deletes the proxy
    /// (false).
    ZVTBoolean IncrementIter(MCIterProxy& proxy);

    // --- variables: unknown names, and typed access to a variable of another type, answer false -----

    /// The type of variable `name`; varNone for an unknown name.
    MCDataButlerVariable::vartype GetVariableType(const ZVTString& name) const;
    /// The variable `name`, owned by the state and valid until it is destroyed; null for an unknown name.
    MCDataButlerVariable* FindVariable(const ZVTString& name) const;
    /// Creates the integer variable `name` holding 0; false, changing nothing, when the name exists.
    ZVTBoolean CreateInteger(const ZVTString& name);
    /// Creates the string variable `name` holding the empty text; false when the name exists.
    ZVTBoolean CreateString(const ZVTString& name);
    /// Creates the object variable `name` holding null; false when the name exists.
    ZVTBoolean CreateObject(const ZVTString& name);
    /// Removes and deletes variable `name`.
    ZVTBoolean DestroyVariable(const ZVTString& name);
    /// Copies the integer `name` into `value`; `value` stays as it was on false.
    ZVTBoolean GetInteger(const ZVTString& name, int& value) const;
    /// Sets the integer `name`.
    ZVTBoolean SetInteger(const ZVTString& name, int value);
    /// Copies the string `name` into `value`; `value` stays as it was on false.
    ZVTBoolean GetString(const ZVTString& name, ZVTString& value) const;
    /// Sets the string `name`.
    ZVTBoolean SetString(const ZVTString& name, ZVTString value);
    /// Copies the object `name` into `value`, null once that object has ended; `value` stays as it was on
    /// false.
    ZVTBoolean GetObjectA(const ZVTString& name, MCObject*& value) const;
    /// Sets the object `name`.
    ZVTBoolean SetObject(const ZVTString& name, MCObject* value);

protected:
    /// A butler with no handler whose context stack holds `anchor` unless it is null.
    explicit MCDataButlerBase(MCObject* anchor);

    /// Enters `handler` under `name`, replacing the handler the name had, so a derived butler can add or
    /// redefine macros; the handler is not owned and must outlive the state. A null handler is ignored.
    void AddHandler(const ZVTString& name, MCMacroHandlerBase* handler);
    /// Where every call of the macro side ends: the handler of `name` with `arguments` (null without a
    /// list) and `result` (null for an iteration); message 59000 and false for an unknown name.
    ZVTBoolean Handle(const ZVTString& name, ZVMStringList* arguments, ZVTString* result);

private:
    MCDataButlerState* m_pxState;
};

#endif
