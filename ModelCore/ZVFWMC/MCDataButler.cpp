#include "ModelCore/ZVFWMC/MCDataButler.h"

#include <cstdlib>
#include <memory>

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCProperty.h"
#include "ModelCore/ZVFWMC/MCPropertyConverter.h"
#include "ModelCore/ZVFWMC/MCPropertySemantics.h"
#include "ModelCore/ZVFWMC/MCRefProperty.h"
#include "platform/HUB.h"

namespace {

constexpr int c_nDecimal = 10;

// The handlers without a class-wide member.
MCConcatenateHandler s_xConcatenate;
MCHasPropertyHandler s_xHasProperty;
MC_NE_PropertyHandler s_xNotEmptyProperty;
MCNotHasPropertyHandler s_xNotHasProperty;
MCReferencePropertyEqualHandler s_xReferencePropertyEqual;
MCSetObjectHandler s_xSetObject;

long Count(const ZVMStringList* arguments) {
    return arguments ? arguments->GetCount() : 0;
}

// The "Default" rule: a value that was read stands; otherwise the default argument at `index`, if given.
ZVTBoolean OrDefault(ZVTBoolean read, const ZVMStringList* arguments, long index, ZVTString& result) {
    if (read)
        return true;
    if (Count(arguments) <= index)
        return false;
    result = (*arguments)[index];
    return true;
}

// Shows `message` with the type code as its text; false, the answer of the read that failed.
ZVTBoolean ShowMessage(unsigned int message, short code) {
    const ZVTString text(static_cast<long>(code), c_nDecimal);
    HUBMessage::DisplayMessage(message, text.str().c_str(), MCCodes::styleDisplay, nullptr,
                               HUBMessage::textPlain);
    return false;
}

}  // namespace

// ---------------------------------------------------------------------------------------------------
// MCMacroHandlerBase

MCMacroHandlerBase::~MCMacroHandlerBase() = default;

ZVTBoolean MCMacroHandlerBase::RetrieveProperty(const MCObject* object, const ZVTString& name,
                                                ZVTString& value) const {
    if (!object)
        return false;
    const short code = MCFactoryRegistry::Lookup(name);
    if (code == 0)
        return false;
    const MCProperty* property = object->FindProperty(code, false);
    if (!property)
        return false;
    const MCPropertyConverter* converter = MCPropertyConverterRegistry::GetConverter(code, MCCodes::pString);
    if (!converter)
        return ShowMessage(c_nNoConverterMessage, code);
    auto* text = dynamic_cast<const MCToStringConverter*>(converter);
    if (!text)
        return ShowMessage(c_nConverterWithoutTextMessage, code);
    if (property->GetFlag(MCItem::itemPreFetch)) {
        // Any answer but going on counts as unreadable: after resultObjectDestroyed the property is gone.
        const MCPropertySemantic::result calculated = MCPropertySemanticRegistry::FireSemantics(
            MCPropertySemantic::CalculateValue, code, const_cast<MCObject*>(object),
            const_cast<MCProperty*>(property), nullptr);
        if (calculated != MCPropertySemantic::resultContinue)
            return false;
    }
    return text->AsString(property, value);
}

ZVTBoolean MCMacroHandlerBase::RetrieveReference(const MCObject* object, const ZVTString& name,
                                                 MCObject*& value) const {
    if (!object)
        return false;
    const short code = MCFactoryRegistry::Lookup(name);
    if (code == 0)
        return false;
    auto* reference = dynamic_cast<const MCSRef*>(object->FindProperty(code, false));
    // An unbound reference holds a stored id in place of a pointer.
    if (!reference || !reference->IsBound())
        return false;
    MCObject* target = reference->GetValue();
    if (!target || !target->IsType(MCCodes::tAbstractObject, MCItem::rttiDerived))
        return false;
    value = target;
    return true;
}

// ---------------------------------------------------------------------------------------------------
// Reading properties

