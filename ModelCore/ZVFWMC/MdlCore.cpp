#include "ModelCore/ZVFWMC/MdlCore.h"

#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCIdSpace.h"
#include "ModelCore/ZVFWMC/MCMetaInfo.h"

ZVTBoolean MdlCore::m_bInitialized = false;

double MdlCore::GetVersion() {
    return 1.0;
}

void MdlCore::Initialize() {
    if (m_bInitialized)
        return;
    // The core metamodel, the property converters and the core's property usages
    // are registered here, in that order, once the core metamodel unit joins.
    m_bInitialized = true;
}

void MdlCore::Terminate() {
    // A fixed order, the same in every process; a registry that was never made
    // is skipped by its DeleteInstance.
    MCFactoryRegistry::DeleteInstance();
    // Seam: MCObjectSemReg is deleted here, once the object semantics unit joins.
    // Seam: MCPropertySemanticRegistry is deleted here, once the property semantics unit joins.
    // Seam: MCNotificationDirectory is deleted here, once the notification unit joins.
    // Seam: MCPropertyConverterRegistry is deleted here, once the property converter unit joins.
    MCMetaInfo::DeleteInstance();
    MCIdSpace::Global().Reset();
    // m_bInitialized stays true: a later Initialize must not bring the library back.
}

ZVTBoolean MdlCore::IsInitialized() {
    return m_bInitialized;
}
