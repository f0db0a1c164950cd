#include "ModelCore/ZVFWMC/MCGenericObject.h"

MCGenericObject::MCGenericObject(short type, MCFactorySignature& signature, MCFactoryContext* context)
    : MCObject(type, signature, context) {
    // Seam: the object semantics and property semantics of type 2 are registered here through the
    // context once the rule registries join.
    RegisterNotificationObject(c_sType, context, true);
}

MCGenericObject::MCGenericObject(MCObject* owner, MCFactoryContext* context)
    : MCObject(c_sType, owner, context) {
    // Seam: as in the prototype constructor.
    RegisterNotificationObject(c_sType, context, true);
}

MCGenericObject::~MCGenericObject() = default;

ZVTBoolean MCGenericObject::IsType_(short type) const {
    return MCObject::IsType_(type);
}