ZVTBoolean MCAnchorPropertyHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                                ZVMStringList* arguments, ZVTString* result) {
    if (!result || Count(arguments) < 1)
        return false;
    return OrDefault(RetrieveProperty(butler->GetAnchorContext(0), (*arguments)[0], *result), arguments, 1,
                     *result);
}

ZVTBoolean MCPropertyHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                          ZVMStringList* arguments, ZVTString* result) {
    if (!result || Count(arguments) < 1)
        return false;
    return OrDefault(RetrieveProperty(butler->GetContext(), (*arguments)[0], *result), arguments, 1, *result);
}

ZVTBoolean MCOwnerPropertyHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                               ZVMStringList* arguments, ZVTString* result) {
    if (!result || Count(arguments) < 1)
        return false;
    MCObject* context = butler->GetContext();
    MCObject* owner = context ? context->GetOwner(0, MCItem::rttiDerived) : nullptr;
    return OrDefault(RetrieveProperty(owner, (*arguments)[0], *result), arguments, 1, *result);
}

ZVTBoolean MCReferencePropertyHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                                   ZVMStringList* arguments, ZVTString* result) {
    if (!result || Count(arguments) < 2)
        return false;
    MCObject* target = nullptr;
    if (!RetrieveReference(butler->GetContext(), (*arguments)[0], target))
        return false;
    return OrDefault(RetrieveProperty(target, (*arguments)[1], *result), arguments, 2, *result);
}

ZVTBoolean MC_NE_PropertyHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                              ZVMStringList* arguments, ZVTString* result) {
    if (!result || Count(arguments) < 1)
        return false;
    ZVTBoolean read = RetrieveProperty(butler->GetContext(), (*arguments)[0], *result);
    if ((!read || result->IsNull()) && Count(arguments) > 1) {
        *result = (*arguments)[1];
        read = true;
    }
    return read && !result->IsNull();
}

ZVTBoolean MCLookupHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                        ZVMStringList* arguments, ZVTString* result) {
    if (!result || Count(arguments) < 1)
        return false;
    ZVTString value;
    if (!RetrieveProperty(butler->GetContext(), (*arguments)[0], value))
        return false;
    // strtol reads what atol reads, and clamps where atol's result would be undefined.
    const long index = std::strtol(value.str().c_str(), nullptr, c_nDecimal);
    if (index < 0 || index >= Count(arguments) - 1)
        return false;
    *result = (*arguments)[index + 1];
    return true;
}

ZVTBoolean MCEqualHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                       ZVMStringList* arguments, ZVTString* /*result*/) {
    if (Count(arguments) < 1)
        return false;
    ZVTString value;
    return RetrieveProperty(butler->GetCurrentContext(0), (*arguments)[0], value) && value == (*arguments)[1];
}

ZVTBoolean MCNotEqualHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                          ZVMStringList* arguments, ZVTString* /*result*/) {
    if (Count(arguments) < 1)
        return false;
    ZVTString value;
    return !RetrieveProperty(butler->GetCurrentContext(0), (*arguments)[0], value) ||
           value != (*arguments)[1];
}

ZVTBoolean MCHasPropertyHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                             ZVMStringList* arguments, ZVTString* /*result*/) {
    if (Count(arguments) < 1)
        return false;
    MCObject* context = butler->GetContext();
    const short code = MCFactoryRegistry::Lookup((*arguments)[0]);
    return context && code != 0 && context->FindProperty(code, false) != nullptr;
}

ZVTBoolean MCNotHasPropertyHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& name,
                                                ZVMStringList* arguments, ZVTString* result) {
    return !s_xHasProperty.HandleMacro(butler, name, arguments, result);
}

ZVTBoolean MCTypeNameEqualsHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                                ZVMStringList* arguments, ZVTString* /*result*/) {
    if (Count(arguments) != 1)
        return false;
    MCObject* current = butler->GetCurrentContext(0);
    return current && MCFactoryRegistry::Lookup(current->GetType()) == (*arguments)[0];
}

