// A plugin for the class-diagram host: its component "ClassNaming" holds the rule "CapitalizedClassName",
// which refuses a class name that does not start with an upper-case letter. The host loads the library by
// path and registers a proxy of the rule on the Name of its classes; the rule sees only ids and reads the
// model through the library's public API, as it runs in the host's process.

#include <cctype>
#include <map>

#include "examples/classmodel/ClassModel.h"

namespace {

class ClassNaming : public ControllerInterface {
protected:
    long FireSemantic_(const ZVTString& semantic, long /*scopeId*/, long objectId, long propertyType,
                       unsigned int mode) override {
        MCObject* cls = MCObject::ResolveId(objectId);
        if (semantic != ZVTString("CapitalizedClassName") || propertyType != CMCodes::pName || !cls ||
            !cls->IsType(CMCodes::tClass, MCItem::rttiDerived))
            return MCPropertySemantic::resultContinue;
        // The new name is written before PostEdit, so the rule judges it there and remembers the old one
        // in PreEdit, to put it back.
        if (mode == MCPropertySemantic::PreEdit) {
            m_xBefore[objectId] = NameOf(cls);
            return MCPropertySemantic::resultContinue;
        }
        if (mode != MCPropertySemantic::PostEdit)
            return MCPropertySemantic::resultContinue;
        const ZVTString before = m_xBefore[objectId];
        m_xBefore.erase(objectId);
        const ZVTString name = NameOf(cls);
        if (!name.IsNull() && std::isupper(static_cast<unsigned char>(name.str()[0])))
            return MCPropertySemantic::resultContinue;
        // Raw, so that no rule and no subscriber hears of the refused name.
        MCSPropertyRawAccessorT<ZVTString> old(before);
        if (before.IsNull())
            cls->NullProperty(CMCodes::pName, old);
        else
            cls->SetProperty(CMCodes::pName, old, MCPropertyAccessor::accessAdd);
        return MCPropertySemantic::resultRefused;
    }

private:
    static ZVTString NameOf(const MCObject* object) {
        return mc::Get<ZVTString>(object, CMCodes::pName).value_or(ZVTString());
    }

    std::map<long, ZVTString> m_xBefore;
};

ClassNaming c_xClassNaming;

}  // namespace

AIC_PLUGIN_ENTRY ZVTBoolean AICRegisterComponents(AICComponentRegistrar* registrar) {
    return registrar->RegisterComponent("ClassNaming", &c_xClassNaming);
}
