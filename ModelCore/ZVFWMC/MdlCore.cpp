#include "ModelCore/ZVFWMC/MdlCore.h"

#include "ModelCore/ZVFWMC/MCAddInHook.h"
#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCGenericObject.h"
#include "ModelCore/ZVFWMC/MCIdSpace.h"
#include "ModelCore/ZVFWMC/MCMetaInfo.h"
#include "ModelCore/ZVFWMC/MCNameSpace.h"
#include "ModelCore/ZVFWMC/MCNotification.h"
#include "ModelCore/ZVFWMC/MCObjectSem.h"
#include "ModelCore/ZVFWMC/MCPropertyAccessor.h"
#include "ModelCore/ZVFWMC/MCPropertyConverter.h"
#include "ModelCore/ZVFWMC/MCRefProperty.h"

namespace {

// A factory registers itself when it is made; one refused because a host took the code first stays
// with its maker, here.
template <class Factory>
void Keep(Factory* factory) {
    if (!factory->IsRegistered())
        delete factory;
}

template <class P>
void RegisterValueType(short code, const char* name) {
    Keep(new MCPropertyFactoryT<P>(code, name, true, false, 10));
}

struct CoreAlias {
    short m_sCode;
    const char* m_pcName;
    short m_sConcreteType;
    bool m_bFirst;
    bool m_bItemFlag100;
};

// The core's property aliases.
const CoreAlias c_axCoreAliases[] = {
    {583, "AncestorNameSpace", 89, true, false},
    {582, "CloneId", 87, true, false},
    {132, "Id", 87, false, false},
    {133, "IdSpace", 89, true, false},
    {147, "Name", 91, true, true},
    {307, "NameSpaces", 90, false, true},
    {152, "Parent", 89, true, false},
    {306, "StringInfoCount", 87, false, false},
    {303, "StringInfoList", 90, false, true},
    {305, "StringInfoObject", 89, false, false},
    {1165, "TypeCode", 87, true, false},
    {304, "ValidTypeList", 88, true, false},
};

void RegisterCoreMetamodel() {
    // Object types.
    MCMetaInfo::SetFlags(MCNameSpace::c_sType, 5);
    Keep(new MCFactoryT<MCNameSpace, MCObject>(MCNameSpace::c_sType, "NameSpace", 1, 0, false, false));
    MCMetaInfo::SetFlags(MCStringInfo::c_sType, 5);
    Keep(new MCFactoryT<MCStringInfo, MCObject>(MCStringInfo::c_sType, "StringInfo", 1, 0, false, false));
    MCMetaInfo::SetFlags(MCGenericObject::c_sType, 5);
    Keep(new MCObjectFactoryT<MCGenericObject, MCObject>(MCGenericObject::c_sType, "GenericObject", 1, 0, 10,
                                                         4000, false, false));
    MCMetaInfo::SetFlags(MCAddInHook::c_sType, 21);
    Keep(new MCFactoryT<MCAddInHook, MCObject>(MCAddInHook::c_sType, "AddInHook", 1, 0, false, true));
    // The concrete object types above name this supertype before it exists; the pending table joins them.
    MCFactoryRegistry::RegisterAbstractObject(1, "AbstractObject", 0);

    // Value types.
    RegisterValueType<MCSPropertyT<double>>(1036, "Double");
    RegisterValueType<MCSPropertyT<float>>(85, "Float");
    RegisterValueType<MCVPropertyT<float>>(86, "FloatList");
    RegisterValueType<MCSPropertyT<long>>(87, "Integer");
    RegisterValueType<MCVPropertyT<long>>(88, "IntegerList");
    RegisterValueType<MCSRef>(89, "Reference");
    RegisterValueType<MCVRef>(90, "ReferenceList");
    RegisterValueType<MCSPropertyT<ZVTString>>(91, "String");
    RegisterValueType<MCVPropertyT<ZVTString>>(92, "StringList");
    RegisterValueType<MCSPropertyT<ZvUCObjectId>>(93, "OriginId");
    RegisterValueType<MCSPropertyT<tgt_target*>>(248, "TargetReference");

    for (const CoreAlias& alias : c_axCoreAliases)
        MCFactoryRegistry::RegisterAliasProperty(alias.m_sCode, alias.m_pcName, alias.m_sConcreteType,
                                                 alias.m_bFirst, false, false, alias.m_bItemFlag100);
}

void RegisterCoreUsages() {
    const short abstractObject[] = {1165, 0, 132, 0};
    MCFactoryRegistry::AddPropertyUsages(1, abstractObject, 2);
    const short nameSpace[] = {304, 0, 303, 0, 307, 0, 583, 0};
    MCFactoryRegistry::AddPropertyUsages(MCNameSpace::c_sType, nameSpace, 4);
    const short stringInfo[] = {305, 0, 306, 0};
    MCFactoryRegistry::AddPropertyUsages(MCStringInfo::c_sType, stringInfo, 2);
}

}  // namespace

ZVTBoolean MdlCore::m_bInitialized = false;

double MdlCore::GetVersion() {
    return 1.0;
}

void MdlCore::Initialize() {
    if (m_bInitialized)
        return;
    RegisterCoreMetamodel();
    MCPropertyConverterRegistry::Register(new MCFromStringConverter);
    MCPropertyConverterRegistry::Register(new MCFromIntegerConverter);
    MCPropertyConverterRegistry::Register(new MCFromStringListConverter);
    RegisterCoreUsages();
    m_bInitialized = true;
}

void MdlCore::Terminate() {
    // A fixed order, the same in every process; a registry that was never made
    // is skipped by its DeleteInstance.
    MCFactoryRegistry::DeleteInstance();
    MCObjectSemReg::DeleteInstance();
    MCPropertySemanticRegistry::DeleteInstance();
    MCNotificationDirectory::DeleteInstance();
    MCPropertyConverterRegistry::DeleteInstance();
    MCMetaInfo::DeleteInstance();
    MCIdSpace::Global().Reset();
    // m_bInitialized stays true: a later Initialize must not bring the library back.
}

ZVTBoolean MdlCore::IsInitialized() {
    return m_bInitialized;
}
