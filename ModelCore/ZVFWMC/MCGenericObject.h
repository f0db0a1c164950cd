#ifndef MCGENERICOBJECT_H
#define MCGENERICOBJECT_H

#include "ModelCore/ZVFWMC/MCCodes.h"
#include "ModelCore/ZVFWMC/MCFactory.h"
#include "ModelCore/ZVFWMC/MCObject.h"
#include "foundation/ZVTExport.h"

/// The core's concrete object, type 2 ("GenericObject"): no data of its own, properties only. Its shape
/// is the pattern of every host class: a private constructor pair reached from its factory, and a
/// private destructor reached from Expunge.
class MODELCORE_API MCGenericObject : public MCObject {
public:
    /// The type code of generic objects.
    static constexpr short c_sType = MCCodes::tGenericObject;

protected:
    ZVTBoolean IsType_(short type) const override;

private:
    friend class MCObjectFactoryT<MCGenericObject, MCObject>;

    MCGenericObject(short type, MCFactorySignature& signature, MCFactoryContext* context);
    MCGenericObject(MCObject* owner, MCFactoryContext* context);
    ~MCGenericObject() override;
};

#endif
