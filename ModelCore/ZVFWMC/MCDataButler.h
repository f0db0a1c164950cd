#ifndef MCDATABUTLER_H
#define MCDATABUTLER_H

// The macros with which a template reads a model, and MCDataButler, whose table holds them. Each macro is
// one stateless handler object shared by every butler; it reads the butler's contexts and variables.
//
// Rules common to the handlers. "Context" is the top of the context stack (EXUnexpected when it is
// empty); "current" is GetCurrentContext(0), which falls back on the iterations and the anchor. Property
// names are read in the default nomenclature. A macro answers false when called without an argument list
// or with fewer arguments than its first, or than an "exactly" it states; a text argument left out reads
// as the empty text, and a default exists only when it is given. A macro that writes the result replaces
// it, except Comma and Concatenate, which append. Started as an iteration (no result), a macro that
// writes the result answers false and does nothing; ForEach is the macro that iterates.

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCDataButlerBase.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTString.h"
#include "platform/ZVM.h"

class MCObject;

/// The base of the macro handlers: one object per macro, without state, entered in a butler's table by
/// AddHandler. Hosts derive their own handlers from it.
class MODELCORE_API MCMacroHandlerBase {
public:
    /// Message of a property type that has no converter to text; its text is the type code.
    static constexpr unsigned int c_nNoConverterMessage = MCCodes::msgNoConverter;
    /// Message of a property type whose converter gives no text; its text is the type code.
    static constexpr unsigned int c_nConverterWithoutTextMessage = MCCodes::msgConverterWithoutText;

    /// Virtual: handlers may be used through this base.
    virtual ~MCMacroHandlerBase();

    /// Runs macro `name` (as called) on `butler` with `arguments` (null without a list) into `result`
    /// (null when called as an iteration); the answer goes back to the macro side.
    virtual ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                                   ZVTString* result) = 0;

protected:
    MCMacroHandlerBase() = default;

    /// The property called `name` of `object` as text into `value`. False, `value` untouched, for a null
    /// object, an unknown name, an absent or nulled property, a type without a text converter (message
    /// 60508, or 60509 for a converter that gives no text) and a calculated property whose calculation
    /// refuses or destroys the object.
    ZVTBoolean RetrieveProperty(const MCObject* object, const ZVTString& name, ZVTString& value) const;
    /// The target of the single reference called `name` of `object` into `value`. False, `value`
    /// untouched, for a null object, an unknown name, an absent property or one of another kind, and a
    /// reference that holds no live object.
    ZVTBoolean RetrieveReference(const MCObject* object, const ZVTString& name, MCObject*& value) const;
};

/// AnchorProperty(property, default): the property of the anchor, even inside an iteration; else the
/// default.
class MODELCORE_API MCAnchorPropertyHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// AppendString(variable, text), exactly 2: appends the text to a string variable; false for another
/// variable type.
class MODELCORE_API MCAppendStringHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// Boolean(variable): creates an integer variable holding 0; false when the name exists.
class MODELCORE_API MCBooleanHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// Comma(text, ...): appends the texts that are not empty, with "," between them; false without a list or
/// when all are empty, the result then untouched.
class MODELCORE_API MCCommaHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// Concatenate(text, ...): appends every text; true, also without a list.
class MODELCORE_API MCConcatenateHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// Destroy(variable): deletes a variable of any type; false for an unknown name.
class MODELCORE_API MCDestroyHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// Equal(property, text): whether the property of current equals the text exactly; false when it can't
/// be read.
class MODELCORE_API MCEqualHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// ForEach(property, break-on variable): starts an iteration, named as the macro was called, over the
/// list reference of current; false, pushing nothing, when it has no target.
class MODELCORE_API MCForEachHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// HasProperty(property): whether context is an object that holds the property with a value.
class MODELCORE_API MCHasPropertyHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// If(variable) and If(variable, then, else), and IfNot with the opposite polarity: the condition is the
/// integer variable being non-zero (zero for IfNot). With one argument the answer is the condition; with
/// three the result takes one of the texts and the answer is true; false for another count or a variable
/// that is no integer.
class MODELCORE_API MCIfHandler : public MCMacroHandlerBase {
public:
    /// `polarity` true for If, false for IfNot.
    explicit MCIfHandler(ZVTBoolean polarity) : m_bPolarity(polarity) {}
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;

private:
    ZVTBoolean m_bPolarity;
};

