#include "ModelCore/ZVFWMC/MCPropertyConverter.h"

#include <memory>

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCProperty.h"

MCPropertyConverter::~MCPropertyConverter() = default;

MCToStringConverter::~MCToStringConverter() = default;

MCFromStringConverter::MCFromStringConverter() : MCPropertyConverter(MCCodes::pString) {}

ZVTBoolean MCFromStringConverter::Supports(short toType) const {
    return toType == MCCodes::pString;
}

ZVTBoolean MCFromStringConverter::AsString(const MCProperty* property, ZVTString& text) const {
    auto* typed = dynamic_cast<const MCSPropertyT<ZVTString>*>(property);
    if (!typed)
        return false;
    text = typed->GetValue();
    return true;
}

MCFromIntegerConverter::MCFromIntegerConverter() : MCPropertyConverter(MCCodes::pInteger) {}

ZVTBoolean MCFromIntegerConverter::Supports(short toType) const {
    return toType == MCCodes::pString;
}

ZVTBoolean MCFromIntegerConverter::AsString(const MCProperty* property, ZVTString& text) const {
    auto* typed = dynamic_cast<const MCSPropertyT<long>*>(property);
    if (!typed)
        return false;
    text = typed->GetValue();
    return true;
}

MCFromStringListConverter::MCFromStringListConverter() : MCPropertyConverter(MCCodes::pStringList) {}

ZVTBoolean MCFromStringListConverter::Supports(short toType) const {
    return toType == MCCodes::pString;
}

ZVTBoolean MCFromStringListConverter::AsString(const MCProperty* property, ZVTString& text) const {
    auto* typed =
        const_cast<MCVPropertyT<ZVTString>*>(dynamic_cast<const MCVPropertyT<ZVTString>*>(property));
    if (!typed)
        return false;
    ZVTReferenceUser hold;
    ZVTSListRCIterT<ZVTString>* cursor = typed->GetIterator(hold);
    if (!cursor)
        return true;
    text = "";
    bool first = true;
    while (++*cursor) {
        if (!first)
            text += ", ";
        text += cursor->Key();
        first = false;
    }
    return true;
}

MCPropertyConverterRegistry* MCPropertyConverterRegistry::c_pxSingleton = nullptr;

MCPropertyConverterRegistry::MCPropertyConverterRegistry()
    : m_xConverters(&MCFactoryRegistry::HashFactoryKey) {}

MCPropertyConverterRegistry::~MCPropertyConverterRegistry() {
    ZVTHDictIter<short, ZVTSList<MCPropertyConverter*>*> entry(m_xConverters);
    while (++entry) {
        ZVTSList<MCPropertyConverter*>* list = entry.Value();
        ZVTSListIter<MCPropertyConverter*> converter(*list);
        while (++converter)
            delete converter.Key();
        delete list;
    }
}

MCPropertyConverterRegistry* MCPropertyConverterRegistry::GetInstance() {
    return c_pxSingleton;
}

MCPropertyConverterRegistry* MCPropertyConverterRegistry::Instance() {
    if (!c_pxSingleton)
        c_pxSingleton = new MCPropertyConverterRegistry;
    return c_pxSingleton;
}

void MCPropertyConverterRegistry::DeleteInstance() {
    delete c_pxSingleton;
    c_pxSingleton = nullptr;
}

void MCPropertyConverterRegistry::Register(MCPropertyConverter* converter) {
    if (!converter)
        return;
    // The registry owns it from the call on: one it cannot take, out of memory, goes at once.
    std::unique_ptr<MCPropertyConverter> owned(converter);
    auto& converters = Instance()->m_xConverters;
    ZVTSList<MCPropertyConverter*>* list = nullptr;
    if (!converters.Find(converter->GetFromType(), list)) {
        auto made = std::make_unique<ZVTSList<MCPropertyConverter*>>();
        converters.Insert(converter->GetFromType(), made.get());
        list = made.release();
    }
    list->Append(converter);
    owned.release();
}

const MCPropertyConverter* MCPropertyConverterRegistry::GetConverter(short fromType, short toType) {
    MCPropertyConverterRegistry* registry = Instance();
    if (const MCPropertyConverter* converter = registry->GetConverter_(fromType, toType))
        return converter;
    return registry->GetConverter_(MCFactoryRegistry::Translate(fromType, false), toType);
}

const MCPropertyConverter* MCPropertyConverterRegistry::GetConverter_(short fromType, short toType) const {
    ZVTSList<MCPropertyConverter*>* list = nullptr;
    if (!m_xConverters.Find(fromType, list))
        return nullptr;
    ZVTSListIter<MCPropertyConverter*> converter(*list);
    while (++converter) {
        if (converter.Key()->Supports(toType))
            return converter.Key();
    }
    return nullptr;
}
