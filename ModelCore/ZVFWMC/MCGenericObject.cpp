#include "ModelCore/ZVFWMC/MCGenericObject.h"

MCGenericObject::MCGenericObject(short type, MCFactorySignature& signature, MCFactoryContext* context)
    : MCObject(type, signature, context) {
    RegisterLevel(c_sType, context);
}

MCGenericObject::MCGenericObject(MCObject* owner, MCFactoryContext* context)
    : MCObject(c_sType, owner, context) {
    RegisterLevel(c_sType, context);
}

MCGenericObject::~MCGenericObject() = default;

ZVTBoolean MCGenericObject::IsType_(short type) const {
    return MCObject::IsType_(type);
}