/// IfFirstIter(first, later): the second text from the second pass of the innermost iteration on, the
/// first text otherwise, outside any iteration too; true.
class MODELCORE_API MCIfFirstIterHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// Lookup(property, text0, text1, ...): the property of context read as a number i (text that is no number
/// reads as 0) picks text i; false when the property can't be read or i is negative or past the texts.
class MODELCORE_API MCLookupHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// NotEmptyProperty(property, default): the property of context, or the default when it can't be read or
/// is empty; true only when the result is then not empty.
class MODELCORE_API MC_NE_PropertyHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// NotEqual(property, text): true when the property of current can't be read or differs from the text.
class MODELCORE_API MCNotEqualHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// NotHasProperty(property): the opposite of HasProperty, so true for an empty list, a null context and
/// an unknown name.
class MODELCORE_API MCNotHasPropertyHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// Object(variable): creates an object variable holding null; false when the name exists.
class MODELCORE_API MCObjectHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// OwnerProperty(property, default): the property of the direct owner of context; else the default.
class MODELCORE_API MCOwnerPropertyHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// Pop: takes the top off the context stack, if any; true.
class MODELCORE_API MCPopHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// Property(property, default): the property of context; else the default.
class MODELCORE_API MCPropertyHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// PushObject(variable), exactly 1: pushes the object of an object variable; false for null.
class MODELCORE_API MCPushObjectHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// PushOwner: pushes the direct owner of current; false when there is none.
class MODELCORE_API MCPushOwnerHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// PushReference(reference): pushes the target of a single reference of context; false when there is
/// none.
class MODELCORE_API MCPushReferenceHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// ReferenceProperty(reference, property, default): the property of the target of a single reference of
/// context; the default serves only when the target is there but its property can't be read.
class MODELCORE_API MCReferencePropertyHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// ReferencePropertyEqual(reference, variable), exactly 2: whether the target of a single reference of
/// context is the object of an object variable; false when either can't be read.
class MODELCORE_API MCReferencePropertyEqualHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// SetBoolean(variable, text): sets an integer variable to 1 when the text is "true" in any case, to 0
/// for any other text; false for another variable type.
class MODELCORE_API MCSetBooleanHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// SetObject(variable): stores current, null included, in an object variable; false for another type.
class MODELCORE_API MCSetObjectHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// StoreCurrentObject(variable): the same as SetObject under another name.
class MODELCORE_API MCStoreCurrentObjectHandler : public MCSetObjectHandler {};

/// SetString(variable, text), exactly 2: sets a string variable; false for another variable type.
class MODELCORE_API MCSetStringHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// String(variable): creates a string variable holding the empty text; false when the name exists.
class MODELCORE_API MCStringHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// StringEqual(variable, text), exactly 2, and StringNotEqual with the opposite polarity: whether a
/// string variable equals (differs from) the text exactly; false for another variable type.
class MODELCORE_API MCStringEqualHandler : public MCMacroHandlerBase {
public:
    /// `polarity` true for StringEqual, false for StringNotEqual.
    explicit MCStringEqualHandler(ZVTBoolean polarity) : m_bPolarity(polarity) {}
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;

private:
    ZVTBoolean m_bPolarity;
};

/// StringValue(variable), exactly 1: the value of a string variable; false for another variable type.
class MODELCORE_API MCStringValueHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// TypeNameEquals(name), exactly 1: whether current's type is called `name` in the default nomenclature;
/// false without a current object.
class MODELCORE_API MCTypeNameEqualsHandler : public MCMacroHandlerBase {
public:
    ZVTBoolean HandleMacro(MCDataButlerBase* butler, const ZVTString& name, ZVMStringList* arguments,
                           ZVTString* result) override;
};

/// The core's butler: a butler whose table holds the 34 macros above, each under its name. A host
/// derives from it and calls AddHandler in its constructor to add macros or redefine these; the handlers
/// are shared by every butler and live as long as the library.
class MODELCORE_API MCDataButler : public MCDataButlerBase {
public:
    /// A butler for `anchor` (may be null) with the core's macros.
    explicit MCDataButler(MCObject* anchor);
    /// A butler on the same state as `other`.
    MCDataButler(const MCDataButler& other) = default;
    MCDataButler& operator=(const MCDataButler& other) = default;
    ~MCDataButler() override;

    static MCAnchorPropertyHandler c_xAnchorProperty;
    static MCAppendStringHandler c_xAppendString;
    static MCBooleanHandler c_xBoolean;
    static MCCommaHandler c_xComma;
    static MCDestroyHandler c_xDestroy;
    static MCEqualHandler c_xEqual;
    static MCForEachHandler c_xForEach;
    static MCIfHandler c_xIf;
    static MCIfFirstIterHandler c_xIfFirstIter;
    static MCIfHandler c_xIfNot;
    static MCLookupHandler c_xLookup;
    static MCNotEqualHandler c_xNotEqual;
    static MCObjectHandler c_xObject;
    static MCOwnerPropertyHandler c_xOwnerProperty;
    static MCPopHandler c_xPop;
    static MCPropertyHandler c_xProperty;
    static MCPushObjectHandler c_xPushObject;
    static MCPushOwnerHandler c_xPushOwner;
    static MCPushReferenceHandler c_xPushReference;
    static MCReferencePropertyHandler c_xReferenceProperty;
    static MCSetBooleanHandler c_xSetBoolean;
    static MCSetStringHandler c_xSetString;
    static MCStoreCurrentObjectHandler c_xStoreCurrentObject;
    static MCStringHandler c_xString;
    static MCStringEqualHandler c_xStringEqual;
    static MCStringEqualHandler c_xStringNotEqual;
    static MCStringValueHandler c_xStringValue;
    static MCTypeNameEqualsHandler c_xTypeNameEquals;
};

#endif
