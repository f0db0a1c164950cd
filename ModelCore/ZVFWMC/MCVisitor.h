#ifndef MCVISITOR_H
#define MCVISITOR_H

// The visitor side of the double dispatch over objects and properties. Walkers and agents, which drive
// visitors over whole trees, build on it.

#include "foundation/ZVTExport.h"

class MCObject;

/// Visits objects; property kinds add their own interfaces (MCPropertyVisitorT) beside this one.
class MODELCORE_API MCVisitor {
public:
    virtual ~MCVisitor();
    /// Called by MCObject::AcceptVisitor; the base does nothing.
    virtual void Visit(MCObject* object);
};

#endif
