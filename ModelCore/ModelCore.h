#ifndef MODELCORE_H
#define MODELCORE_H

// Everything a host needs, in one include.

#include "ModelCore/ZVFWMC/EXBase.h"
#include "ModelCore/ZVFWMC/MCClipboard.h"
#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCDataButler.h"
#include "ModelCore/ZVFWMC/MCDataButlerBase.h"
#include "ModelCore/ZVFWMC/MCEnvironment.h"
#include "ModelCore/ZVFWMC/MCEvent.h"
#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCFactoryRegistry.h"
#include "ModelCore/ZVFWMC/MCGenericObject.h"
#include "ModelCore/ZVFWMC/MCIdSpace.h"
#include "ModelCore/ZVFWMC/MCItem.h"
#include "ModelCore/ZVFWMC/MCMetaInfo.h"
#include "ModelCore/ZVFWMC/MCNameSpace.h"
#include "ModelCore/ZVFWMC/MCNotification.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "ModelCore/ZVFWMC/MCObjectFilters.h"
#include "ModelCore/ZVFWMC/MCObjectSem.h"
#include "ModelCore/ZVFWMC/MCPersistence.h"
#include "ModelCore/ZVFWMC/MCProperty.h"
#include "ModelCore/ZVFWMC/MCPropertyAccessor.h"
#include "ModelCore/ZVFWMC/MCPropertyConverter.h"
#include "ModelCore/ZVFWMC/MCPropertySemantics.h"
#include "ModelCore/ZVFWMC/MCRefProperty.h"
#include "ModelCore/ZVFWMC/MCStreams.h"
#include "ModelCore/ZVFWMC/MCSubscriber.h"
#include "ModelCore/ZVFWMC/MCUDPMap.h"
#include "ModelCore/ZVFWMC/MCVRefIter.h"
#include "ModelCore/ZVFWMC/MCVisitor.h"
#include "ModelCore/ZVFWMC/MdlCore.h"

// Traversal
#include "ModelCore/ZVFWMC/MCAgent.h"
#include "ModelCore/ZVFWMC/MCDepthFirstWalker.h"
#include "ModelCore/ZVFWMC/MCVisitorAgent.h"
#include "ModelCore/ZVFWMC/MCWalker.h"

// Add-ins
#include "ModelCore/ZVFWMC/MCAddInHook.h"
#include "platform/AIC.h"

// Command queue
#include "ModelCore/ZVFWMC/MCCommand.h"

#include "foundation/ZVTBoolean.h"
#include "foundation/ZVTHSet.h"
#include "foundation/ZVTStream.h"
#include "foundation/ZVTString.h"
#include "foundation/ZVTVector.h"
#include "foundation/ZvUCId.h"
#include "platform/HUB.h"
#include "platform/TGT.h"
#include "platform/ZVM.h"
#include "platform/ZVMTemplate.h"

#endif
