#include "ModelCore/ZVFWMC/MdlCore.h"

#include "ModelCore/ZVFWMC/MCAddInHook.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
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
    {MCCodes::pAncestorNameSpace, "AncestorNameSpace", MCCodes::pReference, true, false},
    {MCCodes::pCloneId, "CloneId", MCCodes::pInteger, true, false},
    {MCCodes::pId, "Id", MCCodes::pInteger, false, false},
    {MCCodes::pIdSpace, "IdSpace", MCCodes::pReference, true, false},
    {MCCodes::pName, "Name", MCCodes::pString, true, true},
    {MCCodes::pNameSpaces, "NameSpaces", MCCodes::pReferenceList, false, true},
    {MCCodes::pParent, "Parent", MCCodes::pReference, true, false},
    {MCCodes::pStringInfoCount, "StringInfoCount", MCCodes::pInteger, false, false},
    {MCCodes::pStringInfoList, "StringInfoList", MCCodes::pReferenceList, false, true},
    {MCCodes::pStringInfoObject, "StringInfoObject", MCCodes::pReference, false, false},
    {MCCodes::pTypeCode, "TypeCode", MCCodes::pInteger, true, false},
    {MCCodes::pValidTypeList, "ValidTypeList", MCCodes::pIntegerList, true, false},
};

void RegisterCoreMetamodel() {
    // Object types.
    MCMetaInfo::SetFlags(MCNameSpace::c_sType, MCCodes::infoCoreObject);
    Keep(new MCFactoryT<MCNameSpace, MCObject>(MCNameSpace::c_sType, "NameSpace", MCCodes::tAbstractObject, 0,
                                               false, false));
    MCMetaInfo::SetFlags(MCStringInfo::c_sType, MCCodes::infoCoreObject);
    Keep(new MCFactoryT<MCStringInfo, MCObject>(MCStringInfo::c_sType, "StringInfo", MCCodes::tAbstractObject,
                                                0, false, false));
    MCMetaInfo::SetFlags(MCGenericObject::c_sType, MCCodes::infoCoreObject);
    Keep(new MCObjectFactoryT<MCGenericObject, MCObject>(
        MCGenericObject::c_sType, "GenericObject", MCCodes::tAbstractObject, 0, 10, 4000, false, false));
    MCMetaInfo::SetFlags(MCAddInHook::c_sType, MCCodes::infoAddInHook);
    Keep(new MCFactoryT<MCAddInHook, MCObject>(MCAddInHook::c_sType, "AddInHook", MCCodes::tAbstractObject, 0,
                                               false, true));
    // The concrete object types above name this supertype before it exists; the pending table joins them.
    MCFactoryRegistry::RegisterAbstractObject(MCCodes::tAbstractObject, "AbstractObject", 0);

    // Value types.
    RegisterValueType<MCSPropertyT<double>>(MCCodes::pDouble, "Double");
    RegisterValueType<MCSPropertyT<float>>(MCCodes::pFloat, "Float");
    RegisterValueType<MCVPropertyT<float>>(MCCodes::pFloatList, "FloatList");
    RegisterValueType<MCSPropertyT<long>>(MCCodes::pInteger, "Integer");
    RegisterValueType<MCVPropertyT<long>>(MCCodes::pIntegerList, "IntegerList");
    RegisterValueType<MCSRef>(MCCodes::pReference, "Reference");
    RegisterValueType<MCVRef>(MCCodes::pReferenceList, "ReferenceList");
    RegisterValueType<MCSPropertyT<ZVTString>>(MCCodes::pString, "String");
    RegisterValueType<MCVPropertyT<ZVTString>>(MCCodes::pStringList, "StringList");
    RegisterValueType<MCSPropertyT<ZvUCObjectId>>(MCCodes::pOriginId, "OriginId");
    RegisterValueType<MCSPropertyT<tgt_target*>>(MCCodes::pTargetReference, "TargetReference");

    for (const CoreAlias& alias : c_axCoreAliases)
        MCFactoryRegistry::RegisterAliasProperty(alias.m_sCode, alias.m_pcName, alias.m_sConcreteType,
                                                 alias.m_bFirst, false, false, alias.m_bItemFlag100);
}

void RegisterCoreUsages() {
    const short abstractObject[] = {MCCodes::pTypeCode, 0, MCCodes::pId, 0};
    MCFactoryRegistry::AddPropertyUsages(MCCodes::tAbstractObject, abstractObject, 2);
    const short nameSpace[] = {MCCodes::pValidTypeList, 0, MCCodes::pStringInfoList,    0,
                               MCCodes::pNameSpaces,    0, MCCodes::pAncestorNameSpace, 0};
    MCFactoryRegistry::AddPropertyUsages(MCNameSpace::c_sType, nameSpace, 4);
    const short stringInfo[] = {MCCodes::pStringInfoObject, 0, MCCodes::pStringInfoCount, 0};
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
