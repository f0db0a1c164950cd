#include "ModelCore/ZVFWMC/MCPropertySemantics.h"

MCPropertySemantic::result MCPropertySemanticRegistry::FireSemantics(
    MCPropertySemantic::mode /*nMode*/, short /*nPropertyType*/, MCObject* /*pObject*/,
    MCProperty* /*pProperty*/, MCPropertySemanticContext* /*pContext*/) {
    // The registry's handlers land with the next change; until then no type has rules.
    return MCPropertySemantic::resultContinue;
}
