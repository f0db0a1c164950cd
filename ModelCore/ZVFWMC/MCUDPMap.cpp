#include "ModelCore/ZVFWMC/MCUDPMap.h"

MCUDPInfo::MCUDPInfo() : m_sCode(0), m_sConcreteType(0), m_usFirst(0), m_xUsingTypes(64) {}

MCUDPInfo::MCUDPInfo(short code, const ZVTString& name, short concreteType, unsigned short first)
    : m_sCode(code), m_xName(name), m_sConcreteType(concreteType), m_usFirst(first), m_xUsingTypes(1) {}

bool MCUDPInfo::operator==(const MCUDPInfo& other) const {
    return m_sCode == other.m_sCode && m_xName == other.m_xName && m_sConcreteType == other.m_sConcreteType &&
           m_usFirst == other.m_usFirst;
}

MCMap::~MCMap() = default;

MCUDPMap::MCUDPMap() : MCMapT<short>(MCFactoryRegistry::HashFactoryKey), m_xUDPInfos(64) {}

MCUDPMap::~MCUDPMap() = default;