// ---------------------------------------------------------------------------------------------------
// Moving the context

ZVTBoolean MCForEachHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& name,
                                         ZVMStringList* arguments, ZVTString* /*result*/) {
    if (Count(arguments) < 1)
        return false;
    MCObject* current = butler->GetCurrentContext(0);
    const short code = MCFactoryRegistry::Lookup((*arguments)[0]);
    if (code == 0)
        return false;
    auto proxy = std::make_unique<MCiForEach>(name, current, code);
    if (proxy->GetCount() <= 0)
        return false;
    if (Count(arguments) > 1)
        proxy->SetBreakOn((*arguments)[1]);
    butler->PushIter(proxy.release());
    return true;
}

ZVTBoolean MCPopHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                     ZVMStringList* /*arguments*/, ZVTString* /*result*/) {
    butler->PopCurrentContext();
    return true;
}

ZVTBoolean MCPushObjectHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                            ZVMStringList* arguments, ZVTString* /*result*/) {
    MCObject* object = nullptr;
    if (Count(arguments) != 1 || !butler->GetObjectA((*arguments)[0], object) || !object)
        return false;
    butler->PushCurrentContext(object);
    return true;
}

ZVTBoolean MCPushOwnerHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                           ZVMStringList* /*arguments*/, ZVTString* /*result*/) {
    MCObject* current = butler->GetCurrentContext(0);
    MCObject* owner = current ? current->GetOwner(0, MCItem::rttiDerived) : nullptr;
    if (!owner)
        return false;
    butler->PushCurrentContext(owner);
    return true;
}

ZVTBoolean MCPushReferenceHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                               ZVMStringList* arguments, ZVTString* /*result*/) {
    MCObject* target = nullptr;
    if (Count(arguments) < 1 || !RetrieveReference(butler->GetContext(), (*arguments)[0], target))
        return false;
    butler->PushCurrentContext(target);
    return true;
}

ZVTBoolean MCReferencePropertyEqualHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                                        ZVMStringList* arguments, ZVTString* /*result*/) {
    if (Count(arguments) != 2)
        return false;
    MCObject* context = butler->GetContext();
    MCObject* variable = nullptr;
    MCObject* target = nullptr;
    return butler->GetObjectA((*arguments)[1], variable) &&
           RetrieveReference(context, (*arguments)[0], target) && target == variable;
}

// ---------------------------------------------------------------------------------------------------
// Variables

ZVTBoolean MCBooleanHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                         ZVMStringList* arguments, ZVTString* /*result*/) {
    return Count(arguments) >= 1 && butler->CreateInteger((*arguments)[0]);
}

ZVTBoolean MCStringHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                        ZVMStringList* arguments, ZVTString* /*result*/) {
    return Count(arguments) >= 1 && butler->CreateString((*arguments)[0]);
}

ZVTBoolean MCObjectHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                        ZVMStringList* arguments, ZVTString* /*result*/) {
    return Count(arguments) >= 1 && butler->CreateObject((*arguments)[0]);
}

ZVTBoolean MCDestroyHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                         ZVMStringList* arguments, ZVTString* /*result*/) {
    return Count(arguments) >= 1 && butler->DestroyVariable((*arguments)[0]);
}

ZVTBoolean MCSetBooleanHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                            ZVMStringList* arguments, ZVTString* /*result*/) {
    static const ZVTString c_xTrue("true");
    if (Count(arguments) < 1)
        return false;
    const int value = (*arguments)[1].compareTo(c_xTrue, ZVTString::ignoreCase) == 0 ? 1 : 0;
    return butler->SetInteger((*arguments)[0], value);
}

ZVTBoolean MCSetObjectHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                           ZVMStringList* arguments, ZVTString* /*result*/) {
    return Count(arguments) >= 1 && butler->SetObject((*arguments)[0], butler->GetCurrentContext(0));
}

