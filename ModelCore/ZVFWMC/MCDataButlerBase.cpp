#include "ModelCore/ZVFWMC/MCDataButlerBase.h"

#include <memory>
#include <utility>

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCDataButler.h"
#include "ModelCore/ZVFWMC/MCEndsPrivate.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "foundation/ZVTDList.h"
#include "foundation/ZVTHDict.h"
#include "foundation/ZVTReference.h"
#include "foundation/ZVTStack.h"
#include "platform/HUB.h"

namespace {

const ZVTString c_xSourceFile("ModelCore/ZVFWMC/MCDataButlerBase");

constexpr size_t c_nTableBuckets = 64;

// A kept object: a rule that runs between macro calls (CalculateValue) may destroy it, and a read then
// gives null.
using Held = mc_detail::HeldObject;

}  // namespace

/// What the copies of a butler share: the handler table, the anchor, the running iterations (innermost
/// last) and the current objects (top is the current context), and the variables. It owns the proxies
/// and the variables, not the handlers.
class MCDataButlerState : public ZVTReference {
public:
    explicit MCDataButlerState(MCObject* anchor)
        : m_xHandlers(&MCDataButlerBase::HashMacroName, c_nTableBuckets),
          m_xAnchor(anchor),
          m_xVariables(&ZVTString::Hash, c_nTableBuckets) {
        if (anchor)
            m_xContexts.Push(m_xAnchor);
    }
    ~MCDataButlerState() override {
        while (!m_xIterators.IsEmpty())
            delete m_xIterators.RemoveLast();
        ZVTHDictIter<ZVTString, MCDataButlerVariable*> variables(m_xVariables);
        while (++variables)
            delete variables.Value();
    }

    ZVTHDict<ZVTString, MCMacroHandlerBase*> m_xHandlers;
    Held m_xAnchor;
    ZVTDList<MCIterProxy*> m_xIterators;
    // On an array rather than a linked list: a pass pops one object and pushes the next, which then
    // reuses the slot instead of allocating a node.
    ZVTStackT<Held> m_xContexts;
    ZVTHDict<ZVTString, MCDataButlerVariable*> m_xVariables;
};

// ---------------------------------------------------------------------------------------------------
// Variables

MCDataButlerVariable::~MCDataButlerVariable() = default;

ZVTString MCDataButlerInteger::GetAsString() const {
    return ZVTString(static_cast<long>(m_nValue), 10);
}

ZVTString MCDataButlerString::GetAsString() const {
    return m_xValue;
}

ZVTString MCDataButlerObject::GetAsString() const {
    return ZVTString("");
}

// ---------------------------------------------------------------------------------------------------
// Iteration proxies

MCIterProxy::MCIterProxy(const ZVTString& name, MCPropertyIter& iterator, ZVTBoolean reference)
    : m_xName(name), m_pxIterator(&iterator), m_bReference(reference) {}

MCIterProxy::~MCIterProxy() = default;

long MCIterProxy::GetCount() const {
    return m_pxIterator->GetCount();
}

MCiForEach::MCiForEach(const ZVTString& name, MCObject* object, short propertyType)
    : MCIterProxy(name, m_xIterator, true), m_xIterator(object, propertyType) {}

MCiForEach::~MCiForEach() = default;

MCObject* MCiForEach::GetCurrentObject() {
    return m_xIterator.GetValue();
}

// ---------------------------------------------------------------------------------------------------
// MCDataButlerBase: life and dispatch

MCDataButlerBase::MCDataButlerBase(MCObject* anchor) : m_pxState(new MCDataButlerState(anchor)) {
    m_pxState->AddReference();
}

MCDataButlerBase::MCDataButlerBase(const MCDataButlerBase& other)
    : ZVMDataButler(other), m_pxState(other.m_pxState) {
    m_pxState->AddReference();
}

MCDataButlerBase& MCDataButlerBase::operator=(const MCDataButlerBase& other) {
    // Counted first, so assigning a butler to itself or to a copy keeps the state alive.
    other.m_pxState->AddReference();
    m_pxState->RemoveReference();
    m_pxState = other.m_pxState;
    return *this;
}

MCDataButlerBase::~MCDataButlerBase() {
    m_pxState->RemoveReference();
}

ZVTBoolean MCDataButlerBase::SubstituteValue(const ZVTString& name, ZVMStringList& arguments,
                                             ZVTString& result) {
    return Handle(name, &arguments, &result);
}

ZVTBoolean MCDataButlerBase::SubstituteValue(const ZVTString& name, ZVTString& result) {
    return Handle(name, nullptr, &result);
}

ZVTBoolean MCDataButlerBase::StartIteration(const ZVTString& name, ZVMStringList& arguments) {
    return Handle(name, &arguments, nullptr);
}

ZVTBoolean MCDataButlerBase::StartIteration(const ZVTString& name) {
    return Handle(name, nullptr, nullptr);
}

