#ifndef MCADDINHOOK_H
#define MCADDINHOOK_H

// Rules that live in add-in components. The core holds a small proxy per rule that knows the component's
// name and the rule's name; fired, it looks the component up and passes the firing on by names and ids,
// so no pointer crosses to the component. A proxy may be limited to the subtree of a scope object, whose
// death it hears of as a reference holder, and then leaves every list by itself.
//
// A scope that goes without a SubjectDestroyed (a silent tree expunge: itemTreeExpunge, below a
// persistence unit's root) does not tell its proxies: like a reference into such a unit, a proxy scoped
// there must be deleted or deregistered before the unit goes.

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCObjectSem.h"
#include "ModelCore/ZVFWMC/MCPropertySemantics.h"
#include "ModelCore/ZVFWMC/MCSubscriber.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTString.h"

/// The proxy of an object rule held by a component. Registered with MCObjectSemReg::RegisterExternalSemantic
/// it belongs to the handler, which deletes it at the latest at MdlCore::Terminate; once retired by its
/// scope's death it belongs to its maker again. Fires in PostCreation, PreDestructon and CalculateData.
class MODELCORE_API MCExternalObjectSem : public MCObjectSem, public MCSubscriber {
public:
    /// Shown, with the component's name in its one slot, each time a firing finds no such component.
    static constexpr long c_nMissingComponentMessage = MCCodes::msgMissingComponent;

    /// A proxy of `semanticName` in `componentName`, limited to the subtree of `pScope` unless it is null;
    /// it listens to the scope from now on, registered or not.
    MCExternalObjectSem(ZVTString componentName, ZVTString semanticName, MCObject* pScope);
    /// Leaves every handler (unless the registry is being torn down) and the scope's subscribers.
    ~MCExternalObjectSem() override;

    /// 0 for a mode it has no interest in, a null object or one outside the scope (the scope itself is
    /// inside); 0 after message 603 when the component is unknown; else the component's answer, 0 for one
    /// outside 0 to 2.
    result Fire(mode nMode, MCObject* pObject, MCObjectSemContext* pContext) override;
    /// Retires the proxy when its scope is destroyed: out of every handler, no scope. Other events are
    /// ignored.
    void Notify(MCEvent& rEvent) override;

    /// The component's name.
    const ZVTString& GetComponentName() const { return m_xComponentName; }
    /// The rule's name in the component.
    const ZVTString& GetSemanticName() const { return m_xSemanticName; }
    /// The scope object; null without a scope or once retired.
    MCObject* GetOwner() const { return m_pxScope; }

private:
    ZVTString m_xComponentName;
    ZVTString m_xSemanticName;
    MCObject* m_pxScope;
};

/// The proxy of a property rule held by a component, fired in PreEdit and PostEdit only (never for an
/// heir's inherited edit). The registry's lists do not own it: its maker deletes it, before
/// MdlCore::Terminate.
class MODELCORE_API MCExternalPropertySemantic : public MCPropertySemantic, public MCSubscriber {
public:
    /// Shown, with the component's name in its one slot, each time a firing finds no such component.
    static constexpr long c_nMissingComponentMessage = MCExternalObjectSem::c_nMissingComponentMessage;

    /// A proxy of `semanticName` in `componentName`, limited to the subtree of `pScope` unless it is null;
    /// `bIncludeScope` says whether the scope object's own properties count. It listens to the scope from
    /// now on.
    MCExternalPropertySemantic(ZVTString componentName, ZVTString semanticName, MCObject* pScope,
                               ZVTBoolean bIncludeScope);
    /// Leaves every list (unless the registry is being torn down or gone) and the scope's subscribers.
    ~MCExternalPropertySemantic() override;

    /// 0 for a mode other than PreEdit and PostEdit, a null object or property, or an object outside the
    /// scope; 0 after message 603 when the component is unknown; else the component's answer, 0 for one
    /// outside 0 to 2.
    result Fire(mode nMode, MCObject* pObject, MCProperty* pProperty,
                MCPropertySemanticContext* pContext) override;
    /// PreEdit and PostEdit.
    unsigned long GetInterests() const override;
    /// Retires the proxy when its scope is destroyed: out of every list, no scope. Other events are ignored.
    void Notify(MCEvent& rEvent) override;

    /// The scope object; null without a scope or once retired.
    MCObject* GetOwner() const { return m_pxScope; }
    /// The component's name.
    const ZVTString& GetComponentName() const { return m_xComponentName; }
    /// The rule's name in the component.
    const ZVTString& GetSemanticName() const { return m_xSemanticName; }
    /// Whether the scope object's own properties count.
    ZVTBoolean GetIncludeScope() const { return m_bIncludeScope; }

private:
    ZVTString m_xComponentName;
    ZVTString m_xSemanticName;
    MCObject* m_pxScope;
    ZVTBoolean m_bIncludeScope;
};

/// The core's object type 27 ("AddInHook"), a place for the rules of add-ins from the start: no data and
/// no behaviour of its own. Made only through its factory; a host decides what hangs on it.
class MODELCORE_API MCAddInHook : public MCObject {
public:
    /// The type code of add-in hooks.
    static constexpr short c_sType = MCCodes::tAddInHook;

protected:
    friend class MCFactoryT<MCAddInHook, MCObject>;

    /// Enters type 27 into the property rule, object rule and notification chains, in that order.
    MCAddInHook(MCObject* pOwner, MCFactoryContext* pContext);
    ~MCAddInHook() override;
};

#endif