ZVTBoolean MCSetStringHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                           ZVMStringList* arguments, ZVTString* /*result*/) {
    return Count(arguments) == 2 && butler->SetString((*arguments)[0], (*arguments)[1]);
}

ZVTBoolean MCAppendStringHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                              ZVMStringList* arguments, ZVTString* /*result*/) {
    if (Count(arguments) != 2)
        return false;
    // In place: a template that builds a long text appends without copying what it has.
    MCDataButlerVariable* variable = butler->FindVariable((*arguments)[0]);
    if (!variable || variable->m_nType != MCDataButlerVariable::varString)
        return false;
    static_cast<MCDataButlerString*>(variable)->m_xValue += (*arguments)[1];
    return true;
}

ZVTBoolean MCStringEqualHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                             ZVMStringList* arguments, ZVTString* /*result*/) {
    if (Count(arguments) != 2)
        return false;
    MCDataButlerVariable* variable = butler->FindVariable((*arguments)[0]);
    if (!variable || variable->m_nType != MCDataButlerVariable::varString)
        return false;
    const bool equal = static_cast<MCDataButlerString*>(variable)->m_xValue == (*arguments)[1];
    return equal == static_cast<bool>(m_bPolarity);
}

ZVTBoolean MCStringValueHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                             ZVMStringList* arguments, ZVTString* result) {
    if (!result || Count(arguments) != 1)
        return false;
    MCDataButlerVariable* variable = butler->FindVariable((*arguments)[0]);
    if (!variable || variable->m_nType != MCDataButlerVariable::varString)
        return false;
    *result = static_cast<MCDataButlerString*>(variable)->m_xValue;
    return true;
}

// ---------------------------------------------------------------------------------------------------
// Conditionals and text

ZVTBoolean MCIfHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                    ZVMStringList* arguments, ZVTString* result) {
    const long count = Count(arguments);
    if (count != 1 && (count != 3 || !result))
        return false;
    int value = 0;
    if (!butler->GetInteger((*arguments)[0], value))
        return false;
    const bool condition = (value != 0) == static_cast<bool>(m_bPolarity);
    if (count == 1)
        return condition;
    *result = (*arguments)[condition ? 1 : 2];
    return true;
}

ZVTBoolean MCIfFirstIterHandler::HandleMacro(MCDataButlerBase* butler, const ZVTString& /*name*/,
                                             ZVMStringList* arguments, ZVTString* result) {
    if (!result || Count(arguments) < 1)
        return false;
    const MCIterProxy* last = butler->GetIteratorStackLast();
    *result = (*arguments)[last && last->GetCurrent() >= 2 ? 1 : 0];
    return true;
}

ZVTBoolean MCCommaHandler::HandleMacro(MCDataButlerBase* /*butler*/, const ZVTString& /*name*/,
                                       ZVMStringList* arguments, ZVTString* result) {
    if (!result || !arguments)
        return false;
    ZVTBoolean any = false;
    for (long i = 0; i < arguments->GetCount(); ++i) {
        const ZVTString& argument = (*arguments)[i];
        if (argument.IsNull())
            continue;
        if (any)
            *result += ',';
        *result += argument;
        any = true;
    }
    return any;
}

ZVTBoolean MCConcatenateHandler::HandleMacro(MCDataButlerBase* /*butler*/, const ZVTString& /*name*/,
                                             ZVMStringList* arguments, ZVTString* result) {
    if (!result)
        return false;
    for (long i = 0; i < Count(arguments); ++i)
        *result += (*arguments)[i];
    return true;
}

// ---------------------------------------------------------------------------------------------------
// MCDataButler