ZVTBoolean MCDataButlerBase::NextIteration(const ZVTString& name) {
    ZVTDList<MCIterProxy*>& iterators = m_pxState->m_xIterators;
    while (!iterators.IsEmpty()) {
        MCIterProxy* last = iterators.Last();
        if (last->GetName() == name)
            return IncrementIter(*last);
        iterators.RemoveLast();
        delete last;
    }
    return false;
}

ZVTBoolean MCDataButlerBase::KnowsMacro(const ZVTString& name) const {
    return m_pxState->m_xHandlers.Contains(name);
}

MCDataButlerBase* MCDataButlerBase::Clone() {
    return nullptr;
}

unsigned int MCDataButlerBase::HashMacroName(const ZVTString& name) {
    return ZVTString::Hash(name);
}

void MCDataButlerBase::AddHandler(const ZVTString& name, MCMacroHandlerBase* handler) {
    if (handler)
        m_pxState->m_xHandlers.Insert(name, handler);
}

ZVTBoolean MCDataButlerBase::Handle(const ZVTString& name, ZVMStringList* arguments, ZVTString* result) {
    MCMacroHandlerBase* handler = nullptr;
    if (!m_pxState->m_xHandlers.Find(name, handler)) {
        HUBMessage::DisplayMessage(c_nUnknownMacroMessage, name.str().c_str(), MCCodes::styleDisplay, nullptr,
                                   HUBMessage::textPlain);
        return false;
    }
    return handler->HandleMacro(this, name, arguments, result);
}

// ---------------------------------------------------------------------------------------------------
// Contexts

void MCDataButlerBase::SetAnchorContext(MCObject* object) {
    const Held anchor(object);
    m_pxState->m_xContexts.Push(anchor);
    m_pxState->m_xAnchor = anchor;
}

MCObject* MCDataButlerBase::GetAnchorContext(short type) const {
    MCObject* anchor = m_pxState->m_xAnchor.Get();
    if (anchor && (type == 0 || anchor->IsType(type, MCItem::rttiDerived)))
        return anchor;
    return nullptr;
}

MCObject* MCDataButlerBase::GetContext() const {
    if (m_pxState->m_xContexts.IsEmpty())
        MC_THROW_UNEXPECTED(c_xSourceFile);
    return m_pxState->m_xContexts.Top().Get();
}

MCObject* MCDataButlerBase::GetIterContext(short type) const {
    const ZVTDList<MCIterProxy*>& iterators = m_pxState->m_xIterators;
    for (size_t i = iterators.Entries(); i-- > 0;) {
        MCObject* object = iterators.At(i)->GetCurrentObject();
        if (object && (type == 0 || object->IsType(type, MCItem::rttiDerived)))
            return object;
    }
    return nullptr;
}

MCObject* MCDataButlerBase::GetCurrentContext(short type) const {
    ZVTStackT<Held>& contexts = m_pxState->m_xContexts;
    if (!contexts.IsEmpty()) {
        MCObject* top = contexts.Top().Get();
        if (top && (type == 0 || top->IsType(type, MCItem::rttiDerived)))
            return top;
    }
    if (MCObject* object = GetIterContext(type))
        return object;
    return GetAnchorContext(type);
}

void MCDataButlerBase::PushCurrentContext(MCObject* object) {
    m_pxState->m_xContexts.Push(Held(object));
}

void MCDataButlerBase::PopCurrentContext() {
    if (!m_pxState->m_xContexts.IsEmpty())
        m_pxState->m_xContexts.Pop();
}

long MCDataButlerBase::GetContextStackCount() const {
    return static_cast<long>(m_pxState->m_xContexts.Entries());
}

// ---------------------------------------------------------------------------------------------------
// Iterations

long MCDataButlerBase::GetIteratorStackCount() const {
    return static_cast<long>(m_pxState->m_xIterators.Entries());
}

MCIterProxy* MCDataButlerBase::GetIteratorStackLast() const {
    const ZVTDList<MCIterProxy*>& iterators = m_pxState->m_xIterators;
    return iterators.IsEmpty() ? nullptr : iterators.Last();
}

void MCDataButlerBase::PushIter(MCIterProxy* proxy) {
    // Linear in the nesting depth only; a proxy entered twice would be deleted twice.
    if (!proxy || m_pxState->m_xIterators.Contains(proxy))
        return;
    try {
        m_pxState->m_xIterators.Append(proxy);
    } catch (...) {
        // Handed over all the same: the caller let go of it with the call.
        delete proxy;
        throw;
    }
}

