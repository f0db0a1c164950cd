#ifndef MCPROPERTYCONVERTER_H
#define MCPROPERTYCONVERTER_H

// Property values as text. A converter turns the value of one property type into another type, which in
// this library is always String; the registry finds the converter for a pair of types and is where a host
// adds converters for its own property types. What has no converter has no text form.

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTExport.h"
#include "foundation/ZVTHDict.h"
#include "foundation/ZVTSList.h"
#include "foundation/ZVTString.h"

class MCProperty;

/// Converts the values of the property type it was made for.
class MODELCORE_API MCPropertyConverter {
public:
    explicit MCPropertyConverter(short fromType) : m_sFromType(fromType) {}
    MCPropertyConverter(const MCPropertyConverter&) = delete;
    MCPropertyConverter& operator=(const MCPropertyConverter&) = delete;
    virtual ~MCPropertyConverter();

    /// Whether it converts into `toType`.
    virtual ZVTBoolean Supports(short toType) const = 0;
    /// The property type it converts from.
    short GetFromType() const { return m_sFromType; }

private:
    short m_sFromType;
};

/// The capability of giving a property's value as text; a converter that has it derives from both.
class MODELCORE_API MCToStringConverter {
public:
    virtual ~MCToStringConverter();
    /// Sets `text` to the value of `property`; false, `text` untouched, when the property is not of the
    /// class this converter reads.
    virtual ZVTBoolean AsString(const MCProperty* property, ZVTString& text) const = 0;
};

/// String to text: the value as it stands.
class MODELCORE_API MCFromStringConverter : public MCPropertyConverter, public MCToStringConverter {
public:
    MCFromStringConverter();
    ZVTBoolean Supports(short toType) const override;
    ZVTBoolean AsString(const MCProperty* property, ZVTString& text) const override;
};

/// Integer to text: the value in decimal, with its sign.
class MODELCORE_API MCFromIntegerConverter : public MCPropertyConverter, public MCToStringConverter {
public:
    MCFromIntegerConverter();
    ZVTBoolean Supports(short toType) const override;
    ZVTBoolean AsString(const MCProperty* property, ZVTString& text) const override;
};

/// StringList to text: the elements in list order joined by ", ", without quoting, so an element that
/// holds ", " reads as two; an empty list gives the empty text.
class MODELCORE_API MCFromStringListConverter : public MCPropertyConverter, public MCToStringConverter {
public:
    MCFromStringListConverter();
    ZVTBoolean Supports(short toType) const override;
    ZVTBoolean AsString(const MCProperty* property, ZVTString& text) const override;
};

/// The converters by the type they convert from. MdlCore::Initialize registers the core's three and
/// MdlCore::Terminate deletes the registry with every converter in it.
class MODELCORE_API MCPropertyConverterRegistry {
public:
    /// The registry; null when none exists. It is not made here.
    static MCPropertyConverterRegistry* GetInstance();
    /// Adds `converter`, which the registry owns from then on (deleting it at once when, out of memory, it
    /// cannot take it), making the registry if need be. Converters
    /// of one from type are asked in the order they came, so a later one never replaces an earlier one
    /// for a type both support. A null converter is ignored.
    static void Register(MCPropertyConverter* converter);
    /// The first converter from `fromType` that supports `toType`, else the first from the type that
    /// `fromType` is an alias of; null when there is none. Makes the registry if need be.
    static const MCPropertyConverter* GetConverter(short fromType, short toType);
    /// Deletes the registry and every converter; the next Register or GetConverter makes a new one.
    static void DeleteInstance();

    MCPropertyConverterRegistry(const MCPropertyConverterRegistry&) = delete;
    MCPropertyConverterRegistry& operator=(const MCPropertyConverterRegistry&) = delete;

private:
    MCPropertyConverterRegistry();
    ~MCPropertyConverterRegistry();
    static MCPropertyConverterRegistry* Instance();
    const MCPropertyConverter* GetConverter_(short fromType, short toType) const;

    ZVTHDict<short, ZVTSList<MCPropertyConverter*>*> m_xConverters;
    static MCPropertyConverterRegistry* c_pxSingleton;
};

#endif
