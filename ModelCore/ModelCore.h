#ifndef MODELCORE_H
#define MODELCORE_H

// Everything a host needs, in one include.

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCEnvironment.h"
#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCIdSpace.h"
#include "ModelCore/ZVFWMC/MCMetaInfo.h"
#include "ModelCore/ZVFWMC/MdlCore.h"
#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTStream.h"
#include "foundation/ZVTString.h"
#include "foundation/ZVTVector.h"
#include "platform/HUB.h"

#endif