ZVTBoolean MCDataButlerBase::IncrementIter(MCIterProxy& proxy) {
    ZVTDList<MCIterProxy*>& iterators = m_pxState->m_xIterators;
    if (iterators.IsEmpty() || iterators.Last() != &proxy)
        return false;
    if (proxy.m_lCurrent > 0)
        PopCurrentContext();
    ZVTBoolean more = true;
    if (!proxy.m_xBreakOn.IsNull()) {
        int value = 0;
        more = GetInteger(proxy.m_xBreakOn, value) && value != 0;
    }
    if (more)
        more = ++*proxy.m_pxIterator;
    if (!more) {
        iterators.RemoveLast();
        delete &proxy;
        return false;
    }
    // Read before counting, so a proxy that throws here leaves the pass count and the stack in step.
    MCObject* object = proxy.GetCurrentObject();
    ++proxy.m_lCurrent;
    PushCurrentContext(object);
    return true;
}

// ---------------------------------------------------------------------------------------------------
// Variables

namespace {

template <class Variable>
Variable* FindTyped(const ZVTHDict<ZVTString, MCDataButlerVariable*>& variables, const ZVTString& name,
                    MCDataButlerVariable::vartype type) {
    MCDataButlerVariable* variable = nullptr;
    if (!variables.Find(name, variable) || variable->m_nType != type)
        return nullptr;
    return static_cast<Variable*>(variable);
}

template <class Variable>
ZVTBoolean Create(ZVTHDict<ZVTString, MCDataButlerVariable*>& variables, const ZVTString& name) {
    if (variables.Contains(name))
        return false;
    // Held here until the table has taken it: the insert may fail.
    auto variable = std::make_unique<Variable>();
    variables.Insert(name, variable.get());
    variable.release();
    return true;
}

}  // namespace

MCDataButlerVariable::vartype MCDataButlerBase::GetVariableType(const ZVTString& name) const {
    MCDataButlerVariable* variable = FindVariable(name);
    return variable ? variable->m_nType : MCDataButlerVariable::varNone;
}

MCDataButlerVariable* MCDataButlerBase::FindVariable(const ZVTString& name) const {
    MCDataButlerVariable* variable = nullptr;
    m_pxState->m_xVariables.Find(name, variable);
    return variable;
}

ZVTBoolean MCDataButlerBase::CreateInteger(const ZVTString& name) {
    return Create<MCDataButlerInteger>(m_pxState->m_xVariables, name);
}

ZVTBoolean MCDataButlerBase::CreateString(const ZVTString& name) {
    return Create<MCDataButlerString>(m_pxState->m_xVariables, name);
}

ZVTBoolean MCDataButlerBase::CreateObject(const ZVTString& name) {
    return Create<MCDataButlerObject>(m_pxState->m_xVariables, name);
}

ZVTBoolean MCDataButlerBase::DestroyVariable(const ZVTString& name) {
    MCDataButlerVariable* variable = nullptr;
    if (!m_pxState->m_xVariables.Find(name, variable))
        return false;
    m_pxState->m_xVariables.Remove(name);
    delete variable;
    return true;
}

ZVTBoolean MCDataButlerBase::GetInteger(const ZVTString& name, int& value) const {
    auto* variable =
        FindTyped<MCDataButlerInteger>(m_pxState->m_xVariables, name, MCDataButlerVariable::varInteger);
    if (!variable)
        return false;
    value = variable->m_nValue;
    return true;
}

ZVTBoolean MCDataButlerBase::SetInteger(const ZVTString& name, int value) {
    auto* variable =
        FindTyped<MCDataButlerInteger>(m_pxState->m_xVariables, name, MCDataButlerVariable::varInteger);
    if (!variable)
        return false;
    variable->m_nValue = value;
    return true;
}

ZVTBoolean MCDataButlerBase::GetString(const ZVTString& name, ZVTString& value) const {
    auto* variable =
        FindTyped<MCDataButlerString>(m_pxState->m_xVariables, name, MCDataButlerVariable::varString);
    if (!variable)
        return false;
    value = variable->m_xValue;
    return true;
}

ZVTBoolean MCDataButlerBase::SetString(const ZVTString& name, ZVTString value) {
    auto* variable =
        FindTyped<MCDataButlerString>(m_pxState->m_xVariables, name, MCDataButlerVariable::varString);
    if (!variable)
        return false;
    variable->m_xValue = std::move(value);
    return true;
}

ZVTBoolean MCDataButlerBase::GetObjectA(const ZVTString& name, MCObject*& value) const {
    auto* variable =
        FindTyped<MCDataButlerObject>(m_pxState->m_xVariables, name, MCDataButlerVariable::varObject);
    if (!variable)
        return false;
    // Between macro calls a rule may have destroyed the object.
    value = mc_detail::StillThere(variable->m_pxValue, variable->m_lId, variable->m_nEnds);
    return true;
}

ZVTBoolean MCDataButlerBase::SetObject(const ZVTString& name, MCObject* value) {
    auto* variable =
        FindTyped<MCDataButlerObject>(m_pxState->m_xVariables, name, MCDataButlerVariable::varObject);
    if (!variable)
        return false;
    variable->m_pxValue = value;
    variable->m_lId = value ? value->GetId() : 0;
    variable->m_nEnds = mc_detail::t_nObjectEnds;
    return true;
}
