#include "ModelCore/ZVFWMC/MCMetaInfo.h"

#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "foundation/ZVTHDict.h"
#include "foundation/ZVTHSet.h"

namespace {

constexpr unsigned long c_ulReportable = 0x1;
constexpr unsigned long c_ulIllegal = 0x80000000UL;

struct MCObjectPropertyPair {
    short m_sObjectType = 0;
    short m_sPropertyType = 0;
    bool operator==(const MCObjectPropertyPair& other) const {
        return m_sObjectType == other.m_sObjectType && m_sPropertyType == other.m_sPropertyType;
    }
};

unsigned int HashPair(const MCObjectPropertyPair& pair) {
    return (static_cast<unsigned int>(static_cast<unsigned short>(pair.m_sObjectType)) << 16) |
           static_cast<unsigned short>(pair.m_sPropertyType);
}

}  // namespace

/// The tables behind MCMetaInfo. Inheritance pairs are also indexed by object type, so that the
/// per-type questions do not walk every pair.
class MCMetaInfo_i {
public:
    MCMetaInfo_i()
        : m_xItems(MCFactoryRegistry::HashFactoryKey, 64),
          m_xInheritance(HashPair, 64),
          m_xInheritedByType(MCFactoryRegistry::HashFactoryKey, 64) {}

    ZVTHDict<short, unsigned long> m_xItems;
    ZVTHTableT<MCObjectPropertyPair> m_xInheritance;
    ZVTHDict<short, ZVTOrderedVectorT<short>> m_xInheritedByType;
};

MCMetaInfo* MCMetaInfo::c_pxSingleton = nullptr;
MCMetaInfo_i* MCMetaInfo::c_pxImplementation = nullptr;

MCMetaInfo::MCMetaInfo() {
    c_pxImplementation = new MCMetaInfo_i;
}

MCMetaInfo::~MCMetaInfo() {
    delete c_pxImplementation;
    c_pxImplementation = nullptr;
}

MCMetaInfo* MCMetaInfo::GetInstance() {
    if (!c_pxSingleton)
        c_pxSingleton = new MCMetaInfo;
    return c_pxSingleton;
}

void MCMetaInfo::DeleteInstance() {
    delete c_pxSingleton;
    c_pxSingleton = nullptr;
}

ZVTBoolean MCMetaInfo::SetFlags(short code, unsigned long flags) {
    if (flags & c_ulIllegal)
        return false;
    GetInstance();
    c_pxImplementation->m_xItems.Insert(code, flags);
    return true;
}

ZVTBoolean MCMetaInfo::GetObjectTypes(unsigned long required, unsigned long forbidden,
                                      ZVTOrderedVectorT<short>& types) {
    if (!c_pxImplementation || (forbidden & c_ulReportable) || ((required | forbidden) & c_ulIllegal))
        return false;
    for (ZVTHDictIter<short, unsigned long> it(c_pxImplementation->m_xItems); ++it;) {
        unsigned long flags = it.Value();
        if ((flags & c_ulReportable) && (flags & required) == required && !(flags & forbidden))
            types.Append(it.Key());
    }
    return true;
}

ZVTBoolean MCMetaInfo::RegisterPropertyInheritance(short objectType, short propertyType) {
    GetInstance();
    c_pxImplementation->m_xInheritance.Insert(MCObjectPropertyPair{objectType, propertyType});
    if (ZVTOrderedVectorT<short>* properties = c_pxImplementation->m_xInheritedByType.FindPtr(objectType)) {
        properties->Append(propertyType);
    } else {
        ZVTOrderedVectorT<short> first(4);
        first.Append(propertyType);
        c_pxImplementation->m_xInheritedByType.Insert(objectType, first);
    }
    return true;
}

ZVTBoolean MCMetaInfo::IsInheritable(short objectType, short propertyType) {
    return c_pxImplementation &&
           c_pxImplementation->m_xInheritance.Contains(MCObjectPropertyPair{objectType, propertyType});
}

ZVTBoolean MCMetaInfo::GetInheritableProperties(short objectType, ZVTOrderedVectorT<short>& properties) {
    if (!c_pxImplementation)
        return false;
    if (const ZVTOrderedVectorT<short>* found = c_pxImplementation->m_xInheritedByType.FindPtr(objectType)) {
        for (size_t i = 0; i < found->Length(); ++i)
            properties.Append((*found)[i]);
    }
    return true;
}