MCAnchorPropertyHandler MCDataButler::c_xAnchorProperty;
MCAppendStringHandler MCDataButler::c_xAppendString;
MCBooleanHandler MCDataButler::c_xBoolean;
MCCommaHandler MCDataButler::c_xComma;
MCDestroyHandler MCDataButler::c_xDestroy;
MCEqualHandler MCDataButler::c_xEqual;
MCForEachHandler MCDataButler::c_xForEach;
MCIfHandler MCDataButler::c_xIf(true);
MCIfFirstIterHandler MCDataButler::c_xIfFirstIter;
MCIfHandler MCDataButler::c_xIfNot(false);
MCLookupHandler MCDataButler::c_xLookup;
MCNotEqualHandler MCDataButler::c_xNotEqual;
MCObjectHandler MCDataButler::c_xObject;
MCOwnerPropertyHandler MCDataButler::c_xOwnerProperty;
MCPopHandler MCDataButler::c_xPop;
MCPropertyHandler MCDataButler::c_xProperty;
MCPushObjectHandler MCDataButler::c_xPushObject;
MCPushOwnerHandler MCDataButler::c_xPushOwner;
MCPushReferenceHandler MCDataButler::c_xPushReference;
MCReferencePropertyHandler MCDataButler::c_xReferenceProperty;
MCSetBooleanHandler MCDataButler::c_xSetBoolean;
MCSetStringHandler MCDataButler::c_xSetString;
MCStoreCurrentObjectHandler MCDataButler::c_xStoreCurrentObject;
MCStringHandler MCDataButler::c_xString;
MCStringEqualHandler MCDataButler::c_xStringEqual(true);
MCStringEqualHandler MCDataButler::c_xStringNotEqual(false);
MCStringValueHandler MCDataButler::c_xStringValue;
MCTypeNameEqualsHandler MCDataButler::c_xTypeNameEquals;

MCDataButler::MCDataButler(MCObject* anchor) : MCDataButlerBase(anchor) {
    AddHandler("AnchorProperty", &c_xAnchorProperty);
    AddHandler("AppendString", &c_xAppendString);
    AddHandler("Boolean", &c_xBoolean);
    AddHandler("Comma", &c_xComma);
    AddHandler("Concatenate", &s_xConcatenate);
    AddHandler("Destroy", &c_xDestroy);
    AddHandler("Equal", &c_xEqual);
    AddHandler("ForEach", &c_xForEach);
    AddHandler("HasProperty", &s_xHasProperty);
    AddHandler("If", &c_xIf);
    AddHandler("IfFirstIter", &c_xIfFirstIter);
    AddHandler("IfNot", &c_xIfNot);
    AddHandler("Lookup", &c_xLookup);
    AddHandler("NotEmptyProperty", &s_xNotEmptyProperty);
    AddHandler("NotEqual", &c_xNotEqual);
    AddHandler("NotHasProperty", &s_xNotHasProperty);
    AddHandler("Object", &c_xObject);
    AddHandler("OwnerProperty", &c_xOwnerProperty);
    AddHandler("Pop", &c_xPop);
    AddHandler("Property", &c_xProperty);
    AddHandler("PushObject", &c_xPushObject);
    AddHandler("PushOwner", &c_xPushOwner);
    AddHandler("PushReference", &c_xPushReference);
    AddHandler("ReferenceProperty", &c_xReferenceProperty);
    AddHandler("ReferencePropertyEqual", &s_xReferencePropertyEqual);
    AddHandler("SetBoolean", &c_xSetBoolean);
    AddHandler("SetObject", &s_xSetObject);
    AddHandler("SetString", &c_xSetString);
    AddHandler("StoreCurrentObject", &c_xStoreCurrentObject);
    AddHandler("String", &c_xString);
    AddHandler("StringEqual", &c_xStringEqual);
    AddHandler("StringNotEqual", &c_xStringNotEqual);
    AddHandler("StringValue", &c_xStringValue);
    AddHandler("TypeNameEquals", &c_xTypeNameEquals);
}

MCDataButler::~MCDataButler() = default;
